#ifndef ZEPH_FILES_FIELD_READER_H
#define ZEPH_FILES_FIELD_READER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "zeph/files/line_reader.h"
#include "zeph/matrix_file.h"

namespace zeph {

/// The lines of a table as people have it: fields between `;`, tabs, commas or blanks (the first of
/// these that a line has separates it), perhaps in quotes; comments after #; blank lines; one line
/// of headings at the top.
class FieldReader {
 public:
  /// Both must outlive it.
  FieldReader(LineReader& in, const ReadOptions& options) : in_(in), options_(options) {}

  /// The next line with anything in it, its comment cut off; the headings are passed over. Throws
  /// Error(Input) where they name row, column and value in another order.
  bool next(std::string_view& line);

  std::vector<std::string> split(std::string_view line) const;

  /// True when more than blanks separates the fields of the line.
  static bool separated(std::string_view line);

  /// A whole number from 0, also where it is written as 3.0.
  std::uint64_t index(const std::string& word, const char* what) const;

  /// A number; exponents may be written with d. What is not finite passes only where the options
  /// allow it.
  double number(const std::string& word) const;

  /// What to do about a line with too many fields where decimal commas may be the reason, or
  /// nothing.
  std::string commaAdvice(const std::vector<std::string>& words) const;

  Error error(const std::string& sentence) const { return in_.error(sentence); }

 private:
  bool isHeading(std::string_view line) const;

  LineReader& in_;
  const ReadOptions& options_;
  bool begun_ = false;
};

}  // namespace zeph

#endif
