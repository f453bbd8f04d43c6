#pragma once

#include <agent/metrics/MetricsOptions.h>

#include <memory>
#include <optional>
#include <string>

namespace Agent {

class Exposer;
class Scrapes;

/// The metrics of a running agent. To be made and destroyed on the loop's thread. What is watched and the
/// loop outlive it.
class Metrics {
 public:
  Metrics(EventLoop& loop, Watched watched, MetricsOptions options);
  ~Metrics();

  /// Begins to answer. Returns what is wrong.
  std::optional<std::string> listen();
  /// Where it answers.
  std::string place() const;

 private:
  const Watched watched_;
  const MetricsOptions options_;
  const std::unique_ptr<Scrapes> scrapes_;
  std::unique_ptr<Exposer> exposer_;
};

}  // namespace Agent
