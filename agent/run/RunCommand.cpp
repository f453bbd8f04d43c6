#include <Acl/Workshop.h>
#include <Nimnet/IntfId.h>
#include <agent/change/ChangeEvents.h>
#include <agent/change/Start.h>
#include <agent/config/Reader.h>
#include <agent/core/Background.h>
#include <agent/core/Memory.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/core/Version.h>
#include <agent/core/Words.h>
#include <agent/ports/PortKinds.h>
#include <agent/run/Capabilities.h>
#include <agent/run/JoinPorts.h>
#include <agent/run/PortWarnings.h>
#include <agent/run/RunCommand.h>
#include <agent/run/ServiceManager.h>
#include <agent/run/Signals.h>
#include <agent/run/WorkerRun.h>
#include <agent/show/Report.h>
#include <agent/show/TraceFacilities.h>
#include <agent/state/Successor.h>
#include <agent/warnings/WarningText.h>
#include <fmt/format.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace Agent {

namespace {

/// Seconds from the signal to the end of the process, at most.
constexpr double mostToEnd = 1.5;
/// How long an agent without lists waits for its fleet before it says so, again and again.
constexpr double untilWaitingIsTold = 10;

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

PortSetup setupOf(const RunOptions& options) {
  PortSetup setup = options.setup;
  setup.workers = options.workers;
  if (options.worker.size() < 2) return setup;
  setup.worker = static_cast<uint32_t>(options.worker[1]);
  for (size_t i = 0; i + 2 < options.worker.size() && i < options.ports.size(); ++i) {
    std::string wrong;
    const PortText port = portTextOf(options.ports[i].second, wrong);
    if (port.kind && options.worker[i + 2] >= 0)
      setup.handed.emplace(port.what.device, options.worker[i + 2]);
  }
  return setup;
}

Exit runAgent(const RunOptions& options) {
  if (!options.worker.empty()) return runWorker(options);
  // Descriptors that the agent needs for itself and its clients, and those that each port needs.
  constexpr size_t ofAgent = 64;
  constexpr size_t ofPort = 2;
  // Reading texts and compiling lists can take minutes; a signal must be able to end that, too.
  unblock({SIGTERM, SIGINT});
  keepRequests();
  raiseDescriptorLimit();
  if (const auto wrong = whyNoDescriptors(ofAgent + ofPort * options.ports.size())) {
    complain(*wrong);
    return exitUnread;
  }
  return Run(options).run();
}

Run::Run(const RunOptions& options)
    : options_(options),
      deadline_(mostToEnd),
      forwarder_(core_, options.malformed),
      ports_(forwarder_, loop_, setupOf(options)) {
  if (options_.workers == 0) loop_.pause().modeIs(options.poll);
}

Run::~Run() { Acl::Workshop::singleton().threadIs(false); }

Exit Run::run() {
  keepFreedMemory();
  if (auto failed = prepare()) return *failed;
  log_.tell({Severity::notice, fmt::format("velo {} begins", version()), {{"VELO_EVENT", "begin"}}});
  tellServiceManager("READY=1");
  if (!ended_) loop_.run();
  tellServiceManager("STOPPING=1");
  ports_.drain();
  if (workers_) workers_->end();
  fleet_.reset();
  fleetLink_.reset();
  metrics_.reset();
  matchLog_.reset();  // what it still tells is written until the end
  // Everything is saved and reported before the control plane goes, because that may have to wait for a
  // thread.
  state_.reset();
  const Exit result = report() ? exitDone : exitUnread;
  deadline_.doneIs(result);
  control_.reset();
  return result;
}

std::optional<Exit> Run::prepare() {
  // Lists are compiled beside the traffic, on a thread without any rights.
  withoutCapabilities([this] {
    Acl::Workshop::singleton().threadIs(true, giveWay);
    log_.start();
  });
  // A signal ends the process at once during this step, because nothing has to be closed in order yet.
  if (auto failed = configure()) return failed;
  signals_.emplace();
  loop_.fdIs(signals_->fd(), EPOLLIN, [this](uint32_t) { handleSignals(); });
  if (auto wrong = joinPorts(options_, core_, forwarder_, ports_, loop_.turnClock()))
    return refused(exitUsage, *wrong);
  if (auto failed = openPorts()) return failed;
  if (auto failed = lookAtPorts()) return failed;
  openMatchLog();
  if (auto failed = openControl()) return failed;
  openFleet();
  answerSignals();
  return openMetrics();
}

void Run::handleSignals() {
  const Signals::Asked asked = signals_->take();
  if (asked.end) {
    log_.tell({Severity::notice,
               fmt::format("velo {} ends ({})", version(), asked.end == SIGINT ? "SIGINT" : "SIGTERM"),
               {{"VELO_EVENT", "end"}}});
    ended_ = true;
    return loop_.stop();
  }
  reloadIsDue_ = reloadIsDue_ || asked.reload;
  statusIsDue_ = statusIsDue_ || asked.status;
  answerSignals();
}

/// Before the control plane is there, what signals ask for waits: while workers begin, the loop runs already.
void Run::answerSignals() {
  if (!control_) return;
  if (std::exchange(reloadIsDue_, false)) reload();
  if (std::exchange(statusIsDue_, false))
    control_->tellStatus([this](auto make) { log_.tellMade(std::move(make)); });
}

void Run::reload() {
  tellServiceManager(reloading());
  if (options_.configs.empty()) {
    tellChange(tellLog(), {.who = "SIGHUP",
                           .source = commandLineName,
                           .summary = {},
                           .refused = "there is nothing to read again (velo run had no --config)"});
    return tellServiceManager("READY=1");
  }
  const auto done = [](const Configuration::Outcome&) { tellServiceManager("READY=1"); };
  control_->configuration().applyLater(
      {.texts = {}, .files = options_.configs, .who = "SIGHUP", .leave = options_.leave}, done);
}

void Run::tell(const Warnings& warnings) {
  if (log_.isJournal()) return tellWarnings(tellLog(), warnings);
  tellWarnings(warnings);
}

Exit Run::refused(Exit result, const std::string& text) {
  log_.tell({Severity::error, text, {{"VELO_EVENT", "start"}, {"VELO_RESULT", "refused"}}});
  return result;
}

TellLog Run::tellLog() {
  return [this](LogEvent event) {
    changes_.note(event, loop_.turnWall().now().seconds());
    log_.tell(std::move(event));
  };
}

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
  if (auto failed = joinFleet()) return failed;
  if (const auto told = takeBackUnconfirmed(files_, past_))
    log_.tell({Severity::warning, "--config: " + *told, {{"VELO_EVENT", "change"}}});
  for (const auto& [name, device] : options_.ports) {
    if (auto wrong = files_.sources().whyNoPort(name)) return refused(exitUsage, *wrong);
  }
  const PortNames known = ports();
  ChangeWarnings found = startWarnings(past_.filtered, files_.sources().layers(), &known);
  tell(found.told);
  if (const auto why = whyRefused(found, options_.leave))
    return refused(exitUsage, *why + (isLost(found) ? "; --state has what was filtered before" : ""));
  warnings_ = std::move(found.lasting);
  filtered_ = std::make_shared<const FilteredPorts>(std::move(found.filtered));
  return publish();
}

