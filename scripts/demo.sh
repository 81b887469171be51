#!/usr/bin/env bash
# Installs what is needed, builds the library and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target kestrel_demo
build/default/examples/kestrel_demo

# The same library from Python, through the kestrel package (examples/python_demo.py).
KESTREL_LIBRARY=build/default/libkestrel.so /usr/bin/python3 examples/python_demo.py

# Form helpers: the resizable dialog, rendered on the offscreen platform
# before and after a simulated drag of its grip; on a desktop, the window too.
cmake --build --preset default --target forms_demo
QT_QPA_PLATFORM=offscreen build/default/examples/forms_demo \
  --screenshots build/default/artifacts/forms_demo
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  build/default/examples/forms_demo
fi
