#pragma once

#include <Kiv/UniqueId.h>

namespace Kiv {

/// Makes UniqueId::generateUniqueId continue after an id that an earlier process has generated, so that no id
/// is used twice. Does nothing for an id that was not generated, or that it has already passed. To be called
/// before there are other threads.
void generatedIdsFollow(UniqueId last);

}  // namespace Kiv
