#include "zeph/adjustment_report.h"

#include "tests/zeph/drawn.h"
#include "tests/zeph/front_test.h"
#include "zeph/files/atomic_file.h"
#include "zeph/jobs/report/charts.h"
#include "zeph/jobs/report/distributions.h"
#include "zeph/jobs/report/figures.h"

namespace zeph {
namespace {

class AdjustmentReportTest : public FrontTest {};

/// n observations of one unknown, the mean of them.
Adjustment mean(const std::vector<double>& y, double sigma) {
  SparseMatrix J;
  J.rows = y.size(), J.cols = 1;
  for (unsigned i = 0; i < y.size(); ++i) J.entries.push_back({i, 0, 1.0});
  return adjust(J, y, {sigma});
}

TEST_F(AdjustmentReportTest, QuantilesAreThoseOfTheirDistributions) {
  for (const double p : {1e-6, 0.025, 0.5, 0.975, 0.999999}) {
    EXPECT_NEAR(chiSquareQuantile(2.0, p) / (-2.0 * std::log1p(-p)), 1.0, 1e-9);
    const double z = normalQuantile(0.5 * (1.0 - p));
    EXPECT_NEAR(std::erf(z / std::sqrt(2.0)), p, 1e-14);
    EXPECT_NEAR(chiSquareQuantile(1.0, p) / (z * z), 1.0, 1e-8);
  }
  const double f = 1e7, z = normalQuantile(0.025);  // Cornish and Fisher, 1937
  const double expected = f + z * std::sqrt(2.0 * f) + 2.0 / 3.0 * (z * z - 1.0) +
                          (z * z * z - 7.0 * z) / (9.0 * std::sqrt(2.0 * f));
  EXPECT_NEAR(chiSquareQuantile(f, 0.975) / expected, 1.0, 1e-9);
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
    const ReportFigures f = figuresOf({c.a, c.options, {}, {}, {}});
    EXPECT_EQ(f.factorTest.headline.find(c.factor), 0u) << f.factorTest.headline;
    EXPECT_EQ(f.suspicion.headline.find(c.suspicion), 0u) << f.suspicion.headline;
    EXPECT_NE(f.suspicion.sentence.find(c.sentence), std::string::npos) << f.suspicion.sentence;
  }
}

TEST_F(AdjustmentReportTest, ChartsDrawWhatTheyCount) {
  for (const std::size_t most : {3u, 40u, 90000u}) {
    Histogram h;
    h.limit = 4.0, h.width = 0.5, h.below = 2, h.above = 1;
    for (int k = 0; k < 16; ++k) h.counts.push_back(k == 5 ? most : 1 + below(most));
    for (const std::size_t c : h.counts) h.checked += c;
    const std::string svg = drawHistogram(h);
    expectInside(svg);
    // Lines across, with their numbers; bars stand on that of 0.
    const auto ticks = drawn(svg, "d=\"M62.0 #L[^\n]*\n<text text-anchor=\"end\"[^>]*>#");
    const auto bars = drawn(svg, "bar\" x=\"#\" y=\"#\" width=\"#\" height=\"#");
    const auto curve = drawn(svg.substr(svg.find("\"curve\"")), "[ML]# #");
    ASSERT_TRUE(ticks.size() > 2 && bars.size() == 16 && curve.size() == 81);
    const double unit = most > 20000 ? 1e3 : 1.0, foot = ticks[0][0];
    const double pixels = (foot - ticks.back()[0]) / (ticks.back()[1] * unit);  // for one
    for (const auto& t : ticks) EXPECT_NEAR(foot - t[0], t[1] * unit * pixels, 0.3);
    for (std::size_t k = 0; k < 16; ++k) {
      EXPECT_NEAR(bars[k][1] + bars[k][3], foot, 0.3);
      EXPECT_NEAR(bars[k][3], std::max(1.5, pixels * double(h.counts[k])), 0.5);
      EXPECT_NEAR(bars[k][0] + 0.5 * bars[k][2], 62.0 + (double(k) + 0.5) / 16.0 * 406.0, 0.3);
    }
    for (std::size_t k = 0; k < curve.size(); ++k) {
      const double w = 0.1 * (double(k) - 40.0);
      const double density = std::exp(-0.5 * w * w) / std::sqrt(2.0 * M_PI);
      EXPECT_NEAR(curve[k][0], 62.0 + (w + 4.0) / 8.0 * 406.0, 0.2);
      EXPECT_NEAR(foot - curve[k][1], pixels * 0.5 * double(h.checked) * density, 0.5);
    }
  }
  // Dots and the suspect where the line of 0 and the frame say, on either scale.
  for (const double blunder : {5.0, 500.0}) {
    const Adjustment a = mean({0, 1, -1, 2, -2, 0.5, blunder, 0.1}, 1.0);
    const ReportContents c = {a, {}, {}, {}, {}};
    const std::string svg = drawResiduals(c, figuresOf(c));
    expectInside(svg);
    const auto ticks = drawn(svg, "d=\"M62.0 #L[^\n]*\n<text text-anchor=\"end\"[^>]*>#");
    const auto dots = drawn(svg, "M# #h0"), suspect = drawn(svg, "cx=\"#\" cy=\"#");
    ASSERT_TRUE(ticks.size() > 2 && suspect.size() == 1);
    EXPECT_EQ(dots.size(), blunder < 100.0 ? 8u : 2u);  // those that would cover others
    const auto height = [&](double w) { return blunder < 100.0 ? w : std::asinh(w); };
    const double pixels = (ticks[0][0] - ticks[1][0]) / height(ticks[1][1]);
    for (std::size_t i = 0; i < 8; ++i) {
      const double x = 62.0 + 406.0 * a.redundancy[i];
      const double y = ticks[0][0] - pixels * height(a.normalizedResiduals[i]);
      EXPECT_TRUE(std::any_of(dots.begin(), dots.end(),
                              [&](const auto& d) {
                                return std::hypot(d[0] - x, d[1] - y) <
                                       (blunder < 100.0 ? 0.5 : 4.3);
                              }))
          << x << " " << y;
      EXPECT_EQ(std::hypot(suspect[0][0] - x, suspect[0][1] - y) < 0.5, i == 6);
    }
  }
}

TEST_F(AdjustmentReportTest, IsWrittenWholeOrNotAtAll) {
  Adjustment a = mean({1, 2, 4}, 1.0);
  const std::string file = write("old.html", "old");
  a.factor = nullptr;
  EXPECT_NE(errorOf([&] { writeAdjustmentReport(path("none/r.html"), a); }).find("none"),
            std::string::npos);
  AtomicFile::stopAll();
  EXPECT_NE(errorOf([&] { writeAdjustmentReport(file, a); }), "");
  AtomicFile::stopAll(false);
  EXPECT_EQ(read(file), "old");
  EXPECT_EQ(fileCount(), 1u);
  writeAdjustmentReport(file, a);
  EXPECT_TRUE(read(file).ends_with("</html>\n"));
  EXPECT_EQ(read(file).find("Condition of"), std::string::npos);
}

}  // namespace
}  // namespace zeph
