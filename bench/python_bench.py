#!/usr/bin/python3
"""Late-bound calls per second through the Python package.

Times Utilities.Max(1, 2) and a property read (Collection.Count) through
kestrel, next to the same calls made straight on the C ABI with ctypes (the
floor any ctypes binding pays), and prints microseconds per call, calls per
second and the package's time over the floor. The aim is under 3 us a call.

    KESTREL_LIBRARY=build/rel/libkestrel.so /usr/bin/python3 bench/python_bench.py
"""

import statistics
import sys
import timeit
from ctypes import byref, c_size_t
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "python"))
import kestrel  # noqa: E402
from kestrel._native import KValue  # noqa: E402
from kestrel._objects import _call  # noqa: E402
from kestrel._values import INTEGER  # noqa: E402

NUMBER = 100_000
REPEAT = 7


def per_call(statement):
    runs = timeit.repeat(statement, number=NUMBER, repeat=REPEAT)
    return statistics.median(runs) / NUMBER


def raw_max_call(ptr):
    args, result = (KValue * 2)(), KValue()
    for v, n in zip(args, (1, 2)):
        v.kind, v.integer = INTEGER, n
    size = c_size_t(2)
    return lambda: _call(ptr, b"Max", kestrel.METHOD, args, size, byref(result))


def main():
    utilities = kestrel.Utilities
    collection = kestrel.CreateObject("Kestrel.Collection")
    result = KValue()
    cases = [
        ("Utilities.Max(1, 2)", lambda: utilities.Max(1, 2), raw_max_call(utilities._ptr)),
        ("Collection.Count", lambda: collection.Count,
         lambda: _call(collection._ptr, b"Count", kestrel.GET, None, c_size_t(0),
                       byref(result))),
    ]
    print(f"library: {kestrel.library_path}")
    print(f"{'case':<22}{'us/call':>10}{'calls/s':>12}{'C ABI us':>10}{'ratio':>8}")
    worst = 0.0
    for name, package, floor in cases:
        t, f = per_call(package), per_call(floor)
        worst = max(worst, t)
        print(f"{name:<22}{t * 1e6:>10.2f}{1 / t:>12,.0f}{f * 1e6:>10.2f}{t / f:>8.2f}")
    print(f"aim: under 3 us a call -> {'met' if worst < 3e-6 else 'NOT met'}")


if __name__ == "__main__":
    main()
