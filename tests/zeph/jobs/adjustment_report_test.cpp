#include "zeph/adjustment_report.h"

#include <cmath>
#include <vector>

#include "tests/zeph/front_test.h"
#include "zeph/files/atomic_file.h"
#include "zeph/jobs/report/distributions.h"
#include "zeph/jobs/report/figures.h"

namespace {

using zeph::Adjustment;
using zeph::AdjustmentReportOptions;

class AdjustmentReportTest : public FrontTest {};

/// n observations of one unknown, the mean of them.
Adjustment mean(const std::vector<double>& y, double sigma) {
  zeph::SparseMatrix J;
  J.rows = y.size(), J.cols = 1;
  for (unsigned i = 0; i < y.size(); ++i) J.entries.push_back({i, 0, 1.0});
  return zeph::adjust(J, y, {sigma});
}

TEST_F(AdjustmentReportTest, QuantilesAreThoseOfTheirDistributions) {
  for (const double p : {1e-6, 0.025, 0.5, 0.975, 0.999999}) {
    EXPECT_NEAR(zeph::chiSquareQuantile(2.0, p) / (-2.0 * std::log1p(-p)), 1.0, 1e-9);
    const double z = zeph::normalQuantile(0.5 * (1.0 - p));
    EXPECT_NEAR(std::erf(z / std::sqrt(2.0)), p, 1e-14);
    EXPECT_NEAR(zeph::chiSquareQuantile(1.0, p) / (z * z), 1.0, 1e-8);
  }
  const double f = 1e7, z = zeph::normalQuantile(0.025);  // Cornish and Fisher, 1937
  const double expected = f + z * std::sqrt(2.0 * f) + 2.0 / 3.0 * (z * z - 1.0) +
                          (z * z * z - 7.0 * z) / (9.0 * std::sqrt(2.0 * f));
  EXPECT_NEAR(zeph::chiSquareQuantile(f, 0.975) / expected, 1.0, 1e-9);
}

TEST_F(AdjustmentReportTest, VerdictsFollowTheTests) {
  AdjustmentReportOptions given, missing, fromOne;
  missing.sigmasGiven = false;
  fromOne.indexBase = 1;
  const std::vector<double> calm = {0, 1, -1, 2, -2, 0.5}, wild = {0, 1, -1, 2, -2, 90};
  const struct {
    Adjustment a;
    AdjustmentReportOptions options;
    const char *factor, *suspicion;  // beginnings of the headlines
    const char* sentence;            // a piece of the second sentence
  } cases[] = {
      {mean(calm, 1.5), given, "The standard deviations fit", "No observation is suspected", "3"},
      {mean(calm, 0.1), given, "The residuals are too large", "Suspected of a blunder: observation",
       "4 others exceed"},
      {mean(calm, 50), given, "The residuals are too small", "No observation", "does not exceed"},
      {mean(wild, 1.5), fromOne, "The residuals are too large",
       "Suspected of a blunder: observation 5 (row 6 of the file).", "by about 90 in its unit"},
      {mean(wild, 1.0), missing, "No standard deviations", "The largest normalised residual is",
       "does not tell"},
      {mean({1, 9}, 1.0), given, "The residuals are too large", "Suspected of a blunder",
       "1 other observation has one of the same size"},
      {mean({1}, 1.0), given, "Nothing is left", "Blunders cannot be found", "checked by others"},
  };
  for (const auto& c : cases) {
    const zeph::ReportFigures f = zeph::figuresOf({c.a, c.options, {}, {}, {}});
    EXPECT_EQ(f.factorTest.headline.find(c.factor), 0u) << f.factorTest.headline;
    EXPECT_EQ(f.suspicion.headline.find(c.suspicion), 0u) << f.suspicion.headline;
    EXPECT_NE(f.suspicion.sentence.find(c.sentence), std::string::npos) << f.suspicion.sentence;
  }
}

TEST_F(AdjustmentReportTest, IsWrittenWholeOrNotAtAll) {
  Adjustment a = mean({1, 2, 4}, 1.0);
  const std::string file = write("old.html", "old");
  a.factor = nullptr;
  EXPECT_NE(errorOf([&] { zeph::writeAdjustmentReport(path("none/r.html"), a); }).find("none"),
            std::string::npos);
  zeph::AtomicFile::stopAll();
  EXPECT_NE(errorOf([&] { zeph::writeAdjustmentReport(file, a); }), "");
  zeph::AtomicFile::stopAll(false);
  EXPECT_EQ(read(file), "old");
  EXPECT_EQ(fileCount(), 1u);
  zeph::writeAdjustmentReport(file, a);
  EXPECT_TRUE(read(file).ends_with("</html>\n"));
  EXPECT_EQ(read(file).find("Condition of"), std::string::npos);
}

}  // namespace
