#!/usr/bin/env bash
# Backs up and restores one generated table of each size through the backup logic, against
# mariadb-dump and the mariadb client on the same data (a dump made with --skip-extended-insert,
# so both restores send one INSERT per row), and prints the times, their ratios and the peak
# memory of each backup and restore. Builds Release in build-bench-backup/, runs a private server
# of its own (no general log) and stops it again.
#
# With --demo, backs up the whole demo database instead, RUNS times (BENCH_RUNS, 5), against
# `mariadb-dump --quick --skip-extended-insert | gzip -1` into a file, alternating the two, and
# prints the median, minimum and maximum of each side's elapsed time and peak memory (GNU time,
# whole processes).
#
#   scripts/bench-backup.sh [ROWS...]         default 500000 2000000
#   scripts/bench-backup.sh --demo [CLIENTS]  default 100000
#   environment: BENCH_PORT, BENCH_RUNS, BENCH_BUILD (build-bench-backup)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
demo=0
if [ "${1:-}" = --demo ]; then
  demo=1
  clients=${2:-100000}
  set --
fi
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(500000 2000000)
build=${BENCH_BUILD:-$root/build-bench-backup}
dir="$build/mariadb"
work="$build/work"
port=${BENCH_PORT:-13407}
runs=${BENCH_RUNS:-5}
db=tabulon_bench_backup
server="127.0.0.1:$port"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_backup tabulon-demodb -j"$(nproc)" >/dev/null

"$root/scripts/private-mariadb.sh" start "$dir" "$port"
trap '"$root/scripts/private-mariadb.sh" stop "$dir"' EXIT
client=(mariadb --no-defaults -h127.0.0.1 -P"$port" -udbop)
dump=(mariadb-dump --no-defaults -h127.0.0.1 -P"$port" -udbop --skip-extended-insert)
ms() { echo $(( ($(date +%s%N) - $1) / 1000000 )); }
field() { sed -n "s/^$1=//p" <<<"$2"; }

# spread FILE COLUMN: "median (min … max)" of one column of FILE
spread() {
  cut -d' ' -f"$2" "$1" | sort -n | awk '{ v[NR] = $1 } END { printf "%s (%s … %s)", v[int((NR + 1) / 2)], v[1], v[NR] }'
}

if [ "$demo" = 1 ]; then
  echo "generating the demo database ($clients clients) ..."
  "$build/src/tabulon-demodb" --server "$server" --user dbop --database "$db" --clients "$clients" --recreate --quiet
  list=$("${client[@]}" -N -e "SHOW Tables" "$db" | paste -sd,)
  rm -rf "$work"; mkdir -p "$work"
  peer_out="$work/dump.sql.gz"
  for run in $(seq "$runs"); do
    rm -rf "$work/archives"; mkdir -p "$work/archives"
    /usr/bin/time -f '%e %M' -o "$work/time" "$build/bench/bench_backup" backup "$server" "$db" "$list" \
      "$work/archives" >"$work/ours.out"
    echo "$(cat "$work/time") $(field read_ms "$(cat "$work/ours.out")")" >>"$work/ours"
    /usr/bin/time -f '%e %M' -o "$work/time" bash -c "${dump[*]} --quick $db | gzip -1 >$peer_out"
    cat "$work/time" >>"$work/peer"
    echo "run $run: ours $(tail -1 "$work/ours" | cut -d' ' -f1) s, peer $(cut -d' ' -f1 "$work/time") s"
  done
  archive=$(field archive "$(cat "$work/ours.out")")
  ours=$(cut -d' ' -f1 "$work/ours" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }')
  peer=$(cut -d' ' -f1 "$work/peer" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }')
  echo "demo database, $clients clients, $runs runs each (median (min … max)); the machine is shared, so the spread matters:"
  echo "  backup:                      $(spread "$work/ours" 1) s, peak $(spread "$work/ours" 2) KiB, last table read at $(spread "$work/ours" 3) ms"
  echo "  mariadb-dump --quick --skip-extended-insert | gzip -1 > $peer_out:"
  echo "                               $(spread "$work/peer" 1) s, peak of the shell $(spread "$work/peer" 2) KiB"
  awk -v o="$ours" -v p="$peer" 'BEGIN { printf "  ratio of the medians: %.2f (goal <= 0.7)\n", o / p }'
  echo "  archive $(stat -c %s "$archive") bytes, dump $(stat -c %s "$peer_out") bytes"
  exit 0
