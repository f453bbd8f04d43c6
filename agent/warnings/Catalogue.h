#pragma once

#include <cstdint>
#include <iterator>
#include <string_view>

namespace Agent {

/// What follows from a thing that people are warned of.
enum class Consequence : uint8_t {
  opening,   ///< traffic passes unfiltered that was filtered or was meant to be
  surprise,  ///< something is not what it looks like
  note       ///< nothing, but it is seldom meant
};
constexpr std::string_view stringValue(Consequence consequence) {
  constexpr std::string_view words[] = {"opening", "surprise", "note"};
  return words[static_cast<size_t>(consequence)];
}

/// One kind of warning.
struct WarningKind {
  std::string_view code;  ///< for programs; never changes
  Consequence consequence;
  std::string_view meaning;  ///< for the documentation
};

/// Everything that people can be warned of. A further kind is a row here, and a line that makes such a
/// warning where the thing is noticed.
inline constexpr WarningKind warningKinds[] = {
    {"list-undefined", Consequence::opening, "a list is bound and not defined"},
    {"list-dropped", Consequence::opening, "a change takes a list away that is bound"},
    {"list-file-gone", Consequence::opening, "the file of a list goes, and the list is bound"},
    {"interface-unknown", Consequence::opening,
     "an interface with lists is no port and no port-channel with a port"},
    {"filter-lost", Consequence::opening,
     "a change, or what a start reads, leaves no list of a kind that filters at a port and direction where one did"},
    {"rule-twice", Consequence::surprise, "a rule number is given twice; the first rule is lost"},
    {"binding-twice", Consequence::surprise,
     "a second access-group of a kind and direction; the first is lost"},
    {"list-replaced", Consequence::surprise,
     "a document has a list that an earlier text or document of the same source has, too; the first is lost"},
    {"netmask", Consequence::surprise, "a wildcard looks like a netmask"},
    {"ignored-bits", Consequence::surprise, "an address has bits that are not compared"},
    {"icmp-of-other-kind", Consequence::surprise, "icmp in an IPv6 list, or icmpv6 in an IPv4 list"},
    {"empty-group", Consequence::surprise, "a rule names an object-group without members"},
    {"implicit-end", Consequence::surprise,
     "a document does not say what becomes of what no rule of a list matches; it is dropped"},
    {"shutdown", Consequence::surprise, "shutdown is kept and has no effect"},
    {"session-undefined", Consequence::surprise, "a rule mirrors to a session that is not defined"},
    {"session-without-port", Consequence::surprise, "a mirror session leads to no port"},
    {"member-without-port", Consequence::surprise, "a member of a port-channel is no port"},
    {"defined-twice", Consequence::surprise,
     "two sources define the same list, port-channel or mirror session, or bind at the same place"},
    {"port-unjoined", Consequence::surprise, "no patch and no bridge joins a port"},
    {"mtu-differs", Consequence::surprise, "ports of one patch or bridge have different MTUs"},
    {"port-has-address", Consequence::surprise, "the device of a port has addresses of the host"},
    {"port-has-ipv6", Consequence::surprise, "IPv6 is on at the device of a port"},
    {"leaf-ignored", Consequence::note, "a document has a leaf that has no effect on traffic"},
    {"not-validated", Consequence::note, "a document is of a model that no YANG module describes"},
    {"rule-never-matches", Consequence::surprise,
     "earlier rules take all that a rule asks for, or no packet is so"},
    {"established-before-all-tcp", Consequence::surprise,
     "a rule asks for established, and such TCP is all permitted before it"},
    {"rule-changes-nothing", Consequence::note, "without a rule every packet meets the same verdict"},
    {"rule-partly-taken", Consequence::note,
     "earlier rules take a part of what a rule asks for; told on request only"},
    {"fragments-slip-by", Consequence::note,
     "a rule denies by port, and later fragments of such packets pass"},
    {"list-passes-all", Consequence::note, "no packet is dropped by a list"},
    {"list-passes-nothing", Consequence::note, "every packet is dropped by a list"},
    {"list-filters-nothing", Consequence::surprise, "a list is bound that permits everything"},
    {"remark-without-rule", Consequence::note, "a list has a remark and no rule"},
    {"list-unbound", Consequence::note, "a list is bound nowhere"},
    {"more-warnings", Consequence::note, "a text has more warnings than are told"},
};

/// A kind of the catalogue, named by its code; a code that is not in there does not compile.
class WarningCode {
 public:
  consteval WarningCode(const char* code) : kind_(indexOf(code)) {}

  const WarningKind& kind() const { return warningKinds[kind_]; }
  bool operator==(const WarningCode&) const = default;

 private:
  static consteval uint8_t indexOf(std::string_view code) {
    for (uint8_t i = 0; i < std::size(warningKinds); ++i) {
      if (warningKinds[i].code == code) return i;
    }
    throw "a warning that is not in the catalogue";
  }

  uint8_t kind_;
};

}  // namespace Agent
