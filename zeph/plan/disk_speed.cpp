#include "zeph/plan/disk_speed.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <system_error>
#include <vector>

#include "kernels/panel_file.h"
#include "zeph/factor/scratch_file.h"
#include "zeph/plan/stopwatch.h"

namespace zeph {
namespace {

using std::size_t;

/// Doubles of a panel, and panels: 64 times 4 MiB.
constexpr size_t kPanel = size_t{1} << 19;
constexpr size_t kPanels = 64;
constexpr size_t kCacheLine = 8;
/// Those of a small one, a third of a page, and how many of them.
constexpr size_t kSmall = 170;
constexpr size_t kSmallPanels = 20000;

}  // namespace

DiskSpeed diskSpeed(const std::string& folder) {
  const size_t count = kPanels * kPanel;
  const double bytes = static_cast<double>(count) * sizeof(double);
  DiskSpeed speed;
  try {
    const auto file = makeScratchFile(folder, count, 0.0, "the measurement", {});
    const std::vector<double> panel(kPanel, 0.7);
    file->clear();
    const Stopwatch writing;
    for (size_t k = 0; k < kPanels; ++k) file->write(k * kPanel, panel.data(), kPanel);
    speed.write = bytes / writing.wall();
    speed.writing = writing.seconds() / bytes;

    const Stopwatch reading;
    double sum = 0.0;
    for (size_t k = kPanels; k-- > 0;) {
      const size_t first = k * kPanel, end = first + kPanel;
      for (size_t i = first; i < end; i += kCacheLine) sum += file->values()[i];
      file->passedBackward(first, end, k > 0 ? first - kPanel : first);
    }
    speed.read = bytes / reading.wall();
    speed.reading = reading.seconds() / bytes;

    file->clear();
    const Stopwatch small;
    for (size_t k = 0; k < kSmallPanels; ++k) {
      file->write(k * kSmall, panel.data(), kSmall);
      sum += file->values()[k * kSmall];
    }
    const double each = small.seconds() / static_cast<double>(kSmallPanels);
    speed.panel = std::max(0.0, each - speed.writing * kSmall * sizeof(double));
    if (!(sum > 0.0)) throw std::system_error(EIO, std::generic_category());
  } catch (const std::system_error& e) {
    throwScratchError(folder, e.code().value());
  }
  return speed;
}

}  // namespace zeph
