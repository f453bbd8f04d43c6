#include "classbench/Files.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <string_view>

namespace Bench {

namespace {

using std::filesystem::path;

/// The numbers of a line one after the other, whatever stands between them.
class Line {
 public:
  Line(std::string_view text, const path& file, size_t number) : rest_(text), file_(file), number_(number) {}

  template <class T = uint32_t>
  T number(T most) {
    while (!rest_.empty() && !isDigit(rest_.front()) && rest_.front() != '-') rest_.remove_prefix(1);
    int base = 10;
    if (rest_.starts_with("0x") || rest_.starts_with("0X")) base = 16, rest_.remove_prefix(2);
    T value{};
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value, base);
    if (error != std::errc() || value > most) fail(fmt::format("a number up to {} is missing", most));
    rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
    return value;
  }
  bool hasMore() const { return std::any_of(rest_.begin(), rest_.end(), isDigit); }

  Prefix prefix() {
    uint32_t address = 0;
    for (int i = 0; i < 4; ++i) address = address * 256 + number(255u);
    Prefix made{0, static_cast<uint8_t>(number(32u))};
    made.address = address & made.mask();
    return made;
  }
  PortRange ports() {
    const auto low = static_cast<uint16_t>(number(65535u)), high = static_cast<uint16_t>(number(65535u));
    if (low > high) fail("a range of ports ends before it starts");
    return {low, high};
  }
  [[noreturn]] void fail(std::string_view why) const {
    throw FileError(fmt::format("{}:{}: {}", file_.string(), number_, why));
  }

 private:
  static bool isDigit(char c) { return c >= '0' && c <= '9'; }

  std::string_view rest_;
  const path& file_;
  const size_t number_;
};

template <class Use>
void eachLine(const path& file, const Use& use) {
  const std::unique_ptr<gzFile_s, int (*)(gzFile)> in(gzopen(file.c_str(), "rb"), gzclose);
  if (!in) throw FileError(fmt::format("{}: cannot be opened", file.string()));
  std::array<char, 1024> buffer;
  for (size_t number = 1; gzgets(in.get(), buffer.data(), buffer.size()); ++number) {
    const std::string_view text = buffer.data();
    if (text.find_first_not_of(" \t\r\n") == text.npos) continue;
    use(Line(text, file, number));
  }
  int error = Z_OK;
  const char* why = gzerror(in.get(), &error);
  if (error != Z_OK && error != Z_STREAM_END) throw FileError(fmt::format("{}: {}", file.string(), why));
}

/// The name of a file without ".gz" and ".rules".
std::string stem(const path& file) {
  std::string name = file.filename();
  for (const std::string_view end : {".gz", ".rules"}) {
    if (name.ends_with(end)) name.resize(name.size() - end.size());
  }
  return name;
}

}  // namespace

std::vector<TupleRule> readRules(const path& file) {
  std::vector<TupleRule> rules;
  eachLine(file, [&](Line line) {
    TupleRule rule;
    rule.source = line.prefix();
    rule.destination = line.prefix();
    rule.sourcePort = line.ports();
    rule.destinationPort = line.ports();
    rule.protocol = static_cast<uint8_t>(line.number(255u));
    const uint32_t mask = line.number(255u);
    if (mask != 0 && mask != 255) line.fail("a protocol mask is 0x00 or 0xFF");
    rule.protocolNamed = mask != 0;
    if (!rule.protocolNamed) rule.protocol = 0;
    rules.push_back(rule);
  });
  return rules;
}

Trace readTrace(const path& file, const std::vector<TupleRule>& rules) {
  Trace trace{stem(file), {}, {}};
  eachLine(file, [&](Line line) {
    TupleHeader header;
    header.source = line.number(~uint32_t{0});
    header.destination = line.number(~uint32_t{0});
    header.sourcePort = static_cast<uint16_t>(line.number(65535u));
    header.destinationPort = static_cast<uint16_t>(line.number(65535u));
    header.protocol = static_cast<uint8_t>(line.number(255u));
    trace.headers.push_back(header);
    const auto most = static_cast<int32_t>(rules.size()) - 1;
    if (line.hasMore()) line.number<int64_t>(INT32_MAX);
    if (line.hasMore()) trace.first.push_back(line.number<int32_t>(most));
  });
  if (trace.first.size() != trace.headers.size()) {
    trace.first = firstRules(rules, trace.headers, Ports::ofEveryProtocol);
  }
  return trace;
}

RuleSet readSet(const path& rules, const std::vector<path>& traces) {
  RuleSet set{stem(rules), readRules(rules), {}};
  for (const path& file : traces) {
    Trace trace = readTrace(file, set.rules);
    if (trace.name.starts_with(set.name + ".")) trace.name.erase(0, set.name.size() + 1);
    set.traces.push_back(std::move(trace));
  }
  return set;
}

std::vector<RuleSet> readSets(const path& directory) {
  std::vector<path> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error))
    files.push_back(entry.path());
  if (error) throw FileError(fmt::format("{}: {}", directory.string(), error.message()));
  std::sort(files.begin(), files.end());
  std::vector<RuleSet> sets;
  for (const path& rules : files) {
    const std::string name = rules.filename();
    if (!name.ends_with(".rules") && !name.ends_with(".rules.gz")) continue;
    std::vector<path> traces;
    for (const path& file : files) {
      const std::string other = file.filename();
      if (other.starts_with(stem(rules) + ".") && other.find("trace") != other.npos) traces.push_back(file);
    }
    sets.push_back(readSet(rules, traces));
  }
  std::stable_sort(sets.begin(), sets.end(),
                   [](const RuleSet& a, const RuleSet& b) { return a.rules.size() < b.rules.size(); });
  return sets;
}

}  // namespace Bench
