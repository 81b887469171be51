"""Values, objects and errors between Python and libkestrel.

Every Python value crosses into the library as a KValue written in place
(scalars) or through the C ABI (text, objects, arrays); every library value
comes back as the Python value the table in the package's docstring gives.
"""

import datetime
import itertools
import struct
import threading
from ctypes import (CDLL, addressof, byref, c_int, c_int32, c_size_t, c_void_p, create_string_buffer,
                    string_at)

from ._native import (INVOKE, RELEASE, TYPE_NAME, Bounds, ClassInfo, ClientClass, KValue,
                      MemberInfo, lib)

METHOD, GET, LET, SET = 1, 2, 4, 8

EMPTY, NULL, INTEGER, LONG, SINGLE, DOUBLE, DATE, STRING, OBJECT, ERROR, BOOLEAN, VARIANT, \
    BYTE, LONGLONG, ARRAY = 0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 17, 20, 0x2000

MISSING_CODE = -2147352572  # 0x80020004
# Python exceptions raised inside a callback reach the library's caller as
# the runtime's automation error.
AUTOMATION_ERROR = 440


class KestrelError(Exception):
    """A runtime error: number, source and description, as the runtime raises them."""

    def __init__(self, number, source="", description=""):
        super().__init__(number, source, description)
        self.number = number
        self.source = source
        self.description = description

    def __str__(self):
        return f"{self.description} (error {self.number}, {self.source})"


class _Marker:
    __slots__ = ("_name",)

    def __init__(self, name):
        self._name = name

    def __repr__(self):
        return f"kestrel.{self._name}"

    def __bool__(self):
        return False


Empty = _Marker("Empty")
Missing = _Marker("Missing")


class ErrorCode(int):
    """An Error-kind value (a status code), as opposed to a number."""

    def __repr__(self):
        return f"kestrel.ErrorCode({int(self)})"


class ByRef:
    """A box for an argument passed by reference: after the call, .value
    holds what the member wrote back."""
    __slots__ = ("value",)

    def __init__(self, value=None):
        self.value = value

    def __repr__(self):
        return f"kestrel.ByRef({self.value!r})"


# --- errors ------------------------------------------------------------------

_state = threading.local()


def _raise_last():
    number = lib.kestrel_last_error_number()
    source = (lib.kestrel_last_error_source() or b"").decode("utf-8", "replace")
    description = (lib.kestrel_last_error_description() or b"").decode("utf-8", "replace")
    error = KestrelError(number, source, description)
    # A Python exception that a callback turned into this error is its cause.
    cause = getattr(_state, "callback_error", None)
    _state.callback_error = None
    if cause is not None and getattr(cause, "number", AUTOMATION_ERROR) == number:
        raise error from cause
    raise error


def _check(rc):
    if rc:
        _raise_last()


# --- arrays ------------------------------------------------------------------

def _default_of(kind):
    if kind in (STRING,):
        return ""
    if kind == VARIANT:
        return Empty
    if kind == OBJECT:
        return None
    if kind == BOOLEAN:
        return False
    if kind in (SINGLE, DOUBLE):
        return 0.0
    if kind == DATE:
        return datetime.datetime(1899, 12, 30)
    if kind == ERROR:
        return ErrorCode(0)
    return 0


class Array:
    """An array of the runtime: element kind, per-dimension bounds, and the
    elements in storage order (first subscript varying fastest).

    As a sequence it is that flat list of elements (len, iteration, a[k],
    slices). A tuple index is the runtime's subscripts, one per dimension,
    within the bounds: a[1, -1].
    """
    __slots__ = ("kind", "bounds", "_items")

    def __init__(self, items=None, bounds=None, kind=VARIANT):
        self.kind = kind
        items = list(items) if items is not None else None
        if bounds is None:
            bounds = ((0, (len(items) if items is not None else 0) - 1),)
        self.bounds = tuple((int(lo), int(hi)) for lo, hi in bounds)
        count = 1
        for lo, hi in self.bounds:
            count *= max(hi - lo + 1, 0)
        if not self.bounds:
            count = 0
        if items is None:
            items = [_default_of(kind)] * count
        if len(items) != count:
            raise ValueError(f"{len(items)} elements for bounds {self.bounds}")
        self._items = items

    @classmethod
    def unallocated(cls, kind=VARIANT):
        array = cls([], kind=kind)
        array.bounds = ()
        return array

    @property
    def dimensions(self):
        return len(self.bounds)

    def lbound(self, dimension=1):
        return self.bounds[dimension - 1][0]

    def ubound(self, dimension=1):
        return self.bounds[dimension - 1][1]

    def _linear(self, subscripts):
        if len(subscripts) != len(self.bounds):
            raise IndexError(f"{len(subscripts)} subscripts for {len(self.bounds)} dimensions")
        linear, stride = 0, 1
        for s, (lo, hi) in zip(subscripts, self.bounds):
            if not lo <= s <= hi:
                raise IndexError(f"subscript {s} outside {lo}..{hi}")
            linear += (s - lo) * stride
            stride *= hi - lo + 1
        return linear

    def __len__(self):
        return len(self._items)

    def __iter__(self):
        return iter(self._items)

    def __getitem__(self, index):
        if isinstance(index, tuple):
            return self._items[self._linear(index)]
        return self._items[index]

    def __setitem__(self, index, value):
        if isinstance(index, tuple):
            self._items[self._linear(index)] = value
        else:
            self._items[index] = value

    def __eq__(self, other):
        if isinstance(other, Array):
            return (self.kind, self.bounds, self._items) == (other.kind, other.bounds,
                                                             other._items)
        if isinstance(other, (list, tuple)):
            return self.tolist() == list(other)
        return NotImplemented

    def __bytes__(self):
        return bytes(self._items)

    def tolist(self):
        """Nested lists, outermost the first dimension: a.tolist()[i][j] is
        the element at subscripts (lbound(1) + i, lbound(2) + j)."""
        def build(prefix):
            depth = len(prefix)
            lo, hi = self.bounds[depth]
            if depth == len(self.bounds) - 1:
                return [self[tuple(prefix) + (s,)] for s in range(lo, hi + 1)]
            return [build(prefix + [s]) for s in range(lo, hi + 1)]
        return build([]) if self.bounds else []

    def __repr__(self):
        return f"kestrel.Array({self._items!r}, bounds={self.bounds!r}, kind={self.kind})"


