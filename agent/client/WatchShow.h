#pragma once

#include <agent/client/ControlClient.h>
#include <agent/show/ListOrder.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace Agent {

/// What `velo show` is asked for.
struct ShowRequest {
  std::string what;
  std::string list;  ///< empty: all
  std::string interface, source;
  bool hit = false, unused = false;
  bool summary = false;  ///< where a show has one
  std::optional<RuleOrder> order;
  std::optional<size_t> top;

  bool selects() const { return !interface.empty() || hit || unused || order || top; }
  /// By packets, if only the first ones are asked for.
  RuleOrder ruleOrder() const { return order.value_or(top ? RuleOrder::hits : RuleOrder::number); }
};

/// The document that is shown, as it is now and later. The client outlives it.
class ShownDocument {
 public:
  /// `rates`: there will be several documents, with rates in them.
  ShownDocument(ControlClient& agent, ShowRequest request, bool rates)
      : agent_(agent), request_(std::move(request)), withRates_(rates) {}

  /// The document of this moment, its rules in order. Nothing when the agent does not give one; then `wrong`
  /// says why, and `exit` is the exit status.
  std::optional<nlohmann::ordered_json> next(std::string* wrong, Exit* exit);
  ShowRequest& request() { return request_; }

 private:
  ControlClient& agent_;
  ShowRequest request_;
  const bool withRates_;
  RuleRates rates_;
};

/// Shows a document on the terminal as a full screen, anew every `interval` seconds, until the user ends it.
Exit watchShow(ShownDocument& shown, double interval);

}  // namespace Agent
