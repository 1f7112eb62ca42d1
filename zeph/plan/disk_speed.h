#ifndef ZEPH_PLAN_DISK_SPEED_H
#define ZEPH_PLAN_DISK_SPEED_H

#include <string>

namespace zeph {

/// What a scratch file in a folder takes and gives when nothing else is done, in bytes a second of
/// wall time, and the processor's seconds a byte for that.
struct DiskSpeed {
  double write = 0.0;
  double read = 0.0;
  double writing = 0.0;
  double reading = 0.0;
  /// Of a small panel that is written and soon read, as leaves are.
  double panel = 0.0;
};

/// Writes 256 MiB of panels to a scratch file in `folder` as a factorisation does, and reads them
/// backwards, as an inverse does. Throws Error(Output) naming the folder and the reason.
DiskSpeed diskSpeed(const std::string& folder);

}  // namespace zeph

#endif
