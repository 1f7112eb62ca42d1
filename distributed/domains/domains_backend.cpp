#include "distributed/backend.h"

namespace zeph::distributed {

std::unique_ptr<DistributedBackend> makeDomainsBackend(const Communicator&, const Assembled&,
                                                       const DistributedOptions&) {
  throw Error(ErrorKind::Usage, "the engine of domains is not built");
}

}  // namespace zeph::distributed
