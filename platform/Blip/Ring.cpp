#include <Blip/Ring.h>
#include <Kelp/Assert.h>

#include <algorithm>
#include <cstring>

namespace Blip {

namespace {
constexpr size_t processRingBytes = 256 * 1024;
}

Ring::Ring(size_t bytes) : size_(bytes), bytes_(std::make_unique<char[]>(bytes)) {
  KELP_ASSERT(bytes > sizeof(Length), "a ring that can hold no line");
}

void Ring::append(std::string_view line) {
  line = line.substr(0, size_ - sizeof(Length));
  const auto length = static_cast<Length>(line.size());
  while (size_ - used_ < sizeof(Length) + length) {
    Length oldest;
    copyOut(first_, &oldest, sizeof oldest);
    first_ = (first_ + sizeof oldest + oldest) % size_;
    used_ -= sizeof oldest + oldest;
    --count_;
    ++lost_;
  }
  copyIn(&length, sizeof length);
  copyIn(line.data(), length);
  ++count_;
}

void Ring::clear() { first_ = used_ = count_ = lost_ = 0; }

void Ring::forEach(const std::function<void(std::string_view)>& visit) const {
  std::string line;
  size_t at = first_;
  for (size_t i = 0; i < count_; ++i) {
    Length length;
    copyOut(at, &length, sizeof length);
    line.resize(length);
    copyOut((at + sizeof length) % size_, line.data(), length);
    visit(line);
    at = (at + sizeof length + length) % size_;
  }
}

std::vector<std::string> Ring::lines() const {
  std::vector<std::string> all;
  forEach([&](std::string_view line) { all.emplace_back(line); });
  return all;
}

void Ring::copyIn(const void* from, size_t size) {
  const size_t at = (first_ + used_) % size_;
  const size_t head = std::min(size, size_ - at);
  if (head) std::memcpy(&bytes_[at], from, head);
  if (size > head) std::memcpy(&bytes_[0], static_cast<const char*>(from) + head, size - head);
  used_ += size;
}

void Ring::copyOut(size_t at, void* to, size_t size) const {
  const size_t head = std::min(size, size_ - at);
  if (head) std::memcpy(to, &bytes_[at], head);
  if (size > head) std::memcpy(static_cast<char*>(to) + head, &bytes_[0], size - head);
}

Ring& ring() {
  // Never destroyed: plugins and other globals trace until the very end.
  static Ring& instance = *new Ring(processRingBytes);
  return instance;
}

}  // namespace Blip
