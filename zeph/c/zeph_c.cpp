#include "zeph/zeph_c.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "zeph/build_facts.h"
#include "zeph/zeph.h"

/// The factor behind the handle.
struct zeph_factor {
  zeph::Factor factor;
  std::size_t entries;
};

namespace {

constexpr int kUnexpected = 70;

// The sentence on the last failure, in memory that is there when no other is left. Longer ones are
// cut: those of functions without files have some two hundred characters.
thread_local std::array<char, 1024> lastError{};

int failed(int status, const char* sentence) noexcept {
  const std::size_t length = std::min(std::strlen(sentence), lastError.size() - 1);
  *std::copy_n(sentence, length, lastError.begin()) = '\0';
  return status;
}

// Runs work and turns what it throws into a status and a sentence.
template <class Work>
int guard(const Work& work) noexcept {
  try {
    work();
    return 0;
  } catch (const zeph::Error& e) {
    return failed(exitCode(e.kind()), e.what());
  } catch (const std::bad_alloc&) {
    return failed(exitCode(zeph::ErrorKind::Memory), "not enough memory");
  } catch (const std::exception& e) {
    return failed(kUnexpected, e.what());
  } catch (...) {
    return failed(kUnexpected, "an unknown exception");
  }
}

void require(const void* pointer, const char* name) {
  if (pointer != nullptr) return;
  throw zeph::Error(zeph::ErrorKind::Usage, std::string(name) + " is a null pointer");
}

std::size_t requireCount(std::int64_t count, const char* name) {
  if (count >= 0) return static_cast<std::size_t>(count);
  throw zeph::Error(zeph::ErrorKind::Usage,
                    std::string(name) + " is " + std::to_string(count) + "; it cannot be negative");
}

// An enumerator by its number in the C interface.
template <class Enum>
Enum choice(int number, Enum last, const char* name) {
  if (number >= 0 && number <= static_cast<int>(last)) return static_cast<Enum>(number);
  throw zeph::Error(zeph::ErrorKind::Usage, std::string(name) + " is " + std::to_string(number) +
                                                "; it must be from 0 to " +
                                                std::to_string(static_cast<int>(last)));
}

zeph::Options optionsOf(const zeph_options* o, std::size_t n) {
  zeph::Options options;
  if (o == nullptr) return options;
  options.route = choice(o->route, zeph::Route::Lu, "the route");
  options.ordering = choice(o->ordering, zeph::Ordering::Given, "the ordering");
  if (o->threads < 0) {
    throw zeph::Error(zeph::ErrorKind::Usage, "the number of threads is negative");
  }
  options.threads = o->threads;
  if (!(o->memory_limit >= 0.0)) {
    throw zeph::Error(zeph::ErrorKind::Usage, "the limit of memory is negative or no number");
  }
  options.memoryLimit = o->memory_limit;
  if (o->scratch_folder != nullptr) options.scratchFolder = o->scratch_folder;
  if (options.ordering != zeph::Ordering::Given) return options;
  require(o->permutation, "the permutation");
  options.permutation.assign(o->permutation, o->permutation + n);
  return options;
}

}  // namespace

int zeph_factor_create(zeph_factor** f, int64_t n, const int64_t* col_starts,
                       const int64_t* row_indices, const double* values, int symmetric,
                       const zeph_options* o) {
  return zeph_factor_create_watched(f, n, col_starts, row_indices, values, symmetric, o, nullptr,
                                    nullptr);
}

int zeph_factor_create_watched(zeph_factor** f, int64_t n, const int64_t* col_starts,
                               const int64_t* row_indices, const double* values, int symmetric,
                               const zeph_options* o, int (*proceed)(void*), void* context) {
  return guard([&] {
    require(f, "the address of the factor");
    *f = nullptr;
    const std::size_t order = requireCount(n, "the order of the matrix");
    if (symmetric != 0 && symmetric != 1) {
      throw zeph::Error(zeph::ErrorKind::Usage, "symmetric must be 0 or 1");
    }
    const auto A = zeph::SparseMatrix::fromCompressedColumns(
        order, order, col_starts, row_indices, values,
        symmetric == 1 ? zeph::Symmetry::Symmetric : zeph::Symmetry::General);
    zeph::Options options = optionsOf(o, order);
    if (proceed != nullptr) {
      options.progress = [=](const char*, double) { return proceed(context) != 0; };
    }
    *f = new zeph_factor{zeph::Factor(A, options), A.entries.size()};
  });
}

int zeph_factor_refactorise(zeph_factor* f, const double* values) {
  return guard([&] {
    require(f, "the factor");
    f->factor.refactorise(values, f->entries);
  });
}

int zeph_factor_solve(const zeph_factor* f, int64_t count, const double* b, double* x) {
  return guard([&] {
    require(f, "the factor");
    f->factor.solve(b, x, requireCount(count, "the number of right-hand sides"));
  });
}

int zeph_factor_variances(const zeph_factor* f, double* diagonal) {
  return guard([&] {
    require(f, "the factor");
    f->factor.variances(diagonal, f->factor.rows());
  });
}

int zeph_factor_selected_inverse(const zeph_factor* f, int64_t* col_starts, int64_t* row_indices,
                                 double* values) {
  return guard([&] {
    require(f, "the factor");
    if ((row_indices == nullptr) != (values == nullptr)) {
      require(row_indices, "the array of row indices");
      require(values, "the array of values");
    }
    f->factor.selectedInverse(col_starts, row_indices, values);
  });
}

int zeph_factor_covariance(const zeph_factor* f, int64_t count, const int64_t* rows,
                           const int64_t* cols, double* values) {
  return guard([&] {
    require(f, "the factor");
    f->factor.covariance(rows, cols, requireCount(count, "the number of entries"), values);
  });
}

int zeph_factor_log_determinant(const zeph_factor* f, double* log_abs, int* sign) {
  return guard([&] {
    require(f, "the factor");
    require(log_abs, "the logarithm");
    require(sign, "the sign");
    *log_abs = f->factor.logDeterminant();
    *sign = f->factor.determinantSign();
  });
}

int zeph_factor_report(const zeph_factor* f, zeph_report* report) {
  return guard([&] {
    require(f, "the factor");
    require(report, "the report");
    const zeph::Report r = f->factor.report();
    *report = {static_cast<int64_t>(r.route),
               static_cast<int64_t>(r.ordering),
               r.unknowns,
               r.groups,
               r.entriesOfA,
               r.entriesOfL,
               r.operations,
               r.bytes,
               r.secondsOrdering,
               r.secondsAnalysis,
               r.secondsFactorisation,
               r.secondsInverse,
               r.threads,
               r.conditionEstimate,
               r.identityResidual,
               r.relativeErrorEstimate,
               r.backwardError,
               r.uncertainVariances,
               r.firstUncertain,
               r.scratchBytes,
               r.lastErrorEstimate,
               r.worstUnknown};
  });
}

void zeph_factor_free(zeph_factor* f) {
  delete f;
}

const char* zeph_last_error(void) {
  return lastError.data();
}

const char* zeph_version(void) {
  return zeph::kVersion;
}
