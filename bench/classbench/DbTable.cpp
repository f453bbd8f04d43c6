#include "classbench/DbTable.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "core.h"

namespace Bench {

namespace {

/// While this is there, what is printed goes nowhere, and the working folder is one that vanishes with it.
class Aside {
 public:
  Aside() {
    std::string name = std::filesystem::temp_directory_path() / "velo-bench-XXXXXX";
    if (!mkdtemp(name.data())) throw std::runtime_error(name + ": cannot be made");
    scratch_ = name;
    std::cout.flush();
    std::fflush(stdout);
    std::filesystem::current_path(scratch_);
    output_ = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  ~Aside() {
    std::cout.flush();
    std::fflush(stdout);
    dup2(output_, STDOUT_FILENO);
    close(output_);
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
    std::filesystem::remove_all(scratch_, ignored);
  }
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;

 private:
  const std::filesystem::path before_ = std::filesystem::current_path();
  std::filesystem::path scratch_;
  int output_ = -1;
};

::Rule ruleOf(const TupleRule& rule, size_t place) {
  ::Rule made{};
  made.pri = static_cast<uint32_t>(place);
  made.protocol.val = rule.protocol;
  made.protocol.mask = rule.protocolNamed ? 0xff : 0;
  made.sip_length = rule.source.length;
  made.dip_length = rule.destination.length;
  made.ip.i_32.sip = rule.source.address & rule.source.mask();
  made.ip.i_32.dip = rule.destination.address & rule.destination.mask();
  made.mask.i_32.smask = rule.source.mask();
  made.mask.i_32.dmask = rule.destination.mask();
  const PortRange ports[2] = {rule.sourcePort, rule.destinationPort};
  for (int i = 0; i < 2; ++i) made.Port[i][0] = ports[i].low, made.Port[i][1] = ports[i].high;
  return made;
}

}  // namespace

struct DbTable::Context {
  std::vector<::Rule> rules;
  std::unique_ptr<::DBTable> table;
  std::vector<::Packet> packets;
};

DbTable::DbTable() : context_(std::make_unique<Context>()) {}
DbTable::~DbTable() = default;

std::unique_ptr<DbTable> DbTable::make(const std::vector<TupleRule>& rules, std::string*) {
  constexpr int rulesInABucket = 4;  // as its own program has it
  std::unique_ptr<DbTable> made(new DbTable);
  for (size_t i = 0; i < rules.size(); ++i) made->context_->rules.push_back(ruleOf(rules[i], i));
  const Aside aside;
  made->context_->table = std::make_unique<::DBTable>(made->context_->rules, rulesInABucket);
  made->context_->table->construct();
  return made;
}

void DbTable::headersAre(const std::vector<TupleHeader>& headers) {
  context_->packets.clear();
  for (const TupleHeader& header : headers) {
    ::Packet packet{};
    packet.protocol = header.protocol;
    packet.ip.i_32.sip = header.source;
    packet.ip.i_32.dip = header.destination;
    packet.Port[0] = header.sourcePort;
    packet.Port[1] = header.destinationPort;
    context_->packets.push_back(packet);
  }
}

int32_t DbTable::lookUp(size_t header) const {
  return static_cast<int32_t>(context_->table->search(context_->packets[header]));
}

uint64_t DbTable::lookUps(Portion portion) const {
  ::Packet* packets = context_->packets.data();
  ::DBTable& table = *context_->table;
  return answerEach(
      portion, [packets](size_t i) { __builtin_prefetch(packets + i); },
      [packets, &table](size_t i) { return table.search(packets[i]); });
}

}  // namespace Bench
