"""Library objects seen from Python, and Python objects seen from the library.

A library object is an Object proxy whose attributes are its members; any
other Python object handed to the library becomes a client object that
answers calls by its attribute names.
"""

import datetime
import itertools
import struct
from ctypes import (CDLL, addressof, byref, c_int, c_int32, c_size_t, c_void_p,
                    create_string_buffer)

from ._native import INVOKE, RELEASE, TYPE_NAME, ClassInfo, ClientClass, KValue, MemberInfo, lib
from ._values import (AUTOMATION_ERROR, BOOLEAN, DOUBLE, GET, INTEGER, LET, LONG, METHOD, SET,
                      _SCALAR, Array, ByRef, Empty, ErrorCode, KestrelError, _check, _clear,
                      _Marker, _raise_last, _state, get, put)

# --- calls -------------------------------------------------------------------

_names = {}


def _name(name):
    b = _names.get(name)
    if b is None:
        b = _names[name] = name.encode("utf-8")
    return b


# kestrel_call without argument conversion, the path every late-bound call
# takes: its arguments are built below as the C types it declares.
_call = CDLL(lib.path).kestrel_call
_call.restype = c_int32
_SIZES = [c_size_t(i) for i in range(64)]
_ARRAYS = [KValue * i for i in range(64)]
_SCALAR_TYPES = (int, float, bool)


# Small numbers, the commonest arguments, are packed straight into the
# argument array: kind, padding, payload.
_PACK_INTEGER = struct.Struct("<H6xh6x").pack_into
_PACK_DOUBLE = struct.Struct("<H6xd").pack_into


def _invoke(ptr, bname, kind, args):
    """Calls a member with Python arguments (ByRef boxes receive write-backs)."""
    n = len(args)
    result = KValue()
    if n == 0:
        rc = _call(ptr, bname, kind, None, _SIZES[0], byref(result))
    else:
        buf = _ARRAYS[n]() if n < 64 else (KValue * n)()
        plain = True  # only scalars: nothing to release afterwards
        boxed = None
        try:
            offset = 0
            for a in args:
                t = type(a)
                if t is int and -32768 <= a <= 32767:
                    _PACK_INTEGER(buf, offset, INTEGER, a)
                elif t is float:
                    _PACK_DOUBLE(buf, offset, DOUBLE, a)
                else:
                    if t is ByRef:
                        boxed = (boxed or []) + [offset >> 4]
                        a = a.value
                        plain = False  # a write-back may leave text or an object
                    elif t not in _SCALAR_TYPES:
                        plain = False
                    put(buf[offset >> 4], a)
                offset += 16
            rc = _call(ptr, bname, kind, buf, _SIZES[n] if n < 64 else c_size_t(n),
                       byref(result))
            if boxed:
                for i in boxed:
                    args[i].value = get(buf[i])
        finally:
            if not plain:
                for v in buf:
                    if v.kind not in _SCALAR:
                        lib.kestrel_value_clear(v)
    if rc:
        _raise_last()
    k = result.kind
    if k == INTEGER:
        return result.integer
    if k == LONG:
        return result.long_value
    if k == BOOLEAN:
        return result.integer != 0
    if k == DOUBLE:
        return result.dbl
    try:
        return get(result)
    finally:
        if k not in _SCALAR:
            lib.kestrel_value_clear(result)


def CallByName(obj, name, kind, *args):
    """Calls member `name` of a library object with an explicit call kind
    (METHOD, GET, LET, SET): the escape hatch when attribute manners do not
    say what is meant (a property with optional index arguments, say)."""
    return _invoke(obj._ptr, _name(name), kind, args)


# --- member descriptions -----------------------------------------------------

# Python attribute access: what reading attribute `name` does.
_READ, _CALL_METHOD, _CALL_GET = 0, 1, 2


class _Member:
    __slots__ = ("name", "bname", "kinds", "action")

    def __init__(self, info):
        self.name = info.name.decode("utf-8")
        self.bname = info.name
        self.kinds = info.call_kinds
        if self.kinds & GET and not self.kinds & METHOD and info.property_min_args == 0:
            self.action = _READ  # a property: reading the attribute reads it
        elif self.kinds & METHOD:
            self.action = _CALL_METHOD
        elif self.kinds & GET:
            self.action = _CALL_GET  # an indexed property: obj.Item(key)
        else:
            self.action = _READ  # write-only: reading raises the runtime's error


_described = {}  # type name -> {lower-case name: _Member}, or None when undescribed


def _describe(ptr, type_name):
    members = _described.get(type_name, False)
    if members is not False:
        return members
    count = c_size_t()
    _check(lib.kestrel_members(ptr, None, 0, count))
    if count.value == 0:
        members = None
    else:
        infos = (MemberInfo * count.value)()
        _check(lib.kestrel_members(ptr, infos, count.value, count))
        members = {}
        for info in infos:
            m = _Member(info)
            members[m.name.lower()] = m
    _described[type_name] = members
    return members