std::optional<Exit> Run::joinFleet() {
  if (!options_.fleet.given()) {
    past_.fleet.reset();
    return std::nullopt;
  }
  std::string why;
  auto place = placeOf(options_.fleet, &why);
  if (!place) return refused(exitUsage, "--fleet: " + why);
  const auto tell = [this](const std::string& text) {
    log_.tell({Severity::warning, "fleet: " + text, {{"VELO_EVENT", "fleet"}}});
  };
  withoutCapabilities([&] {
    fleetLink_ = std::make_unique<FleetLink>(std::move(*place), fleetIdentity(),
                                             [this](LogEvent event) { log_.tell(std::move(event)); });
    fleetLink_->start();
  });
  std::vector<std::string> wrong;
  if (past_.fleet) {
    if (takeFleet(past_.fleet, wrong)) return std::nullopt;
    for (const std::string& mistake : wrong) tell(mistake);
    tell("what was in force last cannot be read any more");
  }
  for (;;) {
    SharedFleetContent content = fleetLink_->wait(untilWaitingIsTold);
    if (!content) {
      tell("nothing is forwarded before its lists are there");
      continue;
    }
    wrong.clear();
    if (takeFleet(content, wrong)) return std::nullopt;
    for (const std::string& mistake : wrong) tell(mistake);
    fleetLink_->stateIs(FleetAgent::waitingState(fleetIdentity(), *content, wrong));
  }
}

