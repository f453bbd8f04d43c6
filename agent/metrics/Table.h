#pragma once

#include <Kiv/Task.h>
#include <agent/forward/Port.h>
#include <agent/metrics/Samples.h>
#include <agent/metrics/Watched.h>
#include <agent/ports/PortState.h>
#include <agent/show/ListReport.h>
#include <nlohmann/json.hpp>

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace Agent {

// What the metrics of a row are told of, one at a time.

struct AgentSight {
  const Watched& watched;
  const nlohmann::ordered_json& configuration;  ///< World::configuration
  size_t rulesLeftOut;
};
/// A source of configuration, as in World::configuration.
struct SourceSight {
  const nlohmann::ordered_json& source;
};
/// By direction what has been counted; nothing where nothing can be.
using Counts = std::array<std::optional<ZeroLine::Counted>, 2>;
struct ListSight {
  const ListReport& head;
  size_t rules;
  size_t lookupBytes;
  double compileSeconds;
  bool compiled;
  Counts implicitDrop;
};
struct RuleSight {
  Counts counts;
};
/// A port, as the lists see it and as its device does; either may be missing.
struct PortSight {
  const Port* port;
  const PortState* live;
};
struct DropSight {
  uint64_t count;
};
struct TaskSight {
  const Kiv::TimerTask& task;
};

/// Takes values of a row: its labels are those of what is looked at, and behind them the `further` ones.
class Put {
 public:
  Put(std::deque<Sample>& to, std::span<const std::string> labels) : to_(to), labels_(labels) {}
  void operator()(double value, std::initializer_list<std::string_view> further = {}) const;

 private:
  std::deque<Sample>& to_;
  const std::span<const std::string> labels_;
};

template <class Sight>
using Tell = void (*)(const Sight& sight, const Put& put);

/// A metric. What it is told of decides the first of its labels.
struct Metric {
  enum class Kind : uint8_t { counter, gauge };

  std::string_view name;
  Kind kind;
  std::string_view labels;  ///< separated by commas
  std::string_view help;
  std::variant<Tell<AgentSight>, Tell<SourceSight>, Tell<ListSight>, Tell<RuleSight>, Tell<PortSight>,
               Tell<DropSight>, Tell<TaskSight>>
      tell;
};

/// All of them. A further metric is a row; docs/metrics.md is to have it, too.
std::span<const Metric> metrics();

/// Has all rows told of `sight` that are made for such.
template <class Sight>
void tellAll(const Sight& sight, std::span<const std::string> labels, Samples& samples) {
  const auto all = metrics();
  for (size_t row = 0; row < all.size(); ++row) {
    if (const auto* tell = std::get_if<Tell<Sight>>(&all[row].tell)) (*tell)(sight, {samples[row], labels});
  }
}

}  // namespace Agent
