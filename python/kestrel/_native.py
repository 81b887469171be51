"""The C ABI of libkestrel, loaded with ctypes.

The library is looked for, in this order: where KESTREL_LIBRARY points; next
to this package (an installed copy); in the build folders of the source tree
this package sits in (the newest build that loads); on the system's library
path.
"""

import ctypes
import ctypes.util
import os
from ctypes import (POINTER, c_char_p, c_double, c_float, c_int, c_int16, c_int32, c_int64,
                    c_size_t, c_uint8, c_uint16, c_uint64, c_void_p)
from pathlib import Path


class _Payload(ctypes.Union):
    _fields_ = [("integer", c_int16), ("long_value", c_int32), ("longlong", c_int64),
                ("byte", c_uint8), ("single", c_float), ("dbl", c_double), ("error", c_int32),
                ("bits", c_uint64)]


class KValue(ctypes.Structure):
    """The library's 16-byte value: all-zero bytes are Empty."""
    _anonymous_ = ("as_",)
    _fields_ = [("kind", c_uint16), ("reserved", c_uint16 * 3), ("as_", _Payload)]


class Bounds(ctypes.Structure):
    _fields_ = [("lower", c_int32), ("upper", c_int32)]


class ClassInfo(ctypes.Structure):
    _fields_ = [("qualified_name", c_char_p), ("instancing", c_int)]


class MemberInfo(ctypes.Structure):
    _fields_ = [("name", c_char_p), ("call_kinds", c_int), ("method_min_args", c_int32),
                ("method_max_args", c_int32), ("property_min_args", c_int32),
                ("property_max_args", c_int32)]


PValue = POINTER(KValue)
INVOKE = ctypes.CFUNCTYPE(c_int32, c_void_p, c_char_p, c_int, PValue, c_size_t, PValue)
RELEASE = ctypes.CFUNCTYPE(None, c_void_p)
TYPE_NAME = ctypes.CFUNCTYPE(c_void_p, c_void_p)


class ClientClass(ctypes.Structure):
    _fields_ = [("invoke", INVOKE), ("release", RELEASE), ("type_name", TYPE_NAME)]


_PROTOTYPES = {
    "kestrel_value_clear": (None, [PValue]),
    "kestrel_value_set_utf16": (c_int32, [PValue, c_char_p, c_size_t]),
    "kestrel_value_utf16": (c_int32, [PValue, POINTER(c_void_p), POINTER(c_size_t)]),
    "kestrel_value_set_object": (None, [PValue, c_void_p]),
    "kestrel_value_get_object": (c_int32, [PValue, POINTER(c_void_p)]),
    "kestrel_value_set_date_parts": (c_int32, [PValue] + [c_int32] * 6),
    "kestrel_value_get_date_parts": (c_int32, [PValue] + [POINTER(c_int32)] * 6),
    "kestrel_value_set_bytes": (c_int32, [PValue, c_char_p, c_size_t]),
    "kestrel_value_get_bytes": (c_int32, [PValue, c_char_p, c_size_t, POINTER(c_size_t)]),
    "kestrel_array_new": (c_int32, [PValue, c_uint16, POINTER(Bounds), c_int]),
    "kestrel_array_dimensions": (c_int, [PValue]),
    "kestrel_array_bounds": (c_int32, [PValue, c_int, POINTER(Bounds)]),
    "kestrel_array_get": (c_int32, [PValue, POINTER(c_int32), c_int, PValue]),
    "kestrel_array_set": (c_int32, [PValue, POINTER(c_int32), c_int, PValue]),
    "kestrel_create": (c_void_p, [c_char_p]),
    "kestrel_global": (c_void_p, [c_char_p]),
    "kestrel_call": (c_int32, [c_void_p, c_char_p, c_int, PValue, c_size_t, PValue]),
    "kestrel_addref": (None, [c_void_p]),
    "kestrel_release": (None, [c_void_p]),
    "kestrel_enumerate": (c_int32, [c_void_p, POINTER(c_void_p)]),
    "kestrel_next": (c_int32, [c_void_p, PValue, POINTER(c_int)]),
    "kestrel_classes": (c_int32, [POINTER(ClassInfo), c_size_t, POINTER(c_size_t)]),
    "kestrel_type_name": (c_int32, [c_void_p, c_char_p, c_size_t, POINTER(c_size_t)]),
    "kestrel_members": (c_int32, [c_void_p, POINTER(MemberInfo), c_size_t, POINTER(c_size_t)]),
    "kestrel_client_new": (c_void_p, [POINTER(ClientClass), c_void_p]),
    "kestrel_client_context": (c_void_p, [c_void_p, POINTER(ClientClass)]),
    "kestrel_set_error": (None, [c_int32, c_char_p, c_char_p]),
    "kestrel_last_error_number": (c_int32, []),
    "kestrel_last_error_source": (c_char_p, []),
    "kestrel_last_error_description": (c_char_p, []),
    "kestrel_clear_last_error": (None, []),
}


def _candidates():
    configured = os.environ.get("KESTREL_LIBRARY")
    if configured:
        yield configured
        return
    here = Path(__file__).resolve().parent
    yield from sorted(here.glob("libkestrel.so*"))
    # <tree>/python/kestrel -> <tree>/build/<build>/libkestrel.so, newest first.
    builds = (here.parent.parent / "build").glob("*/libkestrel.so")
    yield from sorted(builds, key=lambda p: p.stat().st_mtime, reverse=True)
    system = ctypes.util.find_library("kestrel")
    if system:
        yield system


def _load():
    tried = []
    for candidate in _candidates():
        try:
            lib = ctypes.CDLL(str(candidate))
        except OSError as error:  # e.g. a sanitizer build without its runtime preloaded
            tried.append(f"{candidate}: {error}")
            continue
        for name, (restype, argtypes) in _PROTOTYPES.items():
            function = getattr(lib, name)
            function.restype = restype
            function.argtypes = argtypes
        lib.path = str(candidate)
        return lib
    raise ImportError("libkestrel not found; set KESTREL_LIBRARY to its path"
                      + "".join("\n  " + t for t in tried))


lib = _load()
