#pragma once

#include <Acl/Rule.h>
#include <agent/config/Digest.h>

#include <cstdint>
#include <unordered_map>

namespace Config {

/// Gives rules of one kind the same number when they say the same, and different numbers when they do not.
/// The rules must outlive it.
template <class Filter>
class Sayings {
 public:
  uint32_t of(const Acl::RuleBase& base, const Filter& filter) {
    return known_.try_emplace({&base, &filter}, static_cast<uint32_t>(known_.size())).first->second;
  }

 private:
  struct Saying {
    const Acl::RuleBase* base;
    const Filter* filter;
    bool operator==(const Saying& other) const {
      return base->doesTheSame(*other.base) && *filter == *other.filter;
    }
  };
  struct Hash {
    size_t operator()(const Saying& saying) const {
      Digest digest;
      digest.add(static_cast<uint64_t>(saying.base->action) << 1 | saying.base->log);
      digest.add(saying.base->mirrorSession.hash());
      addTo(digest, *saying.filter);
      return digest.value();
    }
  };
  std::unordered_map<Saying, uint32_t, Hash> known_;
};

}  // namespace Config
