// Errors between Python and the library.
//
// A library error reaches Python as a tarvo2.Error. A Python exception raised
// by client code (a form's property, a bound object) travels through the
// library as a tarvo2::Error that stands for it, gathering source lines like
// any other error; the exception itself is parked here, and when that error
// leaves the library the original exception is raised again in its place,
// with the source chain added to it (as its `source` for a tarvo2.Error, as
// a note for any other exception). Parked exceptions live until the
// outermost call from Python ends, so an error that the library discards on
// its way (an importer's skip-on-failure rule) leaves nothing behind.
#include <vector>

#include "common.h"

namespace tarvo2py {

namespace {

struct Parked {
  std::int32_t number;
  String description;
  String origin;
  py::object exception;
};

struct CallState {
  int depth = 0;
  std::vector<Parked> parked;
};

CallState& State() {
  static thread_local CallState state;
  return state;
}

// The source chain as a list of lines.
PyObject* SourceLines(const String& source) {
  py::list lines;
  std::size_t start = 0;
  while (true) {
    std::size_t end = source.find(u"\r\n", start);
    String line = source.substr(start, end == String::npos ? String::npos : end - start);
    if (!line.empty() || end != String::npos || start != 0)
      lines.append(py::reinterpret_steal<py::object>(FromU16(line)));
    if (end == String::npos) break;
    start = end + 2;
  }
  return lines.release().ptr();
}

String JoinLines(PyObject* list) {
  String out;
  py::object seq = py::reinterpret_borrow<py::object>(list);
  if (PyUnicode_Check(list)) return ToU16(list);
  bool first = true;
  for (py::handle line : seq) {
    if (!first) out += u"\r\n";
    first = false;
    py::str text(line);
    out += ToU16(text.ptr());
  }
  return out;
}

// The runtime error number that stands for a Python exception class.
std::int32_t NumberFor(PyObject* exc) {
  struct Row {
    PyObject* type;
    std::int32_t number;
  };
  const Row rows[] = {
      {PyExc_AttributeError, tarvo2::err::kNotSupported},
      {PyExc_TypeError, tarvo2::err::kTypeMismatch},
      {PyExc_OverflowError, tarvo2::err::kOverflow},
      {PyExc_ZeroDivisionError, 11},
      {PyExc_MemoryError, tarvo2::err::kOutOfMemory},
      {PyExc_IndexError, tarvo2::err::kSubscriptOutOfRange},
      {PyExc_KeyError, tarvo2::err::kSubscriptOutOfRange},
      {PyExc_FileNotFoundError, tarvo2::err::kFileNotFound},
      {PyExc_PermissionError, tarvo2::err::kPermissionDenied},
      {PyExc_ValueError, tarvo2::err::kInvalidProcedureCall},
  };
  for (const Row& r : rows)
    if (PyObject_IsInstance(exc, r.type) == 1) return r.number;
  return 440;  // Automation error
}

}  // namespace

CallScope::CallScope() { ++State().depth; }

CallScope::~CallScope() {
  CallState& s = State();
  if (--s.depth == 0 && !s.parked.empty()) {
    // Dropping the exceptions may run Python code; keep the error in flight.
    PyObject *type, *value, *tb;
    PyErr_Fetch(&type, &value, &tb);
    s.parked.clear();
    PyErr_Restore(type, value, tb);
  }
}

tarvo2::Error ErrorFromPython(const String& origin) {
  PyObject *type, *value, *tb;
  PyErr_Fetch(&type, &value, &tb);
  PyErr_NormalizeException(&type, &value, &tb);
  if (tb) PyException_SetTraceback(value, tb);
  py::object exc = py::reinterpret_steal<py::object>(value);
  Py_XDECREF(type);
  Py_XDECREF(tb);

  std::int32_t number;
  String description, source, help_file;
  std::int32_t help_context = 0;
  try {
    if (PyObject_IsInstance(exc.ptr(), G.Error) == 1) {
      number = exc.attr("number").cast<std::int32_t>();
      description = ToU16(py::str(exc.attr("description")).ptr());
      source = JoinLines(exc.attr("source").ptr());
      help_file = ToU16(py::str(exc.attr("help_file")).ptr());
      help_context = exc.attr("help_context").cast<std::int32_t>();
    } else {
      number = NumberFor(exc.ptr());
      String text = ToU16(py::str(exc).ptr());
      description = ToU16(py::str(py::type::handle_of(exc).attr("__name__")).ptr());
      if (!text.empty()) description += u": " + text;
    }
  } catch (...) {
    // The exception's own attributes could not be read: keep what is known.
    PyErr_Clear();
    number = 440;
    description = u"Python exception";
  }
  if (source.empty()) source = origin;
  String first = source.substr(0, source.find(u"\r\n"));
  State().parked.push_back(Parked{number, description, first, exc});
  return tarvo2::Error(number, source, description, help_file, help_context);
}

void SetPyError(const tarvo2::Error& e) {
  try {
    CallState& s = State();
    const String& source = e.Source();
    for (auto it = s.parked.rbegin(); it != s.parked.rend(); ++it) {
      if (it->number != e.Number() || it->description != e.Description()) continue;
      if (source.compare(0, it->origin.size(), it->origin) != 0) continue;
      py::object exc = it->exception;
      s.parked.erase(std::next(it).base());
      py::object lines = py::reinterpret_steal<py::object>(SourceLines(source));
      if (PyObject_IsInstance(exc.ptr(), G.Error) == 1) {
        exc.attr("source") = lines;
      } else if (py::hasattr(exc, "add_note")) {
        exc.attr("add_note")(py::str("Tarvo2 source: {}").format(py::str(" <- ").attr("join")(lines)));
      }
      PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exc.ptr())), exc.ptr());
      return;
    }
    PyObject* cls = e.Number() == tarvo2::err::kNotSupported ? G.MemberNotFound : G.Error;
    py::object lines = py::reinterpret_steal<py::object>(SourceLines(source));
    py::object desc = py::reinterpret_steal<py::object>(FromU16(e.Description()));
    py::object file = py::reinterpret_steal<py::object>(FromU16(e.HelpFile()));
    PyObject* err = PyObject_CallFunction(cls, "iOOOi", static_cast<int>(e.Number()), desc.ptr(), lines.ptr(),
                                          file.ptr(), static_cast<int>(e.HelpContext()));
    if (!err) return;  // the failure to build it is the exception now
    PyErr_SetObject(cls, err);
    Py_DECREF(err);
  } catch (py::error_already_set& x) {
    x.restore();
  } catch (...) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
  }
}

}  // namespace tarvo2py
