#pragma once

#include <string_view>

namespace Kelp {

/// Writes the text and its place to standard error and aborts, in every build type.
[[noreturn]] void fatal(std::string_view text, const char* file, int line);

}  // namespace Kelp

/// Stops the process with `text` when an invariant is broken, in every build type. `text` may be an
/// expression; it is evaluated only then.
#define KELP_ASSERT(condition, text) \
  ((condition) ? static_cast<void>(0) : ::Kelp::fatal((text), __FILE__, __LINE__))
