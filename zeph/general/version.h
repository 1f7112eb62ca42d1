#ifndef ZEPH_GENERAL_VERSION_H
#define ZEPH_GENERAL_VERSION_H

#include <string>

namespace zeph {

/// "1.2.3", and of which build where that is known.
std::string versionText();

}  // namespace zeph

#endif
