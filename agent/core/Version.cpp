#include <agent/core/Version.h>
#include <velo-version.h>

namespace Agent {

std::string_view version() { return VELO_VERSION; }

}  // namespace Agent
