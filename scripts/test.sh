#!/usr/bin/env bash
# The test command: installs what is missing, builds Release with warnings as errors in build/,
# starts a private MariaDB server of its own (temporary folder, first free port from 13400, general
# query log on), runs every test against it offscreen, and stops and removes the server again.
# Exits non-zero when anything fails. Needs no display and reads no input. TABULON_BUILD_DIR
# names another build folder.
set -euo pipefail
exec </dev/null

root=$(cd "$(dirname "$0")/.." && pwd)
build=${TABULON_BUILD_DIR:-$root/build}
mariadb_script="$root/scripts/private-mariadb.sh"

say() { printf '==> %s\n' "$*"; }
die() { printf 'test.sh: %s\n' "$*" >&2; exit 1; }

say "checking packages"
bash "$root/scripts/install-deps.sh" || die "installing the packages failed; run this as root or with sudo"

say "configuring and building in $build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTABULON_WERROR=ON >/dev/null
cmake --build "$build" -j"$(nproc)"

# A short path keeps the server's socket under the 107-byte limit whatever the clone's path.
dbdir=$(mktemp -d "${TMPDIR:-/tmp}/tabulon-test.XXXXXX")
cleanup() {
  bash "$mariadb_script" stop "$dbdir" >/dev/null 2>&1 || true
  rm -rf "$dbdir"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Something answers on the port: taken.
port_taken() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

port=13400
started=no
for _ in 1 2 3; do
  while port_taken "$port"; do
    port=$((port + 1))
    [ "$port" -lt 13500 ] || die "no free port between 13400 and 13499"
  done
  say "starting a private MariaDB server on 127.0.0.1:$port"
  if bash "$mariadb_script" start "$dbdir" "$port" --general-log; then
    started=yes
    break
  fi
  # Another process took the port between the probe and the start.
  bash "$mariadb_script" stop "$dbdir" >/dev/null 2>&1 || true
  port=$((port + 1))
done
[ "$started" = yes ] || die "the private MariaDB server did not start (see above)"

export TABULON_TEST_SERVER="127.0.0.1:$port"
say "running the tests against $TABULON_TEST_SERVER"
status=0
QT_QPA_PLATFORM=offscreen ctest --test-dir "$build" --output-on-failure --no-tests=error || status=$?
if [ "$status" -eq 0 ]; then say "all tests passed"; else say "tests failed (ctest status $status)"; fi
exit "$status"
