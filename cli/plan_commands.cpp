// Commands about what a run would take.
#include "cli/plan_commands.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "cli/command_parts.h"
#include "cli/commands.h"
#include "kernels/processor.h"
#include "zeph/checks/machine.h"
#include "zeph/checks/memory.h"
#include "zeph/factor.h"
#include "zeph/factor/first_route.h"
#include "zeph/plan/calibration.h"
#include "zeph/plan/calibration_file.h"
#include "zeph/plan/run_plan.h"

namespace zeph {
namespace {

struct Calibrating : Files {
  int threads = 0;
  bool reset = false;
  bool show = false;
};

std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, seconds < 1e5 ? "%.2g s" : "%.1e s", seconds);
  if (seconds >= 100.0 && seconds < 1e5) std::snprintf(text, sizeof text, "%.0f s", seconds);
  return text;
}

struct KnownModel {
  CostModel model;
  std::string source;
};

// From the file that `wanted` names, which has to be one, or the user's own where that fits.
KnownModel knownModel(const std::string& wanted, const Console& console) {
  const std::string path = wanted.empty() ? calibrationPath() : wanted;
  std::string against;
  if (const auto model = readCalibration(path, against)) return {*model, "measured, " + path};
  if (!wanted.empty()) {
    throw Error(ErrorKind::Input, "the calibration " + path + " is of no use: " +
                                      (against.empty() ? "there is no such file" : against));
  }
  if (!against.empty()) {
    console.note("the calibration " + path + " is passed over: " + against +
                 "; zeph calibrate makes a new one");
  }
  return {defaultCostModel(korin::kernels::processorLevel()),
          "usual for " + processorLevelText() + "; zeph calibrate measures this machine"};
}

class Table {
 public:
  Table(double limit, const Console& console) : limit_(limit), print_(!console.manner.json) {
    if (print_) std::printf("\n%-26s %13s %9s %9s\n", "", "factorisation", "inverse", "memory");
  }

  // bytes < 0 where nothing is known of them.
  JsonObject row(const std::string& name, const StageSeconds& t, double bytes,
                 const std::string& more = "") {
    JsonObject object;
    object.add("seconds_factorisation", t.factor).add("seconds_inverse", t.inverse);
    if (bytes >= 0.0) object.add("bytes", bytes).add("fits", bytes <= limit_);
    if (print_) {
      const char* const verdict = bytes < 0.0 || bytes <= limit_ ? "" : ", too much";
      std::printf("%-26s %13s %9s %9s%s%s\n", name.c_str(), secondsText(t.factor).c_str(),
                  secondsText(t.inverse).c_str(), bytes < 0.0 ? "-" : memoryText(bytes).c_str(),
                  verdict, more.empty() ? "" : (", " + more).c_str());
    }
    return object;
  }

 private:
  double limit_;
  bool print_;
};

void printStructure(const Report& r) {
  std::printf("ordering:         %s\n", name(r.ordering));
  std::printf("entries of A:     %lld\n", static_cast<long long>(r.entriesOfA));
  std::printf("entries of L:     %lld\n", static_cast<long long>(r.entriesOfL));
  std::printf("operations:       %.3g\n", r.operations);
  std::printf("analysis:         %s, done just now\n",
              secondsText(r.secondsOrdering + r.secondsAnalysis).c_str());
}

void printMemory(const RunPlan& p) {
  std::printf("memory:           %s beside %s for A\n", memoryText(p.memory.peak()).c_str(),
              memoryText(p.inputBytes).c_str());
  std::printf("  whole process   %s\n", memoryText(p.process()).c_str());
  std::printf("  panels of L     %s\n", memoryText(p.panels).c_str());
  std::printf("  analysing       about %s\n", memoryText(p.memory.analysis).c_str());
  std::printf("  factorising     %s\n", memoryText(p.memory.factorisation).c_str());
  std::printf("  inverting       %s\n", memoryText(p.memory.inversion).c_str());
}

