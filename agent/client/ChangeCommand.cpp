#include <agent/change/Difference.h>
#include <agent/client/ChangeCommand.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/SavedText.h>
#include <agent/core/Terminal.h>
#include <agent/core/Texts.h>
#include <agent/core/Words.h>
#include <agent/study/PacketComparison.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

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

namespace {

/// A document of the agent; nothing when there is none, with what is wrong.
std::optional<Json> shown(ControlClient& agent, Json request, std::string* wrong, Exit* exit) {
  request["do"] = "show";
  return wholeDocumentOf(agent, request, wrong, exit);
}

/// Why the files that the agent was started with do not say in which one to save.
std::optional<std::string> whyNoFile(const Json& files) {
  if (files.empty()) return "the agent was started without --config";
  if (files.size() > 1) return "the agent was given several files";
  if (files.at(0) == standardInput) return "the agent was given standard input";
  return std::nullopt;
}

}  // namespace

Exit ChangeCommand::change(ControlClient& agent, Json request, const Told& told) const {
  Exit exit = exitDone;
  if (save_) {
    // Traffic is not to change when the rest of what was asked for cannot be done.
    std::string wrong;
    const auto inForce = shown(agent, {{"what", "configuration"}, {"source", "cli"}}, &wrong, &exit);
    if (!inForce) return notApplied({{"text", wrong}});
    if (const auto why = whyNoFile(inForce->at("files")))
      return notApplied({{"text", *why + ": leave --save out, and save with velo save FILE"}});
  }
  request["dryRun"] = dryRun_;
  request["allowOpen"] = leave_.openings;
  request["strict"] = leave_.strict;
  if (confirm_) request["confirm"] = *confirm_;
  const auto answer = answerOf(agent, request, &exit);
  if (!answer) return exit;
  if (answer->at("ok") != true) return notApplied(answer->at("error"));
  Json document = answer->at("document");
  const Json refused = document.at("refused");
  if (!refused.is_null()) exit = exitUsage;
  if (const auto saved = save_ ? saveConfiguration(agent, {}, &exit) : std::nullopt)
    document["restart"] = saved->restart;
  if (!told.packets.is_null()) document["packets"] = told.packets;
  for (const Json& each : told.warnings) document["warnings"].push_back(each);
  if (!told.unchecked.empty()) document["unchecked"] = told.unchecked;
  if (json()) return print(linesOf(document), exit);
  tellWarnings(document);
  for (const std::string& what : told.unchecked) complain("not checked: " + what);
  const std::string onPackets = told.packets.is_null() ? "" : packetComparisonText(told.packets);
  const Exit printed = print(
      differenceText(document.at("difference"), wantsColour(STDOUT_FILENO)) + onPackets + noteOf(document),
      exit);
  if (!refused.is_null()) complain("would be refused: " + refused.get<std::string>());
  return printed;
}

/// What the user may still have to do: confirm the change, or save it.
std::string ChangeCommand::noteOf(const Json& done) const {
  if (dryRun_) return "(nothing was applied)\n";
  const bool changes = !isNoDifference(done.at("difference"));
  if (confirm_ && changes) {
    return fmt::format(
        "(it is taken back in {} s: velo confirm keeps it{})\n", *confirm_,
        done.at("survives").get<bool>() ? "" : "; without --state a restart reads what the files say");
  }
  const Json& restart = done.at("restart");
  const bool helps = restart.at("save").get<bool>();
  std::string text;
  for (const std::string& sentence : restartSentences(restart))
    text += fmt::format("({}{})\n", sentence, helps && text.empty() ? "; velo save" : "");
  return text;
}

namespace {

/// Saves in `target`, which is filled in when it is empty. What is wrong, if something is.
std::optional<std::string> save(ControlClient& agent, std::string& target, Exit* exit) {
  if (target == standardInput)
    return "- is no file to save in (velo show configuration --source cli prints the text)";
  std::string wrong;
  const auto document = shown(agent, {{"what", "configuration"}, {"source", "cli"}}, &wrong, exit);
  // Asked for after the text: so a change that has begun to wait since is refused, too.
  const auto status =
      document ? shown(agent, {{"what", "status"}, {"summary", true}}, &wrong, exit) : std::nullopt;
  if (!status) return wrong;
  if (const Json& within = status->at("configuration").at("confirmWithin"); !within.is_null())
    return waitsText(within.get<double>());
  if (target.empty()) {
    if (auto why = whyNoFile(document->at("files"))) return *why + ": say which FILE";
    target = document->at("files").at(0).get<std::string>();
  }
  return saveText(target, document->at("text").get<std::string>());
}

}  // namespace

std::optional<SavedFile> saveConfiguration(ControlClient& agent, const std::string& path, Exit* exit) {
  std::string target = path, unheard;
  Exit asked = exitDone;
  const auto wrong = save(agent, target, &asked);
  // For the agent's log. An agent that takes no changes from this client takes no such word either.
  Json request = {{"do", "saved"}};
  if (!target.empty()) request["file"] = std::filesystem::absolute(target).string();
  if (wrong) request["wrong"] = *wrong;
  agent.ask(request, &unheard);
  if (wrong) {
    complain(*wrong);
    *exit = asked == exitDone ? exitUsage : asked;
    return std::nullopt;
  }
  const auto status = shown(agent, {{"what", "status"}}, &unheard, &asked);
  return SavedFile{target, status ? status->at("configuration").at("restart") : Json(nullptr)};
}

}  // namespace Agent
