#include "classbench/DbTable.h"

// For a build without DBTable.

namespace Bench {

struct DbTable::Context {};

DbTable::DbTable() = default;
DbTable::~DbTable() = default;
std::unique_ptr<DbTable> DbTable::make(const std::vector<TupleRule>&, std::string* why) {
  *why = "this program was built without DBTable (-DVELO_PEER_DBTABLE=DIR, the folder of its sources)";
  return nullptr;
}
void DbTable::headersAre(const std::vector<TupleHeader>&) {}
int32_t DbTable::lookUp(size_t) const { return noRule; }
uint64_t DbTable::lookUps(Portion) const { return 0; }

}  // namespace Bench
