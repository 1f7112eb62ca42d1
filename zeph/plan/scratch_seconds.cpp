#include <algorithm>

#include "kernels/panel_file.h"
#include "zeph/plan/run_seconds.h"

namespace zeph {
namespace {

using korin::sparse::Index;

/// Bytes of the file that wait in memory for the disk, or for their reader.
constexpr double kWaiting = 0.4 * korin::kernels::PanelFile::kWindow;

/// A disk beside a computation, which waits for it where it is too far behind.
class Disk {
 public:
  explicit Disk(double rate) : rate_(rate) {}

  /// Bytes that are handed over, or asked for, after so many seconds of work. Returns the wait.
  double pass(double bytes, double seconds) {
    behind_ = std::max(0.0, behind_ - rate_ * seconds) + bytes;
    const double tooMuch = std::max(0.0, behind_ - kWaiting);
    behind_ -= tooMuch;
    return tooMuch / rate_;
  }

 private:
  double rate_;
  double behind_ = 0.0;
};

}  // namespace

StageSeconds scratchSeconds(const CostModel& model, const korin::sparse::Symbolic& s,
                            double entriesGiven, const StageSeconds& inMemory) {
  StageSeconds alone = commonSeconds(model, s, entriesGiven, 1);
  for (Index g = 0; g < s.groups(); ++g) {
    const StageSeconds own = frontSeconds(model, s, g);
    alone.factor += own.factor;
    alone.inverse += own.inverse;
  }
  // Threads pass the groups in about the order of one.
  const double factorSpeed = inMemory.factor / alone.factor;
  const double inverseSpeed = inMemory.inverse / alone.inverse;
  const auto bytes = [&](Index g) { return sizeof(double) * static_cast<double>(s.panelSize(g)); };
  StageSeconds result = inMemory;
  Disk written(model.scratchWrite), read(model.scratchRead);
  for (Index g = 0; g < s.groups(); ++g) {
    const double moving = model.scratchPanel + model.scratchWriting * bytes(g);
    const double work = factorSpeed * frontSeconds(model, s, g).factor + moving;
    result.factor += moving + written.pass(bytes(g), work);
  }
  for (Index g = s.groups(); g-- > 0;) {
    const double moving = model.scratchReading * bytes(g);
    const double work = inverseSpeed * frontSeconds(model, s, g).inverse + moving;
    result.inverse += moving + read.pass(bytes(g), work);
  }
  return result;
}

}  // namespace zeph
