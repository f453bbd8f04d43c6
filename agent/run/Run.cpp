#include <Acl/Workshop.h>
#include <agent/change/ChangeEvents.h>
#include <agent/core/Background.h>
#include <agent/core/Memory.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/core/Version.h>
#include <agent/core/Words.h>
#include <agent/run/Capabilities.h>
#include <agent/run/JoinPorts.h>
#include <agent/run/Run.h>
#include <agent/run/ServiceManager.h>
#include <agent/run/Signals.h>
#include <agent/run/WorkerRun.h>
#include <agent/show/Report.h>
#include <agent/warnings/WarningText.h>
#include <fmt/format.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace Agent {

namespace {

/// Seconds from the signal to the end of the process, at most.
constexpr double mostToEnd = 1.5;

}  // namespace

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
      asked_(options),
      forwarder_(core_, options.malformed),
      ports_(forwarder_, loop_, asked_.setup()),
      fleet_(options.fleet, options.limits, [this](LogEvent event) { log_.tell(std::move(event)); }) {
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
  fleet_.close();
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
  if (auto wrong = joinPorts(options_, core_, forwarder_, ports_, loop_.turnClock(), Forwarder::Judged::now))
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

bool Run::report() const {
  if (options_.report == FinalReport::none) return true;
  const Report report = makeReport(core_, forwarder_, workers_ ? workers_->totals() : ports_.totals());
  return print(options_.report == FinalReport::json ? reportJson(report, core_.inForce().status())
                                                    : reportText(report, wantsColour(STDOUT_FILENO)));
}

}  // namespace Agent
