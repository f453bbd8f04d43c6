#include "../../support/Sanitizers.h"
#include "../config/RandomText.h"
#include "PermittedSet.h"
#include "Support.h"

#include <agent/models/Writer.h>

#include <map>

namespace Models {
namespace {

struct Kind {
  Acl::AclType type;
  const char* header;
  const char* rule;  ///< the form of its rules
};
constexpr Kind kinds[] = {{Acl::AclType::ip, "ip access-list A", "{ip rule}"},
                          {Acl::AclType::ipv6, "ipv6 access-list A", "{ipv6 rule}"},
                          {Acl::AclType::mac, "mac access-list A", "{mac rule}"}};
constexpr Format models[] = {Format::ietf, Format::openConfig, Format::sonic};

/// Those that rules name.
constexpr const char* groups =
    "object-group network G4\n host 192.0.2.1\n 198.51.100.0/25\nobject-group network H4\n range 10.0.0.3 "
    "10.0.0.9\n group-object G4\n"
    "object-group network N\nobject-group network G6\n host 2001:db8::1\nobject-group service S\n tcp eq 80 "
    "443\n udp\n"
    "object-group service P\n tcp eq 80\n tcp gt 1023\n";

std::string randomRule(const Kind& kind, TestSupport::Dice& dice) {
  return Config::randomForm(kind.rule, dice);
}

std::optional<Config::Model> modelOf(const Kind& kind, const std::vector<std::string>& rules) {
  std::string text = fmt::format("{}{}\n", groups, kind.header);
  uint32_t number = 0;
  for (const auto& rule : rules)
    text += fmt::format("{} {}\n", number += 10, rule.substr(rule.find_first_of("pd")));
  return Config::read({{"t", text}}).model;
}

/// What a document that was written is read as.
Config::Model readAgain(const Written& written) {
  auto result = read({{"t", written.document}});
  EXPECT_TRUE(result.model) << (result.model ? "" : result.mistakes.at(0).str()) << "\n" << written.document;
  return result.model.value_or(Config::Model());
}

bool isSayable(const Kind& kind, const std::string& rule, Format format) {
  const auto model = modelOf(kind, {rule});
  return model && write(*model, format, false).refused.empty();
}

TEST(RoundTrip, KeepsEveryVerdict) {
  for (const Kind& kind : kinds) {
    const Proof::RuleSets sets(kind.type, {Kelp::Duration(3600)});
    for (const Format format : models) {
      if (kind.type == Acl::AclType::mac && format == Format::sonic) continue;
      int compared = 0, sameNumbers = 0;
      for (int seed = 0; seed < TestSupport::casesOf(40); ++seed) {
        TestSupport::Dice dice(seed);
        std::vector<std::string> rules;
        for (int i = 0; i < 60 && rules.size() < 6; ++i) {
          auto rule = randomRule(kind, dice);
          if (isSayable(kind, rule, format)) rules.push_back(std::move(rule));
        }
        const auto model = modelOf(kind, rules);
        ASSERT_TRUE(model);
        const auto written = write(*model, format, false);
        ASSERT_TRUE(written.refused.empty()) << written.refused[0];
        const auto again = readAgain(written);
        ASSERT_EQ(again.lists.size(), 1u);
        const auto &before = model->lists.begin()->second, &after = again.lists.begin()->second;
        EXPECT_TRUE(permitted(before, sets) == permitted(after, sets))
            << Config::textOf(*model) << Config::textOf(again) << written.document;
        EXPECT_TRUE(write(again, format, false).document == written.document) << written.document << "of\n"
                                                                              << Config::textOf(again);
        compared += static_cast<int>(before.rules.size());
        sameNumbers += before.rules.size() == after.rules.size();
      }
      EXPECT_GT(compared, TestSupport::casesOf(100)) << kind.header << " " << static_cast<int>(format);
      EXPECT_GT(sameNumbers, TestSupport::sanitizers ? -1 : 3)
          << kind.header << " " << static_cast<int>(format);
    }
  }
}

TEST(RoundTrip, NeverWidensWhatIsLeftOut) {
  for (const Kind& kind : kinds) {
    const Proof::RuleSets sets(kind.type, {Kelp::Duration(3600)});
    for (const Format format : models) {
      int leftOut = 0, refused = 0;
      for (int seed = 0; seed < TestSupport::casesOf(60); ++seed) {
        TestSupport::Dice dice(seed);
        std::vector<std::string> rules;
        for (int i = 0; i < 4; ++i) rules.push_back(randomRule(kind, dice));
        const auto model = modelOf(kind, rules);
        if (!model) continue;
        const auto written = write(*model, format, true);
        leftOut += !written.leftOut.empty();
        refused += !written.refused.empty();
        EXPECT_EQ(written.document.empty(), !written.refused.empty());
        if (!written.refused.empty()) continue;
        const auto again = readAgain(written);
        for (const auto& [key, list] : again.lists) {
          const auto opened = permitted(list, sets) - permitted(model->lists.at(key), sets);
          EXPECT_TRUE(opened.isEmpty()) << Config::textOf(*model) << written.document;
        }
      }
      EXPECT_GT(leftOut, TestSupport::casesOf(5)) << kind.header;
      EXPECT_GE(refused, kind.type == Acl::AclType::mac ? 0 : TestSupport::casesOf(5)) << kind.header;
    }
  }
}

}  // namespace
}  // namespace Models
