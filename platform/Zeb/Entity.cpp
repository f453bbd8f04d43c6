#include <Zeb/Entity.h>

namespace Zeb {

Publisher& Entity::publisher() const {
  if (!publisher_) publisher_ = std::make_unique<Publisher>();
  return *publisher_;
}

void Entity::publishChangeRecursive(const Attribute& attribute, const void* key) {
  if (!nodeFlag(Kelp::nodeLive)) return;
  const Kelp::Ptr<Entity> keep(this);  // a handler may drop the last other reference
  publisher_->publish(Change{*this, attribute, key});
}

}  // namespace Zeb
