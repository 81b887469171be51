"""Kestrel from Python: create the library's classes by name and call their
members by name, as a desktop scripting host does with late binding.

    import kestrel
    tracer = kestrel.CreateObject("Kestrel.Tracer")
    tracer.LogTo = kestrel.CreateObject("Kestrel.LogString")   # an object: Set
    tracer.Trace("hello", 50)
    kestrel.Utilities.Max(3, "9")                              # global classes

Conversions, Python to the library and back:

    Python                      library                 back in Python
    int                         Integer, Long or        int
                                LongLong by range
    float                       Double                  float (Single too)
    str                         String                  str
    bool                        Boolean                 bool
    None                        Null                    None (Nothing too)
    kestrel.Empty               Empty                   kestrel.Empty
    kestrel.Missing / omitted   Missing                 kestrel.Missing
    kestrel.ErrorCode(n)        Error                   kestrel.ErrorCode
    datetime / date             Date (whole seconds)    datetime
    bytes, bytearray            Byte array 0..n-1       kestrel.Array (bytes(a))
    list, tuple                 array of values; a      kestrel.Array, bounds
                                rectangular nest of     kept
                                lists: one dimension
                                per level
    kestrel.Array               its kind and bounds     kestrel.Array
    kestrel.Object              the object              kestrel.Object
    any other object            an object answering     the same Python
                                by its attribute names  object

A Python function called by the library that returns None returns Empty.
Runtime errors are raised as kestrel.KestrelError (number, source,
description); an exception raised in a Python sink reaches the library's
caller as error 440 and comes back as the KestrelError's __cause__.
Objects belong to the thread that made them; global classes have one
instance per thread.
"""

from ._objects import (CREATABLE, GLOBAL, NOT_CREATABLE, CallByName, CreateObject, GetGlobal,
                       Object, Sink, TypeName, classes)
from ._values import (BOOLEAN, BYTE, DATE, DOUBLE, EMPTY, ERROR, GET, INTEGER, LET, LONG,
                      LONGLONG, METHOD, NULL, OBJECT, SET, SINGLE, STRING, VARIANT, Array, ByRef,
                      Empty, ErrorCode, KestrelError, Missing, kind_of)
from ._native import lib as _lib

Dispatch = CreateObject
library_path = _lib.path

__all__ = ["Array", "ByRef", "CallByName", "CreateObject", "Dispatch", "Empty", "ErrorCode",
           "GetGlobal", "KestrelError", "Missing", "Object", "Sink", "TypeName", "classes",
           "kind_of", "METHOD", "GET", "LET", "SET", "GLOBAL", "CREATABLE", "NOT_CREATABLE",
           "EMPTY", "NULL", "INTEGER", "LONG", "SINGLE", "DOUBLE", "DATE", "STRING", "OBJECT",
           "ERROR", "BOOLEAN", "VARIANT", "BYTE", "LONGLONG"]


_global_names = {}


def __getattr__(name):
    # The global classes as module attributes: kestrel.Utilities is this
    # thread's instance of Kestrel.Utilities.
    qualified = _global_names.get(name)
    if qualified is None and not name.startswith("_"):
        for q, instancing in classes().items():  # classes may have been added since
            if instancing == GLOBAL:
                _global_names[q.split(".", 1)[1]] = q
        qualified = _global_names.get(name)
    if qualified is not None:
        return GetGlobal(qualified)
    raise AttributeError(f"module 'kestrel' has no attribute {name!r}")


def __dir__():
    names = [q.split(".", 1)[1] for q, i in classes().items() if i == GLOBAL]
    return sorted(set(globals()) | set(names))
