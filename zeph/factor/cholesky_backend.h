#ifndef ZEPH_FACTOR_CHOLESKY_BACKEND_H
#define ZEPH_FACTOR_CHOLESKY_BACKEND_H

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include "kernels/panel_file.h"
#include "kernels/panel_storage.h"
#include "kernels/team.h"
#include "sparse/numeric/factor_panels.h"
#include "sparse/symbolic/symbolic.h"
#include "zeph/checks/memory.h"
#include "zeph/factor.h"
#include "zeph/factor/backend.h"
#include "zeph/factor/scratch_file.h"
#include "zeph/factor/symmetric_input.h"
#include "zeph/factor/trust.h"

namespace zeph {

/// The Cholesky route: structure and numbers of A(p, p) = L Lᵀ on the engine of sparse/.
class CholeskyBackend final : public Backend {
 public:
  /// Orders and analyses; no numbers yet. `options` must outlive it.
  CholeskyBackend(SymmetricInput input, const Options& options, Watch& watch);

  /// With the values of the matrix that the input was made from. Throws Error(NotPositiveDefinite)
  /// with the row, Error(Singular) where a pivot has no digit left.
  void factorise(const SparseMatrix& A, Watch& watch);

  /// What is known of the factor without its numbers; no times but those of the analysis.
  Report predicted() const;

  /// Bytes of memory that factorise() and variances() need with all that the factor holds, its
  /// panels in memory and so many threads on subtrees of their own. With one, which the others then
  /// help, they are what is refused by.
  double bytesToFactorise(int apart) const;
  double bytesToInvert(int apart) const;
  /// The same with all in a scratch file that can be there.
  double bytesToFactoriseInFile() const;
  double bytesToInvertInFile() const;
  /// Of the panels with their numbers.
  double panelBytes() const { return sizeof(double) * static_cast<double>(symbolic_.storage()); }

  /// The structure of the factor.
  const korin::sparse::Symbolic& symbolic() const { return symbolic_; }

  /// Gives up the numbers, if any, and their memory until the next factorise().
  void releaseNumbers() {
    panels_ = {};
    file_ = {};
  }

  /// Why the route was taken.
  void setReason(std::string reason) { reason_ = std::move(reason); }

  Report report() const override;
  void refactorise(const double* values, std::size_t count, Watch& watch) override;
  SolveCheck solve(std::size_t count, double* x, Watch& watch) const override;
  InverseCheck variances(double* diagonal, Watch& watch) const override;
  Doubt selectedInverse(std::int64_t* colStarts, std::int64_t* rowIndices, double* values,
                        Watch& watch) const override;
  Doubt covariance(const std::int64_t* rows, const std::int64_t* cols, std::size_t count,
                   double* values, Watch& watch, double there) const override;
  Doubt covarianceBlock(const std::int64_t* indices, std::size_t count, double* block,
                        Watch& watch) const override;
  void errorUnits(std::vector<double>& rows, std::vector<double>& cols) const override;
  double logDeterminant() const override;
  int determinantSign() const override { return 1; }
  Doubt determinantDoubt(Watch& watch) const override;
  Doubt colour(std::size_t count, double* x, Watch& watch) const override;
  double estimateCondition(Watch& watch) const override;
  SparseMatrix symmetricMatrix() const override;

  /// L without zeros, in no order of entries, and L Lᵀ = A(permutation, permutation). In the
  /// natural order that of A itself, and the permutation is left empty.
  SparseMatrix lower(std::vector<std::uint32_t>& permutation, Watch& watch) const;

 private:
  using Index = korin::sparse::Index;
  using Offset = korin::sparse::Offset;

