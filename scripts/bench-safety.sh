#!/usr/bin/env bash
# Times Save Table of a generated table through the table data window with and without its
# safety copy, the copy alone, and a put-back of the copy, on a private server of its own (no
# general log), and prints the figures. Builds Release in build/ (or $BENCH_BUILD).
#
#   scripts/bench-safety.sh [ROWS]      default 100000; environment: BENCH_PORT, BENCH_BUILD
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
rows=${1:-100000}
build=${BENCH_BUILD:-"$root/build"}
port=${BENCH_PORT:-13408}
work=$(mktemp -d)
dir="$work/mariadb"
db=tabulon_bench_safety
server="127.0.0.1:$port"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_safety -j2 >/dev/null

"$root/scripts/private-mariadb.sh" start "$dir" "$port" >/dev/null
trap '"$root/scripts/private-mariadb.sh" stop "$dir" >/dev/null; rm -rf "$work"' EXIT
client=(mariadb --no-defaults -h127.0.0.1 -P"$port" -udbop)

# Values Save Table writes back unchanged: no quotes, no NULLs, no binary bytes.
"${client[@]}" <<SQL
DROP DATABASE IF EXISTS $db;
CREATE DATABASE $db CHARACTER SET utf8mb4;
USE $db;
CREATE TABLE big (
  id INT NOT NULL PRIMARY KEY,
  qty SMALLINT NOT NULL,
  name VARCHAR(40) NOT NULL,
  price DECIMAL(10,2) NOT NULL,
  code CHAR(8) NOT NULL,
  city VARCHAR(20) NOT NULL,
  note VARCHAR(80) NOT NULL
) ENGINE=MyISAM;
INSERT INTO big
SELECT seq, seq % 1000, CONCAT('Client ', seq), (seq % 100000) / 100, LPAD(HEX(seq), 8, '0'),
       ELT(1 + seq % 5, 'Oslo', 'Rome', 'Lima', 'Quito', 'Ulaanbaatar'),
       CONCAT('Remark ', REPEAT(CHAR(97 + seq % 26), seq % 60))
FROM seq_1_to_$rows;
SQL
before=$("${client[@]}" -N -e "CHECKSUM TABLE big" "$db" | cut -f2)

out=$("$build/bench/bench_safety" "$server" "$db" big "$work")
after=$("${client[@]}" -N -e "CHECKSUM TABLE big" "$db" | cut -f2)
field() { sed -n "s/^$1=//p" <<<"$out"; }

plain=$(field save_plain_ms); with=$(field save_with_copy_ms); copy=$(field copy_ms)
echo "rows:                      $(field rows)"
echo "Save Table without copy:   $plain ms"
echo "Save Table with its copy:  $with ms"
echo "copy alone:                $copy ms ($(( $(field copy_bytes) / 1024 )) KiB on disk)"
echo "put-back:                  $(field putback_ms) ms"
awk -v c="$copy" -v p="$plain" 'BEGIN { printf "copy / write:              %.3f\n", (p > 0 ? c / p : 0) }'
[ "$before" = "$after" ] && echo "table after put-back:      equal (checksum $after)" ||
  { echo "table after put-back differs: $before against $after"; exit 1; }
