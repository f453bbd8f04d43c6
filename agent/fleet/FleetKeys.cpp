#include <agent/change/History.h>
#include <agent/fleet/FleetKeys.h>
#include <fmt/format.h>

#include <algorithm>
#include <random>

namespace Agent {

namespace {

constexpr std::string_view agentsWord = "agents";
constexpr size_t mostNameOctets = 64;
// Behind the prefix of a place. They have a slash, so they are no names of texts.
constexpr std::string_view rolloutState = "rollout/state", rolloutTexts = "rollout/texts/",
                           rolloutDriver = "rollout/driver", openingsWord = "openings/allowed",
                           openingsBack = "openings/back", questions = "question/";
/// The folders below a place that have no texts of it, in their order.
constexpr std::string_view folders[] = {"openings", "question", "rollout"};

bool isNameOctet(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
         c == '_';
}

/// The name of a list as a part of a key: what is no name's octet is %XX.
std::string keyPart(std::string_view text) {
  std::string part;
  for (const char c : text)
    part += isNameOctet(c) ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  return part;
}

}  // namespace

std::string groupPrefix(std::string_view group) { return fmt::format("{}config/{}/", fleetRoot, group); }
std::string ownPrefix(std::string_view agent) {
  return fmt::format("{}config/{}/{}/", fleetRoot, agentsWord, agent);
}
std::string agentsPrefix() { return fmt::format("{}{}/", fleetRoot, agentsWord); }
std::string stateKey(std::string_view agent) { return fmt::format("{}{}/state", agentsPrefix(), agent); }
std::string dropsKey(std::string_view agent) { return fmt::format("{}{}/drops", agentsPrefix(), agent); }
std::string answerKey(std::string_view agent, std::string_view id) {
  return fmt::format("{}{}/answer/{}", agentsPrefix(), agent, id);
}
std::string questionPrefix(std::string_view agent) { return ownPrefix(agent).append(questions); }
std::string knownPrefix() { return fmt::format("{}known/", fleetRoot); }
std::string knownKey(std::string_view agent) { return fmt::format("{}{}", knownPrefix(), agent); }
std::string countersPrefix() { return fmt::format("{}counters/", fleetRoot); }
std::string counterKey(std::string_view agent, std::string_view type, std::string_view list) {
  return fmt::format("{}{}/{}/{}", countersPrefix(), agent, type, keyPart(list));
}
std::string leftOutKey(std::string_view agent) {
  return fmt::format("{}{}/left-out", countersPrefix(), agent);
}
std::string auditKey(std::string_view group) { return fmt::format("{}audit/{}", fleetRoot, group); }
std::string textsPrefix(std::string_view group) { return groupPrefix(group); }

std::string rolloutKey(std::string_view place) { return fmt::format("{}{}", place, rolloutState); }
std::string rolloutTextsPrefix(std::string_view place) { return fmt::format("{}{}", place, rolloutTexts); }
std::string driverKey(std::string_view place) { return fmt::format("{}{}", place, rolloutDriver); }
std::string mayOpenKey(std::string_view place) { return fmt::format("{}{}", place, openingsWord); }
std::string mayOpenBackKey(std::string_view place) { return fmt::format("{}{}", place, openingsBack); }
std::vector<std::pair<std::string, std::string>> textRanges(const std::string& place) {
  std::vector<std::pair<std::string, std::string>> ranges;
  std::string from = place;
  for (const std::string_view folder : folders) {
    ranges.emplace_back(from, fmt::format("{}{}/", place, folder));
    from = prefixEnd(ranges.back().second);
  }
  ranges.emplace_back(from, prefixEnd(place));
  return ranges;
}
bool isOfPlace(std::string_view rest) {
  if (rest == rolloutState || rest == rolloutDriver || rest == openingsWord || rest == openingsBack)
    return true;
  for (const std::string_view folder : {rolloutTexts, questions}) {
    if (rest.starts_with(folder)) return !whyNoFleetName(rest.substr(folder.size()));
  }
  return !whyNoFleetName(rest);
}

std::string prefixEnd(std::string prefix) {
  ++prefix.back();  // a slash
  return prefix;
}

std::string keyOfChance() {
  std::random_device random;
  return fmt::format("{:08x}{:08x}", random(), random());
}

std::string_view nameIn(std::string_view key, std::string_view prefix) {
  if (!key.starts_with(prefix)) return {};
  const std::string_view rest = key.substr(prefix.size());
  return rest.substr(0, rest.find('/'));
}

std::optional<std::string> whyNoFleetName(std::string_view name) {
  const bool fits = !name.empty() && name.size() <= mostNameOctets &&
                    std::all_of(name.begin(), name.end(), isNameOctet) && name != "." && name != "..";
  if (fits) return std::nullopt;
  return fmt::format("a name has 1 to {} letters, digits, dots, hyphens and underscores", mostNameOctets);
}

std::optional<std::string> whyNoGroup(std::string_view name) {
  if (name == agentsWord) return "\"agents\" is no group: below it are the texts of single agents";
  return whyNoFleetName(name);
}

void FleetVersion::add(std::string_view key, int64_t revision) {
  all_ += fmt::format("{}\n{}\n", key, revision);
}
void FleetVersion::add(std::string_view name, std::string_view text) {
  all_ += fmt::format("{}\n{}\n{}\n", name, text.size(), text);
}
std::string FleetVersion::str() const { return fmt::format("{:016x}", digestOf(all_)); }

}  // namespace Agent
