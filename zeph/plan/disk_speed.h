#ifndef ZEPH_PLAN_DISK_SPEED_H
#define ZEPH_PLAN_DISK_SPEED_H

#include <string>

namespace zeph {

/// Bytes a second that a folder's disk takes and gives.
struct DiskSpeed {
  double write = 0.0;
  double read = 0.0;
};

/// Writes 256 MiB to a nameless file in `folder`, waits until they are on the disk, and reads them
/// back after asking the system to forget them. Throws Error(Output) naming the folder and the
/// system's reason.
DiskSpeed diskSpeed(const std::string& folder);

}  // namespace zeph

#endif
