#include <agent/change/ChangeEvents.h>
#include <agent/change/Difference.h>
#include <agent/change/Sources.h>
#include <agent/core/Words.h>
#include <agent/warnings/WarningText.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace Agent {

namespace {

/// A line of the log for each: so many at most, because nobody reads more.
constexpr size_t mostLines = 20;

/// The source that a file of the directory is.
std::string sourceOf(const std::string& path) {
  return sourceTitle(std::filesystem::path(path).filename().string());
}

/// Those that a line does not tell anyhow.
Warnings without(const Warnings& warnings, const std::string& told) {
  Warnings others;
  for (const Warning& warning : warnings) {
    if (told.find(warning.text) == std::string::npos) others.push_back(warning);
  }
  return others;
}

}  // namespace

void tellWarnings(const TellLog& tell, const Warnings& warnings) {
  for (size_t i = 0; i < std::min(warnings.size(), mostLines); ++i) {
    const Warning& warning = warnings[i];
    const bool opening = warning.consequence() == Consequence::opening;
    tell({warning.consequence() == Consequence::note ? Severity::info : Severity::warning,
          warningText(warning),
          {{"VELO_EVENT", opening ? "opening" : "warning"},
           {"VELO_CODE", std::string(warning.code.kind().code)}}});
  }
  if (warnings.size() > mostLines) {
    tell({Severity::info, fmt::format("and {}; velo show status has them",
                                      countText(warnings.size() - mostLines, "more warning"))});
  }
}

void tellChange(const TellLog& tell, const ChangeEvent& event) {
  if (!tell) return;
  const bool applied = event.refused.empty();
  const std::string source = sourceTitle(event.source);
  const bool same = applied && event.summary == summaryText({});
  std::string text = fmt::format("{} {}{} by {}", source, applied ? "" : "not ",
                                 same ? "left as it is" : event.done, event.who);
  if (!applied) text += ": " + event.refused;
  if (!event.summary.empty()) text += fmt::format("{} {}", applied ? ":" : ";", event.summary);
  tell({applied ? Severity::notice : Severity::warning,
        std::move(text),
        {{"VELO_EVENT", "change"},
         {"VELO_SOURCE", source},
         {"VELO_WHO", event.who},
         {"VELO_SUMMARY", event.summary},
         {"VELO_RESULT", applied ? "applied" : "refused"}}});
  tellWarnings(tell, without(event.warnings, event.refused));
}

void tellBadFile(const TellLog& tell, const std::string& file, const std::vector<std::string>& wrong) {
  if (!tell) return;
  for (size_t i = 0; i < std::min(wrong.size(), mostLines); ++i)
    tell({Severity::error,
          wrong[i],
          {{"VELO_EVENT", "file"}, {"VELO_SOURCE", sourceOf(file)}, {"VELO_WHO", file}}});
  tell({Severity::error,
        fmt::format("{}: not in force, {}", file, countText(wrong.size(), "mistake")),
        {{"VELO_EVENT", "file"},
         {"VELO_SOURCE", sourceOf(file)},
         {"VELO_WHO", file},
         {"VELO_RESULT", "refused"}}});
}

void tellGoodFile(const TellLog& tell, const std::string& file) {
  if (!tell) return;
  tell({Severity::notice,
        file + ": good again, nothing changes",
        {{"VELO_EVENT", "file"},
         {"VELO_SOURCE", sourceOf(file)},
         {"VELO_WHO", file},
         {"VELO_RESULT", "applied"}}});
}

Warnings newWarnings(const Warnings& warnings, const Warnings& known) {
  std::set<std::string> texts;
  for (const Warning& warning : known) texts.insert(warning.text);
  Warnings fresh;
  for (const Warning& warning : warnings) {
    if (!texts.contains(warning.text)) fresh.push_back(warning);
  }
  return fresh;
}

}  // namespace Agent
