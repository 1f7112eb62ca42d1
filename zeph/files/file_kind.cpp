#include "zeph/files/file_kind.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace zeph {
namespace {

using namespace std::string_view_literals;

struct Magic {
  std::string_view bytes;
  const char* sentence;
};

constexpr const char* kUtf16 = "is text in UTF-16; save it as UTF-8";
constexpr const char* kWebPage =
    "is a web page, as a link that was saved instead of the file behind it gives; download the "
    "file itself";

// Longer beginnings before those that they begin with.
constexpr Magic kMagic[] = {
    {"\xFF\xFE\0\0"sv, "is text in UTF-32; save it as UTF-8"},
    {"\xFF\xFE"sv, kUtf16},
    {"\xFE\xFF"sv, kUtf16},
    {"MATLAB 5.0 MAT-file"sv,
     "is a MATLAB MAT-file, which is not read; write the matrix as Matrix Market, with "
     "scipy.io.mmwrite or MATLAB's mmwrite"},
    {"MATLAB 7"sv,
     "is a MATLAB MAT-file, which is not read; write the matrix as Matrix Market, with "
     "scipy.io.mmwrite or MATLAB's mmwrite"},
    {"\x89HDF\r\n\x1a\n"sv,
     "is an HDF5 file, as MATLAB's save -v7.3 writes; write the matrix as Matrix Market"},
    {"\x1f\x8b"sv, "is compressed twice; unpack it once"},
    {"BZh"sv, "is compressed with bzip2; unpack it, or compress it with gzip instead"},
    {"\xFD"
     "7zXZ"sv,
     "is compressed with xz; unpack it, or compress it with gzip instead"},
    {"\x28\xB5\x2F\xFD"sv, "is compressed with zstd; unpack it, or compress it with gzip instead"},
    {"7z\xBC\xAF"sv, "is a 7z archive; unpack it and name the file in it"},
    {"PK\x03\x04"sv, "is a zip archive; unpack it and name the file in it"},
    {"\x93NUMPY"sv, "is a NumPy array; where a sparse matrix is wanted, scipy.sparse.save_npz"},
    {"%PDF"sv, "is a PDF document, not a matrix file"},
    {"\x89PNG"sv, "is a picture, not a matrix file"},
    {"\x7f"
     "ELF"sv,
     "is a program, not a matrix file"},
};

bool startsWithNoCase(std::string_view text, std::string_view lower) {
  return text.size() >= lower.size() &&
         std::equal(lower.begin(), lower.end(), text.begin(), [](char a, char b) {
           return a == std::tolower(static_cast<unsigned char>(b));
         });
}

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  return first == text.npos ? std::string_view() : text.substr(first);
}

std::size_t controls(std::string_view head) {
  return static_cast<std::size_t>(std::count_if(head.begin(), head.end(), [](char c) {
    const auto u = static_cast<unsigned char>(c);
    return (u < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\f') || u == 0x7f;
  }));
}

}  // namespace

std::string foreignKind(std::string_view head) {
  for (const Magic& m : kMagic) {
    if (head.substr(0, m.bytes.size()) != m.bytes) continue;
    const bool office = head.find("[Content_Types].xml") != head.npos ||
                        head.find("mimetypeapplication/vnd.oasis") != head.npos;
    return office ? "is a spreadsheet or another office document; export the table as CSV"
                  : m.sentence;
  }
  const std::string_view text = withoutBlanks(head);
  if (startsWithNoCase(text, "<!doctype html") || startsWithNoCase(text, "<html")) return kWebPage;
  if (text.substr(0, 5) == "<?xml") return "is an XML file, not a matrix file";
  if (head.size() > 262 && head.substr(257, 5) == "ustar") {
    return "is a tar archive; unpack it and name the file in it";
  }
  const auto zeros = static_cast<std::size_t>(std::count(head.begin(), head.end(), '\0'));
  if (zeros > 0 && 5 * zeros > 2 * head.size() && 5 * zeros < 3 * head.size()) return kUtf16;
  if (controls(head) > 0) return "holds binary data; a matrix file is text";
  return {};
}

bool isPoseGraph(std::string_view head) {
  const std::string_view text = withoutBlanks(head);
  return text.substr(0, 9) == "VERTEX_SE" || text.substr(0, 7) == "EDGE_SE" ||
         text.substr(0, 4) == "FIX ";
}

bool isMatrixMarket(std::string_view head) {
  return startsWithNoCase(head, "%%matrixmarket");
}

bool isZip(std::string_view head) {
  return head.substr(0, 4) == "PK\x03\x04" || head.substr(0, 4) == "PK\x05\x06";
}

bool isNpy(std::string_view head) {
  return head.substr(0, 6) == "\x93NUMPY";
}

bool isRutherfordBoeing(std::string_view head) {
  for (int line = 1; line < 3; ++line) {
    const std::size_t end = head.find('\n');
    if (end == head.npos) return false;
    head.remove_prefix(end + 1);
  }
  if (head.size() < 15) return false;
  const auto is = [&](std::size_t k, std::string_view letters) {
    return letters.find(static_cast<char>(std::tolower(static_cast<unsigned char>(head[k])))) !=
           letters.npos;
  };
  return is(0, "ricpq") && is(1, "surzh") && is(2, "ae") &&
         head.substr(3, 11).find_first_not_of(' ') == head.npos;
}

}  // namespace zeph
