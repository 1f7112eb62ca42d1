#include "zeph/files/npz.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <string_view>

#include "zeph/checks/memory.h"
#include "zeph/error.h"
#include "zeph/files/entry_room.h"
#include "zeph/files/file_kind.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

using std::size_t;
using std::string_view;

constexpr size_t kEndRecord = 22, kLongestComment = 65535, kCentralHeader = 46, kLocalHeader = 30;
constexpr std::uint32_t kEndSignature = 0x06054b50, kCentralSignature = 0x02014b50,
                        kLocalSignature = 0x04034b50, kZip64 = 0xffffffff;
constexpr std::uint64_t kLargestRatio = 1040;  // deflate does not get beyond 1032 to one
constexpr std::int64_t kLargestOffset = kLargestSize;
constexpr unsigned kStored = 0, kDeflated = 8, kEncrypted = 1;

/// The bytes of a file whose reads cannot leave it.
class Bytes {
 public:
  Bytes(string_view all, const std::string& source) : all_(all), source_(source) {}

  std::uint32_t number(size_t at, size_t bytes) const {
    const string_view raw = piece(at, bytes);
    std::uint32_t value = 0;
    for (size_t k = 0; k < bytes; ++k) {
      value |= std::uint32_t{static_cast<unsigned char>(raw[k])} << (8 * k);
    }
    return value;
  }

  string_view piece(size_t at, size_t bytes) const {
    if (at > all_.size() || bytes > all_.size() - at) throw damaged("it is cut short");
    return all_.substr(at, bytes);
  }

  size_t size() const { return all_.size(); }

  Error damaged(const std::string& why) const {
    return Error(ErrorKind::Input, source_ + " is damaged or no .npz archive: " + why);
  }

 private:
  string_view all_;
  const std::string& source_;
};

/// Members of an archive by name, unfolded when asked for.
class Archive {
 public:
  Archive(string_view all, const std::string& source, double memoryLimit)
      : bytes_(all, source), source_(source), memoryLimit_(memoryLimit) {
    const size_t end = endRecord(all);
    size_t at = bytes_.number(end + 16, 4);
    for (size_t left = bytes_.number(end + 10, 2); left > 0; --left) {
      if (bytes_.number(at, 4) != kCentralSignature)
        throw bytes_.damaged("its directory is broken");
      const size_t name = bytes_.number(at + 28, 2);
      members_.emplace(bytes_.piece(at + kCentralHeader, name), at);
      at += kCentralHeader + name + bytes_.number(at + 30, 2) + bytes_.number(at + 32, 2);
    }
  }

  bool has(const std::string& name) const { return members_.count(name) > 0; }

  std::vector<char> member(const std::string& name) const {
    const auto found = members_.find(name);
    if (found == members_.end()) {
      throw Error(ErrorKind::Input,
                  source_ + " is an archive without " + name +
                      "; sparse matrices are read as scipy.sparse.save_npz writes them");
    }
    const size_t at = found->second;
    const unsigned flags = bytes_.number(at + 8, 2), method = bytes_.number(at + 10, 2);
    const std::uint32_t crc = bytes_.number(at + 16, 4), packed = bytes_.number(at + 20, 4),
                        size = bytes_.number(at + 24, 4), local = bytes_.number(at + 42, 4);
    if ((flags & kEncrypted) != 0) throw bytes_.damaged("it is encrypted");
    if (packed == kZip64 || size == kZip64) throw bytes_.damaged("its members exceed 4 GB");
    if (bytes_.number(local, 4) != kLocalSignature) throw bytes_.damaged("a member is missing");
    const size_t begin =
        local + kLocalHeader + bytes_.number(local + 26, 2) + bytes_.number(local + 28, 2);
    const string_view raw = bytes_.piece(begin, packed);
    if (size > kLargestRatio * (std::uint64_t{packed} + 1))
      throw bytes_.damaged("it promises too much");
    requireBytes("reading " + source_, size, memoryLimit_);
    std::vector<char> content(size);
    if (method == kStored && packed == size) {
      std::copy(raw.begin(), raw.end(), content.begin());
    } else if (method != kDeflated || !unfolded(raw, content)) {
      throw bytes_.damaged(name + " does not unfold");
    }
    if (crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(content.data()), size) != crc) {
      throw bytes_.damaged("the checksum of " + name + " is wrong");
    }
    return content;
  }

 private:
  size_t endRecord(string_view all) const {
    if (all.size() < kEndRecord) throw bytes_.damaged("it is cut short");
    const size_t least = all.size() - std::min(all.size(), kEndRecord + kLongestComment);
    for (size_t at = all.size() - kEndRecord + 1; at-- > least;) {
      if (bytes_.number(at, 4) == kEndSignature) return at;
    }
    throw bytes_.damaged("it has no directory; it may be cut short");
  }

  // Into exactly content.size() bytes.
  static bool unfolded(string_view raw, std::vector<char>& content) {
    z_stream stream{};
    if (inflateInit2(&stream, -15) != Z_OK) throw std::bad_alloc();  // no frame of its own
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(raw.data()));
    stream.avail_in = static_cast<uInt>(raw.size());
    char nothing = 0;
    stream.next_out = reinterpret_cast<Bytef*>(content.empty() ? &nothing : content.data());
    stream.avail_out = static_cast<uInt>(content.size());
    const int status = inflate(&stream, Z_FINISH);
    const bool whole = status == Z_STREAM_END && stream.avail_out == 0;
    inflateEnd(&stream);
    return whole;
  }

  Bytes bytes_;
  const std::string& source_;
  double memoryLimit_;
  std::map<std::string, size_t, std::less<>> members_;
};

