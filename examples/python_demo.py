#!/usr/bin/python3
"""Kestrel from Python: classes by name, members by name, a Python sink."""
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "python"))
import kestrel  # noqa: E402


class Printer(kestrel.Sink):
    def LogLine(self, line):
        print("  trace:", line)
        return True


print("Max(3, \"9\") =", kestrel.Utilities.Max(3, "9"))

tracer = kestrel.CreateObject("Kestrel.Tracer")
tracer.LogTo = Printer()                   # a Python object is a log sink
name = kestrel.ByRef("Demo")
tracer.TraceIn(name, "python_demo")        # writes the qualified name back
print("qualified name:", name.value)
tracer.Trace("hello from Python", 50)
tracer.TraceOut("Demo", "python_demo")

json = kestrel.CreateObject("Kestrel.JSON")
json.Parse('{"birds": ["kestrel", "merlin"], "year": 2024}')
root = json.JSONObject
print("JSON keys:", list(root), "| birds:", list(root["birds"]), "| year:", root["year"])

with tempfile.TemporaryDirectory() as folder:
    ini = kestrel.CreateObject("Kestrel.IniFile")
    ini.FileName = str(Path(folder) / "demo.ini")
    ini.SetValue("db", "host", "example.org")
    print("INI db.host =", ini.GetValue("db", "host"))

try:
    kestrel.CreateObject("Kestrel.Collection").Item(1)
except kestrel.KestrelError as error:
    print(f"error {error.number}: {error.description}")
