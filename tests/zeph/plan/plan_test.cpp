// What is predicted of a run: properties of the cost model, sums of memory, and calibrations that
// are none.
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "kernels/panel_file.h"
#include "kernels/processor.h"
#include "tests/zeph/front_test.h"
#include "zeph/factor.h"
#include "zeph/factor/plan_structure.h"
#include "zeph/plan/calibration.h"
#include "zeph/plan/calibration_file.h"
#include "zeph/plan/generated_problem.h"
#include "zeph/plan/run_plan.h"
#include "zeph/plan/run_seconds.h"

namespace {

using korin::kernels::ProcessorLevel;
using zeph::CostModel;
using zeph::FrontTable;
using zeph::RunPlan;
using zeph::Shape;
using zeph::SparseMatrix;
using zeph::StageSeconds;

constexpr Shape kShapes[] = {Shape::Plane,  Shape::Space,  Shape::Network, Shape::Drive,
                             Shape::Sphere, Shape::Bundle, Shape::Band};

class PlanTest : public FrontTest {
 protected:
  CostModel model_ = zeph::defaultCostModel(ProcessorLevel::Avx2);

  RunPlan planned(const SparseMatrix& A, int threads, int processes = 1) const {
    zeph::Options options;
    options.threads = threads;
    return planRun(A, options, model_, processes);
  }

