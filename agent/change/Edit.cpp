#include <Kelp/Assert.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/Edit.h>
#include <agent/change/ListEdit.h>
#include <agent/config/Cursor.h>
#include <agent/config/Nearest.h>
#include <agent/config/Reader.h>
#include <agent/config/Sentences.h>
#include <agent/config/Statements.h>
#include <agent/config/Titles.h>
#include <agent/config/Writer.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

namespace {

using Config::Cursor;
using Config::Model;

constexpr const char* placeName = "edit";

/// Carries out the commands of an edit, one after the other.
class Editor {
 public:
  Editor(Model model, Model::ListKey key) : model_(std::move(model)), key_(std::move(key)) {
    remarks_ = std::exchange(list().pendingRemarks, {});
  }

  /// False when there is a mistake.
  bool take(const std::string& line, int number) {
    Cursor at;
    if (at.lineIs(line)) {
      if (at.atEnd()) {
        at.fail("a command");
      } else if (at.takeIf("move")) {
        given_.clear();
        ListEdit(at, model_, key_).move();
      } else if (at.takeIf("resequence")) {
        given_.clear();
        ListEdit(at, model_, key_).resequence();
      } else if (isOfList(at)) {
        const size_t before = list().rules.size();
        noticeNumber(at, number);
        if (!statement(line, number, at.peek() != "no")) return false;
        if (takesRuleAway(at) && list().rules.size() == before) failNoSuchRule(at);
        forgetRemark(at);
      }
    }
    const auto& problem = at.problem();
    if (!problem) return true;
    mistakes_.push_back(
        {placeName, number, static_cast<int>(problem->column), problem->found, problem->expected});
    return false;
  }

  MadeModel result() {
    if (!mistakes_.empty()) return {std::nullopt, textsOf(mistakes_)};
    auto& last = list().pendingRemarks;
    last.insert(last.begin(), remarks_.begin(), remarks_.end());
    model_.notices.forgetUnusedTexts();
    return {std::move(model_), {}};
  }
  /// What is odd about the commands.
  Warnings takeOddities() { return std::move(oddities_); }

 private:
  Config::List& list() { return model_.lists.at(key_); }

  /// Whether a statement stands below a list: others would lead out of it.
  static bool isOfList(Cursor& at) {
    const size_t no = at.peek() == "no";
    const std::string_view word = at.peek(no);
    if (Config::isDigits(word)) return true;
    for (const std::string_view known : {"permit", "deny", "remark"}) {
      if (word == known) return true;
    }
    if (no) at.skip(1);
    if (no) return failNear(at, "a rule, its number or remark", {"permit", "deny", "remark"});
    return failNear(at, "a rule, remark, no, move or resequence",
                    {"permit", "deny", "remark", "no", "move", "resequence"});
  }

  /// To be called before a command is carried out: of two rules that are given with one number the first is
  /// lost.
  void noticeNumber(const Cursor& at, int command) {
    const bool isRule = at.peek(1) == "permit" || at.peek(1) == "deny";
    if (at.peek() == "no") given_.erase(Config::decimal(at.peek(1)).value_or(0));
    const auto number = isRule ? Config::decimal(at.peek()) : std::nullopt;
    if (!number || given_.insert(*number).second) return;
    const auto first = list().rules.find(*number);
    if (first == list().rules.end()) return;
    oddities_.push_back({"rule-twice", {placeName, command, 1}, Config::ruleGivenTwice(first->second)});
  }

  static bool takesRuleAway(const Cursor& at) {
    const size_t word = Config::isDigits(at.peek(1)) ? 2 : 1;
    return at.peek() == "no" && at.peek(word) != "remark";
  }
  static void failNoSuchRule(Cursor& at) {
    const bool numberOnly = Config::isDigits(at.peek(1)) && at.peek(2).empty();
    at.failAt(at.position() + 1, numberOnly ? "the number of a rule of the list" : "a rule of the list");
  }

  /// `no NUMBER remark` takes away the remark of a rule; in a text it is about remarks of that text only.
  void forgetRemark(const Cursor& at) {
    const auto number =
        at.peek() == "no" && at.peek(2) == "remark" ? Config::decimal(at.peek(1)) : std::nullopt;
    const auto rule = number ? list().rules.find(*number) : list().rules.end();
    if (rule == list().rules.end() || !at.peek(3).empty()) return;
    std::visit([](auto& one) { one.remark = {}; }, rule->second);
  }

