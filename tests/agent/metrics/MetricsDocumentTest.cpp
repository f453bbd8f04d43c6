#include <agent/metrics/Table.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "../support/CaptureBytes.h"

#include <regex>
#include <set>

// What docs/metrics.md, the alerts and the dashboard say of metrics is what the table of the program says.

namespace {

using Agent::metrics;

std::string labelsText(std::string_view labels) {
  std::string text;
  for (const char c : labels) text += c == ',' ? std::string("`, `") : std::string(1, c);
  return text.empty() ? "" : "`" + text + "`";
}

TEST(MetricsDocument, HasTheTableOfMetrics) {
  std::string table = "| metric | labels | |\n|---|---|---|\n";
  for (const auto& metric : metrics())
    table += fmt::format("| `{}` | {} | {} |\n", metric.name, labelsText(metric.labels), metric.help);
  const std::string document = TestSupport::readFile(VELO_SOURCE_DIR "/docs/metrics.md");
  if (document.find(table + "\n") == std::string::npos)
    ADD_FAILURE() << "docs/metrics.md is to have this table:\n" << table;
}

TEST(MetricsDocument, NamesAreUniqueAndCountersAreCalledSo) {
  std::set<std::string_view> names;
  for (const auto& metric : metrics()) {
    EXPECT_TRUE(names.insert(metric.name).second) << metric.name;
    EXPECT_EQ(metric.name.ends_with("_total"), metric.kind == Agent::Metric::Kind::counter) << metric.name;
    EXPECT_TRUE(metric.name.starts_with("velo_")) << metric.name;
  }
}

TEST(MetricsDocument, AlertsAndDashboardNameMetricsThatThereAre) {
  std::set<std::string> names;
  for (const auto& metric : metrics()) names.emplace(metric.name);
  for (const char* file : {"alerts.yml", "dashboard.json"}) {
    const std::string text = TestSupport::readFile(fmt::format("{}/packaging/{}", VELO_SOURCE_DIR, file));
    const std::regex word("\\bvelo_\\w+");
    size_t found = 0;
    for (std::sregex_iterator at(text.begin(), text.end(), word), end; at != end; ++at, ++found)
      EXPECT_TRUE(names.contains(at->str())) << file << " names " << at->str();
    EXPECT_GT(found, 5u) << file;
  }
}

}  // namespace
