#pragma once

#include <agent/metrics/Watched.h>

#include <string>

namespace CLI {
class App;
}

namespace Agent {

struct MetricsOptions {
  std::string address{};  ///< ADDRESS:PORT, both as numbers; empty: no metrics
  RuleChoice rules = RuleChoice::all;
};

/// Adds `--metrics` and `--metrics-rules`. They are written to `options` when the command line is parsed.
void addMetrics(CLI::App& command, MetricsOptions& options);

}  // namespace Agent
