#include "../support/Run.h"
#include "CaseFile.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

namespace {

using namespace TestSupport;
using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

const fs::path casesDir = fs::path(VELO_SOURCE_DIR) / "tests/agent/replay/cases";

/// A run of a case: the files it was given, what it printed, and what the case says, line by line.
class CaseRun {
 public:
  explicit CaseRun(const CaseFile& given) : case_(given) {
    std::vector<std::string> arguments = {"replay", "--json", "--verdicts", dir_ / "verdicts"};
    for (const auto& [name, text] : case_.configs) {
      arguments.insert(arguments.end(), {"--config", put(name + ".acl", text)});
    }
    if (!case_.dir.empty()) {
      fs::create_directory(dir_ / "dir");
      for (const auto& [name, text] : case_.dir) put("dir/" + name, text);
      arguments.insert(arguments.end(), {"--config-dir", dir_ / "dir"});
    }
    arguments.insert(arguments.end(), case_.options.begin(), case_.options.end());
    for (const auto& frame : case_.frames) {
      auto known = std::find(ports_.begin(), ports_.end(), frame.text.port);
      if (known == ports_.end()) ports_.push_back(frame.text.port);
      captures_[frame.text.port].push_back(frame.text.captured);
    }
    for (const std::string& port : ports_) {
      writeFile(dir_ / (port + ".pcap"), pcapBytes(captures_[port]));
      arguments.insert(arguments.end(), {"--port", port + "=" + (dir_ / (port + ".pcap"))});
    }
    for (const std::string& port : watched()) {
      arguments.insert(arguments.end(), {"--out", port + "=" + (dir_ / (port + ".out"))});
    }
    ran_ = runVelo(arguments);
    if (ran_.status != 0) return;
    report_ = Json::parse(ran_.out);
    std::istringstream lines(readFile(dir_ / "verdicts"));
    for (std::string line; std::getline(lines, line);) verdicts_.push_back(Json::parse(line));
  }

  const Ran& ran() const { return ran_; }
  const Json& report() const { return report_; }
  const std::vector<Json>& verdicts() const { return verdicts_; }

  /// The verdict of a frame in the case's own words.
  std::string verdict(const CaseFile::Frame& frame, size_t numberOnPort) const {
    for (const Json& each : verdicts_) {
      if (each["port"] == frame.text.port && each["frame"] == numberOnPort) return textOf(each);
    }
    return "none";
  }

  /// What the case expects of a frame; without the implicit drops as long as the plugin has no ids for them.
  std::string expected(const std::string& verdict) const {
    const size_t copied = verdict.find("; copied to");
    std::string left = verdict.substr(0, copied);
    const std::string copies = copied == std::string::npos ? "" : verdict.substr(copied);
    if (left.find(" implicit deny") == std::string::npos || implicitIds()) return left + copies;
    const size_t at = left.find_last_of(",:", left.find(" implicit deny"));
    return left.substr(0, at) + copies;
  }

  /// The JSON document as lines.
  std::vector<std::string> reportLines() const {
    std::vector<std::string> lines;
    for (const Json& list : report_["lists"]) {
      const std::string name = fmt::format("{} {}", str(list["type"]), str(list["name"]));
      std::string line = fmt::format("list {}: from {}", name, str(list["source"]));
      if (!list["overridden"].empty()) line += ", over " + joined(list["overridden"]);
      lines.push_back(line + bound(list));
      for (const Json& rule : list["rules"]) {
        lines.push_back(fmt::format("rule {} {}: {}", name, rule["sequence"].dump(), counts(rule)));
        lines.push_back(fmt::format("text {} {}: {}", name, rule["sequence"].dump(), str(rule["text"])));
        if (rule.contains("remark")) {
          std::string remark = str(rule["remark"]);
          for (size_t at; (at = remark.find('\n')) != std::string::npos;) remark.replace(at, 1, " / ");
          lines.push_back(fmt::format("remark {} {}: {}", name, rule["sequence"].dump(), remark));
        }
      }
      if (!list["implicitDrop"].is_null()) {
        lines.push_back(fmt::format("rule {} implicit: {}", name, counts(list["implicitDrop"])));
      }
    }
    for (const Json& list : report_["undefined"]) {
      lines.push_back(fmt::format("undefined {} {}{}", str(list["type"]), str(list["name"]), bound(list)));
    }
    for (const auto& [category, facilities] : report_["drops"].items()) {
      for (const auto& [facility, reasons] : facilities.items()) {
        for (const auto& [reason, count] : reasons.items()) {
          lines.push_back(fmt::format("count {} {} \"{}\": {}", category, facility, reason, count.dump()));
        }
      }
    }
    for (const auto& [name, port] : report_["ports"].items()) {
      lines.push_back(fmt::format("port {}: received {}, dropped in {}, sent {}, dropped out {}, copies {}",
                                  name, port["received"].dump(), port["dropped"]["in"].dump(),
                                  port["sent"].dump(), port["dropped"]["out"].dump(),
                                  port["mirrored"].dump()));
    }
    lines.push_back(fmt::format("total: {} frames, {} passed, {} dropped", report_["frames"].dump(),
                                report_["passed"].dump(), report_["dropped"].dump()));
    for (const std::string& port : watched()) lines.push_back(fmt::format("left {}:{}", port, left(port)));
    return lines;
  }

