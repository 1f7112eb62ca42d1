#include "zeph/files/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "zeph/checks/memory.h"
#include "zeph/error.h"

namespace zeph {
namespace {

constexpr std::size_t kInputBytes = std::size_t{1} << 16;
constexpr std::size_t kMagicBytes = 2;
constexpr int kGzipWindow = 15 + 16;  // zlib's code for the largest window with gzip's frame

Error cannotRead(const std::string& name, int reason) {
  return Error(ErrorKind::Input, "cannot read " + name + ": " + std::strerror(reason));
}

bool isGzip(const char* bytes, std::size_t count) {
  return count >= kMagicBytes && bytes[0] == '\x1f' && bytes[1] == '\x8b';
}

}  // namespace

const std::string& displayName(const std::string& path) {
  static const std::string input = "standard input";
  return path == "-" ? input : path;
}

struct ByteSource::Inflater {
  Inflater() : input(kInputBytes) {
    if (inflateInit2(&stream, kGzipWindow) != Z_OK) throw std::bad_alloc();
  }
  ~Inflater() { inflateEnd(&stream); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  z_stream stream{};
  std::vector<char> input;
  bool ended = false;  // the last member is complete
};

ByteSource::ByteSource(const std::string& path) : name_(displayName(path)) {
  descriptor_ = path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0) throw cannotRead(name_, errno);
  try {
    struct stat status {};
    const bool known = fstat(descriptor_, &status) == 0;
    if (known && S_ISDIR(status.st_mode)) {
      throw Error(ErrorKind::Input, name_ + " is a directory; name a file in it");
    }
    ahead_.resize(kMagicBytes);
    std::size_t got = 0;
    for (std::size_t more = 1; more > 0 && got < kMagicBytes; got += more) {
      more = readSome(ahead_.data() + got, kMagicBytes - got);
    }
    ahead_.resize(got);
    if (known && S_ISREG(status.st_mode)) fileBytes_ = static_cast<std::size_t>(status.st_size);
    if (isGzip(ahead_.data(), got)) {
      inflater_ = std::make_unique<Inflater>();
    } else {
      bytes_ = fileBytes_;
    }
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

ByteSource::~ByteSource() {
  close(descriptor_);
}

std::size_t ByteSource::read(char* to, std::size_t room) {
  return inflater_ != nullptr ? inflateInto(to, room) : readRaw(to, room);
}

std::size_t ByteSource::readRaw(char* to, std::size_t room) {
  if (aheadAt_ < ahead_.size()) {
    const std::size_t some = std::min(room, ahead_.size() - aheadAt_);
    std::copy_n(ahead_.data() + aheadAt_, some, to);
    aheadAt_ += some;
    return some;
  }
  return readSome(to, room);
}

std::size_t ByteSource::readSome(char* to, std::size_t room) {
  while (true) {
    const ssize_t got = ::read(descriptor_, to, room);
    if (got >= 0) {
      rawBytes_ += static_cast<std::size_t>(got);
      return static_cast<std::size_t>(got);
    }
    if (errno != EINTR) throw cannotRead(name_, errno);
  }
}

std::size_t ByteSource::inflateInto(char* to, std::size_t room) {
  Inflater& z = *inflater_;
  z.stream.next_out = reinterpret_cast<Bytef*>(to);
  z.stream.avail_out = static_cast<uInt>(std::min<std::size_t>(room, 1u << 30));
  const uInt asked = z.stream.avail_out;
  while (z.stream.avail_out == asked) {
    if (z.stream.avail_in == 0) {
      z.stream.next_in = reinterpret_cast<Bytef*>(z.input.data());
      z.stream.avail_in = static_cast<uInt>(readRaw(z.input.data(), z.input.size()));
      if (z.stream.avail_in == 0) {
        if (z.ended) return 0;
        throw Error(ErrorKind::Input,
                    name_ + " is cut short: its compressed data has no end; copy the file again");
      }
    }
    if (z.ended) {
      // Another member follows, or padding, which is nobody's.
      if (*z.stream.next_in != 0x1f) return 0;
      inflateReset(&z.stream);
      z.ended = false;
    }
    const int status = inflate(&z.stream, Z_NO_FLUSH);
    if (status == Z_MEM_ERROR) throw std::bad_alloc();
    z.ended = status == Z_STREAM_END;
    if (status == Z_OK || status == Z_STREAM_END || status == Z_BUF_ERROR) continue;
    throw Error(
        ErrorKind::Input,
        name_ + " is damaged: its compressed data makes no sense" +
            (z.stream.msg != nullptr ? std::string(" (") + z.stream.msg + ")" : std::string()) +
            "; copy the file again");
  }
  return asked - z.stream.avail_out;
}

std::vector<char> readAll(ByteSource& source, double limit) {
  std::vector<char> all;
  std::size_t used = 0;
  while (true) {
    if (used == all.size()) {
      const std::size_t next = std::max({2 * used, source.bytes() + 1, kInputBytes});
      requireBytes("reading " + source.name(), static_cast<double>(next), limit);
      all.resize(next);
    }
    const std::size_t got = source.read(all.data() + used, all.size() - used);
    if (got == 0) break;
    used += got;
  }
  all.resize(used);
  return all;
}

}  // namespace zeph
