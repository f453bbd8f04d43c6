#include <agent/fleet/FleetDrops.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace Agent {

namespace {

/// So long behind a change it is told anew every time, if anything was dropped, whatever comes of it.
constexpr double lookedAt = 600;
/// What was dropped within less says nothing.
constexpr double leastSeconds = 1;

}  // namespace

void FleetDrops::add(double now, uint64_t dropped) {
  samples_.push_back({now, dropped});
  while (samples_.size() > 1 && samples_.front().time < now - window) samples_.pop_front();
}

void FleetDrops::changed(double now, const std::string& version, const std::string& tried) {
  if (version == version_ || samples_.empty()) return;
  version_ = version;
  if (std::exchange(tried_, tried) == tried && !tried.empty()) return;
  begin_ = {now, samples_.back().dropped};
  before_ = {now - samples_.front().time, begin_.dropped - samples_.front().dropped};
}

std::string FleetDrops::value(double now, const std::string& tried) {
  if (version_.empty() || (tried.empty() && now - begin_.time > lookedAt)) return told_;
  const Sample& from = samples_.front().time > begin_.time ? samples_.front() : begin_;
  const double seconds = now - from.time;
  const uint64_t dropped = samples_.back().dropped - from.dropped;
  const nlohmann::ordered_json made = {{"version", version_},
                                       {"before", {before_.dropped, before_.time}},
                                       {"since", {dropped, dropped == 0 ? 0 : seconds}}};
  return told_ = made.dump();
}

FleetDrops::Rates FleetDrops::ratesIn(const std::string& value, const std::string& version) {
  const auto read = nlohmann::ordered_json::parse(value, nullptr, false);
  if (!read.is_object() || !read.contains("version") || read.at("version") != version) return {};
  const auto rate = [&read](const char* name) -> std::optional<double> {
    const auto found = read.find(name);
    if (found == read.end() || !found->is_array() || found->size() != 2) return std::nullopt;
    const auto &dropped = (*found)[0], &seconds = (*found)[1];
    if (!dropped.is_number() || !seconds.is_number()) return std::nullopt;
    if (seconds.get<double>() < leastSeconds) return dropped == 0 ? std::optional(0.0) : std::nullopt;
    return dropped.get<double>() / seconds.get<double>();
  };
  return {rate("before"), rate("since")};
}

}  // namespace Agent