bool Run::takeFleet(SharedFleetContent content, std::vector<std::string>& wrong) {
  MadeModel made = readFleet(*content, options_.limits);
  wrong = std::move(made.mistakes);
  if (!made.model) return false;
  files_.inputIs(fleetName, std::move(*made.model));
  past_.fleet = std::move(content);
  return true;
}

void Run::openFleet() {
  if (!fleetLink_) return;
  fleet_ = std::make_unique<FleetAgent>(
      FleetAgent::World{loop_, core_, control_->configuration(), control_->operations(), *fleetLink_,
                        [this] { return portStates(); }, loop_.turnWall().now().seconds(),
                        [this] { return dropped(); }},
      fleetIdentity());
}

uint64_t Run::dropped() const {
  uint64_t frames = 0;
  for (const auto& [id, port] : forwarder_.ports()) frames += port->droppedIn + port->droppedOut;
  return frames;
}

nlohmann::ordered_json Run::fleetReport() const { return fleet_ ? fleet_->report() : nullptr; }

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
  for (const auto& [name, text] : options_.ports) {
    std::string wrongText;
    const auto [kind, what] = portTextOf(text, wrongText);
    if (!kind->followed) continue;
    if (auto wrong = claims_.claim(what.device)) return refused(exitUnread, *wrong);
  }
  ports_.logIs(tellLog());
  if (auto wrong = ports_.open()) return refused(exitUnread, *wrong);
  // They are started with all rights, as ports are opened here.
  if (auto failed = startWorkers()) return failed;
  const std::set<int>& needed = ports_.capabilities();
  if (!capabilitiesKeep({needed.begin(), needed.end()}).empty())
    complain("a device that goes cannot be opened again");
  return std::nullopt;
}

std::optional<Exit> Run::startWorkers() {
  if (options_.workers == 0) return std::nullopt;
  const auto sources = [this]() -> const Sources& {
    return control_ ? control_->configuration().sources() : files_.sources();
  };
  workers_ = std::make_unique<Workers>(
      core_, forwarder_, loop_, Workers::Options{options_.workers, sources, ports_.handedOn(), tellLog()});
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
  Joined joined;
  for (const auto& [a, b] : options_.patches) joined.ends.push_back({a, b});
  joined.ends.insert(joined.ends.end(), options_.bridges.begin(), options_.bridges.end());
  for (const auto& [name, members] : core_.portChannels().all()) {
    for (const auto& member : members) joined.portChannels[name.name().str()].push_back(member.name().str());
  }
  // On the device of a TAP port the host is a station.
  std::vector<std::string> devices;
  for (const auto& [name, text] : options_.ports) {
    std::string wrong;
    const auto [kind, what] = portTextOf(text, wrong);
    if (kind->ofHost) devices.push_back(what.device);
  }
  return Agent::portWarnings(portStates(), joined, hostUses(devices));
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
                                                           .ports = ports(),
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
                                                           .fleet = [this] { return fleetReport(); },
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

PortNames Run::ports() const {
  PortNames names;
  for (const auto& [name, text] : options_.ports) {
    std::string wrong;
    const auto [kind, what] = portTextOf(text, wrong);
    names.insert(name);
    if (kind && kind->followed && what.device != name) names.byDevice.emplace(what.device, name);
  }
  return names;
}

bool Run::report() const {
  if (options_.report == FinalReport::none) return true;
  const Report report = makeReport(core_, forwarder_, workers_ ? workers_->totals() : ports_.totals());
  return print(options_.report == FinalReport::json ? reportJson(report, core_.inForce().status())
                                                    : reportText(report, wantsColour(STDOUT_FILENO)));
}

}  // namespace Agent
