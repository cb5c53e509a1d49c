#!/usr/bin/env bash
# Fault campaigns: drives the real program's tools through their windows (tests/faults/fault_run,
# offscreen) on a private server of its own, injects one fault per run, and prints one table:
# fault, tool, runs, clean endings, hangs, crashes, data lost, and the runs whose damage one
# put-back of the work's safety copy undid.
#
#   faults.sh [RUNS]      RUNS per row (default 50)
#
# Save Table's row covers its safety copy (the copy's statements are among those the fault may
# land on); put-back puts a copy back over a damaged table.
# Faults: the server killed (SIGKILL, then started again) or the program's connections killed
# from another session (KILL CONNECTION), each right before a statement chosen at random among
# those the work sends (its count comes from a run without a fault); a disk that fills (a small
# tmpfs left with 0-16 KiB free; needs root, skipped with a note otherwise); the work folder made
# read-only; the archive deleted or replaced between the restore's file page and the restore.
# A run is clean when it ends within 30 seconds without a signal and without a success message
# after a fault that changed its outcome; data is lost when a table ends neither as it was nor as
# the same work leaves it without a fault, or when the archive at the final path is neither the
# earlier one nor a whole new one; a table the work damaged counts as recovered when one put-back
# of the work's newest safety copy gives it back as it was. Details of every run go to build/faults/runs.log.
set -euo pipefail
exec </dev/null

runs=${1:-50}
case "$runs" in ''|*[!0-9]*) echo "usage: $0 [RUNS]" >&2; exit 2 ;; esac

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
  if [ "$fault" = disk-full ] && [ "$mounted" = no ]; then
    notes+=("disk-full $tool: skipped (a size-limited folder needs root)")
    continue
  fi
  args=(--tool "$tool" --fault "$fault" --server-dir "$dbdir" --work "$work" --source "$sample")
  server_up
  count=$(timeout 120 "$driver" "${args[@]}" --count 2>>"$log" | sed -n 's/^statements //p' || true)
  if [ -z "$count" ] || [ "$count" -eq 0 ]; then
    notes+=("$fault $tool: the work without a fault did not run (see $log)")
    failed=1
    continue
  fi
  clean=0 hangs=0 crashes=0 lost=0 recovered=0
  for ((r = 1; r <= runs; r++)); do
    case "$fault" in
      disk-full) at=$((RANDOM % 17)) ;;
      read-only|archive-*) at=1 ;;
      *) at=$((1 + RANDOM % count)) ;;
    esac
    status=0
    out=$(timeout 60 "$driver" "${args[@]}" --at "$at" 2>>"$log") || status=$?
    printf '%s %s at=%s status=%s %s\n' "$fault" "$tool" "$at" "$status" "$out" >>"$log"
    [ "$mounted" = yes ] && mount -o remount,rw "$work" 2>/dev/null || true
    rm -f "$work/filler"
    server_up
    if [ "$status" -eq 3 ] || [ "$status" -eq 124 ] || grep -q '^ending=hang' <<<"$out"; then
      hangs=$((hangs + 1))
    elif [ "$status" -gt 128 ]; then
      crashes=$((crashes + 1))
    elif [ "$status" -eq 0 ] && grep -q '^ending=clean' <<<"$out"; then
      clean=$((clean + 1))
    fi
    if grep -q 'data=lost' <<<"$out"; then lost=$((lost + 1)); fi
    if grep -q 'data=recovered' <<<"$out"; then recovered=$((recovered + 1)); fi
  done
  [ $((hangs + crashes + lost)) -eq 0 ] && [ "$clean" -eq "$runs" ] || failed=1
  table+=("$(printf '| %s | %s | %d | %d | %d | %d | %d | %d |' "$fault" "$tool" "$runs" "$clean" "$hangs" "$crashes" \
    "$lost" "$recovered")")
  say "$fault $tool: $clean of $runs clean, $hangs hangs, $crashes crashes, $lost with data lost," \
    "$recovered put back from their safety copy"
done

printf '\n| fault | tool | runs | clean endings | hangs | crashes | data lost | recovered by put-back |\n'
printf '|---|---|---|---|---|---|---|---|\n'
printf '%s\n' "${table[@]}"
for n in "${notes[@]}"; do printf '\n%s\n' "$n"; done
cp "$log" "$root/build/faults-runs.log" 2>/dev/null || true
exit "$failed"