// Pivots are chosen by value, and with them the fill: there are bounds, and no times.
void tellLu(const RunPlan& p, double limit, const std::string& room, Console& console) {
  const bool print = !console.manner.json;
  if (!p.lu) {
    if (print) std::printf("this build has no LU route\n");
    return;
  }
  const LuPlan& lu = *p.lu;
  const bool expected = lu.entriesOnDiagonal > 0.0;
  const bool certain = lu.mostBytes <= limit, never = lu.leastBytes > limit;
  JsonObject memory, entries;
  memory.add("least", lu.leastBytes).add("most", lu.mostBytes);
  entries.add("most", lu.mostEntries);
  if (expected) {
    memory.add("on_diagonal", lu.bytesOnDiagonal);
    entries.add("on_diagonal", lu.entriesOnDiagonal);
  }
  memory.add("input", p.inputBytes).add("limit", limit);
  if (certain || never) memory.add("fits", certain);
  console.figures.add("memory", memory).add("entries_of_lu", entries);
  if (!print) return;
  std::printf("entries of A:     %.0f\n", lu.entriesOfA);
  std::printf("entries of L, U:  at most %.3g\n", lu.mostEntries);
  std::printf("memory:           at least %s, at most %s, beside %s for A\n",
              memoryText(lu.leastBytes).c_str(), memoryText(lu.mostBytes).c_str(),
              memoryText(p.inputBytes).c_str());
  if (expected) {
    std::printf("likely:           %.3g entries, %s: all pivots on the diagonal\n",
                lu.entriesOnDiagonal, memoryText(lu.bytesOnDiagonal).c_str());
  }
  const char* const verdict = certain                                   ? "yes"
                              : never                                   ? "no"
                              : expected && lu.bytesOnDiagonal <= limit ? "likely"
                              : expected                                ? "hardly"
                                                                        : "only a run tells";
  std::printf("fits:             %s, %s\n", verdict, room.c_str());
  std::printf("time:             not predicted: pivots are chosen by value\n");
}

void tellEngines(const RunPlan& p, double limit, int processes, Console& console) {
  Table table(limit, console);
  JsonObject engines;
  const StageSeconds own{p.report.secondsFactorisation, p.report.secondsInverse};
  engines.add("in_memory", table.row("in memory, threads: " + std::to_string(p.report.threads), own,
                                     p.memory.peak()));
  if (p.report.threads > 1) {
    engines.add("one_thread",
                table.row("in memory, one thread", p.oneThread, p.leastMemory.peak()));
  }
  JsonObject scratch = table.row("with a scratch file", p.scratch, p.besideFile.peak(),
                                 memoryText(p.scratchBytes) + " on the disk; as fast from " +
                                     memoryText(p.factorInFile.peak()) + " on");
  scratch.add("file_bytes", p.scratchBytes).add("bytes_as_fast", p.factorInFile.peak());
  engines.add("scratch", scratch);
  const std::string suffix = ", processes: " + std::to_string(processes);
  if (p.domains) {
    const DomainsPlan& d = *p.domains;
    JsonObject row = table.row("domains" + suffix, d.seconds, d.bytes,
                               "each; an interface of " + std::to_string(d.interfaceUnknowns));
    row.add("factor_bytes", d.factorBytes).add("balance", d.balance);
    row.add("interface_unknowns", d.interfaceUnknowns);
    engines.add("domains", row.add("message_bytes", d.messageBytes));
  }
  if (p.solves) {
    JsonObject row = table.row("MUMPS" + suffix, p.solves->seconds, -1.0, "the inverse by solves");
    engines.add("mumps", row.add("operations_of_solves", p.solves->operations));
  }
  console.figures.add("engines", engines);
}

int removeCalibration(const std::string& path, Console& console) {
  const bool removed = unlink(path.c_str()) == 0;
  if (!removed && errno != ENOENT) {
    throw Error(ErrorKind::Output, path + " cannot be removed: " + strerror(errno));
  }
  console.note(removed ? path + " is removed" : "there is no " + path);
  console.figures.add("removed", removed);
  return 0;
}

void tellModel(const std::string& path, const CostModel& m, Console& console) {
  // A front of 128 columns above 512 rows: as large as matter in most problems.
  const double operations = 128.0 * (512.0 * 512.0 + 128.0 * 512.0 + 128.0 * 128.0 / 3.0);
  const double rate = operations / m.factor.seconds(128, 512) / 1e9;
  console.figures.add("calibration", path).add("gigaflops_of_a_front", rate);
  console.figures.add("sharing", m.sharing)
      .add("fresh_memory_gigabytes_a_second", 1e-9 / std::max(m.largePages, 1e-15));
  console.figures.add("scratch_write", m.scratchWrite).add("scratch_read", m.scratchRead);
  if (console.manner.json) return;
  std::printf("calibration:      %s\n", path.c_str());
  std::printf("a large front:    %.3g GFLOP/s of one thread\n", rate);
  std::printf("threads:          %.2f times one thread's processor time together\n", m.sharing);
  std::printf("scratch file:     %.3g MB/s written, %.3g MB/s read\n", m.scratchWrite / 1e6,
              m.scratchRead / 1e6);
}

