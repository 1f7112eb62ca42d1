#include "zeph/jobs/report/page.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>
#include <vector>

#include "zeph/checks/guarded.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/number_text.h"
#include "zeph/jobs/report/assets.h"
#include "zeph/jobs/report/charts.h"
#include "zeph/zeph_c.h"

namespace zeph {
namespace {

using std::size_t;

constexpr int kDigitsOfSigma = 3;  // significant ones of the smaller standard deviations
constexpr int kMostDecimals = 12;  // beyond, and for large numbers, exponents
constexpr double kLargestFixed = 1e9;
constexpr size_t kSmallerShare = 10;  // one in so many is smaller than those that set the decimals

/// The page with every {{name}} replaced; what is put in is not searched again.
std::string filled(std::string_view page, const std::map<std::string_view, std::string>& pieces) {
  std::string text;
  for (size_t open = 0; (open = page.find("{{")) != page.npos;) {
    const size_t close = page.find("}}", open);
    text += page.substr(0, open);
    text += pieces.at(page.substr(open + 2, close - open - 2));
    page.remove_prefix(close + 2);
  }
  return text + std::string(page);
}

/// 20342 as 20,342.
std::string grouped(size_t value) {
  std::string text = std::to_string(value);
  for (size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
  return text;
}

std::string now() {
  const std::time_t time = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[40];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &utc);
  return text;
}

std::string paragraph(const Verdict& v) {
  static constexpr const char* kClasses[] = {"good", "bad", "plain"};
  return std::string("<p class=\"verdict ") + kClasses[static_cast<int>(v.mood)] + "\"><strong>" +
         escaped(v.headline) + "</strong> " + escaped(v.sentence) + "</p>\n";
}

/// How the numbers of a column are shown: with the decimals that its standard deviations call for.
class ColumnFormat {
 public:
  ColumnFormat(const std::vector<double>& values, std::vector<double> sigmas) {
    std::erase_if(sigmas, [](double s) { return !(s > 0.0); });
    if (sigmas.empty()) return;
    const auto small = sigmas.begin() + static_cast<std::ptrdiff_t>(sigmas.size() / kSmallerShare);
    std::nth_element(sigmas.begin(), small, sigmas.end());
    const int decimals = kDigitsOfSigma - 1 - static_cast<int>(std::floor(std::log10(*small)));
    const bool large = std::any_of(values.begin(), values.end(),
                                   [](double v) { return std::fabs(v) > kLargestFixed; });
    if (decimals <= kMostDecimals && !large) decimals_ = std::max(decimals, 0);
  }
  explicit ColumnFormat(int decimals) : decimals_(decimals) {}

  std::string cell(double value) const {
    if (std::isnan(value)) return "<td data-v=\"nan\">–</td>";
    char text[64];
    if (decimals_ < 0) {
      std::snprintf(text, sizeof text, "%.6g", value);
    } else {
      std::snprintf(text, sizeof text, "%.*f", decimals_, value);
    }
    return "<td data-v=\"" + toText(value) + "\">" + (*text == '-' ? "−" : "") +
           (text + (*text == '-')) + "</td>";
  }