def _subscripts(bounds):
    """Every set of subscripts in storage order (first varying fastest)."""
    ranges = [range(lo, hi + 1) for lo, hi in reversed(bounds)]
    for combo in itertools.product(*ranges):
        yield combo[::-1]


def _shape(items):
    """The bounds of a rectangular nest of lists, or None when it is ragged."""
    shape = []
    level = items
    while isinstance(level, (list, tuple)):
        shape.append(len(level))
        if not level:
            break
        level = level[0]

    def fits(node, depth):
        if depth == len(shape):
            return not isinstance(node, (list, tuple))
        return (isinstance(node, (list, tuple)) and len(node) == shape[depth]
                and all(fits(child, depth + 1) for child in node))
    return shape if fits(items, 0) else None


def _from_nested(items):
    shape = _shape(items)
    if shape is None or len(shape) == 1 or 0 in shape:
        return Array(items)  # one dimension; inner lists become nested arrays
    bounds = [(0, n - 1) for n in shape]
    flat = []
    for subscripts in _subscripts(bounds):
        node = items
        for s in subscripts:
            node = node[s]
        flat.append(node)
    return Array(flat, bounds)


def _put_array(v, array):
    if array.kind == BYTE and array.bounds == ((0, len(array._items) - 1),):
        data = bytes(array._items)  # the common shape goes across in one copy
        _check(lib.kestrel_value_set_bytes(v, data, len(data)))
        return
    bounds = (Bounds * max(len(array.bounds), 1))(*[Bounds(lo, hi) for lo, hi in array.bounds])
    _check(lib.kestrel_array_new(v, array.kind, bounds, len(array.bounds)))
    if not array.bounds:
        return
    subs = (c_int32 * len(array.bounds))()
    item = KValue()
    try:
        for subscripts, element in zip(_subscripts(array.bounds), array._items):
            subs[:] = subscripts
            put(item, element)
            rc = lib.kestrel_array_set(v, subs, len(subscripts), item)
            _clear(item)
            _check(rc)
    finally:
        _clear(item)


def _get_array(v):
    kind = v.kind & ~ARRAY
    dimensions = lib.kestrel_array_dimensions(v)
    if dimensions == 0:
        return Array.unallocated(kind)
    b = Bounds()
    bounds = []
    for d in range(1, dimensions + 1):
        _check(lib.kestrel_array_bounds(v, d, b))
        bounds.append((b.lower, b.upper))
    if kind == BYTE:
        needed = c_size_t()
        _check(lib.kestrel_value_get_bytes(v, None, 0, needed))
        buffer = create_string_buffer(needed.value)
        _check(lib.kestrel_value_get_bytes(v, buffer, needed.value, needed))
        return Array(list(buffer.raw[:needed.value]), bounds, BYTE)
    subs = (c_int32 * dimensions)()
    item = KValue()
    items = []
    for subscripts in _subscripts(bounds):
        subs[:] = subscripts
        _check(lib.kestrel_array_get(v, subs, dimensions, item))
        items.append(get(item))
        _clear(item)
    return Array(items, bounds, kind)


# --- values ------------------------------------------------------------------

def _put_date(v, moment):
    if isinstance(moment, datetime.datetime):
        if moment.microsecond >= 500000:  # the runtime's dates hold whole seconds
            moment = moment + datetime.timedelta(microseconds=1000000 - moment.microsecond)
        parts = (moment.year, moment.month, moment.day, moment.hour, moment.minute,
                 moment.second)
    else:
        parts = (moment.year, moment.month, moment.day, 0, 0, 0)
    _check(lib.kestrel_value_set_date_parts(v, *parts))


def _get_date(v):
    parts = [c_int32() for _ in range(6)]
    _check(lib.kestrel_value_get_date_parts(v, *parts))
    return datetime.datetime(*(p.value for p in parts))


