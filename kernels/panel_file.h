// Panels in a file instead of in memory: written piece by piece, read through a mapping.
#ifndef ZEPH_KERNELS_PANEL_FILE_H
#define ZEPH_KERNELS_PANEL_FILE_H

#include <cstddef>

namespace korin::kernels {

/// Doubles in a file whose room on the disk is reserved. The system is told where the way through
/// them leads, so that it reads ahead, and what may leave memory. Different parts may be used on
/// different threads at once.
///
/// Values are written by system calls, whose failures have a number, and not through the mapping,
/// where they would be signals.
class PanelFile {
 public:
  /// `descriptor` is open for reading and writing, `count` doubles long, and closed in the end.
  /// Throws std::system_error where the file cannot be mapped, and leaves it open.
  PanelFile(int descriptor, std::size_t count);
  ~PanelFile();
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

 private:
  void fetch(std::size_t firstChunk, std::size_t lastChunk) const;
  void drop(std::size_t firstChunk, std::size_t lastChunk) const;

  int descriptor_;
  std::size_t bytes_;
  const double* values_ = nullptr;
};

}  // namespace korin::kernels

#endif
