#include <agent/core/Background.h>
#include <agent/core/Descriptor.h>
#include <agent/metrics/Exposer.h>
#include <agent/metrics/Table.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <new>
#include <thread>

namespace Agent {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

std::vector<std::string> labelsOf(const Metric& metric) {
  std::vector<std::string> names;
  for (std::string_view rest = metric.labels; !rest.empty();) {
    const size_t end = std::min(rest.find(','), rest.size());
    names.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return names;
}

ClientMetric clientMetric(const Sample& sample, Metric::Kind kind, const std::vector<std::string>& names) {
  ClientMetric made;
  made.label.reserve(names.size());
  for (size_t i = 0; i < names.size(); ++i) made.label.push_back({names[i], sample.labels[i]});
  (kind == Metric::Kind::counter ? made.counter.value : made.gauge.value) = sample.value;
  return made;
}

/// A metric without values is left out.
std::vector<MetricFamily> familiesOf(const Samples& samples) {
  std::vector<MetricFamily> families;
  const auto rows = metrics();
  for (size_t row = 0; row < rows.size(); ++row) {
    const Metric& metric = rows[row];
    if (samples[row].empty()) continue;
    const auto names = labelsOf(metric);
    const bool counts = metric.kind == Metric::Kind::counter;
    MetricFamily& family = families.emplace_back();
    family.name = metric.name;
    family.help = metric.help;
    family.type = counts ? MetricType::Counter : MetricType::Gauge;
    family.metric.reserve(samples[row].size());
    for (const Sample& sample : samples[row])
      family.metric.push_back(clientMetric(sample, metric.kind, names));
  }
  return families;
}

/// Where a socket connects to, to reach a server at an address with a port of its choice.
sockaddr_storage placeOf(const std::string& address, int port) {
  sockaddr_storage place{};
  std::string host = address.substr(0, address.rfind(':'));
  if (host.starts_with('[')) {
    auto& ip6 = reinterpret_cast<sockaddr_in6&>(place);
    ip6.sin6_family = AF_INET6;
    ip6.sin6_port = htons(static_cast<uint16_t>(port));
    host = host.substr(1, host.size() - 2);
    inet_pton(AF_INET6, host.c_str(), &ip6.sin6_addr);
  } else {
    auto& ip4 = reinterpret_cast<sockaddr_in&>(place);
    ip4.sin_family = AF_INET;
    ip4.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, host.c_str(), &ip4.sin_addr);
  }
  return place;
}

/// Whether it can be reached or not, is all the same.
void connectTo(const sockaddr_storage& place) {
  const Descriptor socket(::socket(place.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (socket.get() >= 0)
    (void)connect(socket.get(), reinterpret_cast<const sockaddr*>(&place), sizeof(place));
}

class Source final : public prometheus::Collectable {
 public:
  explicit Source(Exposer::Take take) : take_(std::move(take)) {}

  std::vector<MetricFamily> Collect() const override {
    thread_local bool gaveWay = false;
    if (!std::exchange(gaveWay, true)) giveWay();
    try {
      const auto samples = take_();
      return samples ? familiesOf(*samples) : std::vector<MetricFamily>();
    } catch (const std::bad_alloc&) {
      return {};
    }
  }

 private:
  const Exposer::Take take_;
};

}  // namespace

struct Exposer::Library {
  Library(const std::string& address, Take take)
      : exposer(address), source(std::make_shared<Source>(std::move(take))) {
    exposer.RegisterCollectable(source);
  }

  prometheus::Exposer exposer;
  std::shared_ptr<prometheus::Collectable> source;
};

Exposer::Exposer(std::string address, std::unique_ptr<Library> library)
    : address_(std::move(address)), library_(std::move(library)) {}

/// The library's thread looks every two seconds whether it should end, and whenever somebody connects.
Exposer::~Exposer() {
  std::atomic<bool> ended = false;
  std::thread waker([&ended, place = placeOf(address_, port())] {
    constexpr std::chrono::milliseconds again{5};
    for (; !ended; std::this_thread::sleep_for(again)) connectTo(place);
  });
  library_.reset();
  ended = true;
  waker.join();
}

std::unique_ptr<Exposer> Exposer::listen(const std::string& address, Take take) {
  try {
    return std::unique_ptr<Exposer>(
        new Exposer(address, std::make_unique<Library>(address, std::move(take))));
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return nullptr;
  }
}

int Exposer::port() const {
  const auto ports = library_->exposer.GetListeningPorts();
  return ports.empty() ? 0 : ports.front();
}

}  // namespace Agent
