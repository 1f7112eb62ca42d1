#ifndef ZEPH_FILES_ENTRY_ROOM_H
#define ZEPH_FILES_ENTRY_ROOM_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zeph/checks/memory.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// Room for one more entry, asked for before it is taken: a small compressed file may hold more
/// than fits. `most` is what the file promises.
inline void growFor(std::vector<Entry>& entries, const std::string& source, double memoryLimit,
                    std::uint64_t most = UINT64_MAX) {
  if (entries.size() < entries.capacity()) return;
  constexpr std::size_t kFirst = 1024;
  const std::uint64_t next = std::clamp<std::uint64_t>(2 * entries.capacity(), kFirst,
                                                       std::max<std::uint64_t>(most, kFirst));
  requireBytes("reading " + source, static_cast<double>(next) * sizeof(Entry), memoryLimit);
  entries.reserve(next);
}

}  // namespace zeph

#endif
