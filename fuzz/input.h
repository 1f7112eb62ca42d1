// What the fuzz targets share: decisions drawn from the input, and files made of it.
#ifndef ZEPH_FUZZ_INPUT_H
#define ZEPH_FUZZ_INPUT_H

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

/// Ends the run as a finding where a promise does not hold.
#define PROMISE(holds)                                                         \
  do {                                                                         \
    if (!(holds)) {                                                            \
      std::fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #holds); \
      std::abort();                                                            \
    }                                                                          \
  } while (false)

/// Reads decisions off the input; zeros when it is used up.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  bool empty() const { return left_ == 0; }

  unsigned byte() {
    if (left_ == 0) return 0;
    --left_;
    return *at_++;
  }

  /// 0 to n - 1, n at most 65536.
  unsigned below(unsigned n) {
    const unsigned first = byte();
    return (n > 256 ? first * 256 + byte() : first) % n;
  }

  /// A small whole number most of the time; else an odd mantissa over so many decades.
  double value(int decades) {
    const unsigned kind = byte();
    if (kind < 128) return static_cast<double>(static_cast<int>(kind) - 64) / 8.0;
    const double mantissa = 1.0 + (256.0 * byte() + byte()) / 65536.0;
    const double exponent = (byte() / 255.0 - 0.5) * decades;
    return (kind % 2 == 0 ? mantissa : -mantissa) * std::pow(10.0, exponent);
  }

  /// Any bits at all: infinities, NaN, denormal numbers.
  double bits() {
    std::uint64_t b = 0;
    for (int i = 0; i < 8; ++i) b = b << 8 | byte();
    double d;
    std::memcpy(&d, &b, sizeof d);
    return d;
  }

 private:
  const std::uint8_t* at_;
  std::size_t left_;
};

/// The input as a file that exists in memory only; its path is valid while it lives.
class MemoryFile {
 public:
  MemoryFile(const void* data, std::size_t size) : descriptor_(memfd_create("input", 0)) {
    PROMISE(descriptor_ >= 0);
    PROMISE(size == 0 || write(descriptor_, data, size) == static_cast<ssize_t>(size));
    lseek(descriptor_, 0, SEEK_SET);
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

/// Same bits, or both not a number.
inline bool same(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

#endif
