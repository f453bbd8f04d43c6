#include <Acl/Rule.h>

#include <algorithm>
#include <stdexcept>

namespace Acl {

namespace {

constexpr int32_t maxMplsLabel = 0xFFFFF;

constexpr char labelText[] = "Acl::MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed";
constexpr char innerLabelText[] = "Acl::MacFilter::mplsInnerLabel < 0 or > 0xFFFFF not allowed";

void checkMplsLabel(int32_t label, const char* text) {
  if (label < 0 || label > maxMplsLabel) throw std::range_error(text);
}

}  // namespace

bool PortMatch::matches(uint16_t port) const {
  const auto end = ports.begin() + count;
  switch (op) {
    case Compare::any:
      return true;
    case Compare::eq:
      return std::find(ports.begin(), end, port) != end;
    case Compare::neq:
      return std::find(ports.begin(), end, port) == end;
    case Compare::lt:
      return port < ports[0];
    case Compare::gt:
      return port > ports[0];
    case Compare::range:
      return ports[0] <= port && port <= ports[1];
  }
  return false;
}

bool HopMatch::matches(uint8_t hops) const {
  switch (op) {
    case Compare::any:
      return true;
    case Compare::eq:
      return hops == value;
    case Compare::neq:
      return hops != value;
    case Compare::lt:
      return hops < value;
    case Compare::gt:
      return hops > value;
    case Compare::range:
      return false;
  }
  return false;
}

MacFilter::MacFilter(const MacFilter& other)
    : vlan(other.vlan),
      source(other.source),
      sourceMask(other.sourceMask),
      destination(other.destination),
      destinationMask(other.destinationMask),
      etherTypeNamed(other.etherTypeNamed),
      etherType(other.etherType),
      mpls(other.mpls) {
  checkMplsLabel(mpls.label, labelText);
  checkMplsLabel(mpls.innerLabel, innerLabelText);
}

void MacFilter::mplsLabelIs(int32_t label) {
  checkMplsLabel(label, labelText);
  mpls.labelNamed = true;
  mpls.label = label;
}

void MacFilter::mplsInnerLabelIs(int32_t label) {
  checkMplsLabel(label, innerLabelText);
  mpls.innerLabelNamed = true;
  mpls.innerLabel = label;
}

}  // namespace Acl
