#include <Blip/Ring.h>
#include <Plog/Plog.h>
#include <fmt/format.h>

#include <memory>
#include <utility>

namespace Plog {

namespace {

struct State {
  // Shared, so that a stream that replaces itself lives until it returns.
  std::shared_ptr<const Stream> stream;
  bool writing = false;
};

State& state() {
  static State& instance = *new State;
  return instance;
}

}  // namespace

Stream streamIs(Stream stream) {
  auto next = stream ? std::make_shared<const Stream>(std::move(stream)) : nullptr;
  const auto before = std::exchange(state().stream, std::move(next));
  return before ? *before : Stream();
}

Stream fileStream(std::FILE* file) {
  return [file](const Record& record) {
    std::string line = streamLine(record);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), file);
    std::fflush(file);
  };
}

void write(const Record& record) {
  Blip::ring().append(ringLine(record));
  State& to = state();
  if (!to.stream || to.writing) return;
  struct Writing {
    bool& flag;
    explicit Writing(bool& f) : flag(f) { flag = true; }
    ~Writing() { flag = false; }
  } writing(to.writing);
  const auto stream = to.stream;
  (*stream)(record);
}

std::string streamLine(const Record& r) {
  return fmt::format("{:.6f} {}/{} {}: {}", r.time.seconds(), r.facility, r.level, r.function, r.text);
}

std::string ringLine(const Record& record) {
  std::string line = streamLine(record);
  if (!record.file.empty()) line += fmt::format(" ({}:{})", record.file, record.line);
  return line;
}

}  // namespace Plog
