#pragma once

#include <agent/change/Configuration.h>
#include <agent/control/Peer.h>
#include <agent/control/Request.h>
#include <agent/explain/Explain.h>
#include <agent/observe/Tails.h>
#include <agent/show/Shows.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

class Operations;

/// What is kept for one client between its requests: the texts that it has sent for its next `apply`, and the
/// frames that it looks at. The operations outlive it.
class Session {
 public:
  explicit Session(Operations& operations) : operations_(operations) {}
  ~Session() { drop(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// The process that the session is with.
  void peerIs(const Peer& peer) { peer_ = peer; }

 private:
  friend class Operations;
  void drop();
  std::vector<Config::Source> take();

  Operations& operations_;
  std::vector<Config::Source> texts_;
  size_t octets_ = 0;  // in the texts
  size_t held_ = 0;    // with names and overhead
  std::shared_ptr<Tail> tail_;
  Peer peer_;
};

/// The answer to a request: a document or an error. Neither of them when there was no memory to make it.
struct Answer {
  std::unique_ptr<Document> document;
  nlohmann::ordered_json error;  ///< `code` and `text`, and with code "mistakes" also `mistakes`

  static Answer of(const nlohmann::ordered_json& document) { return {wholeDocument(document), {}}; }
  static Answer failed(std::string_view code, std::string text) {
    return {nullptr, {{"code", code}, {"text", std::move(text)}}};
  }
};

/// Who judges packets for this process, if it does not do so itself.
struct PacketsElsewhere {
  /// Calls what it is given when all their counts are here; empty: they are.
  std::function<void(std::function<void()> then)> gather{};
  bool all = false;  ///< no packet comes here
};

/// Carries out the requests of the control protocol (docs/control.md). A further operation is a function and
/// a row of the table in OperationTable.cpp; a further member of a request is a row within that row.
///
/// Owner: the control plane. Everything in `world`, and the configuration, outlive it.
class Operations {
 public:
  /// How many octets all sessions together may hold, in texts, their names and overhead.
  static constexpr size_t mostText = 64 << 20;

  using Reply = std::function<void(Answer answer)>;

  /// The members that every request for a change of the configuration may have.
  static std::span<const RequestMember> ofChanges();

  /// World, zero line, configuration and tails outlive this object.
  Operations(const World& world, ZeroLine& zero, Configuration& configuration, Tails& tails,
             PacketsElsewhere elsewhere = {});

  /// One kind of request.
  struct Operation {
    std::string_view name;
    bool changes;  ///< it is only for clients that may change what the agent does
    void (Operations::*handler)(const Request&, Session&, const Reply&);
    std::string_view answer;  ///< what is in the document of its answer, for the documentation
    std::vector<RequestMember> members;
  };
  static std::span<const Operation> all();
  /// The members that every request may have.
  static std::span<const RequestMember> common();

  /// Carries out one request. `mayChange`: the client may change what the agent does. `reply` is called once,
  /// from within or later, unless this object is destroyed first. The session may be gone by then.
  void handle(Request request, Session& session, bool mayChange, const Reply& reply);

  size_t heldOctets() const { return heldOctets_; }
  const World& world() const { return world_; }

 private:
  friend class Session;
  void show(const Request& request, Session& session, const Reply& reply);
  void text(const Request& request, Session& session, const Reply& reply);
  void apply(const Request& request, Session& session, const Reply& reply);
  void edit(const Request& request, Session& session, const Reply& reply);
  void rollback(const Request& request, Session& session, const Reply& reply);
  void confirm(const Request& request, Session& session, const Reply& reply);
  void saved(const Request& request, Session& session, const Reply& reply);
  void change(const Request& request, const Session& session, Configuration::Request order,
              const Reply& reply);
  void explain(const Request& request, Session& session, const Reply& reply);
  void clear(const Request& request, Session& session, const Reply& reply);
  void trace(const Request& request, Session& session, const Reply& reply);
  void tail(const Request& request, Session& session, const Reply& reply);
  void frames(const Request& request, Session& session, const Reply& reply);

  const Change* changeOf(const std::string& number) const;
  /// Goes on when all that was counted until now is known here.
  void whenCounted(std::function<void()> then) const;

  const World world_;
  ZeroLine& zero_;
  Configuration& configuration_;
  Tails& tails_;
  const PacketsElsewhere elsewhere_;
  Explainer explainer_;
  size_t heldOctets_ = 0;
};

}  // namespace Agent
