#include <agent/change/PassesAll.h>
#include <agent/change/Warnings.h>
#include <agent/proof/ListAnalysis.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"
#include "../support/ModelOf.h"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace Agent;

/// The texts of sources by name; "" is the command line's.
using Texts = std::map<std::string, std::string>;

const PortNames allPorts = {"eth1", "eth2", "eth3", "eth4"};

struct Read {
  explicit Read(const Texts& texts) {
    for (const auto& [name, text] : texts) {
      models[name] = TestSupport::modelOf(text);
      layers.emplace_back(name, &models[name]);
    }
  }
  Read(const Read&) = delete;
  Read& operator=(const Read&) = delete;

  std::map<std::string, Config::Model> models;
  Layers layers;
};

std::string codesOf(const Warnings& warnings) {
  std::string codes;
  for (const Warning& warning : warnings)
    codes += (codes.empty() ? "" : " ") + std::string(warning.code.kind().code);
  return codes;
}

// What the rows are made of: lists A and B, and where they are bound.
const std::string a = "ip access-list A\n permit tcp any any\n", b = "ip access-list B\n deny tcp any any\n";
const std::string a6 = "ipv6 access-list A\n permit tcp any any\n",
                  mac = "mac access-list A\n permit vlan 7 any any\n";
const std::string permitsAll = "ip access-list ALL\n permit ip any any\n",
                  permitsAllIn = " ip access-group ALL in\n";
const std::string at1 = "interface eth1\n", at2 = "interface eth2\n", atPo = "interface po1\n";
const std::string aIn = " ip access-group A in\n", bIn = " ip access-group B in\n",
                  aOut = " ip access-group A out\n";
const std::string a6In = " ipv6 access-group A in\n", macIn = " mac access-group A in\n";
const std::string po12 = "port-channel po1 members eth1 eth2\n", po1 = "port-channel po1 members eth1\n",
                  po2 = "port-channel po1 members eth2\n", noPort = "port-channel po1 members eht1 eht2\n";

