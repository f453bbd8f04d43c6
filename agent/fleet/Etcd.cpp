#include <agent/core/Words.h>
#include <agent/fleet/Base64.h>
#include <agent/fleet/Etcd.h>
#include <agent/fleet/FleetKeys.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <charconv>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

constexpr double usualPatience = 5;
constexpr double shortPatience = 0.3;
/// Of the words of gRPC's statuses: what another endpoint may do better.
constexpr int codeUnavailable = 14, codeUnauthenticated = 16;

Json rangeJson(const EtcdRange& range) {
  Json json = {{"key", base64Of(range.key)}};
  if (range.isPrefix) json["range_end"] = base64Of(prefixEnd(range.key));
  if (range.keysOnly) json["keys_only"] = true;
  if (range.changedFrom > 0) json["min_mod_revision"] = std::to_string(range.changedFrom);
  if (range.most > 0) json["limit"] = std::to_string(range.most);
  if (range.at > 0) json["revision"] = std::to_string(range.at);
  return json;
}

Json txnJson(const EtcdTxn& txn) {
  Json compare = Json::array(), success = Json::array(), reads = Json::array();
  for (const auto& [key, modified, end] : txn.compares) {
    Json one = {{"key", base64Of(key)},
                {"target", "MOD"},
                {"result", end.empty() ? "EQUAL" : "LESS"},
                {"mod_revision", std::to_string(end.empty() ? modified : modified + 1)}};
    if (!end.empty()) one["range_end"] = base64Of(end);
    compare.push_back(std::move(one));
  }
  for (const EtcdRange& range : txn.deletes) {
    Json gone = {{"key", base64Of(range.key)}};
    if (range.isPrefix) gone["range_end"] = base64Of(prefixEnd(range.key));
    success.push_back({{"request_delete_range", std::move(gone)}});
  }
  for (const auto& [key, value, isLeased, tellsBefore] : txn.puts) {
    Json put = {{"key", base64Of(key)}, {"value", base64Of(value)}};
    if (isLeased) put["lease"] = std::to_string(txn.lease);
    if (tellsBefore) put["prev_kv"] = true;
    success.push_back({{"request_put", std::move(put)}});
  }
  for (const EtcdRange& range : txn.reads) reads.push_back({{"request_range", rangeJson(range)}});
  success.insert(success.end(), reads.begin(), reads.end());
  Json json = {{"compare", std::move(compare)}, {"success", std::move(success)}};
  if (!txn.compares.empty()) json["failure"] = std::move(reads);
  return json;
}

/// Numbers of 64 bits are texts in this form; a member that is left out is 0.
int64_t integerIn(const Json& json, const char* name) {
  const auto member = json.find(name);
  if (member == json.end()) return 0;
  if (member->is_number_integer()) return member->get<int64_t>();
  if (!member->is_string()) return 0;
  const auto& text = member->get_ref<const std::string&>();
  int64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

/// Whether a new token may be answered. Tokens that are signed end with any change of users and roles; the
/// store has no status of its own for that.
bool isOldToken(int code, const std::string& said) {
  return code == codeUnauthenticated || said.find("auth token") != std::string::npos ||
         said.find("auth store is old") != std::string::npos;
}

std::string textIn(const Json& json, const char* name) {
  const auto member = json.find(name);
  return member != json.end() && member->is_string() ? member->get<std::string>() : std::string();
}

/// A member that is an object or array; an empty object when it is left out.
const Json& partOf(const Json& json, const char* name) {
  static const Json nothing = Json::object();
  const auto member = json.find(name);
  return member != json.end() && member->is_structured() ? *member : nothing;
}

EtcdEntry entryIn(const Json& kv) {
  return {fromBase64(textIn(kv, "key")).value_or(""), fromBase64(textIn(kv, "value")).value_or(""),
          integerIn(kv, "mod_revision"), integerIn(kv, "version")};
}

std::vector<EtcdEntry> entriesIn(const Json& range) {
  std::vector<EtcdEntry> entries;
  for (const Json& kv : partOf(range, "kvs")) entries.push_back(entryIn(kv));
  return entries;
}

EtcdResult resultIn(const Json& json) {
  EtcdResult result;
  const Json& header = partOf(json, "header");
  result.revision = integerIn(header, "revision");
  result.cluster = textIn(header, "cluster_id");
  const auto succeeded = json.find("succeeded");
  result.succeeded = succeeded != json.end() && *succeeded == true;
  for (const Json& response : partOf(json, "responses")) {
    if (response.contains("response_range"))
      result.reads.push_back(entriesIn(partOf(response, "response_range")));
    const Json& before = partOf(partOf(response, "response_put"), "prev_kv");
    if (!before.empty()) result.before.push_back(entryIn(before));
  }
  return result;
}

}  // namespace

/// What came of a question.
struct Etcd::Called {
  Json json{};
  std::string wrong{};     ///< empty: it was answered
  bool elsewhere = false;  ///< another endpoint may answer
  bool again = false;      ///< with another token it may be answered
  bool isUnknown = false;
  bool isTooMuch = false;
};

