#include <dmumps_c.h>

#include "distributed/backend.h"

namespace zeph::distributed {

std::unique_ptr<DistributedBackend> makeMumpsBackend(const Communicator&, const Assembled&, bool,
                                                     const DistributedOptions&) {
  throw Error(ErrorKind::Usage, "the engine on MUMPS is not built");
}

}  // namespace zeph::distributed
