// What it takes to say of every rule of a list whether it can match and whether anything changes without it;
// with --compare, for which packets a list decides otherwise when one of its rules does.
#include <agent/proof/Comparison.h>
#include <agent/proof/ListAnalysis.h>
#include <fmt/format.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <ctime>

#include "classbench/Files.h"
#include "classbench/Generate.h"
#include "classbench/Packets.h"

namespace {

using namespace Bench;

struct Options {
  std::vector<std::string> files;
  std::string style;
  std::vector<size_t> sizes{1000, 10000, 100000};
  double seconds = 120;
  size_t memory = 1024;
  bool permit = false, compare = false;
};

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <class Rule>
Config::List listOf(std::vector<Rule> rules, bool permit) {
  Config::List list;
  list.type = std::is_same_v<Rule, Acl::IpRule> ? Acl::AclType::ip : Acl::AclType::ipv6;
  for (Rule& rule : rules) {
    rule.action = permit || rule.sequence % 3 != 0 ? Acl::Action::permit : Acl::Action::deny;
    list.rules.emplace(rule.sequence, std::move(rule));
  }
  return list;
}

size_t largestProcess() {
  rusage use{};
  getrusage(RUSAGE_SELF, &use);
  return static_cast<size_t>(use.ru_maxrss) >> 10;
}

/// With the list in which the middle rule does otherwise.
void measureCompare(const std::string& name, const Config::List& list, const Options& options) {
  Config::List changed = list;
  auto middle = changed.rules.begin();
  std::advance(middle, static_cast<long>(changed.rules.size() / 2));
  std::visit(
      [](auto& rule) {
        const bool permits = rule.action == Acl::Action::permit;
        rule.action = permits ? Acl::Action::deny : Acl::Action::permit;
      },
      middle->second);
  const double begin = cpuSeconds();
  const Proof::RuleSets sets(list.type, {Kelp::Duration(options.seconds), options.memory << 20});
  std::string found;
  try {
    const auto compared = Proof::compare(&list, &changed, sets, 20);
    found =
        fmt::format("{} boxes opened, {} closed", compared.opened.boxes.size(), compared.closed.boxes.size());
  } catch (const Proof::LimitReached& limit) {
    found = limit.what();
  }
  fmt::print("{:<16} {:>6} rules compared {:>7.3f} s {:>5} MiB, process {:>5} MiB; {}\n", name,
             list.rules.size(), cpuSeconds() - begin, sets.sets().memory() >> 20, largestProcess(), found);
  std::fflush(stdout);
}

void measure(const std::string& name, const Config::List& list, const Options& options) {
  if (options.compare) return measureCompare(name, list, options);
  const double begin = cpuSeconds();
  const Proof::RuleSets sets(list.type, {Kelp::Duration(options.seconds), options.memory << 20});
  const auto found = Proof::analyse(list, sets);
  const double took = cpuSeconds() - begin;
  size_t count[3] = {};
  for (const auto& each : found.rules) ++count[static_cast<size_t>(each.oddity)];
  fmt::print(
      "{:<16} {:>6} rules {:>6} judged {:>7.2f} s {:>5} MiB, process {:>5} MiB; {} impossible, {} covered, "
      "{} redundant{}\n",
      name, list.rules.size(), found.judged, took, sets.sets().memory() >> 20, largestProcess(), count[0],
      count[1], count[2], found.cutOff.empty() ? "" : "; " + found.cutOff);
  std::fflush(stdout);
}

void measureBoth(const std::string& name, const std::vector<TupleRule>& rules, const Options& options) {
  measure(name, listOf(ipRules(rules), options.permit), options);
  measure(name + " IPv6", listOf(ip6Rules(rules, Lift::low), options.permit), options);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Measures the analysis of lists.");
  app.add_option("files", options.files, "rule files; none: sets of its own");
  app.add_option("--sizes", options.sizes, "of its own sets")->delimiter(',');
  app.add_option("--seconds", options.seconds, "after which an analysis is cut off");
  app.add_option("--memory", options.memory, "MiB beyond which it is");
  app.add_option("--style", options.style, "only sets of this one: acl, fw, ipc");
  app.add_flag("--compare", options.compare, "compare lists with one rule that does otherwise");
  app.add_flag("--permit", options.permit, "all rules permit; else every third one denies");
  CLI11_PARSE(app, argc, argv);
  for (const std::string& file : options.files)
    measureBoth(std::filesystem::path(file).stem().string(), readRules(file), options);
  if (!options.files.empty()) return 0;
  for (const size_t size : options.sizes) {
    for (const Style style : styles) {
      if (!options.style.empty() && options.style != nameOf(style)) continue;
      measureBoth(fmt::format("{} {}", nameOf(style), size), generateRules(style, size, 1), options);
    }
  }
}