const struct OpeningRow {
  const char* why;
  Texts before, after;
  const char* openings;  ///< the codes of what is refused without --allow-open
} openingRows[] = {
    // A list that is bound and not there.
    {"a list is bound before it is defined", {{"", ""}}, {{"", at1 + aIn}}, "list-undefined"},
    {"bound and defined at once", {{"", ""}}, {{"", a + at1 + aIn}}, ""},
    {"a typing mistake in the name",
     {{"", a + at1 + aIn}},
     {{"", a + at1 + " ip access-group AA in\n"}},
     "list-undefined"},
    {"the name in other capitals",
     {{"", a + at1 + aIn}},
     {{"", a + at1 + " ip access-group a in\n"}},
     "list-undefined"},
    {"a list of another kind has the name", {{"", a}}, {{"", a + at1 + a6In}}, "list-undefined"},
    {"bound where nothing was, and not defined",
     {{"", a + at1 + aIn}},
     {{"", a + at1 + aIn + aOut + at2 + bIn}},
     "list-undefined"},
    {"in two directions it is two openings",
     {{"", ""}},
     {{"", at1 + aIn + aOut}},
     "list-undefined list-undefined"},
    {"it was open before: nothing opens", {{"", at1 + aIn}}, {{"", at1 + aIn + b}}, ""},
    {"it was open before by another name", {{"", at1 + aIn}}, {{"", at1 + bIn}}, ""},
    {"what was open is closed", {{"", at1 + aIn}}, {{"", a + at1 + aIn}}, ""},
    {"what was open is no longer meant to be filtered", {{"", at1 + aIn}}, {{"", ""}}, ""},
    // A list that goes.
    {"the list goes, its binding stays", {{"", a + at1 + aIn}}, {{"", at1 + aIn}}, "list-dropped"},
    {"the list is renamed, its binding is not", {{"", a + at1 + aIn}}, {{"", b + at1 + aIn}}, "list-dropped"},
    {"list and binding are renamed", {{"", a + at1 + aIn}}, {{"", b + at1 + bIn}}, ""},
    {"a list that is bound nowhere goes", {{"", a + b + at1 + bIn}}, {{"", b + at1 + bIn}}, ""},
    {"the command line drops a list that a file has bound",
     {{"", a}, {"f", at1 + aIn}},
     {{"", ""}, {"f", at1 + aIn}},
     "list-dropped"},
    {"another source takes the list over", {{"", a + at1 + aIn}, {"f", a}}, {{"", at1 + aIn}, {"f", a}}, ""},
    {"the file of a list goes", {{"", at1 + aIn}, {"f", a}}, {{"", at1 + aIn}}, "list-file-gone"},
    {"the file of list and binding goes", {{"", ""}, {"f", a + at1 + aIn}}, {{"", ""}}, "filter-lost"},
    {"the file stays without the list",
     {{"", at1 + aIn}, {"f", a}},
     {{"", at1 + aIn}, {"f", ""}},
     "list-dropped"},
    {"the file of a list goes that another file has, too",
     {{"", at1 + aIn}, {"f", a}, {"g", a}},
     {{"", at1 + aIn}, {"g", a}},
     ""},
    {"a file without anything in force goes", {{"", a + at1 + aIn}, {"f", a}}, {{"", a + at1 + aIn}}, ""},
    // A binding that goes.
    {"the only binding goes", {{"", a + at1 + aIn}}, {{"", a}}, "filter-lost"},
    {"everything goes", {{"", a + at1 + aIn}}, {{"", ""}}, "filter-lost"},
    {"one of two directions goes", {{"", a + at1 + aIn + aOut}}, {{"", a + at1 + aIn}}, "filter-lost"},
    {"one of two kinds goes",
     {{"", a + mac + at1 + aIn + macIn}},
     {{"", a + mac + at1 + aIn}},
     "filter-lost"},
    {"another kind takes its place", {{"", a + a6 + at1 + aIn}}, {{"", a + a6 + at1 + a6In}}, "filter-lost"},
    {"the binding moves to another interface", {{"", a + at1 + aIn}}, {{"", a + at2 + aIn}}, "filter-lost"},
    {"the binding moves to the other direction",
     {{"", a + at1 + aIn}},
     {{"", a + at1 + aOut}},
     "filter-lost"},
    {"another list takes its place", {{"", a + b + at1 + aIn}}, {{"", a + b + at1 + bIn}}, ""},
    {"the binding moves to another source",
     {{"", a + at1 + aIn}, {"f", ""}},
     {{"", a}, {"f", at1 + aIn}},
     ""},
    {"a binding goes that another source has, too",
     {{"", a + at1 + aIn}, {"f", b + at1 + bIn}},
     {{"", a}, {"f", b + at1 + bIn}},
     ""},
    {"a binding that is not in force goes",
     {{"", a + at1 + aIn}, {"f", b + at1 + bIn}},
     {{"", a + at1 + aIn}, {"f", b}},
     ""},
    {"another source's list is put over the one that filters, and is not there",
     {{"", ""}, {"f", a + at1 + aIn}},
     {{"", at1 + bIn}, {"f", a + at1 + aIn}},
     "list-undefined"},
    // What is not about lists being asked.
    {"all rules of a list go: it drops everything",
     {{"", a + at1 + aIn}},
     {{"", "ip access-list A\n" + at1 + aIn}},
     ""},
    {"a list permits everything",
     {{"", b + at1 + bIn}},
     {{"", "ip access-list B\n permit ip any any\n" + at1 + bIn}},
     "filter-lost"},
    // Lists that permit everything.
    {"its rules say so from now on",
     {{"", a + at1 + aIn}},
     {{"", "ip access-list A\n permit ip any any\n permit tcp any any\n" + at1 + aIn}},
     "filter-lost"},
    {"it was empty and dropped everything, and its rules say so from now on",
     {{"", "ip access-list A\n" + at1 + aIn}},
     {{"", "ip access-list A\n permit ip any any\n" + at1 + aIn}},
     "filter-lost"},
    {"its rules say so from now on, at two places",
     {{"", a + at1 + aIn + at2 + aOut}},
     {{"", "ip access-list A\n permit ip any any\n" + at1 + aIn + at2 + aOut}},
     "filter-lost filter-lost"},
    {"its rules say so from now on, of IPv6",
     {{"", a6 + at1 + a6In}},
     {{"", "ipv6 access-list A\n permit ipv6 any any\n" + at1 + a6In}},
     "filter-lost"},
    {"its rules say so from now on, of MAC",
     {{"", mac + at1 + macIn}},
     {{"", "mac access-list A\n permit any any\n" + at1 + macIn}},
     "filter-lost"},
    {"its rules say so from now on, and the port-channel's list filters",
     {{"", a + b + po1 + atPo + bIn + at1 + aIn}},
     {{"", "ip access-list A\n permit ip any any\n" + b + po1 + atPo + bIn + at1 + aIn}},
     ""},
    {"the rules of a file's list say so from now on",
     {{"", at1 + aIn}, {"f", a}},
     {{"", at1 + aIn}, {"f", "ip access-list A\n permit ip any any\n"}},
     "filter-lost"},
    {"its rules say so from now on, in two halves",
     {{"", a + at1 + aIn}},
     {{"", "ip access-list A\n permit ip any 128.0.0.0/1\n permit ip any 0.0.0.0/1\n" + at1 + aIn}},
     "filter-lost"},
    {"its rules have always said so, and do so otherwise",
     {{"", permitsAll + at1 + permitsAllIn}},
     {{"",
       "ip access-list ALL\n permit ip 0.0.0.0/1 any\n permit ip 128.0.0.0/1 any\n" + at1 + permitsAllIn}},
     ""},
    {"a rule denies all before it",
     {{"", a + at1 + aIn}},
     {{"", "ip access-list A\n deny ip any any\n permit ip any any\n" + at1 + aIn}},
     ""},
    {"it is bound first", {{"", ""}}, {{"", permitsAll + at1 + permitsAllIn}}, ""},
    {"its rules say so from now on, and it is bound nowhere",
     {{"", a}},
     {{"", "ip access-list A\n permit ip any any\n"}},
     ""},
    {"it is taken away", {{"", permitsAll + at1 + permitsAllIn}}, {{"", permitsAll}}, ""},
    {"it is taken away, of IPv6",
     {{"", "ipv6 access-list A\n permit ipv6 any any log\n" + at1 + a6In}},
     {{"", ""}},
     ""},
    {"it is taken away, of MAC",
     {{"", "mac access-list A\n permit any any\n" + at1 + macIn}},
     {{"", ""}},
     ""},
    {"it takes the place of one that filters",
     {{"", a + permitsAll + at1 + aIn}},
     {{"", a + permitsAll + at1 + permitsAllIn}},
     "filter-lost"},
    {"one that filters takes its place",
     {{"", a + permitsAll + at1 + permitsAllIn}},
     {{"", a + permitsAll + at1 + aIn}},
     ""},
    {"the one beside it that filters goes",
     {{"", a + permitsAll + po1 + atPo + permitsAllIn + at1 + aIn}},
     {{"", a + permitsAll + po1 + atPo + permitsAllIn}},
     "filter-lost"},
    {"it goes beside one that filters",
     {{"", a + permitsAll + po1 + atPo + permitsAllIn + at1 + aIn}},
     {{"", a + permitsAll + po1 + at1 + aIn}},
     ""},
    {"another source's of the same name comes into force",
     {{"", a + at1 + aIn}, {"f", "ip access-list A\n permit ip any any\n"}},
     {{"", at1 + aIn}, {"f", "ip access-list A\n permit ip any any\n"}},
     "filter-lost"},
    {"another source's binding of one comes into force",
     {{"", a + at1 + aIn}, {"f", permitsAll + at1 + permitsAllIn}},
     {{"", a}, {"f", permitsAll + at1 + permitsAllIn}},
     "filter-lost"},
    {"its rules say so from now on, and a member leaves with that",
     {{"", a + po12 + atPo + aIn}},
     {{"", "ip access-list A\n permit ip any any\n" + po2 + atPo + aIn}},
     "filter-lost filter-lost"},
    {"permits before the one of everything",
     {{"", "ip access-list A\n permit tcp any any\n permit ip any any\n deny ip any any\n" + at1 + aIn}},
     {{"", ""}},
     ""},
    {"a rule denies before it",
     {{"", "ip access-list A\n deny tcp any any\n permit ip any any\n" + at1 + aIn}},
     {{"", ""}},
     "filter-lost"},
    {"permits of a part only",
     {{"", "ip access-list A\n permit ip any any fragments\n permit udp any any\n" + at1 + aIn}},
     {{"", ""}},
     "filter-lost"},
    {"an empty list permits nothing", {{"", "ip access-list A\n" + at1 + aIn}}, {{"", ""}}, "filter-lost"},
    {"a new interface without lists", {{"", a + at1 + aIn}}, {{"", a + at1 + aIn + at2}}, ""},
    {"another text that says the same", {{"", a + at1 + aIn}}, {{"", "! again\n" + a + at1 + aIn}}, ""},
    // Interfaces that are none.
    {"an interface that is no port", {{"", a}}, {{"", a + "interface eht1\n" + aIn}}, "interface-unknown"},
    {"a typing mistake in the interface",
     {{"", a + at1 + aIn}},
     {{"", a + "interface eht1\n" + aIn}},
     "interface-unknown filter-lost"},
    {"a port-channel before there is one", {{"", a}}, {{"", a + atPo + aIn}}, "interface-unknown"},
    {"a port-channel that there is", {{"", a}}, {{"", a + po12 + atPo + aIn}}, ""},
    {"a member that is no port",
     {{"", a}},
     {{"", a + "port-channel po1 members eth1 eth9\ninterface eth9\n" + aIn}},
     "interface-unknown"},
    {"a port-channel without a port", {{"", a}}, {{"", a + noPort + atPo + aIn}}, "interface-unknown"},
    {"a port-channel without a port, and its list is not there",
     {{"", ""}},
     {{"", noPort + atPo + aIn}},
     "interface-unknown"},
    {"a port-channel without a port and without lists", {{"", a}}, {{"", a + noPort}}, ""},
    {"a port-channel with a port and a member that is still to come",
     {{"", a}},
     {{"", a + "port-channel po1 members eth9 eth1\n" + atPo + aIn}},
     ""},
    {"a typing mistake in the only member of a filtered port-channel",
     {{"", a + po1 + atPo + aIn}},
     {{"", a + noPort + atPo + aIn}},
     "interface-unknown filter-lost"},
    {"the port-channel had no port before",
     {{"", a + noPort + atPo + aIn}},
     {{"", a + b + noPort + atPo + aIn}},
     ""},
    {"the port-channel gets its first port",
     {{"", a + noPort + atPo + aIn}},
     {{"", a + po1 + atPo + aIn}},
     ""},
    {"another source's port-channel without a port is put over one with a port",
     {{"", ""}, {"f", a + po1 + atPo + aIn}},
     {{"", noPort}, {"f", a + po1 + atPo + aIn}},
     "interface-unknown filter-lost"},
    {"it was no port before",
     {{"", a + "interface eht1\n" + aIn}},
     {{"", a + b + "interface eht1\n" + aIn}},
     ""},
    {"nothing was filtered at what is no port", {{"", a + "interface eht1\n" + aIn}}, {{"", a}}, ""},
    // Port-channels: what a member's packets meet.
    {"the port-channel's list goes",
     {{"", a + po12 + atPo + aIn}},
     {{"", a + po12}},
     "filter-lost filter-lost"},
    {"the port-channel's list is not there: told once",
     {{"", a + po12 + atPo + aIn}},
     {{"", po12 + atPo + aIn}},
     "list-dropped"},
    {"the port-channel goes, its binding stays",
     {{"", a + po12 + atPo + aIn}},
     {{"", a + atPo + aIn}},
     "interface-unknown filter-lost filter-lost"},
    {"a member leaves", {{"", a + po12 + atPo + aIn}}, {{"", a + po2 + atPo + aIn}}, "filter-lost"},
    {"a member leaves and has a list of its own",
     {{"", a + po12 + atPo + aIn}},
     {{"", a + b + po2 + atPo + aIn + at1 + bIn}},
     ""},
    {"the members have lists of their own, and the port-channel's goes",
     {{"", a + po12 + atPo + aIn + at1 + aIn + at2 + aIn}},
     {{"", a + po12 + at1 + aIn + at2 + aIn}},
     ""},
    {"a member's own list goes, the port-channel's stays",
     {{"", a + b + po12 + atPo + aIn + at1 + bIn}},
     {{"", a + b + po12 + atPo + aIn}},
     ""},
    {"a member leaves that is no port",
     {{"", a + "port-channel po1 members eth1 eth9\n" + atPo + aIn}},
     {{"", a + "port-channel po1 members eth1\n" + atPo + aIn}},
     ""},
    {"a member joins", {{"", a + po2 + atPo + aIn}}, {{"", a + po12 + atPo + aIn}}, ""},
    {"a filtered port joins a port-channel without lists",
     {{"", a + at1 + aIn}},
     {{"", a + po12 + at1 + aIn}},
     ""},
    // Two bindings of which one filters and the other one does not.
    {"the port-channel's list goes, and the member's own has always been open",
     {{"", a + po1 + atPo + aIn + at1 + bIn}},
     {{"", a + po1 + at1 + bIn}},
     "filter-lost"},
    {"the member's own list goes, and the port-channel's has always been open",
     {{"", a + po12 + atPo + bIn + at1 + aIn}},
     {{"", a + po12 + atPo + bIn}},
     "filter-lost"},
    {"a filtered port loses its list and joins a port-channel that has always been open",
     {{"", a + po2 + atPo + bIn + at1 + aIn}},
     {{"", a + po12 + atPo + bIn}},
     "filter-lost"},
    {"the port-channel's list goes, and the member's own opens with it: told once",
     {{"", a + po1 + atPo + aIn}},
     {{"", a + po1 + at1 + bIn}},
     "list-undefined"},
    {"the member's own list goes, and the port-channel's opens with it: told once",
     {{"", a + po1 + at1 + aIn}},
     {{"", a + po1 + atPo + bIn}},
     "list-undefined"},
    {"the member's own list has always been open, and the port-channel's stays",
     {{"", a + b + po1 + atPo + aIn + at1 + " ip access-group C in\n"}},
     {{"", a + b + po1 + atPo + bIn + at1 + " ip access-group C in\n"}},
     ""},
};

