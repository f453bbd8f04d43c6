#pragma once

#include <Acl/Rule.h>

#include "../support/Frames.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

/// A second opinion on which rule a frame meets, made in another way than the matchers: it reads the frame's
/// octets itself into a table of named fields, turns every condition into a list of allowed intervals or of
/// bits, asks every rule, and of all that agree takes the one with the smallest number.
class ReferenceMatcher {
 public:
  explicit ReferenceMatcher(const Bytes& frame);

  std::optional<uint32_t> first(const std::vector<Acl::IpRule>& rules) const;
  std::optional<uint32_t> first(const std::vector<Acl::Ip6Rule>& rules) const;
  std::optional<uint32_t> first(const std::vector<Acl::MacRule>& rules) const;

 private:
  /// A character a bit, 0 or 1 in value, the highest first.
  using Bits = std::string;

  void readIp4(size_t at);
  void readIp6(size_t at);
  void readL4(uint32_t protocol, size_t at);
  uint32_t at16(size_t at) const { return uint32_t{frame_.at(at)} * 256 + frame_.at(at + 1); }
  Bits bitsAt(size_t at, size_t octets) const;

  bool bitsAgree(const std::string& name, const Bits& value, const Bits& mask) const;
  bool isOneOf(const std::string& name, const std::vector<std::pair<long, long>>& intervals) const;
  bool portAgrees(const std::string& name, const Acl::PortMatch& port) const;
  bool baseAgrees(const Acl::IpFilterBase& filter) const;
  bool agrees(const Acl::IpFilter& filter) const;
  bool agrees(const Acl::Ip6Filter& filter) const;
  bool agrees(const Acl::MacFilter& filter) const;
  template <class Filter>
  bool anyAgrees(const std::vector<Filter>& filters) const {
    bool any = false;
    for (const Filter& filter : filters) any = any || agrees(filter);
    return any;
  }
  template <class Rule>
  std::optional<uint32_t> smallest(const std::vector<Rule>& rules) const;

  const Bytes frame_;
  std::map<std::string, long> number_;  // fields that the frame does not have are not there
  std::map<std::string, Bits> bits_;
};

}  // namespace TestSupport
