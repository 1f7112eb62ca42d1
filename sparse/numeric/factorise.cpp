#include "sparse/numeric/factorise.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <vector>

#include "kernels/packed_triangle.h"
#include "kernels/panel_storage.h"
#include "kernels/products/panel_product.h"
#include "kernels/triangles/front_cholesky.h"
#include "sparse/symbolic/tree.h"

namespace korin::sparse {
namespace {

using std::size_t;

/// Fronts of more work than this are assembled and factorised by all threads that have time.
constexpr double kSharedFront = 8e6;
/// Columns of a shared front that are assembled as one piece.
constexpr Index kSharedColumns = 64;
/// A leaf's update matrix is made in pieces that stay in the first-level cache.
constexpr Index kLeafColumns = 24;
constexpr Index kLeafRows = 96;
size_t square(Index order) {
  return static_cast<size_t>(order) * static_cast<size_t>(order);
}

/// Doubles up to the end of a cache line.
size_t wholeLines(size_t count) {
  return (count + 7) / 8 * 8;
}

bool isLeaf(const Symbolic& s, Index g) {
  return s.firstDescendant[g] == g;
}

/// Doubles of the update matrix that waits for g's parent. A leaf's is made again when it is used.
size_t updateSize(const Symbolic& s, Index g) {
  return isLeaf(s, g) ? 0 : square(s.below(g));
}

/// The same where large ones wait in the file.
size_t inMemory(const Symbolic& s, Index g, Keeping keeping) {
  const size_t size = updateSize(s, g);
  return size >= keeping.from ? 0 : size;
}

/// Takes `value` among the largest ones, of which each thread may come to have one.
void keepLargest(std::vector<size_t>& largest, size_t value) {
  auto least = std::min_element(largest.begin(), largest.end());
  *least = std::max(*least, value);
}

/// Doubles that a task's fronts need beside the panels.
struct FrontRoom {
  size_t stacks = 0;
  size_t scratch = 0;
  /// For the panel at work, where panels are stored elsewhere.
  size_t panel = 0;
  /// For the update matrix at work, where it does not stay in memory.
  size_t update = 0;
  size_t sum() const { return stacks + scratch + panel + update; }
};

/// Scratch, and update matrices of one thread's fronts. Those of neighbouring levels of the tree
/// lie on different stacks, which grow towards each other: a front's children are on top of one
/// when its own goes to the other.
struct Stacks {
  kernels::PanelStorage memory;
  size_t room = 0;
  size_t panelEnd = 0;
  size_t updateEnd = 0;
  size_t scratchEnd = 0;
  std::array<size_t, 2> used{};

  double* panel() const { return memory.get(); }
  double* update() const { return memory.get() + panelEnd; }
  double* scratch() const { return memory.get() + updateEnd; }

  void reserve(const FrontRoom& wanted, const FactorPanels& stored) {
    used = {};
    panelEnd = wanted.panel;
    updateEnd = panelEnd + wanted.update;
    scratchEnd = updateEnd + wanted.scratch;
    if (room >= wanted.sum()) return;
    memory.reset();
    room = 0;
    memory = stored.room(wanted.sum());
    room = wanted.sum();
  }

  double* push(int level, size_t size) {
    const size_t before = used[level];
    used[level] += size;
    return memory.get() + (level == 0 ? scratchEnd + before : room - used[level]);
  }
};

class Factoriser {
 public:
  /// With panels in memory, or with a store and what it has stored.
  Factoriser(const Symbolic& symbolic, const PlacedEntries& entries, double* panels,
             const PanelStore& store, const FactorPanels& stored, kernels::Team& team, Meter* meter)
      : s_(symbolic),
        entries_(entries),
        panels_(panels),
        store_(store),
        stored_(stored),
        team_(team),
        meter_(meter),
        schedule_(makeSchedule(symbolic, stored.apart(team.threads()))),
        level_(levels(symbolic)),
        update_(static_cast<size_t>(symbolic.groups())),
        waiting_(static_cast<size_t>(symbolic.groups())),
        stacks_(static_cast<size_t>(team.threads())),
        failedColumn_(symbolic.n) {
    if (stored.inFile()) beginInOrder(schedule_, kernels::Direction::ChildrenFirst);
  }

  Index run() {
    team_.run(schedule_.forest, kernels::Direction::ChildrenFirst,
              [this](int task, int thread) { work(task, stacks_[static_cast<size_t>(thread)]); });
    const Index failed = failedColumn_;
    return failed == s_.n ? -1 : s_.permutation[failed];
  }

