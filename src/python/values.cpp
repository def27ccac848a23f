// Values between Python and the library, both ways.
#include "common.h"

#include <datetime.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace tarvo2py {

using tarvo2::VarType;

namespace {

bool DateTimeReady() {
  if (!PyDateTimeAPI) PyDateTime_IMPORT;
  return PyDateTimeAPI != nullptr;
}

// Days from 1970-01-01 of a proleptic Gregorian date, and back.
std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}
void CivilFromDays(std::int64_t z, std::int64_t& y, unsigned& m, unsigned& d) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  y = static_cast<std::int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  d = doy - (153 * mp + 2) / 5 + 1;
  m = mp < 10 ? mp + 3 : mp - 9;
  y += m <= 2;
}
// Day 0 of a Date serial: 30 December 1899.
const std::int64_t kSerialEpoch = DaysFromCivil(1899, 12, 30);
constexpr std::int64_t kMicrosPerDay = 86400LL * 1000000LL;

// datetime -> Date serial: whole days since the epoch; the time of day is
// the fraction, added for days on or after the epoch and subtracted before
// it (-1.25 is 29 December 1899, 06:00).
Variant DateFromPy(PyObject* o, bool has_time) {
  std::int64_t days = DaysFromCivil(PyDateTime_GET_YEAR(o), PyDateTime_GET_MONTH(o),
                                    PyDateTime_GET_DAY(o)) - kSerialEpoch;
  double frac = 0;
  if (has_time) {
    std::int64_t us = ((PyDateTime_DATE_GET_HOUR(o) * 60LL + PyDateTime_DATE_GET_MINUTE(o)) * 60LL +
                       PyDateTime_DATE_GET_SECOND(o)) * 1000000LL + PyDateTime_DATE_GET_MICROSECOND(o);
    frac = static_cast<double>(us) / static_cast<double>(kMicrosPerDay);
  }
  double serial = days >= 0 ? static_cast<double>(days) + frac : static_cast<double>(days) - frac;
  return Variant(tarvo2::Date{serial});
}

PyObject* DateToPy(double serial) {
  if (!std::isfinite(serial) || std::fabs(serial) > 3.0e6) tarvo2::RaiseRuntimeError(tarvo2::err::kOverflow);
  std::int64_t days = static_cast<std::int64_t>(std::trunc(serial));
  std::int64_t us = std::llround(std::fabs(serial - static_cast<double>(days)) * kMicrosPerDay);
  if (us >= kMicrosPerDay) {  // rounded up to the next whole day
    us -= kMicrosPerDay;
    days += serial < 0 ? -1 : 1;
  }
  std::int64_t y;
  unsigned m, d;
  CivilFromDays(days + kSerialEpoch, y, m, d);
  if (y < 1 || y > 9999) tarvo2::RaiseRuntimeError(tarvo2::err::kOverflow);
  std::int64_t secs = us / 1000000;
  return Check(PyDateTime_FromDateAndTime(static_cast<int>(y), static_cast<int>(m), static_cast<int>(d),
                                          static_cast<int>(secs / 3600), static_cast<int>(secs / 60 % 60),
                                          static_cast<int>(secs % 60), static_cast<int>(us % 1000000)));
}

bool ValidElementType(long t) {
  switch (t) {
    case 2: case 3: case 4: case 5: case 6: case 7: case 8: case 9: case 10: case 11: case 12: case 17: case 36:
      return true;
    default:
      return false;
  }
}

long LongAttr(PyObject* o, PyObject* name) {
  py::object v = py::reinterpret_steal<py::object>(Check(PyObject_GetAttr(o, name)));
  long r = PyLong_AsLong(v.ptr());
  if (r == -1 && PyErr_Occurred()) ThrowPy();
  return r;
}

Variant ArrayFromSequence(PyObject* seq, VarType et, std::int32_t lower, bool sized) {
  PyObject* fast = Check(PySequence_Fast(seq, "an array needs a sequence"));
  py::object keep = py::reinterpret_steal<py::object>(fast);
  Py_ssize_t n = PySequence_Fast_GET_SIZE(fast);
  if (!sized && n == 0) return Variant(tarvo2::SafeArray(et));
  tarvo2::SafeArray a(et, lower, static_cast<std::size_t>(n));
  PyObject** items = PySequence_Fast_ITEMS(fast);
  for (Py_ssize_t i = 0; i < n; ++i) a.Put(lower + static_cast<std::int32_t>(i), FromPy(items[i]));
  return Variant(std::move(a));
}

}  // namespace

// --- Text ---------------------------------------------------------------------

String ToU16(PyObject* str) {
  const Py_ssize_t n = PyUnicode_GET_LENGTH(str);
  const void* data = PyUnicode_DATA(str);
  String out;
  switch (PyUnicode_KIND(str)) {
    case PyUnicode_1BYTE_KIND: {
      auto* p = static_cast<const Py_UCS1*>(data);
      out.assign(p, p + n);
      break;
    }
    case PyUnicode_2BYTE_KIND: {
      auto* p = static_cast<const Py_UCS2*>(data);
      out.assign(p, p + n);
      break;
    }
    default: {
      auto* p = static_cast<const Py_UCS4*>(data);
      out.reserve(static_cast<std::size_t>(n) + 8);
      for (Py_ssize_t i = 0; i < n; ++i) {
        Py_UCS4 c = p[i];
        if (c >= 0x10000) {
          c -= 0x10000;
          out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
          out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
        } else {
          out.push_back(static_cast<char16_t>(c));
        }
      }
    }
  }
  return out;
}

