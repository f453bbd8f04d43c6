#include <agent/change/Difference.h>
#include <agent/change/StartChanges.h>
#include <agent/config/Reader.h>
#include <agent/config/Writer.h>
#include <agent/core/Words.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace Agent {

namespace {

constexpr const char* whileDown = "the directory, while the agent was down";

/// The digests of all files by name, and their texts.
FileDigests digestsOf(const Sources& sources, std::map<std::string, SharedText>& texts) {
  FileDigests digests;
  for (const auto& [name, model] : sources.inputs) {
    if (name == fleetName) continue;  // what it was made of is kept itself
    const SharedText& text = texts[name] = std::make_shared<const std::string>(Config::textOf(model));
    digests[name] = digestOf(*text);
  }
  return digests;
}

/// The names of files that are not the same, those that have gone first.
std::vector<std::string> otherFiles(const FileDigests& before, const FileDigests& now) {
  std::vector<std::string> names;
  for (const auto& [name, digest] : before) {
    if (!now.contains(name)) names.push_back(name);
  }
  for (const auto& [name, digest] : now) {
    const auto known = before.find(name);
    if (known == before.end() || known->second != digest) names.push_back(name);
  }
  return names;
}

/// How a file has changed since the agent ran last. `before` is the digest of what it said then, whose text
/// the history may have forgotten; null: there was no such file. `text` is what it says now; null: it is
/// gone.
Change fileChange(const CurrentConfig& current, const std::string& name, const uint64_t* before,
                  const SharedText& text) {
  const Config::Model* now = current.sources().find(name);
  const Change* last = current.history.last(name);
  const bool isKnown = !before || (last && last->text && digestOf(*last->text) == *before);
  const Config::Result was = Config::read({{"", before && isKnown ? *last->text : std::string()}});
  const Config::Model nothing;
  const Difference found = difference(was.model.value_or(nothing), now ? *now : nothing);
  return {.what = now ? "file" : "gone",
          .who = whileDown,
          .source = sourceTitle(name),
          .summary = isKnown ? found.summary : "other content than before",
          .text = text,
          .difference = isKnown ? found.line() : nullptr};
}

/// What changed in the directory since the last agent ended. Many files are told in one change.
void rememberFiles(CurrentConfig& current, const std::string& dir) {
  History& history = current.history;
  constexpr size_t most = 20;
  std::map<std::string, SharedText> texts;
  FileDigests now = digestsOf(current.sources(), texts);
  const FileDigests before = history.files().value_or(now);
  const auto others = otherFiles(before, now);
  for (size_t i = 0; i < std::min(most, others.size()); ++i) {
    const std::string& name = others[i];
    const auto known = before.find(name);
    const uint64_t* was = known == before.end() ? nullptr : &known->second;
    Change change = fileChange(current, name, was, texts[name]);
    tellChange(current.tell, {.who = whileDown, .source = name, .summary = change.summary});
    history.add(std::move(change));
  }
  if (others.size() > most) {
    history.add({.what = "file",
                 .who = whileDown,
                 .source = dir,
                 .summary = countText(others.size() - most, "more file") + " changed",
                 .text = nullptr,
                 .difference = nullptr});
  }
  history.filesAre(std::move(now));
}

}  // namespace

SharedText rememberStart(CurrentConfig& current, const std::string& dir) {
  History& history = current.history;
  history.filteredIs(current.filtered);
  rememberFiles(current, dir);
  const Config::Model& now = current.sources().commandLine;
  const auto text = std::make_shared<const std::string>(Config::textOf(now));
  const Change* last = history.last();
  if (last && last->text && *last->text == *text) {
    history.keep();
    return text;
  }
  const Config::Result before = Config::read({{"", last && last->text ? *last->text : std::string()}});
  const Difference found = difference(before.model.value_or(Config::Model()), now);
  tellChange(current.tell,
             {.who = "velo run", .source = commandLineName, .summary = summaryText(found.summary)});
  history.add({.what = "start",
               .who = "velo run",
               .source = sourceTitle(commandLineName),
               .summary = found.summary,
               .text = text,
               .difference = found.line()});
  return text;
}

}  // namespace Agent
