#include "kernels/panel_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace korin::kernels {
namespace {

using std::size_t;

/// What is fetched, written out and dropped at a time: large enough for a disk to be fast, small
/// beside any memory that a factor is too large for.
constexpr size_t kChunk = size_t{1} << 22;
/// Chunks that are fetched before they are read.
constexpr size_t kAhead = 4;
/// Chunks written that stay: leaves are read again, mostly soon, and the disk gets time to write.
constexpr size_t kBehind = 4;

size_t up(size_t byte) {
  return (byte + kChunk - 1) / kChunk;
}

size_t lowered(size_t value, size_t by) {
  return value > by ? value - by : 0;
}

}  // namespace

PanelFile::PanelFile(int descriptor, size_t count)
    : descriptor_(descriptor), bytes_(count * sizeof(double)) {
  if (bytes_ == 0) return;
  void* const mapped = mmap(nullptr, bytes_, PROT_READ, MAP_SHARED, descriptor, 0);
  if (mapped == MAP_FAILED) throw std::system_error(errno, std::generic_category());
  values_ = static_cast<const double*>(mapped);
}

PanelFile::~PanelFile() {
  if (values_ != nullptr) munmap(const_cast<double*>(values_), bytes_);
  close(descriptor_);
}

void PanelFile::clear() const {
  // Otherwise the system reads every page of which a write replaces only a part. The room stays
  // reserved. Not all file systems can, and none has to.
  if (bytes_ == 0) return;
  fallocate(descriptor_, FALLOC_FL_ZERO_RANGE | FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes_));
}

void PanelFile::write(size_t first, const double* values, size_t count) const {
  const char* const from = reinterpret_cast<const char*>(values);
  const size_t begin = first * sizeof(double);
  const size_t size = count * sizeof(double);
  for (size_t done = 0; done < size;) {
    const ssize_t some =
        pwrite(descriptor_, from + done, size - done, static_cast<off_t>(begin + done));
    if (some < 0 && errno == EINTR) continue;
    if (some <= 0) throw std::system_error(some < 0 ? errno : EIO, std::generic_category());
    done += static_cast<size_t>(some);
  }
  const size_t old = begin / kChunk;
  const size_t now = (begin + size) / kChunk;
  if (old == now) return;
  sync_file_range(descriptor_, static_cast<off_t>(old * kChunk),
                  static_cast<off_t>((now - old) * kChunk), SYNC_FILE_RANGE_WRITE);
  drop(lowered(old, kBehind), lowered(now, kBehind));
}

void PanelFile::passedForward(size_t first, size_t last, size_t end) const {
  const size_t ahead = kAhead * kChunk;
  fetch(up(last * sizeof(double) + ahead), up(end * sizeof(double) + ahead));
  drop(first * sizeof(double) / kChunk, last * sizeof(double) / kChunk);
}

void PanelFile::passedBackward(size_t first, size_t last, size_t begin) const {
  const size_t ahead = kAhead * kChunk;
  fetch(lowered(begin * sizeof(double), ahead) / kChunk,
        lowered(first * sizeof(double), ahead) / kChunk);
  drop(up(first * sizeof(double)), up(last * sizeof(double)));
}

// All of it is advice, without which everything works more slowly: failures do not matter.
void PanelFile::fetch(size_t firstChunk, size_t lastChunk) const {
  const size_t begin = firstChunk * kChunk;
  const size_t end = std::min(lastChunk * kChunk, bytes_);
  if (begin < end) {
    posix_fadvise(descriptor_, static_cast<off_t>(begin), static_cast<off_t>(end - begin),
                  POSIX_FADV_WILLNEED);
  }
}

void PanelFile::drop(size_t firstChunk, size_t lastChunk) const {
  const size_t begin = firstChunk * kChunk;
  const size_t end = std::min(lastChunk * kChunk, bytes_);
  if (begin >= end) return;
  const auto offset = static_cast<off_t>(begin);
  const auto size = static_cast<off_t>(end - begin);
  // Only pages that are on the disk and in nobody's address space can go.
  sync_file_range(descriptor_, offset, size,
                  SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
  madvise(const_cast<double*>(values_ + begin / sizeof(double)), end - begin, MADV_DONTNEED);
  posix_fadvise(descriptor_, offset, size, POSIX_FADV_DONTNEED);
}

}  // namespace korin::kernels
