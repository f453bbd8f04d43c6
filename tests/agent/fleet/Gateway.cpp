#include "Gateway.h"

#include <agent/fleet/Base64.h>
#include <arpa/inet.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <utility>

namespace TestSupport {

namespace {

using Json = Gateway::Json;

std::string textIn(const Json& json, const char* name) {
  return Agent::fromBase64(json.value(name, "")).value_or("");
}

int64_t numberIn(const Json& json, const char* name) {
  return std::stoll(json.value(name, std::string("0")));
}

Agent::EtcdRange rangeIn(const Json& json) {
  return {.key = textIn(json, "key"),
          .isPrefix = json.contains("range_end"),
          .keysOnly = json.value("keys_only", false),
          .changedFrom = numberIn(json, "min_mod_revision"),
          .most = numberIn(json, "limit")};
}

Json entryJson(const Agent::EtcdEntry& entry) {
  return {{"key", Agent::base64Of(entry.key)},
          {"value", Agent::base64Of(entry.value)},
          {"mod_revision", std::to_string(entry.modified)},
          {"version", std::to_string(entry.writes)}};
}

Json rangeAnswer(const std::vector<Agent::EtcdEntry>& entries) {
  Json kvs = Json::array();
  for (const auto& entry : entries) kvs.push_back(entryJson(entry));
  return {{"response_range", {{"kvs", std::move(kvs)}}}};
}

void send(int descriptor, const std::string& text) {
  for (size_t sent = 0; sent < text.size();) {
    const auto count = ::send(descriptor, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;
    sent += static_cast<size_t>(count);
  }
}

}  // namespace

int listenOnLoopback(uint16_t& port) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(listener, 100), 0);
  EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
  port = ntohs(address.sin_port);
  return listener;
}

Gateway::Gateway() : listener_(listenOnLoopback(port_)), wake_(eventfd(0, EFD_NONBLOCK)) {
  thread_ = std::thread([this] { run(); });
}

Gateway::~Gateway() {
  ending_ = true;
  eventfd_write(wake_, 1);
  thread_.join();
  for (const Client& client : clients_) close(client.descriptor);
  close(wake_);
  close(listener_);
}

void Gateway::run() {
  while (!ending_) {
    std::vector<pollfd> waiting{{listener_, POLLIN, 0}, {wake_, POLLIN, 0}};
    for (const Client& client : clients_) waiting.push_back({client.descriptor, POLLIN, 0});
    poll(waiting.data(), waiting.size(), 1000);
    eventfd_t woken = 0;
    eventfd_read(wake_, &woken);
    std::vector<Client> kept;
    for (size_t i = 0; i < clients_.size(); ++i) {
      if (waiting[i + 2].revents == 0 || serve(clients_[i]))
        kept.push_back(std::move(clients_[i]));
      else
        close(clients_[i].descriptor);
    }
    clients_ = std::move(kept);
    if (waiting[0].revents != 0) clients_.push_back({accept(listener_, nullptr, nullptr)});
    std::vector<std::string> lines;
    {
      const std::lock_guard lock(mutex_);
      lines.swap(lines_);
    }
    for (const std::string& line : lines) tellWatches(line);
  }
}

void Gateway::tellWatches(const std::string& line) {
  for (const Client& client : clients_) {
    if (client.isWatch) send(client.descriptor, line + "\n");
  }
}

/// Takes in what has come; false when the connection ends.
bool Gateway::serve(Client& client) {
  char octets[65536];
  const auto count = recv(client.descriptor, octets, sizeof octets, 0);
  if (count <= 0) return false;
  client.input.append(octets, static_cast<size_t>(count));
  for (;;) {
    const size_t end = client.input.find("\r\n\r\n"), length = client.input.find("Content-Length: ");
    if (end == std::string::npos || length > end) return true;
    const size_t size = std::stoul(client.input.substr(length + 16));
    if (client.input.size() < end + 4 + size) return true;
    const size_t path = client.input.find(' ') + 1;
    Asked asked{client.input.substr(path, client.input.find(' ', path) - path),
                Json::parse(client.input.substr(end + 4, size), nullptr, false)};
    client.input.erase(0, end + 4 + size);
    std::optional<Answer> answer;
    {
      const std::lock_guard lock(mutex_);
      asked_.push_back(asked);
      if (fault_) answer = fault_(asked);
    }
    if (answer && answer->body.empty()) return false;
    if (!answer && asked.path == "/v3/watch") {
      client.isWatch = true;
      send(client.descriptor, "HTTP/1.1 200 OK\r\n\r\n{\"result\":{\"created\":true}}\n");
      continue;
    }
    if (!answer) {
      std::string wrong;
      const Json json = answerTo(asked, &wrong);
      answer = wrong.empty() ? Answer{200, json.dump()} : Answer{400, Json({{"message", wrong}}).dump()};
    }
    send(client.descriptor, fmt::format("HTTP/1.1 {} X\r\nContent-Length: {}\r\n\r\n{}", answer->status,
                                        answer->body.size(), answer->body));
  }
}

