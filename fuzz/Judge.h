#pragma once

#include "../tests/Acl/ReferenceMatcher.h"

#include <agent/config/Model.h>

#include <optional>
#include <string>
#include <vector>

namespace Fuzz {

/// A rule, or with sequence 0 the implicit drop, that a frame is to meet.
struct Hit {
  Acl::AclDirection direction;
  std::string interface;
  Acl::AclType type;
  std::string list;
  uint32_t sequence;
};

/// What becomes of one frame by a configuration: the list of the port-channel is asked before that of its
/// member, on each the MAC list before the IP list.
class Judge {
 public:
  /// Nothing for a frame that the reference matcher cannot read: cut off, or with headers that it leaves to
  /// others.
  static std::optional<Judge> read(const Config::Model& model, const TestSupport::Bytes& frame);

  /// Whether the frame passes that way; `channel` is empty for a port that is in none.
  bool pass(Acl::AclDirection direction, const std::string& channel, const std::string& port);

  /// In the order of trial.
  const std::vector<Hit>& hits() const { return hits_; }
  /// How many copies are sent to destinations of mirror sessions.
  uint64_t copies() const { return copies_; }
  std::string str() const;

 private:
  Judge(const Config::Model& model, TestSupport::ReferenceMatcher matcher, uint16_t etherType)
      : model_(model), matcher_(std::move(matcher)), etherType_(etherType) {}
  bool passList(Acl::AclDirection direction, const std::string& interface, Acl::AclType type);

  const Config::Model& model_;
  TestSupport::ReferenceMatcher matcher_;
  uint16_t etherType_;  ///< behind the tags
  std::vector<Hit> hits_;
  uint64_t copies_ = 0;
};

}  // namespace Fuzz