  /// `replaces`: a rule that it replaces hands on its remark.
  bool statement(const std::string& line, int number, bool replaces) {
    std::map<uint32_t, Kelp::String> remarks;
    for (const auto& [sequence, rule] : list().rules) {
      if (replaces && !Config::common(rule).remark.empty())
        remarks.emplace(sequence, Config::common(rule).remark);
    }
    // The list is asked for before the model is given away.
    const std::string head = Config::listStatement(list());
    Config::Result result = Config::read(
        {{"", head}, {placeName, std::string(static_cast<size_t>(number) - 1, '\n') + line + "\n"}},
        std::move(model_));
    if (!result.model) {
      mistakes_ = std::move(result.mistakes);
      return false;
    }
    model_ = std::move(*result.model);
    for (const auto& [sequence, remark] : remarks) {
      const auto rule = list().rules.find(sequence);
      if (rule == list().rules.end() || !Config::common(rule->second).remark.empty()) continue;
      std::visit([&text = remark](auto& one) { one.remark = text; }, rule->second);
    }
    return true;
  }

  Model model_;
  const Model::ListKey key_;
  std::vector<std::string> remarks_;  ///< behind the last rule before the edit
  std::vector<Config::Mistake> mistakes_;
  std::set<uint32_t> given_;  ///< numbers of rules that commands have given, and that still have them
  Warnings oddities_;
};

/// The list that is meant, or why none is.
std::optional<std::string> find(const Sources& inForce, const Edit& edit, Model::ListKey* key) {
  std::vector<Model::ListKey> here;
  std::string elsewhere;
  std::vector<std::string_view> names;
  inForce.forEach([&](const std::string& source, const Model& model) {
    for (const auto& [known, list] : model.lists) {
      if (edit.type && *edit.type != known.first) continue;
      if (source == commandLineName) names.push_back(known.second);
      if (known.second != edit.list) continue;
      if (source == commandLineName) {
        here.push_back(known);
      } else if (elsewhere.empty()) {
        elsewhere = source;
      }
    }
  });
  if (here.size() > 1) {
    return fmt::format("lists of several types have the name {}: say which is meant (--type {})", edit.list,
                       Acl::stringValue(here.front().first));
  }
  if (here.size() == 1) {
    *key = here.front();
    return std::nullopt;
  }
  if (!elsewhere.empty()) {
    return fmt::format("list {} is of the file {} of the configuration directory: it is changed there",
                       edit.list, elsewhere);
  }
  return Config::noSuch("list", edit.list, names);
}

/// Leaves in the notices of a model that was edited only what is odd about what it says. An oddity has its
/// place where it was noticed. Twins of which some have gone have none.
void settleOddities(Model& model) {
  const Warnings known = std::move(model.notices.warnings);
  model.notices.warnings.clear();
  if (known.empty()) return;
  Config::Result read = Config::read({{"", Config::textOf(model)}});
  KELP_ASSERT(read.model, "what was edited can be written and read again");
  model.notices.warnings = std::move(read.model->notices.warnings);
  model.notices.moreWarnings = read.model->notices.moreWarnings;
  for (Warning& warning : model.notices.warnings) {
    const auto isTwin = [&warning](const Warning& other) {
      return other.code == warning.code && other.text == warning.text;
    };
    const auto twin = std::find_if(known.begin(), known.end(), isTwin);
    const bool only = twin != known.end() && std::find_if(twin + 1, known.end(), isTwin) == known.end();
    warning.place = only ? twin->place : Place();
  }
}

}  // namespace

MadeModel edited(const Sources& inForce, const Edit& edit) {
  Model::ListKey key;
  if (auto wrong = find(inForce, edit, &key)) return {std::nullopt, {std::move(*wrong)}};
  // By way of the text, because the texts of the model in force are counted for the loop's thread alone.
  Config::Result copy = Config::read({{"", Config::textOf(inForce.commandLine)}});
  KELP_ASSERT(copy.model, "what is in force can be written and read again");
  copy.model->notices = inForce.commandLine.notices;
  Editor editor(std::move(*copy.model), std::move(key));
  std::string_view left = edit.commands;
  for (int number = 1; !left.empty(); ++number) {
    if (number > static_cast<int>(Edit::mostCommands))
      return {std::nullopt, {fmt::format("an edit has at most {} commands", Edit::mostCommands)}};
    const size_t end = std::min(left.find('\n'), left.size());
    if (!editor.take(std::string(left.substr(0, end)), number)) break;
    left.remove_prefix(std::min(end + 1, left.size()));
  }
  MadeModel made = editor.result();
  if (!made.model) return made;
  settleOddities(*made.model);
  for (Warning& oddity : editor.takeOddities()) made.model->notices.warnings.push_back(std::move(oddity));
  return made;
}

}  // namespace Agent
