import datetime
import re

import pytest

import kestrel
from kestrel import Array, ByRef, Empty, ErrorCode, KestrelError, Missing

OBJECT_ERROR = -2147221504


def round_trip(value):
    """The value after a trip into a Collection and back."""
    c = kestrel.CreateObject("Kestrel.Collection")
    c.Add(value)
    return c[1]


def test_every_registered_class_by_name():
    classes = kestrel.classes()
    assert {"Kestrel.Tracer": kestrel.CREATABLE, "Kestrel.Utilities": kestrel.GLOBAL,
            "Kestrel.File": kestrel.NOT_CREATABLE}.items() <= classes.items()
    for name, instancing in classes.items():
        if instancing == kestrel.NOT_CREATABLE:
            with pytest.raises(KestrelError) as caught:
                kestrel.CreateObject(name)
            assert caught.value.number == 429, name
            continue
        short = name.split(".", 1)[1]
        obj = kestrel.Dispatch(name)
        assert kestrel.TypeName(obj) == short and short in repr(obj), name
        if instancing == kestrel.GLOBAL:
            assert getattr(kestrel, short) is kestrel.GetGlobal(name)


@pytest.mark.parametrize("value, kind", [
    (32767, kestrel.INTEGER), (-32768, kestrel.INTEGER), (32768, kestrel.LONG),
    (-2147483648, kestrel.LONG), (2147483648, kestrel.LONGLONG), (-2**63, kestrel.LONGLONG),
    (1.5, kestrel.DOUBLE), ("x", kestrel.STRING), (True, kestrel.BOOLEAN), (None, kestrel.NULL),
    (Empty, kestrel.EMPTY), (Missing, kestrel.ERROR), (ErrorCode(5), kestrel.ERROR),
    (datetime.date(2024, 3, 5), kestrel.DATE), (b"ab", 0x2000 | kestrel.BYTE),
    (bytearray(2), 0x2000 | kestrel.BYTE), ([1, "a"], 0x2000 | kestrel.VARIANT),
])
def test_python_values_take_the_documented_kinds(value, kind):
    assert kestrel.kind_of(value) == kind


@pytest.mark.parametrize("value, back", [
    (2**40, 2**40), ("a\ud800\0z", "a\ud800\0z"), (None, None), (Empty, Empty),
    (Missing, Missing), (ErrorCode(7), ErrorCode(7)), (False, False), (0.1, 0.1),
    (datetime.date(2024, 3, 5), datetime.datetime(2024, 3, 5)),
    # Before day 0 the serial counts days back while its fraction adds time.
    (datetime.datetime(1899, 12, 29, 6, 0), datetime.datetime(1899, 12, 29, 6, 0)),
    (datetime.datetime(2024, 1, 1, 23, 59, 59, 600000), datetime.datetime(2024, 1, 2)),
    (b"\x00\xff", Array([0, 255], kind=kestrel.BYTE)),
    ([1, [2, 3]], Array([1, Array([2, 3])])),  # ragged: an array inside an array
])
def test_values_round_trip(value, back):
    result = round_trip(value)
    assert result == back and type(result) is type(back)


def test_integers_beyond_64_bits_overflow():
    with pytest.raises(KestrelError) as caught:
        kestrel.kind_of(2**63)
    assert caught.value.number == 6


def test_arrays_keep_bounds_and_dimensions():
    grid = Array(range(6), bounds=[(1, 2), (-1, 1)], kind=kestrel.LONG)
    back = round_trip(grid)
    assert back == grid and back[2, -1] == 1 and back[1, 1] == 4
    assert back.tolist() == [[0, 2, 4], [1, 3, 5]]
    nested = round_trip([[1, 2, 3], [4, 5, 6]])
    assert nested.bounds == ((0, 1), (0, 2)) and nested[1, 0] == 4
    # The library sees the bounds too: ReboundArray moves the first dimension.
    moved = kestrel.Utilities.ReboundArray(["a", "b"], 5)
    assert moved.bounds == ((5, 6),) and moved[5,] == "a"
    with pytest.raises(IndexError):
        grid[3, 0]


def test_by_reference_write_backs(tmp_path):
    ini = kestrel.CreateObject("Kestrel.IniFile")
    ini.FileName = str(tmp_path / "app.ini")
    ini.SetValue("db", "host", "example.org")
    ini.SetValue("db", "port", "5432")
    keys, values = ByRef(), ByRef()
    assert ini.GetSectionKeyValueArrays("db", keys, values) is True
    assert list(keys.value) == ["host", "port"] and list(values.value) == ["example.org", "5432"]

    tracer = kestrel.CreateObject("Kestrel.Tracer")
    tracer.LogTo = kestrel.Sink()
    name = ByRef("DoWork")
    tracer.TraceIn(name, "Module1")
    assert name.value == "Module1!DoWork"


