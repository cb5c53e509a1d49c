#!/usr/bin/env bash
# Runs every benchmark in one go and writes one report: builds Release in build/, starts
# one private MariaDB server (no general log), generates the demo database and a table of a
# million rows and ten columns, and times each piece of work against a peer tool on the same
# data in the same run. Every time is the median of RUNS runs, and both sides are timed the
# same way: as whole processes, by GNU time, which also gives the peak memory (maximum resident
# set) of the process. The report goes to stdout and to docs/benchmarks.md.
#
#   scripts/bench-all.sh          every row below
#   scripts/bench-all.sh --big    only the grid, on a table of ten million rows (BENCH_BIG_ROWS),
#                                 with the load that never pauses for the window beside it, the
#                                 longest the window waited, and a stop by Escape half-way;
#                                 report in docs/benchmarks-big.md
#   scripts/bench-all.sh --far    only the far server: Save Table and the restore of one table of
#                                 BENCH_FAR_ROWS rows (2000) through bench/delayproxy.py at
#                                 BENCH_FAR_RTT milliseconds of round trip (20), against the same
#                                 work on the server directly and against the peers through the
#                                 same proxy; report in docs/benchmarks-far.md. The proxy listens
#                                 on BENCH_FAR_PORT (BENCH_PORT + 1000).
#
# Environment: BENCH_CLIENTS (demo clients, 100000), BENCH_ROWS (grid table rows, 1000000),
# BENCH_SAVE_ROWS (Save Table rows, 100000), BENCH_RUNS (3), BENCH_SLOW_RUNS (runs of backup and
# restore, which take minutes each on a small machine; BENCH_RUNS), BENCH_PORT (13408), BENCH_BUILD
# (build, where the test command builds), BENCH_REPORT (docs/benchmarks.md; "-" for stdout only), BENCH_ONLY (a comma
# list of grid, search, backup, convert, save, exact: only those rows).
set -euo pipefail
exec </dev/null

big=0
case ${1:-} in
  --big) big=1 ;;
  --far | "") ;;
  *) echo "usage: bench-all.sh [--big | --far]" >&2; exit 2 ;;
esac
root=$(cd "$(dirname "$0")/.." && pwd)
clients=${BENCH_CLIENTS:-100000}
rows=${BENCH_ROWS:-1000000}
if [ "$big" = 1 ]; then
  rows=${BENCH_BIG_ROWS:-10000000}
  BENCH_ONLY=grid
  BENCH_REPORT=${BENCH_REPORT:-$root/docs/benchmarks-big.md}
fi
save_rows=${BENCH_SAVE_ROWS:-100000}
runs=${BENCH_RUNS:-3}
slow_runs=${BENCH_SLOW_RUNS:-$runs}
port=${BENCH_PORT:-13408}
build=${BENCH_BUILD:-$root/build}
report_file=${BENCH_REPORT:-$root/docs/benchmarks.md}
only=${BENCH_ONLY:-grid,search,backup,convert,save,exact}
far_rows=${BENCH_FAR_ROWS:-2000}
far_rtt=${BENCH_FAR_RTT:-20}
if [ "${1:-}" = --far ]; then
  only=far
  report_file=${BENCH_REPORT:-$root/docs/benchmarks-far.md}
fi
server="127.0.0.1:$port"
mdb="$root/tests/fixtures/access/nwind.mdb"
demo_db=tabulon_bench_demo
grid_db=tabulon_bench_grid
save_db=tabulon_bench_save
sort_field=note

say() { printf '==> %s\n' "$*" >&2; }
wanted() { [[ ",$only," == *",$1,"* ]]; }

say "checking packages"
bash "$root/scripts/install-deps.sh"

say "building Release in $build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
targets=(bench_tabledata bench_wire bench_search bench_backup bench_convert bench_savetable bench_exactcheck
  tabulon-demodb)
[ "$big" = 1 ] && targets=(bench_tabledata bench_wire)
cmake --build "$build" -j"$(nproc)" --target "${targets[@]}" >/dev/null

