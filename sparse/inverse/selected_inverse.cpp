#include "sparse/inverse/selected_inverse.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>
#include <utility>

#include "kernels/packed_triangle.h"
#include "kernels/panel_storage.h"
#include "sparse/inverse/panel_inverter.h"
#include "sparse/symbolic/schedule.h"
#include "sparse/symbolic/tree.h"

namespace korin::sparse {
namespace {

using std::size_t;

/// The recurrence takes about twice the operations of the factorisation.
constexpr double kWorkRatio = 2.0;

/// Which panels of the inverse wait in a file: those of `keptFrom` doubles and more. What lies
/// there is not read by each of the groups below: a block of it is made for a subtree.
class InFile {
 public:
  InFile(const Symbolic& s, size_t keptFrom)
      : s_(s),
        keptFrom_(keptFrom),
        above_(keptFrom == kKeepNothing ? 0 : static_cast<size_t>(s.groups())) {
    for (size_t g = above_.size(); g-- > 0;) {
      const Index parent = s.parent[g];
      above_[g] = parent >= 0 && (has(parent) || above_[parent]);
    }
  }

  bool has(Index g) const { return static_cast<size_t>(s_.panelSize(g)) >= keptFrom_; }
  /// Whether it has an ancestor of g.
  bool hasAbove(Index g) const { return !above_.empty() && above_[g]; }
  /// Whether g needs another block than the last one, which was made for the subtree of `root`, -1
  /// where there is none.
  bool needsBlock(Index g, Index root) const {
    return hasAbove(g) && (has(s_.parent[g]) || root < g || s_.firstDescendant[root] > g);
  }

 private:
  const Symbolic& s_;
  const size_t keptFrom_;
  std::vector<bool> above_;
};

/// Most doubles that are in memory at once while the groups first .. last-1 are worked off from the
/// last on: a group's panel is kept while its descendants are.
struct PathRoom {
  size_t path = 0;
  /// A panel on its way to the file.
  size_t atWork = 0;
  /// A block of what is in the file.
  size_t block = 0;
};
PathRoom pathRoom(const Symbolic& s, Index first, Index last, const std::vector<bool>* wanted,
                  const InFile& file) {
  std::vector<Index> path;
  size_t used = 0;
  Index root = -1;
  PathRoom most;
  const auto onPath = [&](Index g) {
    return file.has(g) ? 0 : static_cast<size_t>(s.panelSize(g));
  };
  for (Index g = last; g-- > first;) {
    if (wanted != nullptr && !(*wanted)[g]) continue;
    while (!path.empty() && s.firstDescendant[path.back()] > g) {
      used -= onPath(path.back());
      path.pop_back();
    }
    path.push_back(g);
    used += onPath(g);
    most.path = std::max(most.path, used);
    if (file.has(g)) most.atWork = std::max(most.atWork, static_cast<size_t>(s.panelSize(g)));
    if (file.needsBlock(g, root)) {
      root = g;
      most.block = std::max(most.block, kernels::packedSize(static_cast<size_t>(s.below(g))));
    }
  }
  return most;
}

class Inversion {
 public:
  Inversion(const Symbolic& symbolic, const FactorPanels& panels, double* kept,
            const std::vector<bool>* wanted, const PanelReader& read, kernels::Team& team,
            Meter* meter)
      : s_(symbolic),
        panels_(panels),
        kept_(kept),
        wanted_(wanted),
        read_(read),
        team_(team),
        meter_(meter),
        inverse_(static_cast<size_t>(symbolic.groups())),
        structure_{symbolic.groups(),    symbolic.firstColumn.data(), symbolic.rowStart.data(),
                   symbolic.rows.data(), symbolic.groupOf.data(),     inverse_.data()},
        sizes_(structure_),
        inFile_(symbolic, kept == nullptr ? panels.keptFrom() : kKeepNothing),
        schedule_(makeSchedule(symbolic, panels.apart(team.threads()))),
        threads_(static_cast<size_t>(team.threads())),
        panelOf_(static_cast<size_t>(schedule_.tasks())),
        inFileOf_(static_cast<size_t>(schedule_.tasks())),
        unfinished_(static_cast<size_t>(schedule_.tasks()), 1) {
    if (panels.inFile()) beginInOrder(schedule_, kernels::Direction::ParentsFirst);
    for (const int parent : schedule_.forest.parent) {
      if (parent >= 0) ++unfinished_[parent];
    }
  }

