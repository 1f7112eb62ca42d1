#include "cli/processes.h"

#include <dlfcn.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "zeph/error.h"
#include "zeph/factor/first_route.h"

namespace zeph {
namespace {

constexpr const char* kLibrary = "libzeph_distributed.so.1";

// -1 where the variable is not set to a number.
int number(const char* variable) {
  const char* text = std::getenv(variable);
  int value = -1;
  if (text == nullptr) return value;
  const char* end = text + std::strlen(text);
  const auto [rest, status] = std::from_chars(text, end, value);
  return status == std::errc() && rest == end ? value : -1;
}

int firstOf(std::initializer_list<const char*> variables) {
  for (const char* variable : variables) {
    if (const int value = number(variable); value >= 0) return value;
  }
  return -1;
}

zeph_distributed_run_function component() {
  void* library = ::dlopen(kLibrary, RTLD_NOW | RTLD_GLOBAL);
  if (library == nullptr) {
    const char* why = ::dlerror();
    throw Error(ErrorKind::Usage,
                std::string("work on several processes needs the distributed component; install "
                            "the package libzeph-distributed1 (") +
                    (why == nullptr ? kLibrary : why) + ")");
  }
  auto run = reinterpret_cast<zeph_distributed_run_function>(::dlsym(library, kDistributedRun));
  if (run == nullptr) {
    throw Error(ErrorKind::Usage, std::string(kLibrary) + " is not the one of this command");
  }
  return run;
}

// What the functions of the call work on. What they throw is kept: nothing may leave them.
class Asking {
 public:
  Asking(const DistributedQuestion& question, Console& console)
      : question_(question), console_(console) {}

  int run() {
    zeph_distributed_call call{};
    call.version = kDistributedCallVersion;
    call.task = static_cast<int>(question_.task);
    call.engine = question_.engine == "domains" ? 1 : question_.engine == "mumps" ? 2 : 0;
    call.interface = question_.interface == "dense" ? 1 : question_.interface == "sparse" ? 2 : 0;
    call.route = question_.route;
    call.threads = question_.threads;
    call.memory = question_.memory;
    call.scratch = question_.scratch.c_str();
    call.context = this;
    call.read = [](void* self, int rank, int count, zeph_distributed_share* share,
                   const char** sentence) {
      return static_cast<Asking*>(self)->read(rank, count, *share, *sentence);
    };
    call.release = [](void* self) { static_cast<Asking*>(self)->matrix_ = {}; };
    call.progress = [](void* self, const char* stage, double share) {
      return static_cast<Asking*>(self)->progress(stage, share) ? 1 : 0;
    };
    call.take = [](void* self, const zeph_distributed_answer* answer) {
      static_cast<Asking*>(self)->take(*answer);
    };
    call.fail = [](void* self, const char* sentence, std::int64_t row) {
      auto* asking = static_cast<Asking*>(self);
      asking->sentence_ = sentence;
      asking->row_ = row;
    };
    return component()(&call);
  }

  const std::string& sentence() const { return sentence_; }
  std::int64_t row() const { return row_; }
  DistributedAnswer& answer() { return answer_; }

  void rethrow() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  int read(int rank, int count, zeph_distributed_share& share, const char*& sentence) {
    try {
      bool whole = false;
      matrix_ = question_.read(rank, count, whole);
      if (question_.readRight && rank == 0) right_ = question_.readRight(matrix_);
      answer_.source = matrix_.source;
      answer_.indexBase = matrix_.indexBase;
      share.whole = whole ? 1 : 0;
      share.rows = matrix_.rows;
      share.cols = matrix_.cols;
      share.symmetry = static_cast<int>(matrix_.symmetry);
      share.triangular = matrix_.triangular ? 1 : 0;
      share.source = answer_.source.c_str();
      share.index_base = matrix_.indexBase;
      share.entries = matrix_.entries.data();
      share.count = matrix_.entries.size();
      share.right = right_.values.data();
      share.columns = right_.cols;
      return 0;
    } catch (const Error& e) {
      failure_ = std::current_exception();
      sentence_ = e.what();
      sentence = sentence_.c_str();
      return exitCode(e.kind());
    } catch (const std::exception&) {
      failure_ = std::current_exception();
      sentence = "not enough memory to read the matrix";
      return exitCode(ErrorKind::Memory);
    }
  }

  bool progress(const char* stage, double share) {
    try {
      console_.checkpoint();
      if (stage_ != stage) console_.stage(stage);
      stage_ = stage;
      console_.share(share);
      return true;
    } catch (...) {
      failure_ = std::current_exception();
      return false;
    }
  }