work=$(mktemp -d "${TMPDIR:-/tmp}/tabulon-bench.XXXXXX")
dbdir="$work/mariadb"
cleanup() {
  bash "$root/scripts/private-mariadb.sh" stop "$dbdir" >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT
bash "$root/scripts/private-mariadb.sh" start "$dbdir" "$port" >&2
client=(mariadb --no-defaults -h127.0.0.1 -P"$port" -udbop)
export client_cmd="mariadb --no-defaults -h127.0.0.1 -P$port -udbop"
durability=$("${client[@]}" -N -e 'SELECT @@innodb_flush_log_at_trx_commit')
sync_binlog=$("${client[@]}" -N -e 'SELECT @@sync_binlog')

# ---- Timing ----

# timed OUT CMD...: runs CMD as a whole process under GNU time; appends "seconds peak_kib
# processor_seconds" to OUT and the command's stdout to OUT.stdout. A failing command ends the run.
timed() {
  local out=$1
  shift
  if ! /usr/bin/time -f '%e %M %U %S' -o "$work/time" "$@" >"$out.stdout" 2>"$work/stderr"; then
    cat "$work/stderr" >&2
    echo "bench-all.sh: failed: $*" >&2
    exit 1
  fi
  tail -1 "$work/time" | awk '{ printf "%s %s %.2f\n", $1, $2, $3 + $4 }' >>"$out"
  cat "$out.stdout" >>"$out.all"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
seconds_of() { cut -d' ' -f1 <"$1" | median; }
peak_of() { cut -d' ' -f2 <"$1" | median; }
cpu_of() { cut -d' ' -f3 <"$1" | median; }
# stat_of FILE KEY: the median of KEY=VALUE lines a benchmark program printed over its runs
stat_of() { sed -n "s/^$2=//p" "$1.all" | median; }
ratio_of() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }'; }

value_bytes() { # DATABASE TABLE: bytes of every value as text (NULLs count nothing)
  local expr
  expr=$("${client[@]}" -N -e "SELECT GROUP_CONCAT(CONCAT('IFNULL(LENGTH(\`', column_name, '\`),0)') SEPARATOR '+')
      FROM information_schema.columns WHERE table_schema = '$1' AND table_name = '$2'")
  "${client[@]}" -N -e "SELECT SUM($expr) FROM \`$1\`.\`$2\`"
}
database_bytes() { # DATABASE
  local total=0 t n
  while IFS= read -r t; do
    n=$(value_bytes "$1" "$t")
    total=$((total + ${n:-0}))
  done < <("${client[@]}" -N -e "SHOW Tables" "$1")
  echo "$total"
}
# held_by DATABASE VALUE: "table (n rows)" for each table where some column equals VALUE, compared
# quoted and, for a number, bare as well: both forms the search sends.
held_by() {
  local bare="" t cond n
  [[ $2 =~ ^-?[0-9]+(\.[0-9]+)?$ ]] && bare=", ' OR \`', column_name, '\` = $2'"
  "${client[@]}" -N -e "SET SESSION group_concat_max_len = 1000000;
      SELECT table_name, GROUP_CONCAT(CONCAT('\`', column_name, '\` = ''$2''' $bare) SEPARATOR ' OR ')
      FROM information_schema.columns WHERE table_schema = '$1' GROUP BY table_name" |
    while IFS=$'\t' read -r t cond; do
      n=$("${client[@]}" -N -e "SELECT COUNT(*) FROM \`$t\` WHERE $cond" "$1")
      [ "$n" = 0 ] || echo "$t ($n rows)"
    done
}
mib() { awk -v b="$1" 'BEGIN { printf "%.1f MiB", b / 1048576 }'; }

rows_md=()
notes=()
# row WORK OURS_FILE PEER PEER_FILE GOAL DATA_BYTES [RATIO]: RATIO replaces the plain time ratio
row() {
  local ours peer ratio peak
  ours=$(seconds_of "$2")
  peer=$(seconds_of "$4")
  peak=$(peak_of "$2")
  ratio=${7:-$(awk -v a="$ours" -v b="$peer" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }')}
  rows_md+=("| $1 | $ours s | ${3//|/\\|} | $peer s | $ratio | $5 | $(mib $((peak * 1024))) | $(mib "$6") |")
  say "$1: $ours s against $peer s ($ratio)"
}

# ---- Data ----

demo_tables=()
if wanted search || wanted backup; then
  say "generating the demo database ($clients clients)"
  "$build/src/tabulon-demodb" --server "$server" --user dbop --database "$demo_db" --clients "$clients" --recreate --quiet
  mapfile -t demo_tables < <("${client[@]}" -N -e "SHOW Tables" "$demo_db")
fi

# ---- Report ----

# Written after every section, so that a run cut short still leaves the rows it measured.
write_report() {
  cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1)
  mem=$(awk '/^MemTotal/ { printf "%.1f GiB", $2 / 1048576 }' /proc/meminfo)
  {
    echo "# Benchmarks"
    echo
    echo "Made by \`scripts/bench-all.sh\` on $(date -u '+%Y-%m-%d %H:%M UTC')."
    echo
    echo "Machine: $cpu, $(nproc) cores, $mem memory; $(. /etc/os-release && echo "$PRETTY_NAME"),"
    echo "$(uname -sr); MariaDB $(mariadb --version | grep -o '[0-9.]*-MariaDB' | head -1); load average at the end $(cut -d' ' -f1-3 /proc/loadavg)."
    echo
    echo "Each time is the median of $runs runs (backup and restore: $slow_runs) of a whole process (GNU time's elapsed time), Tabulon's"
    echo "benchmark programs and the peer tools alike, on the same data in the same run. The ratio is"
    echo "Tabulon's time over the peer's. Peak memory is the largest resident set of Tabulon's process."
    echo "Data size is the bytes of every value as text. Every peer writes its output to a file in the run's"
    echo "work folder, not to /dev/null: the grid, sort, Save Table, search and restore peers to load.peer.stdout,"
    echo "sort.peer.stdout, save.peer.stdout, search.peer.stdout and restore.peer.stdout, the backup peer to"
    echo "dump.sql.gz, and the conversion peer its errors to convert.peer.errors."
    echo "The server keeps its default durability: innodb_flush_log_at_trx_commit=$durability,"
    echo "sync_binlog=$sync_binlog, as the server has them: every InnoDB commit is flushed to disk, as on an operator's server."
    echo
    echo "| Work | Tabulon | Peer | Peer time | Ratio | Goal | Tabulon peak memory | Data size |"
    echo "|---|---:|---|---:|---:|---|---:|---:|"
    printf '%s\n' "${rows_md[@]}"
    echo
    for n in "${notes[@]}"; do
      echo "- $n"
    done
  } >"$work/report.md"
  cat "$work/report.md"
  if [ "$report_file" != "-" ]; then
    mkdir -p "$(dirname "$report_file")"
    cp "$work/report.md" "$report_file"
    say "report written to $report_file"
  fi
}

# ---- Grid: load and sort ----

if wanted grid; then
  say "generating $rows rows of ten columns"
  "${client[@]}" >/dev/null <<SQL
DROP DATABASE IF EXISTS $grid_db;
CREATE DATABASE $grid_db CHARACTER SET utf8mb4;
USE $grid_db;
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
  grid_bytes=$(value_bytes "$grid_db" big)
  sort_col=$("${client[@]}" -N -e "SELECT ordinal_position FROM information_schema.columns
      WHERE table_schema = '$grid_db' AND table_name = 'big' AND column_name = '$sort_field'")
  "${client[@]}" --batch --quick -e "select * from big" "$grid_db" >"$work/big.tsv"
  for _ in $(seq "$runs"); do
    timed "$work/load.ours" "$build/bench/bench_tabledata" "$server" "$grid_db"
    timed "$work/load.peer" "${client[@]}" --batch --quick -e "select * from big" "$grid_db"
    timed "$work/load.wire" "$build/bench/bench_wire" "$server" "$grid_db" big
    timed "$work/sort.ours" "$build/bench/bench_tabledata" "$server" "$grid_db" "$sort_field"
    timed "$work/sort.peer" bash -c "$client_cmd --batch --quick -e 'select * from big' $grid_db \
      | LC_ALL=C sort -t \$'\\t' -k$sort_col,$sort_col"
    timed "$work/sort.alone" bash -c "LC_ALL=C sort -t \$'\\t' -k$sort_col,$sort_col $work/big.tsv"
    if [ "$big" = 1 ]; then
      timed "$work/load.still" "$build/bench/bench_tabledata" --no-yield "$server" "$grid_db"
    fi
  done
  if [ "$big" = 1 ]; then
    half_ms=$(( $(stat_of "$work/load.ours" load_ms) / 2 ))
    timed "$work/load.stop" "$build/bench/bench_tabledata" --stop-after "$half_ms" "$server" "$grid_db"
  fi
  row "Grid load, $rows rows × 10 columns" "$work/load.ours" 'mariadb --batch --quick > file' \
    "$work/load.peer" "≤ 0.5, memory ≤ 1.5 × data" "$grid_bytes"
  row "Grid load and sort by a text column" "$work/sort.ours" '… | LC_ALL=C sort' \
    "$work/sort.peer" "≤ 0.5, memory ≤ 1.5 × data" "$grid_bytes"
  wire=$(seconds_of "$work/load.wire")
  load_cpu=$(cpu_of "$work/load.ours")
  client_cpu=$(cpu_of "$work/load.peer")
  sort_ms=$(stat_of "$work/sort.ours" sort_ms)
  sort_alone=$(seconds_of "$work/sort.alone")
  own_load=$(( $(stat_of "$work/load.ours" load_hwm_kb) - $(stat_of "$work/load.ours" baseline_hwm_kb) ))
  own_sort=$(( $(stat_of "$work/sort.ours" peak_hwm_kb) - $(stat_of "$work/sort.ours" baseline_hwm_kb) ))
  floor=$(ratio_of "$wire" "$(seconds_of "$work/load.peer")")
  if awk -v f="$floor" 'BEGIN { exit !(f > 0.5) }'; then
    bound="the server producing the rows is the bottleneck of both sides on this machine, so no reader's elapsed time can reach 0.5 × the client's here"
  else
    bound="the rest of the client's time is its own work"
  fi
  notes+=("Grid load: the floor, every row read through the session and kept nowhere (\`bench_wire\`), takes\
 $wire s, $floor × the client: $bound. Processor time of the\
 process: Tabulon $load_cpu s (window, storage and Qt included), the client $client_cpu s\
 ($(ratio_of "$load_cpu" "$client_cpu") ×).")
  notes+=("Grid memory: the whole process peaks at $(awk -v p="$(peak_of "$work/load.ours")" -v d="$grid_bytes" \
    'BEGIN { printf "%.2f", p * 1024 / d }') × the data after the load and $(awk -v p="$(peak_of "$work/sort.ours")" \
    -v d="$grid_bytes" 'BEGIN { printf "%.2f", p * 1024 / d }') × after the sort, Qt and the connection included; the grid's\
 own part (the peak less the process's peak before the load, $(mib $(( $(stat_of "$work/load.ours" baseline_hwm_kb) * 1024 ))))\
 is $(awk -v p="$own_load" -v d="$grid_bytes" 'BEGIN { printf "%.2f", p * 1024 / d }') × after the load and\
 $(awk -v p="$own_sort" -v d="$grid_bytes" 'BEGIN { printf "%.2f", p * 1024 / d }') × after the sort (goal ≤ 1.5).")
  notes+=("Grid sort by \`$sort_field\`: inside the process the sort (with the row numbers written again after it) takes\
 $sort_ms ms against $sort_alone s for \`LC_ALL=C sort\` over the same rows already in a file\
 ($(ratio_of "$(awk -v m="$sort_ms" 'BEGIN { print m / 1000 }')" "$sort_alone") ×); load and sort together are bounded by\
 the load above. Inside the process the load takes $(stat_of "$work/load.ours" load_ms) ms.")
  if [ "$big" = 1 ]; then
    row "Grid load that never pauses for the window" "$work/load.still" 'mariadb --batch --quick > /dev/null' \
      "$work/load.peer" "—" "$grid_bytes"
    min_max() { cut -d' ' -f1 <"$1" | sort -n | awk 'NR == 1 { lo = $1 } { hi = $1 } END { printf "%s–%s s", lo, hi }'; }
    notes+=("Grid load with the window alive: it pauses for the window every 25 ms; the longest the event loop waited\
 was $(sed -n 's/^max_block_ms=//p' "$work/load.ours.all" | sort -n | tail -1) ms over $runs runs (a timer inside the\
 benchmark, flushes and the final steps included; goal ≤ 100 ms). Elapsed: $(seconds_of "$work/load.ours") s\
 ($(min_max "$work/load.ours")) against $(seconds_of "$work/load.still") s ($(min_max "$work/load.still")) for\
 the load that never pauses: $(ratio_of "$(seconds_of "$work/load.ours")" "$(seconds_of "$work/load.still")") × (goal ≤ 1.05).\
 Escape after $half_ms ms kept $(sed -n 's/^rows=//p' "$work/load.stop.stdout") rows and the load ended\
 $(sed -n 's/^stop_ms=//p' "$work/load.stop.stdout") ms after the key.")
  fi
  "${client[@]}" -e "DROP DATABASE $grid_db"
fi

write_report >/dev/null

# ---- Save Table ----

# make_save_table [DB ROWS]: the table Save Table, the exact-value check's rows and the far
# server's rows rewrite ("saved", in a database of its own; save_db and save_rows by default).
make_save_table() {
  local db=${1:-$save_db} rows=${2:-$save_rows}
  "${client[@]}" >/dev/null <<SQL
DROP DATABASE IF EXISTS $db;
CREATE DATABASE $db CHARACTER SET utf8mb4;
USE $db;
CREATE TABLE saved (
  id INT NOT NULL PRIMARY KEY,
  qty SMALLINT NOT NULL,
  name VARCHAR(40) NOT NULL,
  code CHAR(8) NOT NULL,
  city VARCHAR(20) NOT NULL,
  note VARCHAR(80) NOT NULL
) ENGINE=InnoDB;
INSERT INTO saved
SELECT seq, seq % 1000, CONCAT('Client ', seq), LPAD(HEX(seq), 8, '0'),
       ELT(1 + seq % 5, 'Oslo', 'Rome', 'Lima', 'Quito', 'Ulaanbaatar'),
       CONCAT('Remark ', REPEAT(CHAR(97 + seq % 26), seq % 60))
FROM seq_1_to_$rows;
SQL
  [ "$db" != "$save_db" ] || save_bytes=$(value_bytes "$save_db" saved)
}

if wanted save; then
  make_save_table
  { echo "DELETE FROM saved;"
    mariadb-dump --no-defaults -h127.0.0.1 -P"$port" -udbop --skip-extended-insert --no-create-info \
      --skip-add-locks --skip-disable-keys --compact "$save_db" saved; } >"$work/save.sql"
  for _ in $(seq "$runs"); do
    timed "$work/save.ours" "$build/bench/bench_savetable" "$server" "$save_db" saved plain
    timed "$work/save.peer" bash -c "$client_cmd --batch --quick -e 'select * from saved' $save_db; \
      $client_cmd $save_db <$work/save.sql; $client_cmd --batch --quick -e 'select * from saved' $save_db"
  done
  row "Save Table, $save_rows rows" "$work/save.ours" 'read, DELETE and INSERTs through mariadb, read' \
    "$work/save.peer" "—" "$save_bytes"
  notes+=("Save Table: both sides read the table, delete it, insert every row with one statement each and read it\
 back; inside the process the rewrite took $(sed -n 's/^ms=//p' "$work/save.ours.stdout") ms (last run).")
  if "$build/bench/bench_savetable" "$server" "$save_db" saved safety >"$work/safety.stdout" 2>&1; then
    rm -f "$work/safety.ours"
    for _ in $(seq "$runs"); do
      timed "$work/safety.ours" "$build/bench/bench_savetable" "$server" "$save_db" saved safety
    done
    row "Save Table with its safety copy" "$work/safety.ours" 'as above' "$work/save.peer" "—" "$save_bytes"
  else
    rows_md+=("| Save Table with its safety copy | failed: $(tail -1 "$work/safety.stdout") | | | | | | |")
  fi
fi

write_report >/dev/null

# ---- The exact-value check before the first write ----

if wanted exact; then
  wanted save || make_save_table
  exact_runs=$(( runs < 5 ? 5 : runs ))
  timed "$work/exact.ours" "$build/bench/bench_exactcheck" "$server" "$save_db" saved "$exact_runs"
  for work_name in save restore; do
    on=$(stat_of "$work/exact.ours" "${work_name}_on_ms")
    off=$(stat_of "$work/exact.ours" "${work_name}_off_ms")
    label=$([ "$work_name" = save ] && echo "Save Table" || echo "Table restore")
    rows_md+=("| $label with the exact-value check, $save_rows rows | $(awk -v m="$on" 'BEGIN { printf "%.2f", m / 1000 }') s\
 | the same without the check | $(awk -v m="$off" 'BEGIN { printf "%.2f", m / 1000 }') s\
 | $(stat_of "$work/exact.ours" "${work_name}_ratio") | ≤ 1.05 | $(mib $(($(peak_of "$work/exact.ours") * 1024)))\
 | $(mib "$save_bytes") |")
    notes+=("$label, check on against off ($exact_runs runs each inside one process, alternating): with the check\
 median $on ms (least $(stat_of "$work/exact.ours" "${work_name}_on_min_ms"), most\
 $(stat_of "$work/exact.ours" "${work_name}_on_max_ms")), without it $off ms (least\
 $(stat_of "$work/exact.ours" "${work_name}_off_min_ms"), most $(stat_of "$work/exact.ours" "${work_name}_off_max_ms")).\
 The process's own processor time: $(stat_of "$work/exact.ours" "${work_name}_cpu_on_ms") ms with the check against\
 $(stat_of "$work/exact.ours" "${work_name}_cpu_off_ms") ms without it ($(stat_of "$work/exact.ours" "${work_name}_cpu_ratio")).")
  done
fi

write_report >/dev/null

# ---- Conversion of the sample Access file ----

if wanted convert; then
  command -v mdb-export >/dev/null || { echo "mdb-export is missing: apt-get install mdbtools" >&2; exit 1; }
  count_rows() { # DATABASE: rows of every table, counted
    local total=0 t n
    while IFS= read -r t; do
      n=$("${client[@]}" -N -e "SELECT COUNT(*) FROM \`$t\`" "$1")
      total=$((total + n))
    done < <("${client[@]}" -N -e "SHOW Tables" "$1")
    echo "$total"
  }
  peer_script="$work/convert-peer.sh"
  cat >"$peer_script" <<EOF
$client_cmd -e 'DROP DATABASE IF EXISTS bench_peer; CREATE DATABASE bench_peer'
mdb-schema '$mdb' mysql | $client_cmd -f bench_peer 2>>'$work/convert.peer.errors' || true
mdb-tables -1 '$mdb' | while IFS= read -r table; do
  mdb-export -I mysql '$mdb' "\$table" | $client_cmd -f --binary-mode bench_peer 2>>'$work/convert.peer.errors' || true
done
EOF
  for _ in $(seq "$runs"); do
    timed "$work/convert.ours" "$build/bench/bench_convert" "$server" dbop "$mdb" 1
    timed "$work/convert.peer" bash "$peer_script"
  done
  kept_ours=$(count_rows bench_convert_0)
  kept_peer=$(count_rows bench_peer)
  ours=$(seconds_of "$work/convert.ours")
  peer=$(seconds_of "$work/convert.peer")
  per_row=$(awk -v o="$ours" -v p="$peer" -v ko="$kept_ours" -v kp="$kept_peer" \
    'BEGIN { printf "%.2f", ((ko > 0 && kp > 0 && p > 0) ? (o / ko) / (p / kp) : 0) }')
  row "Conversion of $(basename "$mdb")" "$work/convert.ours" 'mdb-schema, mdb-export -I mysql | mariadb' \
    "$work/convert.peer" "≤ 1.0 per row kept" "$(stat -c %s "$mdb")" "$per_row per row kept"
  notes+=("Conversion: $kept_ours rows kept against the peer's $kept_peer (counted with COUNT(*)); time per row\
 kept against the peer's: $per_row. Both on the same server in its default session mode.")
  "${client[@]}" -e "DROP DATABASE IF EXISTS bench_convert_0; DROP DATABASE IF EXISTS bench_peer"
fi

write_report >/dev/null

# ---- Search of all tables ----

if wanted search; then
  demo_bytes=${demo_bytes:-$(database_bytes "$demo_db")}
  # A number: the search compares it bare with numeric columns and quoted with the others, and
  # the server reads a quoted text as the number 0 against a BIGINT, so no text would do.
  unheld=-987654.321
  held=$(held_by "$demo_db" "$unheld")
  [ -z "$held" ] || { echo "bench-all.sh: $unheld is held by: $held" >&2; exit 1; }
  for value in "$unheld" C05000; do
    rm -f "$work/search.ours" "$work/search.peer"
    loop="for t in ${demo_tables[*]}; do $client_cmd --batch --quick -e \"select * from \\\`\$t\\\`\" $demo_db \
      | grep -cF -- '$value' || true; done"
    for _ in $(seq "$runs"); do
      timed "$work/search.ours" "$build/bench/bench_search" "$server" "$demo_db" "$value"
      timed "$work/search.peer" bash -c "$loop"
    done
    case $value in C*) what="a client code ($value)" ;; *) what="a value no table holds ($value)" ;; esac
    row "Search all tables for $what" "$work/search.ours" 'mariadb --batch --quick | grep -cF > file, per table' \
      "$work/search.peer" "≤ 1.0" "$demo_bytes"
    out="$work/search.ours.stdout"
    notes+=("Search for $what: $(sed -n 's/^statements=//p' "$out") statements, $(sed -n 's/^hits=//p' "$out" | awk '{ print $1, ($1 == 1 ? "hit" : "hits") }');\
 the program's own processor time was $(sed -n 's/^program_cpu_ms=//p' "$out") ms of a\
 $(sed -n 's/^search_ms=//p' "$out") ms search ($(awk -v c="$(sed -n 's/^program_cpu_ms=//p' "$out")" \
      -v s="$(sed -n 's/^search_ms=//p' "$out")" 'BEGIN { printf "%.1f", (s > 0 ? 100 * c / s : 0) }') %, goal < 5 %);\
 the peer's grep counted $(awk '{ n += $1 } END { print n + 0 }' "$work/search.peer.stdout") matching lines.")
  done
fi

write_report >/dev/null

# ---- A far server ----

if wanted far; then
  far_db=tabulon_bench_far
  proxy_port=${BENCH_FAR_PORT:-$((port + 1000))}
  python3 "$root/bench/delayproxy.py" "$proxy_port" "$port" "$far_rtt" &
  proxy_pid=$!
  trap 'kill "$proxy_pid" 2>/dev/null || true; cleanup' EXIT
  far_server="127.0.0.1:$proxy_port"
  far_client="mariadb --no-defaults -h127.0.0.1 -P$proxy_port -udbop"
  # The proxy is up when the server answers through it (and it is ours, not another server's).
  for _ in $(seq 1 50); do
    [ "$($far_client -N -e 'SELECT @@port' 2>/dev/null)" = "$port" ] && break
    sleep 0.2
  done
  [ "$($far_client -N -e 'SELECT @@port' 2>/dev/null)" = "$port" ] || { echo "bench-all.sh: the proxy did not start" >&2; exit 1; }
  make_save_table "$far_db" "$far_rows"
  far_bytes=$(value_bytes "$far_db" saved)
  # The peers: the client running the same delete and one INSERT per row, and the client
  # reading a dump of one INSERT per row (which recreates the table).
  { echo "DELETE FROM saved;"
    mariadb-dump --no-defaults -h127.0.0.1 -P"$port" -udbop --skip-extended-insert --no-create-info \
      --skip-add-locks --skip-disable-keys --compact "$far_db" saved; } >"$work/far-save.sql"
  mariadb-dump --no-defaults -h127.0.0.1 -P"$port" -udbop --skip-extended-insert "$far_db" saved >"$work/far-dump.sql"
  mkdir -p "$work/far-archives"
  "$build/bench/bench_backup" backup "$server" "$far_db" saved "$work/far-archives" >"$work/far-backup.stdout"
  far_archive=$(sed -n 's/^archive=//p' "$work/far-backup.stdout")
  read_back="$client_cmd --batch --quick -e 'select * from saved' $far_db >/dev/null"
  far_read_back="$far_client --batch --quick -e 'select * from saved' $far_db >/dev/null"
  for _ in $(seq "$runs"); do
    timed "$work/far-save.local" "$build/bench/bench_savetable" "$server" "$far_db" saved plain
    timed "$work/far-save.ours" "$build/bench/bench_savetable" "$far_server" "$far_db" saved plain
    timed "$work/far-save.peer" bash -c "$far_read_back; $far_client $far_db <$work/far-save.sql; $far_read_back"
    timed "$work/far-restore.local" "$build/bench/bench_backup" restore "$server" "$far_db" saved "$far_archive"
    timed "$work/far-restore.ours" "$build/bench/bench_backup" restore "$far_server" "$far_db" saved "$far_archive"
    timed "$work/far-restore.peer" bash -c "$far_client $far_db <$work/far-dump.sql"
  done
  # Goal: at most twice the local time plus a second, and ahead of the peer on the same link.
  far_goal() {
    local local_s ours_s peer_s
    local_s=$(seconds_of "$1")
    ours_s=$(seconds_of "$2")
    peer_s=$(seconds_of "$3")
    awk -v l="$local_s" -v o="$ours_s" -v p="$peer_s" 'BEGIN {
      b = 2 * l + 1; printf "≤ 2 × local (%.2f s) + 1 s = %.2f s: %s; ahead of the peer: %s", l, b,
      (o <= b ? "met" : "not met"), (o < p ? "yes" : "no") }'
  }
  row "Save Table, $far_rows rows, ${far_rtt} ms away" "$work/far-save.ours" \
    'read, DELETE and INSERTs through mariadb, read, through the same proxy' "$work/far-save.peer" \
    "$(far_goal "$work/far-save.local" "$work/far-save.ours" "$work/far-save.peer")" "$far_bytes"
  row "Restore of $far_rows rows, ${far_rtt} ms away" "$work/far-restore.ours" \
    'mariadb < mariadb-dump --skip-extended-insert, through the same proxy' "$work/far-restore.peer" \
    "$(far_goal "$work/far-restore.local" "$work/far-restore.ours" "$work/far-restore.peer")" "$far_bytes"
  notes+=("Far server: bench/delayproxy.py holds every chunk ${far_rtt}/2 ms in each direction, on this machine.\
 The same work straight to the server took $(seconds_of "$work/far-save.local") s (Save Table) and\
 $(seconds_of "$work/far-restore.local") s (restore). Through the proxy the program measures a round trip of a\
 millisecond or more and sends each table's inserts ahead of their answers, at most\
 200 statements at a time; the peers wait out each statement's round trip.")
  kill "$proxy_pid" 2>/dev/null || true
