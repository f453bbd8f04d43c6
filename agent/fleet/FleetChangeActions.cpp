// Changing what the store has for a group, and how that came to be.
#include <Kiv/Clock.h>
#include <agent/client/Command.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/core/Texts.h>
#include <agent/core/Words.h>
#include <agent/fleet/FleetCommand.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetPlan.h>
#include <agent/fleet/FleetRollout.h>
#include <agent/show/Text.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <set>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

/// So many changes of a group are told of at most.
constexpr size_t mostAudits = 50;

/// A group, or "agents/NAME": empty when it is one, as CLI::Option::check() wants it.
std::string whyNoPlace(const std::string& text) {
  constexpr std::string_view agents = "agents/";
  const auto why = text.starts_with(agents) ? whyNoFleetName(std::string_view(text).substr(agents.size()))
                                            : whyNoGroup(text);
  return why ? "\"" + text + "\": " + *why : "";
}

/// A change of a group's texts.
class FleetChangeAction : public FleetAction {
 protected:
  FleetChangeAction(CLI::App& fleet, const char* name, const char* help, const std::string& footer)
      : FleetAction(fleet, name, help, footer) {
    app()
        .add_option("group", group_, "the group whose texts they are; agents/NAME: those of one agent")
        ->required()
        ->check(whyNoPlace)
        ->type_name("GROUP");
    app().add_flag("--dry-run", dryRun_, "only tell what would change, on which agents");
    app()
        .add_flag("--packets", packets_, "with --dry-run: tell which packets would meet another verdict")
        ->needs("--dry-run");
    app().add_option("--why", why_, "a sentence for velo fleet history")->type_name("TEXT");
    addLeave(app(), leave_);
    rollout_.add(app());
  }

  Exit change(Etcd& etcd, FleetPlan plan, const char* what) const {
    plan.packets = packets_;
    plan.mayOpen = leave_.openings;
    std::vector<std::vector<EtcdEntry>> audits;
    auto sight = fleetSight(etcd, {{.key = auditKey(group_)}}, &audits);
    if (!sight) return failed(sight.wrong);
    std::set<std::string> places = sight.value->placesOf(sight.value->agentsOf(group_));
    places.insert(textsPrefix(group_));
    if (auto wrong = readTexts(etcd, *sight.value, places); !wrong.empty()) return failed(wrong);
    Json document = planDocument(plan, *sight.value, leave_);
    auto why = whyNoPlan(document);
    document["applied"] = false;
    document["revision"] = nullptr;
    if (!why && rollout_.given()) why = whyNoRollout(plan, *sight.value);
    document["refused"] = why ? Json(*why) : Json(nullptr);
    document["rollout"] = nullptr;
    if (why) return refuse(document);
    const int64_t auditedAt = audits[0].empty() ? 0 : audits[0][0].modified;
    if (!dryRun_ && plan.isChange(*sight.value)) {
      const FleetAudit audit{what, callerName(), why_, Kiv::wallClock().now().seconds(),
                             textsSummary(document)};
      if (rollout_.given()) return roll(etcd, plan, *sight.value, auditedAt, audit, std::move(document));
      const auto made = Agent::carryOut(etcd, plan, *sight.value, auditedAt, audit);
      if (!made) return failed(made.wrong);
      document["applied"] = true;
      document["revision"] = *made.value;
    }
    std::string text = planText(document, wantsColour(STDOUT_FILENO));
    if (document.at("applied") == true)
      text += fmt::format("\napplied: revision {}\n", document.at("revision").get<int64_t>());
    return print(document, text);
  }
  const std::string& group() const { return group_; }

 private:
  static std::string textsSummary(const Json& document) {
    std::vector<std::string> parts;
    for (const auto& [what, names] : document.at("texts").items()) {
      if (!names.empty()) parts.push_back(fmt::format("{} {}", countText(names.size(), "text"), what));
    }
    return fmt::format("{}", fmt::join(parts, ", "));
  }
  Exit roll(Etcd& etcd, const FleetPlan& plan, const FleetSight& sight, int64_t auditedAt,
            const FleetAudit& audit, Json document) const {
    Rollout rollout = rollout_.rollout();
    rollout.who = audit.who;
    rollout.why = audit.why;
    rollout.summary = audit.summary;
    rollout.mayOpen = plan.mayOpen;
    const auto begun = beginRollout(etcd, plan, sight, auditedAt, std::move(rollout));
    if (!begun) return failed(begun.wrong);
    document["revision"] = *begun.value;
    if (!json()) Agent::print(planText(document, wantsColour(STDOUT_FILENO)) + "\n");
    if (!rollout_.detached()) {
      auto last = followRollout(etcd, group(), audit.who, !json());
      if (!last) return failed(last.wrong);
      document["rollout"] = std::move(*last.value);
    }
    const bool isDone = document.at("rollout").is_object() && document.at("rollout").at("phase") == "done";
    document["applied"] = isDone;
    return print(document, rollout_.detached() ? "the rollout has begun\n" : "",
                 isDone || rollout_.detached() ? exitDone : exitUsage);
  }
  Exit refuse(const Json& document) const {
    if (json()) return print(document, "", exitUsage);
    std::vector<std::string> mistakes = document.at("mistakes").get<std::vector<std::string>>();
    tellMistakes(mistakes);
    if (mistakes.empty()) fmt::print(stderr, "{}", planText(document, wantsColour(STDERR_FILENO)));
    complain("nothing was applied: " + valueText(document.at("refused")));
    return exitUsage;
  }

  std::string group_, why_;
  bool dryRun_ = false, packets_ = false;
  Leave leave_;
  RolloutOptions rollout_;
};

