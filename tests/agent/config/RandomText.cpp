#include "RandomText.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace Config {

namespace {

using TestSupport::Dice;

/// What a word of the grammar may become. Forms that begin with ? are mistakes, or may be.
struct Production {
  std::string_view word;
  std::vector<std::string_view> forms;
};

const Production grammar[] = {
    {"name", {"A", "B", "EDGE-IN", "x.1"}},
    {"port", {"eth1", "eth2", "eth3", "eth9", "po1"}},
    {"session", {"WATCH", "S"}},
    {"direction", {"in", "out"}},
    {"action", {"permit", "deny"}},
    {"list number", {"10", "99", "1300", "101", "199", "2699", "?100000", "?200", "?0"}},
    {"number",
     {"", "", "10 ", "20 ", "5 ", "15 ", "?4294967295 ", "?4294967000 ", "1 ", "?0 ", "?4294967296 "}},

    // Blocks: a first line, and what may stand below it.
    {"ip head", {"ip access-list {name}", "ip access-list extended {name}", "ipv4 access-list {name}"}},
    {"ip line", {"{ip rule}", "{ip rule}", "{ip rule}", "{any line}"}},
    {"standard head", {"ip access-list standard S{name}"}},
    {"standard line", {"{number}{action} {ip address}{log}", "{number}{action} {ip address}", "{any line}"}},
    {"ipv6 head", {"ipv6 access-list {name}"}},
    {"ipv6 line", {"{ipv6 rule}", "{ipv6 rule}", "{ipv6 rule}", "{any line}"}},
    {"mac head", {"mac access-list {name}"}},
    {"mac line", {"{mac rule}", "{mac rule}", "{mac rule}", "{any line}"}},
    {"intf head", {"interface {port}"}},
    {"intf line",
     {"{kind} access-group {name} {direction}", "{kind} access-group {name} {direction}",
      "description {remark}", "no description", "shutdown", "no shutdown", "exit",
      "no {kind} access-group {direction}", "no {kind} access-group {name} {direction}"}},
    {"rest head",
     {"mirror session {session} destination eth9", "port-channel po1 members eth2 eth3",
      "no port-channel po1", "no {kind} access-list {name}", "no mirror session {session}",
      "no interface {port}", "?mirror session {session} destination {port} eth1",
      "?port-channel po2 members {port}"}},
    {"rest line",
     {"! {remark}", "", "# x", "end", "access-list {standard number} {action} {ip address}{log}",
      "access-list {standard number} {action} {ip}{log}", "access-list 101 {action} ip {ip address} any{log}",
      "access-list {standard number} remark {remark}", "no access-list {standard number}",
      "?access-list {list number} {action} {ip address}"}},
    {"standard number", {"10", "99", "1300", "1999"}},
    {"groups",
     {"object-group network G4\n host {ip}\n {ip}/{length4}\nobject-group network H4\n range 10.0.0.3 "
      "10.0.0.9\n "
      "group-object G4\nobject-group network G6\n host {ip6}\n {ip6}/{length6}\nobject-group service "
      "S\n{service}"
      "{service}object-group service P\n tcp eq {l4}\n tcp gt {l4}\nobject-group network N\n",
      "?object-group network G4\n group-object H4\nobject-group network H4\n group-object G4\n"}},
    {"service", {" tcp-udp eq {l4}\n", " gre\n", " 99\n", " udp\n", " tcp range 22 443\n", ""}},
    {"group4", {"G4", "H4", "N", "?G6", "?S", "?X"}},
    {"any line",
     {"{number}remark {remark}", "15 remark {remark}", "no 15 remark", "exit", "remark {remark}", "no 10",
      "no remark", "?no {number}{action}", "!", "?no {ip rule}"}},
    {"kind", {"ip", "ipv6", "mac"}},
    {"remark", {"partners first", "  a  b\t c ", "! no permit 10", "gr\xc3\xbc\xc3\x9f", "x"}},

    {"ip rule",
     {"{number}{action} {vlan}ip {ip address} {ip address}{ip more}{tail}",
      "{number}{action} {vlan}{ported} {ip address}{ports} {ip address}{ports}{ip more}{tail}",
      "{number}{action} {vlan}tcp {ip address}{ports} {ip address}{ports}{flags}{ip more}{tail}",
      "{number}{action} {vlan}icmp {ip address} {ip address}{message}{ip more}{tail}",
      "{number}{action} {vlan}{protocol} {ip address} {ip address}{ip more}{tail}",
      "{number}{action} {vlan}ip object-group {group4} {ip address}{tail}",
      "{number}{action} {vlan}object-group S {ip address} object-group {group4}{tail}",
      "{number}{action} tcp object-group {group4}{ports} {ip address} object-group P{flags}{ip more}{tail}",
      "{number}{action} ip any any"}},
    {"ipv6 rule",
     {"{number}{action} {vlan}ipv6 {ipv6 address} {ipv6 address}{ipv6 more}{tail}",
      "{number}{action} {vlan}{ported} {ipv6 address}{ports} {ipv6 address}{ports}{ipv6 more}{tail}",
      "{number}{action} {vlan}tcp {ipv6 address}{ports} {ipv6 address}{ports}{flags}{ipv6 more}{tail}",
      "{number}{action} {vlan}icmpv6 {ipv6 address} {ipv6 address}{message6}{ipv6 more}{tail}",
      "{number}{action} {vlan}{protocol} {ipv6 address} {ipv6 address}{ipv6 more}{tail}",
      "{number}{action} object-group S object-group G6 {ipv6 address}{tail}",
      "{number}{action} ipv6 any any"}},
    {"mac rule",
     {"{number}{action} {vlan}{mac address} {mac address}{type}{tail}", "{number}{action} any any"}},

    {"ip address",
     {"any", "host {ip}", "{ip}/{length4}", "{ip} {wildcard4}", "host 192.0.2.1", "192.0.2.0/24"}},
    {"ip", {"192.0.2.1", "192.0.2.2", "192.0.2.130", "198.51.100.7", "0.0.0.0", "255.255.255.255"}},
    {"length4", {"24", "25", "32", "0", "31", "1", "?33"}},
    {"wildcard4",
     {"0.0.0.255", "0.0.0.127", "255.255.255.254", "15.255.255.253", "0.0.0.0", "170.85.170.85"}},
    {"ipv6 address",
     {"any", "host {ip6}", "{ip6}/{length6}", "{ip6} {wildcard6}", "host 2001:db8::1", "2001:db8::/32"}},
    {"ip6",
     {"2001:db8::1", "2001:db8::2", "2001:db8:0:1::1", "fe80::1", "::", "::ffff:192.0.2.1",
      "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}},
    {"length6", {"64", "32", "128", "0", "127", "63", "65", "?129"}},
    {"wildcard6", {"::ffff", "ffff:ffff:ffff:ffff::", "7fff::fffd", "::", "::1"}},
    {"mac address", {"any", "host {mac}", "{mac} {macwild}"}},
    {"mac",
     {"02:00:5e:00:00:01", "02:00:5e:00:00:02", "02:00:5e:00:01:01", "ff:ff:ff:ff:ff:ff", "0200.5e00.0001"}},
    {"macwild", {"00:00:00:00:00:ff", "00:00:00:ff:ff:ff", "ff:ff:ff:ff:ff:fe", "feff.ffff.ffff"}},

    {"protocol", {"6", "17", "1", "58", "132", "99", "gre", "esp", "ospf", "0", "255", "?256"}},
    {"ported", {"tcp", "udp", "sctp", "6", "17", "132"}},
    {"ports",
     {"", "", " eq {l4}", " neq {l4}", " lt {l4}", " gt {l4}", " range 22 443", " range 0 65535",
      " eq {l4} {l4} {l4}", " neq 1 2 3 4 5 6 7 8 9 {l4}", "? range {l4} {l4}",
      "? eq 1 2 3 4 5 6 7 8 9 10 {l4}"}},
    {"l4",
     {"0", "22", "53", "80", "81", "443", "1023", "1024", "65535", "65534", "1", "domain", "https",
      "?65536"}},
    {"flags", {"", " established", " syn", " syn ack", " fin rst psh urg", " ack"}},
    {"message", {"", " echo", " 3", " 3 1", " echo-reply", " 0 0", "? 255 255", "? 256"}},
    {"message6", {"", " packet-too-big", " 2 0", " 1", " echo-request", " 255"}},
    {"ip more", {"", "", " dscp {dscp}", " ttl {hops}", " fragments", " dscp {dscp} ttl {hops}"}},
    {"ipv6 more",
     {"", "", " traffic-class {class}", " hop-limit {hops}", " fragments",
      " traffic-class {class} hop-limit {hops}"}},
    {"dscp", {"ef", "0", "46", "8 0x38", "11 0x3f", "63 0x1", "af41", "?64"}},
    {"class", {"0x20", "0", "184 0xfc", "47 0xff", "255 0x3", "?256"}},
    {"hops", {"eq 64", "neq 0", "lt 64", "gt 1", "lt 1", "gt 254", "eq 255", "?lt 0", "?gt 255", "?eq 256"}},
    {"vlan",
     {"", "", "", "vlan 100 ", "vlan 0 ", "vlan 100 0x00f ", "vlan 1 0xffe ", "vlan 4095 ", "?vlan 4096 "}},
    {"type", {"", "", " ip", " ipv6", " arp", " 0x0806", " 0x0600", " 0xffff", "? 0x05ff"}},
    {"log", {"", " log"}},
    {"tail", {"", "", "", " log", " mirror session {session}", " log mirror session {session}"}},
};

constexpr std::string_view blocks[] = {"ip", "ipv6", "mac", "intf", "standard", "rest"};

constexpr std::string_view pieces[] = {
    "no",    "0x",    "0xffffffffff", "any",        "host",      "/",      "/33",     "::",      "eq",
    "range", "65536", "10",           "4294967296", "!",         "#",      "",        "log",     "vlan",
    "\r",    "\t",    "\xff",         "\xe2\x82",   "fragments", "mirror", "session", "1.2.3.4", "in"};

const std::vector<std::string_view>& formsOf(std::string_view word) {
  for (const Production& production : grammar) {
    if (production.word == word) return production.forms;
  }
  throw std::logic_error("no form of " + std::string(word));
}

}  // namespace

std::string randomForm(std::string_view form, Dice& dice, bool spoiled) {
  std::string text;
  while (!form.empty()) {
    const size_t open = std::min(form.find('{'), form.size());
    text += form.substr(0, open);
    form.remove_prefix(open);
    if (form.empty()) break;
    const size_t close = form.find('}');
    const auto& forms = formsOf(form.substr(1, close - 1));
    std::string_view drawn = dice.of(forms);
    if (drawn.starts_with('?')) drawn = spoiled ? drawn.substr(1) : forms.front();
    text += randomForm(drawn, dice, spoiled);
    form.remove_prefix(close + 1);
  }
  return text;
}

std::string randomText(Dice& dice, bool spoiled) {
  std::string text;
  const auto line = [&](const std::string& form) {
    std::string made = randomForm(form, dice, spoiled);
    if (spoiled && dice.once(6)) made = mutated(std::move(made), dice);
    text += made + "\n";
  };
  for (auto count = 1 + dice.below(8); count > 0; --count) {
    const std::string block(dice.of(blocks));
    line("{" + block + " head}");
    for (auto lines = dice.below(8); lines > 0; --lines) line("{" + block + " line}");
  }
  if (text.find("object-group") == std::string::npos) return text;
  const std::string definitions = randomForm("{groups}", dice, spoiled);
  return dice.once(2) ? definitions + text : text + definitions;
}

std::string mutated(std::string text, Dice& dice) {
  for (auto changes = dice.below(4); changes > 0; --changes) {
    const size_t place = dice.below(text.size() + 1);
    switch (dice.below(6)) {
      case 0:
        text.insert(place, 1, static_cast<char>(dice.below(256)));
        break;
      case 1:
        text.insert(place, " " + std::string(dice.of(pieces)) + " ");
        break;
      case 2:
        text.erase(place, dice.below(8));
        break;
      case 3:
        text.resize(place);
        break;
      case 4:
        if (place < text.size()) text[place] = static_cast<char>(text[place] ^ (1 << dice.below(8)));
        break;
      default:
        text.insert(place, randomForm("{" + std::string(dice.of(blocks)) + " head}", dice));
    }
  }
  return text;
}

}  // namespace Config
