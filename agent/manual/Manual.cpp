#include <agent/core/Version.h>
#include <agent/manual/Manual.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>

namespace Agent {

namespace {

/// A text as roff prints it.
std::string roff(std::string_view text) {
  std::string made;
  for (const char c : text) {
    const bool begins = made.empty() || made.back() == '\n';
    if (begins && (c == '.' || c == '\'')) made += "\\&";
    if (c == '\\') {
      made += "\\e";
    } else {
      made += c == '-' ? std::string("\\-") : std::string(1, c);
    }
  }
  return made;
}

std::string bold(std::string_view text) { return "\\fB" + roff(text) + "\\fR"; }
std::string italic(std::string_view text) { return "\\fI" + roff(text) + "\\fR"; }

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

/// What a value of an option is called.
std::string valueOf(const CLI::Option& option) {
  return option.get_items_expected_max() == 0 ? "" : option.get_type_name();
}

std::vector<const CLI::App*> commandsBehind(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App*) { return true; });
}

/// "velo show [OPTIONS] WHAT [NAME]"
std::string synopsis(const CLI::App& program, const CLI::App& command) {
  const bool whole = !commandsBehind(command).empty();
  std::string text = bold(program.get_name());
  if (const CLI::App* parent = command.get_parent(); parent && parent != &program)
    text += " " + bold(parent->get_name());
  if (&program != &command) text += " " + bold(command.get_name());
  text += " [" + italic("OPTIONS") + "]";
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) continue;
    const std::string name = italic(upper(option->get_name(true)));
    text += option->get_required() ? " " + name : " [" + name + "]";
  }
  return whole ? text + " " + italic("COMMAND") + " ..." : text;
}

bool isShown(const CLI::Option* option) { return !option->get_group().empty(); }

std::string optionsText(const CLI::App& command, const char* heading = ".SH OPTIONS\n") {
  std::string text;
  for (const CLI::Option* option : command.get_options(isShown)) {
    const std::string value = valueOf(*option);
    const std::string names = option->get_positional() ? italic(upper(option->get_name(true)))
                              : value.empty()          ? bold(option->get_name(false, true))
                                              : bold(option->get_name(false, true)) + " " + italic(value);
    text += ".TP\n" + names + "\n" + roff(option->get_description()) + "\n";
  }
  return text.empty() ? "" : heading + text;
}

/// The commands behind a command have no pages of their own.
std::string behindText(const CLI::App& program, const CLI::App& command) {
  std::string text;
  for (const CLI::App* each : commandsBehind(command)) {
    text += ".SS " + synopsis(program, *each) + "\n" + roff(each->get_description()) + "\n" +
            optionsText(*each, "");
  }
  return text.empty() ? "" : ".SH COMMANDS\n" + text;
}

std::string commandsText(const CLI::App& program) {
  std::string text = ".SH COMMANDS\n";
  for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty())
      text += fmt::format(".TP\n{}(1)\n{}\n", bold(pageName(program, *command)),
                          roff(command->get_description()));
  }
  return text;
}

}  // namespace

std::string pageName(const CLI::App& program, const CLI::App& command) {
  return &program == &command ? program.get_name() : program.get_name() + "-" + command.get_name();
}

std::string manualPage(const CLI::App& program, const CLI::App& command) {
  const std::string name = pageName(program, command);
  std::string what = command.get_description();
  if (what.ends_with('.')) what.pop_back();
  std::string page = fmt::format(".TH {} 1 \"\" \"velo {}\"\n", roff(upper(name)), roff(version()));
  page += fmt::format(".SH NAME\n{} \\- {}\n", roff(name), roff(what));
  page += ".SH SYNOPSIS\n" + synopsis(program, command) + "\n";
  page += optionsText(command);
  page += &program == &command ? commandsText(program) : behindText(program, command);
  if (!command.get_footer().empty()) page += ".SH NOTES\n.nf\n" + roff(command.get_footer()) + "\n.fi\n";
  const std::string program1 = &program == &command ? "" : bold(program.get_name()) + "(1), ";
  return page + ".SH SEE ALSO\n" + program1 + bold("velo-acl") + "(5)\n";
}

}  // namespace Agent
