#ifndef ZEPH_FILES_ATOMIC_FILE_H
#define ZEPH_FILES_ATOMIC_FILE_H

#include <string>
#include <string_view>

namespace zeph {

/// Output file that appears whole or not at all: written under a temporary name in the same folder
/// and renamed by commit(). Without commit() the destructor removes the temporary and what stood
/// under the name before is untouched.
///
///     AtomicFile out("x.csv");
///     out.write("0,1.5\n");
///     out.commit();
///
/// The name "-" stands for standard output, which is written as it comes. A name that exists and is
/// not a regular file (a terminal, a pipe, /dev/null) is written in place too. A symbolic link is
/// followed and stays a link. Writes go through a buffer; data is not forced to the disk.
/// Every failure throws Error(Output) naming the file and the system's reason.
class AtomicFile {
 public:
  explicit AtomicFile(std::string path);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  void write(std::string_view text);

  /// Writes out the buffer and gives the file its name.
  void commit();

  /// Name of the file being written, for writers that open a file themselves. Such a writer calls
  /// nothing but commit() afterwards, which then finds what it wrote.
  const std::string& pathToWrite() const { return temporary_.empty() ? path_ : temporary_; }

  /// Throws what the constructor would throw, and leaves nothing behind: to be called before a long
  /// computation, so that it does not end in front of a locked door.
  static void requireWritable(const std::string& path);

  /// From now on every write and commit of a temporary file in this process throws
  /// Error(Cancelled), so that their owners remove them; stopAll(false) ends that. May be called
  /// from a signal handler.
  static void stopAll(bool stop = true) noexcept;

  /// Number of temporary files of this process at the moment. When it is 0, a signal handler can
  /// end the process without leaving one behind.
  static int temporariesInUse() noexcept;

 private:
  void openTemporary();
  [[noreturn]] void fail();
  void flush();
  void discard() noexcept;

  std::string path_;       // as given; named in messages
  std::string target_;     // path_ with links resolved; what commit() replaces
  std::string temporary_;  // empty when written in place
  std::string buffer_;
  int descriptor_ = -1;
};

/// True when the name ends in ending, upper or lower case: hasEnding("A.MTX", ".mtx").
bool hasEnding(std::string_view name, std::string_view ending);

}  // namespace zeph

#endif
