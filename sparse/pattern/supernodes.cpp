#include "sparse/pattern/supernodes.h"

#include <algorithm>
#include <utility>

namespace korin::sparse {

namespace {

/// Estimated time of the recurrence on one group, in nanoseconds: what decides about merging.
/// Fitted to an AVX-512 machine; only the relations between the constants matter.
double groupCost(double columns, double rowsBelow) {
  constexpr double kPerGroup = 350.0;   // calls, workspace, the ends of dense products
  constexpr double kPerRow = 8.0;       // finding a row's place among those of the ancestors
  constexpr double kPerGathered = 0.5;  // copying an entry of Z22
  constexpr double kPerEntry = 2.5;     // an entry of the panel, into which L has to be copied
  constexpr double kPerOperation = 0.025;
  const double gathered = 0.5 * rowsBelow * rowsBelow;
  const double operations =
      2.0 * columns * rowsBelow * (rowsBelow + columns) + columns * columns * columns;
  return kPerGroup + kPerRow * rowsBelow + kPerGathered * gathered +
         kPerEntry * columns * (columns + rowsBelow) + kPerOperation * operations;
}

bool continuesGroup(const ColumnsView& f, Index column) {
  const Offset previous = f.start[column - 1];
  const Offset start = f.start[column];
  const Offset end = f.start[column + 1];
  if (start == end || start - previous != end - start + 1) return false;
  if (f.row[previous] != column - 1 || f.row[start] != column) return false;
  return std::equal(f.row + start, f.row + end, f.row + previous + 1);
}

void closeGroup(ColumnGroups& groups, unsigned int endColumn) {
  const std::size_t columns = endColumn - groups.firstColumn.back();
  const std::size_t height = groups.rows.size() - groups.rowStart.back();
  groups.firstColumn.push_back(endColumn);
  groups.rowStart.push_back(static_cast<unsigned int>(groups.rows.size()));
  groups.panelStart.push_back(groups.panelStart.back() + columns * height);
}

std::vector<unsigned int> groupOfColumns(const ColumnGroups& groups) {
  std::vector<unsigned int> groupOf(groups.firstColumn.back());
  for (unsigned int g = 0; g < groups.count(); ++g) {
    std::fill(groupOf.begin() + groups.firstColumn[g], groupOf.begin() + groups.firstColumn[g + 1],
              g);
  }
  return groupOf;
}

}  // namespace

ColumnGroups findColumnGroups(const ColumnsView& factor) {
  ColumnGroups groups;
  for (Index first = 0; first < factor.cols;) {
    Index end = first + 1;
    while (end < factor.cols && continuesGroup(factor, end)) ++end;
    groups.rows.insert(groups.rows.end(), factor.row + factor.start[first],
                       factor.row + factor.start[first + 1]);
    closeGroup(groups, end);
    first = end;
  }
  return groups;
}

bool isEliminationPattern(const ColumnsView& factor, const ColumnGroups& groups) {
  constexpr unsigned int kNone = ~0u;
  const std::vector<unsigned int> groupOf = groupOfColumns(groups);
  // Children of each group as linked lists, then one marking of its rows serves them all.
  std::vector<unsigned int> firstChild(groups.count(), kNone);
  std::vector<unsigned int> nextChild(groups.count(), kNone);
  std::vector<unsigned int> markedBy(factor.cols, kNone);
  for (unsigned int g = 0; g < groups.count(); ++g) {
    const unsigned int* rows = groups.rows.data() + groups.rowStart[g];
    if (groups.height(g) == 0 || rows[0] != groups.firstColumn[g]) return false;
    if (firstChild[g] != kNone) {
      for (unsigned int i = 0; i < groups.height(g); ++i) markedBy[rows[i]] = g;
    }
    for (unsigned int child = firstChild[g]; child != kNone; child = nextChild[child]) {
      for (unsigned int i = groups.columns(child); i < groups.height(child); ++i) {
        if (markedBy[groups.rows[groups.rowStart[child] + i]] != g) return false;
      }
    }
    if (groups.height(g) > groups.columns(g)) {
      const unsigned int parent = groupOf[rows[groups.columns(g)]];
      nextChild[g] = firstChild[parent];
      firstChild[parent] = g;
    }
  }
  return true;
}

std::vector<GroupSketch> sketchGroups(const ColumnsView& f) {
  std::vector<GroupSketch> sketch;
  for (unsigned int c = f.cols; c-- > 0;) {
    const Offset start = f.start[c];
    const auto length = static_cast<unsigned int>(f.start[c + 1] - start);
    const unsigned int below = length > 0 ? length - 1 : 0;
    const unsigned int parent = below > 0 ? f.row[start + 1] : f.cols;
    if (!sketch.empty() && parent == c + 1 && sketch.back().firstColumn == parent &&
        below == sketch.back().rowsBelow + sketch.back().columns()) {
      sketch.back().firstColumn = c;
    } else {
      sketch.push_back({c, c + 1, below, parent});
    }
  }
  std::reverse(sketch.begin(), sketch.end());
  return sketch;
}

std::vector<GroupSketch> mergeGroups(const std::vector<GroupSketch>& groups) {
  // From the last group to the first, each one either joins the merged group right of it, whose
  // rows below stay the same, or starts one of its own.
  std::vector<GroupSketch> merged;
  double costOfLast = 0.0;
  for (auto g = groups.rbegin(); g != groups.rend(); ++g) {
    const double cost = groupCost(g->columns(), g->rowsBelow);
    if (!merged.empty() && g->rowsBelow > 0) {
      GroupSketch& right = merged.back();
      const double together = groupCost(right.endColumn - g->firstColumn, right.rowsBelow);
      if (g->firstRowBelow < right.endColumn && together <= cost + costOfLast) {
        right.firstColumn = g->firstColumn;
        costOfLast = together;
        continue;
      }
    }
    merged.push_back(*g);
    costOfLast = cost;
  }
  std::reverse(merged.begin(), merged.end());
  return merged;
}

double estimatedTime(const std::vector<GroupSketch>& groups) {
  double sum = 0.0;
  for (const GroupSketch& g : groups) sum += groupCost(g.columns(), g.rowsBelow);
  return sum;
}

ColumnGroups columnGroups(const ColumnsView& factor, const std::vector<GroupSketch>& sketch) {
  ColumnGroups groups;
  for (const GroupSketch& g : sketch) {
    for (unsigned int c = g.firstColumn; c + 1 < g.endColumn; ++c) groups.rows.push_back(c);
    groups.rows.insert(groups.rows.end(), factor.row + factor.start[g.endColumn - 1],
                       factor.row + factor.start[g.endColumn]);
    closeGroup(groups, g.endColumn);
  }
  return groups;
}

void gatherPanels(const ColumnsView& factor, const SupernodalFactor& panels) {
  for (unsigned int g = 0; g < panels.groupCount; ++g) {
    const unsigned int* rows = panels.rows + panels.rowStart[g];
    const unsigned int height = panels.rowStart[g + 1] - panels.rowStart[g];
    double* column = panels.values + panels.panelStart[g];
    for (unsigned int c = panels.firstColumn[g]; c < panels.firstColumn[g + 1]; ++c) {
      const Offset start = factor.start[c];
      const Offset end = factor.start[c + 1];
      unsigned int place = c - panels.firstColumn[g];
      if (end - start == height - place) {
        std::copy(factor.value + start, factor.value + end, column + place);
      } else {
        for (Offset p = start; p < end; ++p, ++place) {
          while (rows[place] != static_cast<unsigned int>(factor.row[p])) ++place;
          column[place] = factor.value[p];
        }
      }
      column += height;
    }
  }
}

void panelDiagonal(const SupernodalFactor& panels, const unsigned int* perm, double* diagonal) {
  for (unsigned int g = 0; g < panels.groupCount; ++g) {
    const std::size_t step = panels.rowStart[g + 1] - panels.rowStart[g] + std::size_t{1};
    const double* entry = panels.values + panels.panelStart[g];
    for (unsigned int k = panels.firstColumn[g]; k < panels.firstColumn[g + 1]; ++k) {
      diagonal[perm[k]] = *entry;
      entry += step;
    }
  }
}

}  // namespace korin::sparse
