#include "classbench/Peer.h"

#include <fmt/format.h>
#include <rte_acl.h>
#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_log.h>
#include <rte_malloc.h>
#include <rte_memory.h>
#include <sched.h>
#include <sys/mman.h>

#include <array>
#include <cstddef>

namespace Bench {

namespace {

/// Puts large pages under the memory of librte_acl, as a reserved pool would have them: what it has written
/// there so far is carried over.
int takeLargePages(const rte_memseg_list*, const rte_memseg* segment, size_t length, void*) {
  constexpr size_t page = 4096;
  std::vector<unsigned char> resident(length / page);
  void* fresh =
      mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (fresh == MAP_FAILED || mincore(segment->addr, length, resident.data()) != 0) return -1;
  madvise(fresh, length, MADV_HUGEPAGE);
  for (size_t i = 0; i < resident.size(); ++i) {
    if ((resident[i] & 1) == 0) continue;
    std::memcpy(static_cast<char*>(fresh) + i * page, static_cast<char*>(segment->addr) + i * page, page);
  }
  return mremap(fresh, length, length, MREMAP_MAYMOVE | MREMAP_FIXED, segment->addr) == MAP_FAILED ? -1 : 0;
}

/// Starts the environment that librte_acl takes its memory from: ordinary pages, no devices, no other
/// process. Memory is only reserved until it is used.
std::string start() {
  const std::array<const char*, 10> arguments = {"velo-bench",
                                                 "--no-huge",
                                                 "--no-pci",
                                                 "--no-telemetry",
                                                 "--no-shconf",
                                                 "-m",
                                                 "8192",
                                                 "--log-level=*:critical",
                                                 "--force-max-simd-bitwidth=512",
                                                 "--lcores=0"};
  std::array<char*, arguments.size()> writable{};
  std::array<std::string, arguments.size()> copies;
  for (size_t i = 0; i < arguments.size(); ++i) writable[i] = (copies[i] = arguments[i]).data();
  // It binds the calling thread to a processor; nothing here needs that.
  cpu_set_t before;
  sched_getaffinity(0, sizeof before, &before);
  const int result = rte_eal_init(static_cast<int>(writable.size()), writable.data());
  const int error = rte_errno;
  sched_setaffinity(0, sizeof before, &before);
  if (result >= 0 && peerPages == Pages::large) rte_memseg_contig_walk(takeLargePages, nullptr);
  return result < 0 ? fmt::format("librte_acl does not start: {}", rte_strerror(error)) : std::string();
}

int64_t memoryInUse() {
  int64_t all = 0;
  for (int socket = 0; socket < RTE_MAX_NUMA_NODES; ++socket) {
    rte_malloc_socket_stats stats;
    if (rte_malloc_get_socket_stats(socket, &stats) == 0)
      all += static_cast<int64_t>(stats.heap_allocsz_bytes);
  }
  return all;
}

constexpr rte_acl_field_def fieldDef(int type, size_t size, size_t index, size_t input, size_t offset) {
  return {static_cast<uint8_t>(type), static_cast<uint8_t>(size), static_cast<uint8_t>(index),
          static_cast<uint8_t>(input), static_cast<uint32_t>(offset)};
}

/// The fields where they lie in the headers: the protocol first, then words of four octets.
rte_acl_config configOf(size_t protocolAt, size_t sourceAt, size_t addressWords) {
  rte_acl_config config{};
  config.num_categories = 1;
  size_t field = 0;
  config.defs[field] = fieldDef(RTE_ACL_FIELD_TYPE_BITMASK, 1, field, 0, protocolAt);
  for (size_t word = 0; word < 2 * addressWords; ++word) {
    ++field;
    config.defs[field] = fieldDef(RTE_ACL_FIELD_TYPE_MASK, 4, field, field, sourceAt + 4 * word);
  }
  const size_t portsAt = sourceAt + 8 * addressWords, input = field + 1;
  config.defs[field + 1] = fieldDef(RTE_ACL_FIELD_TYPE_RANGE, 2, field + 1, input, portsAt);
  config.defs[field + 2] = fieldDef(RTE_ACL_FIELD_TYPE_RANGE, 2, field + 2, input, portsAt + 2);
  config.num_fields = static_cast<uint32_t>(field + 3);
  return config;
}

constexpr size_t mostFields = 11;
RTE_ACL_RULE_DEF(TupleAclRule, mostFields);

using Words = std::vector<Prefix>;

/// An IPv4 prefix as it is in IPv6, in four words of 32 bits with the leading bits of each that count.
Words wordsOf(const Prefix& prefix, Lift lift) {
  if (prefix.length == 0) return Words(4);
  const Prefix top{0x20010db8, 32}, zero{0, 32}, none{};
  return lift == Lift::high ? Words{top, prefix, none, none} : Words{top, zero, zero, prefix};
}

TupleAclRule ruleOf(const TupleRule& rule, const Words& addresses, size_t place) {
  TupleAclRule made{};
  made.data.category_mask = 1;
  made.data.priority = static_cast<int32_t>(static_cast<size_t>(RTE_ACL_MAX_PRIORITY) - place);
  made.data.userdata = static_cast<uint32_t>(place + 1);
  size_t field = 0;
  made.field[field].value.u8 = rule.protocol;
  made.field[field++].mask_range.u8 = rule.protocolNamed ? 0xff : 0;
  for (const Prefix& word : addresses) {
    made.field[field].value.u32 = word.address;
    made.field[field++].mask_range.u32 = word.length;
  }
  for (const PortRange& range : {rule.sourcePort, rule.destinationPort}) {
    made.field[field].value.u16 = range.low;
    made.field[field++].mask_range.u16 = range.high;
  }
  return made;
}

}  // namespace

struct Peer::Context {
  rte_acl_ctx* acl = nullptr;
  rte_acl_config config{};
  size_t ruleSize = 0;
  std::vector<std::byte> rules;  // in steps of ruleSize
  uint32_t count = 0;