def test_ini_file_written_and_read(tmp_path):
    path = tmp_path / "settings.ini"
    ini = kestrel.CreateObject("Kestrel.IniFile")
    ini.FileName = str(path)
    assert ini.SetValue("Main", "Name", "Kestrel") and ini.SetValue("Main", "Size", "3")
    assert path.read_bytes() == b"[Main]\r\nName=Kestrel\r\nSize=3\r\n"
    assert ini.GetValue("main", "name") == "Kestrel"
    assert ini.GetValue("Main", "Missing", "fallback") == "fallback"
    assert list(ini.GetSections()) == ["Main"]


def test_json_parsed_and_walked():
    json = kestrel.CreateObject("Kestrel.JSON")
    assert json.Parse('{"a": [1, 2.5, {"b": "c"}], "d": true, "e": null}')
    root = json.JSONObject
    assert kestrel.TypeName(root) == "Dictionary" and list(root) == ["a", "d", "e"]
    items = root["a"]
    assert kestrel.TypeName(items) == "Collection" and len(items) == 3
    assert list(items)[:2] == [1, 2.5] and items[3]["b"] == "c"
    assert "d" in root and "z" not in root and root["d"] is True and root["e"] is None
    assert not json.Parse("{") and json.ParseError


@pytest.mark.parametrize("name", sorted(kestrel.classes()))
def test_collections_behave_as_python_containers(name):
    if kestrel.classes()[name] == kestrel.NOT_CREATABLE:
        return
    obj = kestrel.CreateObject(name)
    if not {"count", "item", "add"} <= {n.lower() for n in dir(obj)}:
        return  # not a collection
    try:
        obj.Add("first")
        obj.Add("second")
    except KestrelError:
        return  # Add of another shape (Dictionary's key and item: below)
    # Whatever the items are (text, or records made from it), Python's view
    # of the list is the library's: Count, Item(1 .. Count), For Each.
    assert len(obj) == obj.Count == 2 and list(obj) == [obj[1], obj[2]]
    assert obj[2] in obj and "third" not in obj


def test_dictionary_manners():
    d = kestrel.CreateObject("Kestrel.Dictionary")
    d["k"] = 1
    d["j"] = kestrel.CreateObject("Kestrel.Collection")  # an object: a Set
    assert len(d) == 2 and list(d) == ["k", "j"] and "k" in d
    assert kestrel.TypeName(d["j"]) == "Collection"
    del d["k"]
    assert list(d) == ["j"] and "Count" in dir(d) and "Dictionary" in repr(d)


class RecordingSink:
    """Any object answering LogLine, Log and Clear is a sink."""

    def __init__(self):
        self.lines, self.cleared = [], 0

    def LogLine(self, line):
        self.lines.append(line)
        return True

    def Log(self):
        return "\n".join(self.lines)

    def Clear(self):
        self.cleared += 1


@pytest.mark.parametrize("sink", [kestrel.Sink(), RecordingSink()], ids=["Sink", "duck"])
def test_python_sink_receives_trace_lines(sink):
    tracer = kestrel.CreateObject("Kestrel.Tracer")
    tracer.LogTo = sink
    assert tracer.LogTo is sink
    tracer.Trace("first\nsecond", 50)
    assert [re.sub(r"^.* 0050 0000 +", "", line) for line in sink.lines] == ["first", "second"]
    tracer.Clear()
    assert sink.lines == [] if isinstance(sink, kestrel.Sink) else sink.cleared == 1


def test_python_sink_receives_profiled_steps():
    profiler, sink = kestrel.CreateObject("Kestrel.Profiler"), kestrel.Sink()
    profiler.Data = sink
    profiler.StepIn("Outer")
    profiler.StepIn("Inner")
    profiler.StepOut("Inner")
    profiler.StepOut("Outer")
    # Innermost first; the sink reads each ProfilerItem back by name.
    assert [name for name, _ in sink.items] == ["Inner", "Outer"]
    assert all(type(ticks) is int and ticks >= 0 for _, ticks in sink.items)


