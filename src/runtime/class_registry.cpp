#include "tarvo2/class_registry.h"

namespace tarvo2 {

void ClassRegistry::Register(String prefix, const TypeInfo& info, Creator create) {
  String id = std::move(prefix) + u"." + info.name;
  for (auto& e : entries_)
    if (EqualsNoCase(e.prog_id, id)) {
      e.info = &info;
      e.create = std::move(create);
      return;
    }
  entries_.push_back(Entry{std::move(id), &info, std::move(create)});
}

const TypeInfo* ClassRegistry::Find(StringView prog_id) const {
  for (const auto& e : entries_)
    if (EqualsNoCase(e.prog_id, prog_id)) return e.info;
  return nullptr;
}

Ref<Object> ClassRegistry::Create(StringView prog_id) const {
  for (const auto& e : entries_)
    if (EqualsNoCase(e.prog_id, prog_id)) {
      if (!e.info->creatable || !e.create) break;
      return e.create();
    }
  RaiseRuntimeError(err::kCantCreateObject);
}

std::vector<String> ClassRegistry::ProgIds() const {
  std::vector<String> out;
  for (const auto& e : entries_) out.push_back(e.prog_id);
  return out;
}

}  // namespace tarvo2
