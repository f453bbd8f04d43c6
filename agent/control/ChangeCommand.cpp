#include <agent/change/Difference.h>
#include <agent/control/ChangeCommand.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/SavedText.h>
#include <agent/core/Terminal.h>
#include <agent/core/Texts.h>
#include <agent/core/Words.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

void ChangeCommand::addChange() {
  constexpr uint32_t longest = 7 * 24 * 3600;
  auto* const dryRun = app().add_flag("--dry-run", dryRun_, "only tell what would change");
  auto* const save =
      app().add_flag("--save", save_, "and write it to the file that a restart reads, as velo save does");
  auto* const confirm =
      app()
          .add_option("--confirm", confirm_, "take it back after SECONDS, unless velo confirm comes before")
          ->check(CLI::Range(uint32_t{1}, longest))
          ->type_name("SECONDS");
  save->excludes(dryRun);
  confirm->excludes(dryRun)->excludes(save);
  addLeave(app(), leave_);
  addControl();
}

bool ChangeCommand::sent(ControlClient& agent, const std::string& name, const std::string& text,
                         Exit* exit) const {
  for (const auto& request : textRequests(name, text)) {
    const auto answer = answerOf(agent, request, exit);
    if (!answer) return false;
    if (answer->at("ok") == true) continue;
    *exit = notApplied(answer->at("error"));
    return false;
  }
  return true;
}

Exit ChangeCommand::change(ControlClient& agent, Json request) const {
  Exit exit = exitDone;
  request["dryRun"] = dryRun_;
  request["allowOpen"] = leave_.openings;
  request["strict"] = leave_.strict;
  if (confirm_) request["confirm"] = *confirm_;
  const auto answer = answerOf(agent, request, &exit);
  if (!answer) return exit;
  if (answer->at("ok") != true) return notApplied(answer->at("error"));
  const Json& document = answer->at("document");
  const Json& refused = document.at("refused");
  if (!refused.is_null()) exit = exitUsage;
  const bool saved = save_ && saveConfiguration(agent, {}, &exit);
  if (json()) return print(linesOf(document), exit);
  tellWarnings(document);
  const Exit printed = print(
      differenceText(document.at("difference"), wantsColour(STDOUT_FILENO)) + noteOf(document, saved), exit);
  if (!refused.is_null()) complain("would be refused: " + refused.get<std::string>());
  return printed;
}

/// What the user may still have to do: confirm the change, or save it.
std::string ChangeCommand::noteOf(const Json& done, bool saved) const {
  if (dryRun_) return "(nothing was applied)\n";
  const bool changes = !isNoDifference(done.at("difference"));
  if (confirm_ && changes) {
    return fmt::format(
        "(it is taken back in {} s: velo confirm keeps it{})\n", *confirm_,
        done.at("survives").get<bool>() ? "" : "; without --state it is also kept if the agent ends");
  }
  std::string text;
  for (const Json& why : done.at("restart").at("why")) {
    if (!saved)
      text += fmt::format("(a restart would not be the same: {}; velo save)\n", why.get<std::string>());
  }
  return text;
}

std::optional<std::string> saveConfiguration(ControlClient& agent, const std::string& path, Exit* exit) {
  const auto refuse = [exit](const std::string& why) {
    complain(why);
    *exit = exitUsage;
    return std::nullopt;
  };
  if (path == standardInput)
    return refuse("- is no file to save in (velo show configuration --source cli prints the text)");
  const auto shown = [&](Json request) {
    std::string wrong;
    request["do"] = "show";
    auto document = wholeDocumentOf(agent, request, &wrong, exit);
    if (!document) complain(wrong);
    return document;
  };
  const auto document = shown({{"what", "configuration"}, {"source", "cli"}});
  // Asked for after the text: so a change that has begun to wait since is refused, too.
  const auto status = document ? shown({{"what", "status"}}) : std::nullopt;
  if (!status) return std::nullopt;
  if (const Json& within = status->at("configuration").at("confirmWithin"); !within.is_null())
    return refuse(waitsText(within.get<double>()));
  std::string target = path;
  if (target.empty()) {
    const Json& files = document->at("files");
    if (files.size() != 1) {
      return refuse(files.empty() ? "the agent was started without --config: say which FILE"
                                  : "the agent was given several files: say which FILE");
    }
    target = files.at(0).get<std::string>();
    if (target == standardInput) return refuse("the agent was given standard input: say which FILE");
  }
  const auto failed = saveText(target, document->at("text").get<std::string>());
  if (failed) return refuse(*failed);
  return target;
}

}  // namespace Agent
