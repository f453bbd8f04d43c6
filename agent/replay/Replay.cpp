#include <Kelp/Duration.h>
#include <Kiv/Clock.h>
#include <Nimnet/Pkt.h>
#include <Zeb/System.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/Start.h>
#include <agent/change/Warnings.h>
#include <agent/core/Output.h>
#include <agent/core/TaskLoop.h>
#include <agent/core/Terminal.h>
#include <agent/core/Words.h>
#include <agent/observe/VerdictRecorder.h>
#include <agent/ports/Captures.h>
#include <agent/ports/CommentedCapture.h>
#include <agent/replay/Progress.h>
#include <agent/replay/Replay.h>
#include <agent/replay/VerdictWriter.h>
#include <agent/show/Report.h>
#include <agent/show/RuleNames.h>
#include <agent/show/TraceFacilities.h>
#include <agent/warnings/WarningText.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace Agent {

namespace {

namespace fs = std::filesystem;

/// True when two paths lead to the same regular file. (A terminal or a pipe may be named twice.)
bool sameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  if (fs::exists(a, error) && !fs::is_regular_file(a, error)) return false;
  if (fs::equivalent(a, b, error)) return true;
  return fs::weakly_canonical(a, error) == fs::weakly_canonical(b, error) && !error;
}

/// Whether a file would be written that another option names, too: returns the text of the complaint, or
/// nothing.
std::optional<std::string> overwritten(const ReplayOptions& options) {
  std::vector<std::string> others = options.configs;
  for (const auto& [name, path] : options.ports) others.push_back(path);
  std::vector<std::string> written;
  for (const auto& [name, path] : options.outs) written.push_back(path);
  for (const std::string& path : {options.verdicts, options.annotated}) {
    if (!path.empty()) written.push_back(path);
  }
  for (const std::string& path : written) {
    for (const std::string& other : others) {
      if (sameFile(path, other)) return fmt::format("{} would be written over {}", path, other);
    }
    others.push_back(path);
  }
  return std::nullopt;
}

/// While it lives, the time of day of the process is that of the captures.
class CaptureClock {
 public:
  CaptureClock() { Zeb::System::clockIs(&clock_); }
  ~CaptureClock() { Zeb::System::clockIs(nullptr); }
  CaptureClock(const CaptureClock&) = delete;
  CaptureClock& operator=(const CaptureClock&) = delete;
  void nowIs(const Stamp& stamp) { clock_.nowIs(Kelp::Duration(stamp.value())); }
  void advance(Kelp::Duration by) { clock_.advance(by); }
  const Kiv::Clock& clock() const { return clock_; }

 private:
  Kiv::ManualClock clock_;
};

/// A port with its capture, which stands at the frame that will be received next.
struct Source {
  Port* port;
  std::unique_ptr<CaptureReader> capture;
  bool hasFrame = false;
};

/// The source with the earliest frame, the first of them if there are several; null when all are at their
/// end.
Source* earliest(std::vector<Source>& sources) {
  Source* first = nullptr;
  for (Source& source : sources) {
    if (source.hasFrame && (!first || source.capture->stamp() < first->capture->stamp())) first = &source;
  }
  return first;
}

class Replay {
 public:
  explicit Replay(const ReplayOptions& options) : options_(options), forwarder_(core_, options.malformed) {}

  Exit run() {
    if (auto failed = prepare()) return *failed;
    for (Source* source; (source = earliest(sources_)) != nullptr;) {
      receive(*source);
      source->hasFrame = source->capture->next();
    }
    progress_.done();
    // So every poll of the counters runs once more after the last frame.
    clock_.advance(Kelp::Duration(1.0));
    tasks_.settle();
    return finish();
  }

 private:
  /// The steps of starting. Each returns an exit status when the replay cannot start.
  std::optional<Exit> prepare() {
    if (auto wrong = overwritten(options_)) return usage(*wrong);
    ConfigFiles files;
    if (const auto wrong = files.read(options_.configs, options_.configDir, options_.limits);
        !wrong.empty()) {
      tellMistakes(wrong);
      return exitUsage;
    }
    // Other interfaces than those with a capture may be meant to have none.
    tellWarnings(changeWarnings({}, files.sources().layers(), nullptr).openings);
    for (const auto* named : {&options_.ports, &options_.outs}) {
      for (const auto& [name, path] : *named) {
        if (auto wrong = files.sources().whyNoPort(name)) return usage(*wrong);
      }
    }
    if (auto failed = openCaptures()) return failed;
    if (auto failed = putInForceAndJoin(files.sources())) return failed;
    return openOutputs();
  }

