#pragma once

#include <agent/config/Cursor.h>

#include <compare>
#include <cstddef>

namespace Config {

/// Where a line stands in the texts that are read as one.
struct LinePlace {
  size_t text = 0;
  int line = 1;

  auto operator<=>(const LinePlace&) const = default;
};

/// A mistake that shows when all texts have been read.
struct LateMistake {
  LinePlace place;
  Cursor::Problem problem;
};

}  // namespace Config
