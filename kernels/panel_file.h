// Panels in a file instead of in memory: written piece by piece, read through a mapping.
#ifndef ZEPH_KERNELS_PANEL_FILE_H
#define ZEPH_KERNELS_PANEL_FILE_H

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>

#include "kernels/panel_storage.h"

namespace korin::kernels {

/// Doubles in a file whose room on the disk is reserved. The system is told where the way through
/// them leads, so that it reads ahead, and what may leave memory. Different parts may be used on
/// different threads at once.
///
/// Values are written by system calls, whose failures have a number, and not through the mapping,
/// where they would be signals.
///
/// Behind them there is room for what a computation makes on its way and reads again.
class PanelFile final : public Lender {
 public:
  /// Bytes of the file that are in memory at once for a thread on its way, as long as no panel is
  /// larger.
  static constexpr std::size_t kWindow = std::size_t{32} << 20;

  /// `descriptor` is open for reading and writing, `count` doubles long, and closed in the end.
  /// Throws std::system_error where the file cannot be mapped, and leaves it open.
  PanelFile(int descriptor, std::size_t count);
  ~PanelFile() override;
  PanelFile(const PanelFile&) = delete;
  PanelFile& operator=(const PanelFile&) = delete;

  const double* values() const { return values_; }

  /// All values are to be written anew.
  void clear() const;

  /// Values first .. first+count-1, in parts that mostly follow each other. What lies some way
  /// behind leaves memory. Throws std::system_error.
  void write(std::size_t first, const double* values, std::size_t count) const;

  /// The values first .. last-1 have been read, next come those up to `end`.
  void passedForward(std::size_t first, std::size_t last, std::size_t end) const;

  /// The values first .. last-1 have been read, next come those from `begin` on.
  void passedBackward(std::size_t first, std::size_t last, std::size_t begin) const;

  /// Copies `count` values that a computation wants to read later, but not to keep in memory, into
  /// the file: the result is to be read only, and to be given back before the file is closed.
  /// Throws std::system_error, std::bad_alloc.
  PanelStorage keep(const double* values, std::size_t count) const;
  void giveBack(void* block) const noexcept override;

 private:
  void writeAll(std::size_t offset, const double* values, std::size_t bytes) const;
  void fetch(std::size_t firstChunk, std::size_t lastChunk) const;
  void drop(std::size_t firstChunk, std::size_t lastChunk) const;

  int descriptor_;
  std::size_t bytes_;
  const double* values_ = nullptr;
  mutable std::mutex mutex_;
  struct Part {
    std::size_t bytes;
    std::size_t offset;
  };
  /// What is kept behind the values, by its place in the address space, and where the file ends.
  mutable std::map<const void*, Part> kept_;
  mutable std::size_t end_;
};

/// Reserves room for the bytes from `offset` on in a file, with zeros where the file system knows
/// no other way. 0, or the number of the error. `poll` may throw to stop.
int reserveRoom(int descriptor, std::size_t offset, std::size_t bytes,
                const std::function<void()>& poll);

}  // namespace korin::kernels

#endif
