#pragma once

#include <cstddef>
#include <optional>

namespace Agent {

// What may be written to a descriptor, apart from text.

/// Whether it is a terminal that understands control sequences: TERM is neither empty nor "dumb".
bool isScreen(int fd);
/// Whether text may stand out there by colours: it is such a terminal, and NO_COLOR is not set (or empty).
bool wantsColour(int fd);

struct ScreenSize {
  size_t rows = 24;
  size_t columns = 80;
};
/// The size of a terminal; nothing when it is none, or does not tell.
std::optional<ScreenSize> screenSize(int fd);

}  // namespace Agent