def put(v, x):
    """Writes Python value x into v, which must be Empty (or hold a scalar)."""
    t = type(x)
    if t is int:
        if -32768 <= x <= 32767:
            v.kind = INTEGER
            v.integer = x
        elif -2147483648 <= x <= 2147483647:
            v.kind = LONG
            v.long_value = x
        elif -9223372036854775808 <= x <= 9223372036854775807:
            v.kind = LONGLONG
            v.longlong = x
        else:
            raise KestrelError(6, "kestrel", "Overflow")
    elif t is str:
        data = x.encode("utf-16-le", "surrogatepass")
        _check(lib.kestrel_value_set_utf16(v, data, len(data) // 2))
    elif t is float:
        v.kind = DOUBLE
        v.dbl = x
    elif t is bool:
        v.kind = BOOLEAN
        v.integer = -1 if x else 0
    elif x is None:
        v.kind = NULL
    elif t is Object:
        lib.kestrel_value_set_object(v, x._ptr)
    elif x is Empty:
        v.kind = EMPTY
    elif x is Missing:
        v.kind = ERROR
        v.error = MISSING_CODE
    elif t is ErrorCode:
        v.kind = ERROR
        v.error = x
    elif t is Array:
        _put_array(v, x)
    elif t is bytes or t is bytearray or t is memoryview:
        data = bytes(x)
        _check(lib.kestrel_value_set_bytes(v, data, len(data)))
    elif t is list or t is tuple:
        _put_array(v, _from_nested(x))
    elif isinstance(x, (datetime.date,)):
        _put_date(v, x)
    elif isinstance(x, bool):
        put(v, bool(x))
    elif isinstance(x, int):
        put(v, int(x))
    elif isinstance(x, float):
        put(v, float(x))
    elif isinstance(x, str):
        put(v, str(x))
    elif isinstance(x, Object):
        lib.kestrel_value_set_object(v, x._ptr)
    elif isinstance(x, (dict, set, frozenset)):
        raise TypeError(f"a {t.__name__} has no counterpart in the library")
    else:
        client = _client_new(x)
        lib.kestrel_value_set_object(v, client)
        lib.kestrel_release(client)


def get(v):
    """The Python value of v (v unchanged)."""
    k = v.kind
    if k == LONG:
        return v.long_value
    if k == STRING:
        units, length = c_void_p(), c_size_t()
        _check(lib.kestrel_value_utf16(v, units, length))
        if not length.value:
            return ""
        return string_at(units.value, length.value * 2).decode("utf-16-le", "surrogatepass")
    if k == INTEGER:
        return v.integer
    if k == BOOLEAN:
        return v.integer != 0
    if k == DOUBLE:
        return v.dbl
    if k == EMPTY:
        return Empty
    if k == NULL:
        return None
    if k == OBJECT:
        ptr = c_void_p()
        _check(lib.kestrel_value_get_object(v, ptr))
        if not ptr.value:
            return None
        context = lib.kestrel_client_context(ptr, _CLIENT_CLASS)
        if context:
            lib.kestrel_release(ptr)
            return _clients[context][0]
        return Object._adopt(ptr.value)
    if k == DATE:
        return _get_date(v)
    if k == SINGLE:
        return v.single
    if k == BYTE:
        return v.byte
    if k == LONGLONG:
        return v.longlong
    if k == ERROR:
        return Missing if v.error == MISSING_CODE else ErrorCode(v.error)
    if k & ARRAY:
        return _get_array(v)
    raise TypeError(f"value of unknown kind {k}")


_SCALAR = frozenset((EMPTY, NULL, INTEGER, LONG, SINGLE, DOUBLE, DATE, ERROR, BOOLEAN, BYTE,
                     LONGLONG))


def _clear(v):
    if v.kind not in _SCALAR:
        lib.kestrel_value_clear(v)
    else:
        v.kind = 0
        v.bits = 0


def kind_of(x):
    """The kind code a Python value becomes in the library (arrays: 0x2000 |
    element kind)."""
    v = KValue()
    try:
        put(v, x)
        return v.kind
    finally:
        _clear(v)


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
_OWN = frozenset(("_ptr", "_type", "_members", "_adopt", "_member", "_walk", "_indexer", "__class__", "__dict__",
                  "__slots__", "__weakref__"))


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

_clients = {}  # context id -> [Python object, type name buffer]
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
        obj = _clients[context][0]
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
    _clients.pop(context, None)


def _client_type_name(context):
    entry = _clients.get(context)
    return addressof(entry[1]) if entry else None


_CALLBACKS = (INVOKE(_client_invoke), RELEASE(_client_release), TYPE_NAME(_client_type_name))
_CLIENT_CLASS = ClientClass(*_CALLBACKS)


def _client_new(obj):
    context = next(_next_context)
    _clients[context] = [obj, create_string_buffer(type(obj).__name__.encode("utf-8"))]
    ptr = lib.kestrel_client_new(_CLIENT_CLASS, context)
    if not ptr:
        _clients.pop(context, None)
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
