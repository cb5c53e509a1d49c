#!/usr/bin/env bash
# The test command: installs what is missing, builds Release with warnings as errors in build/,
# starts a private MariaDB server of its own (temporary folder, first free port from 13400, general
# query log on), a second one that offers TLS for the TLS tests and a third that rolls back a whole
# transaction on a lock wait timeout, runs every test against them offscreen, and stops and
# removes the servers again.
# Exits non-zero when anything fails. Needs no display and reads no input. TABULON_BUILD_DIR
# names another build folder.
#
#   test.sh              the normal build, in build/
#   test.sh --sanitize   AddressSanitizer and UndefinedBehaviorSanitizer, in build-sanitize/
#
# Before building, every C++ file is checked against .clang-format; a file that drifts from it
# fails the run.
set -euo pipefail
exec </dev/null

sanitize=no
for arg in "$@"; do
  case "$arg" in
    --sanitize) sanitize=yes ;;
    *) echo "usage: $0 [--sanitize]" >&2; exit 2 ;;
  esac
done

root=$(cd "$(dirname "$0")/.." && pwd)
if [ "$sanitize" = yes ]; then
  build=${TABULON_BUILD_DIR:-$root/build-sanitize}
  build_type=RelWithDebInfo
  cmake_extra=(-DTABULON_SANITIZE=ON)
else
  build=${TABULON_BUILD_DIR:-$root/build}
  build_type=Release
  cmake_extra=()
fi
mariadb_script="$root/scripts/private-mariadb.sh"

say() { printf '==> %s\n' "$*"; }
die() { printf 'test.sh: %s\n' "$*" >&2; exit 1; }

say "checking packages"
bash "$root/scripts/install-deps.sh" || die "installing the packages failed; run this as root or with sudo"

say "checking the formatting"
unformatted=$(cd "$root" && find src tests bench \( -name '*.cpp' -o -name '*.h' \) -print0 \
  | xargs -0 clang-format --dry-run 2>&1 | grep -o '^[^:]*:[0-9]*:[0-9]*: warning' | cut -d: -f1 | sort -u || true)
if [ -n "$unformatted" ]; then
  printf '%s\n' "$unformatted" >&2
  die "these files drift from .clang-format (clang-format -i fixes them)"
fi

say "configuring and building in $build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE="$build_type" -DTABULON_WERROR=ON "${cmake_extra[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)"

# A short path keeps the server's socket under the 107-byte limit whatever the clone's path.
dbdir=$(mktemp -d "${TMPDIR:-/tmp}/tabulon-test.XXXXXX")
cleanup() {
  bash "$mariadb_script" stop "$dbdir/tls-server" >/dev/null 2>&1 || true
  bash "$mariadb_script" stop "$dbdir/rollback-server" >/dev/null 2>&1 || true
  bash "$mariadb_script" stop "$dbdir" >/dev/null 2>&1 || true
  rm -rf "$dbdir"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Something answers on the port: taken.
port_taken() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# start_server DIR FIRST_PORT OPTIONS...: starts a server in DIR on the first free port from
# FIRST_PORT and sets `port` to it.
start_server() {
  local dir=$1 started=no
  port=$2
  shift 2
  for _ in 1 2 3; do
    while port_taken "$port"; do
      port=$((port + 1))
      [ "$port" -lt 13500 ] || die "no free port between 13400 and 13499"
    done
    say "starting a private MariaDB server on 127.0.0.1:$port $*"
    if bash "$mariadb_script" start "$dir" "$port" "$@"; then
      started=yes
      break
    fi
    # Another process took the port between the probe and the start.
    bash "$mariadb_script" stop "$dir" >/dev/null 2>&1 || true
    port=$((port + 1))
  done
  [ "$started" = yes ] || die "the private MariaDB server did not start (see above)"
}

start_server "$dbdir" 13400 --general-log
main_port=$port
# The TLS tests' server, with certificates of its own; here rather than in the test so that it
# is stopped whatever becomes of the test.
start_server "$dbdir/tls-server" $((main_port + 1)) --tls
export TABULON_TEST_TLS_SERVER="127.0.0.1:$port"
export TABULON_TEST_TLS_DIR="$dbdir/tls-server/tls"
# A server that rolls back a whole transaction when a lock wait times out.
start_server "$dbdir/rollback-server" $((port + 1)) --rollback-on-timeout
export TABULON_TEST_ROLLBACK_SERVER="127.0.0.1:$port"
port=$main_port

export TABULON_TEST_SERVER="127.0.0.1:$port"
if [ "$sanitize" = yes ]; then
  # Leaks are checked too, apart from those of the system libraries listed in the file.
  export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
  export LSAN_OPTIONS="suppressions=$root/scripts/lsan.supp:print_suppressions=0"
fi
say "running the tests against $TABULON_TEST_SERVER"
status=0
QT_QPA_PLATFORM=offscreen ctest --test-dir "$build" --output-on-failure --no-tests=error || status=$?
if [ "$status" -eq 0 ]; then say "all tests passed"; else say "tests failed (ctest status $status)"; fi
exit "$status"
