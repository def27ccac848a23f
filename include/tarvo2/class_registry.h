// The class factory: creates objects by ProgID.
//
// A ClassRegistry maps ProgIDs ("Tarvo2.KivStorageString") to the type
// information and the creator of a class. The library's own classes are in
// the registry that tarvo2::CreateObject uses (see tarvo2.h); applications
// and tests may keep registries of their own.
#ifndef TARVO2_CLASS_REGISTRY_H_
#define TARVO2_CLASS_REGISTRY_H_

#include <functional>
#include <vector>

#include "tarvo2/dispatch.h"
#include "tarvo2/export.h"

namespace tarvo2 {

class TARVO2_EXPORT ClassRegistry {
 public:
  using Creator = std::function<Ref<Object>()>;

  // Registers `info` under "<prefix>.<class name>". A class whose info is
  // not creatable is listed (its type information can be read) but Create
  // refuses it. A second registration of the same ProgID replaces the first.
  void Register(String prefix, const TypeInfo& info, Creator create);

  // Creates an object of the class registered under `prog_id` (compared
  // without regard to letter case). Raises 429 "ActiveX component can't
  // create object" for an unknown ProgID or a class that is not creatable.
  Ref<Object> Create(StringView prog_id) const;

  // The type information registered under `prog_id`, or nullptr.
  const TypeInfo* Find(StringView prog_id) const;

  std::vector<String> ProgIds() const;

 private:
  struct Entry {
    String prog_id;
    const TypeInfo* info;
    Creator create;
  };
  std::vector<Entry> entries_;
};

}  // namespace tarvo2

#endif  // TARVO2_CLASS_REGISTRY_H_
