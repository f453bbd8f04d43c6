#include <Acl/Workshop.h>
#include <Kiv/UniqueIdSeed.h>
#include <agent/change/Commit.h>
#include <agent/change/Start.h>
#include <agent/control/CounterSweep.h>
#include <agent/core/Background.h>
#include <agent/core/Memory.h>
#include <agent/log/EventLog.h>
#include <agent/run/AskedPorts.h>
#include <agent/run/Capabilities.h>
#include <agent/run/JoinPorts.h>
#include <agent/run/WorkerRun.h>
#include <agent/show/TraceFacilities.h>
#include <agent/workers/Channel.h>
#include <agent/workers/Counts.h>
#include <agent/workers/Handover.h>
#include <agent/workers/Stations.h>
#include <agent/workers/WorkerIds.h>
#include <agent/workers/WorkerProcess.h>

#include <unistd.h>

#include <algorithm>
#include <deque>

namespace Agent {

namespace {

/// How many descriptors a worker needs beside those of its ports.
constexpr size_t ofWorker = 32;

/// A worker, from start to end. Like Run, it opens its ports last.
class WorkerRun {
 public:
  explicit WorkerRun(const RunOptions& options);
  ~WorkerRun() { Acl::Workshop::singleton().threadIs(false); }

  Exit run();

 private:
  void handle(std::optional<Message> message);
  void carryOut(const Message& message);
  /// Puts the configuration in force and opens the ports. Returns what went wrong.
  std::optional<std::string> begin(const Message& message);
  std::optional<std::string> publish(const Handover& handover);
  void beginTelling();
  void getReady(const std::string& text);
  [[noreturn]] void end();

