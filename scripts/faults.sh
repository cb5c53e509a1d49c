#!/usr/bin/env bash
# Fault campaigns: drives the real program's tools through their windows (tests/faults/fault_run,
# offscreen) on a private server of its own, injects one fault per run, and prints one table:
# fault, tool, runs, and how each run ended: clean, damaged but put back whole by one put-back
# of the safety copy the run wrote, fault not reached, false success, hang, crash, data lost.
#
#   faults.sh [RUNS] [ROWS]   RUNS per row (default 50); ROWS, an extended regular expression,
#                             keeps only the rows whose "fault tool" it matches
#                             (e.g. 'disk-full (table-script|safety-copy)')
#
# Save Table's row covers its safety copy (the copy's statements are among those the fault may
# land on); put-back puts a copy back over a damaged table.
# Faults: the server killed (SIGKILL, then started again) or the program's connections killed
# from another session (KILL CONNECTION), each right before a statement chosen at random among
# those the work sends (its count comes from a run without a fault); a disk that fills (a small
# tmpfs left with less free room than the work's output takes, 0-99 % of it; needs root,
# skipped with a note otherwise); the work folder made read-only before a statement chosen the
# same way; the files the restore unpacked removed, or one cut short, between its pages.
# Each tool is judged on its own output: the tables, the archive at the final path (the earlier
# one, or whole and equal to the tables), the script, the converted database, Import Data's
# table. A run is clean when it ends within 30 seconds without a signal, every table and output
# is as it was or as the work leaves it without a fault (a new output may be partial after a
# failure the work told), and no success was told over a missing or partial output. A run whose
# fault never fired is "not reached"; a table left neither way that one put-back of the run's own
# copy gives back is "damaged, put back"; anything else left neither way is data lost. The
# campaign fails on any run not reached, false success, hang, crash or data lost. Details of
# every run go to build/faults/runs.log.
set -euo pipefail
exec </dev/null

runs=${1:-50}
only=${2:-}
case "$runs" in ''|*[!0-9]*) echo "usage: $0 [RUNS] [ROWS]" >&2; exit 2 ;; esac

root=$(cd "$(dirname "$0")/.." && pwd)
build=${TABULON_BUILD_DIR:-$root/build}
say() { printf '==> %s\n' "$*"; }
die() { printf 'faults.sh: %s\n' "$*" >&2; exit 1; }

say "checking packages"
bash "$root/scripts/install-deps.sh" || die "installing the packages failed; run this as root or with sudo"
say "building in $build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTABULON_WERROR=ON >/dev/null
cmake --build "$build" --target fault_run -j"$(nproc)"
driver="$build/tests/fault_run"
[ -x "$driver" ] || die "the build made no $driver"

