#include <agent/change/ConfigFiles.h>
#include <agent/change/FleetContent.h>
#include <agent/core/Core.h>
#include <agent/models/Reader.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

namespace Agent {

namespace {

/// As many warnings are kept of one model.
constexpr size_t mostNoticed = 100;

/// Puts models together, the one that counts most first.
class Merger {
 public:
  void add(const std::string& key, Config::Model model);
  MadeModel take();

 private:
  void addGroups(const std::string& key, Config::Model& model);
  void addNotices(Config::Notices& notices, const std::map<Config::ListKey, Config::List>& hidden);
  template <class Key>
  void addSpots(std::map<Key, Config::Spot> Config::Notices::*spots, Config::Notices& from);

  Config::Model merged_;
  std::map<std::string, std::string> groupFrom_;  // by name of the object-group the key of its text
  std::vector<std::string> mistakes_;
};

void Merger::add(const std::string& key, Config::Model model) {
  addGroups(key, model);
  merged_.bindings.merge(model.bindings);
  merged_.portChannels.merge(model.portChannels);
  merged_.mirrorSessions.merge(model.mirrorSessions);
  merged_.interfaceNotes.merge(model.interfaceNotes);
  merged_.lists.merge(model.lists);
  // What is left in the model counts less than what was there.
  addNotices(model.notices, model.lists);
}

/// The rules of each text have the members of its own groups, and are shown with the name only.
void Merger::addGroups(const std::string& key, Config::Model& model) {
  for (auto& [name, group] : model.objectGroups) {
    const auto [at, isNew] = merged_.objectGroups.emplace(name, group);
    if (isNew)
      groupFrom_[name] = key;
    else if (!(at->second == group))
      mistakes_.push_back(
          fmt::format("{}: object-group {} is another one in {}", key, name, groupFrom_[name]));
  }
}

template <class Key>
void Merger::addSpots(std::map<Key, Config::Spot> Config::Notices::*spots, Config::Notices& from) {
  const auto shift = static_cast<uint32_t>(merged_.notices.texts.size());
  for (auto& [key, spot] : from.*spots) spot.text += shift;
  (merged_.notices.*spots).merge(from.*spots);
}

void Merger::addNotices(Config::Notices& notices, const std::map<Config::ListKey, Config::List>& hidden) {
  std::erase_if(notices.rules, [&hidden](const auto& rule) { return hidden.contains(rule.first.first); });
  addSpots(&Config::Notices::bindings, notices);
  addSpots(&Config::Notices::lists, notices);
  addSpots(&Config::Notices::portChannels, notices);
  addSpots(&Config::Notices::mirrorSessions, notices);
  addSpots(&Config::Notices::shutdowns, notices);
  addSpots(&Config::Notices::rules, notices);
  auto& all = merged_.notices;
  all.interfaces.merge(notices.interfaces);
  std::move(notices.texts.begin(), notices.texts.end(), std::back_inserter(all.texts));
  all.moreWarnings += notices.moreWarnings;
  for (Warning& warning : notices.warnings) {
    if (all.warnings.size() < mostNoticed)
      all.warnings.push_back(std::move(warning));
    else
      ++all.moreWarnings;
  }
}

MadeModel Merger::take() {
  if (auto wrong = Core::whyNot(merged_)) mistakes_.push_back(std::move(*wrong));
  if (!mistakes_.empty()) return {std::nullopt, std::move(mistakes_)};
  return {std::move(merged_), {}};
}

}  // namespace

bool mayOpen(const FleetContent* before, const FleetContent& content) {
  if (!before || content.mayOpen.empty()) return false;
  const auto byKey = [](const FleetContent& one) {
    std::map<std::string_view, std::string_view> texts;
    for (const auto& [key, text] : one.texts) texts[key] = text;
    return texts;
  };
  const auto was = byKey(*before), is = byKey(content);
  const auto isAllowed = [&](std::string_view key) {
    return std::any_of(content.mayOpen.begin(), content.mayOpen.end(), [&](const FleetContent::MayOpen& one) {
      if (!key.starts_with(one.place)) return false;
      const auto from = was.lower_bound(one.from);
      return one.from.empty() || (from != was.end() && from->first.starts_with(one.from));
    });
  };
  const auto differs = [&](const auto& texts, const auto& others) {
    return std::any_of(texts.begin(), texts.end(), [&](const auto& text) {
      const auto other = others.find(text.first);
      return (other == others.end() || other->second != text.second) && !isAllowed(text.first);
    });
  };
  return !differs(was, is) && !differs(is, was);
}

MadeModel readFleet(const FleetContent& content, const TextLimits& limits) {
  if (!content.wrong.empty()) return {std::nullopt, content.wrong};
  std::vector<std::string> wrong;
  TextReader reader(limits);
  Merger merger;
  for (const auto& [key, text] : content.texts) {
    if (auto why = reader.whyNot(key, text)) {
      wrong.push_back(std::move(*why));
      continue;
    }
    Config::Result read = Models::read({{key, text}}, {}, mostMistakes, limits.yangDirs);
    for (std::string& mistake : textsOf(read.mistakes)) wrong.push_back(std::move(mistake));
    if (read.model) merger.add(key, std::move(*read.model));
  }
  if (wrong.size() > mostMistakes) wrong.resize(mostMistakes);
  if (!wrong.empty()) return {std::nullopt, std::move(wrong)};
  return merger.take();
}

}  // namespace Agent
