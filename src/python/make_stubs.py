"""Writes tarvo2.pyi, the type stubs of the tarvo2 module, from the type
information of the library's classes, so that editors complete member names.

Usage: make_stubs.py OUTPUT   (with the built module importable)
The build runs it after each build of the module.
"""
import sys

import tarvo2

HEADER = '''# Type stubs of the tarvo2 module, written by make_stubs.py from the library's
# type information at build time. Do not edit.
from datetime import datetime
from decimal import Decimal
from enum import IntEnum
from typing import Any, Iterator, Sequence

class Error(Exception):
    number: int
    description: str
    source: list[str]
    help_file: str
    help_context: int
    def __init__(self, number: int, description: str = ..., source: Sequence[str] | str = ...,
                 help_file: str = ..., help_context: int = ...) -> None: ...

class MemberNotFound(Error, AttributeError): ...

class _NullType:
    def __bool__(self) -> bool: ...

Null: _NullType

class Byte(int):
    def __new__(cls, value: int = ...) -> Byte: ...

class ErrorValue:
    code: int
    def __init__(self, code: int) -> None: ...

Missing: ErrorValue

class VarType(IntEnum):
    Empty: int
    Null: int
    Integer: int
    Long: int
    Single: int
    Double: int
    Currency: int
    Date: int
    String: int
    Object: int
    Error: int
    Boolean: int
    Variant: int
    Byte: int
    Record: int
    Array: int

class Array(list[Any]):
    element_type: VarType
    lower_bound: int
    sized: bool
    def __init__(self, items: Sequence[Any] = ..., element_type: int = ..., lower_bound: int = ...,
                 sized: bool = ...) -> None: ...
    @property
    def upper_bound(self) -> int: ...

class Record:
    @property
    def type_name(self) -> str: ...
    def asdict(self) -> dict[str, Any]: ...
    def __getattr__(self, name: str) -> Any: ...

class Ref:
    value: Any
    def __init__(self, value: Any = ...) -> None: ...

class IndexedProperty:
    def __getitem__(self, index: Any) -> Any: ...
    def __setitem__(self, index: Any, value: Any) -> None: ...
    def __call__(self, *index: Any) -> Any: ...

class Object:
    def __getattr__(self, name: str) -> Any: ...
    def __setattr__(self, name: str, value: Any) -> None: ...
    def __len__(self) -> int: ...
    def __iter__(self) -> Iterator[Any]: ...
    def __getitem__(self, index: Any) -> Any: ...

def CreateObject(prog_id: str) -> Any: ...
def library() -> TarvoLibrary: ...
def same(a: Any, b: Any) -> bool: ...
def type_info(x: Any) -> dict[str, Any]: ...
def prog_ids() -> list[str]: ...
def set_host_module_path(path: str) -> None: ...
def set_registry_location(path: str) -> None: ...
def set_screen_size(width: float, height: float) -> None: ...
'''


def py_type(vt):
    return tarvo2._py_type(vt)


def param_text(p):
    text = f"{p['name']}: {py_type(p['type'])}" + (" | Ref" if p["by_ref"] else "")
    if p["optional"]:
        text += " = ..."
    return text


def class_stub(info):
    lines = [f"class {info['name']}(Object):"]
    by_name = {}
    for m in info["members"]:
        if not m["hidden"]:
            by_name.setdefault(m["name"], []).append(m)
    for name, accessors in by_name.items():
        kinds = {m["kind"]: m for m in accessors}
        if "get" in kinds and not any(not p["optional"] for p in kinds["get"]["params"]):
            lines.append("    @property")
            lines.append(f"    def {name}(self) -> {py_type(kinds['get']['result'])}: ...")
            if "let" in kinds or "set" in kinds:
                put = kinds.get("let") or kinds.get("set")
                value = py_type(put["params"][-1]["type"]) if put["params"] else "Any"
                lines.append(f"    @{name}.setter")
                lines.append(f"    def {name}(self, value: {value}) -> None: ...")
        elif "get" in kinds:
            lines.append(f"    {name}: IndexedProperty")
        elif "method" in kinds:
            m = kinds["method"]
            params = ", ".join(["self"] + [param_text(p) for p in m["params"]])
            lines.append(f"    def {name}({params}) -> {py_type(m['result'])}: ...")
        else:
            lines.append(f"    {name}: Any  # write only")
    if len(lines) == 1:
        lines.append("    ...")
    return "\n".join(lines)


def main(out):
    parts = [HEADER]
    seen = set()
    for prog_id in tarvo2.prog_ids():
        info = tarvo2.type_info(prog_id)
        if info["name"] in seen:
            continue
        seen.add(info["name"])
        parts.append(class_stub(info))
    with open(out, "w", encoding="utf-8") as f:
        f.write("\n\n".join(parts) + "\n")


if __name__ == "__main__":
    main(sys.argv[1])
