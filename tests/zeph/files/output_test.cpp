#include <sys/stat.h>

#include <limits>

#include "tests/zeph/front_test.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/matrix_file.h"

namespace {

using zeph::AtomicFile;
using zeph::SparseMatrix;

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
    } catch (const zeph::Error& e) {
      EXPECT_EQ(e.kind(), zeph::ErrorKind::Cancelled);
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
        zeph::writeVector("/dev/full", three, 3);
      },
      "7 cannot write /dev/full: No space left");
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(OutputTest, vectorsReadBackToTheSameDoubles) {
  const double values[] = {0.1, -0.0, std::numeric_limits<double>::denorm_min()};
  zeph::writeVector(path("v.csv"), values, 3);
  EXPECT_EQ(read(path("v.csv")), "0,0.10000000000000001\n1,-0\n2,4.9406564584124654e-324\n");
}

}  // namespace
