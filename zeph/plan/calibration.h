// Measuring what the cost model needs, on the machine at hand.
#ifndef ZEPH_PLAN_CALIBRATION_H
#define ZEPH_PLAN_CALIBRATION_H

#include <string>

#include "zeph/options.h"
#include "zeph/plan/cost_model.h"

namespace zeph {

struct CalibrationOptions {
  /// Called between measurements, some milliseconds apart; see zeph/options.h.
  ProgressCall progress;
  int threads = 0;            ///< whose sharing is measured; 0 for all processors
  std::string scratchFolder;  ///< whose disk is measured; none where empty
};

/// A model of this machine, and whether other programs kept its processors busy meanwhile.
struct Calibration {
  CostModel model;
  bool busy = false;
};

/// Runs the engine's own steps on fronts of all sizes and on generated problems: some ten seconds
/// on one thread, timed by the thread's own processor time, so that other programs on the machine
/// hardly count, and a second on all threads. Where the machine is busy these tell nothing, and
/// `sharing` stays that of the defaults. Throws Error(Cancelled), Error(Output) where the scratch
/// folder takes no file, std::bad_alloc.
Calibration calibrate(const CalibrationOptions& options = {});

}  // namespace zeph

#endif