  ~Context() { rte_acl_free(acl); }

  void ruleIs(const TupleRule& rule, const Words& addresses) {
    const TupleAclRule made = ruleOf(rule, addresses, count++);
    const auto* octets = reinterpret_cast<const std::byte*>(&made);
    rules.insert(rules.end(), octets, octets + ruleSize);
  }
  int build() {
    const auto* all = reinterpret_cast<const rte_acl_rule*>(rules.data());
    const int added = rte_acl_add_rules(acl, all, count);
    return added != 0 ? added : rte_acl_build(acl, &config);
  }
  bool make(std::string* why) {
    static int made = 0;
    const std::string name = fmt::format("velo-bench-{}", made++);
    const rte_acl_param param{name.c_str(), SOCKET_ID_ANY, static_cast<uint32_t>(ruleSize), count};
    acl = rte_acl_create(&param);
    const int result = acl ? build() : -rte_errno;
    if (result != 0) *why = fmt::format("librte_acl cannot build the list: {}", rte_strerror(-result));
    return result == 0;
  }
};

bool Peer::available(std::string* why) {
  static const std::string failure = start();
  *why = failure;
  return failure.empty();
}

std::unique_ptr<Peer> Peer::make(const std::vector<TupleRule>& rules, std::optional<Lift> lift,
                                 std::string* why) {
  if (!available(why)) return nullptr;
  std::unique_ptr<Peer> peer(new Peer);
  peer->context_ = std::make_unique<Context>();
  Context& context = *peer->context_;
  context.config = lift ? configOf(6, 8, 4) : configOf(9, 12, 1);
  context.ruleSize = RTE_ACL_RULE_SZ(context.config.num_fields);
  for (const TupleRule& rule : rules) {
    Words words = lift ? wordsOf(rule.source, *lift) : Words{rule.source};
    const Words destination = lift ? wordsOf(rule.destination, *lift) : Words{rule.destination};
    words.insert(words.end(), destination.begin(), destination.end());
    context.ruleIs(rule, words);
  }
  const int64_t before = memoryInUse();
  const double start = processorTime();
  if (!context.make(why)) return nullptr;
  peer->buildNs_ = processorTime() - start;
  peer->bytes_ = memoryInUse() - before;
  return peer;
}

Peer::~Peer() = default;

int32_t Peer::lookUp(size_t packet) const {
  const uint8_t* header = headers_[packet];
  uint32_t result = 0;
  rte_acl_classify(context_->acl, &header, &result, 1, 1);
  return static_cast<int32_t>(result) - 1;
}

uint64_t Peer::lookUps(Portion portion) const {
  const rte_acl_ctx* acl = context_->acl;
  return answerEach(
      portion, [this](size_t i) { __builtin_prefetch(headers_[i]); },
      [this, acl](size_t i) {
        const uint8_t* header = headers_[i];
        uint32_t result = 0;
        rte_acl_classify(acl, &header, &result, 1, 1);
        return result;
      });
}

uint64_t Peer::batches(Portion portion) const {
  constexpr size_t most = 64;
  const rte_acl_ctx* acl = context_->acl;
  std::array<uint32_t, most> results;
  uint64_t all = 0;
  for (size_t i = 0; i < portion.count; i += most) {
    const size_t count = std::min(most, portion.count - i);
    for (size_t k = i + most; k < i + 2 * most && k < portion.count; ++k) __builtin_prefetch(headers_[k]);
    rte_acl_classify(acl, const_cast<const uint8_t**>(headers_.data() + i), results.data(),
                     static_cast<uint32_t>(count), 1);
    for (size_t k = 0; k < count; ++k) all += results[k];
  }
  return all;
}

}  // namespace Bench
