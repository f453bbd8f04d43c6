#pragma once

#include <agent/metrics/Samples.h>

#include <functional>
#include <memory>
#include <string>

namespace Agent {

/// Answers HTTP requests for /metrics, in the text form of Prometheus, on threads of its own with low
/// priority.
class Exposer {
 public:
  /// Asked for values by these threads; may wait. Null: there are none.
  using Take = std::function<std::shared_ptr<const Samples>()>;

  /// `address` is ADDRESS:PORT, both as numbers; port 0 is any that is free. Null when it cannot listen
  /// there.
  static std::unique_ptr<Exposer> listen(const std::string& address, Take take);
  /// Waits for the threads.
  ~Exposer();
  Exposer(const Exposer&) = delete;
  Exposer& operator=(const Exposer&) = delete;

  int port() const;

 private:
  struct Library;
  Exposer(std::string address, std::unique_ptr<Library> library);
  const std::string address_;
  std::unique_ptr<Library> library_;
};

}  // namespace Agent
