#!/usr/bin/env python3
"""Checks libtarvo2.so's dynamic symbol table against the public headers.

1. Every exported symbol is an entity of namespace tarvo2 whose name the
   public headers declare, or an ABI or standard library entity (typeinfo,
   vtable, template instance) of a public tarvo2 type. Nothing of an
   internal namespace (anonymous, detail, *internal, or a namespace the
   headers do not declare) is exported.
2. Every strong definition in the static library of a name the public
   headers declare is exported by the shared library, so that nothing the
   headers promise fails to link. (Inline functions and template instances
   are weak: each client compiles its own from the headers.)

Usage: exported_symbols.py LIBTARVO2_SO LIBTARVO2_A PUBLIC_INCLUDE_DIR...
"""
import pathlib
import re
import subprocess
import sys

ABI_PREFIX = re.compile(
    r"^(typeinfo name for|typeinfo for|vtable for|VTT for|guard variable for|"
    r"non-virtual thunk to|virtual thunk to|covariant return thunk to|"
    r"construction vtable for|reference temporary #\d+ for) ")
INTERNAL = re.compile(r"\(anonymous namespace\)|::detail::|::internal::|_internal::")


def public_names(include_dirs):
    """Classes, enumerations, aliases and functions the headers declare."""
    names = set()
    for d in include_dirs:
        for header in pathlib.Path(d).rglob("*.h"):
            if "testing" in header.parts:
                continue
            text = re.sub(r"//.*", "", header.read_text())
            text = re.sub(r"namespace detail \{.*?\}  // namespace detail", "", text, flags=re.S)
            names.update(re.findall(r"\b(?:class|struct|enum class|enum|using)\s+(?:TARVO2_EXPORT\s+)?([A-Za-z_]\w*)", text))
            names.update(re.findall(r"\b(operator\S+?|[A-Za-z_]\w*)\s*\(", text))
    return names


def demangle(symbols):
    out = subprocess.run(["c++filt"], input="\n".join(symbols), capture_output=True,
                         text=True, check=True).stdout
    return out.splitlines()


def nm(args):
    out = subprocess.run(["nm", *args], capture_output=True, text=True, check=True).stdout
    return [line.split() for line in out.splitlines() if line.strip()]


def own_name(demangled):
    """The entity a symbol stands for: ABI wrappers and a template
    function's leading return type stripped."""
    name = ABI_PREFIX.sub("", demangled)
    m = re.match(r"^[^(<]* ((?:tarvo2|std|__gnu_cxx)::.*)", name)
    return m.group(1) if m else name


def first_component(name):
    """`Foo` of `tarvo2::Foo::bar(...)`, `operator==` of `tarvo2::operator==(...)`."""
    rest = name[len("tarvo2::"):]
    m = re.match(r"(operator[^ (]+|\w+)", rest)
    return m.group(1) if m else rest


def main():
    so, ar, *include_dirs = sys.argv[1:]
    public = public_names(include_dirs)
    exported = demangle([f[-1] for f in nm(["-D", "--defined-only", so]) if len(f) >= 3])
    if not exported:
        print(f"no exported symbols in {so}")
        return 1
    bad = []
    for sym in exported:
        name = own_name(sym)
        scope = re.split(r"[(<]", name, 1)[0]
        if INTERNAL.search(scope):
            bad.append(f"internal symbol exported: {sym}")
        elif name.startswith("tarvo2::"):
            if first_component(name) not in public:
                bad.append(f"exported symbol outside the public headers: {sym}")
        elif name.startswith(("std::", "__gnu_cxx::")):
            if "tarvo2::" not in name:
                bad.append(f"standard library symbol without a tarvo2 type exported: {sym}")
        else:
            bad.append(f"symbol outside namespace tarvo2 exported: {sym}")

    exported_set = set(exported)
    strong = demangle([f[2] for f in nm(["--defined-only", ar]) if len(f) == 3 and f[1] in "TDBR"])
    for sym in sorted(set(strong)):
        name = own_name(sym)
        if not name.startswith("tarvo2::") or INTERNAL.search(re.split(r"[(<]", name, 1)[0]):
            continue
        if first_component(name) in public and sym not in exported_set:
            bad.append(f"public symbol not exported: {sym}")

    for line in bad:
        print(line)
    if bad:
        print(f"{len(bad)} problem(s) in {len(exported)} exported symbols")
        return 1
    print(f"{len(exported)} exported symbols, all public; every public definition exported")
    return 0


if __name__ == "__main__":
    sys.exit(main())
