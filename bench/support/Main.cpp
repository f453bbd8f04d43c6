#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <map>
#include <vector>

#include "support/Ratios.h"

namespace Bench {

namespace {

struct Ratio {
  std::string text, numerator, denominator;
  double limit;
  std::string counter;
};
std::vector<Ratio>& ratios() {
  static std::vector<Ratio> all;
  return all;
}

/// The console's report, with the ratios of the medians behind it.
class Reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      if (run.error_occurred || run.aggregate_name != "median") continue;
      auto& values =
          medians_[run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args)];
      values[""] = run.run_name.time_type.empty() ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime();
      for (const auto& [name, counter] : run.counters) values[name] = counter.value;
    }
  }
  void Finalize() override {
    for (const auto& ratio : ratios()) {
      const auto numerator = medians_.find(ratio.numerator), denominator = medians_.find(ratio.denominator);
      if (numerator == medians_.end() || denominator == medians_.end()) continue;
      const double value = numerator->second[ratio.counter] / denominator->second[ratio.counter];
      fmt::print("{}: {:.2f} (at most {})\n", ratio.text, value, ratio.limit);
    }
  }

 private:
  std::map<std::string, std::map<std::string, double>> medians_;
};

}  // namespace

void ratio(std::string text, std::string numerator, std::string denominator, double limit,
           std::string counter) {
  ratios().push_back(
      {std::move(text), std::move(numerator), std::move(denominator), limit, std::move(counter)});
}

}  // namespace Bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Bench::Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
}