/// One .npy array: its header, read, and its values.
class Array {
 public:
  Array(std::vector<char> file, std::string name) : file_(std::move(file)), name_(std::move(name)) {
    const Bytes bytes({file_.data(), file_.size()}, name_);
    if (!isNpy({file_.data(), file_.size()})) throw bytes.damaged("an array has no header");
    const bool longHeader = bytes.number(6, 1) > 1;
    const size_t length = bytes.number(8, longHeader ? 4 : 2);
    begin_ = (longHeader ? 12 : 10) + length;
    const std::string header(bytes.piece(begin_ - length, length));
    readType(after(header, "'descr':"));
    fortran_ = after(header, "'fortran_order':").substr(0, 4) == "True";
    readShape(after(header, "'shape':"));
    size_t count = 1;
    for (const size_t extent : shape_) {
      if (extent != 0 && count > file_.size() / extent) throw tooShort();
      count *= extent;
    }
    if (count > (file_.size() - begin_) / std::max<size_t>(size_, 1)) throw tooShort();
    count_ = count;
  }

  size_t count() const { return count_; }
  const std::vector<size_t>& shape() const { return shape_; }
  bool fortran() const { return fortran_; }

  double value(size_t k) const {
    switch (kind_) {
      case 'f':
        return size_ == 8 ? get<double>(k) : static_cast<double>(get<float>(k));
      case 'b':
        return get<std::uint8_t>(k) != 0 ? 1.0 : 0.0;
      case 'i':
        return static_cast<double>(integer(k));
      case 'u':
        return size_ == 8 ? static_cast<double>(get<std::uint64_t>(k))
                          : static_cast<double>(integer(k));
      default:
        throw Error(ErrorKind::Input, name_ + " holds text, no numbers");
    }
  }

  /// An index below `limit`.
  size_t index(size_t k, size_t limit) const {
    if (kind_ != 'i' && kind_ != 'u') throw Error(ErrorKind::Input, name_ + " are no indices");
    const std::int64_t i = integer(k);
    if (i >= 0 && static_cast<std::uint64_t>(i) < limit) return static_cast<size_t>(i);
    throw Error(ErrorKind::Input, "entry " + std::to_string(k) + " of " + name_ + " is " +
                                      std::to_string(i) + "; it must lie between 0 and " +
                                      std::to_string(limit == 0 ? 0 : limit - 1));
  }

  std::int64_t integer(size_t k) const {
    switch (size_) {
      case 1:
        return kind_ == 'u' || kind_ == 'b' ? get<std::uint8_t>(k) : get<std::int8_t>(k);
      case 2:
        return kind_ == 'u' ? get<std::uint16_t>(k) : get<std::int16_t>(k);
      case 4:
        return kind_ == 'u' ? std::int64_t{get<std::uint32_t>(k)} : get<std::int32_t>(k);
      default:
        return get<std::int64_t>(k);
    }
  }

  /// The letters of a text, NumPy's bytes or characters.
  std::string text() const {
    std::string word;
    for (size_t k = begin_; k < begin_ + count_ * size_ && k < file_.size(); ++k) {
      if (file_[k] != '\0') word += file_[k];
    }
    return word;
  }

 private:
  template <class T>
  T get(size_t k) const {
    T value;
    std::memcpy(&value, file_.data() + begin_ + k * sizeof(T), sizeof(T));
    return value;
  }

