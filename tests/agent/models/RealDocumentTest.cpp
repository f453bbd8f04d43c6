#include "PermittedSet.h"
#include "Support.h"

#include <agent/models/Writer.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace Models {
namespace {

namespace fs = std::filesystem;

/// Documents that others wrote, where they are at hand.
fs::path realDocuments() { return fs::path(VELO_SOURCE_DIR) / "../shared/data/models"; }

std::string contentOf(const fs::path& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

struct Row {
  const char* file;
  const char* result;  ///< the text, or the first mistake behind the name of the file
};
#define ROOTS "ietf-access-control-list:acls, openconfig-acl:acl, or ACL_TABLE and ACL_RULE"
#define RULES_FILE                                                                                         \
  "found an object at /acl/acl-sets/acl-set, expected an array: files of rules for tables that SONiC has " \
  "elsewhere "                                                                                             \
  "do not say of which kind they are; its ACL_TABLE and ACL_RULE do"
constexpr Row table[] = {
    {"openconfig/canonical-acl-update.json",
     "ip access-list ACL-1.2-IPV4\n   10 deny ip 192.168.100.1/32 192.168.200.2/32 log\n   20 deny tcp "
     "192.168.100.1/32 eq 1234 192.168.200.2/32 eq 2345 log\n   30 deny udp 192.168.100.1/32 eq 1234 "
     "192.168.200.2/32 eq 2345 log\n   40 deny icmp 192.168.100.1/32 192.168.200.2/32 log\n   990 permit ip "
     "any any log\n"},
    {"openconfig/gen-a-Daddr.json", "1:1: found an array, expected an object"},
    {"openconfig/gen-a-Dport.json", "1:1: found an array, expected an object"},
    {"openconfig/gen-a-Everything.json", "1:1: found an array, expected an object"},
    {"openconfig/gen-a-MixedDaddr.json", "1:1: found an array, expected an object"},
    {"openconfig/gen-b-sample.json",
     "2:3: found a JSON document with \"acl-sets\" and 1 more at its root, expected " ROOTS},
    {"rfc8519/example-4.3.1.json",
     "ip access-list sample-ipv4-acl\n   remark rule1\n   10 deny tcp 192.0.2.0/24 198.51.100.0/24\n"},
    {"rfc8519/example-4.3.1.xml",
     "ip access-list sample-ipv4-acl\n   remark rule1\n   10 deny tcp 192.0.2.0/24 198.51.100.0/24\n"},
    {"rfc8519/example-4.3.2.json",
     "ipv6 access-list allow-dns-packets\n   remark rule1\n   10 permit udp any 2001:db8::/32 eq 53\n"},
    {"rfc8519/example-4.3.2.xml",
     "ipv6 access-list allow-dns-packets\n   remark rule1\n   10 permit udp any 2001:db8::/32 eq 53\n"},
    {"rfc8519/example-4.4.1.json",
     "ip access-list sample-port-acl\n   remark rule1\n   10 deny tcp any range 16384 16387 any\n"},
    {"rfc8519/example-4.4.1.xml",
     "ip access-list sample-port-acl\n   remark rule1\n   10 deny tcp any range 16384 16387 any\n"},
    {"rfc8519/example-4.4.2.xml",
     "5:5: found /ietf-access-control-list:acls/acl[sample-icmp-acl] incomplete, expected its type: "
     "ipv4-acl-type, ipv6-acl-type or eth-acl-type"},
    {"rfc8519/example-4.4.3.json",
     "ip access-list sample-ipv4-acl\n   remark rule1\n   10 permit tcp any any eq 21\n"},
    {"rfc8519/example-4.4.3.xml",
     "ip access-list sample-ipv4-acl\n   remark rule1\n   10 permit tcp any any eq 21\n"},
    {"rfc8519/example-4.4.4.json",
     "ip access-list sample-ipv4-acl\n   remark rule1\n   10 deny tcp any any neq 21\n"},
    {"rfc8519/example-4.4.4.xml",
     "ip access-list sample-ipv4-acl\n   remark rule1\n   10 deny tcp any any neq 21\n"},
    {"rfc8519/mudfile-dns-test.json",
     "3:3: found \"ietf-mud:mud\" at the root of a document, expected " ROOTS},
    {"rfc8519/mudfile-local-networks-test.json",
     "3:3: found \"ietf-mud:mud\" at the root of a document, expected " ROOTS},
    {"rfc8519/mudfile-mfg-test.json",
     "2:3: found \"ietf-mud:mud\" at the root of a document, expected " ROOTS},
    {"rfc8519/mudfile-same-manufacturer-test.json",
     "3:3: found \"ietf-mud:mud\" at the root of a document, expected " ROOTS},
    {"rfc8519/mudfile-tcp-direction-test.json",
     "2:3: found \"ietf-mud:mud\" at the root of a document, expected " ROOTS},
    {"sonic/acl1.json", "4:4: " RULES_FILE},
    {"sonic/config_db_acl.json",
     "4:9: found an array at /ACL_TABLE|SNMP_ACL/services, expected it left out: packets to services of the "
     "switch are not filtered by lists"},
    {"sonic/empty_acl.json", "4:7: " RULES_FILE},
    {"sonic/illegal_icmp_type_300.json", "4:4: " RULES_FILE},
    {"sonic/illegal_v4v6_rule_no_ethertype.json", "4:4: " RULES_FILE},
    {"sonic/illegal_vlan_0.json", "4:4: " RULES_FILE},
    {"sonic/illegal_vlan_nan.json", "4:4: " RULES_FILE},
    {"sonic/incremental_1.json", "4:13: " RULES_FILE},
    {"sonic/incremental_2.json", "4:13: " RULES_FILE},
    {"sonic/rules_custom_v4.json",
     "3:9: found /ACL_RULE/CUSTOM_TABLE|RULE_2 incomplete, expected its table in ACL_TABLE, which says of "
     "which kind and where it is"},
    {"sonic/rules_testbed.json", "4:13: " RULES_FILE},
    {"sonic/tcp_bad_protocol_number.json", "4:4: " RULES_FILE},
};

/// All are taken or refused, each for its reason.
TEST(RealDocument, IsTakenOrRefusedWithItsReason) {
  if (!fs::is_directory(realDocuments())) GTEST_SKIP() << "no documents at " << realDocuments();
  std::map<std::string, std::string> results;
  for (const auto& entry : fs::recursive_directory_iterator(realDocuments())) {
    const auto extension = entry.path().extension();
    if (extension != ".json" && extension != ".xml") continue;
    const auto text = readAs(contentOf(entry.path()));
    const bool refused = text.starts_with("t:");
    results[fs::relative(entry.path(), realDocuments()).string()] =
        refused ? text.substr(2, text.find('\n') - 2) : text;
  }
  std::map<std::string, std::string> expected;
  for (const auto& row : table) expected[row.file] = row.result;
  for (const auto& [file, result] : results) EXPECT_EQ(result, expected[file]) << file;
  EXPECT_EQ(results.size(), std::size(table));
}

/// Each list of a configuration, written and read again, permits the same; with what cannot be said left out,
/// nothing more. Returns how many lists were compared.
int compareWritten(const Config::Model& model, const std::string& name) {
  int compared = 0;
  for (const Format format : {Format::ietf, Format::openConfig, Format::sonic}) {
    for (const bool lossy : {false, true}) {
      const auto written = write(model, format, lossy);
      if (!written.refused.empty()) continue;
      const auto again = read({{name, written.document}});
      EXPECT_TRUE(again.model) << name << "\n" << written.document;
      if (!again.model) continue;
      for (const auto& [key, list] : again.model->lists) {
        const Proof::RuleSets sets(key.first, {Kelp::Duration(3600)});
        const auto before = permitted(model.lists.at(key), sets), after = permitted(list, sets);
        EXPECT_TRUE((after - before).isEmpty()) << name << " " << key.second << "\n" << written.document;
        EXPECT_TRUE(lossy || before == after) << name << " " << key.second << "\n" << written.document;
        ++compared;
      }
      EXPECT_TRUE(lossy || again.model->bindings == model.bindings) << name << "\n" << written.document;
    }
  }
  return compared;
}

/// What of a list a format can say without loss, as a configuration of its own.
Config::Model sayablePart(const Config::List& list, Format format) {
  Config::Model all;
  auto& part = all.lists[{list.type, list.name}] = list;
  std::erase_if(part.rules, [&](const auto& rule) {
    Config::Model one;
    auto& alone = one.lists[{list.type, list.name}] = list;
    alone.rules = {rule};
    return !write(one, format, false).refused.empty();
  });
  return all;
}

/// Each list, as far as a format can say it, permits exactly the same when it was written and read again, and
/// is then written as the same document. Returns how many rules were compared.
size_t compareExactly(const Config::Model& model, const std::string& name) {
  size_t compared = 0;
  for (const auto& [key, list] : model.lists) {
    const Proof::RuleSets sets(key.first, {Kelp::Duration(3600)});
    for (const Format format : {Format::ietf, Format::openConfig, Format::sonic}) {
      const Config::Model part = sayablePart(list, format);
      const auto& before = part.lists.begin()->second;
      const auto written = write(part, format, false);
      if (!written.refused.empty()) continue;  // it has no such lists
      const auto again = read({{name, written.document}});
      EXPECT_TRUE(again.model) << name << "\n" << written.document;
      if (!again.model) continue;
      EXPECT_TRUE(permitted(before, sets) == permitted(again.model->lists.at(key), sets))
          << name << " " << key.second << "\n"
          << written.document;
      EXPECT_TRUE(write(*again.model, format, false).document == written.document)
          << name << " " << key.second;
      compared += before.rules.size();
    }
  }
  return compared;
}

TEST(RealDocument, SaysTheSameInEveryModel) {
  if (!fs::is_directory(realDocuments())) GTEST_SKIP() << "no documents at " << realDocuments();
  int compared = 0;
  for (const auto& row : table) {
    const auto result = read({{row.file, contentOf(realDocuments() / row.file)}});
    if (!result.model) continue;
    compared += compareWritten(*result.model, row.file);
    EXPECT_GT(compareExactly(*result.model, row.file), 0u) << row.file;
  }
  EXPECT_GE(compared, 11 * 3);
}

/// Texts that others wrote, without the lines that are no statements here.
TEST(RealDocument, SaysWhatRealTextsSay) {
  const auto texts = realDocuments().parent_path() / "configs";
  if (!fs::is_directory(texts)) GTEST_SKIP() << "no texts at " << texts;
  int compared = 0;
  for (const auto& entry : fs::directory_iterator(texts)) {
    if (entry.path().extension() != ".txt") continue;
    std::set<int> wrong;
    for (const auto& mistake : Config::read({{"t", contentOf(entry.path())}}).mistakes)
      wrong.insert(mistake.line);
    std::ifstream in(entry.path());
    std::string text;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
      if (!wrong.contains(++number)) text += line + "\n";
    }
    const auto model = Config::read({{"t", text}}).model;
    ASSERT_TRUE(model) << entry.path();
    const auto name = entry.path().filename().string();
    compared += compareWritten(*model, name);
    EXPECT_GT(compareExactly(*model, name), 0u) << name;
  }
  EXPECT_GE(compared, 10);
}

}  // namespace
}  // namespace Models
