#ifndef ZEPH_FILES_BYTE_SOURCE_H
#define ZEPH_FILES_BYTE_SOURCE_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace zeph {

/// How messages call a file: "-" is standard input.
const std::string& displayName(const std::string& path);

/// The bytes of a file, of a pipe, or of standard input ("-"); what begins as gzip does is
/// decompressed on the way, several members after one another as one.
///
/// Throws Error(Input) for what cannot be opened or read, for folders, and for compressed data that
/// is damaged or cut short.
class ByteSource {
 public:
  explicit ByteSource(const std::string& path);
  ~ByteSource();
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;

  /// Up to `room` bytes; 0 at the end.
  std::size_t read(char* to, std::size_t room);

  /// Size of a regular file that is not compressed, 0 where the number of bytes is not known.
  std::size_t bytes() const { return bytes_; }

  /// The share of the file that has been read, 0 where its size is not known.
  double share() const {
    return fileBytes_ > 0 ? static_cast<double>(rawBytes_) / static_cast<double>(fileBytes_) : 0.0;
  }

  /// As messages call it.
  const std::string& name() const { return name_; }

 private:
  struct Inflater;

  std::size_t readRaw(char* to, std::size_t room);
  std::size_t readSome(char* to, std::size_t room);
  std::size_t inflateInto(char* to, std::size_t room);

  std::string name_;
  int descriptor_ = -1;
  std::size_t bytes_ = 0;
  std::size_t fileBytes_ = 0, rawBytes_ = 0;  // as they lie in the file
  std::vector<char> ahead_;  // raw bytes that were read before anyone asked for them
  std::size_t aheadAt_ = 0;
  std::unique_ptr<Inflater> inflater_;
};

/// Everything that is left of a source. Throws Error(Memory) before more is taken than `limit`, or
/// with a limit of 0, than there is.
std::vector<char> readAll(ByteSource& source, double limit);

}  // namespace zeph

#endif
