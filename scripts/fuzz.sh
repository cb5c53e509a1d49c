#!/usr/bin/env bash
# Runs every libFuzzer target for SECONDS each (default 60), built with clang under
# AddressSanitizer and UndefinedBehaviorSanitizer in build-fuzz/, each from its seed corpus in
# tests/fuzz/corpus/<target>/ (the Access reader patches the sample file of the tests). Prints
# one line per target (executions, corpus, result) and exits non-zero on any report; a
# crashing input is kept under build-fuzz/findings/<target>/.
#
#   fuzz.sh [SECONDS]
set -euo pipefail
exec </dev/null

seconds=${1:-60}
case "$seconds" in ''|*[!0-9]*) echo "usage: $0 [SECONDS]" >&2; exit 2 ;; esac

root=$(cd "$(dirname "$0")/.." && pwd)
build=${TABULON_FUZZ_BUILD_DIR:-$root/build-fuzz}
say() { printf '==> %s\n' "$*"; }
die() { printf 'fuzz.sh: %s\n' "$*" >&2; exit 1; }

say "checking packages"
bash "$root/scripts/install-deps.sh" || die "installing the packages failed; run this as root or with sudo"
command -v clang++-14 >/dev/null || die "clang++-14 is missing"

targets=(fuzz_gridfile fuzz_archive fuzz_accessfile fuzz_scriptsplit fuzz_conversionrules)
say "building the fuzz targets in $build"
CC=clang-14 CXX=clang++-14 cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTABULON_FUZZ=ON -DTABULON_SANITIZE=ON >/dev/null
cmake --build "$build" --target "${targets[@]}" -j"$(nproc)"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:allocator_may_return_null=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export LSAN_OPTIONS="suppressions=$root/scripts/lsan.supp:print_suppressions=0"
export QT_QPA_PLATFORM=offscreen

results=()
failed=0
for target in "${targets[@]}"; do
  program=$(find "$build" -type f -name "$target" -perm -u+x | head -1)
  [ -n "$program" ] || die "the build made no $target"
  seeds="$root/tests/fuzz/corpus/$target"
  corpus="$build/corpus/$target"
  findings="$build/findings/$target"
  mkdir -p "$corpus" "$findings"
  extra=()
  if [ "$target" = fuzz_accessfile ]; then
    # Its inputs are patches over the sample file, not whole files.
    export TABULON_FUZZ_BASE="$root/tests/fixtures/access/nwind.mdb"
    extra=(-rss_limit_mb=4096 -timeout=60)
  else
    unset TABULON_FUZZ_BASE
    extra=(-rss_limit_mb=2048 -timeout=10)
  fi
  log="$build/$target.log"
  say "$target for $seconds s"
  status=0
  "$program" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$findings/" \
    "${extra[@]}" "$corpus" "$seeds" >"$log" 2>&1 || status=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  units=$(find "$corpus" -type f | wc -l)
  if [ "$status" -eq 0 ]; then
    result=clean
  else
    result="REPORT (exit $status; see $log and $findings/)"
    failed=1
  fi
  results+=("$(printf '| %s | %s | %s | %s | %s |' "$target" "$seconds" "${execs:-?}" "$units" "$result")")
done

printf '\n| target | seconds | executions | corpus | result |\n|---|---|---|---|---|\n'
printf '%s\n' "${results[@]}"
exit "$failed"
