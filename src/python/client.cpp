// Python objects as client objects of the library.
//
// A PyClient stands for one Python object inside the library (a form handed
// to the window placement helpers, an object a storage string is bound to).
// The library reaches its attributes by name, without regard to letter case:
// a read returns the attribute (calling it when it is a bound method), a
// call calls it, an assignment sets it; index arguments index the
// attribute's value. The default member (dispatch identity 0) is the
// attribute named by the object's `__tarvo2_default__`, else "Value".
#include <vector>

#include "common.h"

namespace tarvo2py {

namespace {

using tarvo2::CallArgs;
using tarvo2::DispId;
using tarvo2::InvokeKind;

class PyClient : public tarvo2::Object {
 public:
  explicit PyClient(PyObject* o) : obj_(o) {
    Py_INCREF(o);
    PyObject* name = PyObject_GetAttrString(reinterpret_cast<PyObject*>(Py_TYPE(o)), "__name__");
    if (name && PyUnicode_Check(name)) info_.name = ToU16(name);
    else PyErr_Clear();
    Py_XDECREF(name);
    if (info_.name.empty()) info_.name = u"Object";
  }
  ~PyClient() override {
    // A client object may outlive the interpreter (held by a global store
    // at exit); then the Python object is left to the process's end.
    if (!Py_IsInitialized()) return;
    PyGILState_STATE g = PyGILState_Ensure();
    Py_DECREF(obj_);
    PyGILState_Release(g);
  }

  PyObject* object() const { return obj_; }

  const tarvo2::TypeInfo& GetTypeInfo() const override { return info_; }
  String ClassName() const override { return info_.name; }

  // Every name gets an identity, so that an assignment can create an
  // attribute; reading one that does not exist raises 438.
  DispId GetIdOfName(tarvo2::StringView name) const override {
    if (tarvo2::EqualsNoCase(name, u"Value")) return tarvo2::kDispIdValue;
    for (std::size_t i = 0; i < names_.size(); ++i)
      if (tarvo2::EqualsNoCase(names_[i], name)) return static_cast<DispId>(i + 1);
    names_.emplace_back(name);
    return static_cast<DispId>(names_.size());
  }

  Variant Invoke(DispId id, InvokeKind kind, CallArgs& args) override {
    PyGILState_STATE g = PyGILState_Ensure();
    struct Release {
      PyGILState_STATE g;
      ~Release() { PyGILState_Release(g); }
    } release{g};
    try {
      return InvokePython(id, kind, args);
    } catch (py::error_already_set& e) {
      e.restore();
      throw ErrorFromPython(info_.name);
    }
  }

 private:
  String NameOf(DispId id) const {
    if (id == tarvo2::kDispIdValue) {
      PyObject* d = PyObject_GetAttr(obj_, G.s_default);
      if (d && PyUnicode_Check(d)) {
        String n = ToU16(d);
        Py_DECREF(d);
        return n;
      }
      Py_XDECREF(d);
      PyErr_Clear();
      return u"Value";
    }
    if (id < 1 || static_cast<std::size_t>(id) > names_.size())
      tarvo2::RaiseRuntimeError(tarvo2::err::kNotSupported);
    return names_[id - 1];
  }

  // The attribute name as the object spells it: the name itself when the
  // object has it, else the first attribute that matches without regard to
  // letter case, else the name itself (an assignment then creates it).
  py::str AttributeName(const String& name) const {
    py::str exact = py::reinterpret_steal<py::str>(FromU16(name));
    if (PyObject_HasAttr(obj_, exact.ptr())) return exact;
    py::list names = py::reinterpret_steal<py::list>(Check(PyObject_Dir(obj_)));
    for (py::handle n : names)
      if (PyUnicode_Check(n.ptr()) && tarvo2::EqualsNoCase(ToU16(n.ptr()), name))
        return py::reinterpret_borrow<py::str>(n);
    return exact;
  }

  Variant InvokePython(DispId id, InvokeKind kind, CallArgs& args) {
    const String name = NameOf(id);
    py::str attr_name = AttributeName(name);
    auto& items = args.items();
    const bool put = kind == InvokeKind::kLet || kind == InvokeKind::kSet;
    const std::size_t nindex = put ? (items.empty() ? 0 : items.size() - 1) : items.size();
    if (put && items.empty()) tarvo2::RaiseRuntimeError(tarvo2::err::kWrongArgumentCount);

    py::list positional;
    py::dict named;
    for (std::size_t i = 0; i < nindex; ++i) {
      py::object v = py::reinterpret_steal<py::object>(ToPy(args.ValueAt(i)));
      if (items[i].name.empty()) positional.append(v);
      else named[py::reinterpret_steal<py::str>(FromU16(items[i].name))] = v;
    }
    if (put) {
      py::object value = py::reinterpret_steal<py::object>(ToPy(args.ValueAt(items.size() - 1)));
      if (nindex == 0) {
        if (PyObject_SetAttr(obj_, attr_name.ptr(), value.ptr()) < 0) ThrowPy();
      } else {
        py::object target = py::reinterpret_steal<py::object>(Check(PyObject_GetAttr(obj_, attr_name.ptr())));
        py::object key = positional.size() == 1 ? positional[0] : py::tuple(positional);
        if (PyObject_SetItem(target.ptr(), key.ptr(), value.ptr()) < 0) ThrowPy();
      }
      return Variant();
    }
    py::object attr = py::reinterpret_steal<py::object>(Check(PyObject_GetAttr(obj_, attr_name.ptr())));
    py::object result;
    const bool is_method = PyMethod_Check(attr.ptr()) || PyCFunction_Check(attr.ptr());
    if (nindex == 0 && (kind == InvokeKind::kGet && !is_method)) {
      result = attr;
    } else if (PyCallable_Check(attr.ptr()) && (is_method || kind == InvokeKind::kMethod || nindex > 0)) {
      py::tuple pargs(positional);
      result = py::reinterpret_steal<py::object>(Check(PyObject_Call(attr.ptr(), pargs.ptr(), named.ptr())));
    } else if (nindex > 0) {
      if (!named.empty()) tarvo2::RaiseRuntimeError(tarvo2::err::kNamedArgumentNotFound);
      py::object key = positional.size() == 1 ? positional[0] : py::tuple(positional);
      result = py::reinterpret_steal<py::object>(Check(PyObject_GetItem(attr.ptr(), key.ptr())));
    } else {
      result = attr;
    }
    return FromPy(result.ptr());
  }

  PyObject* obj_;
  tarvo2::TypeInfo info_;
  mutable std::vector<String> names_;
};

}  // namespace

tarvo2::Ref<tarvo2::Object> MakeClientObject(PyObject* o) { return tarvo2::MakeRef<PyClient>(o); }

PyObject* ClientPyObject(tarvo2::Object* obj) {
  auto* c = dynamic_cast<PyClient*>(obj);
  return c ? c->object() : nullptr;
}

}  // namespace tarvo2py