  /// Most doubles that a task's fronts leave on both stacks, and those of their scratch.
  static FrontRoom roomFor(const Symbolic& s, Index first, Index last, Keeping keeping) {
    size_t used = 0;
    FrontRoom most;
    for (Index g = first; g < last; ++g) {
      const bool stays = s.parent[g] >= 0 && s.parent[g] < last;
      if (stays) used += inMemory(s, g, keeping);
      if (inMemory(s, g, keeping) == 0) most.update = std::max(most.update, updateSize(s, g));
      most.stacks = std::max(most.stacks, used);
      const size_t scratch = s.isKept(g) ? 0
                                         : kernels::frontScratch(static_cast<size_t>(s.height(g)),
                                                                 static_cast<size_t>(s.width(g)));
      most.scratch = std::max(most.scratch, wholeLines(scratch));
      if (keeping.stored)
        most.panel = std::max(most.panel, wholeLines(static_cast<size_t>(s.panelSize(g))));
      forEachChild(s, g, [&](Index child) {
        if (child >= first) used -= inMemory(s, child, keeping);
      });
    }
    return most;
  }

  static std::vector<unsigned char> levels(const Symbolic& s) {
    std::vector<unsigned char> level(static_cast<size_t>(s.groups()), 0);
    for (Index g = s.groups(); g-- > 0;) {
      if (s.parent[g] >= 0) level[g] = !level[s.parent[g]];
    }
    return level;
  }

 private:
  void work(int task, Stacks& stacks) {
    const Index first = schedule_.first[task];
    const Index last = schedule_.first[task + 1];
    stacks.reserve(roomFor(s_, first, last, {panels_ == nullptr, stored_.keptFrom()}), stored_);
    double sinceCheckpoint = 0.0;
    for (Index g = first; g < last; ++g) {
      // The first failure in the order of elimination is the one to tell, whoever finds one first.
      if (s_.firstColumn[g] > failedColumn_.load(std::memory_order_relaxed)) return;
      makeRoom(g, last, stacks);
      double* const panel = panels_ != nullptr ? panels_ + s_.panelStart[g] : stacks.panel();
      front(g, panel, stacks.scratch());
      if (panels_ == nullptr) store_(g, panel);
      if (stored_.keeps(updateSize(s_, g))) {
        const auto order = static_cast<size_t>(s_.below(g));
        kernels::packTriangle(order, update_[g]);
        waiting_[g] = stored_.keep(update_[g], kernels::packedSize(order));
        update_[g] = waiting_[g].get();
      }
      releaseChildren(g, first, stacks);
      const double done = frontWork(s_, g);
      if (meter_ != nullptr) meter_->add(done);
      sinceCheckpoint += done;
      if (sinceCheckpoint > kWorkPerCheckpoint) {
        team_.checkpoint();
        sinceCheckpoint = 0.0;
      }
    }
  }

  void makeRoom(Index g, Index last, Stacks& stacks) {
    const size_t size = updateSize(s_, g);
    if (size == 0) return;
    if (stored_.keeps(size)) {
      update_[g] = stacks.update();
    } else if (s_.parent[g] < last) {
      update_[g] = stacks.push(level_[g], size);
    } else {
      waiting_[g] = stored_.room(size);
      update_[g] = waiting_[g].get();
    }
  }

  void releaseChildren(Index g, Index first, Stacks& stacks) {
    forEachChild(s_, g, [&](Index child) {
      if (waiting_[child]) {
        waiting_[child].reset();
      } else if (child >= first) {
        stacks.used[level_[child]] -= updateSize(s_, child);
      }
    });
  }

  void front(Index g, double* panel, double* scratch) {
    kernels::Team* const team = frontWork(s_, g) > kSharedFront ? &team_ : nullptr;
    const Index width = s_.width(g);
    const auto h = static_cast<size_t>(s_.height(g));
    const auto w = static_cast<size_t>(width);
    assembleShared(g, panel, 0, width, team);
    if (s_.isKept(g)) return;
    const bool passesOn = updateSize(s_, g) != 0;
    const size_t done =
        kernels::frontCholesky(h, w, panel, h, passesOn ? update_[g] : nullptr, scratch, team);
    if (done < w) return reportFailure(s_.firstColumn[g] + static_cast<Index>(done));
    if (passesOn) assembleShared(g, panel, width, s_.height(g), team);
  }

  void assembleShared(Index g, double* panel, Index first, Index last, kernels::Team* team) {
    if (team == nullptr) return assemble(g, panel, first, last);
    const int pieces = (last - first + kSharedColumns - 1) / kSharedColumns;
    team->forEach(pieces, [&](int piece) {
      const Index begin = first + piece * kSharedColumns;
      assemble(g, panel, begin, std::min(begin + kSharedColumns, last));
    });
  }

