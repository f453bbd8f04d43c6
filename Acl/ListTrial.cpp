#include <Acl/ListTrial.h>

namespace Acl {

ListTrial::~ListTrial() = default;

}  // namespace Acl
