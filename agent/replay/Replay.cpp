#include <agent/replay/Captures.h>
#include <agent/replay/Progress.h>
#include <agent/replay/Replay.h>
#include <agent/replay/Report.h>
#include <agent/replay/VerdictRecorder.h>
#include <agent/replay/VerdictWriter.h>

#include <Kiv/Clock.h>
#include <Zeb/System.h>
#include <agent/ConfigFiles.h>
#include <unistd.h>

#include <cstdio>

namespace Agent {

namespace {

void complain(const std::string& text) { fmt::print(stderr, "velo: {}\n", text); }

/// Makes the capture's time the process's time of day for a scope.
class CaptureClock {
 public:
  CaptureClock() { Zeb::System::clockIs(&clock_); }
  ~CaptureClock() { Zeb::System::clockIs(nullptr); }
  CaptureClock(const CaptureClock&) = delete;
  CaptureClock& operator=(const CaptureClock&) = delete;
  void nowIs(const Stamp& stamp) { clock_.nowIs(Kelp::Duration(stamp.value())); }

 private:
  Kiv::ManualClock clock_;
};

/// A port with its capture; stands on the frame that is to be received next.
struct Source {
  Port* port;
  std::unique_ptr<CaptureReader> capture;
  bool hasFrame = false;
};

/// The source whose frame is the earliest, of equals the first; null when all are done.
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
    return finish();
  }

 private:
  std::optional<Exit> prepare() {
    ConfigFiles files;
    if (const auto wrong = files.read(options_.configs, options_.configDir); !wrong.empty()) {
      for (const std::string& mistake : wrong) fmt::print(stderr, "{}\n", mistake);
      return exitUsage;
    }
    if (auto wrong = core_.loadPlugin(options_.plugin)) return usage(*wrong);
    if (auto wrong = core_.apply(files.commandLine(), files.inputs())) return usage(*wrong);
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
    forwarder_.portsOfConfigurationIs();
    for (const auto& [a, b] : options_.patches) {
      if (auto wrong = forwarder_.patchIs(a, b)) return usage("--patch: " + *wrong);
    }
    for (const auto& [name, path] : options_.outs) {
      writers_.push_back(std::make_unique<CaptureWriter>(path, stamp_));
      if (!writers_.back()->wrong().empty()) {
        complain(writers_.back()->wrong());
        return exitUnread;
      }
      forwarder_.portIs(name).sink = writers_.back().get();
    }
    if (!options_.verdicts.empty()) {
      verdicts_ = std::make_unique<VerdictWriter>(options_.verdicts);
      if (!verdicts_->ok()) {
        complain(verdicts_->wrong());
        return exitUnread;
      }
      recorder_ = std::make_unique<VerdictRecorder>(core_, forwarder_);
    }
    for (Source& source : sources_) source.hasFrame = source.capture->next();
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
    forwarder_.packet().assign(capture.frame(), capture.wireLength(), stamp_.value());
    if (recorder_) recorder_->begin();
    const Verdict verdict = forwarder_.receive(*source.port);
    ++frames_;
    bytes_ += forwarder_.packet().wireLength();
    ++(verdict.passed() ? passed_ : dropped_);
    if (recorder_) verdicts_->write(*source.port, capture.number(), verdict, *recorder_);
    if (progress_.due(frames_)) {
      uint64_t read = 0;
      for (const Source& each : sources_) read += each.capture->position();
      progress_.show(frames_, read);
    }
  }

  Exit finish() {
    Exit status = exitDone;
    const auto unread = [&status](const std::string& wrong) {
      if (wrong.empty()) return;
      complain(wrong);
      status = exitUnread;
    };
    for (const Source& source : sources_) unread(source.capture->wrong());
    for (const auto& writer : writers_) {
      writer->flush();
      unread(writer->wrong());
    }
    if (verdicts_ && !verdicts_->close()) unread(verdicts_->wrong());

    Report report = makeReport(core_, forwarder_);
    report.frames = frames_;
    report.bytes = bytes_;
    report.passed = passed_;
    report.dropped = dropped_;
    fmt::print("{}", options_.json ? reportJson(report) : reportText(report, isatty(STDOUT_FILENO) != 0));
    return status;
  }

  const ReplayOptions& options_;
  CaptureClock clock_;
  Core core_;
  Stamp stamp_;
  std::vector<std::unique_ptr<CaptureWriter>> writers_;
  Forwarder forwarder_;
  std::unique_ptr<VerdictWriter> verdicts_;
  std::unique_ptr<VerdictRecorder> recorder_;
  std::vector<Source> sources_;
  Progress progress_;
  uint64_t frames_ = 0;
  uint64_t bytes_ = 0;
  uint64_t passed_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace

Exit replay(const ReplayOptions& options) { return Replay(options).run(); }

}  // namespace Agent