  void reportFailure(Index column) {
    Index known = failedColumn_.load();
    while (column < known && !failedColumn_.compare_exchange_weak(known, column)) {
    }
  }

  /// Columns begin .. end-1 of a front, all its own or all below: its own get the matrix's entries,
  /// all of them the children's update matrices.
  void assemble(Index g, double* panel, Index begin, Index end) {
    const Index width = s_.width(g);
    const Index height = s_.height(g);
    const Index below = height - width;
    for (Index c = begin; c < std::min(end, width); ++c) {
      double* const column = panel + static_cast<size_t>(c) * static_cast<size_t>(height);
      std::fill_n(column, height, 0.0);
      const Offset own = s_.firstColumn[g] + c;
      for (Offset p = entries_.start[own]; p < entries_.start[own + 1]; ++p) {
        column[entries_.position[p]] = entries_.value[p];
      }
    }
    if (isLeaf(s_, g)) return;
    const Target target{panel, update_[g], static_cast<size_t>(height), static_cast<size_t>(below),
                        width};
    forEachChild(s_, g, [&](Index child) {
      const Index count = s_.below(child);
      const Index* const place = s_.parentPlace.data() + s_.rowStart[child] + s_.width(child);
      const Index first = begin == 0 ? 0 : firstFrom(begin, place, count);
      const Index last = end == height ? count : firstFrom(end, place, count);
      if (isLeaf(s_, child)) {
        addLeaf(child, place, first, last, target);
      } else {
        const auto order = static_cast<size_t>(count);
        const bool packed = stored_.keeps(updateSize(s_, child));
        for (Index j = first; j < last; ++j) {
          const auto c = static_cast<size_t>(j);
          const double* const column =
              update_[child] + (packed ? kernels::packedColumn(order, c) : c * order);
          addColumn(column + j, place + j, count - j, target.column(place[j]));
        }
      }
    });
  }

  /// The first of `count` ascending places that is not below `wanted`.
  static Index firstFrom(Index wanted, const Index* place, Index count) {
    return static_cast<Index>(std::lower_bound(place, place + count, wanted) - place);
  }

  /// A column of a front in memory, and the place in the whole front of the row it begins with.
  struct TargetColumn {
    double* data;
    Index firstPlace;
  };

  /// Where the columns of a front lie: its own in the panel, the others in the update matrix.
  struct Target {
    double* panel;
    double* update;
    size_t height;
    size_t below;
    Index width;
    TargetColumn column(Index place) const {
      if (place < width) return {panel + static_cast<size_t>(place) * height, 0};
      return {update + static_cast<size_t>(place - width) * below, width};
    }
  };

  static void addColumn(const double* __restrict source, const Index* __restrict place, Index count,
                        TargetColumn target) {
    double* __restrict const to = target.data;
    const Index first = target.firstPlace;
    if (place[count - 1] - place[0] == count - 1) {
      double* __restrict const run = to + (place[0] - first);
      for (Index i = 0; i < count; ++i) run[i] += source[i];
    } else {
      for (Index i = 0; i < count; ++i) to[place[i] - first] += source[i];
    }
  }

  /// Columns first .. last-1 of -L21 L21^T of a leaf, made on the way.
  void addLeaf(Index leaf, const Index* place, Index first, Index last, const Target& target) {
    alignas(64) double piece[kLeafColumns * (kLeafColumns + kLeafRows)];
    const auto stride = static_cast<size_t>(s_.height(leaf));
    const auto inner = static_cast<size_t>(s_.width(leaf));
    const double* const l21 = stored_.of(s_, leaf) + inner;
    const Index count = s_.below(leaf);
    for (Index j = first; j < last; j += kLeafColumns) {
      const Index columns = std::min(kLeafColumns, last - j);
      // The first piece has the diagonal block and the rows after it.
      for (Index i = j; i < count;) {
        const Index rows = std::min(i == j ? columns + kLeafRows : kLeafRows, count - i);
        const auto room = static_cast<size_t>(rows);
        const auto below = static_cast<size_t>(i - j);
        const kernels::RowPanels rowsOfL = kernels::unpackedRows(l21 + j, stride);
        kernels::lowerPanelProduct(rowsOfL, rowsOfL, inner,
                                   {below, below + room, 0, static_cast<size_t>(columns)}, piece,
                                   room, kernels::kTileNegate);
        for (Index c = 0; c < columns; ++c) {
          const Index skip = i == j ? c : 0;
          addColumn(piece + static_cast<size_t>(c) * room + skip, place + i + skip, rows - skip,
                    target.column(place[j + c]));
        }
        i += rows;
      }
    }
  }