fi

report=()
peaks=()
for rows in "${sizes[@]}"; do
  echo "generating $rows rows ..."
  # Values the restore's quoting carries: no quotes in texts, no NULLs, no date-time stamps.
  "${client[@]}" <<SQL
DROP DATABASE IF EXISTS $db;
CREATE DATABASE $db CHARACTER SET utf8mb4;
USE $db;
CREATE TABLE big (
  id INT NOT NULL PRIMARY KEY,
  qty SMALLINT NOT NULL,
  name VARCHAR(40) NOT NULL,
  ratio DOUBLE NOT NULL,
  code CHAR(8) NOT NULL,
  city VARCHAR(20) NOT NULL,
  note VARCHAR(80) NOT NULL
) ENGINE=MyISAM;
INSERT INTO big
SELECT seq, seq % 1000, CONCAT('Client ', seq), seq / 8, LPAD(HEX(seq), 8, '0'),
       ELT(1 + seq % 5, 'Oslo', 'Rome', 'Lima', 'Quito', 'Ulaanbaatar'),
       CONCAT('Remark ', REPEAT(CHAR(97 + seq % 26), seq % 60))
FROM seq_1_to_$rows;
SQL
  before=$("${client[@]}" -N -e "CHECKSUM TABLE big" "$db" | cut -f2)
  rm -rf "$work"; mkdir -p "$work"

  out=$("$build/bench/bench_backup" backup "$server" "$db" big "$work")
  archive=$(field archive "$out"); backup_ms=$(field ms "$out"); backup_peak=$(field peak_kib "$out")
  t0=$(date +%s%N); "${dump[@]}" "$db" big >"$work/dump.sql"; dump_ms=$(ms "$t0")

  out=$("$build/bench/bench_backup" restore "$server" "$db" big "$archive")
  restore_ms=$(field ms "$out"); restore_peak=$(field peak_kib "$out")
  after=$("${client[@]}" -N -e "CHECKSUM TABLE big" "$db" | cut -f2)
  [ "$before" = "$after" ] || { echo "restored table differs ($before vs $after)" >&2; exit 1; }
  t0=$(date +%s%N); "${client[@]}" "$db" <"$work/dump.sql"; client_ms=$(ms "$t0")

  report+=("$(awk -v r="$rows" -v b="$backup_ms" -v d="$dump_ms" -v rs="$restore_ms" -v c="$client_ms" \
      -v bp="$backup_peak" -v rp="$restore_peak" -v size="$(stat -c %s "$archive")" 'BEGIN {
    printf "%d rows: backup %d ms vs mariadb-dump %d ms (ratio %.2f, target <= 1); ", r, b, d, b / d
    printf "restore %d ms vs mariadb < dump %d ms (ratio %.2f, target <= 1); ", rs, c, rs / c
    printf "peak memory backup %.1f MiB, restore %.1f MiB; archive %.1f MiB", bp / 1024, rp / 1024, size / 1048576
  }')")
  peaks+=("$backup_peak $restore_peak")
done
rm -rf "$work"

printf '%s\n' "${report[@]}"
if [ ${#peaks[@]} -ge 2 ]; then
  read -r b1 r1 <<<"${peaks[0]}"; read -r b2 r2 <<<"${peaks[-1]}"
  awk -v b1="$b1" -v b2="$b2" -v r1="$r1" -v r2="$r2" 'function d(a, b) { return (b > a ? b - a : a - b) * 100 / a }
  BEGIN {
    printf "peak growth from the smallest to the largest table: backup %.1f %%, restore %.1f %% (target < 10 %%, under 256 MiB)\n",
           d(b1, b2), d(r1, r2)
  }'
fi
