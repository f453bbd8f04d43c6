#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetPlace.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// The name of a text is what stands behind the last slash of its key.
std::string nameOf(const std::string& key) { return key.substr(key.rfind('/') + 1); }

}  // namespace

std::vector<std::string> FleetIdentity::prefixes() const {
  std::vector<std::string> all{ownPrefix(agent)};
  for (const std::string& group : groups) all.push_back(groupPrefix(group));
  return all;
}

FleetPlace::FleetPlace(const std::map<std::string, EtcdEntry>& entries, std::string prefix)
    : entries_(entries), prefix_(std::move(prefix)), driverKey_(driverKey(prefix_)) {
  const auto state = entries_.find(rolloutKey(prefix_));
  if (state != entries_.end() && !prefix_.starts_with(groupPrefix("agents")))
    rollout_ = Rollout::of(state->second.value);
}

int64_t FleetPlace::rolloutAt() const {
  const auto state = entries_.find(rolloutKey(prefix_));
  return state == entries_.end() ? 0 : state->second.modified;
}

std::vector<const EtcdEntry*> FleetPlace::below(const std::string& prefix) const {
  std::vector<const EtcdEntry*> found;
  for (auto at = entries_.lower_bound(prefix); at != entries_.end() && at->first.starts_with(prefix); ++at) {
    if (!whyNoFleetName(std::string_view(at->first).substr(prefix.size()))) found.push_back(&at->second);
  }
  return found;
}

std::vector<const EtcdEntry*> FleetPlace::newTexts() const { return below(rolloutTextsPrefix(prefix_)); }

std::vector<const EtcdEntry*> FleetPlace::textsOf(const std::string& agent) const {
  return rollout_ && rollout_->isTurn(agent) ? newTexts() : texts();
}

std::optional<FleetContent::MayOpen> FleetPlace::mayOpen(const std::vector<const EtcdEntry*>& texts) const {
  const auto word = entries_.find(mayOpenKey(prefix_)), back = entries_.find(mayOpenBackKey(prefix_));
  if (word == entries_.end() && back == entries_.end()) return std::nullopt;
  std::map<std::string, std::string> byName;
  for (const EtcdEntry* text : texts) byName[nameOf(text->key)] = text->value;
  const std::string digest = digestOfTexts(byName);
  if (word != entries_.end() && word->second.value == digest) return FleetContent::MayOpen{prefix_, ""};
  if (back != entries_.end() && back->second.value.find(digest) != std::string::npos)
    return FleetContent::MayOpen{prefix_, rolloutTextsPrefix(prefix_)};
  return std::nullopt;
}

std::string FleetPlace::versionOf(const std::vector<const EtcdEntry*>& texts) {
  FleetVersion version;
  for (const EtcdEntry* text : texts) version.add(text->key, text->modified);
  return version.str();
}

std::string FleetPlace::digestOfTexts(const std::map<std::string, std::string>& byName) {
  FleetVersion version;
  for (const auto& [name, text] : byName) version.add(name, std::string_view(text));
  return version.str();
}

}  // namespace Agent