 private:
  int decimals_ = -1;
};

struct Column {
  const char* title;
  enum class Kind { Index, Name, Figure, Signed } kind;
  const char* sorted = nullptr;  // what aria-sort says of the order in which rows stand
};

std::string head(const std::vector<Column>& columns) {
  std::string text;
  for (const Column& c : columns) {
    text += "<th scope=\"col\"";
    if (c.kind == Column::Kind::Name) text += " class=\"name\"";
    if (c.kind == Column::Kind::Signed) text += " data-by=\"size\"";
    const bool figure = c.kind == Column::Kind::Figure || c.kind == Column::Kind::Signed;
    text += figure ? " data-first=\"descending\"" : "";
    if (c.sorted) text += std::string(" aria-sort=\"") + c.sorted + "\"";
    text += std::string("><button type=\"button\">") + c.title + "</button></th>";
  }
  return text;
}

std::string indexCell(size_t index) {
  const std::string text = std::to_string(index);
  return "<td data-v=\"" + text + "\">" + text + "</td>";
}

/// The figures of the whole, and what they were made from.
class Figures {
 public:
  void add(const std::string& term, const std::string& value) {
    text_ += "<div><dt>" + escaped(term) + "</dt><dd>" + escaped(value) + "</dd></div>\n";
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

std::string figures(const ReportContents& c, const ReportFigures& f) {
  const Adjustment& a = c.a;
  Figures list;
  list.add("Observations", grouped(a.residuals.size()));
  list.add("Unknowns", grouped(a.x.size()));
  list.add("Degrees of freedom", grouped(static_cast<size_t>(a.degreesOfFreedom)));
  list.add("Observations that no other checks", grouped(a.residuals.size() - f.checked));
  list.add("Variance factor", shortText(a.varianceFactor));
  if (!std::isnan(f.lowFactor)) {
    list.add("Its bounds, χ² at 95 %", shortText(f.lowFactor) + " to " + shortText(f.highFactor));
  }
  if (a.suspect >= 0) {
    const auto s = static_cast<size_t>(a.suspect);
    list.add("Largest normalised residual",
             shortText(a.normalizedResiduals[s]) + ", " + nameOf(c, s));
  }
  if (!std::isnan(f.critical)) {
    list.add("Bound of the largest, at 95 %", shortText(f.critical));
  }
  if (a.factor) {
    list.add("Condition of the normal matrix", shortText(f.condition));
    list.add("Relative error of the variances", "at most " + shortText(f.relativeError));
    list.add("Route", f.route);
    list.add("Order of elimination", f.ordering);
  }
  for (const auto& [role, input] : c.options.inputs) list.add(role, input);
  return list.take();
}

std::string figure(const char* kind, const std::string& drawing, const std::string& caption) {
  return std::string("<figure") + kind + ">\n" + drawing + "<figcaption>" + escaped(caption) +
         "</figcaption>\n</figure>\n";
}

std::string charts(const ReportContents& c, const ReportFigures& f) {
  std::string text;
  if (!c.picture.empty()) {
    text += figure(" class=\"wide\"",
                   "<div class=\"picture\" tabindex=\"0\" role=\"region\" aria-label=\"Picture\">" +
                       c.picture + "</div>\n",
                   c.pictureCaption);
  }
  if (f.checked == 0) return text;
  const size_t unchecked = c.a.residuals.size() - f.checked;
  std::string dots = "Each observation by how far the others check it, and how far it misses them.";
  if (!std::isnan(f.critical)) {
    dots += " Dashed: ±" + shortText(f.critical) + ", the bound of the largest.";
  }
  if (unchecked > 0) dots += " Not shown: " + grouped(unchecked) + " that no other checks.";
  text += figure("", drawResiduals(c, f), dots);
  text += figure("", drawHistogram(f.histogram),
                 "How many normalised residuals have which size. The curve is the standard normal "
                 "distribution, where right observations lie; the outermost bars hold all beyond.");
  return text;
}

std::string note(size_t shown, size_t all, const char* what, const char* which) {
  const std::string indices = " Indices count from 0, as in the tables that zeph adjust writes.";
  if (shown == all) return "All " + grouped(all) + " " + what + "." + indices;
  return "The " + grouped(shown) + " of " + grouped(all) + " " + what + " " + which + "." + indices;
}

std::string observationRows(const ReportContents& c, const ReportFigures& f) {
  const Adjustment& a = c.a;
  const ColumnFormat residual(a.residuals, a.residualSigma), share(4), normalised(3);
  const bool suspected = f.suspicion.mood == Verdict::Mood::Bad;
  std::string text;
  for (const size_t i : f.observations) {
    const bool marked = suspected && std::fabs(a.normalizedResiduals[i]) >= f.tied;
    text += marked ? "<tr class=\"suspected\">" : "<tr>";
    text += indexCell(i);
    if (c.observationName) text += "<td class=\"name\">" + escaped(c.observationName(i)) + "</td>";
    text += residual.cell(a.residuals[i]) + residual.cell(a.residualSigma[i]) +
            share.cell(a.redundancy[i]) + share.cell(a.leverage[i]) +
            normalised.cell(a.normalizedResiduals[i]) + "</tr>\n";
  }
  return text;
}

std::string unknownRows(const Adjustment& a, const ReportFigures& f) {
  const ColumnFormat value(a.x, a.sigma), sigma(a.sigma, a.sigma);
  std::string text;
  for (const size_t j : f.unknowns) {
    text += "<tr>" + indexCell(j) + value.cell(a.x[j]) + sigma.cell(a.sigma[j]) + "</tr>\n";
  }
  return text;
}

std::vector<Column> observationColumns(bool named) {
  using Kind = Column::Kind;
  std::vector<Column> columns = {{"observation", Kind::Index}};
  if (named) columns.push_back({"name", Kind::Name});
  columns.insert(columns.end(), {{"residual", Kind::Signed},
                                 {"standard deviation", Kind::Figure},
                                 {"redundancy", Kind::Figure},
                                 {"leverage", Kind::Figure},
                                 {"normalised residual", Kind::Signed, "descending"}});
  return columns;
}

std::vector<Column> unknownColumns(bool all) {
  using Kind = Column::Kind;
  return {{"unknown", Kind::Index, all ? "ascending" : nullptr},
          {"value", Kind::Figure},
          {"standard deviation", Kind::Figure, all ? nullptr : "descending"}};
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string adjustmentPage(const ReportContents& c) {
  const ReportFigures f = figuresOf(c);
  const size_t m = c.a.residuals.size(), n = c.a.x.size();
  return filled(
      kReportPage,
      {{"title", escaped(c.options.title)},
       {"style", std::string(kReportStyle)},
       {"script", std::string(kReportScript)},
       {"made", escaped(now() + " · zeph " + zeph_version())},
       {"verdicts", paragraph(f.factorTest) + paragraph(f.suspicion)},
       {"figures", figures(c, f)},
       {"charts", charts(c, f)},
       {"observationsNote",
        note(f.observations.size(), m, "observations", "with the largest normalised residuals")},
       {"observationHead", head(observationColumns(static_cast<bool>(c.observationName)))},
       {"observationRows", observationRows(c, f)},
       {"unknownsNote",
        note(f.unknowns.size(), n, "unknowns", "with the largest standard deviations")},
       {"unknownHead", head(unknownColumns(f.unknowns.size() == n))},
       {"unknownRows", unknownRows(c.a, f)}});
}

void writeAdjustmentReport(const std::string& path, const Adjustment& a,
                           const AdjustmentReportOptions& options) {
  guarded(path, [&] {
    AtomicFile out(path);
    out.write(adjustmentPage({a, options, {}, {}, {}}));
    out.commit();
  });
}

}  // namespace zeph