PyObject* FromU16(tarvo2::StringView s) {
  const std::size_t n = s.size();
  char16_t maxc = 0;
  std::size_t pairs = 0;
  for (std::size_t i = 0; i < n; ++i) {
    char16_t c = s[i];
    if (c > maxc) maxc = c;
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < n && s[i + 1] >= 0xDC00 && s[i + 1] < 0xE000) {
      ++pairs;
      ++i;
    }
  }
  if (pairs == 0) {
    PyObject* r = Check(PyUnicode_New(static_cast<Py_ssize_t>(n), maxc));
    if (maxc < 0x100) {
      auto* p = PyUnicode_1BYTE_DATA(r);
      for (std::size_t i = 0; i < n; ++i) p[i] = static_cast<Py_UCS1>(s[i]);
    } else {
      auto* p = PyUnicode_2BYTE_DATA(r);
      for (std::size_t i = 0; i < n; ++i) p[i] = s[i];
    }
    return r;
  }
  PyObject* r = Check(PyUnicode_New(static_cast<Py_ssize_t>(n - pairs), 0x10FFFF));
  Py_UCS4* p = PyUnicode_4BYTE_DATA(r);
  std::size_t k = 0;
  for (std::size_t i = 0; i < n; ++i) {
    char16_t c = s[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < n && s[i + 1] >= 0xDC00 && s[i + 1] < 0xE000) {
      p[k++] = 0x10000 + ((static_cast<Py_UCS4>(c) - 0xD800) << 10) + (s[i + 1] - 0xDC00);
      ++i;
    } else {
      p[k++] = c;
    }
  }
  return r;
}

// --- Python -> Variant ----------------------------------------------------------

Variant FromPy(PyObject* o) {
  if (o == Py_None) return Variant();
  PyTypeObject* t = Py_TYPE(o);
  if (t == &PyUnicode_Type) return Variant(ToU16(o));
  if (t == &PyBool_Type) return Variant(o == Py_True);
  if (PyLong_Check(o)) {
    int overflow = 0;
    long long v = PyLong_AsLongLongAndOverflow(o, &overflow);
    if (v == -1 && PyErr_Occurred()) ThrowPy();
    if (PyObject_TypeCheck(o, reinterpret_cast<PyTypeObject*>(G.Byte))) {
      if (overflow || v < 0 || v > 255) tarvo2::RaiseRuntimeError(tarvo2::err::kOverflow);
      return Variant(static_cast<std::uint8_t>(v));
    }
    if (overflow || v < std::numeric_limits<std::int32_t>::min() || v > std::numeric_limits<std::int32_t>::max())
      tarvo2::RaiseRuntimeError(tarvo2::err::kOverflow);
    return Variant(static_cast<std::int32_t>(v));
  }
  if (PyFloat_Check(o)) return Variant(PyFloat_AS_DOUBLE(o));
  if (PyUnicode_Check(o)) return Variant(ToU16(o));
  if (tarvo2::Object* obj = UnwrapObject(o)) return Variant(tarvo2::Ref<tarvo2::Object>(obj));
  if (o == G.Null) return Variant::Null();
  if (PyObject_TypeCheck(o, reinterpret_cast<PyTypeObject*>(G.Array))) {
    long et = LongAttr(o, G.s_element_type);
    if (!ValidElementType(et)) tarvo2::RaiseRuntimeError(tarvo2::err::kTypeMismatch);
    long lower = LongAttr(o, G.s_lower_bound);
    if (lower < std::numeric_limits<std::int32_t>::min() || lower > std::numeric_limits<std::int32_t>::max())
      tarvo2::RaiseRuntimeError(tarvo2::err::kOverflow);
    bool sized = LongAttr(o, G.s_sized) != 0;
    return ArrayFromSequence(o, static_cast<VarType>(et), static_cast<std::int32_t>(lower), sized);
  }
  if (PyList_Check(o) || PyTuple_Check(o)) return ArrayFromSequence(o, VarType::kVariant, 0, true);
  if (PyBytes_Check(o) || PyByteArray_Check(o)) {
    const char* p = PyBytes_Check(o) ? PyBytes_AS_STRING(o) : PyByteArray_AS_STRING(o);
    Py_ssize_t n = PyBytes_Check(o) ? PyBytes_GET_SIZE(o) : PyByteArray_GET_SIZE(o);
    tarvo2::SafeArray a(VarType::kByte, 0, static_cast<std::size_t>(n));
    for (Py_ssize_t i = 0; i < n; ++i)
      a.Put(static_cast<std::int32_t>(i), Variant(static_cast<std::uint8_t>(p[i])));
    return Variant(std::move(a));
  }
  if (DateTimeReady()) {
    if (PyDateTime_Check(o)) return DateFromPy(o, true);
    if (PyDate_Check(o)) return DateFromPy(o, false);
  }
  if (PyObject_TypeCheck(o, reinterpret_cast<PyTypeObject*>(G.Decimal))) {
    py::object n = py::reinterpret_steal<py::object>(Check(PyObject_CallOneArg(G.currency_scaled, o)));
    long long scaled = PyLong_AsLongLong(n.ptr());
    if (scaled == -1 && PyErr_Occurred()) ThrowPy();
    return Variant(tarvo2::Currency{scaled});
  }
  if (PyObject_TypeCheck(o, reinterpret_cast<PyTypeObject*>(G.Record))) {
    py::object name = py::reinterpret_steal<py::object>(Check(PyObject_GetAttr(o, G.s_type_name)));
    py::object fields = py::reinterpret_steal<py::object>(Check(PyObject_GetAttr(o, G.s_fields)));
    std::vector<std::pair<String, Variant>> out;
    for (py::handle item : fields) {
      py::tuple pair = py::reinterpret_borrow<py::tuple>(item);
      out.emplace_back(ToU16(pair[0].ptr()), FromPy(pair[1].ptr()));
    }
    return Variant(tarvo2::Record(ToU16(name.ptr()), std::move(out)));
  }
  if (PyObject_TypeCheck(o, reinterpret_cast<PyTypeObject*>(G.ErrorValue))) {
    long code = LongAttr(o, G.s_code);
    return Variant(tarvo2::ErrorValue{static_cast<std::int32_t>(code)});
  }
  if (PyObject_TypeCheck(o, reinterpret_cast<PyTypeObject*>(G.Ref))) {
    py::object v = py::reinterpret_steal<py::object>(Check(PyObject_GetAttr(o, G.s_value)));
    return FromPy(v.ptr());
  }
  return Variant(MakeClientObject(o));
}

