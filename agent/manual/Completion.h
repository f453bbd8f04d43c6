#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

/// The names that only a running agent knows; each is asked for when it is needed.
struct LiveNames {
  std::function<std::vector<std::string>()> lists;
  std::function<std::vector<std::string>()> interfaces;
  std::function<std::vector<std::string>()> facilities;
};

/// What stands for the names of files, which the shell knows.
inline constexpr const char* filesMark = ":files";

/// What can stand in place of the last of some words behind the name of the program, which may be empty or
/// begun.
std::vector<std::string> completions(const CLI::App& program, std::span<const std::string> words,
                                     const LiveNames& live);

}  // namespace Agent