Json Gateway::answerTo(const Asked& asked, std::string* wrong) {
  const std::lock_guard lock(mutex_);
  if (asked.path == "/v3/kv/txn") return txn(asked.body, wrong);
  if (asked.path == "/v3/auth/authenticate") return {{"token", "t"}};
  if (asked.path == "/v3/lease/grant") {
    leases_[++lastLease_];
    return {{"ID", std::to_string(lastLease_)}};
  }
  const int64_t id = numberIn(asked.body, "ID");
  if (asked.path == "/v3/lease/keepalive") return {{"result", {{"TTL", leases_.contains(id) ? "90" : "0"}}}};
  for (const std::string& key : leases_[id]) store_.write({{key, ""}});
  leases_.erase(id);
  return Json::object();
}

/// The mutex is held.
Json Gateway::txn(const Json& asked, std::string* wrong) {
  Agent::EtcdTxn made;
  for (const Json& one : asked.value("compare", Json::array())) {
    const bool isRange = one.contains("range_end");
    made.compares.push_back({textIn(one, "key"), numberIn(one, "mod_revision") - isRange,
                             isRange ? textIn(one, "range_end") : ""});
  }
  for (const Json& one : asked.at("success")) {
    if (one.contains("request_delete_range")) made.deletes.push_back(rangeIn(one.at("request_delete_range")));
    if (one.contains("request_range")) made.reads.push_back(rangeIn(one.at("request_range")));
    if (!one.contains("request_put")) continue;
    const Json& put = one.at("request_put");
    made.puts.push_back({textIn(put, "key"), textIn(put, "value"), put.contains("lease")});
    if (made.puts.back().isLeased && !leases_.contains(numberIn(put, "lease"))) {
      *wrong = "etcdserver: requested lease not found";
      return {};
    }
    if (made.puts.back().isLeased) leases_[numberIn(put, "lease")].push_back(made.puts.back().key);
  }
  const bool isWrite = !made.puts.empty() || !made.deletes.empty();
  Json befores = Json::array();
  for (const Json& one : asked.at("success")) {
    const auto known = one.contains("request_put")
                           ? store_.entries().find(textIn(one.at("request_put"), "key"))
                           : store_.entries().end();
    if (known == store_.entries().end() || !one.at("request_put").contains("prev_kv")) continue;
    befores.push_back({{"response_put", {{"prev_kv", entryJson(known->second)}}}});
  }
  const bool succeeded = isWrite ? store_.txn(made) : true;
  if (isWrite && succeeded) lines_.push_back(R"({"result":{"events":[{}]}})");
  const Agent::EtcdResult found = store_.read(made.reads);
  Json responses = succeeded ? std::move(befores) : Json::array();
  for (const auto& entries : found.reads) responses.push_back(rangeAnswer(entries));
  return {{"header", {{"revision", std::to_string(found.revision)}, {"cluster_id", found.cluster}}},
          {"succeeded", succeeded},
          {"responses", std::move(responses)}};
}

void Gateway::faultIs(std::function<std::optional<Answer>(const Asked&)> fault) {
  const std::lock_guard lock(mutex_);
  fault_ = std::move(fault);
}

std::vector<Gateway::Asked> Gateway::taken() {
  const std::lock_guard lock(mutex_);
  return std::exchange(asked_, {});
}

void Gateway::write(const std::map<std::string, std::string>& values) {
  const std::lock_guard lock(mutex_);
  store_.write(values);
  lines_.push_back(R"({"result":{"events":[{}]}})");
  eventfd_write(wake_, 1);
}

void Gateway::endLeases() {
  const std::lock_guard lock(mutex_);
  for (const auto& [id, keys] : leases_) {
    for (const std::string& key : keys) store_.write({{key, ""}});
  }
  leases_.clear();
  lines_.push_back(R"({"result":{"events":[{}]}})");
  eventfd_write(wake_, 1);
}

void Gateway::cancelWatches() {
  const std::lock_guard lock(mutex_);
  lines_.push_back(R"({"result":{"canceled":true}})");
  eventfd_write(wake_, 1);
}

std::string Gateway::value(const std::string& key) const {
  const std::lock_guard lock(mutex_);
  const auto known = store_.entries().find(key);
  return known == store_.entries().end() ? "" : known->second.value;
}

bool Gateway::until(const std::function<bool()>& holds) const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace TestSupport
