// Tarvo2: the whole public interface, and object creation by ProgID.
#ifndef TARVO2_TARVO2_H_
#define TARVO2_TARVO2_H_

#include "tarvo2/class_registry.h"
#include "tarvo2/codec.h"
#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/dispatch.h"
#include "tarvo2/error.h"
#include "tarvo2/export.h"
#include "tarvo2/file_system.h"
#include "tarvo2/host_module.h"
#include "tarvo2/import.h"
#include "tarvo2/ini_file.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/message_box.h"
#include "tarvo2/object.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/random.h"
#include "tarvo2/registry_key.h"
#include "tarvo2/registry_store.h"
#include "tarvo2/screen.h"
#include "tarvo2/services.h"
#include "tarvo2/std_interface.h"
#include "tarvo2/storage_string.h"
#include "tarvo2/tarvo_library.h"
#include "tarvo2/variant.h"
#include "tarvo2/version.h"

namespace tarvo2 {

// Creates an object of the library by ProgID: "Tarvo2." and the class name
// ("Tarvo2.KivStorageString", "Tarvo2.TarvoStdInterface", ...), without
// regard to letter case. Raises 429 for an unknown ProgID and for a class
// that is not creatable (SubKeysCollection).
TARVO2_EXPORT Ref<Object> CreateObject(StringView prog_id);

// The same, in the context `services` (the default context when null).
TARVO2_EXPORT Ref<Object> CreateObject(StringView prog_id, std::shared_ptr<Services> services);

// The registry of the library's classes: their ProgIDs and type
// information, for introspection.
TARVO2_EXPORT const ClassRegistry& LibraryClasses();

}  // namespace tarvo2

#endif  // TARVO2_TARVO2_H_
