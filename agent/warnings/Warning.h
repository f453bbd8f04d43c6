#pragma once

#include <agent/warnings/Catalogue.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Agent {

/// Where in a configuration text something stands. Without a file: in none.
struct Place {
  std::string file;
  int line = 0;    ///< from 1
  int column = 0;  ///< from 1; a tab counts as one

  bool operator==(const Place&) const = default;
};

/// Something that is no mistake and was probably not meant, with what follows from it.
struct Warning {
  WarningCode code;
  Place place;
  std::string text;
  std::string example{};       ///< a packet as `velo explain` takes it; empty: none
  std::vector<uint32_t> by{};  ///< the rules of the list that bring it about, in their order; empty: none

  Consequence consequence() const { return code.kind().consequence; }
  bool operator==(const Warning&) const = default;
};

using Warnings = std::vector<Warning>;

}  // namespace Agent
