#include "Platform/Base/FRXValue.h"

namespace ferrox {

const FRXValue* FRXValue::member(std::string_view key) const {
  const FRXDictionary* object = asObject();
  if (object == nullptr) return nullptr;
  const auto found = object->find(key);
  return found == object->end() ? nullptr : &found->second;
}

}  // namespace ferrox
