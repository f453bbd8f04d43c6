#pragma once

#include <Kiv/UniqueId.h>

namespace Kiv {

/// Has UniqueId::generateUniqueId go on behind an id that an earlier process gave out, so that none is given
/// out twice. Ids that were not generated, and those that are behind already, change nothing. Before there
/// are other threads.
void generatedIdsFollow(UniqueId last);

}  // namespace Kiv
