#include <agent/metrics/Exposer.h>
#include <agent/metrics/Metrics.h>
#include <agent/metrics/Scrapes.h>
#include <fmt/format.h>

namespace Agent {

Metrics::Metrics(EventLoop& loop, Watched watched, MetricsOptions options)
    : watched_(std::move(watched)),
      options_(std::move(options)),
      scrapes_(std::make_unique<Scrapes>(loop, watched_, options_.rules)) {}

Metrics::~Metrics() {
  // Threads that wait for the loop would wait for this thread.
  scrapes_->stop();
  exposer_.reset();
}

std::optional<std::string> Metrics::listen() {
  exposer_ = Exposer::listen(options_.address, [this] { return scrapes_->take(); });
  if (!exposer_) return fmt::format("nothing can listen at {}", options_.address);
  return std::nullopt;
}

std::string Metrics::place() const {
  const std::string& address = options_.address;
  return fmt::format("http://{}:{}/metrics", address.substr(0, address.rfind(':')), exposer_->port());
}

}  // namespace Agent