  int threads() const;
  /// What the factor takes of memory, with its numbers.
  double bytes() const;
  double bytesWith(bool inFile) const;
  /// What a factorisation takes of memory beside the structure, without the update matrices.
  double numberBytes() const;
  /// Whether the panels do not fit into memory, and may go into a file.
  bool goesIntoFile() const;
  /// Throws Error(Memory) unless there is room for what a call takes beside the `held` bytes.
  void requireRoom(const std::string& what, double beside, double held) const;
  /// Blocks of so many doubles are few: before smaller ones go into the file, threads work
  /// together.
  static constexpr std::size_t kFewKept = std::size_t{1} << 20;
  bool hasPanels() const { return panels_ || file_; }
  korin::sparse::FactorPanels factor(korin::sparse::Thrift thrift = {}) const {
    if (file_) return {*file_, thrift};
    return {panels_.get(), thrift};
  }

  /// Of the file's pages that so many threads work on: not held, but the system needs room for
  /// them.
  double windowBytes(int threads) const {
    return std::min(panelBytes(), threads * double{korin::kernels::PanelFile::kWindow});
  }
  /// How something is computed, and the bytes of memory that this takes.
  struct Means {
    korin::sparse::Thrift thrift;
    double bytes;
  };
  /// The fastest that fit into memory beside the `held` bytes, or the most frugal ones.
  /// need(threads, keptFrom) is what they take with so many threads on subtrees of their own.
  template <class Need>
  Means choose(const Need& need, double held) const {
    using korin::sparse::kKeepNothing, korin::sparse::kLeastKept;
    Means means{{}, need(threads(), kKeepNothing)};
    if (!inFile_) {
      if (threads() == 1 || fitsMemory(means.bytes, options_.memoryLimit, held)) return means;
      return {{kKeepNothing, true}, need(1, kKeepNothing)};
    }
    const auto fits = [&](int apart) {
      return fitsMemory(means.bytes, options_.memoryLimit, held) &&
             fitsMemory(means.bytes + windowBytes(apart), 0.0);
    };
    if (fits(threads())) return means;
    // No block is larger than all of it.
    const auto all = static_cast<std::size_t>(std::min(means.bytes / sizeof(double), 0x1p60));
    for (const int apart : {threads(), 1}) {
      const std::size_t least = apart > 1 ? kFewKept : kLeastKept;
      means.thrift.together = apart == 1;
      for (std::size_t from = std::bit_floor(std::max(all, least)); from >= least; from /= 2) {
        means.thrift.keptFrom = from;
        means.bytes = need(apart, from);
        if (fits(apart)) return means;
      }
    }
    return means;
  }
  /// For a selected inverse with so many bytes beside it, and others that are there already. Throws
  /// Error(Memory).
  Means meansToInvert(const std::string& what, double beside, double there = 0.0) const;
  /// The most columns, up to `most`, that memory suffices for: bytes(columns) of it beside what is
  /// there. The bits of a column do not depend on how many there are. Throws Error(Memory) where
  /// one is too many.
  template <class Bytes>
  std::size_t columnsAtOnce(const std::string& what, std::size_t most, const Bytes& bytes,
                            double there = 0.0) const {
    const double held = there + this->bytes();
    const double window = inFile_ ? windowBytes(1) : 0.0;
    std::size_t columns = std::max(most, std::size_t{1});
    while (columns > 1 && !(fitsMemory(bytes(columns), options_.memoryLimit, held) &&
                            fitsMemory(bytes(columns) + window, 0.0))) {
      columns /= 2;
    }
    requireRoom(what + " " + input_.source, bytes(columns), held);
    return columns;
  }
  /// Runs work(), whose failures with the file become Error(Output).
  template <class Work>
  auto onDisk(const Work& work) const -> decltype(work()) {
    try {
      return work();
    } catch (const std::system_error& e) {
      if (!inFile_) throw;
      throwScratchError(options_.scratchFolder, e.code().value());
    }
  }
  int exponent(std::int64_t i) const { return exponent_.empty() ? 0 : exponent_[i]; }
  void scaleRows(std::size_t count, double* x) const;
  double residual(const double* b, const double* x, double* r) const;
  double solveAndRefine(std::size_t count, double* x, korin::kernels::Team& team) const;
  enum class Symmetric { Known, Checked };
  void factorise(const double* values, std::size_t step, Symmetric symmetric, Watch& watch);
  void fill(const double* values, std::size_t step, Symmetric symmetric);
  Index factoriseInto(korin::sparse::Thrift thrift, korin::kernels::Team& team,
                      korin::sparse::Meter* meter);
  double smallestPivotShare(Index g, const double* panel) const;
  void requireTrust(Watch& watch) const;

