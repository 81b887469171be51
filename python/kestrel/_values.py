"""Values between Python and libkestrel, and the runtime's errors.

Every Python value crosses into the library as a KValue written in place
(scalars) or through the C ABI (text, objects, arrays); every library value
comes back as the Python value the table in the package's docstring gives.
"""

import datetime
import itertools
import threading
from ctypes import c_int32, c_size_t, c_void_p, create_string_buffer, string_at

from ._native import Bounds, KValue, lib

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
    elif t is _objects.Object:
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
    elif isinstance(x, _objects.Object):
        lib.kestrel_value_set_object(v, x._ptr)
    elif isinstance(x, (dict, set, frozenset)):
        raise TypeError(f"a {t.__name__} has no counterpart in the library")
    else:
        client = _objects.client_new(x)
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
        context = lib.kestrel_client_context(ptr, _objects.CLIENT_CLASS)
        if context:
            lib.kestrel_release(ptr)
            return _objects.clients[context][0]
        return _objects.Object._adopt(ptr.value)
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


# Objects cross through the object side, which builds on the values above.
from . import _objects  # noqa: E402
