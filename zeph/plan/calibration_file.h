// The file that keeps what a calibration measured.
#ifndef ZEPH_PLAN_CALIBRATION_FILE_H
#define ZEPH_PLAN_CALIBRATION_FILE_H

#include <optional>
#include <string>

#include "zeph/plan/cost_model.h"

namespace zeph {

/// $XDG_CACHE_HOME/zeph/calibration.txt, or ~/.cache/zeph/calibration.txt where that variable is
/// not set; empty where there is no home either.
std::string calibrationPath();

/// Makes the folders that are missing above a calibration, and throws Error(Output) where it cannot
/// be written: to be called before it is measured.
void requireCalibrationFile(const std::string& path);

/// Writes the model, whole or not at all, with the processor, its level, the number of processors
/// and the version that it holds for. Throws Error(Output).
void writeCalibration(const std::string& path, const CostModel& model);

/// The model in a file, or nothing where there is no file, it is not whole, or it was measured on
/// another machine or by another version; then `against` says why, as a clause, and is empty where
/// there is no file.
std::optional<CostModel> readCalibration(const std::string& path, std::string& against);

}  // namespace zeph

#endif
