#include <Kelp/Hash.h>
#include <Kelp/String.h>

#include <cstring>
#include <new>

namespace Kelp {

String::Rep* String::makeRep(std::string_view text) {
  void* place = ::operator new(sizeof(Rep) + text.size());
  auto* rep = new (place) Rep{{1}, hashBytes(text.data(), text.size()), static_cast<uint32_t>(text.size())};
  std::memcpy(const_cast<char*>(rep->text()), text.data(), text.size());
  return rep;
}

bool String::sameText(const String& other) const {
  return rep_ && other.rep_ && rep_->hash == other.rep_->hash && view() == other.view();
}

void String::freeRep(Rep* rep) {
  rep->~Rep();
  ::operator delete(rep);
}

}  // namespace Kelp
