#!/usr/bin/env bash
# Installs the Debian 12 packages Tabulon needs to build, test and run its demo.
# Idempotent: refreshes the package lists once, then installs only what is missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config clang-format
  qt6-base-dev qt6-base-dev-tools libgl-dev
  libmariadb-dev mariadb-server mariadb-client
  libzip-dev mdbtools-dev unixodbc-dev odbc-mdbtools mdbtools libsqliteodbc
  clang-14 libclang-rt-14-dev
  xvfb xauth xdotool imagemagick fonts-dejavu-core
  appstream desktop-file-utils dpkg-dev file
  time gzip openssl
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then SUDO=sudo; else
    echo "Missing packages: ${missing[*]}; run this script as root to install them." >&2
    exit 1
  fi
else
  SUDO=
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