top=$(mktemp -d "${TMPDIR:-/tmp}/tabulon-faults.XXXXXX")
dbdir="$top/db"
work="$top/work"
mkdir -p "$work" "$build/faults"
log="$build/faults/runs.log"
: >"$log"
mounted=no
cleanup() {
  [ "$mounted" = yes ] && umount -l "$work" 2>/dev/null || true
  bash "$root/scripts/private-mariadb.sh" stop "$dbdir" >/dev/null 2>&1 || true
  rm -rf "$top"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# 256 MiB: the restore's archive check keeps the last 64 MiB of a disk free, so a smaller one
# would refuse every archive before the restore starts.
if [ "$(id -u)" -eq 0 ] && mount -t tmpfs -o size=256m,mode=0777 tabulon-faults "$work" 2>/dev/null; then
  mounted=yes
fi

port_taken() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
port=13600
while port_taken "$port"; do port=$((port + 1)); done
say "starting a private MariaDB server on 127.0.0.1:$port"
bash "$root/scripts/private-mariadb.sh" start "$dbdir" "$port" >/dev/null || die "the server did not start"
export TABULON_TEST_SERVER="127.0.0.1:$port"
export QT_QPA_PLATFORM=offscreen
server_up() { bash "$root/scripts/private-mariadb.sh" start "$dbdir" "$port" >/dev/null 2>&1 || true; }

sample="$root/tests/fixtures/access/nwind.mdb"
rows=()
for tool in save-table delete-record replace-all search check repair backup client-backup restore client-restore \
            convert import-data put-back; do
  rows+=("server-kill $tool" "conn-kill $tool")
done
rows+=("disk-full backup" "disk-full client-backup" "disk-full table-script" "disk-full safety-copy"
       "read-only backup" "read-only table-script" "archive-gone restore" "archive-swapped restore")

table=()
notes=()
failed=0
for row in "${rows[@]}"; do
  read -r fault tool <<<"$row"
  if [ -n "$only" ] && ! grep -Eq -- "$only" <<<"$row"; then
    continue
  fi
  if [ "$fault" = disk-full ] && [ "$mounted" = no ]; then
    notes+=("disk-full $tool: skipped (a size-limited folder needs root)")
    continue
  fi
  args=(--tool "$tool" --fault "$fault" --server-dir "$dbdir" --work "$work" --source "$sample")
  server_up
  counted=$(timeout 120 "$driver" "${args[@]}" --count 2>>"$log" || true)
  printf '%s %s without a fault: %s\n' "$fault" "$tool" "$counted" >>"$log"
  count=$(sed -n 's/^statements //p' <<<"$counted")
  if [ -z "$count" ] || [ "$count" -eq 0 ]; then
    notes+=("$fault $tool: the work without a fault did not run (see $log)")
    failed=1
    continue
  fi
  clean=0 damaged=0 unreached=0 false=0 hangs=0 crashes=0 lost=0 unjudged=0
  for ((r = 1; r <= runs; r++)); do
    case "$fault" in
      disk-full) at=$((RANDOM % 100)) ;;
      archive-*) at=1 ;;
      *) at=$((1 + RANDOM % count)) ;;
    esac
    status=0
    out=$(timeout 60 "$driver" "${args[@]}" --at "$at" 2>>"$log") || status=$?
    printf '%s %s at=%s status=%s %s\n' "$fault" "$tool" "$at" "$status" "$out" >>"$log"
    chmod u+w "$work" 2>/dev/null || true
    rm -f "$work/filler"
    server_up
    if [ "$status" -eq 3 ] || [ "$status" -eq 124 ] || grep -q '^ending=hang' <<<"$out"; then
      hangs=$((hangs + 1))
    elif [ "$status" -gt 128 ]; then
      crashes=$((crashes + 1))
    elif [ "$status" -ne 0 ] || ! grep -q '^ending=' <<<"$out"; then
      unjudged=$((unjudged + 1)) # the run could not be set up or judged (see the log)
    elif ! grep -q ' fired=1 ' <<<"$out"; then
      unreached=$((unreached + 1))
    elif grep -q ' data=lost ' <<<"$out"; then
      lost=$((lost + 1))
    elif grep -q '^ending=false-success' <<<"$out"; then
      false=$((false + 1))
    elif grep -q ' data=damaged ' <<<"$out"; then
      damaged=$((damaged + 1))
    else
      clean=$((clean + 1))
    fi
  done
  [ $((unreached + false + hangs + crashes + lost + unjudged)) -eq 0 ] || failed=1
  [ "$unjudged" -eq 0 ] || notes+=("$fault $tool: $unjudged runs could not be set up or judged (see $log)")
  table+=("$(printf '| %s | %s | %d | %d | %d | %d | %d | %d | %d | %d |' "$fault" "$tool" "$runs" "$clean" \
    "$damaged" "$unreached" "$false" "$hangs" "$crashes" "$lost")")
  say "$fault $tool: $clean of $runs clean, $damaged damaged and put back, $unreached not reached," \
    "$false false successes, $hangs hangs, $crashes crashes, $lost with data lost"
done

printf '\n| fault | tool | runs | clean | damaged, put back | not reached | false success | hangs | crashes | data lost |\n'
printf '|---|---|---|---|---|---|---|---|---|---|\n'
printf '%s\n' "${table[@]}"
for n in "${notes[@]}"; do printf '\n%s\n' "$n"; done
cp "$log" "$root/build/faults-runs.log" 2>/dev/null || true
exit "$failed"
