#include <agent/config/Cursor.h>
#include <agent/config/Names.h>
#include <agent/models/IetfNames.h>
#include <fmt/format.h>

#include <algorithm>

namespace Models {

namespace {

/// The names of ietf-ethertypes (RFC 8519), which are not those of the configuration text.
constexpr Config::NamedNumber etherTypes[] = {
    {"ipv4", 0x0800},
    {"arp", 0x0806},
    {"wlan", 0x0842},
    {"trill", 0x22f3},
    {"srp", 0x22ea},
    {"decnet", 0x6003},
    {"rarp", 0x8035},
    {"appletalk", 0x809b},
    {"aarp", 0x80f3},
    {"vlan", 0x8100},
    {"ipx", 0x8137},
    {"qnx", 0x8204},
    {"ipv6", 0x86dd},
    {"efc", 0x8808},
    {"esp", 0x8809},
    {"cobranet", 0x8819},
    {"mpls-unicast", 0x8847},
    {"mpls-multicast", 0x8848},
    {"pppoe-discovery", 0x8863},
    {"pppoe-session", 0x8864},
    {"intel-ans", 0x886d},
    {"jumbo-frames", 0x8870},
    {"homeplug", 0x887b},
    {"eap", 0x888e},
    {"profinet", 0x8892},
    {"hyperscsi", 0x889a},
    {"aoe", 0x88a2},
    {"ethercat", 0x88a4},
    {"provider-bridging", 0x88a8},
    {"ethernet-powerlink", 0x88ab},
    {"goose", 0x88b8},
    {"gse", 0x88b9},
    {"sv", 0x88ba},
    {"lldp", 0x88cc},
    {"sercos", 0x88cd},
    {"wsmp", 0x88dc},
    {"homeplug-av-mme", 0x88e1},
    {"mrp", 0x88e3},
    {"macsec", 0x88e5},
    {"pbb", 0x88e7},
    {"cfm", 0x8902},
    {"fcoe", 0x8906},
    {"fcoe-ip", 0x8914},
    {"roce", 0x8915},
    {"tte", 0x891d},
    {"hsr", 0x892f},
};

}  // namespace

bool checkIetfLength(const Found& found) {
  const auto size =
      std::count_if(found.text.begin(), found.text.end(), [](char c) { return (c & 0xc0) != 0x80; });
  const bool right = size > 0 && static_cast<size_t>(size) <= longestIetfName;
  if (!right) found.refuse(fmt::format("a name of 1 to {} characters", longestIetfName));
  return right;
}

std::optional<uint16_t> etherTypeOf(const Node& leaf, std::string_view text) {
  const bool number = leaf.kind == Node::Kind::number || leaf.xml;
  const auto value = number ? Config::decimal(leaf.value) : std::nullopt;
  if (value && *value <= 0xffff) return static_cast<uint16_t>(*value);
  for (const auto& row : etherTypes) {
    if (row.name == text) return row.number;
  }
  return std::nullopt;
}

}  // namespace Models
