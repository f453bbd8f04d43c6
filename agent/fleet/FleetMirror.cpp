#include <agent/core/Words.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetMirror.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// So many keys that are not read are named.
constexpr size_t mostIgnored = 20;

}  // namespace

FleetMirror::FleetMirror(FleetIdentity identity)
    : identity_(std::move(identity)), prefixes_(identity_.prefixes()), entries_(prefixes_.size()) {}

std::vector<EtcdRange> FleetMirror::question() const {
  std::vector<EtcdRange> ranges;
  for (const std::string& prefix : prefixes_) {
    ranges.push_back({.key = prefix,
                      .isPrefix = true,
                      .changedFrom = revision_ > 0 ? revision_ + 1 : 0,
                      .most = mostTexts + 1});
    // Which keys are there: what is missing has been deleted.
    ranges.push_back({.key = prefix, .isPrefix = true, .keysOnly = true, .most = mostTexts + 1});
  }
  return ranges;
}

bool FleetMirror::isAnswer(const EtcdResult& answer) const {
  if (answer.revision < std::max<int64_t>(revision_, 1) || answer.reads.size() != 2 * prefixes_.size())
    return false;
  if (revision_ == 0) return true;
  if (answer.cluster != cluster_) return false;
  for (size_t i = 0; i < prefixes_.size(); ++i) {
    if (!continues(i, answer.reads[2 * i], answer.reads[2 * i + 1])) return false;
  }
  return true;
}

bool FleetMirror::isRead(size_t place, std::string_view key) const {
  return key.starts_with(prefixes_[place]) && isOfPlace(key.substr(prefixes_[place].size()));
}

/// Whether what is known and what has changed since is all that there is: each text was last changed when the
/// store says it was.
bool FleetMirror::continues(size_t place, const std::vector<EtcdEntry>& changes,
                            const std::vector<EtcdEntry>& keys) const {
  if (std::ssize(keys) > mostTexts) return true;  // not taken anyway
  std::map<std::string_view, int64_t> modified;
  for (const auto& [key, entry] : entries_[place]) modified[key] = entry.modified;
  for (const EtcdEntry& entry : changes) modified[entry.key] = entry.modified;
  return std::all_of(keys.begin(), keys.end(), [&](const EtcdEntry& entry) {
    const auto known = modified.find(entry.key);
    return !isRead(place, entry.key) || (known != modified.end() && known->second == entry.modified);
  });
}

SharedFleetContent FleetMirror::take(const EtcdResult& answer) {
  ignored_.clear();
  std::vector<std::string> wrong;
  int64_t last = 0;
  for (size_t i = 0; i < prefixes_.size(); ++i) {
    const auto& keys = answer.reads[2 * i + 1];
    if (std::ssize(keys) > mostTexts) {
      wrong.push_back(fmt::format("{}: more than {} texts", prefixes_[i], mostTexts));
      continue;
    }
    const size_t before = FleetPlace(entries_[i], prefixes_[i]).texts().size();
    Entries now = entriesOf(i, answer.reads[2 * i], keys);
    entries_[i] = std::move(now);
    if (FleetPlace(entries_[i], prefixes_[i]).texts().size() < before) last = answer.revision;
  }
  wrong_ = std::move(wrong);
  cluster_ = answer.cluster;
  // What was not taken is asked for as a whole when there is less of it.
  revision_ = wrong_.empty() ? answer.revision : 0;
  return news(content(wrong_.empty() ? last : answer.revision));
}

SharedFleetContent FleetMirror::news(SharedFleetContent now) {
  if (told_ && told_->version == now->version && told_->texts == now->texts && told_->wrong == now->wrong &&
      told_->mayOpen == now->mayOpen)
    return nullptr;
  told_ = now;
  return now;
}

std::vector<EtcdRange> FleetMirror::keysQuestion() const {
  std::vector<EtcdRange> ranges;
  for (const std::string& prefix : prefixes_) {
    ranges.push_back({.key = rolloutKey(prefix)});  // says which texts it would be
    ranges.push_back({.key = prefix, .isPrefix = true, .keysOnly = true, .most = mostTexts + 1});
  }
  return ranges;
}

SharedFleetContent FleetMirror::takeKeys(const EtcdResult& answer) {
  for (size_t i = 0; i < prefixes_.size(); ++i) {
    entries_[i].clear();
    for (const EtcdEntry& entry : answer.reads[2 * i]) entries_[i][entry.key] = entry;
    for (const EtcdEntry& entry : answer.reads[2 * i + 1]) {
      if (isRead(i, entry.key)) entries_[i].emplace(entry.key, entry);
    }
  }
  wrong_ = {fmt::format("{}: the texts are more than is taken at once, with those of all its places",
                        prefixes_.back())};
  cluster_ = answer.cluster;
  revision_ = 0;
  return news(content(answer.revision));
}

FleetMirror::Entries FleetMirror::entriesOf(size_t place, const std::vector<EtcdEntry>& changes,
                                            const std::vector<EtcdEntry>& keys) {
  Entries now = revision_ > 0 ? entries_[place] : Entries();
  for (const EtcdEntry& entry : changes) now[entry.key] = entry;
  std::set<std::string_view> there;
  for (const EtcdEntry& entry : keys) {
    if (isRead(place, entry.key))
      there.insert(entry.key);
    else if (ignored_.size() < mostIgnored)
      ignored_.insert(printableText(entry.key));
  }
  std::erase_if(now, [&there](const auto& entry) { return !there.contains(entry.first); });
  return now;
}

SharedFleetContent FleetMirror::content(int64_t revision) const {
  auto made = std::make_shared<FleetContent>();
  FleetVersion version;
  for (size_t i = 0; i < prefixes_.size(); ++i) {
    const FleetPlace place(entries_[i], prefixes_[i]);
    const auto texts = place.textsOf(identity_.agent);
    for (const EtcdEntry* text : texts) {
      revision = std::max(revision, text->modified);
      version.add(text->key, text->modified);
      if (wrong_.empty()) made->texts.push_back({text->key, text->value});
    }
    if (auto mayOpen = place.mayOpen(texts)) made->mayOpen.push_back(std::move(*mayOpen));
  }
  made->revision = revision;
  made->version = version.str();
  made->wrong = wrong_;
  return made;
}

FleetQuestions FleetMirror::questions() const {
  FleetQuestions asked;
  const std::string prefix = questionPrefix(identity_.agent);
  const Entries& own = entries_.front();
  for (auto at = own.lower_bound(prefix); at != own.end() && at->first.starts_with(prefix); ++at) {
    if (!at->second.value.empty()) asked[at->first.substr(prefix.size())] = at->second.value;
  }
  return asked;
}

UndrivenRollouts FleetMirror::undriven() const {
  UndrivenRollouts groups;
  for (size_t i = 0; i < identity_.groups.size(); ++i) {
    const FleetPlace place(entries_[i + 1], prefixes_[i + 1]);
    if (place.rollout() && place.rollout()->phase == Rollout::Phase::running && !place.hasDriver())
      groups[identity_.groups[i]] = place.rollout()->agents;
  }
  return groups;
}

std::string FleetMirror::tried() const {
  std::string ids;
  for (size_t i = 1; i < prefixes_.size(); ++i) {
    const FleetPlace place(entries_[i], prefixes_[i]);
    if (place.rollout() && place.rollout()->isTurn(identity_.agent)) ids += place.rollout()->id + "\n";
  }
  return ids;
}

}  // namespace Agent
