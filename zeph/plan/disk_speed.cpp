#include "zeph/plan/disk_speed.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zeph/error.h"

namespace zeph {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 22;
constexpr int kPieces = 64;

class File {
 public:
  explicit File(const std::string& folder) : folder_(folder) {
    std::string name = folder + "/zeph-speed-XXXXXX";
    descriptor_ = mkstemp(name.data());
    if (descriptor_ < 0) fail("written to");
    unlink(name.c_str());
  }
  ~File() { close(descriptor_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int descriptor() const { return descriptor_; }

  [[noreturn]] void fail(const char* what) const {
    throw Error(ErrorKind::Output,
                "the scratch folder " + folder_ + " cannot be " + what + ": " + strerror(errno));
  }

 private:
  std::string folder_;
  int descriptor_;
};

template <class Work>
double bytesASecond(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
  return static_cast<double>(kPiece) * kPieces / spent.count();
}

}  // namespace

DiskSpeed diskSpeed(const std::string& folder) {
  const File file(folder);
  std::vector<unsigned char> piece(kPiece);
  for (std::size_t i = 0; i < piece.size(); ++i) piece[i] = static_cast<unsigned char>(i * i / 7);
  DiskSpeed speed;
  speed.write = bytesASecond([&] {
    for (int k = 0; k < kPieces; ++k) {
      if (pwrite(file.descriptor(), piece.data(), kPiece, static_cast<off_t>(kPiece) * k) !=
          static_cast<ssize_t>(kPiece)) {
        file.fail("written to");
      }
    }
    if (fdatasync(file.descriptor()) != 0) file.fail("written to");
  });
  posix_fadvise(file.descriptor(), 0, 0, POSIX_FADV_DONTNEED);
  speed.read = bytesASecond([&] {
    for (int k = 0; k < kPieces; ++k) {
      if (pread(file.descriptor(), piece.data(), kPiece, static_cast<off_t>(kPiece) * k) !=
          static_cast<ssize_t>(kPiece)) {
        file.fail("read");
      }
    }
  });
  return speed;
}

}  // namespace zeph
