"""Cost of one call by name from Python.

Times ss.GetValue("a") on a storage string against two baselines measured in
the same run: a plain Python method call (the floor of any call from Python)
and configparser's get (the standard library's settings store), and prints
the ratios. It also times the same GetValue inside the library, as a typed
C++ call (the library's own work) and as a C++ call by name, and reports
the dispatch overhead of the Python call: its time minus the typed call's.

Run: TARVO2_REGISTRY=:memory: PYTHONPATH=build/python /usr/bin/python3 bench/python_bench.py
Each figure is the best of several rounds, which keeps other load on the
machine out of the comparison.
"""
import configparser
import os
import sys
import timeit

os.environ.setdefault("TARVO2_REGISTRY", ":memory:")
import tarvo2  # noqa: E402

ROUNDS = 7
CALLS = 100_000


class Plain:
    def __init__(self):
        self.values = {"a": "hello"}

    def GetValue(self, name):
        return self.values[name]


def best_ns(stmt, env):
    timer = timeit.Timer(stmt, globals=env)
    return min(timer.timeit(CALLS) for _ in range(ROUNDS)) / CALLS * 1e9


def main():
    ss = tarvo2.CreateObject("Tarvo2.KivStorageString")
    ss.SetValue("a", "hello")
    assert ss.GetValue("a") == "hello"
    plain = Plain()
    cp = configparser.ConfigParser()
    cp.read_string("[s]\na = hello\n")
    env = {"ss": ss, "plain": plain, "cp": cp}

    by_name = best_ns('ss.GetValue("a")', env)
    python_call = best_ns('plain.GetValue("a")', env)
    config_get = best_ns('cp.get("s", "a")', env)
    typed = min(tarvo2._time_typed_get_value(ss, "a", CALLS) for _ in range(ROUNDS))
    cpp_by_name = min(tarvo2._time_dispatch_get_value(ss, "a", CALLS) for _ in range(ROUNDS))
    overhead = by_name - typed

    rows = [
        ('ss.GetValue("a") from Python', by_name),
        ("plain Python method call", python_call),
        ('configparser get("s", "a")', config_get),
        ("typed C++ GetValue (library's own work)", typed),
        ("C++ call by name (tarvo2::Call)", cpp_by_name),
    ]
    for label, ns in rows:
        print(f"{label:44s} {ns:9.1f} ns")
    print()
    print(f"ratio to a plain Python method call:  {by_name / python_call:6.2f}x")
    print(f"ratio to configparser's get:          {by_name / config_get:6.2f}x")
    print(f"dispatch overhead per call (Python call - typed C++ call): {overhead:.1f} ns"
          f" ({'under' if overhead < 1000 else 'OVER'} 1 us)")
    print(f"  of which the C++ call by name: {cpp_by_name - typed:.1f} ns;"
          f" from Python on top of that: {by_name - cpp_by_name:.1f} ns")
    return 0 if overhead < 1000 else 1


if __name__ == "__main__":
    sys.exit(main())
