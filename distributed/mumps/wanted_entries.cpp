#include "distributed/mumps/wanted_entries.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <string>

#include "zeph/error.h"

namespace zeph::distributed {

using std::size_t;

void WantedEntries::set(std::vector<WantedPlace> places) {
  std::sort(places.begin(), places.end());
  places.erase(std::unique(places.begin(), places.end()), places.end());
  if (places.size() >= size_t{std::numeric_limits<MUMPS_INT>::max()}) {
    throw Error(ErrorKind::Unfit,
                "MUMPS cannot be asked for " + std::to_string(places.size()) +
                    " entries of an inverse at once; take the engine \"domains\"");
  }
  rows.clear();
  std::fill(starts.begin(), starts.end(), 0);
  for (const auto& [col, row] : places) {
    rows.push_back(static_cast<MUMPS_INT>(row) + 1);
    ++starts[col + 1];
  }
  starts[0] = 1;
  std::partial_sum(starts.begin(), starts.end(), starts.begin());
  values.assign(places.size(), 0.0);
}

double WantedEntries::at(size_t row, size_t col) const {
  const auto begin = rows.begin() + (starts[col] - 1), end = rows.begin() + (starts[col + 1] - 1);
  const auto found = std::lower_bound(begin, end, static_cast<MUMPS_INT>(row) + 1);
  return values[static_cast<size_t>(found - rows.begin())];
}

}  // namespace zeph::distributed