Etcd::Etcd(Http& http, EtcdPlace place) : http_(http), place_(std::move(place)) {}

Etcd::Called Etcd::callOnce(const char* path, const std::string& body, double patience) {
  const Http::Answer answer = http_.post({endpoint() + path, body, token_, patience});
  // What is too much at one endpoint is so at each.
  if (answer.status == 0)
    return {
        {}, endpoint() + ": " + answer.wrong, !answer.isTooMuch, false, answer.isUnknown, answer.isTooMuch};
  Json json = Json::parse(answer.body, nullptr, false);
  if (answer.status == 200 && json.is_object()) return {std::move(json), {}, false, false, false};
  const int code = json.is_object() ? static_cast<int>(integerIn(json, "code")) : 0;
  const std::string said =
      json.is_object() ? textIn(json, "message") + (json.contains("message") ? "" : textIn(json, "error"))
                       : "";
  const bool isLate = answer.status >= 500 || code == codeUnavailable;
  return {{},
          fmt::format("{}: {}", endpoint(),
                      said.empty() ? fmt::format("HTTP status {}", answer.status) : printableText(said)),
          isLate,
          isOldToken(code, said),
          isLate};
}

std::optional<std::string> Etcd::authenticate() {
  token_.clear();
  if (place_.user.empty()) return std::nullopt;
  const Json question = {{"name", place_.user}, {"password", place_.password}};
  Called called = callOnce("/v3/auth/authenticate", question.dump(), usualPatience);
  if (!called.wrong.empty()) return std::move(called.wrong);
  token_ = textIn(called.json, "token");
  return std::nullopt;
}

Etcd::Called Etcd::call(const char* path, const Json& question, bool onlyReads, double patience) {
  const std::string body = question.dump(-1, ' ', false, Json::error_handler_t::replace);
  Called called;
  for (size_t tried = 0; tried < place_.endpoints.size(); ++tried) {
    if (tried > 0) next();
    for (int tries = 0; tries < 2; ++tries) {
      if (token_.empty() && !place_.user.empty()) {
        if (auto wrong = authenticate()) {
          called = {{}, std::move(*wrong), true, false, false};
          break;
        }
      }
      called = callOnce(path, body, patience);
      if (!called.again) break;
      token_.clear();
    }
    if (!called.elsewhere || (called.isUnknown && !onlyReads)) break;
  }
  // The next question is not to wait for the same endpoint.
  if (called.elsewhere) next();
  return called;
}

Maybe<EtcdResult> Etcd::txn(const EtcdTxn& asked) {
  const bool onlyReads = asked.puts.empty() && asked.deletes.empty();
  Called called = call("/v3/kv/txn", txnJson(asked), onlyReads, usualPatience);
  if (!called.wrong.empty()) return {{}, std::move(called.wrong), called.isUnknown, called.isTooMuch};
  EtcdResult result = resultIn(called.json);
  if (result.reads.size() != asked.reads.size())
    return {{}, endpoint() + ": an answer of another kind", true};
  return {std::move(result), {}, false};
}

Maybe<EtcdResult> Etcd::read(std::vector<EtcdRange> ranges) { return txn({.reads = std::move(ranges)}); }

Maybe<int64_t> Etcd::grant(int seconds) {
  Called called = call("/v3/lease/grant", {{"TTL", std::to_string(seconds)}}, true, usualPatience);
  if (!called.wrong.empty()) return {{}, std::move(called.wrong), false};
  return {integerIn(called.json, "ID"), {}, false};
}

Maybe<bool> Etcd::keepAlive(int64_t lease) {
  Called called = call("/v3/lease/keepalive", {{"ID", std::to_string(lease)}}, true, usualPatience);
  if (!called.wrong.empty()) return {{}, std::move(called.wrong), false};
  return {integerIn(partOf(called.json, "result"), "TTL") > 0, {}, false};
}

void Etcd::revoke(int64_t lease) {
  callOnce("/v3/lease/revoke", Json({{"ID", std::to_string(lease)}}).dump(), shortPatience);
}

std::unique_ptr<Http::Stream> Etcd::watch(const std::vector<std::string>& prefixes, int64_t from) {
  std::string body;
  for (const std::string& prefix : prefixes) {
    Json create = rangeJson({.key = prefix, .isPrefix = true});
    create["start_revision"] = std::to_string(from);
    body += Json({{"create_request", std::move(create)}}).dump();
  }
  return http_.stream({endpoint() + "/v3/watch", body, token_});
}

Etcd::News Etcd::newsIn(const std::string& line) {
  const Json json = Json::parse(line, nullptr, false);
  if (!json.is_object() || !json.contains("result")) return {.isCancelled = true};
  const Json& result = partOf(json, "result");
  const auto cancelled = result.find("canceled");
  return {integerIn(partOf(result, "header"), "revision"), !partOf(result, "events").empty(),
          cancelled != result.end() && *cancelled == true};
}

}  // namespace Agent
