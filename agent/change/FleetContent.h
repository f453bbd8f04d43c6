#pragma once

#include <agent/change/Sources.h>
#include <agent/core/Texts.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Agent {

/// What a fleet has for one agent: texts in any form that the agent reads, all as they were at one moment. It
/// is one source of configuration, so that all of it comes into force together or none of it does. Plain
/// values, for any thread.
struct FleetContent {
  struct Text {
    std::string key;  ///< stands in places of mistakes
    std::string text;

    bool operator==(const Text&) const = default;
  };

  /// Texts that may open something, because somebody has said so: those below `place`, when they come in
  /// place of those below `from`, or of whatever was there if that is empty.
  struct MayOpen {
    std::string place, from;

    bool operator==(const MayOpen&) const = default;
  };

  int64_t revision = 0;     ///< of the store, at which one of them changed last
  std::string version{};    ///< tells the same content from another one, across agents and restarts
  std::vector<Text> texts;  ///< what counts more comes first
  /// Why it cannot be had as a whole; then there are no texts.
  std::vector<std::string> wrong{};
  std::vector<MayOpen> mayOpen{};
};

/// Whether nothing but what may open something differs from what was in force; null: there was nothing.
bool mayOpen(const FleetContent* before, const FleetContent& content);

/// Content that does not change, and that several hold.
using SharedFleetContent = std::shared_ptr<const FleetContent>;

/// The configuration that it makes: each text is read for itself, and a list, binding, port-channel, mirror
/// session or note comes from the first text that has it, never from several. Object-groups of one name have
/// to be the same in all texts. Otherwise its mistakes, each with the key, line and column.
MadeModel readFleet(const FleetContent& content, const TextLimits& limits);

}  // namespace Agent
