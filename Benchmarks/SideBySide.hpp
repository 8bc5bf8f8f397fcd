#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace sorrel::bench {

/// The result of one run, so that the sides can be compared, and its duration if the caller's own clock would
/// include other work.
struct Outcome {
  Outcome(double what) : found(what) {}
  Outcome(double what, double took) : found(what), seconds(took) {}
  double found;
  double seconds = -1;
};

/// One method to do a job.
struct Variant {
  std::string name;
  std::function<Outcome()> run;
  std::vector<double> seconds{};
  double found = 0;

  [[nodiscard]] double median() const {
    std::vector<double> sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    const std::size_t half = sorted.size() / 2;
    return sorted.size() % 2 != 0 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
  }
};

/// Runs all variants round by round, so that a slow moment of the machine affects all of them, after one
/// round that does not count.
inline void measure(std::vector<Variant>& variants, int rounds) {
  for (int round = -1; round < rounds; ++round) {
    for (Variant& variant : variants) {
      const auto start = std::chrono::steady_clock::now();
      const Outcome outcome = variant.run();
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      variant.found = outcome.found;
      if (round >= 0) variant.seconds.push_back(outcome.seconds < 0 ? took.count() : outcome.seconds);
    }
  }
}

/// Prints one row for each variant; `units` is the number of items that each of them handles.
inline void print(const std::vector<Variant>& variants, double units) {
  std::printf("%-52s %9s %9s %10s %16s\n", "variant", "median s", "min s", "us/item", "found");
  for (const Variant& variant : variants) {
    std::printf("%-52s %9.4f %9.4f %10.3f %16.0f\n", variant.name.c_str(), variant.median(),
                *std::min_element(variant.seconds.begin(), variant.seconds.end()),
                variant.median() / units * 1e6, variant.found);
  }
}

/// Collects verdicts; the exit status of a benchmark is that of all of them.
class Verdict {
 public:
  void atMost(const std::string& what, double value, double limit, const char* unit = "x") {
    const bool holds = value <= limit;
    std::printf("%-70s %8.3f %-3s (at most %.3f)  %s\n", what.c_str(), value, unit, limit,
                holds ? "ok" : "MISSED");
    good_ = good_ && holds;
  }
  void same(const std::string& what, double a, double b) {
    std::printf("%-70s %s\n", what.c_str(), a == b ? "same" : "DIFFERENT");
    if (a != b) std::printf("  %.0f and %.0f\n", a, b);
    good_ = good_ && a == b;
  }
  [[nodiscard]] int exitStatus() const { return good_ ? 0 : 1; }

 private:
  bool good_ = true;
};

}  // namespace sorrel::bench