TEST(Openings, AreFoundByWhatPacketsMeet) {
  EXPECT_GE(std::size(openingRows), 40u);
  for (const OpeningRow& row : openingRows) {
    const Read before(row.before), after(row.after);
    const ChangeWarnings found = changeWarnings(before.layers, after.layers, &allPorts);
    EXPECT_EQ(codesOf(found.openings), row.openings) << row.why;
    EXPECT_EQ(whyRefused(found, {}).has_value(), !found.openings.empty()) << row.why;
    EXPECT_FALSE(whyRefused(found, {.openings = true})) << row.why;
    EXPECT_EQ(whyRefused(found, {.openings = true, .strict = true}).has_value(), !found.told.empty())
        << row.why;
  }
}

TEST(Openings, OnlyAListThatPassesAllIsSaidToDoSo) {
  const struct {
    const char* head;
    std::vector<const char*> rules;
  } kinds[] = {
      {"ip access-list A\n",
       {"permit ip any any", "permit ip 10.0.0.1 255.255.255.255 any", "permit ip any any log",
        "permit tcp any any", "permit ip any any fragments", "permit ip any 10.0.0.0/8", "deny udp any any",
        "deny ip any any", "permit ip any 0.0.0.0/1", "permit ip any 128.0.0.0/2",
        "permit ip any 192.0.0.0/2", "permit ip any 192.0.0.0/3", "permit ip 0.0.0.0/1 any",
        "permit ip 128.0.0.0/1 any", "permit vlan 7 ip 128.0.0.0/1 any",
        "permit ip any 0.0.0.0 255.255.255.254", "permit ip any 0.0.0.1 255.255.255.254"}},
      {"ipv6 access-list A\n",
       {"permit ipv6 any any", "permit tcp any any", "permit ipv6 any ::/1", "permit ipv6 any 8000::/1",
        "permit ipv6 any any dscp ef", "deny tcp any any eq 80"}},
      {"mac access-list A\n",
       {"permit any any", "permit vlan 7 any any", "permit any any 0x0800",
        "permit any host 02:00:00:00:00:01", "deny any any 0x0806",
        "permit any 00:00:00:00:00:00 7f:ff:ff:ff:ff:ff", "permit any 80:00:00:00:00:00 7f:ff:ff:ff:ff:ff"}},
  };
  TestSupport::Dice dice(18);
  for (const auto& kind : kinds) {
    int found = 0;
    for (int round = 0; round < 60; ++round) {
      std::string text = kind.head;
      for (uint64_t count = dice.below(4); count > 0; --count)
        text += std::string(" ") + kind.rules[dice.below(kind.rules.size())] + "\n";
      const Config::Model model = TestSupport::modelOf(text);
      const Config::List& list = model.lists.begin()->second;
      if (!surelyPassesAll(list)) continue;
      ++found;
      const Proof::RuleSets sets(list.type, {Kelp::Duration(10), size_t{1} << 28});
      EXPECT_TRUE(Proof::analyse(list, sets).passesAll) << text;
    }
    EXPECT_GT(found, 5) << kind.head;
  }
}