  std::optional<Exit> openCaptures() {
    for (const auto& [name, path] : options_.ports) {
      Port& port = forwarder_.portIs(name);
      auto capture = std::make_unique<CaptureReader>(path);
      if (!capture->wrong().empty()) {
        complain(capture->wrong());
        return capture->refused() ? exitUsage : exitUnread;
      }
      progress_.sizeAdd(capture->size());
      sources_.push_back({&port, std::move(capture)});
    }
    // The agent's clock starts at the time of the first frame.
    for (Source& source : sources_) source.hasFrame = source.capture->next();
    if (const Source* first = earliest(sources_)) clock_.nowIs(first->capture->stamp());
    return std::nullopt;
  }

  std::optional<Exit> putInForceAndJoin(const Sources& sources) {
    if (auto wrong = start(core_, sources,
                           {.plugin = options_.plugin,
                            .further = options_.furtherPlugins,
                            .settle = [this] { tasks_.settle(); },
                            .loaded = [this] { return traceByName(core_, namedTraces_); }}))
      return usage(*wrong);
    forwarder_.portsOfConfigurationIs();
    for (const auto& [a, b] : options_.patches) {
      if (auto wrong = forwarder_.patchIs(a, b)) return usage("--patch: " + *wrong);
    }
    return std::nullopt;
  }

  std::optional<Exit> openOutputs() {
    const auto unwritable = [](const std::string& wrong) {
      if (!wrong.empty()) complain(wrong);
      return !wrong.empty();
    };
    for (const auto& [name, path] : options_.outs) {
      writers_.push_back(std::make_unique<CaptureWriter>(path, stamp_));
      if (unwritable(writers_.back()->wrong())) return exitUnread;
      forwarder_.portIs(name).sink = writers_.back().get();
    }
    if (!options_.verdicts.empty()) {
      verdicts_.emplace(options_.verdicts);
      if (unwritable(verdicts_->wrong())) return exitUnread;
    }
    if (!options_.annotated.empty()) {
      annotated_.emplace(options_.annotated);
      if (unwritable(annotated_->wrong())) return exitUnread;
    }
    if (verdicts_ || annotated_) recorder_.emplace(core_, forwarder_);
    return std::nullopt;
  }

  static Exit usage(const std::string& text) {
    complain(text);
    return exitUsage;
  }

  void receive(Source& source) {
    const CaptureReader& capture = *source.capture;
    stamp_ = capture.stamp();
    clock_.nowIs(stamp_);
    if (tasks_.due()) tasks_.turn();
    capture.assignTo(forwarder_.packet());
    if (recorder_) recorder_->begin();
    const Verdict verdict = forwarder_.receive(*source.port);
    totals_.add(verdict, forwarder_.packet().wireLength());
    if (verdicts_) verdicts_->write(capture.number(), recorder_->fate());
    if (annotated_) annotate();
    if (progress_.due(totals_.frames)) {
      uint64_t read = 0;
      for (const Source& each : sources_) read += each.capture->position();
      progress_.show(totals_.frames, read);
    }
  }

  /// Writes the frame that was received last.
  void annotate() {
    const Nimnet::Pkt& pkt = forwarder_.packet();
    const auto octets = withEthernet(pkt, made_);
    annotated_->write({.port = recorder_->fate().port,
                       .stamp = stamp_,
                       .octets = octets,
                       .wireLength = pkt.wireLength() + static_cast<uint32_t>(octets.size()) - pkt.size(),
                       .comment = sentenceOf(recorder_->fate())});
  }

  Exit finish() {
    Exit status = exitDone;
    const auto unread = [&status](const std::string& wrong) {
      if (wrong.empty()) return;
      complain(wrong);
      status = exitUnread;
    };
    for (const Source& source : sources_) unread(source.capture->wrong());
    const auto end = [&unread](auto& writer) {
      writer.flush();
      unread(writer.wrong());
    };
    for (const auto& writer : writers_) end(*writer);
    if (verdicts_) end(*verdicts_);
    if (annotated_) end(*annotated_);

    const Report report = makeReport(core_, forwarder_, totals_);
    const bool printed = print(options_.json ? reportJson(report, core_.inForce().status())
                                             : reportText(report, wantsColour(STDOUT_FILENO)));
    return printed ? status : exitUnread;
  }

  const ReplayOptions& options_;
  CaptureClock clock_;
  TaskLoop tasks_{clock_.clock()};
  Core core_;
  std::optional<NamedTraces> namedTraces_;
  Stamp stamp_;
  std::vector<std::unique_ptr<CaptureWriter>> writers_;
  Forwarder forwarder_;
  std::optional<VerdictWriter> verdicts_;
  std::optional<CommentedCapture> annotated_;
  std::vector<uint8_t> made_;  // for withEthernet()
  std::optional<VerdictRecorder> recorder_;
  std::vector<Source> sources_;
  Progress progress_;
  FrameTotals totals_;
};

}  // namespace

Exit replay(const ReplayOptions& options) { return Replay(options).run(); }

}  // namespace Agent
