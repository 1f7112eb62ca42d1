#include <sys/stat.h>

#include "tests/zeph/front_test.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/matrix_file.h"
#include "zeph/files/parts.h"

namespace zeph {
namespace {

class OutputTest : public FrontTest {};

constexpr AtomicFile::Temporary kKinds[] = {AtomicFile::Temporary::Nameless,
                                            AtomicFile::Temporary::Named};

TEST_F(OutputTest, fileAppearsWholeOrNotAtAll) {
  const std::string big(1 << 20, 'x');
  for (const auto kind : kKinds) {
    {
      AtomicFile out(path("new"), kind);
      out.write(big);
      EXPECT_FALSE(std::filesystem::exists(path("new")));
      // What the file system shows is what a killed process would leave.
      EXPECT_EQ(AtomicFile::temporariesInUse(), static_cast<int>(fileCount()));
      EXPECT_TRUE(kind == AtomicFile::Temporary::Nameless || fileCount() == 1);
    }
    EXPECT_EQ(fileCount(), 0u);
    write("old", "kept");
    {
      AtomicFile out(path("old"), kind);
      out.write(big);
    }
    EXPECT_EQ(read(path("old")), "kept");
    chmod(path("old").c_str(), 0640);
    std::filesystem::create_directory(path("folder"));
    std::filesystem::create_symlink("folder/later", path("dangling"));
    std::filesystem::create_symlink("old", path("link"));
    for (const char* name : {"link", "dangling"}) {
      AtomicFile out(path(name), kind);
      out.write("re");
      out.write("placed");
      out.commit();
      EXPECT_TRUE(std::filesystem::is_symlink(path(name)));
    }
    EXPECT_EQ(read(path("old")), "replaced");
    EXPECT_EQ(read(path("folder/later")), "replaced");
    struct stat status {};
    stat(path("old").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777u, 0640u);
    AtomicFile::requireWritable(path("probe"));
    EXPECT_EQ(fileCount(), 4u);
    for (const auto& entry : std::filesystem::directory_iterator(path(""))) remove_all(entry);
    EXPECT_EQ(AtomicFile::temporariesInUse(), 0);
  }
}

TEST_F(OutputTest, stopRequestKeepsWhatStoodThere) {
  write("old", "kept");
  for (const auto kind : kKinds) {
    try {
      AtomicFile out(path("old"), kind);
      out.write("new");
      AtomicFile::stopAll();
      out.commit();
      ADD_FAILURE() << "written after the request";
    } catch (const Error& e) {
      EXPECT_EQ(e.kind(), ErrorKind::Cancelled);
    }
    AtomicFile::stopAll(false);
    EXPECT_EQ(read(path("old")), "kept");
    EXPECT_EQ(fileCount(), 1u);
  }
}

TEST_F(OutputTest, unwritablePlacesAreNamed) {
  std::filesystem::create_directory(path("folder"));
  const struct {
    std::string file, sentence;
  } cases[] = {{path("none/x.csv"), "7 cannot write none/x.csv: No such file or directory"},
               {path("folder"), "7 cannot write folder: Is a directory"},
               {"", "7 the name of the output file is empty"}};
  for (const auto& c : cases) expectError([&] { AtomicFile out(c.file); }, c.sentence);
  expectError(
      [&] {
        const double three[3] = {};
        writeVector("/dev/full", three, 3);
      },
      "7 cannot write /dev/full: No space left");
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(OutputTest, vectorsReadBackToTheSameDoubles) {
  const double values[] = {0.1, -0.0, std::numeric_limits<double>::denorm_min()};
  writeVector(path("v.csv"), values, 3);
  EXPECT_EQ(read(path("v.csv")), "0,0.10000000000000001\n1,-0\n2,4.9406564584124654e-324\n");
}

TEST_F(OutputTest, partsAddUpToTheMatrix) {
  SparseMatrix A;
  A.rows = A.cols = 9;
  A.symmetry = Symmetry::Symmetric;
  for (std::uint32_t k = 0; k < 9; ++k) A.entries.push_back({k, k / 2, 1.0 / (k + 1.0)});
  for (const std::size_t parts : {1, 4, 9, 12}) {
    PartName name{path("A"), ".mtx", 1, parts};
    writeParts(name, A);
    EXPECT_EQ(fileCount(), parts);
    const auto found = partName(name.path(parts));
    ASSERT_TRUE(found && found->part == parts && found->parts == parts && found->after == ".mtx");
    std::vector<double> values;
    for (std::size_t k = 1; k <= 2; ++k) {  // as two processes read them
      for (const auto& e : readParts(*found, k, 2, {}).entries) values.push_back(e.value);
    }
    std::sort(values.rbegin(), values.rend());
    ASSERT_EQ(values.size(), A.entries.size());
    for (std::size_t k = 0; k < values.size(); ++k) EXPECT_EQ(values[k], A.entries[k].value);
    expectError(
        [&] {
          readParts({path("A"), ".mtx", 1, parts + 1}, 1, 1, {});
        },
        "3 cannot read A.1of");
    if (parts > 1) {
      write("A.2of" + std::to_string(parts) + ".mtx",
            "%%MatrixMarket matrix coordinate real general\n9 9 1\n1 1 1\n");
      expectError([&] { readParts(*found, 1, 1, {}); }, "another size or form", false);
    }
    for (std::size_t k = 1; k <= parts; ++k) std::filesystem::remove(name.path(k));
  }
  for (const char* no :
       {"A.mtx", "A.0of4.mtx", "A.5of4.mtx", "A.1of4", "1of4/A.mtx", "A.1of4.d/A.mtx",
        "A.1off4.mtx", "A.1of99999999999999999999.mtx", ".", ""}) {
    EXPECT_FALSE(partName(no)) << no;
  }
  EXPECT_EQ(partName("d.1of2/A.b.02of3.csv.gz")->path(3), "d.1of2/A.b.3of3.csv.gz");
}

}  // namespace
}  // namespace zeph
