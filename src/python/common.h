// Shared pieces of the tarvo2 Python module: the cached Python objects, value
// conversion, error translation and the object wrappers.
//
// Every entry point from Python runs under Guarded(), holds the GIL for its
// whole duration (library objects are used by one thread at a time) and
// turns C++ failures into Python exceptions there; below it, failures travel
// as C++ exceptions: tarvo2::Error for the library's and the runtime's
// errors, pybind11::error_already_set for a Python exception in flight.
#ifndef TARVO2_PYTHON_COMMON_H_
#define TARVO2_PYTHON_COMMON_H_

#include <Python.h>
#include <pybind11/pybind11.h>

#include <string>

#include "tarvo2/tarvo2.h"

namespace tarvo2py {

namespace py = pybind11;
using tarvo2::String;
using tarvo2::Variant;

// Objects looked up once at import (borrowed from the module, which keeps
// them alive for the process).
struct Cache {
  PyObject* module = nullptr;
  PyObject* Error = nullptr;           // tarvo2.Error
  PyObject* MemberNotFound = nullptr;  // tarvo2.MemberNotFound
  PyObject* Ref = nullptr;
  PyObject* Array = nullptr;
  PyObject* Record = nullptr;
  PyObject* Null = nullptr;
  PyObject* Byte = nullptr;
  PyObject* ErrorValue = nullptr;
  PyObject* Decimal = nullptr;
  PyObject* currency_scaled = nullptr;  // prelude helper
  PyObject* member_doc = nullptr;       // prelude helper
  PyObject* signature = nullptr;        // prelude helper
  PyObject* class_doc = nullptr;        // prelude helper
  // Interned attribute names.
  PyObject* s_value = nullptr;
  PyObject* s_element_type = nullptr;
  PyObject* s_lower_bound = nullptr;
  PyObject* s_sized = nullptr;
  PyObject* s_code = nullptr;
  PyObject* s_type_name = nullptr;
  PyObject* s_fields = nullptr;
  PyObject* s_scaleb = nullptr;
  PyObject* s_number = nullptr;
  PyObject* s_description = nullptr;
  PyObject* s_source = nullptr;
  PyObject* s_help_file = nullptr;
  PyObject* s_help_context = nullptr;
  PyObject* s_progid = nullptr;
  PyObject* s_default = nullptr;  // __tarvo2_default__
};
extern Cache G;

// --- Text ---------------------------------------------------------------------

// Python str <-> UTF-16: characters beyond the BMP become surrogate pairs and
// back; lone surrogates pass through unchanged both ways.
String ToU16(PyObject* str);
PyObject* FromU16(tarvo2::StringView s);  // new reference; throws on failure

// --- Values -----------------------------------------------------------------

// Converts a Python value to a Variant: None -> Empty, Null, bool, Byte, int
// (Long; Overflow 6 outside its range), float, Decimal (Currency), datetime
// and date (Date), str, tarvo2.Array, list and tuple (arrays of Variants),
// bytes (array of Bytes), Record, ErrorValue, library objects, Ref (its
// value); any other Python object becomes a client object.
Variant FromPy(PyObject* o);
// Converts a Variant to a new Python reference (throws on failure).
PyObject* ToPy(const Variant& v);

// --- Errors -----------------------------------------------------------------

// One call from Python into the library: counts nesting, so that the Python
// exceptions parked by client objects live until the outermost call ends.
struct CallScope {
  CallScope();
  ~CallScope();
};

// Raises `e` as a Python exception: the original Python exception when `e`
// started as one inside a client object, else a tarvo2.Error (or
// tarvo2.MemberNotFound for 438).
void SetPyError(const tarvo2::Error& e);

// Takes the Python exception in flight (raised by client code), parks it for
// SetPyError and returns the library error that stands for it on the C++
// side. `origin` is the first line of its source chain.
tarvo2::Error ErrorFromPython(const String& origin);

// Runs `f` (returning a new reference or nullptr) as one call from Python.
template <class F>
PyObject* Guarded(F&& f) noexcept {
  CallScope scope;
  try {
    return f();
  } catch (py::error_already_set& e) {
    e.restore();
  } catch (...) {
    SetPyError(tarvo2::CurrentError());
  }
  return nullptr;
}

// Throws the Python exception in flight as error_already_set.
[[noreturn]] inline void ThrowPy() { throw py::error_already_set(); }
inline PyObject* Check(PyObject* o) {
  if (!o) ThrowPy();
  return o;
}

// --- Objects ----------------------------------------------------------------

// Wraps a library object (Nothing gives None; a client object made from a
// Python object gives that Python object back).
PyObject* WrapObject(const tarvo2::Ref<tarvo2::Object>& obj);
// The library object behind a wrapper, or nullptr when `o` is not one.
tarvo2::Object* UnwrapObject(PyObject* o);
// The object a reference stands for, whichever of its interfaces it is:
// what it answers when asked for its own class name (a store for each of its
// common-interface views), else itself; the same rule as SameObject, used
// for hashing.
tarvo2::Ref<tarvo2::Object> IdentityOf(tarvo2::Object* obj);
// A Python object as a client object of the library.
tarvo2::Ref<tarvo2::Object> MakeClientObject(PyObject* o);
// The Python object behind a client object, or nullptr.
PyObject* ClientPyObject(tarvo2::Object* obj);

// Readies the wrapper types and adds them, and a class per library class, to
// the module.
void InitObjects(PyObject* module);
// The type information as Python data (what help() and the stubs use).
PyObject* TypeInfoToPy(const tarvo2::TypeInfo& ti);

// Calls member `id` of `obj` with Python arguments: `nargs` positional ones,
// then one per name in `kwnames` (a tuple, or nullptr); tarvo2.Ref cells are
// passed by reference and receive the by-reference results.
PyObject* CallMember(tarvo2::Object* obj, tarvo2::DispId id, tarvo2::InvokeKind kind,
                     PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames);

}  // namespace tarvo2py

#endif  // TARVO2_PYTHON_COMMON_H_
