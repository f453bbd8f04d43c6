#pragma once

#include "../tests/support/Frames.h"

#include <string>

namespace Fuzz {

/// What is wrong with a frame that was captured whole, by a reading of its own that knows nothing of the
/// agent's: empty when it has all the headers that it claims, and these are not longer than what they are in.
std::string whyMalformed(const TestSupport::Bytes& frame);

}  // namespace Fuzz
