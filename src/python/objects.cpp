// Library objects in Python.
//
// tarvo2.Object wraps one reference to a library object. Each library class
// gets a Python subclass built from its type information when first seen:
// one descriptor per member name, carrying the help texts, so that dir(),
// help() and editors see the members. Reading a property calls its Get (an
// indexed property gives an IndexedProperty, used as obj.Prop[i]); reading
// a method gives a bound callable; assigning calls Let, or Set for an
// object. Names in another letter case, and objects without type
// information, are served by name through the object itself.

#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "common.h"

namespace tarvo2py {

using tarvo2::CallArgs;
using tarvo2::DispId;
using tarvo2::InvokeKind;
using tarvo2::MemberInfo;
using tarvo2::TypeInfo;

PyObject* BoundMethodVectorcall(PyObject* callable, PyObject* const* args, size_t nargsf, PyObject* kwnames);

namespace {

struct Wrap {
  PyObject_HEAD
  tarvo2::Object* obj;  // one reference held
};

// One member name of a class: its accessors from the type information.
struct Member {
  PyObject_HEAD
  DispId id;
  const MemberInfo* get;
  const MemberInfo* method;
  const MemberInfo* let;
  const MemberInfo* set;
  bool indexed;      // the Get takes required index arguments
  PyObject* name;    // str
  PyObject* doc;     // str
  PyObject* info;    // list of the accessors' type information (dicts)
};

struct BoundMethod {
  PyObject_HEAD
  vectorcallfunc vectorcall;
  Wrap* self;
  Member* member;
};

struct Indexed {
  PyObject_HEAD
  Wrap* self;
  Member* member;
};

struct EnumIter {
  PyObject_HEAD
  tarvo2::Enumerator* en;  // one reference held
};

PyTypeObject WrapType = {PyVarObject_HEAD_INIT(nullptr, 0)};
PyTypeObject PropertyType = {PyVarObject_HEAD_INIT(nullptr, 0)};
PyTypeObject MethodType = {PyVarObject_HEAD_INIT(nullptr, 0)};
PyTypeObject BoundMethodType = {PyVarObject_HEAD_INIT(nullptr, 0)};
PyTypeObject IndexedType = {PyVarObject_HEAD_INIT(nullptr, 0)};
PyTypeObject EnumIterType = {PyVarObject_HEAD_INIT(nullptr, 0)};

// Python class per type information, built once.
std::unordered_map<const TypeInfo*, PyObject*>& ClassCache() {
  static auto* cache = new std::unordered_map<const TypeInfo*, PyObject*>();
  return *cache;
}

bool IsWrap(PyObject* o) { return PyObject_TypeCheck(o, &WrapType); }

tarvo2::Object* Target(PyObject* self) {
  tarvo2::Object* obj = reinterpret_cast<Wrap*>(self)->obj;
  if (!obj) tarvo2::RaiseRuntimeError(tarvo2::err::kObjectNotSet);
  return obj;
}

bool IsPrivateName(PyObject* name) {
  return PyUnicode_Check(name) && PyUnicode_GET_LENGTH(name) > 0 && PyUnicode_READ_CHAR(name, 0) == '_';
}

// --- Calls ------------------------------------------------------------------

PyObject* Put(tarvo2::Object* obj, DispId id, PyObject* const* index, Py_ssize_t nindex, PyObject* value,
              bool has_let, bool has_set) {
  std::vector<tarvo2::Arg> items;
  items.reserve(static_cast<std::size_t>(nindex) + 1);
  for (Py_ssize_t i = 0; i < nindex; ++i) items.emplace_back(FromPy(index[i]));
  Variant v = FromPy(value);
  InvokeKind kind = v.IsObject() ? InvokeKind::kSet : InvokeKind::kLet;
  if (value == Py_None && has_set && !has_let) {
    v = Variant::Nothing();
    kind = InvokeKind::kSet;
  }
  items.emplace_back(std::move(v));
  CallArgs args(std::move(items));
  tarvo2::Ref<tarvo2::Object> keep(obj);
  keep->Invoke(id, kind, args);
  Py_RETURN_NONE;
}

// Reads a member: a property's Get, an IndexedProperty for an indexed one,
// a bound callable for a method.
PyObject* ReadMember(PyObject* self, Member* m) {
  if (m->get && !m->indexed) return CallMember(Target(self), m->id, InvokeKind::kGet, nullptr, 0, nullptr);
  if (m->get) {
    Indexed* r = PyObject_New(Indexed, &IndexedType);
    if (!r) ThrowPy();
    Py_INCREF(self);
    Py_INCREF(m);
    r->self = reinterpret_cast<Wrap*>(self);
    r->member = m;
    return reinterpret_cast<PyObject*>(r);
  }
  if (m->method) {
    BoundMethod* r = PyObject_New(BoundMethod, &BoundMethodType);
    if (!r) ThrowPy();
    r->vectorcall = BoundMethodVectorcall;
    Py_INCREF(self);
    Py_INCREF(m);
    r->self = reinterpret_cast<Wrap*>(self);
    r->member = m;
    return reinterpret_cast<PyObject*>(r);
  }
  // Write-only: the object refuses the read (438).
  return CallMember(Target(self), m->id, InvokeKind::kGet, nullptr, 0, nullptr);
}

// --- Member descriptors ----------------------------------------------------------

void MemberDealloc(PyObject* o) {
  Member* m = reinterpret_cast<Member*>(o);
  Py_XDECREF(m->name);
  Py_XDECREF(m->doc);
  Py_XDECREF(m->info);
  Py_TYPE(o)->tp_free(o);
}

PyObject* MemberDescrGet(PyObject* self, PyObject* obj, PyObject*) {
  if (!obj || obj == Py_None) {
    Py_INCREF(self);
    return self;
  }
  if (!IsWrap(obj)) {
    PyErr_SetString(PyExc_TypeError, "descriptor of a tarvo2 class used on another object");
    return nullptr;
  }
  return Guarded([&] { return ReadMember(obj, reinterpret_cast<Member*>(self)); });
}

int MemberDescrSet(PyObject* self, PyObject* obj, PyObject* value) {
  Member* m = reinterpret_cast<Member*>(self);
  if (!value) {
    PyErr_Format(PyExc_AttributeError, "cannot delete the member %U", m->name);
    return -1;
  }
  if (!IsWrap(obj)) {
    PyErr_SetString(PyExc_TypeError, "descriptor of a tarvo2 class used on another object");
    return -1;
  }
  PyObject* r = Guarded([&] { return Put(Target(obj), m->id, nullptr, 0, value, m->let, m->set); });
  if (!r) return -1;
  Py_DECREF(r);
  return 0;
}

PyObject* MemberGetDoc(PyObject* self, void*) {
  Member* m = reinterpret_cast<Member*>(self);
  Py_INCREF(m->doc);
  return m->doc;
}

PyObject* MemberGetName(PyObject* self, void*) {
  Member* m = reinterpret_cast<Member*>(self);
  Py_INCREF(m->name);
  return m->name;
}

PyObject* MemberGetSignature(PyObject* self, void*) {
  Member* m = reinterpret_cast<Member*>(self);
  if (!m->method) Py_RETURN_NONE;
  // The method's entry in the member's accessor list.
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(m->info); ++i) {
    PyObject* d = PyList_GET_ITEM(m->info, i);
    PyObject* kind = PyDict_GetItemString(d, "kind");
    if (kind && PyUnicode_CompareWithASCIIString(kind, "method") == 0) return PyObject_CallOneArg(G.signature, d);
  }
  Py_RETURN_NONE;
}

PyObject* MemberRepr(PyObject* self) {
  Member* m = reinterpret_cast<Member*>(self);
  return PyUnicode_FromFormat("<tarvo2 %s %U>", Py_TYPE(self) == &MethodType ? "method" : "property", m->name);
}

PyGetSetDef kMemberGetSet[] = {
    {"__doc__", MemberGetDoc, nullptr, nullptr, nullptr},
    {"__name__", MemberGetName, nullptr, nullptr, nullptr},
    {"__signature__", MemberGetSignature, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

// --- Bound methods --------------------------------------------------------------

void BoundMethodDealloc(PyObject* o) {
  BoundMethod* b = reinterpret_cast<BoundMethod*>(o);
  Py_DECREF(b->self);
  Py_DECREF(b->member);
  PyObject_Free(o);
}

PyObject* BoundMethodGetDoc(PyObject* self, void*) {
  return MemberGetDoc(reinterpret_cast<PyObject*>(reinterpret_cast<BoundMethod*>(self)->member), nullptr);
}
PyObject* BoundMethodGetName(PyObject* self, void*) {
  return MemberGetName(reinterpret_cast<PyObject*>(reinterpret_cast<BoundMethod*>(self)->member), nullptr);
}
PyObject* BoundMethodGetSignature(PyObject* self, void*) {
  return MemberGetSignature(reinterpret_cast<PyObject*>(reinterpret_cast<BoundMethod*>(self)->member), nullptr);
}
PyObject* BoundMethodRepr(PyObject* self) {
  BoundMethod* b = reinterpret_cast<BoundMethod*>(self);
  return PyUnicode_FromFormat("<bound method %s.%U>", Py_TYPE(b->self)->tp_name, b->member->name);
}

PyGetSetDef kBoundMethodGetSet[] = {
    {"__doc__", BoundMethodGetDoc, nullptr, nullptr, nullptr},
    {"__name__", BoundMethodGetName, nullptr, nullptr, nullptr},
    {"__signature__", BoundMethodGetSignature, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

// --- Indexed properties ----------------------------------------------------------

void IndexedDealloc(PyObject* o) {
  Indexed* x = reinterpret_cast<Indexed*>(o);
  Py_DECREF(x->self);
  Py_DECREF(x->member);
  PyObject_Free(o);
}

// The index arguments of obj.Prop[key]: a tuple key gives several.
void IndexArgs(PyObject* const& key, PyObject* const*& args, Py_ssize_t& n) {
  if (PyTuple_Check(key)) {
    args = &PyTuple_GET_ITEM(key, 0);
    n = PyTuple_GET_SIZE(key);
  } else {
    args = &key;
    n = 1;
  }
}

PyObject* IndexedGet(PyObject* self, PyObject* key) {
  Indexed* x = reinterpret_cast<Indexed*>(self);
  PyObject* const* args;
  Py_ssize_t n;
  IndexArgs(key, args, n);
  return Guarded([&] {
    return CallMember(Target(reinterpret_cast<PyObject*>(x->self)), x->member->id, InvokeKind::kGet, args, n, nullptr);
  });
}

int IndexedSet(PyObject* self, PyObject* key, PyObject* value) {
  Indexed* x = reinterpret_cast<Indexed*>(self);
  if (!value) {
    PyErr_SetString(PyExc_TypeError, "cannot delete an element of an indexed property");
    return -1;
  }
  PyObject* const* args;
  Py_ssize_t n;
  IndexArgs(key, args, n);
  PyObject* r = Guarded([&] {
    return Put(Target(reinterpret_cast<PyObject*>(x->self)), x->member->id, args, n, value, x->member->let,
               x->member->set);
  });
  if (!r) return -1;
  Py_DECREF(r);
  return 0;
}

PyObject* IndexedCall(PyObject* self, PyObject* args, PyObject* kwargs) {
  Indexed* x = reinterpret_cast<Indexed*>(self);
  std::vector<PyObject*> all(&PyTuple_GET_ITEM(args, 0), &PyTuple_GET_ITEM(args, 0) + PyTuple_GET_SIZE(args));
  py::tuple names(kwargs ? PyDict_GET_SIZE(kwargs) : 0);
  if (kwargs) {
    Py_ssize_t pos = 0, i = 0;
    PyObject *k, *v;
    while (PyDict_Next(kwargs, &pos, &k, &v)) {
      Py_INCREF(k);
      PyTuple_SET_ITEM(names.ptr(), i++, k);
      all.push_back(v);
    }
  }
  return Guarded([&] {
    return CallMember(Target(reinterpret_cast<PyObject*>(x->self)), x->member->id, InvokeKind::kGet, all.data(),
                      PyTuple_GET_SIZE(args), kwargs ? names.ptr() : nullptr);
  });
}

PyMappingMethods kIndexedMapping = {nullptr, IndexedGet, IndexedSet};

// --- Enumeration -------------------------------------------------------------------

void EnumIterDealloc(PyObject* o) {
  EnumIter* e = reinterpret_cast<EnumIter*>(o);
  if (e->en) e->en->Release();
  PyObject_Free(o);
}

PyObject* EnumIterNext(PyObject* self) {
  EnumIter* e = reinterpret_cast<EnumIter*>(self);
  return Guarded([&]() -> PyObject* {
    Variant item;
    if (!e->en->Next(item)) return nullptr;  // StopIteration (no error set)
    return ToPy(item);
  });
}

// --- The wrapper type -----------------------------------------------------------------

void WrapDealloc(PyObject* o) {
  Wrap* w = reinterpret_cast<Wrap*>(o);
  if (w->obj) w->obj->Release();
  Py_TYPE(o)->tp_free(o);
}

// tarvo2.KivStorageString() creates an object of that class.
PyObject* WrapNew(PyTypeObject* type, PyObject* args, PyObject* kwargs) {
  if ((args && PyTuple_GET_SIZE(args) > 0) || (kwargs && PyDict_GET_SIZE(kwargs) > 0)) {
    PyErr_SetString(PyExc_TypeError, "library classes are created without arguments");
    return nullptr;
  }
  PyObject* progid = PyObject_GetAttr(reinterpret_cast<PyObject*>(type), G.s_progid);
  if (!progid) {
    PyErr_Clear();
    PyErr_Format(PyExc_TypeError, "%s objects come from the library; they cannot be created", type->tp_name);
    return nullptr;
  }
  py::object keep = py::reinterpret_steal<py::object>(progid);
  return Guarded([&] { return WrapObject(tarvo2::CreateObject(ToU16(progid))); });
}

// The members of `obj` with this id, from its type information.
struct Accessors {
  const MemberInfo* get = nullptr;
  const MemberInfo* method = nullptr;
  const MemberInfo* let = nullptr;
  const MemberInfo* set = nullptr;
  const MemberInfo* any() const { return get ? get : method ? method : let ? let : set; }
};
Accessors FindAccessors(const TypeInfo& ti, DispId id) {
  Accessors a;
  for (const MemberInfo& m : ti.members) {
    if (m.id != id) continue;
    switch (m.kind) {
      case InvokeKind::kGet: if (!a.get) a.get = &m; break;
      case InvokeKind::kMethod: if (!a.method) a.method = &m; break;
      case InvokeKind::kLet: if (!a.let) a.let = &m; break;
      case InvokeKind::kSet: if (!a.set) a.set = &m; break;
    }
  }
  return a;
}

bool HasRequiredParams(const MemberInfo* m) {
  if (!m) return false;
  for (const auto& p : m->params)
    if (!p.optional) return true;
  return false;
}

// A read by name, in any letter case, or on an object without type
// information.
PyObject* ReadByName(PyObject* self, PyObject* name) {
  tarvo2::Object* obj = Target(self);
  DispId id = obj->GetIdOfName(ToU16(name));
  if (id == tarvo2::kDispIdUnknown) tarvo2::RaiseRuntimeError(tarvo2::err::kNotSupported);
  Accessors a = FindAccessors(obj->GetTypeInfo(), id);
  if (const MemberInfo* any = a.any()) {
    // A member the class describes: the descriptor of its canonical name.
    PyObject* canonical = FromU16(any->name);
    py::object keep = py::reinterpret_steal<py::object>(canonical);
    if (!any->hidden) return Check(PyObject_GenericGetAttr(self, canonical));
    if (a.get && !HasRequiredParams(a.get)) return CallMember(obj, id, InvokeKind::kGet, nullptr, 0, nullptr);
  }
  return CallMember(obj, id, InvokeKind::kGet, nullptr, 0, nullptr);
}

// Attribute reads: names the class describes go to their descriptor, names
// with a leading underscore are Python's, any other name goes by name.
PyObject* WrapGetAttr(PyObject* self, PyObject* name) {
  if (!PyUnicode_Check(name) || IsPrivateName(name)) return PyObject_GenericGetAttr(self, name);
  PyObject* descr = _PyType_Lookup(Py_TYPE(self), name);
  if (descr && (Py_TYPE(descr) == &PropertyType || Py_TYPE(descr) == &MethodType))
    return MemberDescrGet(descr, self, reinterpret_cast<PyObject*>(Py_TYPE(self)));
  if (descr) return PyObject_GenericGetAttr(self, name);
  return Guarded([&] { return ReadByName(self, name); });
}

int WrapSetAttr(PyObject* self, PyObject* name, PyObject* value) {
  if (!PyUnicode_Check(name) || IsPrivateName(name) || !value) return PyObject_GenericSetAttr(self, name, value);
  if (Py_TYPE(self) != &WrapType) {
    // A property of the class takes it; any other name (a method's
    // included, which the object then refuses) goes by name.
    PyObject* descr = _PyType_Lookup(Py_TYPE(self), name);
    if (descr && Py_TYPE(descr) != &MethodType) return PyObject_GenericSetAttr(self, name, value);
  }
  PyObject* r = Guarded([&] {
    tarvo2::Object* obj = Target(self);
    DispId id = obj->GetIdOfName(ToU16(name));
    if (id == tarvo2::kDispIdUnknown) tarvo2::RaiseRuntimeError(tarvo2::err::kNotSupported);
    Accessors a = FindAccessors(obj->GetTypeInfo(), id);
    const bool known = a.any() != nullptr;
    return Put(obj, id, nullptr, 0, value, !known || a.let, !known || a.set);
  });
  if (!r) return -1;
  Py_DECREF(r);
  return 0;
}

PyObject* WrapRepr(PyObject* self) {
  Wrap* w = reinterpret_cast<Wrap*>(self);
  return PyUnicode_FromFormat("<%s object at %p>", Py_TYPE(self)->tp_name, static_cast<void*>(w->obj));
}

Py_hash_t WrapHash(PyObject* self) {
  Py_hash_t h = -1;
  PyObject* r = Guarded([&] {
    tarvo2::Ref<tarvo2::Object> id = IdentityOf(reinterpret_cast<Wrap*>(self)->obj);
    h = static_cast<Py_hash_t>(reinterpret_cast<std::uintptr_t>(id.get()) >> 4);
    Py_RETURN_NONE;
  });
  if (!r) return -1;
  Py_DECREF(r);
  return h == -1 ? -2 : h;
}

// == and != tell identity, as tarvo2.same does.
PyObject* WrapRichCompare(PyObject* a, PyObject* b, int op) {
  if ((op != Py_EQ && op != Py_NE) || !IsWrap(a) || !IsWrap(b)) Py_RETURN_NOTIMPLEMENTED;
  return Guarded([&] {
    bool same = tarvo2::SameObject(Variant(tarvo2::Ref<tarvo2::Object>(reinterpret_cast<Wrap*>(a)->obj)),
                                   Variant(tarvo2::Ref<tarvo2::Object>(reinterpret_cast<Wrap*>(b)->obj)));
    return PyBool_FromLong(op == Py_EQ ? same : !same);
  });
}

int WrapBool(PyObject*) { return 1; }

// len(): the object's Count.
Py_ssize_t WrapLength(PyObject* self) {
  Py_ssize_t n = -1;
  PyObject* r = Guarded([&]() -> PyObject* {
    tarvo2::Object* obj = Target(self);
    DispId id = obj->GetIdOfName(u"Count");
    if (id == tarvo2::kDispIdUnknown) {
      PyErr_Format(PyExc_TypeError, "object of type '%s' has no len() (no Count)", Py_TYPE(self)->tp_name);
      return nullptr;
    }
    CallArgs none;
    n = tarvo2::ToLong(obj->Invoke(id, InvokeKind::kGet, none));
    Py_RETURN_NONE;
  });
  if (!r) return -1;
  Py_DECREF(r);
  return n;
}

// obj[key]: the object's Item, or its default member, with the key as index.
PyObject* WrapSubscript(PyObject* self, PyObject* key) {
  PyObject* const* args;
  Py_ssize_t n;
  IndexArgs(key, args, n);
  return Guarded([&] {
    tarvo2::Object* obj = Target(self);
    DispId id = obj->GetIdOfName(u"Item");
    if (id == tarvo2::kDispIdUnknown) id = tarvo2::kDispIdValue;
    return CallMember(obj, id, InvokeKind::kGet, args, n, nullptr);
  });
}

// iter(): the object's enumerator (NewEnum), or the object itself when it
// is an enumerator.
PyObject* WrapIter(PyObject* self) {
  return Guarded([&]() -> PyObject* {
    tarvo2::Object* obj = Target(self);
    if (auto* en = dynamic_cast<tarvo2::Enumerator*>(obj)) {
      EnumIter* it = PyObject_New(EnumIter, &EnumIterType);
      if (!it) ThrowPy();
      en->AddRef();
      it->en = en;
      return reinterpret_cast<PyObject*>(it);
    }
    CallArgs none;
    Variant e;
    try {
      e = obj->Invoke(tarvo2::kDispIdNewEnum, InvokeKind::kGet, none);
    } catch (const tarvo2::Error& err) {
      if (err.Number() != tarvo2::err::kNotSupported) throw;
      PyErr_Format(PyExc_TypeError, "'%s' object is not iterable (no NewEnum)", Py_TYPE(self)->tp_name);
      return nullptr;
    }
    tarvo2::Ref<tarvo2::Enumerator> en =
        e.IsObject() ? tarvo2::RefCast<tarvo2::Enumerator>(e.AsObject()) : tarvo2::Ref<tarvo2::Enumerator>();
    if (!en) tarvo2::RaiseRuntimeError(tarvo2::err::kNotSupported);
    EnumIter* it = PyObject_New(EnumIter, &EnumIterType);
    if (!it) ThrowPy();
    it->en = en.release();
    return reinterpret_cast<PyObject*>(it);
  });
}

// dir(): the members the type information lists, besides the usual names.
PyObject* WrapDir(PyObject* self, PyObject*) {
  return Guarded([&] {
    py::list names = py::reinterpret_steal<py::list>(
        Check(PyObject_CallMethod(reinterpret_cast<PyObject*>(&PyBaseObject_Type), "__dir__", "O", self)));
    if (tarvo2::Object* obj = reinterpret_cast<Wrap*>(self)->obj) {
      for (const MemberInfo& m : obj->GetTypeInfo().members)
        if (!m.hidden) names.append(py::reinterpret_steal<py::object>(FromU16(m.name)));
    }
    py::object sorted = py::reinterpret_steal<py::object>(Check(PySequence_List(
        py::reinterpret_steal<py::object>(Check(PySet_New(names.ptr()))).ptr())));
    if (PyList_Sort(sorted.ptr()) < 0) ThrowPy();
    return sorted.release().ptr();
  });
}

// The type information of the object (see tarvo2.type_info).
PyObject* WrapTypeInfo(PyObject* self, PyObject*) {
  return Guarded([&] { return TypeInfoToPy(Target(self)->GetTypeInfo()); });
}

PyMethodDef kWrapMethods[] = {
    {"__dir__", WrapDir, METH_NOARGS, nullptr},
    {"_type_info", WrapTypeInfo, METH_NOARGS, "The type information of the object's class."},
    {nullptr, nullptr, 0, nullptr}};

PyNumberMethods kWrapNumber = {};
PyMappingMethods kWrapMapping = {WrapLength, WrapSubscript, nullptr};

// --- Classes from type information ------------------------------------------------------

PyObject* KindName(InvokeKind k) {
  switch (k) {
    case InvokeKind::kMethod: return PyUnicode_FromString("method");
    case InvokeKind::kGet: return PyUnicode_FromString("get");
    case InvokeKind::kLet: return PyUnicode_FromString("let");
    case InvokeKind::kSet: return PyUnicode_FromString("set");
  }
  return PyUnicode_FromString("?");
}

py::dict MemberToPy(const MemberInfo& m) {
  py::dict d;
  d["name"] = py::reinterpret_steal<py::object>(FromU16(m.name));
  d["kind"] = py::reinterpret_steal<py::object>(Check(KindName(m.kind)));
  d["id"] = m.id;
  d["result"] = static_cast<int>(m.result);
  d["help"] = py::reinterpret_steal<py::object>(FromU16(m.help));
  d["hidden"] = m.hidden;
  py::list params;
  for (const auto& p : m.params) {
    py::dict pd;
    pd["name"] = py::reinterpret_steal<py::object>(FromU16(p.name));
    pd["type"] = static_cast<int>(p.type);
    pd["optional"] = p.optional;
    pd["by_ref"] = p.by_ref;
    if (p.default_value) pd["default"] = py::reinterpret_steal<py::object>(ToPy(*p.default_value));
    params.append(pd);
  }
  d["params"] = params;
  return d;
}

PyObject* MakeMember(const TypeInfo& ti, DispId id, const Accessors& a, const String& name) {
  const bool data = a.get || a.let || a.set;
  Member* m = PyObject_New(Member, data ? &PropertyType : &MethodType);
  if (!m) ThrowPy();
  m->id = id;
  m->get = a.get;
  m->method = a.method;
  m->let = a.let;
  m->set = a.set;
  m->indexed = HasRequiredParams(a.get);
  m->name = nullptr;
  m->doc = nullptr;
  m->info = nullptr;
  py::object owner = py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(m));
  m->name = FromU16(name);
  py::list info;
  for (const MemberInfo& mi : ti.members)
    if (mi.id == id) info.append(MemberToPy(mi));
  m->info = info.release().ptr();
  py::object cls_name = py::reinterpret_steal<py::object>(FromU16(ti.name));
  m->doc = Check(PyObject_CallFunctionObjArgs(G.member_doc, cls_name.ptr(), m->info, nullptr));
  return owner.release().ptr();
}

PyObject* ClassFor(const TypeInfo& ti) {
  if (ti.members.empty()) return reinterpret_cast<PyObject*>(&WrapType);
  auto& cache = ClassCache();
  auto it = cache.find(&ti);
  if (it != cache.end()) return it->second;

  py::dict ns;
  ns["__slots__"] = py::tuple();
  ns["__module__"] = "tarvo2";
  py::object info = py::reinterpret_steal<py::object>(TypeInfoToPy(ti));
  ns["__doc__"] = py::reinterpret_steal<py::object>(Check(PyObject_CallOneArg(G.class_doc, info.ptr())));
  for (const MemberInfo& mi : ti.members) {
    if (mi.hidden) continue;
    py::object key = py::reinterpret_steal<py::object>(FromU16(mi.name));
    if (PyDict_Contains(ns.ptr(), key.ptr())) continue;
    Accessors a = FindAccessors(ti, mi.id);
    PyObject* m = MakeMember(ti, mi.id, a, mi.name);
    PyDict_SetItem(ns.ptr(), key.ptr(), m);
    Py_DECREF(m);
  }
  for (const String& progid : tarvo2::LibraryClasses().ProgIds()) {
    const TypeInfo* registered = tarvo2::LibraryClasses().Find(progid);
    if (registered == &ti && ti.creatable)
      ns["_progid"] = py::reinterpret_steal<py::object>(FromU16(progid));
  }
  py::object name = py::reinterpret_steal<py::object>(FromU16(ti.name));
  PyObject* cls = Check(PyObject_CallFunction(reinterpret_cast<PyObject*>(&PyType_Type), "O(O)O", name.ptr(),
                                              reinterpret_cast<PyObject*>(&WrapType), ns.ptr()));
  cache.emplace(&ti, cls);  // kept for the life of the process
  return cls;
}

void ReadyType(PyTypeObject& t) {
  if (PyType_Ready(&t) < 0) ThrowPy();
}

}  // namespace

// --- Shared entry points -------------------------------------------------------------

PyObject* BoundMethodVectorcall(PyObject* callable, PyObject* const* args, size_t nargsf, PyObject* kwnames) {
  BoundMethod* b = reinterpret_cast<BoundMethod*>(callable);
  return Guarded([&] {
    return CallMember(Target(reinterpret_cast<PyObject*>(b->self)), b->member->id, InvokeKind::kMethod, args,
                      PyVectorcall_NARGS(nargsf), kwnames);
  });
}

PyObject* CallMember(tarvo2::Object* obj, DispId id, InvokeKind kind, PyObject* const* args, Py_ssize_t nargs,
                     PyObject* kwnames) {
  const Py_ssize_t nkw = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  const Py_ssize_t total = nargs + nkw;
  // By-reference cells: their values live here during the call.
  std::size_t nrefs = 0;
  for (Py_ssize_t i = 0; i < total; ++i)
    if (Py_TYPE(args[i]) == reinterpret_cast<PyTypeObject*>(G.Ref)) ++nrefs;
  std::vector<Variant> ref_values, ref_before;
  std::vector<PyObject*> ref_cells;
  ref_values.reserve(nrefs);
  ref_before.reserve(nrefs);
  ref_cells.reserve(nrefs);

  std::vector<tarvo2::Arg> items;
  items.reserve(static_cast<std::size_t>(total));
  for (Py_ssize_t i = 0; i < total; ++i) {
    PyObject* a = args[i];
    if (Py_TYPE(a) == reinterpret_cast<PyTypeObject*>(G.Ref)) {
      py::object v = py::reinterpret_steal<py::object>(Check(PyObject_GetAttr(a, G.s_value)));
      ref_values.push_back(FromPy(v.ptr()));
      ref_before.push_back(ref_values.back());
      ref_cells.push_back(a);
      tarvo2::Arg arg{Variant()};
      arg.ref = &ref_values.back();
      items.push_back(std::move(arg));
    } else {
      items.emplace_back(FromPy(a));
    }
    if (i >= nargs) items.back().name = ToU16(PyTuple_GET_ITEM(kwnames, i - nargs));
  }
  CallArgs call(std::move(items));
  tarvo2::Ref<tarvo2::Object> keep(obj);  // the call may drop the wrapper's reference
  Variant result = keep->Invoke(id, kind, call);
  // A cell changes only when the member changed its value: a cell passed
  // to a by-value parameter keeps the very object it held.
  for (std::size_t k = 0; k < nrefs; ++k) {
    if (ref_values[k] == ref_before[k]) continue;
    py::object v = py::reinterpret_steal<py::object>(ToPy(ref_values[k]));
    if (PyObject_SetAttr(ref_cells[k], G.s_value, v.ptr()) < 0) ThrowPy();
  }
  return ToPy(result);
}

PyObject* WrapObject(const tarvo2::Ref<tarvo2::Object>& obj) {
  if (!obj) Py_RETURN_NONE;
  if (PyObject* client = ClientPyObject(obj.get())) {
    Py_INCREF(client);
    return client;
  }
  PyTypeObject* cls = reinterpret_cast<PyTypeObject*>(ClassFor(obj->GetTypeInfo()));
  PyObject* w = cls->tp_alloc(cls, 0);
  if (!w) ThrowPy();
  obj->AddRef();
  reinterpret_cast<Wrap*>(w)->obj = obj.get();
  return w;
}

tarvo2::Ref<tarvo2::Object> IdentityOf(tarvo2::Object* obj) {
  if (!obj) return tarvo2::Ref<tarvo2::Object>();
  tarvo2::Ref<tarvo2::Object> own = obj->QueryInterface(obj->ClassName());
  return own ? own : tarvo2::Ref<tarvo2::Object>(obj);
}

tarvo2::Object* UnwrapObject(PyObject* o) { return IsWrap(o) ? reinterpret_cast<Wrap*>(o)->obj : nullptr; }

PyObject* TypeInfoToPy(const TypeInfo& ti) {
  py::dict d;
  d["name"] = py::reinterpret_steal<py::object>(FromU16(ti.name));
  d["help"] = py::reinterpret_steal<py::object>(FromU16(ti.help));
  d["creatable"] = ti.creatable;
  py::list members;
  for (const MemberInfo& m : ti.members) members.append(MemberToPy(m));
  d["members"] = members;
  return d.release().ptr();
}

void InitObjects(PyObject* module) {
  WrapType.tp_name = "tarvo2.Object";
  WrapType.tp_doc = "A library object, called by name (see the class of each library object).";
  WrapType.tp_basicsize = sizeof(Wrap);
  WrapType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
  WrapType.tp_new = WrapNew;
  WrapType.tp_dealloc = WrapDealloc;
  WrapType.tp_getattro = WrapGetAttr;
  WrapType.tp_setattro = WrapSetAttr;
  WrapType.tp_repr = WrapRepr;
  WrapType.tp_hash = WrapHash;
  WrapType.tp_richcompare = WrapRichCompare;
  WrapType.tp_iter = WrapIter;
  WrapType.tp_methods = kWrapMethods;
  kWrapNumber.nb_bool = WrapBool;
  WrapType.tp_as_number = &kWrapNumber;
  WrapType.tp_as_mapping = &kWrapMapping;

  for (PyTypeObject* t : {&PropertyType, &MethodType}) {
    t->tp_basicsize = sizeof(Member);
    t->tp_flags = Py_TPFLAGS_DEFAULT;
    t->tp_dealloc = MemberDealloc;
    t->tp_descr_get = MemberDescrGet;
    t->tp_getset = kMemberGetSet;
    t->tp_repr = MemberRepr;
  }
  PropertyType.tp_name = "tarvo2.Property";
  PropertyType.tp_descr_set = MemberDescrSet;
  MethodType.tp_name = "tarvo2.Method";

  BoundMethodType.tp_name = "tarvo2.BoundMethod";
  BoundMethodType.tp_basicsize = sizeof(BoundMethod);
  BoundMethodType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_VECTORCALL;
  BoundMethodType.tp_vectorcall_offset = offsetof(BoundMethod, vectorcall);
  BoundMethodType.tp_call = PyVectorcall_Call;
  BoundMethodType.tp_dealloc = BoundMethodDealloc;
  BoundMethodType.tp_getset = kBoundMethodGetSet;
  BoundMethodType.tp_repr = BoundMethodRepr;

  IndexedType.tp_name = "tarvo2.IndexedProperty";
  IndexedType.tp_doc = "An indexed property: obj.Prop[i] reads, obj.Prop[i] = v assigns, obj.Prop(i) reads.";
  IndexedType.tp_basicsize = sizeof(Indexed);
  IndexedType.tp_flags = Py_TPFLAGS_DEFAULT;
  IndexedType.tp_dealloc = IndexedDealloc;
  IndexedType.tp_as_mapping = &kIndexedMapping;
  IndexedType.tp_call = IndexedCall;

  EnumIterType.tp_name = "tarvo2.Enumerator";
  EnumIterType.tp_basicsize = sizeof(EnumIter);
  EnumIterType.tp_flags = Py_TPFLAGS_DEFAULT;
  EnumIterType.tp_dealloc = EnumIterDealloc;
  EnumIterType.tp_iter = PyObject_SelfIter;
  EnumIterType.tp_iternext = EnumIterNext;

  for (PyTypeObject* t : {&WrapType, &PropertyType, &MethodType, &BoundMethodType, &IndexedType, &EnumIterType}) {
    ReadyType(*t);
    Py_INCREF(t);
    const char* dot = std::strrchr(t->tp_name, '.');
    if (PyModule_AddObject(module, dot + 1, reinterpret_cast<PyObject*>(t)) < 0) ThrowPy();
  }
  // A class per library class, under its own name.
  for (const String& progid : tarvo2::LibraryClasses().ProgIds()) {
    const TypeInfo* ti = tarvo2::LibraryClasses().Find(progid);
    if (!ti) continue;
    PyObject* cls = ClassFor(*ti);
    Py_INCREF(cls);
    py::object name = py::reinterpret_steal<py::object>(FromU16(ti->name));
    if (PyModule_AddObjectRef(module, PyUnicode_AsUTF8(name.ptr()), cls) < 0) ThrowPy();
    Py_DECREF(cls);
  }
}

}  // namespace tarvo2py