TEST(Openings, AListOfPrefixesThatLeaveNoneOutPassesAll) {
  const auto list = [](const std::string& head, int bits, int without) {
    std::string text = head;
    for (int i = 0; i < 1 << bits; ++i) {
      // From the last to the first, and some of them twice.
      const uint64_t at = uint64_t(((1 << bits) - 1 - i) ^ 5) << (32 - bits);
      if (i != without)
        text += fmt::format(" permit ip any {}.{}.{}.{}/{}\n", at >> 24, at >> 16 & 255, at >> 8 & 255,
                            at & 255, bits);
    }
    return TestSupport::modelOf(text + " permit ip any 10.1.2.0/24\n permit ip any host 10.1.2.3\n")
        .lists.begin()
        ->second;
  };
  const std::string head = "ip access-list A\n";
  EXPECT_TRUE(surelyPassesAll(list(head, 12, -1)));
  for (const int without : {0, 1, 700, 4095})
    EXPECT_FALSE(surelyPassesAll(list(head, 12, without))) << without;
  EXPECT_FALSE(surelyPassesAll(list(head + " 1 deny ip any host 10.1.2.3\n", 3, -1)));
  std::string sixes = "ipv6 access-list A\n permit ipv6 any host ::\n";
  for (int length = 128; length > 0; --length) {
    std::array<uint16_t, 8> words{};
    words[(length - 1) / 16] = uint16_t(1 << (15 - (length - 1) % 16));
    std::string address;
    for (const uint16_t word : words) address += fmt::format("{}{:x}", address.empty() ? "" : ":", word);
    EXPECT_FALSE(surelyPassesAll(TestSupport::modelOf(sixes).lists.begin()->second)) << length;
    sixes += fmt::format(" permit ipv6 any {}/{}\n", address, length);
  }
  EXPECT_TRUE(surelyPassesAll(TestSupport::modelOf(sixes).lists.begin()->second));
}

