#include <agent/change/ChangeReport.h>
#include <agent/change/Configuration.h>
#include <agent/core/Reserve.h>
#include <agent/core/Words.h>
#include <agent/warnings/WarningText.h>
#include <fmt/format.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json sourceJson(const std::string& name, const Config::Model& model, const std::optional<double>& applied) {
  Config::Size size;
  size.add(model);
  Json json = {{"name", sourceTitle(name)}};
  json.update(sizeWords(size));
  json["applied"] = applied ? Json(*applied) : Json(nullptr);
  return json;
}

Json badSourcesJson(const Configuration& configuration) {
  const DirectoryFiles& directory = configuration.directory();
  const Sources& sources = configuration.sources();
  Json bad = Json::array();
  if (const auto& refused = configuration.fleet().refused())
    bad.push_back({{"name", sourceTitle(fleetName)},
                   {"kept", sources.inputs.contains(fleetName)},
                   {"mistakes", refused->wrong}});
  if (const auto& why = directory.unreadable(); !why.empty())
    bad.push_back({{"name", directory.dir()}, {"kept", true}, {"mistakes", why}});
  for (const auto& [name, mistakes] : directory.bad()) {
    Refusable::check();
    bad.push_back({{"name", name}, {"kept", sources.inputs.contains(name)}, {"mistakes", mistakes}});
  }
  return bad;
}

}  // namespace

Json restartReport(const Configuration& configuration) {
  const Restart& restart = configuration.restart();
  const DirectoryFiles& directory = configuration.directory();
  std::vector<std::string> why = restart.whyOther(configuration.text());
  const bool save = !why.empty() && restart.hasPlace() && !configuration.confirmation().waits();
  for (const auto& [name, mistakes] : directory.bad())
    why.push_back(fmt::format("{}/{} {}", directory.dir(), name, directory.kindOf(name)));
  const auto refused = restart.whyRefused();
  Json opens = Json::array();
  for (const Warning& warning : newWarnings(restart.openings(), configuration.warnings()))
    opens.push_back(warning.text);
  return {{"files", restart.files()},
          {"same", why.empty()},
          {"why", why},
          {"save", save},
          {"refused", refused ? Json(*refused) : Json(nullptr)},
          {"opens", std::move(opens)},
          {"looking", restart.lookingFor() ? Json(*restart.lookingFor()) : Json(nullptr)}};
}

Json configurationReport(const Configuration& configuration) {
  Json sources = Json::array();
  configuration.sources().forEach([&](const std::string& name, const Config::Model& model) {
    Refusable::check();
    sources.push_back(sourceJson(name, model, configuration.appliedAt(name)));
  });
  Json warnings = Json::array();
  for (const Warning& warning : configuration.warnings()) {
    Refusable::check();
    warnings.push_back(warningJson(warning));
  }
  const Confirmation& confirmation = configuration.confirmation();
  const auto within = confirmation.within();
  const std::string& notReturned = confirmation.whyNotReturned();
  const std::string& dir = configuration.directory().dir();
  return {{"directory", dir.empty() ? Json(nullptr) : Json(dir)},
          {"changing", configuration.busy()},
          {"sources", std::move(sources)},
          {"bad", badSourcesJson(configuration)},
          {"warnings", std::move(warnings)},
          {"confirmWithin", within ? Json(*within) : Json(nullptr)},
          {"notReturned", notReturned.empty() ? Json(nullptr) : Json(notReturned)},
          {"restart", restartReport(configuration)}};
}

}  // namespace Agent