class FleetApplyAction final : public FleetChangeAction {
 public:
  explicit FleetApplyAction(CLI::App& fleet)
      : FleetChangeAction(
            fleet, "apply", "Replace all texts of a group by files, whole or not at all.",
            "Each file becomes a text of its name; the texts of the group that are none of them go. "
            "What the agents of the group\nwould refuse is refused here.") {
    app().add_option("files", files_, "configuration texts or documents")->required()->type_name("FILE...");
  }

 private:
  Exit run(Etcd& etcd, const std::string&) const override {
    FleetPlan plan{group(), {}};
    std::vector<std::string> wrong;
    TextReader reader({});
    for (const std::string& path : files_) {
      const std::string name = std::filesystem::path(path).filename().string();
      if (const auto why = whyNoFleetName(name)) wrong.push_back(path + ": " + *why);
      if (plan.texts.contains(name)) wrong.push_back(path + ": another file has the same name");
      if (auto file = reader.read(path, TextReader::Named::byUser, wrong))
        plan.texts[name] = std::move(file->text);
    }
    tellMistakes(wrong);
    return wrong.empty() ? change(etcd, plan, "apply") : exitUsage;
  }

  std::vector<std::string> files_;
};

/// What the audit key of a group has been, the last first, each with its revision: as far as the store
/// remembers.
Maybe<std::vector<std::pair<int64_t, FleetAudit>>> auditsOf(Etcd& etcd, const std::string& group) {
  std::vector<std::pair<int64_t, FleetAudit>> audits;
  int64_t at = 0;
  while (audits.size() < mostAudits) {
    const auto answer = etcd.read({{.key = auditKey(group), .at = at}});
    if (!answer) {
      // What was before a compaction is forgotten.
      if (answer.wrong.find("compacted") != std::string::npos && !audits.empty()) break;
      return {{}, answer.wrong, false};
    }
    if (answer.value->reads[0].empty()) break;
    const EtcdEntry& entry = answer.value->reads[0][0];
    audits.emplace_back(entry.modified, FleetAudit::of(entry.value));
    at = entry.modified - 1;
    if (entry.writes == 1) break;
  }
  return {std::move(audits), {}, false};
}

class FleetHistoryAction final : public FleetAction {
 public:
  explicit FleetHistoryAction(CLI::App& fleet)
      : FleetAction(fleet, "history", "List the last changes of the texts of a group, and who made them.") {
    app()
        .add_option("group", group_, "the group; agents/NAME: one agent's own texts")
        ->required()
        ->check(whyNoPlace)
        ->type_name("GROUP");
  }

 private:
  Exit run(Etcd& etcd, const std::string&) const override {
    const auto audits = auditsOf(etcd, group_);
    if (!audits) return failed(audits.wrong);
    Json changes = Json::array();
    std::vector<std::vector<std::string>> lines = {{"revision", "when", "what", "summary", "who", "why"}};
    for (const auto& [revision, audit] : *audits.value) {
      changes.push_back({{"revision", revision},
                         {"time", audit.time},
                         {"what", audit.what},
                         {"summary", audit.summary},
                         {"who", audit.who},
                         {"why", audit.why}});
      lines.push_back({std::to_string(revision), timeText(audit.time, Kiv::wallClock().now().seconds()),
                       printableText(audit.what), printableText(audit.summary), printableText(audit.who),
                       printableText(audit.why)});
    }
    return print({{"group", group_}, {"changes", std::move(changes)}},
                 tableText(lines, {true, false, false, false, false, false}, wantsColour(STDOUT_FILENO)));
  }

  std::string group_;
};

class FleetRollbackAction final : public FleetChangeAction {
 public:
  explicit FleetRollbackAction(CLI::App& fleet)
      : FleetChangeAction(fleet, "rollback",
                          "Go back to what the texts of a group were behind an earlier change.",
                          "The store remembers earlier texts until it is compacted.") {
    app()
        .add_option("revision", revision_, "as velo fleet history lists it (the one before the last)")
        ->type_name("REVISION");
  }

 private:
  Exit run(Etcd& etcd, const std::string&) const override {
    int64_t to = revision_;
    if (to == 0) {
      auto audits = auditsOf(etcd, group());
      if (!audits) return failed(audits.wrong);
      std::erase_if(*audits.value, [](const auto& one) { return !one.second.isOfTexts(); });
      if (audits.value->size() < 2) return failed("there is no change of " + group() + " before the last");
      to = (*audits.value)[1].first;
    }
    const std::string prefix = textsPrefix(group());
    const auto answer = etcd.read({{.key = prefix, .isPrefix = true, .at = to}});
    if (!answer) return failed(answer.wrong);
    FleetPlan plan{group(), {}};
    for (const EtcdEntry& entry : answer.value->reads[0]) {
      const std::string name = entry.key.substr(prefix.size());
      if (!whyNoFleetName(name)) plan.texts[name] = entry.value;
    }
    return change(etcd, plan, "rollback");
  }

  int64_t revision_ = 0;
};

}  // namespace

std::unique_ptr<FleetAction> fleetApplyAction(CLI::App& fleet) {
  return std::make_unique<FleetApplyAction>(fleet);
}
std::unique_ptr<FleetAction> fleetHistoryAction(CLI::App& fleet) {
  return std::make_unique<FleetHistoryAction>(fleet);
}
std::unique_ptr<FleetAction> fleetRollbackAction(CLI::App& fleet) {
  return std::make_unique<FleetRollbackAction>(fleet);
}

}  // namespace Agent