// --- Variant -> Python ----------------------------------------------------------

PyObject* ToPy(const Variant& v) {
  const VarType t = v.Type();
  if (static_cast<std::uint16_t>(t) & static_cast<std::uint16_t>(VarType::kArray)) {
    const tarvo2::SafeArray& a = v.AsArray();
    py::list items(a.Count());
    for (std::size_t i = 0; i < a.Count(); ++i)
      PyList_SET_ITEM(items.ptr(), static_cast<Py_ssize_t>(i), ToPy(a.Items()[i]));
    std::int32_t lower = a.IsSized() ? a.LBound() : 0;
    return Check(PyObject_CallFunction(G.Array, "OiiO", items.ptr(), static_cast<int>(a.ElementType()),
                                       static_cast<int>(lower), a.IsSized() ? Py_True : Py_False));
  }
  switch (t) {
    case VarType::kEmpty:
      Py_RETURN_NONE;
    case VarType::kNull:
      Py_INCREF(G.Null);
      return G.Null;
    case VarType::kBoolean:
      return PyBool_FromLong(v.AsBool());
    case VarType::kLong:
      return Check(PyLong_FromLong(v.AsLong()));
    case VarType::kInteger:
    case VarType::kByte:
      return Check(PyLong_FromLong(tarvo2::ToLong(v)));
    case VarType::kDouble:
      return Check(PyFloat_FromDouble(v.AsDouble()));
    case VarType::kSingle:
      return Check(PyFloat_FromDouble(tarvo2::ToDouble(v)));
    case VarType::kString:
      return FromU16(v.AsString());
    case VarType::kCurrency: {
      py::object n = py::reinterpret_steal<py::object>(Check(PyLong_FromLongLong(tarvo2::ToCurrency(v).scaled)));
      py::object d = py::reinterpret_steal<py::object>(Check(PyObject_CallOneArg(G.Decimal, n.ptr())));
      return Check(PyObject_CallMethodObjArgs(d.ptr(), G.s_scaleb, py::int_(-4).ptr(), nullptr));
    }
    case VarType::kDate:
      if (!DateTimeReady()) ThrowPy();
      return DateToPy(tarvo2::ToDate(v).serial);
    case VarType::kObject:
      return WrapObject(v.AsObject());
    case VarType::kError:
      return Check(PyObject_CallFunction(G.ErrorValue, "l", static_cast<long>(v.AsError().code)));
    case VarType::kRecord: {
      const tarvo2::Record& r = v.AsRecord();
      py::list fields;
      for (const auto& [name, value] : r.Fields()) {
        py::object key = py::reinterpret_steal<py::object>(FromU16(name));
        py::object val = py::reinterpret_steal<py::object>(ToPy(value));
        fields.append(py::make_tuple(key, val));
      }
      py::object name = py::reinterpret_steal<py::object>(FromU16(r.TypeName()));
      return Check(PyObject_CallFunctionObjArgs(G.Record, name.ptr(), fields.ptr(), nullptr));
    }
    default:
      tarvo2::RaiseRuntimeError(tarvo2::err::kTypeMismatch);
  }
}

}  // namespace tarvo2py
