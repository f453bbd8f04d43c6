#include <Acl/Conditions.h>

#include <algorithm>
#include <stdexcept>

namespace Acl {

namespace {

constexpr char labelText[] = "Acl::MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed";
constexpr char innerLabelText[] = "Acl::MacFilter::mplsInnerLabel < 0 or > 0xFFFFF not allowed";

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

void MplsFilter::labelIs(int32_t label) {
  if (!isLabel(label)) throw std::range_error(labelText);
  labels_.labelNamed = true;
  labels_.label = label;
}

void MplsFilter::innerLabelIs(int32_t label) {
  if (!isLabel(label)) throw std::range_error(innerLabelText);
  labels_.innerLabelNamed = true;
  labels_.innerLabel = label;
}

void MplsFilter::refuse() const {
  throw std::range_error(isLabel(labels_.label) ? innerLabelText : labelText);
}

}  // namespace Acl
