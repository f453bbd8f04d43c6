#include <agent/config/Groups.h>
#include <agent/core/Descriptor.h>
#include <agent/core/Memory.h>
#include <agent/core/Output.h>
#include <agent/core/Texts.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <functional>

namespace Agent {

namespace {

constexpr double mebi = 1 << 20;

int64_t nanoseconds(const timespec& time) { return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec; }

FileIdentity identityOf(const struct stat& file) {
  return {file.st_dev, file.st_ino, static_cast<uint64_t>(file.st_size), nanoseconds(file.st_mtim),
          nanoseconds(file.st_ctim)};
}

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a pipe";
  if (S_ISSOCK(mode)) return "a socket";
  return "a device";
}

/// Whether a line may be a rule that stands for combinations of members of groups.
bool namesGroups(std::string_view line) {
  const size_t group = line.find(Config::groupWord);
  return group != std::string_view::npos && line.find_first_not_of(" \t") < group;
}

}  // namespace

int64_t fileTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now);
}

/// Uses the time of the last change, which nobody can set. The system's clock for files advances every ten
/// milliseconds or more often. A file system may store whole seconds only, or every second one of them.
bool isSettled(const FileIdentity& file, int64_t time) {
  constexpr int64_t second = 1'000'000'000;
  const int64_t tick = file.changed % second == 0 ? 2 * second : second / 50;
  return file.changed + tick < time;
}

std::optional<FileIdentity> identityOf(const std::string& path) {
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) return std::nullopt;
  return identityOf(file);
}

std::optional<TextFile> TextReader::read(const std::string& path, Named named,
                                         std::vector<std::string>& wrong) {
  auto file = readOnly(path, named, wrong);
  if (!file) return std::nullopt;
  auto why = memory_.whyNot(path, file->text);
  if (!why) return file;
  wrong.push_back(std::move(*why));
  return std::nullopt;
}

std::optional<TextFile> TextReader::readOnly(const std::string& path, Named named,
                                             std::vector<std::string>& wrong) {
  const auto refused = [&wrong](std::string why) {
    wrong.push_back(std::move(why));
    return std::nullopt;
  };
  if (named == Named::byPlace && path == standardInput) return refused("standard input cannot be read again");
  struct stat asked {
  }, opened{};
  const char* const place = named == Named::byUser && path == standardInput ? "/dev/stdin" : path.c_str();
  if (stat(place, &asked) != 0) return refused(failureOf(path));
  const bool isFile = S_ISREG(asked.st_mode);
  const bool isStream = named == Named::byUser && (S_ISFIFO(asked.st_mode) || S_ISCHR(asked.st_mode));
  if (!isFile && !isStream)
    return refused(fmt::format("{}: is {}, not a regular file", path, kindOf(asked.st_mode)));
  // Opening a pipe waits for its writer, as the user who named it expects. Without waiting it would be empty.
  const Descriptor file(open(place, O_RDONLY | O_CLOEXEC | O_NOCTTY | (isFile ? O_NONBLOCK : 0)));
  if (!file || fstat(file.get(), &opened) != 0) return refused(failureOf(path));
  if ((asked.st_mode ^ opened.st_mode) & S_IFMT) return refused(fmt::format("{}: has been replaced", path));

  TextFile text;
  text.identity = identityOf(opened);
  if (auto why = readAll(file.get(), path, isFile, text)) return refused(std::move(*why));
  if (fstat(file.get(), &opened) != 0) return refused(failureOf(path));
  if (isFile && (identityOf(opened) != text.identity || text.text.size() != text.identity.size))
    return refused(fmt::format("{}: changed while it was read", path));
  taken_ += text.text.size();
  text.hash = std::hash<std::string>{}(text.text);
  return text;
}

std::optional<std::string> TextReader::whyNot(const std::string& name, const std::string& text) {
  auto why = tooLarge(name, text.size());
  if (!why) why = memory_.whyNot(name, text);
  if (!why) taken_ += text.size();
  return why;
}

std::optional<std::string> TextReader::readAll(int file, const std::string& path, bool isFile,
                                               TextFile& text) const {
  if (auto why = tooLarge(path, isFile ? text.identity.size : 0)) return why;
  constexpr size_t piece = size_t{64} << 10;
  // Reading more than the size finds out whether the file has grown.
  if (isFile) text.text.reserve(text.identity.size + piece);
  for (;;) {
    const size_t had = text.text.size();
    text.text.resize(had + piece);
    const ssize_t got = ::read(file, text.text.data() + had, piece);
    text.text.resize(had + (got > 0 ? static_cast<size_t>(got) : 0));
    if (got == 0) return std::nullopt;
    if (got < 0 && errno != EINTR) return failureOf(path);
    if (auto why = tooLarge(path, text.text.size())) return why;
    if (isFile && text.text.size() > text.identity.size) return std::nullopt;
  }
}

std::optional<std::string> TextReader::tooLarge(const std::string& path, uint64_t octets) const {
  if (octets > limits_.file) {
    return fmt::format("{}: is larger than the {:g} MiB that a configuration text may have", path,
                       static_cast<double>(limits_.file) / mebi);
  }
  if (octets + taken_ > limits_.all) {
    return fmt::format("{}: with the texts before it is more than the {:g} MiB that all may have", path,
                       static_cast<double>(limits_.all) / mebi);
  }
  return std::nullopt;
}

std::optional<std::string> MemoryEstimate::whyNot(const std::string& name, const std::string& text) {
  // The most octets that a rule, a remark or a binding takes while a change is carried out: in the model, the
  // difference, the lists of the source and the merged lists, the compiled form, the status, and in the
  // copies for a state file. bench/README.md tells how it was measured.
  constexpr uint64_t ofLine = 3000;
  // The shortest statement that takes memory of its own ("deny any").
  constexpr size_t shortest = 8;
  // The most octets of one combination of members of groups, in the model, the lists and their copies.
  constexpr uint64_t ofCombination = 600;
  uint64_t lines = 0, withGroups = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const auto line = std::string_view(text).substr(at, end - at);
    if (line.size() >= shortest) ++lines;
    if (namesGroups(line)) ++withGroups;
    at = end + 1;
  }
  const uint64_t combinations =
      std::min<uint64_t>(withGroups * Config::mostCombinations, Config::mostCombinationsOfAll);
  const uint64_t all = octets_ + lines * ofLine + combinations * ofCombination + 2 * text.size();
  if (auto why = whyNoMemory(all)) {
    return fmt::format("{}: its {} lines{} would take {}", name, lines,
                       octets_ == 0 ? "" : " and the texts before it", *why);
  }
  octets_ = all;
  return std::nullopt;
}

}  // namespace Agent