  const Symbolic& s_;
  const PlacedEntries& entries_;
  /// Null where panels are stored elsewhere.
  double* const panels_;
  const PanelStore& store_;
  const FactorPanels stored_;
  kernels::Team& team_;
  Meter* const meter_;
  Schedule schedule_;
  const std::vector<unsigned char> level_;
  /// Where the update matrix of a group is that waits for its parent: a square, or in the file its
  /// lower triangle.
  std::vector<double*> update_;
  /// The memory of those that wait for a parent in another task, or in the file.
  std::vector<kernels::PanelStorage> waiting_;
  std::vector<Stacks> stacks_;
  std::atomic<Index> failedColumn_;
};

}  // namespace

Index factorise(const Symbolic& symbolic, const PlacedEntries& entries, double* panels,
                kernels::Team& team, Meter* meter, Thrift thrift) {
  const PanelStore nobody;
  return Factoriser(symbolic, entries, panels, nobody, {panels, thrift}, team, meter).run();
}

Index factorise(const Symbolic& symbolic, const PlacedEntries& entries, const PanelStore& store,
                const FactorPanels& stored, kernels::Team& team, Meter* meter) {
  return Factoriser(symbolic, entries, nullptr, store, stored, team, meter).run();
}

namespace {

/// Doubles of the update matrices that wait at most for other tasks when these are worked off one
/// after the other.
double waitingInOrder(const Symbolic& symbolic, const Schedule& schedule, Keeping keeping) {
  double waiting = 0.0;
  double mostWaiting = 0.0;
  for (int t = 0; t < schedule.tasks(); ++t) {
    const Index first = schedule.first[t];
    const Index last = schedule.first[t + 1];
    const auto waits = [&](Index g) { return static_cast<double>(inMemory(symbolic, g, keeping)); };
    for (Index g = first; g < last; ++g) {
      if (symbolic.parent[g] >= last) waiting += waits(g);
      mostWaiting = std::max(mostWaiting, waiting);
      forEachChild(symbolic, g, [&](Index child) {
        if (child < first) waiting -= waits(child);
      });
    }
  }
  return mostWaiting;
}

/// The same in whatever order: those of the children of a task and its own, or the most that can
/// wait below all its children at once.
double waitingInAnyOrder(const Symbolic& symbolic, const Schedule& schedule) {
  const auto tasks = static_cast<size_t>(schedule.tasks());
  std::vector<double> children(tasks), below(tasks);
  double most = 0.0;
  for (size_t t = 0; t < tasks; ++t) {
    const Index last = schedule.first[t + 1];
    double own = 0.0;
    for (Index g = schedule.first[t]; g < last; ++g) {
      if (symbolic.parent[g] >= last) own += static_cast<double>(updateSize(symbolic, g));
    }
    const double waiting = std::max(below[t], children[t] + own);
    const int parent = schedule.forest.parent[t];
    if (parent >= 0) {
      children[parent] += own;
      below[parent] += waiting;
    } else {
      most += waiting;
    }
  }
  return most;
}

/// Bytes of these, and of the fronts at work.
double withFronts(double waiting, const Symbolic& symbolic, const Schedule& schedule, int threads,
                  Keeping keeping) {
  const auto helpers = static_cast<size_t>(std::min(threads, std::max(1, schedule.tasks())));
  std::vector<size_t> rooms(helpers);
  for (int t = 0; t < schedule.tasks(); ++t) {
    keepLargest(
        rooms,
        Factoriser::roomFor(symbolic, schedule.first[t], schedule.first[t + 1], keeping).sum());
  }
  double bytes = sizeof(double) * waiting;
  for (const size_t room : rooms) bytes += kernels::heldBytes(room);
  return bytes;
}

}  // namespace

double frontMemory(const Symbolic& symbolic, int threads, Keeping keeping) {
  const Schedule schedule = makeSchedule(symbolic, threads);
  const double waiting = waitingInOrder(symbolic, schedule, keeping);
  return withFronts(waiting, symbolic, schedule, threads, keeping);
}

double frontMemoryInAnyOrder(const Symbolic& symbolic, int threads) {
  const Schedule schedule = makeSchedule(symbolic, threads);
  const double waiting = waitingInAnyOrder(symbolic, schedule);
  return withFronts(waiting, symbolic, schedule, threads, {});
}

}  // namespace korin::sparse