TEST(Openings, OfAListThatPermitsEverythingAreToldOnceAndThatItHoldsAlways) {
  const std::string passing = "ip access-list A\n permit ip any any\n";
  const Read before(Texts{{"", a + po1 + atPo + aIn + at2 + aOut}});
  const Read after(Texts{{"", "\n\n" + passing + po1 + atPo + aIn + at2 + aOut}});
  const ChangeWarnings found = changeWarnings(before.layers, after.layers, &allPorts);
  ASSERT_EQ(codesOf(found.told), "filter-lost filter-lost list-filters-nothing list-filters-nothing");
  EXPECT_EQ(
      found.told[0].text,
      "interface eth1: ip access-list A (of po1) is bound in and permits everything by now: everything passes "
      "there");
  EXPECT_EQ(found.told[0].place.line, 3) << "that of the list";
  EXPECT_EQ(
      found.told[1].text,
      "interface eth2: ip access-list A is bound out and permits everything by now: everything passes there");
  EXPECT_EQ(found.told[3].text,
            "interface eth2: ip access-list A is bound out and permits everything: it filters nothing there");
  EXPECT_EQ(found.told[3].place.line, 9) << "that of the binding";
  EXPECT_EQ(codesOf(found.lasting), "list-filters-nothing list-filters-nothing");
  const PortNames others = {"eth9"};
  EXPECT_EQ(codesOf(lastingWarnings(after.layers, &others)).find("list-filters-nothing"), std::string::npos)
      << "where no port is, nothing filters anyhow";
}

