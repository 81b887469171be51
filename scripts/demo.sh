#!/usr/bin/env bash
# Installs what is needed, builds the library and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target kestrel_demo
# The web section posts to the tests' HTTP server on a free loopback port.
exec 3< <(/usr/bin/python3 tests/web/http_test_server.py)
web_server=$!
trap 'kill "${web_server}" 2>/dev/null || true' EXIT
read -r web_port <&3
export KESTREL_DEMO_WEB_URL="http://127.0.0.1:${web_port}"
build/default/examples/kestrel_demo
