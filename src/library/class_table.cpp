// The library's classes, by ProgID. This is the one place that knows every
// class; the factory machinery itself is the runtime's ClassRegistry.
#include "tarvo2/tarvo2.h"

namespace tarvo2 {
namespace {

constexpr char16_t kPrefix[] = u"Tarvo2";

// A class of the library: its type information and how to make an object
// of it in a context.
struct LibraryClass {
  const TypeInfo& (*info)();
  Ref<Object> (*create)(std::shared_ptr<Services> services);
};

template <class C>
constexpr LibraryClass Class() {
  return {&C::Info, [](std::shared_ptr<Services> s) { return Ref<Object>(C::Create(std::move(s))); }};
}

constexpr LibraryClass kClasses[] = {
    Class<KivStorageString>(),
    Class<KivRegistryKey>(),
    Class<SubKeysCollection>(),  // listed for its type information; not creatable
    Class<KivINIFileHandler>(),
    Class<TarvoStdInterface>(),
    Class<TarvoLibrary>(),
};

ClassRegistry MakeRegistry() {
  ClassRegistry r;
  for (const LibraryClass& c : kClasses)
    r.Register(kPrefix, c.info(), [create = c.create] { return create(Services::Default()); });
  return r;
}

}  // namespace

const ClassRegistry& LibraryClasses() {
  static const ClassRegistry registry = MakeRegistry();
  return registry;
}

Ref<Object> CreateObject(StringView prog_id) { return LibraryClasses().Create(prog_id); }

Ref<Object> CreateObject(StringView prog_id, std::shared_ptr<Services> services) {
  const TypeInfo* info = LibraryClasses().Find(prog_id);
  if (info != nullptr && info->creatable)
    for (const LibraryClass& c : kClasses)
      if (&c.info() == info) return c.create(Services::OrDefault(std::move(services)));
  // Unknown or not creatable: the registry raises its error.
  return LibraryClasses().Create(prog_id);
}

}  // namespace tarvo2
