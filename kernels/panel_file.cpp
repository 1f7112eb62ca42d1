#include "kernels/panel_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

namespace korin::kernels {
namespace {

using std::size_t;

/// What is fetched, written out and dropped at a time: large enough for a disk to be fast, small
/// beside any memory that a factor is too large for.
constexpr size_t kChunk = size_t{1} << 22;
/// Chunks that are fetched before they are read.
constexpr size_t kAhead = 3;
/// Chunks written that stay: leaves are read again, mostly soon, and the disk gets time to write.
constexpr size_t kBehind = 3;

static_assert((kAhead + kBehind + 2) * kChunk == PanelFile::kWindow);
constexpr size_t kZeros = size_t{1} << 20;

size_t wholePages(size_t bytes) {
  static const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return (bytes + page - 1) / page * page;
}

/// To exceed the limit on the size of files is not only an error but also a signal.
void requireBelowLimit(size_t bytes) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || bytes <= limit.rlim_cur) return;
  throw std::system_error(EFBIG, std::generic_category());
}

int writeZeros(int descriptor, size_t offset, size_t bytes, const std::function<void()>& poll) {
  const std::vector<char> zeros(kZeros);
  for (size_t done = 0; done < bytes;) {
    if (poll) poll();
    const ssize_t some = pwrite(descriptor, zeros.data(), std::min(kZeros, bytes - done),
                                static_cast<off_t>(offset + done));
    if (some < 0 && errno != EINTR) return errno;
    if (some > 0) done += static_cast<size_t>(some);
  }
  // Some file systems say only now that the disk is full.
  return fsync(descriptor) == 0 ? 0 : errno;
}

size_t up(size_t byte) {
  return (byte + kChunk - 1) / kChunk;
}

size_t lowered(size_t value, size_t by) {
  return value > by ? value - by : 0;
}

}  // namespace

int reserveRoom(int descriptor, size_t offset, size_t bytes, const std::function<void()>& poll) {
  while (bytes != 0 &&
         fallocate(descriptor, 0, static_cast<off_t>(offset), static_cast<off_t>(bytes)) != 0) {
    if (errno == EOPNOTSUPP) return writeZeros(descriptor, offset, bytes, poll);
    if (errno != EINTR) return errno;
    if (poll) poll();
  }
  return 0;
}

PanelFile::PanelFile(int descriptor, size_t count)
    : descriptor_(descriptor), bytes_(count * sizeof(double)), end_(wholePages(bytes_)) {
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

void PanelFile::writeAll(size_t offset, const double* values, size_t bytes) const {
  const char* const from = reinterpret_cast<const char*>(values);
  for (size_t done = 0; done < bytes;) {
    const ssize_t some =
        pwrite(descriptor_, from + done, bytes - done, static_cast<off_t>(offset + done));
    if (some < 0 && errno == EINTR) continue;
    if (some <= 0) throw std::system_error(some < 0 ? errno : EIO, std::generic_category());
    done += static_cast<size_t>(some);
  }
}

void PanelFile::write(size_t first, const double* values, size_t count) const {
  const size_t begin = first * sizeof(double);
  const size_t size = count * sizeof(double);
  writeAll(begin, values, size);
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

PanelStorage PanelFile::keep(const double* values, size_t count) const {
  const size_t bytes = count * sizeof(double);
  const size_t room = wholePages(bytes);
  size_t offset = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    offset = end_;
    end_ += room;
  }
  requireBelowLimit(offset + bytes);
  writeAll(offset, values, bytes);
  sync_file_range(descriptor_, static_cast<off_t>(offset), static_cast<off_t>(room),
                  SYNC_FILE_RANGE_WRITE);
  void* const mapped =
      mmap(nullptr, bytes, PROT_READ, MAP_SHARED, descriptor_, static_cast<off_t>(offset));
  if (mapped == MAP_FAILED) throw std::system_error(errno, std::generic_category());
  try {
    const std::lock_guard<std::mutex> lock(mutex_);
    kept_.emplace(mapped, Part{room, offset});
  } catch (...) {
    munmap(mapped, bytes);
    throw;
  }
  return PanelStorage(static_cast<double*>(mapped), FreeBlock{mapped, this});
}

void PanelFile::giveBack(void* block) const noexcept {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = kept_.find(block);
  const Part part = found->second;
  kept_.erase(found);
  munmap(block, part.bytes);
  // Where that cannot be, the room is free when the file is.
  fallocate(descriptor_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
            static_cast<off_t>(part.offset), static_cast<off_t>(part.bytes));
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
