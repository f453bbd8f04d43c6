#pragma once

#include <agent/change/Effective.h>
#include <agent/change/Uncovered.h>
#include <agent/warnings/Warning.h>

#include <optional>
#include <string>

namespace Agent {

/// Everything that a configuration is warned of as long as it is in force: what the reader noticed, and what
/// is odd about all sources together. At most a hundred of each code are told, and how many more there are.
Warnings lastingWarnings(const Layers& layers, const PortNames* ports);

/// What a change of the configuration is warned of.
struct ChangeWarnings {
  Warnings lasting;          ///< those of the configuration after it
  Warnings openings;         ///< what the change opens: it was filtered, or is meant to be and was not so far
  Warnings told;             ///< all of them, each once: for who asked
  FilteredPorts filtered{};  ///< by the configuration after it
  Uncovered uncovered{};     ///< nothing that anybody is warned of, but to be told
};
/// Compares by what packets meet. What is open before and after is no opening by the change. With nothing
/// before, all that is open is one.
ChangeWarnings changeWarnings(const Layers& before, const Layers& after, const PortNames* ports);
/// What a start is warned of: all that is open, and what was filtered last and is not by these layers. `last`
/// null: not known.
ChangeWarnings startWarnings(const SharedFilteredPorts& last, const Layers& layers, const PortNames* ports);

/// What the operator lets pass.
struct Leave {
  bool openings = false;  ///< openings are carried out
  bool strict = false;    ///< every warning is a refusal
};
/// Why a change is refused, with the option that carries it out; nothing if it is not.
std::optional<std::string> whyRefused(const ChangeWarnings& warnings, const Leave& leave);

}  // namespace Agent
