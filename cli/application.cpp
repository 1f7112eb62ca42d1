#include "cli/application.h"

namespace zeph {
namespace {

constexpr const char* kFooter =
    "Matrices are read from Matrix Market files (coordinate or array; real or integer; general,\n"
    "symmetric or skew-symmetric) or, when the name ends in .csv, from triplets row,col,value.\n"
    "Results go to standard output or to the file given with -o; everything else to standard "
    "error.\n"
    "\n"
    "Exit status: 0 done; 1 zeph check found the matrix unfit; 2 wrong usage; 3 unreadable or\n"
    "malformed input; 4 matrix unfit for the operation; 5 not positive definite; 6 singular;\n"
    "7 output cannot be written; 8 out of memory; 130 interrupted.\n"
    "\n"
    "Examples:\n"
    "  zeph demo\n"
    "  zeph check A.mtx\n"
    "  zeph variances A.mtx -o variances.csv\n"
    "  zeph solve A.mtx b.mtx -o x.mtx\n"
    "  zeph adjust J.mtx y.mtx --sigma s.mtx -o x.csv\n"
    "  zeph variances --help";

}  // namespace

void declareApplication(CLI::App& app, Action& action) {
  app.name("zeph");
  app.description("zeph: sparse linear systems and the variances that their inverses hold");
  app.footer(kFooter);
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);
  declareVariances(app, action);
  declareSolve(app, action);
  declareCovariance(app, action);
  declareSelectedInverse(app, action);
  declareLogDeterminant(app, action);
  declarePlan(app, action);
  declareAdjust(app, action);
  declarePoseGraph(app, action);
  declareCheck(app, action);
  declareConvert(app, action);
  declareFactor(app, action);
  declarePattern(app, action);
  declareMultiply(app, action);
  declareExport(app, action);
  declareDemo(app, action);
  declareVersion(app, action);
}

}  // namespace zeph
