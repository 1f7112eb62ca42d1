#ifndef ZEPH_FILES_ATOMIC_FILE_H
#define ZEPH_FILES_ATOMIC_FILE_H

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace zeph {

/// Output file that appears whole or not at all: written without a name, or where the file system
/// has no such files under a temporary name in the same folder, and named by commit(). Without
/// commit() nothing stays, and what stood under the name before is untouched; of a nameless file
/// nothing stays even when the process is killed.
///
///     AtomicFile out("x.csv");
///     out.write("0,1.5\n");
///     out.commit();
///
/// The name "-" stands for standard output, which is written as it comes. A name that exists and is
/// not a regular file (a terminal, a pipe, /dev/null) is written in place too; a pipe waits for its
/// reader. A symbolic link is followed and stays a link, also when it points nowhere yet. Writes go
/// through a buffer; data is not forced to the disk.
/// Every failure throws Error(Output) naming the file and the system's reason.
class AtomicFile {
 public:
  /// Named: as where the file system has no nameless files.
  enum class Temporary { Nameless, Named };

  explicit AtomicFile(std::string path, Temporary wanted = Temporary::Nameless);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  void write(std::string_view text);

  /// Writes a text that has grown long, and empties it; a short one is left to grow.
  void writeWhenLong(std::string& text);

  /// Writes out the buffer. A disk that is full shows here, before a name is given.
  void flush();

  /// flush(), and gives the file its name.
  void commit() { commitAll({this}); }

  /// Gives several files their names together, and leaves out null pointers: only when everything
  /// of all of them is written, standard output too, does the first one take the place of an older
  /// file.
  static void commitAll(std::initializer_list<AtomicFile*> files) {
    commitAll(files.begin(), files.size());
  }
  static void commitAll(AtomicFile* const* files, std::size_t count);

  /// The name that was given.
  const std::string& path() const { return path_; }

  /// Throws what the constructor would throw, opens no pipe, and leaves nothing behind: to be
  /// called before a long computation, so that it does not end in front of a locked door.
  static void requireWritable(const std::string& path);

  /// True when writing to both names would write one file.
  static bool same(const std::string& path, const std::string& other);

  /// From now on every write and commit throws Error(Cancelled), so that the owners of files remove
  /// them; stopAll(false) ends that. May be called from a signal handler.
  static void stopAll(bool stop = true) noexcept;

  /// Number of temporary names of this process at the moment. When it is 0, a signal handler can
  /// end the process without leaving one behind.
  static int temporariesInUse() noexcept;

  /// Whether a file of this process has got its name, or one has been written in place.
  static bool anythingWritten() noexcept;

 private:
  void openFor(Temporary wanted);
  void prepare();
  void rename();
  void openTemporary(Temporary wanted);
  bool openNameless();
  template <class Take>
  bool takeName(const Take& take);
  void forgetName() noexcept;
  void discard() noexcept;

  std::string path_;       // as given; named in messages
  std::string target_;     // path_ with links resolved; what commit() replaces
  std::string temporary_;  // empty while there is no such name
  std::string buffer_;
  bool inPlace_ = false;
  int descriptor_ = -1;
};

/// True when the name ends in ending, upper or lower case: hasEnding("A.MTX", ".mtx").
bool hasEnding(std::string_view name, std::string_view ending);

}  // namespace zeph

#endif
