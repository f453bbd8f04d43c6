#pragma once

#include <nlohmann/json.hpp>

#include "FakeStore.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace TestSupport {

/// A socket that listens at a free port of this machine's own address.
int listenOnLoopback(uint16_t& port);

/// A store that answers by HTTP, as etcd's gateway does, on a thread of its own: what a client asks for is
/// written down, and a test may say what becomes of it.
class Gateway {
 public:
  using Json = nlohmann::ordered_json;
  struct Asked {
    std::string path;
    Json body;
  };
  struct Answer {
    int status = 200;
    std::string body;  ///< empty: the connection ends without one
  };

  Gateway();
  ~Gateway();
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  /// What the store says in place of an answer; nothing: it answers. Called on the thread.
  void faultIs(std::function<std::optional<Answer>(const Asked& asked)> fault);
  /// What was asked since the last call.
  std::vector<Asked> taken();
  /// Writes as another client does, and tells whoever watches; an empty value deletes.
  void write(const std::map<std::string, std::string>& values);
  /// All leases come to their end, and with them their keys.
  void endLeases();
  /// Says no more to who watches, and tells them so.
  void cancelWatches();
  std::string value(const std::string& key) const;
  /// Waits until something holds; false after five seconds.
  bool until(const std::function<bool()>& holds) const;

 private:
  struct Client {
    int descriptor = -1;
    std::string input{};
    bool isWatch = false;
  };

  void run();
  bool serve(Client& client);
  Json answerTo(const Asked& asked, std::string* wrong);
  Json txn(const Json& asked, std::string* wrong);
  void tellWatches(const std::string& line);

  uint16_t port_ = 0;
  const int listener_, wake_;
  std::vector<Client> clients_;  // of the thread
  mutable std::mutex mutex_;
  // Protected by the mutex.
  FakeStore store_;
  std::function<std::optional<Answer>(const Asked&)> fault_;
  std::vector<Asked> asked_;
  std::vector<std::string> lines_;  // for whoever watches
  std::map<int64_t, std::vector<std::string>> leases_;
  int64_t lastLease_ = 0;

  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace TestSupport
