#!/usr/bin/env bash
# Times the conversion of the Access sample (repeated RUNS times) against mdb-export -I mysql
# piped into the mariadb client for the same tables (with mdb-schema's tables), on a private
# server of its own, and prints both times and their ratio. Builds Release in build-bench/.
#
#   scripts/bench-convert.sh [RUNS]       environment: BENCH_DIR, BENCH_PORT, BENCH_BUILD
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
runs=${1:-5}
build=${BENCH_BUILD:-$root/build-bench}
dir=${BENCH_DIR:-$build/mariadb-convert}
port=${BENCH_PORT:-13407}
mdb="$root/tests/fixtures/access/nwind.mdb"

command -v mdb-export >/dev/null || { echo "mdb-export is missing: apt-get install mdbtools" >&2; exit 1; }
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_convert -j"$(nproc)" >/dev/null

"$root/scripts/private-mariadb.sh" start "$dir" "$port"
trap '"$root/scripts/private-mariadb.sh" stop "$dir"' EXIT
client=(mariadb --no-defaults -h127.0.0.1 -P"$port" -udbop)

read -r ours statements kept messages < <("$build/bench/bench_convert" "127.0.0.1:$port" dbop "$mdb" "$runs")

start=$(date +%s.%N)
for ((i = 0; i < runs; i++)); do
    db="bench_peer_$i"
    "${client[@]}" -e "DROP DATABASE IF EXISTS $db; CREATE DATABASE $db"
    mdb-schema "$mdb" mysql | "${client[@]}" -f "$db" 2>/dev/null || true
    mdb-tables -1 "$mdb" | while IFS= read -r table; do
        mdb-export -I mysql "$mdb" "$table" | "${client[@]}" -f --binary-mode "$db" 2>/dev/null || true
    done
done
end=$(date +%s.%N)
peer=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", b - a }')
peerKept=$("${client[@]}" -N -e "SELECT SUM(table_rows) FROM information_schema.tables WHERE table_schema LIKE 'bench\\_peer\\_%'")

printf 'conversion of %s, %d runs\n' "$(basename "$mdb")" "$runs"
printf '  Tabulon:             %8.2f s  (%s statements, %s rows kept, %s messages)\n' "$ours" "$statements" "$kept" "$messages"
printf '  mdb-export | mariadb: %7.2f s  (%s rows kept)\n' "$peer" "$peerKept"
# The conversion keeps fewer rows than the peer (its statements carry sanitised table names
# and dd-mm-yyyy dates, which strict servers refuse in part), so rows kept per second are printed beside the plain ratio.
awk -v o="$ours" -v p="$peer" -v ok="$kept" -v pk="$peerKept" 'BEGIN {
    printf "  ratio (Tabulon / peer): %.2f\n", o / p
    printf "  rows kept per second: Tabulon %.0f, peer %.0f\n", ok / o, pk / p
}'
