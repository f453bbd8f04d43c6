#include <Zeb/Reflect.h>

namespace Zeb {

const Attribute* TypeData::attribute(std::string_view name) const {
  for (const Attribute* own : attributes_) {
    if (own->name() == name) return own;
  }
  return base_ ? base_->attribute(name) : nullptr;
}

}  // namespace Zeb
