#!/usr/bin/env bash
# Times the conversion of the Access sample against mdb-export -I mysql piped into the mariadb
# client (with mdb-schema's tables), both on one private server and in one session mode: the
# server's default mode without the strict modes, with NO_BACKSLASH_ESCAPES, the mode the
# conversion runs its statements in. Each side runs RUNS times (3 unless given); the rows kept
# are counted with COUNT(*) on every table, and the medians are printed. Builds Release in
# build-bench/.
#
#   scripts/bench-convert.sh [RUNS]       environment: BENCH_DIR, BENCH_PORT, BENCH_BUILD
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
runs=${1:-3}
build=${BENCH_BUILD:-$root/build-bench}
dir=${BENCH_DIR:-$build/mariadb-convert}
port=${BENCH_PORT:-13407}
mdb="$root/tests/fixtures/access/nwind.mdb"

command -v mdb-export >/dev/null || { echo "mdb-export is missing: apt-get install mdbtools" >&2; exit 1; }
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_convert -j2 >/dev/null

"$root/scripts/private-mariadb.sh" start "$dir" "$port"
trap '"$root/scripts/private-mariadb.sh" stop "$dir"' EXIT
client=(mariadb --no-defaults -h127.0.0.1 -P"$port" -udbop)

# The conversion's session mode, for the peer's client too.
mode=$("${client[@]}" -N -e "SELECT @@GLOBAL.sql_mode" |
    tr ',' '\n' | grep -v -x -e STRICT_TRANS_TABLES -e STRICT_ALL_TABLES -e NO_BACKSLASH_ESCAPES -e '' |
    { cat; echo NO_BACKSLASH_ESCAPES; } | paste -sd, -)
peerClient=("${client[@]}" --init-command="SET SESSION sql_mode='$mode'")

# Rows of every table of database $1, counted one by one.
count_rows() {
    local db=$1 sql
    sql=$("${client[@]}" -N -e "SET SESSION group_concat_max_len = 1048576; SELECT GROUP_CONCAT(CONCAT('SELECT COUNT(*) AS n FROM \`', table_schema, '\`.\`',
            table_name, '\`') SEPARATOR ' UNION ALL ') FROM information_schema.tables WHERE table_schema='$db'")
    [ "$sql" = "NULL" ] && { echo 0; return; }
    "${client[@]}" -N -e "SELECT SUM(n) FROM ($sql) AS counts"
}

median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

oursTimes=() oursKept=() peerTimes=() peerKept=()
for ((i = 0; i < runs; i++)); do
    read -r seconds _ _ _ < <("$build/bench/bench_convert" "127.0.0.1:$port" dbop "$mdb" 1)
    oursTimes+=("$seconds")
    oursKept+=("$(count_rows bench_convert_0)")

    db=bench_peer
    "${client[@]}" -e "DROP DATABASE IF EXISTS $db; CREATE DATABASE $db"
    start=$(date +%s.%N)
    mdb-schema "$mdb" mysql | "${peerClient[@]}" -f "$db" 2>/dev/null || true
    mdb-tables -1 "$mdb" | while IFS= read -r table; do
        mdb-export -I mysql "$mdb" "$table" | "${peerClient[@]}" -f --binary-mode "$db" 2>/dev/null || true
    done
    end=$(date +%s.%N)
    peerTimes+=("$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", b - a }')")
    peerKept+=("$(count_rows "$db")")
done

ours=$(printf '%s\n' "${oursTimes[@]}" | median)
peer=$(printf '%s\n' "${peerTimes[@]}" | median)
ok=$(printf '%s\n' "${oursKept[@]}" | median)
pk=$(printf '%s\n' "${peerKept[@]}" | median)
printf 'conversion of %s, median of %d runs, session mode %s\n' "$(basename "$mdb")" "$runs" "$mode"
printf '  Tabulon:              %7.2f s  (%s rows kept)\n' "$ours" "$ok"
printf '  mdb-export | mariadb: %7.2f s  (%s rows kept)\n' "$peer" "$pk"
# The conversion keeps fewer rows than the peer: the rows of a table whose name it changes are
# looked for under the new name. Rows kept per second are printed beside the plain ratio.
awk -v o="$ours" -v p="$peer" -v ok="$ok" -v pk="$pk" 'BEGIN {
    printf "  ratio (Tabulon / peer): %.2f\n", o / p
    printf "  rows kept per second: Tabulon %.0f, peer %.0f\n", ok / o, pk / p
}'