def test_errors_in_python_sinks_reach_the_caller():
    class Failing:
        def LogLine(self, line):
            raise ValueError("disk on fire")

    class Refusing:
        def LogLine(self, line):
            raise KestrelError(OBJECT_ERROR + 5, "Refusing", "no thanks")

    tracer = kestrel.CreateObject("Kestrel.Tracer")
    tracer.LogTo = Failing()
    with pytest.raises(KestrelError) as caught:
        tracer.Trace("x", 50)
    assert caught.value.number == 440 and "disk on fire" in caught.value.description
    assert isinstance(caught.value.__cause__, ValueError)
    tracer.LogTo = Refusing()
    with pytest.raises(KestrelError) as caught:
        tracer.Trace("x", 50)
    assert (caught.value.number, caught.value.source) == (OBJECT_ERROR + 5, "Refusing")


def test_traced_and_profiled_call_written_to_files(tmp_path):
    log = kestrel.CreateObject("Kestrel.LogFile")
    log.OpenFile(str(tmp_path / "trace.log"))
    data = kestrel.CreateObject("Kestrel.ProfileDataFile")
    data.OpenFile(str(tmp_path / "profile.txt"))
    profiler = kestrel.CreateObject("Kestrel.Profiler")
    profiler.Data = data
    tracer = kestrel.CreateObject("Kestrel.Tracer")
    tracer.LogTo, tracer.Profiler, tracer.ProfilerOn = log, profiler, True
    tracer.TraceIn("DoWork", "Module1")
    tracer.Trace("working", 50)
    tracer.TraceOut("DoWork", "Module1")

    stamp = r"\d\d/\d\d/\d{4} \d\d:\d\d:\d\d"
    lines = (tmp_path / "trace.log").read_bytes().decode("cp1252").split("\r\n")
    # Severity, depth, the writer's marker, 3 blanks per level, the text.
    assert re.fullmatch(stamp + r" 0010 0001 >    >>>\[Module1!DoWork\] ", lines[0])
    assert re.fullmatch(stamp + r" 0050 0001       working", lines[1])
    assert re.fullmatch(stamp + r" 0010 0001 <    <<<\[Module1!DoWork\] ", lines[2])
    assert lines[3:] == [""]
    profile = (tmp_path / "profile.txt").read_bytes().decode("cp1252")
    # "<date> <time>\tID\tParentID\tTicksIn\tTicks\tMethodName\tCallDepth", CR LF.
    assert re.fullmatch(r"\d+/\d+/\d{4} \d+:\d\d:\d\d [AP]M\t1\t0\t-?\d+\t\d+"
                        r"\tModule1!DoWork\t0\r\n", profile)


@pytest.mark.parametrize("call, number", [
    (lambda: kestrel.CreateObject("Kestrel.NoSuchClass"), 429),
    (lambda: kestrel.CreateObject("Kestrel.Collection").Item(1), 9),
    (lambda: kestrel.CreateObject("Kestrel.Dictionary").Remove("x"), 32811),
    (lambda: kestrel.Utilities.Max(1), 449),
    (lambda: kestrel.Utilities.Max(1, 2, 3), 450),
    (lambda: kestrel.CallByName(kestrel.Utilities, "NoSuchMember", kestrel.METHOD), 438),
    (lambda: kestrel.CreateObject("Kestrel.Tracer").Clear(), 91),  # no sink yet
])
def test_runtime_errors_carry_their_numbers(call, number):
    with pytest.raises(KestrelError) as caught:
        call()
    assert caught.value.number == number and caught.value.description


def test_raised_error_keeps_source_and_description():
    err = kestrel.CreateObject("Kestrel.Error")
    err.Number, err.Source, err.Description = OBJECT_ERROR + 1, "demo.py", "Café failed"
    err.HelpContext = 0
    with pytest.raises(KestrelError) as caught:
        err.Raise()
    assert (caught.value.number, caught.value.source, caught.value.description) == (
        OBJECT_ERROR + 1, "demo.py", "Café failed")


def test_globals_missing_arguments_and_attribute_manners(tmp_path):
    assert kestrel.Utilities.Max(3, "9") == "9"
    assert kestrel.FileSystem.BaseName(str(tmp_path / "report.final.txt")) == "report.final"
    assert kestrel.Utilities.Mz(Missing, 5) == 5 and kestrel.Utilities.NEM() is True
    with pytest.raises(AttributeError):
        kestrel.Utilities.NoSuchMember
    with pytest.raises(AttributeError):
        kestrel.NoSuchGlobal
