#!/usr/bin/env bash
# Times a search of all tables of the demo database (100,000 clients by default) through the
# search window against the mariadb client reading the same tables into grep, and prints both
# times, their ratio and the program's own processor time per statement. Builds Release in
# build-bench/, runs its own private server (no general log), stops it again.
#
#   scripts/bench-search.sh [CLIENTS] [VALUE]   environment: BENCH_DIR, BENCH_PORT, BENCH_BUILD
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
clients=${1:-100000}
value=${2:-C05000}
build=${BENCH_BUILD:-$root/build-bench}
dir=${BENCH_DIR:-$build/mariadb-search}
port=${BENCH_PORT:-13407}
db=tabulon_bench_search

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_search tabulon-demodb -j"$(nproc)" >/dev/null

"$root/scripts/private-mariadb.sh" start "$dir" "$port"
trap '"$root/scripts/private-mariadb.sh" stop "$dir"' EXIT
client=(mariadb --no-defaults -h127.0.0.1 -P"$port" -udbop)

"$build/src/tabulon-demodb" --server "127.0.0.1:$port" --user dbop --database "$db" --clients "$clients" --quiet

out=$("$build/bench/bench_search" "127.0.0.1:$port" "$db" "$value")
echo "$out"

# The same tables, in the same order, each read whole by the client and filtered by grep.
mapfile -t tables < <("${client[@]}" --batch --skip-column-names -e "SHOW Tables" "$db")
t0=$(date +%s%N)
matched=0
for t in "${tables[@]}"; do
  n=$("${client[@]}" --batch -e "select * from \`$t\`" "$db" | grep -cF -- "$value" || true)
  [ "$n" -gt 0 ] && matched=$((matched + 1))
done
t1=$(date +%s%N)
client_ms=$(( (t1 - t0) / 1000000 ))

search_ms=$(sed -n 's/^search_ms=//p' <<<"$out")
cpu_ms=$(sed -n 's/^program_cpu_ms=//p' <<<"$out")
awk -v s="$search_ms" -v c="$client_ms" -v cpu="$cpu_ms" -v m="$matched" -v n="${#tables[@]}" 'BEGIN {
  printf "search, all tables: %d ms\n", s
  printf "mariadb --batch | grep -F: %d ms (%d of %d tables matched)\n", c, m, n
  printf "ratio search/client: %.2f\n", s / c
  printf "program processor time: %d ms, %.1f%% of the search\n", cpu, 100 * cpu / s
}'
