#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

// What a program that shows lists makes of their document before it is read or printed.

/// The order of rules: by number as they are tried, by packets or by last match, largest first.
enum class RuleOrder : uint8_t { number, hits, last };

/// Puts the rules of each list in order and, unless that is by number, the lists by their first rules. With
/// `top` only that many rules stay, the first ones of all lists together, and lists with such rules.
void arrangeLists(nlohmann::ordered_json& document, RuleOrder order, std::optional<size_t> top);

/// How many packets and octets a second rules have matched lately, from several documents of the same lists.
class RuleRates {
 public:
  /// Rates are told over so many seconds, or a document more, once there are so many.
  static constexpr double window = 5;

  /// Adds the member `rate` {`packets`, `bytes`} to rules and implicit drops; null, unless the documents
  /// before had them, too. `now` is the time of the document in seconds, on a clock that only goes forward.
  void add(nlohmann::ordered_json& document, double now);

 private:
  struct Counted {
    uint64_t packets = 0;
    uint64_t bytes = 0;
  };
  using Counts = std::map<std::string, Counted, std::less<>>;  // by id; of implicit drops by type and list
  struct Sample {
    double time;
    Counts counts;
  };
  std::vector<Sample> samples_;  // the oldest first, a second or more apart
};

}  // namespace Agent
