#include <agent/manual/Completion.h>
#include <agent/show/Shows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>

namespace Agent {

namespace {

using Choices = std::vector<std::string>;

Choices showNames(const LiveNames&) {
  Choices names;
  for (const Show& show : shows()) names.emplace_back(show.name);
  return names;
}
Choices fileNames(const LiveNames&) { return {filesMark}; }
Choices listNames(const LiveNames& live) { return live.lists(); }
Choices interfaceNames(const LiveNames& live) { return live.interfaces(); }
Choices facilityNames(const LiveNames& live) { return live.facilities(); }

/// What values there are, by what the help calls them, and where that is not enough by the name of the
/// option.
struct ValueKind {
  std::string_view type;
  std::string_view option;  ///< empty: any
  Choices (*values)(const LiveNames& live);
};
constexpr ValueKind valueKinds[] = {
    {"FILE", "", fileNames},
    {"FILE...", "", fileNames},
    {"FILE.pcapng", "", fileNames},
    {"DIR", "", fileNames},
    {"PATH", "", fileNames},
    {"OLD", "", fileNames},
    {"NEW", "", fileNames},
    {"XML", "", fileNames},
    {"SOCKET", "", fileNames},
    {"WHAT", "", showNames},
    {"LIST", "", listNames},
    {"NAME", "name", listNames},
    {"NAME", "--list", listNames},
    {"NAME", "--interface", interfaceNames},
    {"NAME", "--port", interfaceNames},
    {"NAME", "--to", interfaceNames},
    {"NAME", "--out", interfaceNames},
    {"FACILITY", "", facilityNames},
    {"FACILITY/LEVEL,...", "", facilityNames},
    {"NAME/LEVEL,...", "", facilityNames},
};

/// Of a type with the words that it may be, as "FORM:{none,text,json}" or "text|json": these words.
Choices choicesOf(const std::string& type) {
  constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789-|";
  const size_t from = type.find('{'), to = type.find('}', from);
  const bool braces = to != std::string::npos;
  if (!braces &&
      (type.find('|') == std::string::npos || type.find_first_not_of(letters) != std::string::npos))
    return {};
  Choices words = {""};
  for (const char c : braces ? type.substr(from + 1, to - from - 1) : type) {
    if (c == (braces ? ',' : '|')) {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

Choices valuesOf(const CLI::Option& option, const LiveNames& live) {
  const std::string type = option.get_type_name();
  if (auto choices = choicesOf(type); !choices.empty()) return choices;
  const std::string_view bare = std::string_view(type).substr(0, type.find(':'));
  for (const ValueKind& kind : valueKinds) {
    if (kind.type == bare && (kind.option.empty() || option.check_name(std::string(kind.option))))
      return kind.values(live);
  }
  return {};
}

bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

std::vector<const CLI::App*> commandsOf(const CLI::App& program) {
  auto all = program.get_subcommands([](const CLI::App*) { return true; });
  std::erase_if(all, [](const CLI::App* command) { return command->get_group().empty(); });
  return all;
}

/// The words of a command line before the one that is being typed.
struct Typed {
  const CLI::App* app;
  const CLI::Option* pending = nullptr;  ///< the option that the next word is the value of
  Choices positionals{};
  bool known = true;

  void take(const std::string& word) {
    if (pending) {
      pending = nullptr;
    } else if (word.size() > 1 && word.front() == '-') {
      const CLI::Option* option = app->get_option_no_throw(word);
      if (option && takesValue(*option)) pending = option;
    } else if (const auto all = commandsOf(*app); !all.empty()) {
      const auto at =
          std::find_if(all.begin(), all.end(), [&](const auto* one) { return one->get_name() == word; });
      known = at != all.end();
      if (known) app = *at;
    } else {
      positionals.push_back(word);
    }
  }
};

/// What can be typed behind words of a command of which not each has a meaning of its own; nothing where that
/// is not so.
std::optional<Choices> behind(const std::string& command, const Choices& words, const LiveNames& live) {
  if (command == "find") {
    if (words.empty()) return Choices{"permit", "deny", "match"};
    return words.size() == 1 ? listNames(live) : Choices();
  }
  if (command != "show" || words.size() != 1) return std::nullopt;
  const Show* show = showOf(words[0]);
  return show && show->argument == listArgument ? std::nullopt : std::optional(Choices());
}

/// The values of the positional argument of a number; the last one may take several.
Choices positionalsOf(const CLI::App& command, const Choices& before, const LiveNames& live) {
  // What stands behind another command has no words of that kind.
  const bool isFirst = !command.get_parent() || !command.get_parent()->get_parent();
  if (auto choices = isFirst ? behind(command.get_name(), before, live) : std::nullopt)
    return *std::move(choices);
  size_t number = before.size();
  const CLI::Option* last = nullptr;
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) continue;
    last = option;
    if (number-- == 0) return valuesOf(*option, live);
  }
  return last && last->get_items_expected_max() > 1 ? valuesOf(*last, live) : Choices();
}

Choices optionsOf(const CLI::App& command) {
  Choices names;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_group().empty()) continue;
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

Choices commandNames(const CLI::App& program) {
  Choices names;
  for (const CLI::App* command : commandsOf(program)) names.push_back(command->get_name());
  return names;
}

}  // namespace

std::vector<std::string> completions(const CLI::App& program, std::span<const std::string> words,
                                     const LiveNames& live) {
  if (words.empty()) return {};
  Typed typed{&program};
  for (const std::string& word : words.first(words.size() - 1)) {
    typed.take(word);
    if (!typed.known) return {};
  }
  const std::string& begun = words.back();
  Choices all = typed.pending                     ? valuesOf(*typed.pending, live)
                : begun.starts_with("-")          ? optionsOf(*typed.app)
                : !commandsOf(*typed.app).empty() ? commandNames(*typed.app)
                                                  : positionalsOf(*typed.app, typed.positionals, live);
  if (all == Choices{filesMark}) return all;
  std::erase_if(all, [&](const std::string& word) { return !word.starts_with(begun); });
  std::sort(all.begin(), all.end());
  return all;
}

}  // namespace Agent
