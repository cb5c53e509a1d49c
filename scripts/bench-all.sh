#!/usr/bin/env bash
# Runs every benchmark in one go and writes one report: builds Release in build/, starts
# one private MariaDB server (no general log), generates the demo database and a table of a
# million rows and ten columns, and times each piece of work against a peer tool on the same
# data in the same run. Every figure is the median of RUNS runs (five at least) with the least and
# the most beside it, and both sides are timed the same way: as whole processes, by GNU time,
# which also gives the peak memory (maximum resident set) of the process. Where a side writes
# rows, the rows it kept are counted after each run (COUNT(*) summed over its tables) and the two
# sides' CHECKSUM TABLE compared. The report goes to stdout and to docs/benchmarks.md.
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
# Environment: BENCH_CLIENTS (demo clients of the search and the backup, 100000), BENCH_ROWS (grid
# table rows, 1000000), BENCH_SAVE_ROWS (rows of the InnoDB table that Save Table and the table
# restore rewrite, 10000), BENCH_MYISAM_ROWS (the same on MyISAM, 100000), BENCH_RESTORE_CLIENTS
# (demo clients of the database restore, 1000), BENCH_RUNS (5, no fewer), BENCH_SLOW_RUNS (runs of
# the backup and the database restore; BENCH_RUNS, no fewer than 5), BENCH_PORT (13408),
# BENCH_BUILD (build, where the test command builds), BENCH_REPORT (docs/benchmarks.md; "-" for
# stdout only), BENCH_ONLY (a comma list of grid, search, backup, convert, save, exact: only those
# rows; save is Save Table and the table restore on both engines).
#
# The peers write one row per statement with autocommit, so on InnoDB each of their rows is a
# disk flush of its own (a few milliseconds on a small machine): the InnoDB row counts are kept
# small enough for a run to stay in minutes, and every row of the report names its count.
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
save_rows=${BENCH_SAVE_ROWS:-10000}
myisam_rows=${BENCH_MYISAM_ROWS:-100000}
restore_clients=${BENCH_RESTORE_CLIENTS:-1000}
runs=${BENCH_RUNS:-5}
slow_runs=${BENCH_SLOW_RUNS:-$runs}
if ! [[ $runs =~ ^[0-9]+$ && $slow_runs =~ ^[0-9]+$ ]] || [ "$runs" -lt 5 ] || [ "$slow_runs" -lt 5 ]; then
  echo "bench-all.sh: BENCH_RUNS and BENCH_SLOW_RUNS must be 5 or more, for a median with a spread" >&2
  exit 2
fi
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
myisam_db=tabulon_bench_save_myisam
restore_db=tabulon_bench_restore
sort_field=note

say() { printf '==> %s\n' "$*" >&2; }
wanted() { [[ ",$only," == *",$1,"* ]]; }

say "checking packages"
bash "$root/scripts/install-deps.sh"

