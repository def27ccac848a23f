// The tarvo2 module: object creation, the global TarvoLibrary, identity,
// type information, the platform settings a script needs, and timing
// helpers for the benchmark.
#include <time.h>

#include "common.h"
#include "prelude.h"

#include <pybind11/eval.h>

namespace tarvo2py {

Cache G;

namespace {

// Runs `f` as one call from Python and hands its result to pybind11.
template <class F>
py::object Run(F&& f) {
  PyObject* r = Guarded(std::forward<F>(f));
  if (!r) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(r);
}

String ProgIdOf(const py::handle& x) {
  String s = ToU16(x.ptr());
  if (s.find(u'.') == String::npos) s = u"Tarvo2." + s;
  return s;
}

PyObject* Intern(const char* s) {
  PyObject* o = PyUnicode_InternFromString(s);
  if (!o) ThrowPy();
  return o;
}

PyObject* Take(py::module_& m, const char* name) {
  py::object o = m.attr(name);
  return o.ptr();  // the module keeps it alive
}

// CPU time of this thread in nanoseconds (time.thread_time_ns in Python):
// time the thread spends preempted on a busy machine does not count.
double ThreadNs() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

// Nanoseconds of CPU time per call of `body`, run `n` times.
template <class F>
double TimePerCall(long n, F&& body) {
  double start = ThreadNs();
  for (long i = 0; i < n; ++i) body();
  return (ThreadNs() - start) / static_cast<double>(n > 0 ? n : 1);
}

}  // namespace

}  // namespace tarvo2py

using namespace tarvo2py;