  Error tooShort() const { return Error(ErrorKind::Input, name_ + " is shorter than it says"); }

  std::string after(const std::string& header, const char* key) const {
    const size_t at = header.find(key);
    if (at == header.npos) throw Error(ErrorKind::Input, name_ + " has a header without " + key);
    const size_t value = header.find_first_not_of(' ', at + std::strlen(key));
    return value == header.npos ? "" : header.substr(value);
  }

  // '<f8', '|b1', '|S3', '<U3'
  void readType(const std::string& text) {
    const size_t end = text.find('\'', 1);
    const std::string type = end == text.npos ? "" : text.substr(1, end - 1);
    if (type.size() >= 3) {
      kind_ = type[1];
      std::from_chars(type.data() + 2, type.data() + type.size(), size_);
    }
    const bool word = size_ == 1 || size_ == 2 || size_ == 4 || size_ == 8;
    const bool known =
        ((kind_ == 'i' || kind_ == 'u') && word) || (kind_ == 'f' && (size_ == 4 || size_ == 8)) ||
        (kind_ == 'b' && size_ == 1) || ((kind_ == 'S' || kind_ == 'U') && size_ > 0 && size_ < 64);
    if (!known || type[0] == '>') {
      throw Error(ErrorKind::Input,
                  name_ + " has values of the type \"" + type +
                      "\"; real and integer ones of the usual sizes are read, little-endian");
    }
    if (kind_ == 'U') size_ *= 4;
  }

  // (3,) or (2, 3) or ()
  void readShape(const std::string& text) {
    const size_t end = text.find(')');
    if (text.empty() || text[0] != '(' || end == text.npos) throw tooShort();
    const char* p = text.data() + 1;
    const char* const last = text.data() + end;
    while (p < last) {
      size_t extent = 0;
      const auto [next, status] = std::from_chars(p, last, extent);
      if (status == std::errc()) {
        shape_.push_back(extent);
        p = next;
      } else if (status == std::errc::result_out_of_range) {
        throw tooShort();
      } else {
        ++p;
      }
    }
  }

  std::vector<char> file_;
  std::string name_;
  size_t begin_ = 0, size_ = 0, count_ = 0;
  char kind_ = '?';
  bool fortran_ = false;
  std::vector<size_t> shape_;
};

/// The arrays of one matrix, and what they become.
class SparseArrays {
 public:
  SparseArrays(const Archive& archive, const std::string& source, const ReadOptions& options)
      : archive_(archive), source_(source), options_(options) {
    m_.source = source;
    const Array shape = array("shape");
    if (shape.count() != 2) throw wrong("shape has not two entries");
    m_.rows = shape.index(0, kLargestSize + 1);
    m_.cols = shape.index(1, kLargestSize + 1);
  }

  SparseMatrix matrix() {
    const std::string format = array("format").text();
    if (format == "csr" || format == "csc") {
      compressed(format == "csr");
    } else if (format == "bsr") {
      blocks();
    } else if (format == "coo") {
      coordinates();
    } else if (format == "dia") {
      diagonals();
    } else {
      throw wrong("the format \"" + format.substr(0, 20) +
                  "\" is none of csr, csc, coo, bsr and dia");
    }
    return std::move(m_);
  }

 private:
  Array array(const std::string& name) const {
    return {archive_.member(name + ".npy"), name + " of " + source_};
  }

  Error wrong(const std::string& why) const {
    return Error(ErrorKind::Input, source_ + " is no sparse matrix that can be read: " + why);
  }

  void add(size_t row, size_t col, double value) {
    if (!std::isfinite(value) && !options_.allowNonFinite) {
      throw Error(ErrorKind::Input, "the value of entry (" + std::to_string(row) + ", " +
                                        std::to_string(col) + ") of " + source_ + " is " +
                                        toText(value) + "; replace it by a finite number");
    }
    growFor(m_.entries, source_, options_.memoryLimit);
    m_.entries.push_back({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(col), value});
  }

  // use(line, k) for the k-th entry of every line that indptr describes.
  template <class Use>
  void forEachLine(const Array& starts, size_t lines, size_t entries, const Use& use) {
    if (starts.count() != lines + 1) throw wrong("indptr has not one entry more than lines");
    starts.index(0, 1);  // it begins with 0
    for (size_t line = 0; line < lines; ++line) {
      const size_t begin = starts.index(line, entries + 1),
                   end = starts.index(line + 1, entries + 1);
      if (end < begin) throw wrong("indptr descends");
      for (size_t k = begin; k < end; ++k) use(line, k);
    }
  }