  void run() {
    team_.run(schedule_.forest, kernels::Direction::ParentsFirst, [this](int task, int thread) {
      work(task, threads_[static_cast<size_t>(thread)]);
      finish(task);
    });
  }

 private:
  /// A group on the path to the one at work, with what its panel takes of the path's memory, or
  /// where it is instead.
  struct OnPath {
    Index group;
    size_t size;
    kernels::PanelStorage inFile;
  };

  /// What a thread keeps between its tasks.
  struct Thread {
    std::unique_ptr<PanelInverter> inverter;
    kernels::PanelStorage path;
    size_t room = 0;

    /// For the panel at work, where it does not stay on the path.
    kernels::PanelStorage atWork;
    size_t roomAtWork = 0;

    /// For what the groups at work read from the file.
    kernels::PanelStorage block;
    size_t roomOfBlock = 0;
  };

  bool wanted(Index g) const { return wanted_ == nullptr || (*wanted_)[g]; }

  void work(int task, Thread& thread) {
    if (!thread.inverter) {
      thread.inverter = std::make_unique<PanelInverter>(structure_, sizes_, &team_);
    }
    const Index first = schedule_.first[task];
    const Index last = schedule_.first[task + 1];
    if (kept_ == nullptr) makeRoom(task, first, last, thread);
    std::vector<OnPath> path;
    KnownBlock known{};
    Index root = -1;
    size_t used = 0;
    double sinceCheckpoint = 0.0;
    for (Index g = last; g-- > first;) {
      if (!wanted(g)) continue;
      if (kept_ != nullptr) {
        inverse_[g] = kept_ + s_.panelStart[g];
      } else {
        while (!path.empty() && s_.firstDescendant[path.back().group] > g) {
          used -= path.back().size;
          path.pop_back();
        }
        const auto size = static_cast<size_t>(s_.panelSize(g));
        const bool stays = !inFile_.has(g);
        inverse_[g] = stays ? base(task, thread) + used : thread.atWork.get();
        path.push_back({g, stays ? size : 0, {}});
        used += path.back().size;
      }
      if (s_.isKept(g)) {
        std::copy_n(panels_.of(s_, g), s_.panelSize(g), inverse_[g]);
      } else {
        if (inFile_.needsBlock(g, root)) {
          root = g;
          known = thread.inverter->collectKnown(g, thread.block.get());
        }
        thread.inverter->invertGroup(g, panels_.of(s_, g), inFile_.hasAbove(g) ? &known : nullptr);
      }
      if (read_) read_(g, inverse_[g]);
      if (inFile_.has(g)) {
        path.back().inFile = panels_.keep(inverse_[g], static_cast<size_t>(s_.panelSize(g)));
        inverse_[g] = path.back().inFile.get();
      }
      // A few paths are not worth reading what lies between them.
      if (wanted_ == nullptr) panels_.passedBackward(s_, g);
      const double done = kWorkRatio * frontWork(s_, g);
      if (meter_ != nullptr) meter_->add(done);
      sinceCheckpoint += done;
      if (sinceCheckpoint > kWorkPerCheckpoint) {
        team_.checkpoint();
        sinceCheckpoint = 0.0;
      }
    }
    // Such a task is a single group.
    if (isRead(task) && !path.empty()) inFileOf_[task] = std::move(path.back().inFile);
  }

  void reserve(kernels::PanelStorage& storage, size_t& room, size_t wanted) const {
    if (room >= wanted) return;
    storage.reset();
    room = 0;
    storage = panels_.room(wanted);
    room = wanted;
  }

  void makeRoom(int task, Index first, Index last, Thread& thread) {
    const PathRoom room = pathRoom(s_, first, last, wanted_, inFile_);
    reserve(thread.atWork, thread.roomAtWork, room.atWork);
    reserve(thread.block, thread.roomOfBlock, room.block);
    if (isRead(task)) {
      panelOf_[task] = panels_.room(room.path);
    } else {
      reserve(thread.path, thread.room, room.path);
    }
  }

  double* base(int task, Thread& thread) {
    return panelOf_[task] ? panelOf_[task].get() : thread.path.get();
  }

  /// Whether other tasks read this one's panels, which then have memory of their own. None of them
  /// is finished before this one has begun, so the count is still the first one.
  bool isRead(int task) const { return unfinished_[task] > 1; }

  /// Frees the panels of the tasks whose descendants are all done.
  void finish(int task) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (int t = task; t >= 0 && --unfinished_[t] == 0; t = schedule_.forest.parent[t]) {
      panelOf_[t].reset();
      inFileOf_[t].reset();
    }
  }

