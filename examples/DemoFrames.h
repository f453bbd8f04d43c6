#pragma once

#include <tests/support/Frames.h>

#include <string>
#include <utility>
#include <vector>

/// The frames of the demo, each made for a purpose, and what becomes of them under demo.acl.
namespace Demo {

/// A frame as a capture holds it: its first octets, and how many it had on the wire.
struct Captured {
  TestSupport::Bytes bytes;
  size_t wireLength;

  Captured(TestSupport::Bytes whole) : bytes(std::move(whole)), wireLength(bytes.size()) {}
  Captured(const TestSupport::FrameBuilder& whole) : Captured(whole.bytes()) {}
  /// A capture that kept `size` octets of each frame.
  Captured(const TestSupport::FrameBuilder& whole, size_t size) : Captured(whole) { bytes.resize(size); }
};

/// What is to become of a frame.
struct Outcome {
  std::string dropped;     ///< "in" or "out", empty when it passes
  std::string reason;      ///< of the drop
  std::string rules;       ///< LIST/NUMBER of each rule that it meets, in this order
  std::string mirroredTo;  ///< the mirror session that gets a copy; empty: none
};

/// Passes, by these rules. No rules: there is no list on its way.
inline Outcome passes(std::string rules, std::string mirroredTo = {}) {
  return {"", "", std::move(rules), std::move(mirroredTo)};
}
/// Meets these rules, of which the last is a deny in a list bound in `direction`.
inline Outcome denied(std::string direction, std::string rules, std::string mirroredTo = {}) {
  return {std::move(direction), "dropping pkt", std::move(rules), std::move(mirroredTo)};
}
/// Meets these rules, and then a list bound in `direction` in which it meets none.
inline Outcome unmatched(std::string direction, std::string rules) {
  return {std::move(direction), "No match on intf %s, default action is drop", std::move(rules), ""};
}
/// Is dropped on receipt, before any list is asked.
inline Outcome malformed(std::string reason) { return {"in", std::move(reason), "", ""}; }

struct DemoFrame {
  std::string port;  ///< where it is received
  std::string purpose;
  Outcome outcome;
  Captured frame;
};

/// From the Internet, on eth1, and over IPv6.
std::vector<DemoFrame> edgeFrames();
std::vector<DemoFrame> edgeFrames6();
/// From the servers, on eth2, and from the branch, on eth4.
std::vector<DemoFrame> insideFrames();
/// What must never pass, on eth1 and on eth4.
std::vector<DemoFrame> malformedFrames();

/// Frames from the Internet and from a server, without more than their addresses.
inline TestSupport::FrameBuilder fromInternet() {
  return TestSupport::frame().eth("02:00:5e:00:00:01", "02:00:5e:00:00:02");
}
inline TestSupport::FrameBuilder fromServer() {
  return TestSupport::frame().eth("02:00:5e:00:01:07", "02:00:5e:00:00:02");
}

}  // namespace Demo
