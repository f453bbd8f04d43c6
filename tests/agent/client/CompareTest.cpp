#include <gmock/gmock.h>

#include "../support/CaptureBytes.h"
#include "../support/Run.h"

// The words of velo compare: the real program.

namespace {

using namespace TestSupport;

struct ComparedTexts {
  const char *before, *after, *told;
  int status;
};

void expectTold(const std::vector<ComparedTexts>& rows) {
  const TempDir dir;
  const std::string before = dir / "before.acl", after = dir / "after.acl";
  for (const ComparedTexts& row : rows) {
    writeFile(before, row.before);
    writeFile(after, row.after);
    const Ran ran = runVelo({"compare", before, after});
    EXPECT_EQ(ran.out, row.told) << row.before << "---\n" << row.after << ran.err;
    EXPECT_EQ(ran.status, row.status) << row.told;
    const auto document = nlohmann::ordered_json::parse(runVelo({"compare", before, after, "--json"}).out);
    EXPECT_EQ(document.at("same"), row.status == 0) << row.told;
  }
}

TEST(Compare, TellsListsThatComeGoOrAreCalledOtherwise) {
  expectTold({
      {"ip access-list A\n 10 permit tcp any any\ninterface eth1\n ip access-group A in\n",
       "ip access-list B\n 10 permit tcp any any\ninterface eth1\n ip access-group B in\n",
       "ip access-list A is called B and has the same rules\nno verdict changes\n", 0},
      {"ip access-list A\n 10 permit tcp any any\n",
       "ip access-list A\n 10 permit tcp any any\nmac access-list N\n",
       "mac access-list N is new\nno verdict changes\n", 0},
      {"ip access-list A\n 10 permit tcp any any\nipv6 access-list A\n 10 permit tcp any any\n",
       "ip access-list A\n 10 permit tcp any any\n",
       "ipv6 access-list A is no longer there\nno verdict changes\n", 0},
      {"ip access-list A\n 10 permit tcp any any\n", "ipv6 access-list A\n 10 permit tcp any any\n",
       "ip access-list A is no longer there\nipv6 access-list A is new\nno verdict changes\n", 0},
      {"ip access-list A\n", "ipv6 access-list B\n",
       "ip access-list A is no longer there\nipv6 access-list B is new\nno verdict changes\n", 0},
      // One that is called otherwise is another one for each of two.
      {"ip access-list A\n 10 permit ip any any\nip access-list B\n 10 permit ip any any\n",
       "ip access-list C\n 10 permit ip any any\n",
       "ip access-list A is called C and has the same rules\nip access-list B is no longer there\n"
       "no verdict changes\n",
       0},
      {"ip access-list A\n 10 permit udp any any\ninterface eth1\n ip access-group A in\n",
       "ip access-list A\n 10 permit udp any any\n",
       "eth1 in: ip access-group, before: A, after: no list\n  passes, and was dropped:\n    ip any any not udp\n"
       "      before: no rule\n      after: no list\n      for example: tcp 0.0.0.0:1024 > 0.0.0.0:80 syn\n"
       "  meets the same verdict, and is counted by another rule:\n    udp any any\n"
       "      before: rule 10 (permit udp any any)\n      after: no list\n"
       "      for example: udp 0.0.0.0:1024 > 0.0.0.0:80\n",
       1},
  });
}

TEST(Compare, TellsWhatChangesBesidesVerdicts) {
  const std::string copied =
      "ip access-list A (bound nowhere)\n  meets the same verdict, and is copied elsewhere:\n    tcp any any\n"
      "      before: rule 10 (permit tcp any any)\n      after: rule 10 (permit tcp any any mirror session S)\n"
      "      for example: tcp 0.0.0.0:1024 > 0.0.0.0:80 syn\n";
  const std::string counted =
      "ip access-list A (bound nowhere)\n  meets the same verdict, and is counted by another rule:\n"
      "    tcp any any eq 1\n      before: rule 10 (permit tcp any any)\n"
      "      after: rule 5 (permit tcp any any eq 1)\n      for example: tcp 0.0.0.0:1024 > 0.0.0.0:1 syn\n";
  const char* one = "ip access-list A\n 10 permit tcp any any\n";
  expectTold({
      {one, "ip access-list A\n 10 permit tcp any any mirror session S\n",
       (copied + "no verdict changes, only where packets are copied\n").c_str(), 0},
      {one, "ip access-list A\n 5 permit tcp any any eq 1\n 10 permit tcp any any\n",
       (counted + "no verdict changes, only which rules count\n").c_str(), 0},
      {"ip access-list A\n 10 permit tcp any any\n 20 permit udp any any\n",
       "ip access-list A\n 10 permit tcp any any log\n 20 permit udp any any mirror session S\n",
       "ip access-list A (bound nowhere)\n  meets the same verdict, and is copied elsewhere:\n    udp any any\n"
       "      before: rule 20 (permit udp any any)\n      after: rule 20 (permit udp any any mirror session S)\n"
       "      for example: udp 0.0.0.0:1024 > 0.0.0.0:80\n"
       "  meets the same verdict, and is logged otherwise:\n    tcp any any\n"
       "      before: rule 10 (permit tcp any any)\n      after: rule 10 (permit tcp any any log)\n"
       "      for example: tcp 0.0.0.0:1024 > 0.0.0.0:80 syn\n"
       "no verdict changes, only where packets are copied and what is logged\n",
       0},
  });
}

}  // namespace
