#!/usr/bin/env bash
# Installs what building, testing and benchmarking Kestrel needs on Debian 12.
# Does nothing when everything is already there; otherwise refreshes the
# package lists first and installs without questions.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev pkg-config
  libicu-dev libssl-dev uuid-dev
  libgtest-dev libgmock-dev libbenchmark-dev libspdlog-dev
  nlohmann-json3-dev rapidjson-dev libsimdjson-dev
  libffi-dev libcurl4-openssl-dev curl openssl
  qt6-base-dev libgl-dev
  python3 python3-pytest python3-aiosmtpd xdg-utils
  fonts-dejavu-core
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "Installing: ${missing[*]}"
$sudo env DEBIAN_FRONTEND=noninteractive apt-get update -q
$sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
