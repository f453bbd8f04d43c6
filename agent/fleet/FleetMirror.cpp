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

FleetMirror::FleetMirror(std::vector<std::string> prefixes)
    : prefixes_(std::move(prefixes)), texts_(prefixes_.size()) {}

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

bool FleetMirror::isText(size_t place, std::string_view key) const {
  return key.starts_with(prefixes_[place]) && !whyNoFleetName(key.substr(prefixes_[place].size()));
}

/// Whether what is known and what has changed since is all that there is: each text was last changed when the
/// store says it was.
bool FleetMirror::continues(size_t place, const std::vector<EtcdEntry>& changes,
                            const std::vector<EtcdEntry>& keys) const {
  if (std::ssize(keys) > mostTexts) return true;  // not taken anyway
  std::map<std::string_view, int64_t> modified;
  for (const auto& [key, text] : texts_[place]) modified[key] = text.modified;
  for (const EtcdEntry& entry : changes) modified[entry.key] = entry.modified;
  return std::all_of(keys.begin(), keys.end(), [&](const EtcdEntry& entry) {
    const auto known = modified.find(entry.key);
    return !isText(place, entry.key) || (known != modified.end() && known->second == entry.modified);
  });
}

SharedFleetContent FleetMirror::take(const EtcdResult& answer) {
  ignored_.clear();
  std::vector<std::string> wrong;
  int64_t last = 0;
  bool changed = !isTold_;
  for (size_t i = 0; i < prefixes_.size(); ++i) {
    const auto& keys = answer.reads[2 * i + 1];
    if (std::ssize(keys) > mostTexts) {
      wrong.push_back(fmt::format("{}: more than {} texts", prefixes_[i], mostTexts));
      continue;
    }
    Texts now = textsOf(i, answer.reads[2 * i], keys);
    if (now == texts_[i]) continue;
    changed = true;
    if (now.size() < texts_[i].size()) last = answer.revision;
    texts_[i] = std::move(now);
  }
  changed = changed || wrong != wrong_;
  wrong_ = std::move(wrong);
  cluster_ = answer.cluster;
  // What was not taken is asked for as a whole when there is less of it.
  revision_ = wrong_.empty() ? answer.revision : 0;
  if (!changed) return nullptr;
  isTold_ = true;
  return content(wrong_.empty() ? last : answer.revision);
}

FleetMirror::Texts FleetMirror::textsOf(size_t place, const std::vector<EtcdEntry>& changes,
                                        const std::vector<EtcdEntry>& keys) {
  Texts now = revision_ > 0 ? texts_[place] : Texts();
  for (const EtcdEntry& entry : changes) now[entry.key] = {entry.value, entry.modified};
  std::set<std::string_view> there;
  for (const EtcdEntry& entry : keys) {
    if (isText(place, entry.key))
      there.insert(entry.key);
    else if (ignored_.size() < mostIgnored)
      ignored_.insert(printableText(entry.key));
  }
  std::erase_if(now, [&there](const auto& text) { return !there.contains(text.first); });
  return now;
}

SharedFleetContent FleetMirror::content(int64_t revision) const {
  auto made = std::make_shared<FleetContent>();
  FleetVersion version;
  for (const Texts& texts : texts_) {
    for (const auto& [key, text] : texts) {
      revision = std::max(revision, text.modified);
      version.add(key, text.modified);
      if (wrong_.empty()) made->texts.push_back({key, text.text});
    }
  }
  made->revision = revision;
  made->version = version.str();
  made->wrong = wrong_;
  return made;
}

}  // namespace Agent
