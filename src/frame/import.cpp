#include "tarvo2/import.h"

#include "frame/store.h"
#include "tarvo2/convert.h"
#include "tarvo2/error.h"

namespace tarvo2 {

bool ImportIfStore(const Services& services, Object& target, const Variant& value) {
  if (!IsImportSource(value)) return false;
  Ref<Object> keep(&target);  // the import may drop the caller's other references
  // A view of a store under another interface goes to the hook as the store.
  const Ref<Object>& object = value.AsObject();
  Ref<Object> source = object->QueryInterface(object->ClassName());
  if (ImportHook hook = services.import_hook()) hook(services, target, source ? source : object);
  return true;
}

bool IsImportSource(const Variant& v) {
  if (!v.IsObject() || !v.AsObject()) return false;
  internal::StoreKind kind;
  return internal::StoreKindOfClass(TypeName(v), &kind);
}

void ImportStore(const Services& services, Object& target, const Ref<Object>& source) noexcept {
  ResumeNext([&] {
    // The source's class name chooses the importer; the target's own kind
    // decides where the units land. A common-interface view of either
    // reaches the store behind it.
    internal::StoreKind from;
    if (!internal::StoreKindOfClass(source->ClassName(), &from)) return;
    std::shared_ptr<internal::Store> to = internal::StoreOf(target);
    if (!to) return;
    std::shared_ptr<internal::Store> src = internal::StoreOf(*source);
    internal::ImportInto(services, *to, src.get(), from);
  });
}

}  // namespace tarvo2
