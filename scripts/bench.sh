#!/usr/bin/env bash
# Times loading a million-row table into the table data window against the mariadb client
# reading the same table, and sets the program's peak memory against the table's data size.
# Builds Release in build-bench/, runs its own private server (no general log), stops it again.
#
#   scripts/bench.sh [ROWS]          environment: BENCH_DIR, BENCH_PORT, BENCH_RUNS
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
rows=${1:-1000000}
build="$root/build-bench"
dir=${BENCH_DIR:-$build/mariadb}
port=${BENCH_PORT:-13406}
runs=${BENCH_RUNS:-3}
db=tabulon_bench

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_tabledata -j"$(nproc)" >/dev/null

"$root/scripts/private-mariadb.sh" start "$dir" "$port"
trap '"$root/scripts/private-mariadb.sh" stop "$dir"' EXIT
client=(mariadb --no-defaults -h127.0.0.1 -P"$port" -udbop)

echo "generating $rows rows ..."
"${client[@]}" <<SQL
DROP DATABASE IF EXISTS $db;
CREATE DATABASE $db CHARACTER SET utf8mb4;
USE $db;
CREATE TABLE big (
  id INT NOT NULL PRIMARY KEY,
  qty SMALLINT,
  name VARCHAR(40),
  born DATE,
  price DECIMAL(10,2),
  note TEXT,
  code CHAR(8),
  ratio DOUBLE,
  stamp DATETIME,
  city VARCHAR(20)
) ENGINE=InnoDB;
INSERT INTO big
SELECT seq, seq % 1000, CONCAT('Client ', seq), DATE '1950-01-01' + INTERVAL (seq % 25000) DAY,
       (seq % 100000) / 100, IF(seq % 7 = 0, NULL, CONCAT('Remark ', REPEAT(CHAR(97 + seq % 26), seq % 40))),
       LPAD(HEX(seq), 8, '0'), seq / 7, TIMESTAMP '2000-01-01 00:00:00' + INTERVAL seq MINUTE,
       ELT(1 + seq % 5, 'Oslo', 'Rome', 'Lima', 'Quito', 'Ulaanbaatar')
FROM seq_1_to_$rows;
ANALYZE TABLE big;
SQL

best() { sort -n | head -1; }
load_ms=(); client_ms=(); out=""
for _ in $(seq 1 "$runs"); do
  out=$("$build/bench/bench_tabledata" "127.0.0.1:$port" "$db")
  load_ms+=("$(sed -n 's/^load_ms=//p' <<<"$out")")
  t0=$(date +%s%N)
  "${client[@]}" --batch -e "select * from big" "$db" >/dev/null
  t1=$(date +%s%N)
  client_ms+=("$(( (t1 - t0) / 1000000 ))")
done
echo "$out"

load=$(printf '%s\n' "${load_ms[@]}" | best)
cli=$(printf '%s\n' "${client_ms[@]}" | best)
peak_kb=$(sed -n 's/^peak_hwm_kb=//p' <<<"$out")
cells=$(sed -n 's/^cell_text_bytes=//p' <<<"$out")
data_length=$(sed -n 's/^data_length=//p' <<<"$out")
awk -v tload="$load" -v cli="$cli" -v peak="$peak_kb" -v cells="$cells" -v dl="$data_length" \
    -v loads="${load_ms[*]}" -v clis="${client_ms[*]}" 'BEGIN {
  printf "table data load: %d ms (runs: %s)\n", tload, loads
  printf "mariadb --batch: %d ms (runs: %s)\n", cli, clis
  printf "ratio load/client: %.2f (target <= 2)\n", tload / cli
  printf "peak memory (VmHWM): %.1f MiB\n", peak / 1024
  printf "cell text: %.1f MiB, peak/cell text: %.2f (target < 3)\n", cells / 1048576, peak * 1024 / cells
  printf "data_length: %.1f MiB, peak/data_length: %.2f\n", dl / 1048576, peak * 1024 / dl
}'
