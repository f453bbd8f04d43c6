#pragma once

#include <agent/show/Documents.h>
#include <agent/show/Text.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// One thing that `velo show` shows: how the agent makes its document, and how the program that asked for it
/// turns the document into text.
///
/// The rows stand with their functions in the files ...Shows.cpp, by what they are about. A further show is a
/// row there. A further option of `velo show` is a member of ShowOptions.
struct Show {
  std::string_view name;
  std::string_view argument;  ///< for the help, as "[NAME]"; empty: takes none
  std::string_view help;
  std::unique_ptr<Document> (*document)(const World& world, const ShowOptions& options);
  std::string (*text)(const nlohmann::ordered_json& document, const TextStyle& style);
  bool selects = false;     ///< it takes the options by which rules are selected and put in order
  bool bySource = false;    ///< it can be of one source of configuration alone
  bool needsFiles = false;  ///< tells what the files of the configuration say, which are looked at before
  bool sumsUp = false;      ///< for its text the summary of the document is enough
};

/// What the arguments of shows stand for.
inline constexpr std::string_view listArgument = "[NAME]", changeArgument = "[N]";

/// All of them, in the order in which the help lists them.
std::span<const Show> shows();
/// Null for a name that is none.
const Show* showOf(std::string_view name);

// The rows of each file.
std::span<const Show> listShows();
std::span<const Show> configurationShows();
std::span<const Show> statusShows();
std::span<const Show> portShows();
std::span<const Show> agentShows();
std::span<const Show> traceShows();

/// Makes a row's `document` out of a function that gives the whole document at once. The function must call
/// Refusable::check() for each element of anything that can be long: when memory has run out, even to free a
/// long document may fail.
template <nlohmann::ordered_json (*make)(const World& world)>
std::unique_ptr<Document> whole(const World& world, const ShowOptions&) {
  return wholeDocument(make(world));
}

}  // namespace Agent