TEST(Openings, OfTheBeginningAreAllThatIsOpen) {
  const Read texts(Texts{{"", at1 + aIn + "interface eht1\n" + bIn + b}});
  EXPECT_EQ(codesOf(changeWarnings({}, texts.layers, &allPorts).openings),
            "interface-unknown list-undefined");
  EXPECT_EQ(codesOf(changeWarnings({}, texts.layers, nullptr).openings), "list-undefined")
      << "when it is not known which ports there are";
  const Read channel(Texts{{"", a + noPort + atPo + aIn}});
  EXPECT_EQ(codesOf(changeWarnings({}, channel.layers, nullptr).openings), "") << "nor which members are";
}

TEST(Openings, OfAStartAreWhatWasFilteredAndIsNot) {
  const struct {
    const char* why;
    Texts last, now;
    const char* openings;
  } rows[] = {
      {"the same again", {{"", a + at1 + aIn}}, {{"", a + at1 + aIn}}, ""},
      {"nothing was filtered", {{"", a}}, {{"", a + at1 + aIn}}, ""},
      {"the binding has gone", {{"", a + at1 + aIn}}, {{"", a}}, "filter-lost"},
      {"everything has gone", {{"", a + at1 + aIn + aOut}}, {{"", ""}}, "filter-lost filter-lost"},
      {"the list has gone: told once", {{"", a + at1 + aIn}}, {{"", at1 + aIn}}, "list-undefined"},
      {"the file of both has gone", {{"", ""}, {"f", a + at1 + aIn}}, {{"", ""}}, "filter-lost"},
      {"another file has both", {{"", ""}, {"f", a + at1 + aIn}}, {{"", ""}, {"g", a + at1 + aIn}}, ""},
      {"another list is there", {{"", a + at1 + aIn}}, {{"", b + at1 + bIn}}, ""},
      {"the binding is elsewhere", {{"", a + at1 + aIn}}, {{"", a + at2 + aIn}}, "filter-lost"},
      {"a list that permits everything has gone", {{"", permitsAll + at1 + permitsAllIn}}, {{"", ""}}, ""},
      {"another one that permits everything is there",
       {{"", a + at1 + aIn}},
       {{"", permitsAll + at1 + permitsAllIn}},
       "filter-lost"},
      {"its rules permit everything by now",
       {{"", a + at1 + aIn}},
       {{"", "ip access-list A\n permit ip any any\n" + at1 + aIn}},
       "filter-lost"},
      {"a member has left", {{"", a + po12 + atPo + aIn}}, {{"", a + po2 + atPo + aIn}}, "filter-lost"},
      {"what was open has gone", {{"", at1 + aIn}}, {{"", ""}}, ""},
  };
  for (const auto& row : rows) {
    const Read last(row.last), now(row.now);
    const auto filtered =
        std::make_shared<const FilteredPorts>(changeWarnings({}, last.layers, &allPorts).filtered);
    EXPECT_EQ(codesOf(startWarnings(filtered, now.layers, &allPorts).openings), row.openings) << row.why;
    EXPECT_EQ(codesOf(startWarnings(nullptr, now.layers, &allPorts).openings),
              codesOf(changeWarnings({}, now.layers, &allPorts).openings))
        << row.why;
    const PortNames others = {"eth9"};
    EXPECT_EQ(codesOf(startWarnings(filtered, {}, &others).openings), "") << "its ports are no longer there";
  }
}

