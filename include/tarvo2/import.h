// Import between stores: copying the whole content of one store into another.
//
// Assigning a store object of this library to another store's default
// property Value imports the source into the target. Each store's Value
// (write) first compares the source's class name (exactly, letter case
// included) with "KivStorageString", "KivRegistryKey" and
// "KivINIFileHandler" (IsImportSource), and on a match calls ImportStore.
//
// The importers work through the public members of both objects, so every
// check and rule of those members applies during an import. A source is
// read through the store it is; an object that only bears a store's class
// name is refused like a source of an incompatible version.
// They run in skip-on-failure mode: a failing step (a library error, a
// runtime failure, a failure inside either object) is discarded and the
// importer goes on with its next step; nothing ever leaves ImportStore. A
// source whose Version is not a text with one full stop, or is below 2.0,
// is refused silently: nothing is copied.
//
// What lands where:
//  - into a storage string (emptied first): one page per source page, per
//    registry key and subkey (the key's own values on page 1), or per INI
//    section, named after it;
//  - into a registry key: storage string page 1 into the key as it stands,
//    further pages into the subkeys named after them; a registry key's
//    values into the key; INI sections into the subkeys named after them,
//    "DEFAULT" into the key itself; the key is left on its base key;
//  - into an INI file: pages into the sections named after them (an
//    unnamed page into "DEFAULT"), a registry key's values into the section
//    named after the key's last component and each subkey's into its own,
//    INI sections into the sections of the same name.
// Values are read with the tab delimiter and array and number detection
// on, and written with the target's SetValue and the tab delimiter.
#ifndef TARVO2_IMPORT_H_
#define TARVO2_IMPORT_H_

#include "tarvo2/services.h"
#include "tarvo2/variant.h"

namespace tarvo2 {

// True when `v` holds an object whose class name is one of the three store
// classes, compared exactly.
TARVO2_EXPORT bool IsImportSource(const Variant& v);

// Imports `source` into `target` (both store objects of this library; the
// target must be held by a Ref). `services` is the target's context: its
// raise switch governs the library errors that the importers raise (and
// discard). A common-interface view of a store is taken as the store. The
// source may belong to another context. Never raises.
TARVO2_EXPORT void ImportStore(const Services& services, Object& target, const Ref<Object>& source) noexcept;

// What a store's Value (write) does with a store object is the import hook
// of the target's context (Services::import_hook, an ImportHook): from the
// start ImportStore. Replacing it (to observe imports in a test, say)
// applies to the stores of that context; null turns imports off, so that
// assigning a store object changes nothing. An error leaving a hook passes
// through the caller's standard handler. Reading and replacing the hook
// are atomic; change it only while no store is in use.

// The import step of every store's Value (write): when `value` is a store
// object (IsImportSource), runs the import hook of `services` (the
// target's context) with `target` and the store (a common-interface view
// is taken as its store), keeping `target` alive meanwhile, and returns
// true; for any other value does nothing and returns false.
TARVO2_EXPORT bool ImportIfStore(const Services& services, Object& target, const Variant& value);

}  // namespace tarvo2

#endif  // TARVO2_IMPORT_H_
