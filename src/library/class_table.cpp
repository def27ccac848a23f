// The library's classes, by ProgID. This is the one place that knows every
// class; the factory machinery itself is the runtime's ClassRegistry.
#include "tarvo2/tarvo2.h"

namespace tarvo2 {
namespace {

constexpr char16_t kPrefix[] = u"Tarvo2";

template <class C>
void Add(ClassRegistry& r) {
  r.Register(kPrefix, C::Info(), [] { return Ref<Object>(C::Create()); });
}

ClassRegistry MakeRegistry() {
  ClassRegistry r;
  Add<KivStorageString>(r);
  Add<KivRegistryKey>(r);
  Add<SubKeysCollection>(r);  // listed for its type information; not creatable
  Add<KivINIFileHandler>(r);
  Add<TarvoStdInterface>(r);
  Add<TarvoLibrary>(r);
  return r;
}

}  // namespace

const ClassRegistry& LibraryClasses() {
  static const ClassRegistry registry = MakeRegistry();
  return registry;
}

Ref<Object> CreateObject(StringView prog_id) { return LibraryClasses().Create(prog_id); }

}  // namespace tarvo2