  void compressed(bool byRows) {
    const Array starts = array("indptr"), indices = array("indices"), data = array("data");
    const size_t entries = std::min(indices.count(), data.count());
    forEachLine(starts, byRows ? m_.rows : m_.cols, entries, [&](size_t line, size_t k) {
      const size_t other = indices.index(k, byRows ? m_.cols : m_.rows);
      add(byRows ? line : other, byRows ? other : line, data.value(k));
    });
  }

  void blocks() {
    const Array starts = array("indptr"), indices = array("indices"), data = array("data");
    if (data.shape().size() != 3 || data.fortran()) throw wrong("its blocks are not in order");
    const size_t height = data.shape()[1], width = data.shape()[2];
    if (height == 0 || width == 0 || m_.rows % height != 0 || m_.cols % width != 0) {
      throw wrong("its size is no multiple of its blocks");
    }
    forEachLine(starts, m_.rows / height, std::min(indices.count(), data.shape()[0]),
                [&](size_t line, size_t k) {
                  const size_t col = indices.index(k, m_.cols / width) * width;
                  for (size_t i = 0; i < height * width; ++i) {
                    add(line * height + i / width, col + i % width,
                        data.value(k * height * width + i));
                  }
                });
  }

  void coordinates() {
    const Array rows = array("row"), cols = array("col"), data = array("data");
    if (rows.count() != data.count() || cols.count() != data.count()) {
      throw wrong("row, col and data differ in length");
    }
    for (size_t k = 0; k < data.count(); ++k) {
      add(rows.index(k, m_.rows), cols.index(k, m_.cols), data.value(k));
    }
  }

  // data(d, j) is entry (j - offsets(d), j).
  void diagonals() {
    const Array offsets = array("offsets"), data = array("data");
    if (data.shape().size() != 2 || data.fortran() || data.shape()[0] != offsets.count()) {
      throw wrong("its diagonals are not in order");
    }
    const size_t length = data.shape()[1];
    for (size_t d = 0; d < offsets.count(); ++d) {
      const std::int64_t offset = offsets.integer(d);
      if (offset > kLargestOffset || offset < -kLargestOffset) continue;
      for (size_t j = 0; j < std::min(length, m_.cols); ++j) {
        const std::int64_t row = static_cast<std::int64_t>(j) - offset;
        if (row < 0 || static_cast<size_t>(row) >= m_.rows) continue;
        const double value = data.value(d * length + j);
        if (value != 0.0) add(static_cast<size_t>(row), j, value);
      }
    }
  }

  const Archive& archive_;
  const std::string& source_;
  const ReadOptions& options_;
  SparseMatrix m_;
};

}  // namespace

SparseMatrix readNpz(const std::vector<char>& file, const std::string& source,
                     const ReadOptions& options) {
  const Archive archive({file.data(), file.size()}, source, options.memoryLimit);
  if (!archive.has("format.npy")) {
    const std::string foreign = foreignKind({file.data(), file.size()});
    if (!archive.has("data.npy")) throw Error(ErrorKind::Input, source + " " + foreign);
  }
  return SparseArrays(archive, source, options).matrix();
}

DenseMatrix readNpy(const std::vector<char>& file, const std::string& source,
                    const ReadOptions& options) {
  const Array data(file, source);
  const std::vector<size_t>& shape = data.shape();
  if (shape.empty() || shape.size() > 2) {
    throw Error(ErrorKind::Input, source + " has " + std::to_string(shape.size()) +
                                      " dimensions; a matrix has two, a vector one");
  }
  const size_t rows = shape[0], cols = shape.size() == 2 ? shape[1] : 1;
  requireBytes("reading " + source, static_cast<double>(data.count()) * sizeof(double),
               options.memoryLimit);
  auto m = DenseMatrix::zeros(rows, cols);
  m.source = source;
  for (size_t k = 0; k < data.count(); ++k) {
    const double value = data.value(k);
    if (!std::isfinite(value) && !options.allowNonFinite) {
      throw Error(ErrorKind::Input, "entry " + std::to_string(k) + " of " + source + " is " +
                                        toText(value) + "; replace it by a finite number");
    }
    m.values[data.fortran() || cols == 1 ? k : (k % cols) * rows + k / cols] = value;
  }
  return m;
}

}  // namespace zeph
