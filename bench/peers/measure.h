// What the comparison programs share: clocks, repetitions, memory of a run, and the lines that
// bench/compare reads.
#ifndef ZEPH_BENCH_PEERS_MEASURE_H
#define ZEPH_BENCH_PEERS_MEASURE_H

#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace compare {

/// Wall-clock seconds that `work` takes.
template <class Work>
double seconds(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The smallest of the times added so far: what a run costs when nothing else disturbs it.
struct Best {
  double value = HUGE_VAL;
  void add(double time) { value = time < value ? time : value; }
};

/// Calls `round` until `limit` seconds are spent, at least `least` and at most `most` times. A
/// round runs each contestant once, so that they meet the same conditions.
template <class Round>
int repeat(double limit, int least, int most, Round&& round) {
  double spent = 0.0;
  int done = 0;
  while (done < least || (done < most && spent < limit)) {
    spent += seconds(round);
    ++done;
  }
  return done;
}

/// A run in a process of its own.
struct IsolatedRun {
  bool completed = false;
  double megabytes = 0.0;       ///< peak of resident memory above what was there before
  std::vector<double> results;  ///< what `work` left in its argument
};

/// Runs work(results) in a child process; `results` has `count` entries, at first NaN.
IsolatedRun runIsolated(std::size_t count, const std::function<void(double*)>& work);

/// Largest |a[i] - b[i]| / |b[i]| over the i with b[i] not NaN; infinite when an a[i] is not
/// finite.
double largestDifference(const double* a, const double* b, std::size_t count);

/// One line of output: a JSON object. Numbers that are not finite are left out.
class Record {
 public:
  explicit Record(const std::string& table) { add("table", table); }
  Record& add(const std::string& name, const std::string& text);
  Record& add(const std::string& name, const char* text) { return add(name, std::string(text)); }
  Record& add(const std::string& name, double number);
  template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer>>>
  Record& add(const std::string& name, Integer number) {
    return add(name, static_cast<double>(number));
  }
  void print();

 private:
  std::string text_;
};

/// Arguments of the form --name=value; everything else is a position.
class Arguments {
 public:
  Arguments(int argc, char** argv);
  double number(const std::string& name, double otherwise) const;
  /// Empty where the option is not given.
  std::string text(const std::string& name) const;
  const std::vector<std::string>& positions() const { return positions_; }

 private:
  std::vector<std::string> positions_;
  std::vector<std::string> options_;
};

/// The main of a program: what `measure` returns, or 1 with the sentence of what it throws.
int run(const char* program, int (*measure)(const Arguments&), int argc, char** argv);

}  // namespace compare

#endif
