#include <Zeb/System.h>
#include <agent/change/ChangeReport.h>
#include <agent/control/ControlPlane.h>
#include <agent/core/Reserve.h>
#include <agent/warnings/WarningText.h>

namespace Agent {

ControlPlane::ControlPlane(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files,
                           ControlOptions options)
    : socket_(options.socket),
      sweep_(core, zero_, [this] { return configuration_.busy(); }),
      configuration_(core, forwarder, loop, std::move(files),
                     {.dir = options.configDir,
                      .limits = options.texts,
                      .leave = options.leave,
                      .ports = options.ports,
                      .warnings = options.warnings,
                      .filtered = options.filtered,
                      .applied =
                          [this, applied = options.applied] {
                            sweep_.handleApplied();
                            if (applied) applied();
                          },
                      .tell = options.tell,
                      .paths = options.configs,
                      .past = options.past,
                      .journal = options.journal,
                      .partners = options.partners}),
      tails_(core, forwarder, loop),
      operations_(world(core, forwarder, options), zero_, configuration_, tails_,
                  {options.gather, static_cast<bool>(options.workers)}),
      server_(loop, operations_, options.limits),
      statusLog_(world(core, forwarder, options)) {}

World ControlPlane::world(Core& core, Forwarder& forwarder, const ControlOptions& options) {
  return {core,
          forwarder,
          zero_,
          Zeb::System::currentTime().seconds(),
          [this, portWarnings = options.portWarnings, fleet = options.fleet] {
            auto report = configurationReport(configuration_);
            report["fleet"] = fleet ? fleet() : nullptr;
            for (const Warning& warning : portWarnings ? portWarnings() : Warnings())
              report["warnings"].push_back(warningJson(warning));
            return report;
          },
          [this](const std::string& source, const ListReader::Key& list) {
            return configuration_.sources().trailingRemarks(sourceOfTitle(source),
                                                            {list.first, list.second.str()});
          },
          [this]() -> const Sources& { return configuration_.sources(); },
          [this] { return configuration_.restart().files(); },
          [this]() -> const History& { return configuration_.history(); },
          options.portStates,
          options.workers,
          [this] {
            auto openings = nlohmann::ordered_json::array();
            for (const Warning& warning : configuration_.warnings()) {
              Refusable::check();
              if (warning.consequence() == Consequence::opening) openings.push_back(warningJson(warning));
            }
            return openings;
          }};
}

std::optional<std::string> ControlPlane::listen() {
  return socket_.empty() ? std::nullopt : server_.listen(socket_);
}

}  // namespace Agent
