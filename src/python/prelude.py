# The Python half of the tarvo2 module: the value classes that have no C++
# counterpart worth writing by hand, and the texts that help() and the stubs
# show. The C++ half runs this once in the module's namespace at import and
# then looks these names up.
import datetime as _dt
import decimal as _decimal
import enum as _enum
import inspect as _inspect


class Error(Exception):
    """An error raised by the library or by an object it called.

    number: the error number (library errors are negative);
    description: its text; source: the source chain as a list of lines, the
    origin first, then one line per procedure it passed, innermost first;
    help_file, help_context: passed on as the error carried them.
    """

    def __init__(self, number, description="", source=(), help_file="", help_context=0):
        super().__init__(number, description)
        self.number = int(number)
        self.description = str(description)
        self.source = source.split("\r\n") if isinstance(source, str) else list(source)
        self.help_file = str(help_file)
        self.help_context = int(help_context)

    def __str__(self):
        text = f"{self.number}: {self.description}"
        if self.source:
            text += " [" + " <- ".join(self.source) + "]"
        return text


class MemberNotFound(Error, AttributeError):
    """Error 438: the object has no such property or method (also an AttributeError)."""


def _overflow():
    return Error(6, "Overflow", ["Tarvo2"])


class _NullType:
    """The Null value (unknown or missing data), distinct from None (Empty)."""

    _instance = None

    def __new__(cls):
        if cls._instance is None:
            cls._instance = super().__new__(cls)
        return cls._instance

    def __repr__(self):
        return "tarvo2.Null"

    def __bool__(self):
        return False

    def __reduce__(self):
        return "Null"


Null = _NullType()


class Byte(int):
    """An explicit Byte value (0 to 255); other values raise Overflow (6)."""

    def __new__(cls, value=0):
        v = int.__new__(cls, value)
        if not 0 <= v <= 255:
            raise _overflow()
        return v

    def __repr__(self):
        return f"tarvo2.Byte({int(self)})"


class ErrorValue:
    """An Error value (an SCODE). tarvo2.Missing marks an omitted argument."""

    __slots__ = ("code",)

    def __init__(self, code):
        self.code = int(code)

    def __eq__(self, other):
        return isinstance(other, ErrorValue) and other.code == self.code

    def __hash__(self):
        return hash(("ErrorValue", self.code))

    def __repr__(self):
        return "tarvo2.Missing" if self.code == -2147352572 else f"tarvo2.ErrorValue({self.code})"


Missing = ErrorValue(-2147352572)


class VarType(_enum.IntEnum):
    """Value type tags; an array's type is Array | its element type."""

    Empty = 0
    Null = 1
    Integer = 2
    Long = 3
    Single = 4
    Double = 5
    Currency = 6
    Date = 7
    String = 8
    Object = 9
    Error = 10
    Boolean = 11
    Variant = 12
    Byte = 17
    Record = 36
    Array = 0x2000


class Array(list):
    """A one-dimensional array: a list that carries its element type and lower bound.

    Python indexing stays 0-based; lower_bound is the array's first index on
    the library's side (GetPageNames answers arrays from 1). An array that was
    never sized (no dimensions) has sized False and no elements. Elements are
    converted to the element type when the array is passed to the library.
    """

    __slots__ = ("element_type", "lower_bound", "sized")

    def __init__(self, items=(), element_type=VarType.Variant, lower_bound=0, sized=True):
        super().__init__(items)
        self.element_type = VarType(element_type)
        self.lower_bound = int(lower_bound)
        self.sized = bool(sized) or len(self) > 0

    @property
    def upper_bound(self):
        return self.lower_bound + len(self) - 1

    def __repr__(self):
        return (f"tarvo2.Array({list.__repr__(self)}, {self.element_type.name}, "
                f"lower_bound={self.lower_bound}" + ("" if self.sized else ", sized=False") + ")")