  const Symbolic& s_;
  const FactorPanels panels_;
  double* const kept_;
  const std::vector<bool>* const wanted_;
  const PanelReader& read_;
  kernels::Team& team_;
  Meter* const meter_;
  std::vector<double*> inverse_;
  const PanelStructure structure_;
  const InverterSizes sizes_;
  const InFile inFile_;
  Schedule schedule_;
  std::vector<Thread> threads_;
  /// The panels of tasks that other tasks read.
  std::vector<kernels::PanelStorage> panelOf_;
  std::vector<kernels::PanelStorage> inFileOf_;
  /// Of each task the children that are not finished with all their descendants, and itself.
  std::vector<int> unfinished_;
  std::mutex mutex_;
};

/// The rows of a group in which some entry of the matrix off the diagonal lies, numbered as they
/// are met.
class RowsMet {
 public:
  /// Their count. Calls meet(row's place in the group, its number) for each.
  template <class Meet>
  Index of(const Symbolic& s, const PlacedEntries& entries, Index g, const Meet& meet) {
    number_.assign(static_cast<size_t>(s.height(g)), -1);
    Index count = 0;
    for (Index c = 0; c < s.width(g); ++c) {
      const Index column = s.firstColumn[g] + c;
      for (Offset p = entries.start[column]; p < entries.start[column + 1]; ++p) {
        const Index at = entries.position[p];
        if (at == c || number_[at] >= 0) continue;
        meet(at, count);
        number_[at] = count++;
      }
    }
    return count;
  }
  Index of(const Symbolic& s, const PlacedEntries& entries, Index g) {
    return of(s, entries, g, [](Index, Index) {});
  }
  Index number(Index at) const { return number_[at]; }

 private:
  std::vector<Index> number_;
};

/// Adds up sum over k of a(i, k) Z(k, i) while panels are read. What a group adds to other rows is
/// kept apart until the end, so that the order of additions does not depend on threads.
class IdentitySums {
 public:
  IdentitySums(const Symbolic& symbolic, const PlacedEntries& entries)
      : s_(symbolic),
        entries_(entries),
        own_(static_cast<size_t>(symbolic.n)),
        start_(static_cast<size_t>(symbolic.groups()) + 1) {
    RowsMet rows;
    for (Index g = 0; g < s_.groups(); ++g) {
      start_[g + 1] = start_[g] + rows.of(s_, entries_, g);
    }
    passedOn_.resize(static_cast<size_t>(start_.back()));
  }

  void read(Index g, const double* z) {
    const Offset height = s_.height(g);
    double* const passed = passedOn_.data() + start_[g];
    RowsMet rows;
    rows.of(s_, entries_, g);
    for (Index c = 0; c < s_.width(g); ++c) {
      const Index column = s_.firstColumn[g] + c;
      double sum = 0.0;
      for (Offset p = entries_.start[column]; p < entries_.start[column + 1]; ++p) {
        const Index at = entries_.position[p];
        const double term = entries_.value[p] * z[c * height + at];
        sum += term;
        if (at != c) passed[rows.number(at)] += term;
      }
      own_[column] = sum;
    }
  }

  /// Of the rows of L, once all groups have been read.
  std::vector<double> sums() && {
    RowsMet rows;
    for (Index g = 0; g < s_.groups(); ++g) {
      rows.of(s_, entries_, g, [&](Index at, Index number) {
        own_[s_.rowsOf(g)[at]] += passedOn_[start_[g] + number];
      });
    }
    return std::move(own_);
  }

 private:
  const Symbolic& s_;
  const PlacedEntries& entries_;
  std::vector<double> own_;
  /// Where the values of a group begin.
  std::vector<Offset> start_;
  std::vector<double> passedOn_;
};

/// Fills the diagonal and returns the identity's sums of the rows of L.
std::vector<double> readVariances(const Symbolic& symbolic, const PlacedEntries& entries,
                                  const FactorPanels& panels, double* diagonal, kernels::Team& team,
                                  Meter* meter) {
  IdentitySums sums(symbolic, entries);
  const PanelReader read = [&](Index g, const double* z) {
    const Offset height = symbolic.height(g);
    const Index* const original = symbolic.permutation.data() + symbolic.firstColumn[g];
    for (Index c = 0; c < symbolic.width(g); ++c) diagonal[original[c]] = z[c * (height + 1)];
    sums.read(g, z);
  };
  selectedInverse(symbolic, panels, nullptr, read, team, meter);
  return std::move(sums).sums();
}

}  // namespace

