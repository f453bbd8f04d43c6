#include <agent/core/Texts.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetOptions.h>
#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <algorithm>

namespace Agent {

namespace {

/// A certificate, a key or a password is never longer.
constexpr size_t mostSecret = size_t{1} << 20;
/// Seconds. A question to the store may take five.
constexpr int shortestLease = 10, longestLease = 3600;

std::vector<std::string> partsOf(const std::string& text) {
  std::vector<std::string> parts;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    parts.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return parts;
}

std::string whyNoUrls(const std::string& text) {
  for (const std::string& url : partsOf(text)) {
    const size_t host = url.starts_with("https://") ? 8 : url.starts_with("http://") ? 7 : 0;
    if (host == 0 || host >= url.size() || url.find_first_of("/?#@ ", host) != std::string::npos)
      return "\"" + url + "\" is none: http://HOST:PORT or https://HOST:PORT, separated by commas";
  }
  return "";
}

std::string whyNoGroups(const std::string& text) {
  std::vector<std::string> seen;
  for (const std::string& group : partsOf(text)) {
    if (const auto why = whyNoGroup(group)) return "\"" + group + "\": " + *why;
    if (std::find(seen.begin(), seen.end(), group) != seen.end()) return "\"" + group + "\" is named twice";
    seen.push_back(group);
  }
  return "";
}

std::string whyNoAgent(const std::string& text) { return whyNoFleetName(text).value_or(""); }

/// The content of a file; empty without one.
std::string secretIn(const std::string& path, std::string* wrong) {
  if (path.empty()) return "";
  std::vector<std::string> mistakes;
  auto file = TextReader({mostSecret, mostSecret}).readOnly(path, TextReader::Named::byUser, mistakes);
  if (!file) *wrong = mistakes.front();
  return file ? std::move(file->text) : std::string();
}

}  // namespace

std::vector<std::string> FleetOptions::groupNames() const {
  return groups.empty() ? std::vector<std::string>() : partsOf(groups);
}

void addFleetStore(CLI::App& command, FleetOptions& options) {
  command
      .add_option("--fleet", options.store,
                  "the members of an etcd (3.4 or later) that has the lists of a fleet; http:// or https://")
      ->check(whyNoUrls)
      ->type_name("URL,...");
  const auto file = [&command](const char* name, std::string& path, const char* what) {
    command.add_option(name, path, what)->type_name("FILE");
  };
  file("--fleet-ca", options.ca, "the certificates that vouch for it (those of the system)");
  file("--fleet-cert", options.certificate, "the certificate to show to it");
  file("--fleet-key", options.key, "and its key; read once");
  file("--fleet-login", options.login, "a file with USER:PASSWORD of one of its users; read once");
}

void addFleetAgent(CLI::App& command, FleetOptions& options) {
  addFleetStore(command, options);
  command.add_option("--fleet-name", options.agent, "the name of this agent in the fleet")
      ->check(whyNoAgent)
      ->needs("--fleet")
      ->type_name("NAME");
  command
      .add_option(
          "--fleet-groups", options.groups,
          "the groups whose lists it takes; where several have the same thing, that of the first is in force")
      ->check(whyNoGroups)
      ->needs("--fleet")
      ->type_name("A,B,...");
  command
      .add_option(
          "--fleet-lease", options.lease,
          "take this agent for gone so long behind its last word (90); it says one in half of that time")
      ->check(CLI::Range(shortestLease, longestLease))
      ->needs("--fleet")
      ->type_name("SECONDS");
  command.get_option("--fleet")->needs("--fleet-name");
}

std::optional<EtcdPlace> placeOf(const FleetOptions& options, std::string* wrong) {
  *wrong = Http::whyNot();
  EtcdPlace place;
  place.endpoints = partsOf(options.store);
  if (wrong->empty()) place.credentials.authorities = secretIn(options.ca, wrong);
  if (wrong->empty()) place.credentials.certificate = secretIn(options.certificate, wrong);
  if (wrong->empty()) place.credentials.key = secretIn(options.key, wrong);
  std::string login = wrong->empty() ? secretIn(options.login, wrong) : std::string();
  while (login.ends_with('\n') || login.ends_with('\r')) login.pop_back();
  const size_t colon = login.find(':');
  if (!options.login.empty() && wrong->empty() && (colon == 0 || colon == std::string::npos))
    *wrong = options.login + ": it has USER:PASSWORD in one line";
  if (!wrong->empty()) return std::nullopt;
  if (!login.empty()) {
    place.user = login.substr(0, colon);
    place.password = login.substr(colon + 1);
  }
  if (!place.credentials.key.empty() || !login.empty()) prctl(PR_SET_DUMPABLE, 0);
  return place;
}

std::string whyReadable(const EtcdPlace& place) {
  if (place.user.empty()) return "";
  for (const std::string& url : place.endpoints) {
    const bool isHere = url.starts_with("http://127.") || url.starts_with("http://localhost:") ||
                        url.starts_with("http://[::1]:");
    if (url.starts_with("http://") && !isHere)
      return url + ": whoever listens reads the password; https:// hides it";
  }
  return "";
}

}  // namespace Agent