int runCalibrate(const Calibrating& o, Console& console) {
  const std::string path = o.output == "-" ? calibrationPath() : o.output;
  if (path.empty()) {
    throw Error(ErrorKind::Output,
                "there is no folder for the calibration: neither HOME nor XDG_CACHE_HOME is set; "
                "name a file with -o");
  }
  if (o.reset) return removeCalibration(path, console);
  if (o.show) {
    std::string against;
    const auto model = readCalibration(path, against);
    if (!model) {
      throw Error(ErrorKind::Input, "there is no calibration in " + path +
                                        (against.empty() ? "" : ": " + against) +
                                        "; zeph calibrate makes one");
    }
    console.finish();
    tellModel(path, *model, console);
    return 0;
  }
  requireCalibrationFile(path);
  CalibrationOptions options;
  options.progress = shownOn(console, o).progress;
  options.threads = o.threads;
  options.scratchFolder = o.scratch;
  const Calibration c = calibrate(options);
  writeCalibration(path, c.model);
  console.finish();
  if (c.busy) {
    console.note("other programs were at work meanwhile, which makes every figure a little worse");
  }
  console.figures.add("busy", c.busy);
  tellModel(path, c.model, console);
  return 0;
}

}  // namespace

int printPlan(const SparseMatrix& A, const Options& options, const PlanWishes& wishes,
              Console& console) {
  const KnownModel known = knownModel(wishes.calibration, console);
  const RunPlan p = planRun(A, options, known.model, wishes.processes);
  const Report& r = p.report;
  tellReport(r, console);
  console.finish();
  const bool print = !console.manner.json;
  if (print) {
    std::printf("route:            %s (%s)\n", name(r.route), r.reason.c_str());
    std::printf("unknowns:         %lld", static_cast<long long>(r.unknowns));
    if (r.route == Route::Cholesky)
      std::printf(" in %lld groups", static_cast<long long>(r.groups));
    std::printf("\n");
  }
  const double limit = wishes.memory > 0.0 ? wishes.memory : availableMemory();
  const std::string room = memoryText(limit) + (wishes.memory > 0.0 ? " allowed" : " are free");
  if (r.route != Route::Cholesky) {
    tellLu(p, limit, room, console);
    return 0;
  }
  JsonObject memory;
  memory.add("panels", p.panels).add("analysis", p.memory.analysis);
  memory.add("factorisation", p.memory.factorisation);
  memory.add("inversion", p.memory.inversion).add("peak", p.memory.peak());
  memory.add("process", p.process())
      .add("input", p.inputBytes)
      .add("limit", limit)
      .add("fits", p.leastMemory.peak() <= limit);
  console.figures.add("memory", memory).add("rates", known.source);
  if (print) {
    printStructure(r);
    printMemory(p);
    const char* const verdict = p.memory.peak() <= limit        ? "yes"
                                : p.leastMemory.peak() <= limit ? "yes, with threads in turn"
                                                                : "no";
    std::printf("fits:             %s, %s\n", verdict, room.c_str());
    if (r.scratchBytes > 0.0) {
      std::printf("a run would take: %s and a scratch file of %s\n",
                  memoryText(p.besideFile.peak()).c_str(), memoryText(r.scratchBytes).c_str());
    }
    std::printf("rates:            %s\n", known.source.c_str());
  }
  tellEngines(p, limit, wishes.processes, console);
  return 0;
}

void declareCalibrate(Application& z) {
  auto options = std::make_shared<Calibrating>();
  CLI::App* command =
      declare(z, "calibrate", "Measure this machine, for the times that zeph plan predicts",
              "  zeph calibrate                    some ten seconds, once\n"
              "  zeph calibrate --scratch /data    how fast that folder's disk is as well",
              options, runCalibrate);
  command->add_option("--threads", options->threads, "threads to try; 0 for all processors")
      ->check(wholeNumber(0, 4096))
      ->type_name("N");
  command->add_option("--scratch", options->scratch, "folder whose disk is measured as well")
      ->type_name("DIR");
  command
      ->add_option("-o,--output", options->output,
                   "file of the calibration; zeph/calibration.txt in the user's cache folder")
      ->type_name("FILE");
  CLI::Option* reset = command->add_flag("--reset", options->reset, "remove the calibration");
  command->add_flag("--show", options->show, "print what is there")->excludes(reset);
}

}  // namespace zeph
