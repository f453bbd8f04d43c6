#include <Classify/Find.h>
#include <agent/core/Memory.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>

#include "classbench/Files.h"
#include "classbench/Generate.h"
#include "classbench/Peer.h"
#include "classbench/Sections.h"

namespace {

using namespace Bench;

struct Options {
  std::string rules, directory, json;
  std::vector<std::string> traces;
  std::vector<size_t> sizes;
  std::vector<Style> styles{std::begin(Bench::styles), std::end(Bench::styles)};
  uint64_t seeds = 1;
  size_t grow = 0;
  std::vector<std::string> sections;
};

struct Section {
  const char* name;
  void (*measure)(Run&, const std::vector<RuleSet>&);
  bool ofSets;  ///< measures the sets at hand, from files or generated
};
constexpr Section allSections[] = {
    {"sets", measureSets, true},    {"changes", measureChanges, true}, {"ip6", measureIp6, true},
    {"path", measurePath, true},    {"mac", measureMac, false},        {"fields", measureFields, false},
    {"worst", measureWorst, false}, {"small", measureSmall, false},
};

std::vector<RuleSet> grown(const std::vector<RuleSet>& sets, const Options& options, Run& run) {
  std::vector<RuleSet> all;
  for (const RuleSet& set : sets) {
    for (uint64_t seed = run.seed; seed < run.seed + options.seeds; ++seed) {
      run.progress(fmt::format("growing {}, seed {}", set.name, seed));
      all.push_back(grownSet(set, options.grow, run.headers, seed));
    }
  }
  return all;
}

std::vector<RuleSet> setsOf(const Options& options, Run& run) {
  std::vector<RuleSet> sets;
  if (!options.directory.empty()) sets = readSets(options.directory);
  if (!options.rules.empty())
    sets.push_back(readSet(options.rules, {options.traces.begin(), options.traces.end()}));
  if (options.grow > 0) sets = grown(sets, options, run);
  std::vector<size_t> sizes = options.sizes;
  if (sizes.empty() && sets.empty()) sizes = {100, 1000, 10000, 100000};
  for (const size_t size : sizes) {
    for (const Style style : options.styles) {
      for (uint64_t seed = run.seed; seed < run.seed + options.seeds; ++seed) {
        run.progress(fmt::format("generating {} rules of style {}, seed {}", size, nameOf(style), seed));
        sets.push_back(generateSet(style, size, run.headers, seed));
      }
    }
  }
  return sets;
}

int measure(const Options& options, Run& run) {
  const bool files = !options.directory.empty() || !options.rules.empty();
  const auto wanted = [&](const Section& section) {
    if (options.sections.empty()) return section.ofSets || !files;
    return std::find(options.sections.begin(), options.sections.end(), section.name) !=
           options.sections.end();
  };
  std::vector<RuleSet> sets;
  if (std::any_of(std::begin(allSections), std::end(allSections),
                  [&](const Section& section) { return section.ofSets && wanted(section); })) {
    sets = setsOf(options, run);
  }
  for (const Section& section : allSections) {
    if (wanted(section)) section.measure(run, sets);
  }
  fmt::print("{}", run.goals().text(run.coloured()));
  if (options.json.empty()) return 0;
  std::ofstream out(options.json);
  out << run.json().dump(2) << '\n';
  out.close();
  if (!out) throw FileError(options.json + ": cannot be written");
  return 0;
}

/// What is measured, and on which sets.
void addSets(CLI::App& app, Options& options, Run& run) {
  app.add_option("--rules", options.rules, "a ClassBench rule file, plain or .gz")->check(CLI::ExistingFile);
  app.add_option("--trace", options.traces, "traces for it")->check(CLI::ExistingFile)->needs("--rules");
  app.add_option("--dir", options.directory, "every NAME.rules of a directory with its NAME.*trace*")
      ->check(CLI::ExistingDirectory);
  app.add_option(
         "--sizes", options.sizes,
         "rules of the generated sets, beside those of files; without files 100, 1,000, 10,000 and 100,000")
      ->delimiter(',')
      ->check(CLI::Range(size_t{1}, size_t{1000000}));
  app.add_option("--styles", options.styles, "of the generated sets: acl, fw, ipc")
      ->delimiter(',')
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, Style>{{"acl", Style::acl}, {"fw", Style::fw}, {"ipc", Style::ipc}}));
  app.add_option("--headers", run.headers, "headers of a generated trace")->check(CLI::PositiveNumber);
  app.add_option("--seed", run.seed, "of everything that is generated");
  app.add_option("--seeds", options.seeds, "sets that are generated of each style and size, a seed each")
      ->check(CLI::Range(uint64_t{1}, uint64_t{1000}));
  app.add_option("--grow", options.grow,
                 "in place of the sets of files, such that are so many times as large")
      ->check(CLI::Range(size_t{1}, size_t{1000}));
}

void unitIs(const Classify::Unit& unit) {
  const Classify::Kernels* kernels = Classify::kernelsOf(unit);
  if (!kernels) throw CLI::ValidationError("--unit", "this processor has no such unit");
  Classify::kernels = kernels;
}

/// How it is measured, against whom, and where the figures go.
void addMeasuring(CLI::App& app, Options& options, Run& run) {
  std::vector<std::string> names;
  for (const Section& section : allSections) names.push_back(section.name);
  app.add_option("--against", run.against, "peers that the sets are measured with: rte_acl, DBTable")
      ->delimiter(',')
      ->check(CLI::IsMember({"rte_acl", "DBTable"}));
  app.add_option("--rounds", run.rounds, "times that every contender is timed")->check(CLI::Range(7, 1000));
  app.add_option("--only", options.sections, fmt::format("what to measure: {}", fmt::join(names, ", ")))
      ->delimiter(',')
      ->check(CLI::IsMember(names));
  app.add_option_function<Classify::Unit>(
         "--unit", unitIs, "what our look-ups run on: portable, avx2, avx512; the best one otherwise")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, Classify::Unit>{{"portable", Classify::Unit::portable},
                                                {"avx2", Classify::Unit::avx2},
                                                {"avx512", Classify::Unit::avx512}}));
  app.add_flag_callback(
      "--ordinary-pages", [] { peerPages = Pages::ordinary; }, "no large pages for librte_acl");
  app.add_option("--json", options.json, "also write all figures to a file");
}

}  // namespace

int main(int argc, char** argv) {
  Agent::useLargePages();
  Options options;
  Run run;
  CLI::App app(
      "Times access lists against librte_acl and DBTable: one packet a call, headers in, first matching rule "
      "out.");
  addSets(app, options, run);
  addMeasuring(app, options, run);
  CLI11_PARSE(app, argc, argv);
  try {
    return measure(options, run);
  } catch (const std::exception& error) {
    run.progress("");
    fmt::print(stderr, "velo-bench: {}\n", error.what());
    return 1;
  }
}