say "building Release in $build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
# Only the programs of the rows asked for.
targets=()
wanted grid && targets+=(bench_tabledata bench_wire)
wanted search && targets+=(bench_search tabulon-demodb)
wanted backup && targets+=(bench_backup tabulon-demodb)
wanted convert && targets+=(bench_convert)
wanted save && targets+=(bench_savetable bench_backup)
wanted exact && targets+=(bench_exactcheck)
wanted far && targets+=(bench_savetable bench_backup)
[ ${#targets[@]} -gt 0 ] || { echo "bench-all.sh: BENCH_ONLY names no rows: $only" >&2; exit 2; }
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
# least, median and most of numbers on stdin, on one line
spread() { sort -n | awk '{ v[NR] = $1 } END { print v[1], v[int((NR + 1) / 2)], v[NR] }'; }
seconds_of() { cut -d' ' -f1 <"$1" | median; }
peak_of() { cut -d' ' -f2 <"$1" | median; }
cpu_of() { cut -d' ' -f3 <"$1" | median; }
# "median (least–most) UNIT" of one column of a timed file; the seconds to two places
seconds_cell() { cut -d' ' -f1 <"$1" | spread | awk '{ printf "%.2f s (%.2f–%.2f)", $2, $1, $3 }'; }
cpu_cell() { cut -d' ' -f3 <"$1" | spread | awk '{ printf "%.2f s (%.2f–%.2f)", $2, $1, $3 }'; }
peak_cell() {
  cut -d' ' -f2 <"$1" | spread | awk '{ printf "%.1f MiB (%.1f–%.1f)", $2 / 1024, $1 / 1024, $3 / 1024 }'
}
# overlap A B: whether two timed files' ranges of elapsed time overlap (the difference is then
# smaller than the spread between runs)
overlap() {
  local a b
  a=$(cut -d' ' -f1 <"$1" | spread)
  b=$(cut -d' ' -f1 <"$2" | spread)
  awk -v a="$a" -v b="$b" 'BEGIN { split(a, x, " "); split(b, y, " "); exit !(x[1] <= y[3] && y[1] <= x[3]) }'
}
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

# kept DATABASE TABLE...: one line, "rows checksum loose": the tables' rows counted with COUNT(*)
# and summed; a digest of their CHECKSUM TABLE values, equal when the tables hold the same rows;
# and a digest of every row's values as text with a NULL read as '', equal when the tables hold
# the same rows but for NULLs that became empty texts (a table file writes both alike).
kept() {
  local db=$1 list="" total=0 loose="" n t expr
  shift
  for t in "$@"; do
    n=$("${client[@]}" -N -e "SELECT COUNT(*) FROM \`$t\`" "$db")
    total=$((total + n))
    list+="\`$t\`,"
    expr=$("${client[@]}" -N -e "SET SESSION group_concat_max_len = 100000;
        SELECT GROUP_CONCAT(CONCAT('IFNULL(\`', column_name, '\`, '''')') ORDER BY ordinal_position)
        FROM information_schema.columns WHERE table_schema = '$db' AND table_name = '$t'")
    loose+=$("${client[@]}" -N -e "SELECT SUM(CRC32(CONCAT_WS(CHAR(31), $expr))) FROM \`$t\`" "$db")-
  done
  echo "$total $("${client[@]}" -N -e "CHECKSUM TABLE ${list%,}" "$db" | md5sum | cut -c1-12)\
 $(md5sum <<<"$loose" | cut -c1-12)"
}
# kept_cell FILE: the rows a side kept, from the lines kept() wrote after each of its runs
kept_cell() {
  cut -d' ' -f1 "$1" | sort -un | awk '{ n[NR] = $1 } END {
    if (NR == 1) printf "%d", n[1]; else { printf "runs differ:"; for (i = 1; i <= NR; ++i) printf " %d", n[i] } }'
}
# same_rows OURS PEER [FIELD]: whether both sides ended every run with one checksum (field 2 of
# kept(); 3 for the one that reads NULL as '')
same_rows() { [ "$(cut -d' ' -f"${3:-2}" "$1" "$2" | sort -u | wc -l)" = 1 ]; }
# compare_cell OURS PEER: how the peer's rows compare with Tabulon's, for the peer's cell
compare_cell() {
  # A checksum of "-" is none: the sides' tables differ in their columns, only the counts compare.
  if grep -q ' -' "$1" "$2"; then
    return
  elif same_rows "$1" "$2"; then
    printf ', the same rows'
  elif same_rows "$1" "$2" 3; then
    printf ", the same rows but for NULLs that Tabulon's side holds as ''"
  else
    printf ', other rows'
  fi
}

rows_md=()
notes=()
# row WORK OURS_FILE PEER PEER_FILE GOAL DATA_BYTES [RATIO]: RATIO replaces the plain ratio of the
# medians. Where both sides write rows, OURS_FILE.kept and PEER_FILE.kept hold what kept() found
# after each run; the cells say "—" where there are none.
row() {
  local ours peer ratio kept_ours="—" kept_peer="—"
  ours=$(seconds_of "$2")
  peer=$(seconds_of "$4")
  ratio=${7:-$(awk -v a="$ours" -v b="$peer" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }')}
  [ -n "${7:-}" ] || ! overlap "$2" "$4" || ratio+=" (within the spread)"
  if [ -s "$2.kept" ] && [ -s "$4.kept" ]; then
    kept_ours=$(kept_cell "$2.kept")
    kept_peer=$(kept_cell "$4.kept")
    kept_peer+=$(compare_cell "$2.kept" "$4.kept")
  fi
  rows_md+=("| $1 | $(seconds_cell "$2") | $kept_ours | ${3//|/\\|} | $(seconds_cell "$4") | $kept_peer | $ratio | $5\
 | $(peak_cell "$2") | $(mib "$6") |")
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
    echo "Each figure is the median of $runs runs (backup and restore: $slow_runs), the least and the most in brackets, of a"
    echo "whole process (GNU time's elapsed time), Tabulon's benchmark programs and the peer tools alike, on the same data"
    echo "in the same run. The ratio is of the medians, Tabulon's time over the peer's; \"within the spread\" marks"
    echo "a pair whose ranges overlap, a difference smaller than the runs' own. Peak memory is the largest resident set"
    echo "of Tabulon's whole process. Rows kept are the rows in the written tables after each side's runs (COUNT(*)"
    echo "summed); \"the same rows\" says that CHECKSUM TABLE of every table was equal after every run of both sides."
    echo "Data size is the bytes of every value as text. Every peer writes its output to a file in the run's"
    echo "work folder, not to /dev/null: the grid, sort, Save Table, search and restore peers to load.peer.stdout,"
    echo "sort.peer.stdout, save.*.peer.stdout, search.peer.stdout and restore.*.peer.stdout, the backup peer to"
    echo "dump.sql.gz, and the conversion peer its errors to convert.peer.errors."
    echo "The server keeps its default durability: innodb_flush_log_at_trx_commit=$durability,"
    if [ "$durability" = 1 ]; then
      echo "sync_binlog=$sync_binlog, as the server has them: every InnoDB commit is flushed to disk, as on an operator's server."
    else
      echo "sync_binlog=$sync_binlog, as the server has them: InnoDB commits are not each flushed to disk."
    fi
    echo
    echo "| Work | Tabulon | Rows kept | Peer | Peer time | Rows kept | Ratio | Goal | Tabulon peak memory | Data size |"
    echo "|---|---:|---:|---|---:|---:|---:|---|---:|---:|"
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
    "$work/load.peer" "≤ 1.05 × the floor (below), memory ≤ 1.5 × data" "$grid_bytes"
  row "Grid load and sort by a text column" "$work/sort.ours" '… | LC_ALL=C sort' \
    "$work/sort.peer" "the sort alone ≤ 0.5 (below), memory ≤ 1.5 × data" "$grid_bytes"
  wire=$(seconds_of "$work/load.wire")
  load_cpu=$(cpu_of "$work/load.ours")
  client_cpu=$(cpu_of "$work/load.peer")
  sort_ms=$(stat_of "$work/sort.ours" sort_ms)
  sort_alone=$(seconds_of "$work/sort.alone")
  own_load=$(( $(stat_of "$work/load.ours" load_hwm_kb) - $(stat_of "$work/load.ours" baseline_hwm_kb) ))
  own_sort=$(( $(stat_of "$work/sort.ours" peak_hwm_kb) - $(stat_of "$work/sort.ours" baseline_hwm_kb) ))
  floor=$(ratio_of "$wire" "$(seconds_of "$work/load.peer")")
  ! overlap "$work/load.wire" "$work/load.peer" || floor+=" (within the spread: $(seconds_cell "$work/load.peer") for the client)"
  over_floor=$(ratio_of "$(seconds_of "$work/load.ours")" "$wire")
  ! overlap "$work/load.ours" "$work/load.wire" || over_floor+=" (within the spread: $(seconds_cell "$work/load.ours") for the load)"
  # A cause is named only when the figures show it: the floor within a tenth of the client's time
  # means that reading the rows alone costs what the client's whole run costs.
  bound=""
  if awk -v f="${floor%% *}" 'BEGIN { exit !(f >= 0.9) }'; then
    bound=": reading the rows alone takes as long as the client's whole run, so the server producing them bounds both sides"
  fi
  notes+=("Grid load: the floor, every row read through the session and kept nowhere (\`bench_wire\`), takes\
 $(seconds_cell "$work/load.wire"), $floor × the client (goal ≤ 1.0)$bound. The load takes\
 $over_floor × the floor (goal ≤ 1.05). Processor time of the\
 process: Tabulon $load_cpu s (window, storage and Qt included), the client $client_cpu s\
 ($(ratio_of "$load_cpu" "$client_cpu") ×; goal ≤ 0.5).")
  notes+=("Grid memory: the whole process peaks at $(awk -v p="$(peak_of "$work/load.ours")" -v d="$grid_bytes" \
    'BEGIN { printf "%.2f", p * 1024 / d }') × the data after the load and $(awk -v p="$(peak_of "$work/sort.ours")" \
    -v d="$grid_bytes" 'BEGIN { printf "%.2f", p * 1024 / d }') × after the sort, Qt and the connection included (goal\
 ≤ 1.5 for the whole process); the grid's\
 own part (the peak less the process's peak before the load, $(mib $(( $(stat_of "$work/load.ours" baseline_hwm_kb) * 1024 ))))\
 is $(awk -v p="$own_load" -v d="$grid_bytes" 'BEGIN { printf "%.2f", p * 1024 / d }') × after the load and\
 $(awk -v p="$own_sort" -v d="$grid_bytes" 'BEGIN { printf "%.2f", p * 1024 / d }') × after the sort. Of the own part, the\
 grid's storage (every cell's bytes, lengths, block starts and NULL flags) holds\
 $(mib "$(stat_of "$work/load.ours" grid_bytes)") after the load ($(awk -v s="$(stat_of "$work/load.ours" grid_bytes)" \
    -v d="$grid_bytes" 'BEGIN { printf "%.2f", s / d }') × the data), and the view's row header, which Qt keeps at\
 8 B a row even hidden, $(mib $((rows * 8))); the sort adds $(mib $(( (own_sort - own_load) * 1024 ))) at its peak\
 (its entries at 12 B a row and the row index at 4 B).")
  notes+=("Grid sort by \`$sort_field\`: inside the process the sort (with the row numbers written again after it) takes\
 $sort_ms ms against $sort_alone s for \`LC_ALL=C sort\` over the same rows already in a file\
 ($(ratio_of "$(awk -v m="$sort_ms" 'BEGIN { print m / 1000 }')" "$sort_alone") ×; goal ≤ 0.5). Inside the process the load takes\
 $(stat_of "$work/load.ours" load_ms) ms.")
  if [ "$big" = 1 ]; then
    row "Grid load that never pauses for the window" "$work/load.still" 'mariadb --batch --quick > file' \
      "$work/load.peer" "—" "$grid_bytes"
    # The longest wait over the runs, and when it ended in its run's load.
    # The load's own steps that ran in it (each "step@ms from the start of the load") say where it fell.
    longest_wait() {
      paste <(sed -n 's/^max_block_ms=//p' "$work/load.ours.all") <(sed -n 's/^max_block_end_ms=//p' "$work/load.ours.all") \
        <(sed -n 's/^load_ms=//p' "$work/load.ours.all") <(sed -n 's/^max_block_steps=//p' "$work/load.ours.all") |
        sort -t$'\t' -n -k1,1 | tail -1 |
        awk -F'\t' '{ printf "%d ms, ending %d ms into a load of %d ms (its steps: %s)", $1, $2, $3, $4 }'
    }
    min_max() { cut -d' ' -f1 <"$1" | sort -n | awk 'NR == 1 { lo = $1 } { hi = $1 } END { printf "%s–%s s", lo, hi }'; }
    notes+=("Grid load with the window alive: it pauses for the window every 25 ms; the longest the event loop waited\
 was $(longest_wait) over $runs runs (a timer inside the benchmark, flushes and the final steps included; goal ≤ 100 ms). Elapsed: $(seconds_of "$work/load.ours") s\
 ($(min_max "$work/load.ours")) against $(seconds_of "$work/load.still") s ($(min_max "$work/load.still")) for\
 the load that never pauses: $(ratio_of "$(seconds_of "$work/load.ours")" "$(seconds_of "$work/load.still")") × (goal ≤ 1.05).\
 Escape after $half_ms ms kept $(sed -n 's/^rows=//p' "$work/load.stop.stdout") rows and the load ended\
 $(sed -n 's/^stop_ms=//p' "$work/load.stop.stdout") ms after the key.")
  fi
  "${client[@]}" -e "DROP DATABASE $grid_db"
fi

write_report >/dev/null

# ---- Save Table and the table restore, on both engines ----

# make_save_table [DB ROWS ENGINE]: the table Save Table, the table restore, the exact-value
# check and the far server rewrite ("saved", in a database of its own; save_db, save_rows and
# InnoDB by default).
make_save_table() {
  local db=${1:-$save_db} rows=${2:-$save_rows} engine=${3:-InnoDB}
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
) ENGINE=$engine;
INSERT INTO saved
SELECT seq, seq % 1000, CONCAT('Client ', seq), LPAD(HEX(seq), 8, '0'),
       ELT(1 + seq % 5, 'Oslo', 'Rome', 'Lima', 'Quito', 'Ulaanbaatar'),
       CONCAT('Remark ', REPEAT(CHAR(97 + seq % 26), seq % 60))
FROM seq_1_to_$rows;
SQL
  [ "$db" != "$save_db" ] || save_bytes=$(value_bytes "$save_db" saved)
}

# save_and_restore ENGINE DB ROWS GOAL: Save Table and the restore of the table from its
# backup, each against the client doing the same one row per statement with autocommit.
# The peers' scripts for the table `saved` of database $1: $2 the same delete and one INSERT per
# row as Save Table sends, $3 a dump of one INSERT per row that recreates the table.
peer_scripts() {
  { echo "DELETE FROM saved;"
    mariadb-dump --no-defaults -h127.0.0.1 -P"$port" -udbop --skip-extended-insert --no-create-info \
      --skip-add-locks --skip-disable-keys --compact "$1" saved; } >"$2"
  mariadb-dump --no-defaults -h127.0.0.1 -P"$port" -udbop --skip-extended-insert "$1" saved >"$3"
}

save_and_restore() {
  local engine=$1 db=$2 n=$3 goal=$4 e bytes archive
  e=$(tr '[:upper:]' '[:lower:]' <<<"$1")
  make_save_table "$db" "$n" "$engine"
  bytes=$(value_bytes "$db" saved)
  peer_scripts "$db" "$work/save.$e.sql" "$work/restore.$e.sql"
  rm -rf "$work/archives.$e"
  mkdir -p "$work/archives.$e"
  "$build/bench/bench_backup" backup "$server" "$db" saved "$work/archives.$e" >"$work/backup.$e.stdout"
  archive=$(sed -n 's/^archive=//p' "$work/backup.$e.stdout")
  # On MyISAM, where the restore sends each row after the answer to the one before, the very
  # statements it sends, caught in the server's general log once, for the client to send in the
  # same runs: the same work without Tabulon's own.
  [ "$engine" != MyISAM ] || {
    "${client[@]}" -e "TRUNCATE mysql.general_log; SET GLOBAL log_output = 'TABLE', general_log = 1"
    "$build/bench/bench_backup" restore "$server" "$db" saved "$archive" >/dev/null
    "${client[@]}" -e "SET GLOBAL general_log = 0"
    { echo "DELETE FROM saved;"
      "${client[@]}" -N --raw -e "SELECT CONCAT(argument, ';') FROM mysql.general_log
        WHERE command_type = 'Query' AND argument LIKE 'Insert into saved %'"; } >"$work/restore.$e.same.sql"
    "${client[@]}" -e "TRUNCATE mysql.general_log"
  }
  for _ in $(seq "$runs"); do
    timed "$work/save.$e.ours" "$build/bench/bench_savetable" "$server" "$db" saved plain
    kept "$db" saved >>"$work/save.$e.ours.kept"
    timed "$work/save.$e.peer" bash -c "$client_cmd --batch --quick -e 'select * from saved' $db; \
      $client_cmd $db <$work/save.$e.sql; $client_cmd --batch --quick -e 'select * from saved' $db"
    kept "$db" saved >>"$work/save.$e.peer.kept"
    timed "$work/restore.$e.ours" "$build/bench/bench_backup" restore "$server" "$db" saved "$archive"
    kept "$db" saved >>"$work/restore.$e.ours.kept"
    timed "$work/restore.$e.peer" bash -c "$client_cmd $db <$work/restore.$e.sql"
    kept "$db" saved >>"$work/restore.$e.peer.kept"
    [ "$engine" != MyISAM ] || timed "$work/restore.$e.same" bash -c "$client_cmd $db <$work/restore.$e.same.sql"
  done
  row "Save Table, $engine, $n rows" "$work/save.$e.ours" 'read, DELETE and INSERTs through mariadb, read' \
    "$work/save.$e.peer" "$goal" "$bytes"
  row "Table restore, $engine, $n rows" "$work/restore.$e.ours" 'mariadb < mariadb-dump --skip-extended-insert' \
    "$work/restore.$e.peer" "$goal" "$bytes"
  notes+=("Save Table and the table restore, $engine, $n rows: the peers send one row per statement with autocommit;\
 inside the process the rewrite took $(stat_of "$work/save.$e.ours" ms) ms and the restore\
 $(stat_of "$work/restore.$e.ours" ms) ms (medians); the restore wrote $(stat_of "$work/restore.$e.ours" exact_rows) rows\
 with exact values and the server refused $(stat_of "$work/restore.$e.ours" refused).")
  [ "$engine" != MyISAM ] || notes+=("Table restore, MyISAM: a refused row stops it, and a row sent after that one would stay in\
 the table, so each row goes out after the answer to the one before, as the peer's do. The restore's own statements,\
 sent by the client in the same runs, took $(seconds_cell "$work/restore.$e.same"): the restore is\
 $(ratio_of "$(seconds_of "$work/restore.$e.ours")" "$(seconds_of "$work/restore.$e.same")") × that, and the peer's dump\
 $(ratio_of "$(seconds_of "$work/restore.$e.peer")" "$(seconds_of "$work/restore.$e.same")") × it.")
}

if wanted save; then
  save_and_restore InnoDB "$save_db" "$save_rows" "≤ 0.3"
  save_and_restore MyISAM "$myisam_db" "$myisam_rows" "≤ 1.0"
  commits=""
  # The commits are named as the cause only when InnoDB's ratio is below MyISAM's and beyond
  # the spread of the runs.
  if awk -v i="$(ratio_of "$(seconds_of "$work/save.innodb.ours")" "$(seconds_of "$work/save.innodb.peer")")" \
    -v m="$(ratio_of "$(seconds_of "$work/save.myisam.ours")" "$(seconds_of "$work/save.myisam.peer")")" \
    'BEGIN { exit !(i < m) }' && ! overlap "$work/save.innodb.ours" "$work/save.innodb.peer"; then
    commits=" On InnoDB, Tabulon commits the table's delete and inserts once, at its end, and the peer after each row,\
 a disk flush each with this server's durability: hence its lower ratio there than on MyISAM."
  fi
  notes+=("Save Table and the table restore: both sides read the table, delete its rows and insert every row with one\
 statement each (Save Table's sides then read it back; the peer's dump recreates the table).$commits")
  if "$build/bench/bench_savetable" "$server" "$save_db" saved safety >"$work/safety.stdout" 2>&1; then
    rm -f "$work/safety.ours"
    for _ in $(seq "$runs"); do
      timed "$work/safety.ours" "$build/bench/bench_savetable" "$server" "$save_db" saved safety
      kept "$save_db" saved >>"$work/safety.ours.kept"
    done
    row "Save Table with its safety copy, InnoDB, $save_rows rows" "$work/safety.ours" 'as above, InnoDB' \
      "$work/save.innodb.peer" "—" "$save_bytes"
  else
    rows_md+=("| Save Table with its safety copy | failed: $(tail -1 "$work/safety.stdout") | | | | | | | | |")
  fi
fi

write_report >/dev/null

# ---- The exact-value check before the first write ----

if wanted exact; then
  wanted save || make_save_table
  exact_runs=$runs
  timed "$work/exact.ours" "$build/bench/bench_exactcheck" "$server" "$save_db" saved "$exact_runs"
  for work_name in save restore; do
    x() { stat_of "$work/exact.ours" "${work_name}_$1"; }
    ms_cell() { awk -v m="$1" -v l="$2" -v h="$3" 'BEGIN { printf "%.2f s (%.2f–%.2f)", m / 1000, l / 1000, h / 1000 }'; }
    ratio=$(x ratio)
    awk -v a="$(x on_min_ms) $(x on_max_ms)" -v b="$(x off_min_ms) $(x off_max_ms)" \
      'BEGIN { split(a, x, " "); split(b, y, " "); exit !(x[1] <= y[2] && y[1] <= x[2]) }' && ratio+=" (within the spread)"
    label=$([ "$work_name" = save ] && echo "Save Table" || echo "Table restore")
    rows_md+=("| $label with the exact-value check, InnoDB, $save_rows rows | $(ms_cell "$(x on_ms)" "$(x on_min_ms)" "$(x on_max_ms)")\
 | — | the same without the check | $(ms_cell "$(x off_ms)" "$(x off_min_ms)" "$(x off_max_ms)") | — | $ratio | ≤ 1.05\
 | $(peak_cell "$work/exact.ours") | $(mib "$save_bytes") |")
    notes+=("$label, check on against off ($exact_runs runs each inside one process, alternating): the process's own\
 processor time $(x cpu_on_ms) ms (least $(x cpu_on_min_ms), most $(x cpu_on_max_ms)) with the check against\
 $(x cpu_off_ms) ms (least $(x cpu_off_min_ms), most $(x cpu_off_max_ms)) without it ($(x cpu_ratio)).")
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
  # The peer loads without foreign-key checks, so that a table's rows go in whatever order the
  # tables come; it stops at nothing and hides nothing: every error of every run goes to one file.
  peer_script="$work/convert-peer.sh"
  peer_client="$client_cmd --init-command='SET FOREIGN_KEY_CHECKS=0'"
  : >"$work/convert.peer.errors"
  cat >"$peer_script" <<EOF
$client_cmd -e 'DROP DATABASE IF EXISTS bench_peer; CREATE DATABASE bench_peer'
{
  mdb-schema '$mdb' mysql | $peer_client bench_peer
  mdb-tables -1 '$mdb' | while IFS= read -r table; do
    mdb-export -I mysql '$mdb' "\$table" | $peer_client --binary-mode bench_peer
  done
} 2>>'$work/convert.peer.errors'
exit 0
EOF
  file_rows=0
  while IFS= read -r table; do
    file_rows=$((file_rows + $(mdb-count "$mdb" "$table")))
  done < <(mdb-tables -1 "$mdb")
  # Like with like: the same peer exporting only the rows of the tables Tabulon fills (every
  # table's structure still made), after a first run of Tabulon's says which those are.
  "$build/bench/bench_convert" "$server" dbop "$mdb" 1 >/dev/null
  : >"$work/convert.kept-tables"
  while IFS= read -r table; do
    [ "$("${client[@]}" -N -e "SELECT COUNT(*) FROM \`$table\`" bench_convert_0)" = 0 ] ||
      echo "$table" >>"$work/convert.kept-tables"
  done < <("${client[@]}" -N -e "SHOW Tables" bench_convert_0)
  sed -e 's/bench_peer/bench_same/g' -e "s|mdb-tables -1 '$mdb'|grep -ixFf '$work/convert.kept-tables' <(mdb-tables -1 '$mdb')|" \
    -e "s|$work/convert.peer.errors|$work/convert.same.errors|" "$peer_script" >"$work/convert-same.sh"
  for _ in $(seq "$runs"); do
    timed "$work/convert.ours" "$build/bench/bench_convert" "$server" dbop "$mdb" 1
    echo "$(count_rows bench_convert_0) - -" >>"$work/convert.ours.kept"
    timed "$work/convert.peer" bash "$peer_script"
    echo "$(count_rows bench_peer) - -" >>"$work/convert.peer.kept"
    timed "$work/convert.same" bash "$work/convert-same.sh"
    echo "$(count_rows bench_same) - -" >>"$work/convert.same.kept"
  done
  kept_ours=$(count_rows bench_convert_0)
  kept_peer=$(count_rows bench_peer)
  ours=$(seconds_of "$work/convert.ours")
  peer=$(seconds_of "$work/convert.peer")
  per_row=$(awk -v o="$ours" -v p="$peer" -v ko="$kept_ours" -v kp="$kept_peer" \
    'BEGIN { printf "%.2f", ((ko > 0 && kp > 0 && p > 0) ? (o / ko) / (p / kp) : 0) }')
  row "Conversion of $(basename "$mdb"), $file_rows rows in the file" "$work/convert.ours" \
    "mdb-schema, mdb-export -I mysql | mariadb --init-command='SET FOREIGN_KEY_CHECKS=0'" \
    "$work/convert.peer" "≤ 1.0 per row kept" "$(stat -c %s "$mdb")" "$per_row per row kept"
  row "Conversion of $(basename "$mdb"), the tables Tabulon fills" "$work/convert.ours" \
    "the same peer, exporting only those tables' rows" "$work/convert.same" "≤ 1.0" "$(stat -c %s "$mdb")"
  notes+=("Conversion: the file holds $file_rows rows (mdb-count); Tabulon kept $kept_ours, the peer $kept_peer\
 (COUNT(*) over every table); time per row kept against the peer's: $per_row. The peer's errors over its $runs runs:\
 $(wc -l <"$work/convert.peer.errors") lines in convert.peer.errors; the messages Tabulon's conversion showed in its\
 last run: $(head -1 "$work/convert.ours.stdout" | cut -d' ' -f4)$(sed -n 's/^message=//p' "$work/convert.ours.stdout" |
    awk '{ printf "%s\"%s\"", (NR == 1 ? ": " : "; "), $0 }').")
  notes+=("Conversion, like with like: the tables Tabulon fills are $(paste -sd, "$work/convert.kept-tables" | sed 's/,/, /g');\
 the peer exporting only their rows kept $(count_rows bench_same) rows ($(wc -l <"$work/convert.same.errors") lines of errors).")
  "${client[@]}" -e "DROP DATABASE IF EXISTS bench_convert_0; DROP DATABASE IF EXISTS bench_peer; DROP DATABASE IF EXISTS bench_same"
fi

write_report >/dev/null

# ---- Search of all tables ----

# search_parts: what the search spends on its safety copy and its repairs, and what is left for
# reading the tables against the peer, which only reads them (medians over the runs)
search_parts() {
  local all copy repair rest peer
  all=$(stat_of "$work/search.ours" search_ms)
  copy=$(stat_of "$work/search.ours" copy_ms)
  repair=$(stat_of "$work/search.ours" repair_ms)
  rest=$((all - copy - repair))
  peer=$(awk -v s="$(seconds_of "$work/search.peer")" 'BEGIN { printf "%d", s * 1000 }')
  printf '%s' "Of the search's $all ms (medians), the safety copy of the table files took $copy ms and the\
 repair of every table $repair ms, work the peer does not do; reading the tables took the other $rest ms,\
 $(ratio_of "$rest" "$peer") × the peer's $peer ms."
}

if wanted search; then
  demo_bytes=${demo_bytes:-$(database_bytes "$demo_db")}
  # A number: the search compares it bare with numeric columns and quoted with the others, and
  # the server reads a quoted text as the number 0 against a BIGINT, so no text would do.
  unheld=-987654.321
  held=$(held_by "$demo_db" "$unheld")
  [ -z "$held" ] || { echo "bench-all.sh: $unheld is held by: $held" >&2; exit 1; }
  for value in "$unheld" C05000; do
    rm -f "$work/search.ours" "$work/search.peer" "$work/search.ours.all" "$work/search.peer.all"
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
    notes+=("Search for $what: $(sed -n 's/^statements=//p' "$out") statements, $(sed -n 's/^hits=//p' "$out" | awk '{ print $1, ($1 == 1 ? "hit" : "hits") }')\
$(sed -n 's/^hit=//p' "$out" | sort | uniq -c | awk '{ n = $1; sub(/^ *[0-9]+ /, ""); printf "%s %s (%d)", (NR == 1 ? " in" : ","), $0, n }');\
 the program's own processor time was $(sed -n 's/^program_cpu_ms=//p' "$out") ms of a\
 $(sed -n 's/^search_ms=//p' "$out") ms search ($(awk -v c="$(sed -n 's/^program_cpu_ms=//p' "$out")" \
      -v s="$(sed -n 's/^search_ms=//p' "$out")" 'BEGIN { printf "%.1f", (s > 0 ? 100 * c / s : 0) }') %, goal < 5 %);\
 the peer's grep counted $(awk '{ n += $1 } END { print n + 0 }' "$work/search.peer.stdout") matching lines.\
 $(search_parts)")
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
  peer_scripts "$far_db" "$work/far-save.sql" "$work/far-dump.sql"
  mkdir -p "$work/far-archives"
  "$build/bench/bench_backup" backup "$server" "$far_db" saved "$work/far-archives" >"$work/far-backup.stdout"
  far_archive=$(sed -n 's/^archive=//p' "$work/far-backup.stdout")
  far_read_back="$far_client --batch --quick -e 'select * from saved' $far_db"
  for _ in $(seq "$runs"); do
    timed "$work/far-save.local" "$build/bench/bench_savetable" "$server" "$far_db" saved plain
    timed "$work/far-save.ours" "$build/bench/bench_savetable" "$far_server" "$far_db" saved plain
    kept "$far_db" saved >>"$work/far-save.ours.kept"
    timed "$work/far-save.peer" bash -c "$far_read_back; $far_client $far_db <$work/far-save.sql; $far_read_back"
    kept "$far_db" saved >>"$work/far-save.peer.kept"
    timed "$work/far-restore.local" "$build/bench/bench_backup" restore "$server" "$far_db" saved "$far_archive"
    timed "$work/far-restore.ours" "$build/bench/bench_backup" restore "$far_server" "$far_db" saved "$far_archive"
    kept "$far_db" saved >>"$work/far-restore.ours.kept"
    timed "$work/far-restore.peer" bash -c "$far_client $far_db <$work/far-dump.sql"
    kept "$far_db" saved >>"$work/far-restore.peer.kept"
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
  far_why=""
  # Why Tabulon is ahead is said only when it is, beyond the spread of both works.
  if awk -v o="$(seconds_of "$work/far-save.ours")" -v p="$(seconds_of "$work/far-save.peer")" 'BEGIN { exit !(o < p) }' &&
    awk -v o="$(seconds_of "$work/far-restore.ours")" -v p="$(seconds_of "$work/far-restore.peer")" 'BEGIN { exit !(o < p) }' &&
    ! overlap "$work/far-save.ours" "$work/far-save.peer" && ! overlap "$work/far-restore.ours" "$work/far-restore.peer"; then
    far_why=" The program sends each table's inserts ahead of their answers (an InnoDB table's, for the restore),\
 at most 200 statements at a time; the peers wait out each statement's round trip."
  fi
  notes+=("Far server: bench/delayproxy.py holds every chunk ${far_rtt}/2 ms in each direction, on this machine.\
 The same work straight to the server took $(seconds_cell "$work/far-save.local") (Save Table) and\
 $(seconds_cell "$work/far-restore.local") (restore).$far_why")
  kill "$proxy_pid" 2>/dev/null || true
fi

write_report >/dev/null

# ---- Backup and restore of the demo database ----

if wanted backup; then
  demo_bytes=${demo_bytes:-$(database_bytes "$demo_db")}
  list=$(IFS=,; echo "${demo_tables[*]}")
  dump="$work/dump.sql.gz"
  for _ in $(seq "$slow_runs"); do
    rm -rf "$work/archives"
    mkdir -p "$work/archives"
    timed "$work/backup.ours" "$build/bench/bench_backup" backup "$server" "$demo_db" "$list" "$work/archives"
    timed "$work/backup.peer" bash -c "mariadb-dump --no-defaults -h127.0.0.1 -P$port -udbop --quick \
      --skip-extended-insert $demo_db | gzip -1 >$dump"
  done
  archive=$(sed -n 's/^archive=//p' "$work/backup.ours.stdout")
  row "Backup of the demo database ($clients clients)" "$work/backup.ours" \
    'mariadb-dump --quick --skip-extended-insert | gzip -1' "$work/backup.peer" "≤ 0.7, memory < 256 MiB" "$demo_bytes"
  backup_ms=$(stat_of "$work/backup.ours" ms)
  read_ms=$(stat_of "$work/backup.ours" read_ms)
  notes+=("Backup: each table is compressed (level 1) on a second thread as its rows arrive; the last table was\
 read $read_ms ms in, and the end of its compression and the archive's writing took $((backup_ms - read_ms)) ms more\
 (medians). Processor time: Tabulon $(cpu_cell "$work/backup.ours"), the peer's pipeline $(cpu_cell "$work/backup.peer").\
 Archive $(mib "$(stat -c %s "$archive")"), dump $(mib "$(stat -c %s "$dump")").")
  write_report >/dev/null

  # The restore, of a demo database of its own: the peer's InnoDB rows are a disk flush each,
  # so its clients are fewer than the backup's.
  say "generating the demo database of the restore ($restore_clients clients)"
  "$build/src/tabulon-demodb" --server "$server" --user dbop --database "$restore_db" --clients "$restore_clients" \
    --recreate --quiet
  mapfile -t restore_tables < <("${client[@]}" -N -e "SHOW Tables" "$restore_db")
  restore_list=$(IFS=,; echo "${restore_tables[*]}")
  restore_bytes=$(database_bytes "$restore_db")
  # "InnoDB: 6 tables, 8130 rows; MyISAM: 7 tables, 9007 rows"
  engines=$(for t in "${restore_tables[@]}"; do
    printf '%s %s\n' "$("${client[@]}" -N -e "SELECT ENGINE FROM information_schema.TABLES
        WHERE TABLE_SCHEMA = '$restore_db' AND TABLE_NAME = '$t'")" \
      "$("${client[@]}" -N -e "SELECT COUNT(*) FROM \`$t\`" "$restore_db")"
  done | awk '{ t[$1]++; r[$1] += $2 } END { n = 0; for (e in t) printf "%s%s: %d tables, %d rows", (n++ ? "; " : ""), e, t[e], r[e] }')
  original=$(kept "$restore_db" "${restore_tables[@]}")
  rm -rf "$work/restore-archives"
  mkdir -p "$work/restore-archives"
  "$build/bench/bench_backup" backup "$server" "$restore_db" "$restore_list" "$work/restore-archives" \
    >"$work/restore-backup.stdout"
  restore_archive=$(sed -n 's/^archive=//p' "$work/restore-backup.stdout")
  restore_dump="$work/restore-dump.sql"
  mariadb-dump --no-defaults -h127.0.0.1 -P"$port" -udbop --quick --skip-extended-insert "$restore_db" >"$restore_dump"
  checks=""
  for t in "${restore_tables[@]}"; do
    checks+="$client_cmd --quick -e 'Select * from $t' $restore_db; "
  done
  for _ in $(seq "$slow_runs"); do
    timed "$work/restore.demo.ours" "$build/bench/bench_backup" restore "$server" "$restore_db" "$restore_list" \
      "$restore_archive"
    kept "$restore_db" "${restore_tables[@]}" >>"$work/restore.demo.ours.kept"
    # The dump recreates every table, so each run starts from the whole database again.
    timed "$work/restore.demo.peer" bash -c "$checks $client_cmd $restore_db <$restore_dump"
    kept "$restore_db" "${restore_tables[@]}" >>"$work/restore.demo.peer.kept"
  done
  row "Restore of the demo database ($restore_clients clients; $engines)" "$work/restore.demo.ours" \
    'mariadb < mariadb-dump --skip-extended-insert, after the same table checks' "$work/restore.demo.peer" \
    "≤ 1.0, memory < 256 MiB" "$restore_bytes"
  refused=$(stat_of "$work/restore.demo.ours" refused)
  # Compared with the database as it was backed up: field 2 of kept() is the strict checksum,
  # field 3 the one that reads NULL as ''.
  if [ "$(cut -d' ' -f2 "$work/restore.demo.ours.kept" | sort -u)" = "$(cut -d' ' -f2 <<<"$original")" ]; then
    whole="every table as it was backed up (CHECKSUM TABLE)"
  elif [ "$(cut -d' ' -f3 "$work/restore.demo.ours.kept" | sort -u)" = "$(cut -d' ' -f3 <<<"$original")" ]; then
    whole="every row as it was backed up but for NULLs, which are empty texts now: CHECKSUM TABLE differs, the\
 rows' values read with NULL as '' are equal (a table file holds a NULL text and an empty one alike)"
  else
    whole="tables that differ from the backed-up ones, NULLs read as '' or not"
  fi
  notes+=("Restore of the demo database: Tabulon's exact-value check found $(stat_of "$work/restore.demo.ours" exact_rows)\
 rows that the usual values would change, and the question was answered Yes, so they went with exact values;\
 the server refused $refused rows. After each of Tabulon's runs: $whole.")
fi

write_report