TEST(Openings, StayAsLongAsTheyHold) {
  const Read open(Texts{{"", at1 + aIn}}), more(Texts{{"", at1 + aIn}, {"f", b}});
  const ChangeWarnings found = changeWarnings(open.layers, more.layers, &allPorts);
  EXPECT_EQ(codesOf(found.lasting), "list-undefined list-unbound");
  EXPECT_EQ(codesOf(found.told), "list-undefined list-unbound");
  const Read without(Texts{{"", a}});
  EXPECT_EQ(
      codesOf(changeWarnings(Read(Texts{{"", a + at1 + aIn}}).layers, without.layers, &allPorts).lasting),
      "list-unbound")
      << "what a change has opened is over with it";
}

TEST(Openings, AreToldWithTheirConsequence) {
  const auto texts = [](const Texts& before, const Texts& after) {
    std::string all;
    const Read was(before), is(after);
    for (const Warning& warning : changeWarnings(was.layers, is.layers, &allPorts).openings)
      all += warning.text + "\n";
    return all;
  };
  const std::string long_ = "ip access-list FROM-ALICE\n permit ip any any\n";
  EXPECT_EQ(texts({{"", ""}}, {{"", long_ + at1 + " ip access-group FROM-ALCIE in\n"}}),
            "interface eth1: ip access-list FROM-ALCIE is bound in but not defined: everything passes it "
            "(did you mean "
            "FROM-ALICE?)\n");
  EXPECT_EQ(
      texts({{"", at1 + aIn}, {"f", a}}, {{"", at1 + aIn}}),
      "ip access-list A goes with its file f, but interface eth1 has it bound in: everything passes there\n");
  EXPECT_EQ(texts({{"", a + po2 + atPo + aIn}}, {{"", a}}),
            "interface eth2 loses its last ip list in (A of po1): everything passes there\n");
  EXPECT_EQ(
      texts({{"", a + permitsAll + po1 + atPo + permitsAllIn + at1 + aIn}},
            {{"", permitsAll + po1 + atPo + permitsAllIn}}),
      "interface eth1 loses its last ip list in (A), and ip access-list ALL permits everything: everything "
      "passes there\n");
  EXPECT_EQ(
      texts({{"", ""}}, {{"", a + noPort + atPo + aIn + "interface eht2\n" + aIn}}),
      "interface eht2 (did you mean eth2?): it is no port and no port-channel: ip access-list A filters "
      "nothing there\n"
      "interface po1: no port is a member of it, only eht1 (did you mean eth1?), eht2 (did you mean "
      "eth2?): ip access-list A filters nothing there\n");
  const std::string at9 = "interface po9\n" + aIn;
  EXPECT_EQ(texts({{"", ""}}, {{"", a + po2 + at9}}),
            "interface po9 (did you mean po1?): it is no port and no port-channel: ip access-list A filters "
            "nothing there\n");
  EXPECT_EQ(texts({{"", ""}}, {{"", a + noPort + at9}}),
            "interface po9: it is no port and no port-channel: ip access-list A filters nothing there\n");
  PortNames named = {"p1", "p2"};
  named.byDevice = {{"eth1", "p1"}, {"eth2", "p2"}};
  const Read byDevice(Texts{{"", a + at1 + aIn + "mirror session S destination eth2\n"}});
  EXPECT_EQ(
      changeWarnings({}, byDevice.layers, &named).openings.front().text,
      "interface eth1 (the device of port p1): it is no port and no port-channel: ip access-list A filters nothing "
      "there");
  EXPECT_EQ(lastingWarnings(byDevice.layers, &named).back().text,
            "mirror session S: eth2 is no port (the device of port p2): copies to it are lost");
  const Read none(Texts{{"", ""}}), five(Texts{{"", at1 + aIn + aOut + at2 + aIn + aOut + a6In}});
  EXPECT_EQ(
      *whyRefused(changeWarnings(none.layers, five.layers, &allPorts), {}),
      "interface eth1: ip access-list A is bound in but not defined: everything passes it; interface eth2: "
      "ip "
      "access-list A is bound in but not defined: everything passes it; interface eth1: ip access-list A is "
      "bound out but not defined: everything passes it; and 2 more (--allow-open carries it out)");
}

