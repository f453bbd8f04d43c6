#include <agent/change/Restart.h>
#include <agent/config/Reader.h>
#include <agent/config/Writer.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

bool namesStandardInput(const std::vector<std::string>& files) {
  return std::find(files.begin(), files.end(), standardInput) != files.end();
}

SharedText refusedBy(const std::optional<Unconfirmed>& unconfirmed) {
  return unconfirmed ? unconfirmed->refused : nullptr;
}

/// Why these sources cannot be in force at a start.
std::optional<std::string> whyNoStart(const Restart::Start& start, const Sources& sources) {
  if (auto wrong = sources.whyNot()) return wrong;
  for (const std::string& port : start.ports.value_or(PortNames())) {
    if (auto wrong = sources.whyNoPort(port)) return wrong;
  }
  return std::nullopt;
}

}  // namespace

Restart::Restart(EventLoop& loop, Start start)
    : start_(std::move(start)),
      clock_(loop.turnClock()),
      patience_(0, "RestartPatience", [this] { handleLate(); }),
      background_(loop) {}

Restart::Identities Restart::identitiesOf(const Start& start) {
  Identities all;
  for (const std::string& file : start.files) all.emplace(file, identityOf(file));
  std::vector<std::string> wrong;
  if (!start.dir.empty()) {
    for (const auto& path : configFilesIn(start.dir, wrong))
      all.emplace(path.string(), identityOf(path.string()));
  }
  for (const std::string& line : wrong) all.emplace(line, std::nullopt);
  return all;
}

void Restart::look(Past past, std::function<void()> then) {
  past_ = std::move(past);
  if (isLate_) return then();
  waiting_.push_back(std::move(then));
  if (reading_.empty() && waiting_.size() == 1) patience_->scheduleTaskDelay(patience);
  if (!background_.busy()) readAgain();
}

std::optional<double> Restart::lookingFor() const {
  return isLate_ ? std::optional(clock_.now().seconds() - since_) : std::nullopt;
}

void Restart::handleLate() {
  isLate_ = background_.busy();
  auto all = std::exchange(reading_, {});
  for (auto& each : std::exchange(waiting_, {})) all.push_back(std::move(each));
  for (const auto& each : all) each();
}

Restart::Found Restart::read(const Start& start, const Past& past) {
  Found found;
  const int64_t time = fileTime();
  found.unconfirmed = refusedBy(past.unconfirmed);
  found.filtered = past.filtered;
  found.fleet = past.fleet;
  found.identities = identitiesOf(start);
  found.settled = std::all_of(found.identities.begin(), found.identities.end(), [time](const auto& file) {
    return file.second && isSettled(*file.second, time);
  });
  TextReader reader(start.limits);
  ConfigFiles files;
  found.wrong = files.readCommandLine(start.files, TextReader::Named::byPlace, reader, 1);
  if (found.wrong.empty()) {
    Agent::Past remembered{{}, past.unconfirmed};
    takeBackUnconfirmed(files, remembered);
    found.text = Config::textOf(files.sources().commandLine);
  }
  // What standard input will say then is not known.
  const bool asks = namesStandardInput(start.files);
  std::vector<std::string> refusing = asks ? std::vector<std::string>() : found.wrong;
  for (std::string& line : files.readDirectory(start.dir, reader, 1)) refusing.push_back(std::move(line));
  if (past.fleet) {
    MadeModel made = readFleet(*past.fleet, start.limits);
    if (made.model) files.inputIs(fleetName, std::move(*made.model));
  }
  if (refusing.empty() && !asks) {
    const Layers layers = files.sources().layers();
    const PortNames* const ports = start.ports ? &*start.ports : nullptr;
    ChangeWarnings warnings = startWarnings(past.filtered, layers, ports);
    auto why = whyNoStart(start, files.sources());
    if (!why)
      why = Agent::whyRefused(past.isKept ? warnings : startWarnings(nullptr, layers, ports), start.leave);
    if (why) refusing.push_back(std::move(*why));
    found.openings = std::move(warnings.openings);
  }
  if (!refusing.empty()) found.refused = refusing.front() + (refusing.size() > 1 ? " ..." : "");
  return found;
}

void Restart::readAgain() {
  const auto found = std::make_shared<std::optional<Found>>();
  // What is known is not written before the work is over.
  const auto work = [this, found, past = past_] {
    const bool isKnown = found_ && found_->settled && found_->unconfirmed == refusedBy(past.unconfirmed) &&
                         found_->filtered == past.filtered && found_->fleet == past.fleet &&
                         found_->identities == identitiesOf(start_);
    if (!isKnown) *found = read(start_, past);
  };
  const auto then = [this, found](const auto& failed) {
    if (failed) *found = Found{.wrong = {*failed}};
    if (*found) found_ = std::move(**found);
    isLate_ = false;
    patience_->cancelTask();
    for (const auto& each : std::exchange(reading_, {})) each();
    if (waiting_.empty() || background_.busy()) return;
    patience_->scheduleTaskDelay(patience);
    readAgain();
  };
  reading_ = std::exchange(waiting_, {});
  since_ = clock_.now().seconds();
  background_.run(work, then);
}

std::optional<std::string> takeBackUnconfirmed(ConfigFiles& files, Past& past) {
  const auto unconfirmed = std::exchange(past.unconfirmed, std::nullopt);
  if (!unconfirmed || Config::textOf(files.sources().commandLine) != *unconfirmed->refused)
    return std::nullopt;
  Config::Result before = Config::read({{textThatComesBack, *unconfirmed->before}});
  if (!before.model) return "nobody has confirmed this change, but what was before it cannot be read";
  files.commandLineIs(std::move(*before.model));
  past.unconfirmed = unconfirmed;
  return "nobody has confirmed this change: what was before it is in force";
}

std::vector<std::string> Restart::whyOther(const std::string& text) const {
  if (!found_) return {};  // nobody has looked yet
  if (!found_->wrong.empty()) return found_->wrong;
  if (text == found_->text) return {};
  const auto& files = start_.files;
  if (files.empty()) return {"what is in force is in no file (velo run had no --config)"};
  return {fmt::format("what is in force is not what {} {}", fmt::join(files, ", "),
                      files.size() == 1 ? "says" : "say")};
}

std::optional<std::string> Restart::whyRefused() const { return found_ ? found_->refused : std::nullopt; }

bool Restart::hasPlace() const { return start_.files.size() == 1 && !namesStandardInput(start_.files); }

}  // namespace Agent