void selectedInverse(const Symbolic& symbolic, const FactorPanels& panels,
                     const std::vector<bool>* wanted, const PanelReader& read, kernels::Team& team,
                     Meter* meter) {
  if (wanted == nullptr) {
    return Inversion(symbolic, panels, nullptr, nullptr, read, team, meter).run();
  }
  std::vector<bool> closed(*wanted);
  for (Index g = 0; g < symbolic.groups(); ++g) {
    if (closed[g] && symbolic.parent[g] >= 0) closed[symbolic.parent[g]] = true;
  }
  Inversion(symbolic, panels, nullptr, &closed, read, team, meter).run();
}

void selectedInverse(const Symbolic& symbolic, const FactorPanels& panels, double* z,
                     kernels::Team& team, Meter* meter) {
  const PanelReader nobody;
  Inversion(symbolic, panels, z, nullptr, nobody, team, meter).run();
}

double variances(const Symbolic& symbolic, const PlacedEntries& entries, const FactorPanels& panels,
                 double* diagonal, kernels::Team& team, Meter* meter, double* norm) {
  double largest = 0.0;
  double squares = 0.0;
  for (const double sum : readVariances(symbolic, entries, panels, diagonal, team, meter)) {
    const double deviation = std::fabs(sum - 1.0);
    if (std::isnan(deviation)) return deviation;
    largest = std::max(largest, deviation);
    squares += deviation * deviation;
  }
  if (norm != nullptr) *norm = std::sqrt(squares);
  return largest;
}

void variances(const Symbolic& symbolic, const PlacedEntries& entries, const FactorPanels& panels,
               double* diagonal, double* sums, kernels::Team& team, Meter* meter) {
  const std::vector<double> ofRows =
      readVariances(symbolic, entries, panels, diagonal, team, meter);
  for (size_t k = 0; k < ofRows.size(); ++k) sums[symbolic.permutation[k]] = ofRows[k];
}

double inverseWork(const Symbolic& symbolic, const std::vector<bool>* wanted) {
  double work = 0.0;
  std::vector<bool> closed =
      wanted != nullptr ? *wanted : std::vector<bool>(symbolic.groups(), true);
  for (Index g = 0; g < symbolic.groups(); ++g) {
    if (!closed[g]) continue;
    work += kWorkRatio * frontWork(symbolic, g);
    if (symbolic.parent[g] >= 0) closed[symbolic.parent[g]] = true;
  }
  return work;
}

double identityMemory(const Symbolic& symbolic, const PlacedEntries& entries) {
  RowsMet rows;
  Offset met = 0;
  for (Index g = 0; g < symbolic.groups(); ++g) met += rows.of(symbolic, entries, g);
  return sizeof(double) * static_cast<double>(symbolic.n + met) +
         sizeof(Offset) * static_cast<double>(symbolic.groups() + 1);
}

double inverseMemory(const Symbolic& symbolic, int threads, size_t keptFrom) {
  const Schedule schedule = makeSchedule(symbolic, threads);
  const PanelStructure structure{symbolic.groups(),        symbolic.firstColumn.data(),
                                 symbolic.rowStart.data(), symbolic.rows.data(),
                                 symbolic.groupOf.data(),  nullptr};
  std::vector<bool> hasChildren(static_cast<size_t>(schedule.tasks()));
  for (const int parent : schedule.forest.parent) {
    if (parent >= 0) hasChildren[parent] = true;
  }
  size_t shared = 0;
  size_t path = 0;
  size_t atWork = 0;
  size_t block = 0;
  const InFile file(symbolic, keptFrom);
  for (int t = 0; t < schedule.tasks(); ++t) {
    const PathRoom room =
        pathRoom(symbolic, schedule.first[t], schedule.first[t + 1], nullptr, file);
    atWork = std::max(atWork, room.atWork);
    block = std::max(block, room.block);
    if (hasChildren[t]) {
      shared += room.path;
    } else {
      path = std::max(path, room.path);
    }
  }
  const int helpers = std::min(threads, std::max(1, schedule.tasks()));
  return sizeof(double) * static_cast<double>(shared) +
         helpers * (kernels::heldBytes(path) + kernels::heldBytes(atWork) +
                    kernels::heldBytes(block) + InverterSizes(structure).bytes());
}

}  // namespace korin::sparse