TEST(Warnings, OfWhatTwoSourcesDefine) {
  const Read texts(Texts{{"", a + at1 + aIn + po12}, {"f", "\n" + a + b + at1 + bIn + po12}});
  std::string all;
  for (const Warning& warning : lastingWarnings(texts.layers, &allPorts))
    all += std::to_string(warning.place.line) + " " + warning.text + "\n";
  EXPECT_EQ(all,
            "2 ip access-list A of f is not in force: that of cli is\n"
            "7 interface eth1: ip access-group B in of f is not in force: that of cli is\n"
            "8 port-channel po1 of f is not in force: that of cli is\n"
            "4 ip access-list B is bound nowhere\n");
}

TEST(Warnings, OfARemarkThatStandsAtNoRule) {
  const Read texts(
      Texts{{"", "ip access-list A\n 10 remark first\n" + a6 + " 100 remark last\nmac access-list M\n"}});
  std::string all;
  for (const Warning& warning : lastingWarnings(texts.layers, &allPorts)) {
    if (warning.code == WarningCode("remark-without-rule")) all += warning.text + "\n";
  }
  EXPECT_EQ(all, "ip access-list A has a remark and no rule: it drops everything\n");
}

TEST(Warnings, AreToldAHundredTimesOfACode) {
  std::string text;
  for (int i = 0; i < 103; ++i) text += "ip access-list L" + std::to_string(i) + "\n";
  const Read texts(Texts{{"", text}});
  const Warnings all = lastingWarnings(texts.layers, &allPorts);
  ASSERT_EQ(all.size(), 101u);
  EXPECT_EQ(all.back().text, "3 more of list-unbound");
}

}  // namespace