  bool implicitIds() const {
    for (const Json& list : report_["lists"]) {
      if (!list["implicitDrop"].is_null()) return true;
    }
    return false;
  }

 private:
  std::string put(const std::string& name, const std::string& text) {
    writeFile(dir_ / name, text);
    return dir_ / name;
  }
  static std::string str(const Json& text) { return text.is_null() ? "nowhere" : text.get<std::string>(); }
  static std::string joined(const Json& texts) {
    std::string all;
    for (const Json& text : texts) all += (all.empty() ? "" : ", ") + text.get<std::string>();
    return all;
  }
  static std::string bound(const Json& list) {
    std::string all;
    for (const Json& each : list["bindings"]) {
      all += fmt::format("{}{} {}", all.empty() ? ", bound " : ", ", str(each["interface"]),
                         str(each["direction"]));
    }
    return all;
  }
  static std::string counts(const Json& rule) {
    return fmt::format("in {}, out {}, last {}", rule["matches"]["in"].dump(), rule["matches"]["out"].dump(),
                       rule["lastMatch"].is_null() ? "never" : rule["lastMatch"].dump());
  }

  static std::string textOf(const Json& verdict) {
    std::string text = str(verdict["verdict"]);
    if (text == "drop") text += fmt::format(" {} \"{}\"", str(verdict["direction"]), str(verdict["reason"]));
    const char* separator = ": ";
    for (const Json& hit : verdict["hits"]) {
      const Json& rule = hit["rule"];
      text += fmt::format("{}{} {} {} {} {} {}", separator, str(hit["interface"]), str(hit["direction"]),
                          str(hit["type"]), str(hit["list"]), rule.is_string() ? str(rule) : rule.dump(),
                          str(hit["action"]));
      separator = ", ";
    }
    if (!verdict["mirrored"].empty()) text += "; copied to " + joined(verdict["mirrored"]);
    return text;
  }

  /// The ports of which the case says what left them.
  std::vector<std::string> watched() const {
    std::vector<std::string> ports;
    for (const std::string& line : case_.report) {
      if (line.starts_with("left ")) ports.push_back(line.substr(5, line.find(':') - 5));
    }
    return ports;
  }

  /// The numbers of the frames that left a port, each found by its bytes, length and time.
  std::string left(const std::string& port) const {
    std::string numbers;
    for (const Captured& sent : readPcap(dir_ / (port + ".out"))) {
      size_t number = 0;
      while (number < case_.frames.size() && case_.frames[number].text.captured != sent) ++number;
      numbers += number < case_.frames.size() ? fmt::format(" {}", number + 1) : " changed";
    }
    return numbers;
  }

  const CaseFile& case_;
  const TempDir dir_;
  std::vector<std::string> ports_;
  std::map<std::string, std::vector<Captured>> captures_;
  Ran ran_;
  Json report_;
  std::vector<Json> verdicts_;
};

std::string firstWord(const std::string& line) { return line.substr(0, line.find(' ')); }

class Case : public testing::TestWithParam<std::string> {};

TEST_P(Case, SaysWhatItsFileSays) {
  const std::string path = casesDir / (GetParam() + ".case");
  const CaseFile given = readCase(path);
  ASSERT_FALSE(given.about.empty()) << path << " does not say what it shows";
  const CaseRun run(given);
  ASSERT_EQ(run.ran().status, 0) << run.ran().err;
  EXPECT_EQ(withoutOpenings(run.ran().err), "");

  std::map<std::string, size_t> numbers;
  for (const auto& frame : given.frames) {
    EXPECT_EQ(run.verdict(frame, ++numbers[frame.text.port]), run.expected(frame.verdict))
        << path << ":" << frame.line;
  }
  EXPECT_EQ(run.verdicts().size(), given.frames.size());

  std::set<std::string> kinds;
  std::vector<std::string> expected, said;
  for (const std::string& line : given.report) {
    kinds.insert(firstWord(line));
    if (line.find(" implicit: ") == std::string::npos || run.implicitIds()) expected.push_back(line);
  }
  for (const std::string& line : run.reportLines()) {
    if (kinds.contains(firstWord(line))) said.push_back(line);
  }
  std::sort(expected.begin(), expected.end());
  std::sort(said.begin(), said.end());
  const auto lines = [](const std::vector<std::string>& all) {
    std::string text;
    for (const std::string& line : all) text += line + "\n";
    return text;
  };
  EXPECT_EQ(lines(said), lines(expected)) << path;

  uint64_t passed = 0;
  for (const Json& verdict : run.verdicts()) passed += verdict["verdict"] == "pass";
  EXPECT_EQ(run.report()["frames"], given.frames.size());
  EXPECT_EQ(run.report()["passed"], passed);
  EXPECT_EQ(run.report()["dropped"], given.frames.size() - passed);
}

std::vector<std::string> caseNames() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(casesDir)) {
    if (entry.path().extension() == ".case") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

INSTANTIATE_TEST_SUITE_P(Agent, Case, testing::ValuesIn(caseNames()),
                         [](const auto& each) { return each.param; });

}  // namespace
