#include "zeph/general/version.h"

#include <cstdio>

#include "solver/library.h"

namespace zeph {

std::string versionText() {
  const auto v = zeph_solver::getDllVersion();
  char text[160];
  std::snprintf(text, sizeof text, "%d.%d.%d build %d, source revision %d, %s", v.major, v.minor,
                v.revision, v.build, v.repositoryRevision, v.extra.c_str());
  return text;
}

}  // namespace zeph