  void take(const zeph_distributed_answer& a) {
    try {
      answer_.figures = a;
      answer_.values.assign(a.values, a.values + a.count);
      answer_.warnings.assign(a.warnings, a.warnings + a.warning_count);
      answer_.engine = a.engine;
      answer_.interface = a.interface;
      answer_.reason = a.reason;
    } catch (...) {
      failure_ = std::current_exception();
    }
  }

  const DistributedQuestion& question_;
  Console& console_;
  SparseMatrix matrix_;
  DenseMatrix right_;
  std::string stage_;
  DistributedAnswer answer_;
  std::string sentence_;
  std::int64_t row_ = -1;
  std::exception_ptr failure_;
};

ErrorKind kindOf(int status) {
  for (const ErrorKind kind :
       {ErrorKind::Usage, ErrorKind::Input, ErrorKind::NotPositiveDefinite, ErrorKind::Singular,
        ErrorKind::Output, ErrorKind::Memory, ErrorKind::Cancelled}) {
    if (exitCode(kind) == status) return kind;
  }
  return ErrorKind::Unfit;
}

}  // namespace

Processes processes() {
  Processes p;
  p.rank = std::max(0, firstOf({"OMPI_COMM_WORLD_RANK", "PMIX_RANK", "PMI_RANK"}));
  p.count = firstOf({"OMPI_COMM_WORLD_SIZE", "PMI_SIZE"});
  if (p.count < 0 && std::getenv("PMIX_RANK") != nullptr) p.count = number("SLURM_NTASKS");
  p.count = std::max(p.count, 1);
  if (p.count == 1) p.rank = 0;
  return p;
}

bool isDistributedEngine(const std::string& engine) {
  return engine == "domains" || engine == "mumps";
}

std::optional<DistributedAnswer> askProcesses(const DistributedQuestion& question,
                                              Console& console) {
  const bool speaks = processes().first();
  try {
    Asking asking(question, console);
    const int status = asking.run();
    if (!speaks) return {};
    asking.rethrow();
    if (status != 0) throw Error(kindOf(status), asking.sentence(), asking.row());
    return std::move(asking.answer());
  } catch (const Error&) {
    if (speaks) throw;
    return {};
  }
}

void tellReport(const DistributedAnswer& answer, Console& console) {
  const zeph_distributed_answer& r = answer.figures;
  const char* route = name(static_cast<Route>(r.route));
  JsonObject report;
  report.add("route", route).add("reason", answer.reason).add("engine", answer.engine);
  report.add("processes", r.processes).add("threads", r.threads);
  report.add("unknowns", r.unknowns).add("interface_unknowns", r.interface_unknowns);
  if (r.interface_unknowns > 0) report.add("interface", answer.interface);
  report.add("entries_of_a", r.entries_of_a).add("entries_of_l", r.entries_of_l);
  report.add("operations", r.operations).add("bytes", r.bytes);
  report.add("message_bytes", r.message_bytes).add("balance", r.balance);
  report.add("seconds_ordering", r.seconds_ordering);
  report.add("seconds_factorisation", r.seconds_factorisation);
  report.add("seconds_inverse", r.seconds_inverse);
  if (r.condition_estimate > 0.0) report.add("condition_estimate", r.condition_estimate);
  if (r.relative_error_estimate > 0.0)
    report.add("relative_error_estimate", r.relative_error_estimate);
  if (r.uncertain_variances > 0) report.add("uncertain_variances", r.uncertain_variances);
  if (r.backward_error > 0.0) report.add("backward_error", r.backward_error);
  if (r.last_error_estimate > 0.0) report.add("last_error_estimate", r.last_error_estimate);
  if (r.worst_unknown >= 0) {
    report.add("worst_unknown", static_cast<std::size_t>(r.worst_unknown) + answer.indexBase);
  }
  console.figures.add("report", report);

  const std::string between = r.interface_unknowns > 0
                                  ? ", " + std::to_string(r.interface_unknowns) +
                                        " of them between the domains (" + answer.interface + ")"
                                  : std::string();
  char line[400];
  std::snprintf(line, sizeof line,
                "%lld unknowns on %d processes by the engine %s%s; %lld entries of A, %lld of the "
                "factor; %.3g operations, %.2f times the mean on the busiest process; %.3g MB a "
                "process, %.3g MB sent",
                static_cast<long long>(r.unknowns), r.processes, answer.engine.c_str(),
                between.c_str(), static_cast<long long>(r.entries_of_a),
                static_cast<long long>(r.entries_of_l), r.operations, r.balance, r.bytes / 1e6,
                r.message_bytes / 1e6);
  console.detail(line);
  std::snprintf(line, sizeof line, "ordering %.3f s, factorisation %.3f s, inverse %.3f s",
                r.seconds_ordering, r.seconds_factorisation, r.seconds_inverse);
  console.detail(line);
}

}  // namespace zeph