  const RunOptions& options_;
  std::optional<EventLog> log_;
  EventLoop loop_;
  Core core_;
  std::optional<NamedTraces> namedTraces_;
  Forwarder forwarder_;
  LivePorts ports_;
  ZeroLine zero_;
  bool begun_ = false, ended_ = false;
  std::deque<Message> early_;  // that came before it had begun
  Channel channel_;
  std::optional<Commit> commit_;
  CounterSweep sweep_;
  std::unique_ptr<CountTeller> counts_;
  std::unique_ptr<Stations> stations_;
  std::unique_ptr<MatchLog> matchLog_;
  Background background_;
};

WorkerRun::WorkerRun(const RunOptions& options)
    : options_(options),
      forwarder_(core_, options.malformed),
      ports_(forwarder_, loop_, AskedPorts(options).setup()),
      channel_(loop_, Descriptor(options.worker.front()),
               [this](std::optional<Message> message) { handle(std::move(message)); }),
      sweep_(core_, zero_, [this] { return commit_ && commit_->underWay(); }),
      background_(loop_) {
  loop_.pause().modeIs(options.poll);
}

Exit WorkerRun::run() {
  keepFreedMemory();
  raiseDescriptorLimit();
  withoutCapabilities([this] {
    Acl::Workshop::singleton().threadIs(true, giveWay);
    log_.emplace().start();
  });
  while (!ended_ && early_.empty()) loop_.turn(-1);
  if (ended_) return exitUnread;
  const Message first = std::move(early_.front());
  early_.pop_front();
  if (const auto wrong = begin(first)) {
    channel_.send(MessageKind::refused, *wrong);
    channel_.flush();
    return exitUnread;
  }
  begun_ = true;
  channel_.send(MessageKind::begun);
  for (; !early_.empty() && !ended_; early_.pop_front()) carryOut(early_.front());
  if (!ended_) loop_.run();
  return exitDone;
}

void WorkerRun::handle(std::optional<Message> message) {
  if (!message) {
    // The first process is gone: nothing passes without it.
    ended_ = true;
    return loop_.stop();
  }
  if (!begun_)
    early_.push_back(std::move(*message));
  else
    carryOut(*message);
}

void WorkerRun::carryOut(const Message& message) {
  const std::string& text = message.text;
  switch (message.kind) {
    case MessageKind::getReady:
      return getReady(text);
    case MessageKind::drop:
      if (commit_->underWay()) commit_->drop();
      return;
    case MessageKind::carryOut:
      return commit_->carryOut([this](const Commit::End&) {
        // What old rules have counted is told before the first process forgets them.
        counts_->gather([this] {
          channel_.send(MessageKind::carriedOut);
          sweep_.handleApplied();
        });
      });
    case MessageKind::gather:
      return counts_->gather([this, text] { channel_.send(MessageKind::gathered, text); });
    case MessageKind::stations:
      return stations_->learn(text);
    case MessageKind::end:
      return end();
    default:
      break;
  }
}

std::optional<std::string> WorkerRun::begin(const Message& message) {
  if (const auto wrong = whyNoDescriptors(ofWorker + 4 * options_.ports.size())) return wrong;
  auto handover = readHandover(message.text);
  if (!handover) return "the configuration cannot be read";
  if (auto wrong = publish(*handover)) return wrong;
  // The first process has judged what is joined when it started. By now a port-channel may be gone.
  if (auto wrong =
          joinPorts(options_, core_, forwarder_, ports_, loop_.turnClock(), Forwarder::Judged::before))
    return wrong;
  const auto trouble = message.kind == MessageKind::beginAgain ? LivePorts::Trouble::closesPort
                                                               : LivePorts::Trouble::endsStart;
  if (auto wrong = ports_.open(trouble)) return wrong;
  capabilitiesKeep(ports_.capabilities(), ports_.capabilitiesToMake());
  commit_.emplace(core_, forwarder_, loop_.reserve(), std::move(handover->sources), nullptr);
  beginTelling();
  return std::nullopt;
}

std::optional<std::string> WorkerRun::publish(const Handover& handover) {
  Kiv::generatedIdsFollow(idBeforeThoseOfWorkers);
  const auto memory = [&handover](const std::string& source, const Config::List& list) {
    return handover.idsOf(source, list);
  };
  if (auto wrong = start(core_, handover.sources,
                         {.plugin = options_.plugin,
                          .further = options_.furtherPlugins,
                          .settle = [this] { loop_.settle(); },
                          .loaded = [this] { return traceByName(core_, namedTraces_); },
                          .memory = memory}))
    return wrong;
  while (!Acl::Workshop::singleton().idle()) loop_.turn(-1);
  return std::nullopt;
}

void WorkerRun::beginTelling() {
  ports_.logIs([this](LogEvent event) { log_->tell(std::move(event)); });
  counts_ = std::make_unique<CountTeller>(
      CountTeller::From{core_, forwarder_, [this] { return ports_.states(); },
                        [this] { return ports_.totals(); }},
      [this](const std::string& text) { channel_.send(MessageKind::counts, text); });
  stations_ = std::make_unique<Stations>(forwarder_, loop_.turnClock(), [this](const std::string& text) {
    channel_.send(MessageKind::heard, text);
  });
  // All of them together tell as many lines as one would.
  MatchLogOptions matches = options_.matches;
  if (matches.rate > 0) matches.rate = std::max(matches.rate / options_.workers, 1u);
  matchLog_ = std::make_unique<MatchLog>(core_, forwarder_, loop_, matches,
                                         [this](auto make) { log_->tellMade(std::move(make)); });
  for (const std::string& wrong : matchLog_->wrong())
    log_->tell({Severity::warning, wrong, {{"VELO_EVENT", "match-message"}}});
}

void WorkerRun::getReady(const std::string& text) {
  const auto order = std::make_shared<std::optional<ChangeOrder>>();
  const auto wrong = std::make_shared<std::string>();
  background_.run([this, text, order, wrong] { *order = readChangeOrder(text, commit_->sources(), *wrong); },
                  [this, order, wrong](const std::optional<std::string>& failed) {
                    if (failed || !*order)
                      return channel_.send(MessageKind::notReady, failed.value_or(*wrong));
                    auto& [content, writes] = **order;
                    const auto refusal = commit_->getReady(std::move(content), std::move(writes));
                    if (refusal) return channel_.send(MessageKind::notReady, refusal->why);
                    channel_.send(MessageKind::ready);
                  });
}

void WorkerRun::end() {
  ports_.drain();
  counts_->tellAll();
  matchLog_.reset();
  log_.reset();  // writes all
  channel_.flush();
  // Nothing is left to do, and a thread that reads or compiles a change is not waited for.
  _exit(exitDone);
}

}  // namespace

Exit runWorker(const RunOptions& options) {
  if (!workerBegins(options.worker.front())) return exitUnread;
  return WorkerRun(options).run();
}

}  // namespace Agent