def _type_name(ptr):
    needed = c_size_t()
    buffer = create_string_buffer(64)
    _check(lib.kestrel_type_name(ptr, buffer, 64, needed))
    if needed.value >= 64:
        buffer = create_string_buffer(needed.value + 1)
        _check(lib.kestrel_type_name(ptr, buffer, needed.value + 1, needed))
    return buffer.value.decode("utf-8")


class _BoundMember:
    """A member read as an attribute and called: obj.Add(1, "key")."""
    __slots__ = ("_ptr", "_bname", "_kind", "_owner")

    def __init__(self, owner, ptr, bname, kind):
        self._owner = owner  # keeps the object alive while the member is held
        self._ptr = ptr
        self._bname = bname
        self._kind = kind

    def __call__(self, *args):
        return _invoke(self._ptr, self._bname, self._kind, args)

    def __repr__(self):
        return f"<member {self._bname.decode()} of {self._owner!r}>"


class Object:
    """A library object. Attributes are its members (names ignore case):
    properties read and assign as attributes (assigning an object is a Set),
    methods are called with positional arguments."""
    __slots__ = ("_ptr", "_type", "_members", "__weakref__")

    @classmethod
    def _adopt(cls, ptr):
        """Wraps a pointer that already carries a reference for the wrapper."""
        self = object.__new__(cls)
        object.__setattr__(self, "_ptr", c_void_p(ptr))
        type_name = _type_name(self._ptr)
        object.__setattr__(self, "_type", type_name)
        object.__setattr__(self, "_members", _describe(self._ptr, type_name))
        return self

    def __del__(self):
        ptr = getattr(self, "_ptr", None)
        release = getattr(lib, "kestrel_release", None)
        if ptr and release is not None:
            release(ptr)

    def _member(self, name):
        members = _own(self, "_members")
        if members is None:
            return None
        m = members.get(name) or members.get(name.lower())
        if m is None:
            raise AttributeError(f"{_own(self, '_type')} has no member {name}")
        return m

    # Attribute reads are the hot path of every script, so they are answered
    # here rather than in __getattr__, which Python reaches only after a
    # failed lookup has raised and swallowed an AttributeError.
    def __getattribute__(self, name):
        if name in _OWN:
            return _own(self, name)
        members = _own(self, "_members")
        if members is None:  # an object that does not describe itself: call by name
            if name.startswith("__"):
                return _own(self, name)
            return _BoundMember(self, _own(self, "_ptr"), _name(name), METHOD)
        m = members.get(name)
        if m is None:
            m = members.get(name.lower())
            if m is None:
                return _own(self, name)  # Python's own attributes, or AttributeError
            members[name] = m  # this spelling, found directly next time
        if m.action == _READ:
            return _invoke(_own(self, "_ptr"), m.bname, GET, ())
        return _BoundMember(self, _own(self, "_ptr"), m.bname,
                            METHOD if m.action == _CALL_METHOD else GET)

    def __setattr__(self, name, value):
        m = self._member(name)
        bname = m.bname if m is not None else _name(name)
        kinds = m.kinds if m is not None else LET | SET
        is_object = not isinstance(value, _PLAIN) and value is not None
        if value is None and kinds & SET and not kinds & LET:
            kind, value = SET, _NOTHING
        else:
            kind = SET if is_object else LET
        _invoke(self._ptr, bname, kind, (value,))

    # --- Python manners ---
    def __len__(self):
        return _invoke(self._ptr, b"Count", GET, ())

    def __bool__(self):
        if self._members is not None and "count" in self._members:
            return len(self) != 0
        return True

    def __iter__(self):
        walker = c_void_p()
        if lib.kestrel_enumerate(self._ptr, walker):
            members = self._members or {}
            if lib.kestrel_last_error_number() != 438 or not {"count", "item"} <= members.keys():
                _raise_last()
            # A list without an enumerator is walked by position, 1 to Count.
            return (self[i] for i in range(1, len(self) + 1))
        return self._walk(walker)

    @staticmethod
    def _walk(walker):
        item, more = KValue(), c_int()
        try:
            while True:
                _check(lib.kestrel_next(walker, item, more))
                if not more.value:
                    break
                value = get(item)
                _clear(item)
                yield value
        finally:
            _clear(item)
            lib.kestrel_release(walker)

    def __contains__(self, x):
        if self._members is not None and "exists" in self._members:
            return bool(_invoke(self._ptr, b"Exists", METHOD, (x,)))
        return any(item == x for item in self)

    def _indexer(self):
        # Item when the class has one (not every list makes it the default
        # member); otherwise the default member, whatever it is.
        members = self._members
        return b"Item" if members is not None and "item" in members else b""

    def __getitem__(self, key):
        args = key if isinstance(key, tuple) else (key,)
        return _invoke(self._ptr, self._indexer(), GET, args)

    def __setitem__(self, key, value):
        args = (key if isinstance(key, tuple) else (key,)) + (value,)
        is_object = not isinstance(value, _PLAIN) and value is not None
        _invoke(self._ptr, self._indexer(), SET if is_object else LET, args)

    def __delitem__(self, key):
        _invoke(self._ptr, b"Remove", METHOD, (key,))

    def __eq__(self, other):
        return isinstance(other, Object) and other._ptr.value == self._ptr.value

    def __hash__(self):
        return hash(self._ptr.value)

    def __repr__(self):
        return f"<kestrel.Object {self._type} at {self._ptr.value:#x}>"

    def __dir__(self):
        names = {m.name for m in (self._members or {}).values()}
        return sorted(set(names) | set(object.__dir__(self)))