  static double total(const StageSeconds& t) { return t.factor + t.inverse; }
};

TEST_F(PlanTest, frontsTakeLongerTheLargerTheyAre) {
  for (const auto level :
       {ProcessorLevel::Baseline, ProcessorLevel::Avx2, ProcessorLevel::Avx512}) {
    const CostModel m = zeph::defaultCostModel(level);
    for (const FrontTable* table : {&m.factor, &m.factorLeaf, &m.inverse}) {
      for (int w = 1; w < 3000; w += 1 + w / 3) {
        for (int b = 0; b < 9000; b += 1 + b / 3) {
          const double here = table->seconds(w, b);
          ASSERT_GT(here, 0.0);
          EXPECT_LT(here, 1.01 * table->seconds(w + 1 + w / 3, b)) << w << " " << b;
          EXPECT_LT(here, 1.01 * table->seconds(w, b + 1 + b / 3)) << w << " " << b;
        }
      }
      // What was measured comes back.
      EXPECT_NEAR(table->seconds(16, 64) / table->at(4, 5), 1.0, 1e-12);
    }
  }
}

TEST_F(PlanTest, theWalkCountsWhatAPlainOneOverTheTreeDoes) {
  for (const Shape shape : kShapes) {
    const SparseMatrix A = zeph::generatedProblem(shape, 600);
    zeph::Report report;
    const zeph::Options options;
    const auto factor = zeph::plannedStructure(A, options, report);
    const auto& s = factor->symbolic();
    zeph::Terms<zeph::FactorTerm> sum{};
    double placed = 0.0, dense = 0.0;
    for (int g = 0; g < s.groups(); ++g) {
      const zeph::FrontCounts counts = zeph::countFront(s, g);
      for (std::size_t t = 0; t < sum.size(); ++t) sum[t] += counts.factor[t];
      placed += counts.inverse[static_cast<std::size_t>(zeph::InverseTerm::Placed)];
      dense += frontSeconds(model_, s, g).factor;
    }
    std::vector<bool> hasChild(static_cast<std::size_t>(s.groups()));
    for (const int parent : s.parent) {
      if (parent >= 0) hasChild[static_cast<std::size_t>(parent)] = true;
    }
    double passed = 0.0, leaves = 0.0, rows = 0.0, looked = 0.0;
    for (int g = 0; g < s.groups(); ++g) {
      const double b = s.below(g);
      rows += s.height(g);
      if (s.parent[g] >= 0)
        (hasChild[static_cast<std::size_t>(g)] ? passed : leaves) += b * (b + 1) / 2;
      for (int i = s.width(g), last = -1; i < s.height(g); ++i) {
        if (s.groupOf[s.rowsOf(g)[i]] != last) looked += s.height(g) - i;
        last = s.groupOf[s.rowsOf(g)[i]];
      }
    }
    EXPECT_EQ(sum[static_cast<std::size_t>(zeph::FactorTerm::Groups)], s.groups());
    EXPECT_EQ(sum[static_cast<std::size_t>(zeph::FactorTerm::Rows)], rows);
    EXPECT_EQ(sum[static_cast<std::size_t>(zeph::FactorTerm::Passed)], passed);
    EXPECT_EQ(sum[static_cast<std::size_t>(zeph::FactorTerm::LeafPassed)], leaves);
    EXPECT_EQ(placed, looked);
    // One thread's run is the sum of its fronts.
    const double entries = static_cast<double>(A.entries.size());
    EXPECT_NEAR(runSeconds(model_, s, entries, 1).factor,
                dense + commonSeconds(model_, s, entries, 1).factor, 1e-9 * dense);
  }
}

TEST_F(PlanTest, threadsAndProcessesShareTheWorkAndNoMore) {
  for (const Shape shape : kShapes) {
    const SparseMatrix A = zeph::generatedProblem(shape, 8000);
    zeph::Report report;
    const zeph::Options options;
    const auto factor = zeph::plannedStructure(A, options, report);
    const double entries = static_cast<double>(A.entries.size());
    const auto at = [&](int threads) {
      const auto& s = factor->symbolic();
      const double alone = commonSeconds(model_, s, entries, threads).factor +
                           pageSeconds(model_, s, entries, threads).inverse;
      return total(runSeconds(model_, s, entries, threads)) - alone;
    };
    double last = at(1);
    const double alone = last;
    for (const int threads : {2, 3, 4, 8, 64}) {
      const double here = at(threads);
      // With the first touch of blocks that pass between threads.
      EXPECT_LE(here, alone * model_.sharing * 1.1) << name(shape) << threads;
      EXPECT_GE(here, alone / threads * model_.sharing * 0.9999) << name(shape) << threads;
      // Other cuts into tasks may cost a little.
      EXPECT_LE(here, 1.2 * std::max(last, at(2))) << name(shape) << threads;
      last = here;
    }
    double largest = 1e300;
    for (const int processes : {2, 5, 40}) {
      const zeph::DomainsPlan d =
          planDomains(model_, A, static_cast<double>(report.groups), processes);
      EXPECT_GT(total(d.seconds), 0.1 * alone / processes) << name(shape);
      EXPECT_TRUE(d.balance >= 1.0 && d.bytes <= largest * 1.5 && d.messageBytes >= 0.0);
      EXPECT_GT(d.bytes, d.factorBytes);
      EXPECT_TRUE(d.interfaceUnknowns >= 0 && d.interfaceUnknowns < report.unknowns);
      largest = d.bytes;
      const zeph::SolvesPlan solves = planSolves(model_, factor->symbolic(), 2.0 * entries);
      EXPECT_GE(solves.operations, 2.0 * static_cast<double>(report.entriesOfL));
    }
  }
}

TEST_F(PlanTest, aScratchFileTakesItsTimeAndThatOfASlowDisk) {
  const SparseMatrix A = zeph::generatedProblem(Shape::Space, 17000);
  const auto at = [&](double rate) {
    model_.scratchWrite = model_.scratchRead = rate;
    model_.scratchPanel = 0.0;
    return planned(A, 1);
  };
  const RunPlan fast = at(1e15), slow = at(1e6);
  const double bytes = fast.scratchBytes, window = 0.4 * korin::kernels::PanelFile::kWindow;
  ASSERT_GT(bytes, 1.2 * window);
  // The processor moves every byte; nothing more where the disk keeps up, nor less than what the
  // file has no room for where it does not.
  EXPECT_NEAR(fast.scratch.factor, fast.oneThread.factor + model_.scratchWriting * bytes,
              1e-9 * fast.scratch.factor);
  EXPECT_NEAR(fast.scratch.inverse, fast.oneThread.inverse + model_.scratchReading * bytes,
              1e-9 * fast.scratch.inverse);
  for (const double seconds : {slow.scratch.factor, slow.scratch.inverse}) {
    EXPECT_NEAR(seconds, (bytes - window) / 1e6, total(fast.scratch));
  }
}

TEST_F(PlanTest, memoryIsWhatRunsAreRefusedBy) {
  for (const Shape shape : {Shape::Space, Shape::Bundle, Shape::Drive}) {
    const SparseMatrix A = zeph::generatedProblem(shape, 9000);
    const RunPlan p = planned(A, 1);
    EXPECT_GE(p.memory.factorisation, 8.0 * static_cast<double>(p.report.entriesOfL));
    EXPECT_GE(p.memory.inversion, p.report.bytes);
    EXPECT_GE(p.memory.peak(), p.memory.analysis);
    EXPECT_LT(p.besideFile.inversion, p.memory.inversion);
    EXPECT_LT(p.besideFile.factorisation, p.memory.factorisation);
    zeph::Options options;
    options.threads = 1;
    const auto refused = [&](double limit) {
      options.memoryLimit = limit;
      return errorOf([&] { zeph::Factor(A, options).variances(); });
    };
    const double need = std::max(p.memory.factorisation, p.memory.inversion);
    EXPECT_NE(refused(need - 1.0).find("more than the limit"), std::string::npos);
    EXPECT_EQ(refused(need + 1.0), "no error");
    EXPECT_NE(refused(p.memory.factorisation - 1.0).find("factorising"), std::string::npos);
  }
}

TEST_F(PlanTest, calibrationsComeBackWholeOrNotAtAll) {
  const std::string file = path("cache/zeph/calibration.txt");
  model_.factor.at(3, 4) = 0.1234567890123456789;
  model_.scratchWrite = 3e9;
  writeCalibration(file, model_);
  std::string against;
  const auto again = zeph::readCalibration(file, against);
  ASSERT_TRUE(again.has_value()) << against;
  EXPECT_EQ(again->factor.at(3, 4), model_.factor.at(3, 4));
  EXPECT_EQ(again->inverseTerms, model_.inverseTerms);
  EXPECT_EQ(again->scratchWrite, 3e9);

  const std::string whole = read(file);
  // As their maker would have written it, check and all.
  const auto rewritten = [&](const std::string& from, const std::string& to) {
    std::string text = whole.substr(0, whole.rfind("check "));
    text.replace(text.find(from), from.size(), to);
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    char check[32];
    std::snprintf(check, sizeof check, "check %016llx\n", static_cast<unsigned long long>(hash));
    return text + check;
  };
  write("same.txt", rewritten("sharing", "sharing"));
  EXPECT_TRUE(zeph::readCalibration(path("same.txt"), against).has_value());
  const std::string slow = "sharing " + whole.substr(whole.find("sharing ") + 8, 4);
  const struct {
    const char* what;
    std::string text;
    const char* said;
  } cases[] = {
      {"nothing", "", "no calibration"},
      {"cut off", whole.substr(0, whole.size() / 2), "not a whole one"},
      {"cut off in its check", whole.substr(0, whole.size() - 3), "not a whole one"},
      {"edited", std::string(whole).replace(whole.find("leaf ") + 5, 1, "9"), "not a whole one"},
      {"large", std::string(1 << 20, 'x'), "no calibration"},
      {"bytes", std::string(3000, '\0') + "check \xff", "no calibration"},
      {"another machine", rewritten("processor ", "processor X"), "another machine"},
      {"another version", rewritten("version ", "version 9."), "another version"},
      {"a negative time", rewritten("leaf ", "leaf -"), "can have been measured"},
      {"not a number", rewritten("pages ", "pages nan "), "can have been measured"},
      {"infinite", rewritten(slow, "sharing inf"), "can have been measured"},
      {"no time at all", rewritten("leaf ", "leaf 0 "), "can have been measured"},
      {"threads that help by themselves", rewritten(slow, "sharing 0.1"), "can have been measured"},
      {"too few", rewritten("pages ", "pages\n"), "can have been measured"},
      {"too many", rewritten("sharing ", "sharing 1 "), "can have been measured"},
      {"more lines", whole.substr(0, whole.rfind("check ")) + whole, "whole one"},
  };
  for (const auto& c : cases) {
    write("bad.txt", c.text);
    EXPECT_FALSE(zeph::readCalibration(path("bad.txt"), against).has_value()) << c.what;
    EXPECT_NE(against.find(c.said), std::string::npos) << c.what << ": " << against;
  }
  mkfifo(path("pipe").c_str(), 0600);
  for (const char* name : {"pipe", "cache"}) {
    EXPECT_FALSE(zeph::readCalibration(path(name), against).has_value());
    EXPECT_EQ(against, "it is no calibration") << name;
  }
  EXPECT_FALSE(zeph::readCalibration(path("none"), against).has_value());
  EXPECT_EQ(against, "");
}

TEST_F(PlanTest, calibrationStopsWhenAsked) {
  zeph::CalibrationOptions options;
  int calls = 0;
  options.progress = [&](const char*, double share) {
    EXPECT_TRUE(share >= 0.0 && share <= 1.0);
    return ++calls < 3;
  };
  EXPECT_NE(errorOf([&] { zeph::calibrate(options); }).find("stopped on request"),
            std::string::npos);
  EXPECT_EQ(calls, 3);
}

}  // namespace
