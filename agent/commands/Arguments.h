#pragma once

#include <Velo/MalformedStep.h>
#include <agent/core/Texts.h>

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

// Readers of values of command line options. A mistake is thrown as CLI::ValidationError, which names the
// option.

/// Pairs that are split at `at`: A=B, a port and its file or device, each port at most once; or A,B, two
/// ports. `form` is what a mistake says was expected; when it is empty, NAME=FILE or A,B.
std::vector<std::pair<std::string, std::string>> splitAll(const std::string& option,
                                                          const std::vector<std::string>& texts, char at,
                                                          std::string_view form = {});

/// Two or more names of ports, separated by commas.
std::vector<std::string> splitNames(const std::string& option, const std::string& text);

/// Names separated by commas, each once; there may be none.
std::set<std::string> namesIn(const std::string& text);

/// Adds `--config` and `--config-dir`, one of which is required, and the options of addTextLimits().
void addConfigTexts(CLI::App& command, std::vector<std::string>& files, std::string& dir, TextLimits& limits);

/// Adds `--patch`.
void addPatches(CLI::App& command, std::vector<std::string>& patches);

/// Adds `--malformed`.
void addMalformed(CLI::App& command, Velo::MalformedPolicy& policy);

/// Of an option that a file is written to: why a text names none, for CLI::Option::check(); empty if it does.
/// Standard output has the result of the command.
std::string whyNotWritten(const std::string& path);

/// Adds the options for what configuration text a command takes. They are written to `limits` when the
/// command line is parsed.
void addTextLimits(CLI::App& command, TextLimits& limits);
/// The one of them that says by which modules documents are validated.
void addYangDirs(CLI::App& command, std::vector<std::string>& dirs);

}  // namespace Agent