class Record:
    """A record value, read-only: its fields are attributes (any letter case)."""

    __slots__ = ("_type_name", "_fields")

    def __init__(self, type_name, fields):
        object.__setattr__(self, "_type_name", str(type_name))
        object.__setattr__(self, "_fields", tuple((str(k), v) for k, v in fields))

    @property
    def type_name(self):
        return self._type_name

    def __getattr__(self, name):
        upper = name.upper()
        for key, value in object.__getattribute__(self, "_fields"):
            if key.upper() == upper:
                return value
        raise AttributeError(f"record {self._type_name} has no field {name!r}")

    def __setattr__(self, name, value):
        raise AttributeError("records are read-only")

    def __delattr__(self, name):
        raise AttributeError("records are read-only")

    def __dir__(self):
        return [k for k, _ in self._fields] + ["type_name", "asdict"]

    def asdict(self):
        return dict(self._fields)

    def __eq__(self, other):
        return (isinstance(other, Record) and other._type_name == self._type_name
                and other._fields == self._fields)

    __hash__ = None

    def __repr__(self):
        inner = ", ".join(f"{k}={v!r}" for k, v in self._fields)
        return f"tarvo2.Record({self._type_name}: {inner})"


class Ref:
    """A by-reference argument: pass Ref(value) and read .value after the call."""

    __slots__ = ("value",)

    def __init__(self, value=None):
        self.value = value

    def __repr__(self):
        return f"tarvo2.Ref({self.value!r})"


def _currency_scaled(d):
    """The Currency count of ten-thousandths for a Decimal; Overflow (6) outside the range."""
    if not d.is_finite():
        raise _overflow()
    n = int(d.scaleb(4).to_integral_value(rounding=_decimal.ROUND_HALF_EVEN))
    if not -(2 ** 63) <= n < 2 ** 63:
        raise _overflow()
    return n


# --- Texts for help(), signatures and stubs, from the type information -------

_PY_TYPES = {0: "None", 1: "_NullType", 2: "int", 3: "int", 4: "float", 5: "float",
             6: "Decimal", 7: "datetime", 8: "str", 9: "Object", 10: "ErrorValue",
             11: "bool", 12: "Any", 17: "int", 36: "Record"}


def _py_type(vt):
    """The Python type (as stub text) of a value type tag."""
    if vt & 0x2000:
        return "Array"
    return _PY_TYPES.get(vt, "Any")


def _param_text(p):
    text = p["name"]
    if p["by_ref"]:
        text += " (by reference)"
    if "default" in p:
        text += "=" + repr(p["default"])
    elif p["optional"]:
        text += "=Missing"
    return text


def _member_doc(class_name, members):
    """help() text of one member name: each accessor's signature and help text."""
    lines = []
    for m in members:
        params = ", ".join(_param_text(p) for p in m["params"])
        kind = m["kind"]
        if kind == "method":
            lines.append(f"{class_name}.{m['name']}({params}) -> {_py_type(m['result'])}")
        elif kind == "get":
            index = f"[{params}]" if params else ""
            lines.append(f"{m['name']}{index} -> {_py_type(m['result'])}  (read)")
        else:
            what = "assign an object" if kind == "set" else "assign"
            lines.append(f"{m['name']} = ...  ({what}: {params})")
    helps = []
    for m in members:
        if m["help"] and m["help"] not in helps:
            helps.append(m["help"])
    return "\n".join(lines) + ("\n\n" + "\n".join(helps) if helps else "")


def _signature(member):
    """inspect.Signature of a method (its parameters, defaults and result type)."""
    P = _inspect.Parameter
    params = []
    for p in member["params"]:
        if "default" in p:
            default = p["default"]
        elif p["optional"]:
            default = Missing
        else:
            default = P.empty
        params.append(P(p["name"], P.POSITIONAL_OR_KEYWORD, default=default,
                        annotation=_py_type(p["type"]) + (" | Ref" if p["by_ref"] else "")))
    return _inspect.Signature(params, return_annotation=_py_type(member["result"]))


def _class_doc(info):
    text = info["help"] or f"The library class {info['name']}."
    text += ("\n\nCreate it with tarvo2.CreateObject(\"Tarvo2." + info["name"] + "\")."
             if info["creatable"] else "")
    text += ("\nMembers are matched without regard to letter case; properties are read and"
             "\nassigned as attributes, methods are called with positional and keyword"
             "\narguments (keywords name parameters), and tarvo2.Ref cells receive"
             "\nby-reference results.")
    return text