fi

write_report >/dev/null

# ---- Backup and restore of the demo database ----

if wanted backup; then
  demo_bytes=${demo_bytes:-$(database_bytes "$demo_db")}
  list=$(IFS=,; echo "${demo_tables[*]}")
  dump="$work/dump.sql.gz"
  checks=""
  for t in "${demo_tables[@]}"; do
    checks+="$client_cmd --quick -e 'Select * from $t' $demo_db; "
  done
  for _ in $(seq "$slow_runs"); do
    rm -rf "$work/archives"
    mkdir -p "$work/archives"
    timed "$work/backup.ours" "$build/bench/bench_backup" backup "$server" "$demo_db" "$list" "$work/archives"
    timed "$work/backup.peer" bash -c "mariadb-dump --no-defaults -h127.0.0.1 -P$port -udbop --quick \
      --skip-extended-insert $demo_db | gzip -1 >$dump"
  done
  archive=$(sed -n 's/^archive=//p' "$work/backup.ours.stdout")
  for _ in $(seq "$slow_runs"); do
    timed "$work/restore.ours" "$build/bench/bench_backup" restore "$server" "$demo_db" "$list" "$archive"
    # The dump recreates every table, so each run starts from the whole database again.
    timed "$work/restore.peer" bash -c "$checks gunzip -c $dump | $client_cmd $demo_db"
  done
  row "Backup of the demo database ($clients clients)" "$work/backup.ours" \
    'mariadb-dump --quick --skip-extended-insert | gzip -1' "$work/backup.peer" "≤ 1.0, memory < 256 MiB" "$demo_bytes"
  row "Restore of the demo database" "$work/restore.ours" \
    'mariadb < the dump, after the same table checks' "$work/restore.peer" "≤ 1.0, memory < 256 MiB" "$demo_bytes"
  backup_ms=$(stat_of "$work/backup.ours" ms)
  read_ms=$(stat_of "$work/backup.ours" read_ms)
  notes+=("Backup: each table file is compressed (level 1) on a second thread while the next table is read, as the\
 peer's gzip compresses while mariadb-dump reads; the last table was read $read_ms ms in, and compressing it and\
 writing the archive took $((backup_ms - read_ms)) ms more. Processor time: Tabulon $(cpu_of "$work/backup.ours") s,\
 the peer's pipeline $(cpu_of "$work/backup.peer") s.")
  notes+=("Backup: archive $(mib "$(stat -c %s "$archive")"), dump $(mib "$(stat -c %s "$dump")").\
 Restore: $(sed -n 's/^refused=//p' "$work/restore.ours.stdout") rows refused by the server (the restore\
 writes every value between quotes as it stands, so a row with a quote, a NULL or a value the server's mode\
 rejects in its column fails its own statement); the peer restores them all.")
fi

write_report
