#include <Acl/Workshop.h>
#include <agent/change/Start.h>
#include <agent/config/Reader.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>
#include <agent/run/Capabilities.h>
#include <agent/run/Run.h>
#include <agent/show/TraceFacilities.h>
#include <agent/state/Successor.h>
#include <agent/warnings/WarningText.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace Agent {

namespace {

/// Whether something is not filtered that the last agent filtered.
bool isLost(const ChangeWarnings& found) {
  return std::any_of(found.openings.begin(), found.openings.end(),
                     [](const Warning& warning) { return warning.code == WarningCode("filter-lost"); });
}

/// The paths from wherever they are looked at later; standard input is none.
std::vector<std::string> absolute(std::vector<std::string> paths) {
  for (std::string& path : paths) {
    if (path != standardInput) path = std::filesystem::absolute(path).string();
  }
  return paths;
}

}  // namespace

std::optional<Exit> Run::configure() {
  if (const auto wrong = files_.read(options_.configs, options_.configDir, options_.limits); !wrong.empty()) {
    if (log_.isJournal())
      for (const std::string& mistake : wrong) refused(exitUsage, mistake);
    else
      tellMistakes(wrong);
    return exitUsage;
  }
  if (!options_.state.empty()) {
    std::string message;
    stateFile_ = StateFile::open(options_.state, &message);
    if (!message.empty()) log_.tell({Severity::warning, "--state: " + message, {{"VELO_EVENT", "state"}}});
    if (!stateFile_) complain("--state: nothing is kept for the next run");
  }
  if (stateFile_) past_ = stateFile_->past();
  if (auto wrong = fleet_.join(files_, past_)) return refused(exitUsage, *wrong);
  if (const auto told = takeBackUnconfirmed(files_, past_))
    log_.tell({Severity::warning, "--config: " + *told, {{"VELO_EVENT", "change"}}});
  for (const auto& [name, device] : options_.ports) {
    if (auto wrong = files_.sources().whyNoPort(name)) return refused(exitUsage, *wrong);
  }
  const PortNames known = asked_.names();
  ChangeWarnings found = startWarnings(past_.filtered, files_.sources().layers(), &known);
  tell(found.told);
  if (const auto why = whyRefused(found, options_.leave))
    return refused(exitUsage, *why + (isLost(found) ? "; --state has what was filtered before" : ""));
  warnings_ = std::move(found.lasting);
  filtered_ = std::make_shared<const FilteredPorts>(std::move(found.filtered));
  return publish();
}

std::optional<Exit> Run::publish() {
  const Saved::State nothing;
  Successor successor(stateFile_ ? stateFile_->state() : nothing);
  successor.publish(core_);
  const auto memory = [&successor](const std::string& source, const Config::List& list) {
    return successor.idsOf(source, list);
  };
  const auto loaded = [&] {
    auto wrong = traceByName(core_, namedTraces_);
    if (!wrong) successor.countRules(core_);
    return wrong;
  };
  if (const auto wrong = start(core_, files_.sources(),
                               {.plugin = options_.plugin,
                                .further = options_.furtherPlugins,
                                .settle = [this] { loop_.settle(); },
                                .loaded = loaded,
                                .memory = memory}))
    return refused(exitUsage, *wrong);
  successor.countImplicitDrops(core_);
  while (!Acl::Workshop::singleton().idle()) loop_.turn(-1);
  return std::nullopt;
}

std::optional<Exit> Run::openPorts() {
  for (const std::string& device : asked_.devices())
    if (auto wrong = claims_.claim(device)) return refused(exitUnread, *wrong);
  ports_.logIs(tellLog());
  if (auto wrong = ports_.open()) return refused(exitUnread, *wrong);
  // They are started with all rights, as ports are opened here.
  if (auto failed = startWorkers()) return failed;
  if (!capabilitiesKeep(ports_.capabilities(), ports_.capabilitiesToMake()))
    complain("a device that goes cannot be opened again");
  return std::nullopt;
}

