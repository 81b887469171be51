#!/usr/bin/env bash
# Installs what is needed, builds the library and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target kestrel_demo
# Mail: a local aiosmtpd server receives what the demo sends through MAPI32;
# the provider finds it through its configuration file.
mail_demo_dir=$(mktemp -d)
/usr/bin/python3 tests/mail/smtp_server.py "$mail_demo_dir" &
mail_demo_pid=$!
web_server=""
stop_servers() {
  kill "$mail_demo_pid" ${web_server:+"$web_server"} 2>/dev/null || true
  rm -rf "$mail_demo_dir"
}
trap stop_servers EXIT
while [ ! -s "$mail_demo_dir/port" ]; do sleep 0.1; done
printf '[SMTP]\r\nUrl=smtp://127.0.0.1:%s\r\nFrom=Kestrel Demo <demo@kestrel.test>\r\n' \
  "$(cat "$mail_demo_dir/port")" > "$mail_demo_dir/mail.ini"
export KESTREL_MAIL_CONFIG="$mail_demo_dir/mail.ini"
# The web section posts to the tests' HTTP server on a free loopback port.
exec 3< <(/usr/bin/python3 tests/web/http_test_server.py)
web_server=$!
read -r web_port <&3
export KESTREL_DEMO_WEB_URL="http://127.0.0.1:${web_port}"
build/default/examples/kestrel_demo
echo
echo "What the SMTP server received:"
/usr/bin/python3 - "$mail_demo_dir" <<'PYTHON'
import glob, sys
for name in sorted(glob.glob(sys.argv[1] + "/*.msg")):
    for line in open(name, encoding="utf-8"):
        key, _, rest = line.rstrip("\n").partition(" ")
        if key == "body":
            rest = bytes.fromhex(rest).decode("utf-8").replace("\r\n", "\n").rstrip("\n")
            rest = rest.replace("\n", "\n" + " " * 13)
        elif key == "attachment":
            file_name, content_type, data = rest.split("|")
            rest = "%s (%s): %s" % (file_name, content_type, data)
        print("  %-10s %s" % (key, rest))
PYTHON
kill "$mail_demo_pid" 2>/dev/null || true

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