  /// How weakly the unknowns are determined: the inverse of the matrix scaled to a diagonal of
  /// ones, whose norm is at most its trace.
  struct Weakness {
    std::vector<double> share;  ///< its diagonal, a(i,i) z(i,i), in A's numbers
    double trace = 0.0;
    std::int64_t weakest = -1;  ///< the unknown with the largest share
  };
  /// Of the last variances() of all unknowns, or estimated at the first call after a factorisation.
  std::shared_ptr<const Weakness> weakness(Watch& watch) const;
  void keep(std::shared_ptr<const Weakness> weakness) const;
  void covarianceEntries(const std::int64_t* rows, const std::int64_t* cols, std::size_t count,
                         double* values, Watch& watch, double there) const;
  /// Beside so many bytes that are there for the same result.
  void blockEntries(const std::int64_t* indices, std::size_t count, double* block, Watch& watch,
                    double there = 0.0) const;
  /// Beside the inverse: the sums of its check, and what is kept of it for judging other results.
  double bytesToCheck() const;
  double vectors(double count) const { return count * sizeof(double) * symbolic_.n; }
  double residualNorm(const double* z) const;

  // use(i, value) for the diagonal of the scaled matrix, in A's numbers.
  template <class Use>
  void forEachDiagonalEntry(const Use& use) const {
    for (Index k = 0; k < symbolic_.n; ++k) {
      const Index own = k - symbolic_.firstColumn[symbolic_.groupOf[k]];
      for (Offset p = entries_.start[k]; p < entries_.start[k + 1]; ++p) {
        if (entries_.position[p] == own) use(symbolic_.permutation[k], entries_.value[p]);
      }
    }
  }

  // The estimated relative error of the scaled inverse, whose diagonal entry i is diagonal(i), and
  // the unknown on the weakest feet: a(i,i) z(i,i) is how much larger a variance is than if all
  // others were known. Throws where the error is too large.
  template <class Diagonal>
  Doubt judge(double norm, const Diagonal& diagonal) const {
    double squares = 0.0, largest = -1.0;
    std::int64_t unknown = -1;
    forEachDiagonalEntry([&](Index i, double a) {
      const double product = a * diagonal(i);
      squares += product * product;
      if (product > largest || (product == largest && i < unknown)) {
        largest = product;
        unknown = i;
      }
    });
    const double estimate = relativeErrorEstimate(norm, std::sqrt(squares));
    if (!(estimate <= kLargestRelativeError)) throw singular(input_.source);
    return {estimate, unknown};
  }

  double unscaled(double z, std::int64_t row, std::int64_t col) const;

  const Options& options_;
  /// Its pattern has gone into entries_, to which the slots lead.
  SymmetricInput input_;
  std::string reason_;
  korin::sparse::Symbolic symbolic_;
  /// Place of A's row i among the rows of L.
  std::vector<Index> placeOfRow_;
  /// The scaled matrix for the panels.
  korin::sparse::PlacedEntries entries_;
  std::vector<int> exponent_;
  /// The panels are in one of these.
  korin::kernels::PanelStorage panels_;
  std::unique_ptr<korin::kernels::PanelFile> file_;
  bool inFile_ = false;
  double smallestPivotShare_ = 1.0;
  double secondsOrdering_ = 0.0, secondsAnalysis_ = 0.0, secondsFactorisation_ = 0.0;
  /// 0 until estimated.
  mutable std::atomic<double> condition_{0.0};
  mutable std::mutex mutex_;  ///< guards weakness_
  mutable std::shared_ptr<const Weakness> weakness_;
};

}  // namespace zeph

#endif
