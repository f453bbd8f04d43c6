#include <agent/config/Addresses.h>
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <agent/config/Rules.h>

namespace Config {

namespace {

constexpr uint32_t lowestEtherType = 0x0600;

/// Reads the EtherType, if there is one: a word that begins like a number, or a name. Any other word is left
/// for the tail of the rule.
bool readEtherType(Cursor& at, Acl::MacFilter* filter) {
  if (looksHexadecimal(at.peek())) {
    const auto type = hexadecimal(at.peek());
    if (!type || *type < lowestEtherType || *type > 0xffff)
      return at.fail("an EtherType of 0x0600 to 0xffff");
    filter->etherType = static_cast<uint16_t>(*type);
  } else if (const auto named = etherTypeNumber(at.peek())) {
    filter->etherType = *named;
  } else {
    return true;
  }
  at.take();
  filter->etherTypeNamed = true;
  return true;
}

}  // namespace

bool readMacRule(Cursor& at, Acl::MacRule* rule, GroupNames*) {
  auto& filter = rule->filter;
  return readAction(at, rule) && readVlan(at, &filter.vlan) &&
         readAddress(at, &filter.source, &filter.sourceMask) &&
         readAddress(at, &filter.destination, &filter.destinationMask) && readEtherType(at, &filter) &&
         readTail(at, rule, filter.etherTypeNamed ? "" : "an EtherType (a name or 0x0600 to 0xffff), ",
                  filter.etherTypeNamed ? std::vector<std::string_view>() : namesOf(etherTypeNames()));
}

}  // namespace Config
