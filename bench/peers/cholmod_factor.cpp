#include <cholmod.h>

#include <algorithm>
#include <limits>

#include "factor_peers.h"
#include "measure.h"

namespace compare {
namespace {

/// A matrix in CHOLMOD's form, and its factor.
class Run {
 public:
  Run(const Lower& lower, int ordering) {
    cholmod_start(&common_);
    common_.nmethods = 1;
    common_.method[0].ordering = ordering;
    common_.postorder = 1;
    const auto n = static_cast<std::size_t>(lower.cols);
    const auto entries = static_cast<std::size_t>(lower.entries());
    a_ = cholmod_allocate_sparse(n, n, entries, 1, 1, -1, CHOLMOD_REAL, &common_);
    if (a_ == nullptr) return;
    std::copy_n(lower.start, n + 1, static_cast<int*>(a_->p));
    std::copy_n(lower.row, entries, static_cast<int*>(a_->i));
    std::copy_n(lower.value, entries, static_cast<double*>(a_->x));
  }
  ~Run() {
    cholmod_free_factor(&factor_, &common_);
    cholmod_free_sparse(&a_, &common_);
    cholmod_finish(&common_);
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  double analyse() {
    return seconds([this] { factor_ = cholmod_analyze(a_, &common_); });
  }
  double factorise() {
    return seconds([this] { cholmod_factorize(a_, factor_, &common_); });
  }
  bool good() const {
    return factor_ != nullptr && common_.status == CHOLMOD_OK && factor_->minor == factor_->n;
  }
  double operations() const { return factor_ == nullptr ? 0.0 : common_.fl; }

 private:
  cholmod_common common_{};
  cholmod_sparse* a_ = nullptr;
  cholmod_factor* factor_ = nullptr;
};

FactorTimes factorTimes(const Lower& lower, int ordering) {
  FactorTimes times;
  if (lower.entries() > std::numeric_limits<int>::max()) return times;
  Run run(lower, ordering);
  times.order = run.analyse();
  times.factor = run.factorise();
  times.completed = run.good();
  return times;
}

}  // namespace

FactorTimes cholmodMinimumDegree(const Lower& lower) {
  return factorTimes(lower, CHOLMOD_AMD);
}

FactorTimes cholmodNestedDissection(const Lower& lower) {
  return factorTimes(lower, CHOLMOD_METIS);
}

double minimumDegreeOperations(const Lower& lower) {
  Run run(lower, CHOLMOD_AMD);
  run.analyse();
  return run.operations();
}

}  // namespace compare
