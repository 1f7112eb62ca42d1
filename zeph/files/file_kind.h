#ifndef ZEPH_FILES_FILE_KIND_H
#define ZEPH_FILES_FILE_KIND_H

#include <string>
#include <string_view>

namespace zeph {

/// What a file that is no text of ours is, and what to do about it, from its first bytes:
/// "is text in UTF-16; save it as UTF-8". Empty for what may be read as text.
std::string foreignKind(std::string_view head);

/// Records of a pose graph stand where a matrix is expected.
bool isPoseGraph(std::string_view head);
bool isMatrixMarket(std::string_view head);
bool isZip(std::string_view head);
bool isNpy(std::string_view head);
/// The third line of a Rutherford-Boeing or Harwell-Boeing file says so.
bool isRutherfordBoeing(std::string_view head);

/// The first bytes of UTF-8 text that some programs write.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace zeph

#endif
