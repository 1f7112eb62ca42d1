// The sub-commands of zeph. Each function declares one on the application; its work is done by the
// checked layer in zeph/.
#ifndef ZEPH_CLI_COMMANDS_H
#define ZEPH_CLI_COMMANDS_H

#include "cli/application.h"

namespace zeph {

void declareVariances(Application& z);
void declareSolve(Application& z);
void declareCovariance(Application& z);
void declareSelectedInverse(Application& z);
void declareLogDeterminant(Application& z);
void declarePlan(Application& z);
void declareCalibrate(Application& z);
void declareAdjust(Application& z);
void declarePoseGraph(Application& z);
void declareCheck(Application& z);
void declareConvert(Application& z);
void declareSplit(Application& z);
void declareFactor(Application& z);
void declarePattern(Application& z);
void declareMultiply(Application& z);
void declareExport(Application& z);
void declareDemo(Application& z);
void declareVersion(Application& z);
void declareDoctor(Application& z);

}  // namespace zeph

#endif
