#pragma once

#include <sys/resource.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "../../support/Sanitizers.h"

namespace TestSupport {

/// A directory of its own for a test; gone with everything in it at the end of the scope.
class TempDir {
 public:
  TempDir();
  /// In another directory than the usual one.
  explicit TempDir(const std::string& parent);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// What a child process came to; a status under 0 is the signal that ended it.
struct Ran {
  int status = 0;
  std::string out;
  std::string err;
};

/// What a program has complained of beside openings.
std::string withoutOpenings(const std::string& err);

/// Runs `velo` of this build and waits for it. The child sees nothing of VELO_TRACE but what `environment`
/// says; `outTo` names a file for its standard output in place of Ran::out; `limits` are of its resources;
/// `input` is the file that it has as standard input.
Ran runVelo(const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment = {}, const std::string& outTo = {},
            const std::vector<std::pair<decltype(RLIMIT_AS), rlim_t>>& limits = {},
            const std::string& input = "/dev/null");

/// False where a sanitizer takes more memory for themselves than a limit of it could allow.
inline constexpr bool memoryCanBeLimited = !sanitizers;

}  // namespace TestSupport
