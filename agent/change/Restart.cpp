#include <agent/change/Restart.h>
#include <agent/config/Writer.h>
#include <agent/models/Reader.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

Restart::Restart(EventLoop& loop, std::vector<std::string> files, TextLimits limits)
    : files_(std::move(files)), limits_(limits), background_(loop) {}

Restart::Identities Restart::identities() const {
  Identities all;
  for (const std::string& file : files_) all.push_back(identityOf(file));
  return all;
}

void Restart::look(std::function<void()> then) {
  if (!background_.busy() && found_ && found_->settled && found_->identities == identities()) return then();
  waiting_.push_back(std::move(then));
  if (!background_.busy()) readAgain();
}

Restart::Found Restart::read(const std::vector<std::string>& files, TextLimits limits) {
  Found found;
  found.settled = true;
  const int64_t time = fileTime();
  TextReader reader(limits);
  std::vector<Config::Source> sources;
  for (const std::string& path : files) {
    auto file = reader.read(path, TextReader::Named::byPlace, found.wrong);
    found.identities.push_back(file ? std::optional(file->identity) : identityOf(path));
    found.settled = found.settled && file && isSettled(file->identity, time);
    if (file) sources.push_back({path, std::move(file->text)});
  }
  if (!found.wrong.empty()) return found;
  const Config::Result result = Models::read(sources, {}, 1);
  found.wrong = textsOf(result.mistakes);
  if (result.model) found.text = Config::textOf(*result.model);
  return found;
}

void Restart::readAgain() {
  const auto found = std::make_shared<Found>();
  background_.run([found, files = files_, limits = limits_] { *found = read(files, limits); },
                  [this, found](const std::optional<std::string>& failed) {
                    if (failed) *found = {{*failed}, {}, {}, false};
                    found_ = std::move(*found);
                    for (const auto& then : std::exchange(waiting_, {})) then();
                  });
}

std::optional<std::string> takeBackUnconfirmed(ConfigFiles& files, Past& past) {
  const auto unconfirmed = std::exchange(past.unconfirmed, std::nullopt);
  if (!unconfirmed || Config::textOf(files.sources().commandLine) != *unconfirmed->refused)
    return std::nullopt;
  Config::Result before = Config::read({{"before", *unconfirmed->before}});
  if (!before.model) return "nobody has confirmed this change, but what was before it cannot be read";
  files.commandLineIs(std::move(*before.model));
  past.unconfirmed = unconfirmed;
  return "nobody has confirmed this change: what was before it is in force";
}

std::vector<std::string> Restart::whyOther(const std::string& text,
                                           const std::optional<Unconfirmed>& unconfirmed) const {
  if (!found_) return {};  // nobody has looked yet
  if (!found_->wrong.empty()) return found_->wrong;
  const bool isRefused = unconfirmed && *unconfirmed->refused == found_->text;
  if (text == (isRefused ? *unconfirmed->before : found_->text)) return {};
  if (files_.empty()) return {"what is in force is in no file (velo run had no --config)"};
  return {fmt::format("what is in force is not what {} {}", fmt::join(files_, ", "),
                      files_.size() == 1 ? "says" : "say")};
}

}  // namespace Agent
