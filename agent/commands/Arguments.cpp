#include <agent/commands/Arguments.h>
#include <agent/config/Cursor.h>
#include <agent/config/Mistake.h>
#include <agent/models/Yang.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

/// Splits "A=B" or "A,B". Neither part may be empty.
std::pair<std::string, std::string> split(const std::string& option, const std::string& text,
                                          std::string_view form, char at) {
  const size_t place = text.find(at);
  if (place == std::string::npos || place == 0 || place + 1 == text.size()) {
    throw CLI::ValidationError(option, "\"" + text + "\" is not of the form " + std::string(form));
  }
  return {text.substr(0, place), text.substr(place + 1)};
}

/// The name of a port must be one that configuration texts can have, too.
void checkName(const std::string& option, const std::string& name) {
  if (!Config::isName(name))
    throw CLI::ValidationError(option, Config::quote(name) + " is no name for a port");
}

}  // namespace

std::vector<std::pair<std::string, std::string>> splitAll(const std::string& option,
                                                          const std::vector<std::string>& texts, char at,
                                                          std::string_view form) {
  if (form.empty()) form = at == '=' ? "NAME=FILE" : "A,B";
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const auto& text : texts) {
    pairs.push_back(split(option, text, form, at));
    checkName(option, pairs.back().first);
    if (at == ',') {
      // A name may contain most characters, but "A,B,C" is meant as three names.
      if (pairs.back().second.find(',') != std::string::npos)
        throw CLI::ValidationError(option, "\"" + text + "\" is not of the form " + std::string(form));
      checkName(option, pairs.back().second);
    }
    for (size_t i = 0; at == '=' && i + 1 < pairs.size(); ++i) {
      if (pairs[i].first == pairs.back().first) {
        throw CLI::ValidationError(option, "port " + pairs.back().first + " is named twice");
      }
    }
  }
  return pairs;
}

std::set<std::string> namesIn(const std::string& text) {
  std::set<std::string> names;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    if (end > at) names.insert(text.substr(at, end - at));
    at = end + 1;
  }
  return names;
}

void addConfigTexts(CLI::App& command, std::vector<std::string>& files, std::string& dir,
                    TextLimits& limits) {
  command
      .add_option("--config", files,
                  "configuration text, the command line's; several are one, and - is standard input")
      ->type_name("FILE...");
  command.add_option("--config-dir", dir, "every file in DIR is a further source of configuration")
      ->type_name("DIR");
  command.parse_complete_callback([&command, &files, &dir] {
    // What belongs to a fleet has lists from there.
    const CLI::Option* const fleet = command.get_option_no_throw("--fleet");
    if (files.empty() && dir.empty() && !(fleet && fleet->count() > 0))
      throw CLI::RequiredError(fleet ? "--config, --config-dir or --fleet" : "--config or --config-dir");
  });
  addTextLimits(command, limits);
}

void addPatches(CLI::App& command, std::vector<std::string>& patches) {
  command.add_option("--patch", patches, "join two ports or port-channels, both ways")
      ->type_name("A,B")
      ->allow_extra_args(false);
}

void addMalformed(CLI::App& command, Velo::MalformedPolicy& policy) {
  const auto take = [&policy](const std::string& word) {
    policy = word == "pass" ? Velo::MalformedPolicy::pass : Velo::MalformedPolicy::drop;
  };
  command
      .add_option_function<std::string>("--malformed", take,
                                        "what becomes of malformed frames: drop or pass (default drop)")
      ->check(CLI::IsMember({"drop", "pass"}))
      ->type_name("POLICY");
}

void addTextLimits(CLI::App& command, TextLimits& limits) {
  const auto add = [&command](const char* name, size_t& octets, const char* help) {
    constexpr uint64_t most = 1 << 20;
    command
        .add_option_function<uint64_t>(
            name, [&octets](const uint64_t& mebi) { octets = size_t{mebi} << 20; },
            fmt::format("{} (default {})", help, octets >> 20))
        ->check(CLI::Range(uint64_t{1}, most))
        ->type_name("MIB");
  };
  add("--text-limit", limits.file, "refuse a configuration text of more MiB");
  add("--texts-limit", limits.all, "and all of them together when they have more");
  addYangDirs(command, limits.yangDirs);
}

void addYangDirs(CLI::App& command, std::vector<std::string>& dirs) {
  command
      .add_option("--yang-dir", dirs,
                  "validate documents by the YANG modules in DIR, too; may be given several times")
      ->check(CLI::Validator([](const std::string& dir) { return Models::whyNoModules(dir); }, ""))
      ->allow_extra_args(false)
      ->type_name("DIR");
}

std::vector<std::string> splitNames(const std::string& option, const std::string& text) {
  std::vector<std::string> names = CLI::detail::split(text, ',');
  if (names.size() < 2) throw CLI::ValidationError(option, "\"" + text + "\" is not of the form A,B,...");
  for (const auto& name : names) checkName(option, name);
  return names;
}

std::string whyNotWritten(const std::string& path) {
  return path == standardInput ? "- is no file to write to" : "";
}

}  // namespace Agent
