#pragma once

#include <agent/fleet/Http.h>
#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Where a store is, and who asks it.
struct EtcdPlace {
  std::vector<std::string> endpoints;  ///< http[s]://HOST:PORT, one of them is asked at a time
  HttpCredentials credentials{};
  std::string user{}, password{};  ///< of the store's own users; empty: none
};

/// A value, or why there is none.
template <class T>
struct Maybe {
  std::optional<T> value{};
  std::string wrong{};
  bool isUnknown = false;  ///< what was asked for may have been carried out
  bool isTooMuch = false;  ///< the answer is longer than is taken
  explicit operator bool() const { return value.has_value(); }
};

struct EtcdEntry {
  std::string key, value;
  int64_t modified = 0;  ///< the revision of the last change
  int64_t writes = 0;    ///< since it came
};

/// Which entries are asked for: those of a key, or of all keys that begin with it.
struct EtcdRange {
  std::string key;
  bool isPrefix = false;
  bool keysOnly = false;
  int64_t changedFrom = 0;  ///< only what has changed at this revision or later; 0: all
  int64_t most = 0;         ///< entries; 0: all
  int64_t at = 0;           ///< as it was at this revision; 0: now
};

/// What has to hold for a transaction: the key was last changed at this revision; 0: there is none. With an
/// `end`: none of the keys from `key` up to it, itself not among them, was changed behind this revision.
struct EtcdCompare {
  std::string key;
  int64_t modified = 0;
  std::string end{};
};

struct EtcdPut {
  std::string key, value;
  bool isLeased = false;
  bool tellsBefore = false;  ///< what was there is answered
};

/// All or nothing, in this order: writes, then reads. When a comparison does not hold it only reads.
struct EtcdTxn {
  std::vector<EtcdCompare> compares{};
  std::vector<EtcdPut> puts{};
  std::vector<EtcdRange> deletes{};  ///< `key` and `isPrefix` count
  std::vector<EtcdRange> reads{};
  int64_t lease = 0;  ///< of puts that are leased
};

struct EtcdResult {
  int64_t revision = 0;   ///< of the store, at which all of it was read
  std::string cluster{};  ///< which store it is: one that is set up anew has another number
  bool succeeded = true;
  std::vector<std::vector<EtcdEntry>> reads{};  ///< in the order of the question
  std::vector<EtcdEntry> before{};              ///< what writes have replaced that were to tell it
};

/// A key-value store of etcd's version 3, by the JSON form of its interface (etcd 3.4 and later). It asks one
/// endpoint, and goes over to the next when that does not answer; a question that may have been carried out
/// is not asked again unless it only reads. For one thread.
class Etcd {
 public:
  /// `http` outlives it.
  Etcd(Http& http, EtcdPlace place);

  Maybe<EtcdResult> txn(const EtcdTxn& txn);
  Maybe<EtcdResult> read(std::vector<EtcdRange> ranges);
  /// The number of a new lease.
  Maybe<int64_t> grant(int seconds);
  /// False: there is no such lease any more.
  Maybe<bool> keepAlive(int64_t lease);
  /// Waits for a fraction of a second only.
  void revoke(int64_t lease);

  /// What becomes of keys.
  struct News {
    int64_t revision = 0;      ///< of the store
    bool changed = false;      ///< something has
    bool isCancelled = false;  ///< the store tells no more of it
  };
  /// Tells of all changes below prefixes from a revision on, as a stream of lines for newsIn().
  std::unique_ptr<Http::Stream> watch(const std::vector<std::string>& prefixes, int64_t from);
  static News newsIn(const std::string& line);

  /// The endpoint that is asked.
  const std::string& endpoint() const { return place_.endpoints[at_]; }
  /// Goes over to the next one.
  void next() { at_ = (at_ + 1) % place_.endpoints.size(); }

 private:
  struct Called;
  Called call(const char* path, const nlohmann::ordered_json& question, bool onlyReads, double patience);
  Called callOnce(const char* path, const std::string& body, double patience);
  std::optional<std::string> authenticate();

  Http& http_;
  const EtcdPlace place_;
  size_t at_ = 0;
  std::string token_;
};

}  // namespace Agent
