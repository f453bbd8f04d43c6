#pragma once

#include <cstdlib>
#include <filesystem>

namespace TestSupport {

/// Where captures for tests lie: $VELO_TEST_CAPTURES, or beside the project, where they may be missing.
inline std::filesystem::path captureFolder() {
  if (const char* told = std::getenv("VELO_TEST_CAPTURES")) return told;
  return std::filesystem::path(VELO_SOURCE_DIR).parent_path() / "shared/data/pcaps";
}

}  // namespace TestSupport