_own = object.__getattribute__
_OWN = frozenset(("_ptr", "_type", "_members", "_adopt", "_member", "_walk", "_indexer",
                  "__class__", "__dict__", "__slots__", "__weakref__"))


class _Nothing:
    """Assigned through a Set: the object reference Nothing."""


_NOTHING = _Nothing()
# Values assigned with Let; anything else (a library object, a Python
# object standing in as one) is assigned with Set.
_PLAIN = (int, float, str, bytes, bytearray, memoryview, list, tuple, Array, ErrorCode,
          _Marker, datetime.date)


def TypeName(obj):
    """The class name the library gives an object ("Collection")."""
    if isinstance(obj, Object):
        return obj._type
    return type(obj).__name__


# --- Python objects as library objects ----------------------------------------

clients = {}  # context id -> [Python object, type name buffer]
_next_context = itertools.count(1)


def _client_member(obj, name):
    """The attribute of obj that member `name` means (names ignore case)."""
    if hasattr(obj, name):
        return name
    lowered = name.lower()
    for attr in dir(obj):
        if attr.lower() == lowered and not attr.startswith("__"):
            return attr
    return None


def _client_invoke(context, name, kind, args, count, result):
    try:
        obj = clients[context][0]
        member = _client_member(obj, name.decode("utf-8"))
        if member is None:
            return 438
        if kind in (LET, SET):
            setattr(obj, member, get(args[count - 1]))
            return 0
        attr = getattr(obj, member)
        if callable(attr):
            value = attr(*[get(args[i]) for i in range(count)])
        elif count == 0:
            value = attr
        else:
            return 450
        put(result[0], Empty if value is None else value)
        return 0
    except KestrelError as error:
        _state.callback_error = error
        lib.kestrel_set_error(error.number, error.source.encode(), error.description.encode())
        return error.number
    except BaseException as error:  # noqa: B902 -- nothing may unwind into C
        _state.callback_error = error
        lib.kestrel_set_error(AUTOMATION_ERROR, type(error).__name__.encode(),
                              str(error).encode("utf-8", "replace"))
        return AUTOMATION_ERROR


def _client_release(context):
    clients.pop(context, None)


def _client_type_name(context):
    entry = clients.get(context)
    return addressof(entry[1]) if entry else None


_CALLBACKS = (INVOKE(_client_invoke), RELEASE(_client_release), TYPE_NAME(_client_type_name))
CLIENT_CLASS = ClientClass(*_CALLBACKS)


def client_new(obj):
    context = next(_next_context)
    clients[context] = [obj, create_string_buffer(type(obj).__name__.encode("utf-8"))]
    ptr = lib.kestrel_client_new(CLIENT_CLASS, context)
    if not ptr:
        clients.pop(context, None)
        _raise_last()
    return ptr


class Sink:
    """Base of sinks written in Python, for Tracer.LogTo (LogLine, Log,
    Clear) and Profiler.Data (Add, Data, Clear). It keeps what it is given
    in memory; override what should go elsewhere."""

    def __init__(self):
        self.lines = []
        self.items = []

    def LogLine(self, line):
        self.lines.append(line)
        return True

    def Log(self):
        return "".join(line + "\n" for line in self.lines)

    def Clear(self):
        self.lines.clear()
        self.items.clear()

    def Add(self, item):
        self.items.append((item.Name, item.Ticks))

    def Data(self):
        return "".join(f"{name}\t{ticks}\n" for name, ticks in self.items)


# --- classes -------------------------------------------------------------------

GLOBAL, CREATABLE, NOT_CREATABLE = 0, 1, 2


def classes():
    """The registered classes: {qualified name: GLOBAL, CREATABLE or NOT_CREATABLE}."""
    count = c_size_t()
    _check(lib.kestrel_classes(None, 0, count))
    infos = (ClassInfo * count.value)()
    _check(lib.kestrel_classes(infos, count.value, count))
    return {info.qualified_name.decode("utf-8"): info.instancing for info in infos}


def CreateObject(qualified_name):
    """A new instance of a class by qualified name ("Kestrel.Tracer")."""
    ptr = lib.kestrel_create(qualified_name.encode("utf-8"))
    if not ptr:
        _raise_last()
    return Object._adopt(ptr)


def GetGlobal(qualified_name):
    """This thread's shared instance of a global class ("Kestrel.Utilities")."""
    cache = getattr(_state, "globals", None)
    if cache is None:
        cache = _state.globals = {}
    key = qualified_name.lower()
    instance = cache.get(key)
    if instance is None:
        ptr = lib.kestrel_global(qualified_name.encode("utf-8"))
        if not ptr:
            _raise_last()
        instance = cache[key] = Object._adopt(ptr)
    return instance