std::optional<Exit> Run::startWorkers() {
  if (options_.workers == 0) return std::nullopt;
  const auto sources = [this]() -> const Sources& {
    return control_ ? control_->configuration().sources() : files_.sources();
  };
  workers_ = std::make_unique<Workers>(
      core_, forwarder_, loop_,
      Workers::Options{
          options_.workers, sources, ports_.handedOn(), tellLog(),
          [this](const std::string& port, const std::optional<Link>& link) { ports_.toldIs(port, link); }});
  if (auto wrong = workers_->start([this] { return ended_; })) return refused(exitUnread, *wrong);
  return std::nullopt;
}

std::function<std::vector<WorkerState>()> Run::workersShown() const {
  if (!workers_) return nullptr;
  return [this] { return workers_->states(); };
}

std::vector<PortState> Run::portStates() const {
  return workers_ ? workers_->with(ports_.states()) : ports_.states();
}

Warnings Run::portWarnings() const {
  // On the device of a TAP port the host is a station.
  return Agent::portWarnings(portStates(), asked_.joined(core_), hostUses(asked_.devicesOfHost()));
}

std::optional<Exit> Run::lookAtPorts() {
  const Warnings warnings = portWarnings();
  tell(warnings);
  const auto why = whyRefused({.lasting = {}, .openings = {}, .told = warnings}, options_.leave);
  return why ? std::optional(refused(exitUsage, *why)) : std::nullopt;
}

void Run::openMatchLog() {
  if (workers_) return;  // they tell themselves
  matchLog_ = std::make_unique<MatchLog>(core_, forwarder_, loop_, options_.matches,
                                         [this](auto make) { log_.tellMade(std::move(make)); });
  for (const std::string& wrong : matchLog_->wrong())
    log_.tell({Severity::warning, wrong, {{"VELO_EVENT", "match-message"}}});
}

std::optional<Exit> Run::openControl() {
  // Made last: threads that are started from here have no more rights than the agent has now.
  if (stateFile_) state_ = std::make_unique<StateKeeper>(core_, std::move(stateFile_));
  control_ = std::make_unique<ControlPlane>(core_, forwarder_, loop_, std::move(files_),
                                            ControlOptions{.socket = options_.control,
                                                           .configDir = options_.configDir,
                                                           .texts = options_.limits,
                                                           .leave = options_.leave,
                                                           .ports = asked_.names(),
                                                           .configs = absolute(options_.configs),
                                                           .past = std::move(past_),
                                                           .journal = state_.get(),
                                                           .warnings = std::move(warnings_),
                                                           .filtered = std::move(filtered_),
                                                           .portWarnings = [this] { return portWarnings(); },
                                                           .tell = tellLog(),
                                                           .portStates = [this] { return portStates(); },
                                                           .partners = workers_.get(),
                                                           .gather =
                                                               [this](std::function<void()> then) {
                                                                 if (!workers_) return then();
                                                                 workers_->gather(std::move(then));
                                                               },
                                                           .workers = workersShown(),
                                                           .fleet = [this] { return fleet_.report(); },
                                                           .applied =
                                                               [this] {
                                                                 if (state_) state_->handleApplied();
                                                               }});
  if (auto wrong = control_->listen()) return refused(exitUnread, "--control: " + *wrong);
  return std::nullopt;
}

std::optional<Exit> Run::openMetrics() {
  if (options_.metrics.address.empty()) return std::nullopt;
  Watched watched{
      .world = control_->operations().world(), .loop = loop_, .changes = changes_, .look = [this] {
        control_->configuration().lookAtFiles([] {});
      }};
  if (state_) watched.writes = [this] { return state_->writes(); };
  metrics_ = std::make_unique<Metrics>(loop_, std::move(watched), options_.metrics);
  if (auto wrong = metrics_->listen()) return refused(exitUnread, "--metrics: " + *wrong);
  log_.tell({Severity::info, "metrics at " + metrics_->place(), {{"VELO_EVENT", "metrics"}}});
  return std::nullopt;
}

void Run::openFleet() {
  fleet_.open([this](FleetLink& link) {
    return FleetAgent::World{loop_,
                             core_,
                             control_->configuration(),
                             control_->operations(),
                             link,
                             [this] { return portStates(); },
                             loop_.turnWall().now().seconds(),
                             [this] { return dropped(); }};
  });
}

uint64_t Run::dropped() const {
  uint64_t frames = 0;
  for (const auto& [id, port] : forwarder_.ports()) frames += port->droppedIn + port->droppedOut;
  return frames;
}

}  // namespace Agent