PYBIND11_MODULE(tarvo2, m) {
  m.doc() =
      "Tarvo2 from Python: every class of the library, called by name.\n\n"
      "    import tarvo2\n"
      "    ss = tarvo2.CreateObject(\"Tarvo2.KivStorageString\")\n"
      "    ss.SetValue(\"Colour\", \"Red\")\n"
      "    ss.GetValue(\"Colour\")            # 'Red'\n"
      "    ss.getvalue(sFieldName=\"Colour\")  # names in any letter case\n\n"
      "Values: None is Empty, tarvo2.Null is Null; bool, int (Long), float\n"
      "(Double), decimal.Decimal (Currency), datetime.datetime (Date), str;\n"
      "tarvo2.Byte; tarvo2.Array (element type and lower bound; lists and tuples\n"
      "become arrays of Variants); tarvo2.Record (read-only). By-reference\n"
      "parameters: pass a tarvo2.Ref cell and read its .value after the call.\n"
      "Errors: tarvo2.Error with number, description, source (lines),\n"
      "help_file and help_context. Any other Python object passed in is a\n"
      "client object whose attributes the library reaches by name.";

  G.module = m.ptr();
  py::exec(kPrelude, m.attr("__dict__"));
  G.Error = Take(m, "Error");
  G.MemberNotFound = Take(m, "MemberNotFound");
  G.Ref = Take(m, "Ref");
  G.Array = Take(m, "Array");
  G.Record = Take(m, "Record");
  G.Null = Take(m, "Null");
  G.Byte = Take(m, "Byte");
  G.ErrorValue = Take(m, "ErrorValue");
  G.currency_scaled = Take(m, "_currency_scaled");
  G.member_doc = Take(m, "_member_doc");
  G.signature = Take(m, "_signature");
  G.class_doc = Take(m, "_class_doc");
  py::object decimal_type = py::module_::import("decimal").attr("Decimal");
  m.attr("_Decimal") = decimal_type;
  G.Decimal = decimal_type.ptr();
  G.s_value = Intern("value");
  G.s_element_type = Intern("element_type");
  G.s_lower_bound = Intern("lower_bound");
  G.s_sized = Intern("sized");
  G.s_code = Intern("code");
  G.s_type_name = Intern("_type_name");
  G.s_fields = Intern("_fields");
  G.s_scaleb = Intern("scaleb");
  G.s_progid = Intern("_progid");
  G.s_default = Intern("__tarvo2_default__");

  InitObjects(m.ptr());

  m.def(
      "CreateObject",
      [](py::str prog_id) { return Run([&] { return WrapObject(tarvo2::CreateObject(ToU16(prog_id.ptr()))); }); },
      py::arg("prog_id"),
      "Creates an object of the library by ProgID (\"Tarvo2.KivStorageString\"), in any\n"
      "letter case. Raises tarvo2.Error 429 for an unknown or non-creatable class.");
  m.def(
      "library", [] { return Run([] { return WrapObject(tarvo2::GetTarvoLibrary()); }); },
      "The global TarvoLibrary object (window placement helpers, Version,\n"
      "TarvoRaiseErrors).");
  m.def(
      "same",
      [](py::handle a, py::handle b) {
        tarvo2::Object* x = UnwrapObject(a.ptr());
        tarvo2::Object* y = UnwrapObject(b.ptr());
        if (!x || !y) return py::bool_(a.ptr() == b.ptr()).cast<py::object>();
        return Run([&] {
          bool same = tarvo2::SameObject(Variant(tarvo2::Ref<tarvo2::Object>(x)), Variant(tarvo2::Ref<tarvo2::Object>(y)));
          return PyBool_FromLong(same);
        });
      },
      py::arg("a"), py::arg("b"),
      "Whether a and b are the same object, as the runtime's Is operator tells:\n"
      "a store and its common-interface views are one object. Other Python\n"
      "objects are compared with `is`.");
  m.def(
      "type_info",
      [](py::handle x) {
        return Run([&]() -> PyObject* {
          if (tarvo2::Object* obj = UnwrapObject(x.ptr())) return TypeInfoToPy(obj->GetTypeInfo());
          py::object name = py::reinterpret_borrow<py::object>(x);
          if (PyType_Check(x.ptr())) name = py::reinterpret_borrow<py::object>(x).attr("__name__");
          if (!PyUnicode_Check(name.ptr())) {
            PyErr_SetString(PyExc_TypeError, "type_info() takes a library object, class or ProgID");
            return nullptr;
          }
          const tarvo2::TypeInfo* ti = tarvo2::LibraryClasses().Find(ProgIdOf(name));
          if (!ti) tarvo2::RaiseRuntimeError(tarvo2::err::kCantCreateObject);
          return TypeInfoToPy(*ti);
        });
      },
      py::arg("x"),
      "The type information of a library object, class or ProgID: a dict with\n"
      "name, help, creatable and members (name, kind, id, params, result, help).");
  m.def(
      "prog_ids",
      [] {
        py::list out;
        for (const String& p : tarvo2::LibraryClasses().ProgIds())
          out.append(py::reinterpret_steal<py::object>(FromU16(p)));
        return out;
      },
      "The ProgIDs of the library's classes.");
  m.def(
      "set_host_module_path", [](const std::string& path) { tarvo2::SetHostModulePath(path); }, py::arg("path"),
      "Sets the host program's path, from which the window placement helpers\n"
      "derive the INI file and registry key names (the interpreter's own path\n"
      "otherwise). The empty string restores the default.");
  m.def(
      "set_registry_location", [](const std::string& path) { tarvo2::SetRegistryLocation(path); },
      py::arg("path"),
      "Moves the registry store to the database file `path` (\":memory:\" for\n"
      "one that lives in memory); the environment variable TARVO2_REGISTRY\n"
      "chooses it at start.");
  m.def(
      "set_screen_size", [](double w, double h) { tarvo2::SetScreenSize(w, h); }, py::arg("width"),
      py::arg("height"), "Sets the screen size that KivCenterForm centres forms on.");

  // Benchmark helpers: the same GetValue as a typed C++ call and as a call
  // by name in C++, so that a script can tell the library's own work from
  // the cost of calling it from Python.
  m.def(
      "_time_typed_get_value",
      [](py::handle ss, py::str name, long n) {
        auto* s = dynamic_cast<tarvo2::KivStorageString*>(UnwrapObject(ss.ptr()));
        if (!s) throw py::type_error("a KivStorageString is needed");
        String field = ToU16(name.ptr());
        return TimePerCall(n, [&] {
          Variant v = s->GetValue(field);
          (void)v;
        });
      },
      py::arg("storage_string"), py::arg("field"), py::arg("n"),
      "CPU nanoseconds per typed C++ call of GetValue(field), run n times.");
  m.def(
      "_time_dispatch_get_value",
      [](py::handle ss, py::str name, long n) {
        tarvo2::Object* obj = UnwrapObject(ss.ptr());
        if (!obj) throw py::type_error("a library object is needed");
        Variant target{tarvo2::Ref<tarvo2::Object>(obj)};
        String field = ToU16(name.ptr());
        return TimePerCall(n, [&] {
          Variant v = tarvo2::Call(target, u"GetValue", {Variant(field)});
          (void)v;
        });
      },
      py::arg("obj"), py::arg("field"), py::arg("n"),
      "CPU nanoseconds per C++ call by name of GetValue(field), run n times.");
}
