#include <Velo/Mirroring.h>
#include <agent/show/ListReport.h>
#include <agent/show/Report.h>
#include <gmock/gmock.h>

#include <sstream>

namespace {

using namespace Agent;
using testing::HasSubstr;
using testing::Not;

Report reportOf(std::vector<RuleReport> rules) {
  Report report;
  ListReport list;
  list.name = "A";
  list.sources = {"cli"};
  list.rules = std::move(rules);
  report.lists.push_back(std::move(list));
  return report;
}

std::string lineWith(const std::string& text, const std::string& what) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(what) != std::string::npos) return line;
  }
  return "";
}

TEST(ReportText, TimesAreUtcAndRoundedToMicroseconds) {
  struct Row {
    const char* why;
    double time;
    const char* shown;
  };
  for (const Row& row :
       {Row{"the nearest microsecond, not the one before", 1.000001, "1970-01-01 00:00:01.000001"},
        Row{"late times have few digits left", 1700000000.000001, "2023-11-14 22:13:20.000001"},
        Row{"rounding carries into the second", 1.9999999, "1970-01-01 00:00:02.000000"},
        Row{"the beginning of the epoch", 0, "1970-01-01 00:00:00.000000"},
        Row{"before it", -0.5, "1969-12-31 23:59:59.500000"},
        Row{"behind 32 bits", 4294967297.25, "2106-02-07 06:28:17.250000"}}) {
    EXPECT_THAT(reportText(reportOf({{10, "permit ip any any", "", "1", {1, 0, row.time}}}), false),
                HasSubstr(row.shown))
        << row.why;
  }
}

TEST(ReportText, CountsStandBelowEachOtherAlsoBesideLongRulesAndLargeNumbers) {
  std::string ports = "permit tcp any any eq";
  for (int i = 0; i < 10; ++i) ports += " 6553" + std::to_string(i % 6);
  const std::string longRule = ports + " log mirror session A-SESSION-WITH-A-NAME-THAT-IS-LONG";
  const std::string text =
      reportText(reportOf({{10, longRule, "", "1", {7, 0, 1.0}},
                           {4294967295, "deny ip any any", "", "2", {98765432109, 5, 1.0}}}),
                 false);
  const std::string first = lineWith(text, "        10 ");
  const std::string last = lineWith(text, "4294967295 ");
  EXPECT_EQ(first.find("1970-"), last.find("1970-"));
  EXPECT_EQ(first.find(" 7 ") + 1, last.find("98765432109") + 10) << "the last digits stand below each other";
  EXPECT_LT(first.size(), 160u) << "the rule was broken";
  std::string joined;
  std::istringstream words(text);
  for (std::string word; words >> word;) joined += word + " ";
  EXPECT_THAT(joined, HasSubstr("A-SESSION-WITH-A-NAME-THAT-IS-LONG")) << "nothing of it is lost";
}

TEST(ReportText, AWordLongerThanALineIsBrokenToo) {
  const std::string word(300, 'x');
  const std::string text =
      reportText(reportOf({{10, "permit ip any any mirror session " + word, "", "1", {}}}), false);
  EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 300 + std::count(text.begin(), text.end(), 'X'));
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) EXPECT_LT(line.size(), 160u);
}

TEST(ReportText, ColourOnlyWhenAskedFor) {
  Report report = reportOf({{10, "permit ip any any", "a remark\nof two lines", "1", {}}});
  report.undefined.push_back(
      ListReport{Acl::AclType::mac, "GONE", {}, {{"eth1", Acl::AclDirection::in}}, {}, {}});
  report.drops["Drop"]["Velo::Acl"]["dropping pkt"] = 3;
  report.ports["eth1"] = {};
  const std::string plain = reportText(report, false);
  std::string coloured = reportText(report, true);
  EXPECT_THAT(plain, Not(HasSubstr("\x1b")));
  EXPECT_THAT(coloured, HasSubstr("\x1b["));
  for (size_t at; (at = coloured.find('\x1b')) != std::string::npos;)
    coloured.erase(at, coloured.find('m', at) - at + 1);
  EXPECT_EQ(coloured, plain) << "the same but for the colours";
  EXPECT_THAT(plain, HasSubstr("remark of two lines"));
}

TEST(ReportText, ColumnsOfTheTablesAreAsWideAsTheirWidestCell) {
  Report report;
  report.ports["a-port-with-quite-a-long-name-0/1/2"].received = 1234567890123;
  report.ports["eth1"].received = 7;
  report.ports["eth1"].droppedOut = 3;
  const std::string text = reportText(report, false);
  const std::string heading = lineWith(text, "received"), wide = lineWith(text, "a-port"),
                    narrow = lineWith(text, "eth1");
  EXPECT_EQ(heading.find("received") + 8, wide.find("1234567890123") + 13);
  EXPECT_EQ(narrow.find('7') + 1, wide.find("1234567890123") + 13);
  EXPECT_EQ(narrow.size(), wide.size());
}

TEST(ReportText, OfAListWithImplicitIdTheLastLineHasCounts) {
  Report report = reportOf({});
  report.lists[0].implicitDrop = MatchCount{4, 2, 1.0};
  EXPECT_THAT(lineWith(reportText(report, false), "matches no rule"),
              testing::ContainsRegex("dropped\\) +4 +2 +0  1970-"));
}

TEST(ListReport, OfWhatIsDeniedOnTheWayOutThereIsNoCopy) {
  const auto& sessions = Velo::MirroringStepHelper::singleton();
  const MatchCount met{4, 2, 1.0};
  Acl::IpRule rule;
  rule.action = Acl::Action::permit;
  EXPECT_EQ(mirroredOf(Acl::IpRuleConfig(rule), met), std::nullopt) << "a rule without a session";
  rule.mirrorSession = "S";
  EXPECT_EQ(mirroredOf(Acl::IpRuleConfig(rule), met), 0u) << "a session that is not defined";
  sessions->sessionIs("S", {});
  EXPECT_EQ(mirroredOf(Acl::IpRuleConfig(rule), met), 6u);
  rule.action = Acl::Action::deny;
  EXPECT_EQ(mirroredOf(Acl::IpRuleConfig(rule), met), 4u);
  sessions->sessionDel("S");
}

}  // namespace
