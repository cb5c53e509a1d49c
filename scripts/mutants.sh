#!/usr/bin/env bash
# Mutation check of the data-safety rules: each mutant below undoes one rule of the program (a
# safety copy left out, a check skipped, a comparison loosened), and the tests named for it must
# fail once it is in. A mutant that the tests let pass is a rule that no test guards.
#
#   mutants.sh                 every mutant
#   mutants.sh NAME...         only the mutants named
#   mutants.sh --list          the mutants' names, files and what each one undoes
#   mutants.sh --check         only whether every mutant's text is still in its file, once
#
# The tree (uncommitted changes included) is copied to build-mutants/tree, built there once in
# Release (through ccache when it is installed; only the targets the mutants' tests need), and
# the tests run without any mutant first: a test that fails then would make every mutant look
# caught, so the run stops. Then, one mutant at a time: its text is replaced in the copy, the
# copy is rebuilt, its tests run against a private MariaDB server that this script starts
# (scripts/private-mariadb.sh, first free port from 13400, or MUTANTS_PORT), and the file is put
# back. The table at the end gives each mutant's outcome: caught, survived, "does not apply"
# (its text is not in its file exactly once, which a change of the code elsewhere can cause:
# the mutant needs updating) or "does not build". The script exits non-zero unless every mutant
# is caught. Logs stay in build-mutants/logs.
#
# A mutant is an exact original text (lines starting "- ") that must occur exactly once in its
# file, and its replacement (lines starting "+ ", none to delete the text). Tests are test
# executables, each optionally followed by ":" and the test functions to run of it, separated by
# commas.
set -euo pipefail
exec </dev/null

root=$(cd "$(dirname "$0")/.." && pwd)
scratch=${MUTANTS_DIR:-$root/build-mutants}
tree=$scratch/tree
build=$tree/build
logs=$scratch/logs
mariadb_script="$root/scripts/private-mariadb.sh"

read -r -d '' MUTANTS <<'EOF' || true
@ replace-row-identity
file: src/data/tablesearch.cpp
tests: test_tablesearch:replaceChangesTheHitsOwnRow test_searchwindows:replaceIgnoreWrapAndCancel,replaceActsOnTheRowShown,replaceAll
why: Replace changes the row its hit was found in, not the first row that holds the value
- if (hit.row.matches(records, r) && !records.isNull(r, field)
+ if (!records.isNull(r, field)

@ update-byte-comparison
file: src/db/databasesession.cpp
tests: test_databasesession:updatesLocateByBytes
why: an update finds its row by the very bytes read, not by the collation's equality
- return f.binaryCharset ? Compare::Bytes : Compare::Text;
+ return f.binaryCharset ? Compare::Bytes : Compare::Value;

@ update-null-apart
file: src/db/databasesession.cpp
tests: test_databasesession:updatesLocateByBytes
why: an update tells a NULL apart from an empty text when it finds its row
-         return name + " IS NULL";
+         return name + "=''";

@ statement-length-refusal
file: src/db/databasesession.cpp
tests: test_databasesession:statementsLongerThanTheServerTakes
why: a statement longer than max_allowed_packet is refused before it is sent (the server would drop the connection)
-         if (bytes.size() + 1 > limit)
+         if (false)

@ exact-check-quote
file: src/data/exactvalues.cpp
tests: test_tabledata:saveTableExactValues
why: the write check finds a quote that the usual statement cannot carry
- return bytes.contains('\'') ? Quote : 0u;
+ return 0u;

@ exact-check-bytes
file: src/data/exactvalues.cpp
tests: test_tabledata:saveTableExactValues
why: the write check finds bytes that are not text
-         return Bytes;
+         return 0u;

@ exact-check-null
file: src/data/exactvalues.cpp
tests: test_tabledata:saveTableExactValues
why: the write check finds a NULL that the usual statement writes as '' or 0
-         return Null;
+         return 0u;

@ write-mode-backslash
file: src/db/writemode.cpp
tests: test_tabledata:saveTableExactValues test_databasesession
why: the write session mode takes backslashes literally, as the statements are built
-     modes << QStringLiteral("NO_BACKSLASH_ESCAPES");
+     modes << QStringLiteral("NO_ENGINE_SUBSTITUTION");

@ conversion-write-mode
file: src/convert/databaseconversion.cpp
tests: test_convertdb:runsFromSourceTables
why: the conversion writes under the write session mode
-     const WriteSessionMode mode(session);
+ 

@ copy-before-save-table
file: src/data/tabledata.cpp
tests: test_safetyhooks:tableDataCommands
why: Save Table writes a safety copy before its delete
-     if (!keepSafetyCopy(command))
+     if (command != QLatin1String("Save Table") && !keepSafetyCopy(command))

@ copy-before-delete-record
file: src/data/tabledata.cpp
tests: test_safetyhooks:tableDataCommands
why: Delete Record writes a safety copy before its delete
-     if (!keepSafetyCopy(command))
+     if (command != QLatin1String("Delete Record") && !keepSafetyCopy(command))

@ copy-before-modify-record
file: src/data/tabledata.cpp
tests: test_safetyhooks:tableDataCommands
why: Modify Record writes a safety copy before its update
-     if (!keepSafetyCopy(QStringLiteral("Modify Record")))
+     if (false)

@ copy-failure-stops-command
file: src/data/tabledata.cpp
tests: test_safetyhooks:unwritableFolderStopsCommand
why: a safety copy that cannot be written stops the command before its first statement
-     return !error;
+     return true;

@ partial-load-refuses-writes
file: src/data/tabledata.cpp
tests: test_tabledata:loadStopsWithTheRowsSoFar,lockedAndFailedLoadsWriteNothing
why: a stopped load's rows are never written back as the whole table
-     m_loaded = load.stopped ? Loaded::Part : Loaded::Whole;
+     m_loaded = Loaded::Whole;

@ failed-load-refuses-writes
file: src/data/tabledata.cpp
tests: test_tabledata:lockedAndFailedLoadsWriteNothing
why: a failed load's empty grid is never written back as the table
-     case Loaded::Failed:
-         why =
+     case Loaded::Failed:
+         return true;
+         why =

@ copy-before-replace
file: src/data/replacedata.cpp
tests: test_safetyhooks:replaceOverWrongValue
why: Replace writes a safety copy of the hit's table
-         !keepSafetyCopy(QStringLiteral("Replace"), {m_grid->textMatrix(row, kTableCol)}))
+         false)

@ copy-before-replace-all
file: src/data/replacedata.cpp
tests: test_safetyhooks:replaceOverWrongValue
why: Replace All writes one safety copy of every table with a hit before the first replacement
-     if (!keepSafetyCopy(QStringLiteral("Replace All"), tables))
+     if (false)

@ copy-before-restore
file: src/backup/restore.cpp
tests: test_safetyhooks:restoreLosesRows
why: the table and the client restore write a safety copy of the ticked tables first
-     if (!found || !chooseExactValues(clientCode) || !keepSafetyCopy(command, found->cascaded) ||
+     if (!found || !chooseExactValues(clientCode) || (command.isEmpty() && !keepSafetyCopy(command, found->cascaded)) ||

@ copy-before-modify-field
file: src/structure/tableinfo.cpp
tests: test_safetyhooks:structureCommands
why: Modify Field writes a safety copy of its table first
-     if (!keepSafetyCopy(QStringLiteral("Modify Field")))
+     if (false)

@ copy-before-delete-field
file: src/structure/tableinfo.cpp
tests: test_safetyhooks:structureCommands
why: Delete Field writes a safety copy of its table first
-     if (!keepSafetyCopy(QStringLiteral("Delete Field")))
+     if (false)

@ copy-before-create-table-drop
file: src/structure/createtable.cpp
tests: test_safetyhooks:structureCommands
why: Create Table writes a safety copy of the table it drops
-         if (const DbError copyError = SafetyNet::protectTables(session, QStringLiteral("Create Table"), dropped,
+         if (const DbError copyError = DbError{}; false && SafetyNet::protectTables(session, QStringLiteral("Create Table"), dropped,

@ copy-before-repair
file: src/maintenance/repairtable.cpp
tests: test_safetyhooks:repairsCopyFiles
why: Repair Tables copies the files of each ticked table first (an extended repair can drop rows)
-             SafetyNet::protectTableFiles(session, QStringLiteral("Repair Tables"), m_list->tickedTables())) {
+             DbError{}) {

@ copy-before-check-replace
file: src/maintenance/checktable.cpp
tests: test_safetyhooks:checkTablesReplace
why: Check Tables' Replace copies the table files it overwrites
-     if (const DbError error = SafetyNet::protectFiles(QStringLiteral("Check Tables Replace"), database,
+     if (const DbError error = DbError{}; false && SafetyNet::protectFiles(QStringLiteral("Check Tables Replace"), database,

@ copy-before-import
file: src/import/frmimportdata.cpp
tests: test_safetyhooks:importIntoExistingTable
why: Import Data into an existing table writes a safety copy of it first
-                 SafetyNet::protectTables(session, QStringLiteral("Import Data"), {plan.targetTable})) {
+                 DbError{}) {

@ copy-refuses-whole-view
file: src/safety/safetynet.cpp
tests: test_safetyhooks:throughAView test_safetynet:viewsAndQualifiedNames
why: a command that rewrites a whole table is refused on a view of tables
-             if (reach == Reach::WholeTable && !bases->isEmpty())
+             if (false)

@ copy-case-twins
file: src/safety/safetynet.cpp
tests: test_safetynet:putBackRestoresExactly
why: `Foo` and `foo` are copied apart where the server tells them apart
-         if (table.isEmpty() || seen.contains(table, nameCase))
+         if (table.isEmpty() || ((void)nameCase, seen.contains(table, Qt::CaseInsensitive)))

@ copy-other-database
file: src/safety/safetynet.cpp
tests: test_safetynet:viewsAndQualifiedNames
why: a name like otherdb.keep that stands for a table of another database stops the command
-             if (there->recordCount() > 0)
+             if (false)

@ copy-time-zone
file: src/safety/copysql.cpp
tests: test_safetynet:putBackRestoresExactly
why: copies and put-backs read and write TIMESTAMP values in UTC, whatever the server's zone
-                           "time_zone='+00:00', foreign_key_checks=0");
+                           "foreign_key_checks=0");

@ copy-header-checksum
file: src/safety/safetycopy.cpp
tests: test_safetynet:damagedCopyUnreadable
why: a copy whose header changed is unreadable, not different
-         qFromLittleEndian<quint32>(crcBytes) != crc(QByteArray(kMagic + QByteArray(lenBytes, 4) + headerText)))
+         false)

@ copy-trailer-checksum
file: src/safety/safetycopy.cpp
tests: test_safetynet:damagedCopyUnreadable
why: a copy whose trailer changed is unreadable, not different
-     if (crc(trailerText) != trailerCrc)
+     if (crc(trailerText) != trailerCrc && false)

@ copy-stored-checksum
file: src/safety/safetycopy.cpp
tests: test_safetynet:filesPutBack
why: a copy of files, stored uncompressed, checks each file's checksum before the file goes back
-         return u32(written) && written == expected;
+         return u32(written) && (written == expected || true);

@ prune-keeps-new-copy
file: src/safety/safetynet.cpp
tests: test_safetynet:oldestCopiesGo
why: pruning never removes the copy just written, even when it alone is over the limit
-         while (victim >= 0 && kept.contains(QFileInfo(copies[victim].path).absoluteFilePath()))
+         while (false)

@ put-back-reads-through
file: src/safety/putback.cpp
tests: test_safetynet:damagedCopyUnreadable,refusedPutBackChangesNothing
why: a copy is read through once before anything is replaced, so a damaged one puts nothing back
-     if (DbError e = SafetyCopy::read(copy.path, check))
+     if (DbError e = DbError{})

@ put-back-parent-by-name
file: src/safety/putback.cpp
tests: test_safetynet:putBackRestoresExactly
why: a table other tables' foreign keys point at is replaced by name, so that their keys find the new one
-         if (*exists > 0 && *children > 0) {
+         if (false) {

@ put-back-foreign-keys
file: src/safety/putback.cpp
tests: test_safetynet:putBackRestoresExactly
why: a table put back gets its own foreign keys again
-         if (!m_foreignKeys.isEmpty()) {
+         if (false) {

@ restore-reserved-table-name
file: src/backup/restorecheck.cpp
tests: test_backuptools:restoreChecksBeforeChanging
why: a table whose name the server reserves is refused before the first statement
-         if (reservedTables->contains(table)) {
+         if (false) {

@ restore-column-names
file: src/backup/restorecheck.cpp
tests: test_backuptools:restoreChecksBeforeChanging
why: a file column the restore's statements cannot name is refused before the first statement
-             if (!BackupArchive::isTableName(column))
+             if (false)

@ restore-view-refusal
file: src/backup/restorecheck.cpp
tests: test_backuptools:restoreChecksBeforeChanging
why: a ticked table that is a view of the target is refused
-         if (types.value(name) == QLatin1String("VIEW")) {
+         if (false) {

@ restore-cascade-refusal
file: src/backup/restorecheck.cpp
tests: test_backuptools:restoreChecksBeforeChanging
why: a delete that would cascade into a table that is not ticked is refused
-     if (!deletes)
+     if (!deletes || true)

@ restore-holds-cascades
file: src/backup/restore.cpp
tests: test_backuptools:demoRoundTrip
why: cascades among ticked tables are held, so a later delete does not undo rows restored before
-     if (!found.cascadesAmongTicked)
+     if (!found.cascadesAmongTicked || true)

@ restore-fit-check
file: src/backup/restore.cpp
tests: test_backuptools:restoreChecksBeforeChanging
why: a table file that does not fit its table stops the restore before the table's delete
-     if (!fit->misfit.isEmpty()) {
+     if (false) {

@ archive-entry-names
file: src/backup/backuparchive.cpp
tests: test_backuplogic:hostile
why: an archive entry that is not a table name (a path, a link) is refused before unpacking
-         if (!isTableName(name) || name.toUtf8() != rawName)
+         if (false)

@ archive-unpack-space
file: src/backup/backuparchive.cpp
tests: test_backuplogic:hostile
why: an archive the disk has no room to unpack is refused before the first file is written
-     if (needed > available)
+     if (false)

@ backup-keeps-earlier-archive
file: src/backup/backup.cpp
tests: test_backuptools:failureWhilePacking
why: the day's earlier archive stays until the new one is whole and takes its place
-         m_replace = true;
+         QDir().remove(m_set.archivePath());
+         m_replace = true;

@ backup-carries-unread-tables
file: src/backup/backup.cpp
tests: test_backuptools:backupNamesWhatItLeftOut
why: a table that cannot be read now keeps its copy from the archive being replaced
-     if (m_replace && !m_unread.isEmpty()) {
+     if (false) {

@ import-db-minimised
file: src/script/importdb.cpp
tests: test_importdb:startsMinimised
why: import_db starts minimised
-         window.showMinimized();
+         window.show();

@ innodb-table-transaction
file: src/db/tabletransaction.cpp
tests: test_tabledata:saveTableLostPartWay test_backuptools:restoreLostPartWay
why: an InnoDB table's rewrite is one transaction, so a rewrite that stops part-way leaves the table as it was
-     bool transactional = found->recordCount() > 0;
+     bool transactional = false;

@ copy-before-table-detail-repair
file: src/structure/tableinfo.cpp
tests: test_safetyhooks:repairsCopyFiles
why: Table Detail copies the files of the MyISAM and Aria tables it repairs before listing them
-     if (const DbError error = SafetyNet::protectTableFiles(session, QStringLiteral("Table Detail"), listed)) {
+     if (const DbError error = DbError{}) {

@ copy-before-search-repair
file: src/data/search.cpp
tests: test_safetyhooks:repairsCopyFiles
why: Search copies the files of the MyISAM and Aria tables it repairs before the first repair
-     if (const DbError copy = SafetyNet::protectTableFiles(m_host.sessionOrClosed(), QStringLiteral("Search"),
-                                                           tables.mid(first, last - first + 1))) {
+     if (const DbError copy = DbError{}) {

@ restore-stops-where-refused
file: src/backup/restore.cpp
tests: test_safetyhooks:restoreLosesRows
why: a table restore that a refused row stops sends no row after it to a table without transactions
-     const auto sending = counted || transaction.active() ? StatementPipeline::Sending::Ahead
+     const auto sending = true ? StatementPipeline::Sending::Ahead

@ session-busy-while-reading
file: src/db/databasesession.cpp
tests: test_databasesession:streamingRows
why: a statement from another window while a table's rows are still being read is refused, not sent into the open result
-     if (c.reading)
-         return stillReading();
+     if (false)
+         return stillReading();

@ backup-keeps-earlier-part
file: src/backup/backuparchive.cpp
tests: test_backuplogic:packAndExtract
why: a table written again into a backup keeps its earlier, whole part until the later one is whole too
-                 for (int n = 2; std::any_of(state->parts.begin(), state->parts.end(),
+                 for (int n = 2; false && std::any_of(state->parts.begin(), state->parts.end(),

@ lock-wait-rolls-back-table
file: src/db/tabletransaction.cpp
tests: test_databasesession:lockWaitThatRollsBackAll
why: on a server that rolls back a whole transaction when a lock wait times out, a table's writes stop there rather than commit the rows sent after it without those before
-                                (outcome.serverCode == kLockWaitTimeout && rollsBackOnTimeout());
+                                (outcome.serverCode == kLockWaitTimeout && false);

@ grid-compaction-keeps-nulls
file: src/grid/griddata.cpp
tests: test_griddata:randomEditsMatchReference
why: a grid that rebuilds its columns after rows are removed keeps each NULL cell a NULL, so a save writes NULL and not ''
-         for (const std::uint32_t p : m_order) {
-             if (column.isNull(p))
+         for (const std::uint32_t p : m_order) {
+             if (false)
EOF
export MUTANTS

# The helper that reads the table above: names, a mutant's fields, the check and the edit.
helper() {
  python3 - "$@" <<'PY'
import os, sys

def parse(text):
    mutants, cur = [], None
    for line in text.split("\n"):
        if line.startswith("@ "):
            cur = {"name": line[2:].strip(), "orig": [], "repl": []}
            mutants.append(cur)
        elif cur is None or not line.strip():
            continue
        elif line.startswith("- ") or line == "-":
            cur["orig"].append(line[2:])
        elif line.startswith("+ ") or line == "+":
            cur["repl"].append(line[2:])
        else:
            key, _, value = line.partition(":")
            cur[key.strip()] = value.strip()
    for m in mutants:
        m["orig"] = "\n".join(m["orig"])
        m["repl"] = "\n".join(m["repl"])
    return mutants

mutants = parse(os.environ["MUTANTS"])
by_name = {m["name"]: m for m in mutants}
cmd, args = sys.argv[1], sys.argv[2:]

def count(tree, m):
    path = os.path.join(tree, m["file"])
    if not os.path.isfile(path):
        return -1
    with open(path, encoding="utf-8") as f:
        return f.read().count(m["orig"])

if cmd == "names":
    print("\n".join(m["name"] for m in mutants))
elif cmd == "get":
    print(by_name[args[0]][args[1]])
elif cmd == "list":
    for m in mutants:
        print(f'{m["name"]:32} {m["file"]}\n{"":32} {m["why"]}\n{"":32} tests: {m["tests"]}')
elif cmd == "count":
    print(count(args[0], by_name[args[1]]))
elif cmd == "check":
    bad = 0
    for m in mutants:
        n = count(args[0], m)
        if n != 1:
            bad += 1
            print(f'{m["name"]}: its text occurs {max(n, 0)} times in {m["file"]}, not once')
    sys.exit(1 if bad else 0)
elif cmd == "apply":
    m = by_name[args[1]]
    path = os.path.join(args[0], m["file"])
    with open(path, encoding="utf-8") as f:
        text = f.read()
    if text.count(m["orig"]) != 1:
        sys.exit(3)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text.replace(m["orig"], m["repl"]))
else:
    sys.exit(f"unknown helper command {cmd}")
PY
}

say() { printf '==> %s\n' "$*"; }
die() { printf 'mutants.sh: %s\n' "$*" >&2; exit 1; }

mapfile -t all_names < <(helper names)
selected=()
for arg in "$@"; do
  case "$arg" in
    --list) helper list; exit 0 ;;
    --check) helper check "$root" && say "every mutant's text occurs once"; exit $? ;;
    -*) die "unknown option $arg (see the head of this script)" ;;
    *)
      printf '%s\n' "${all_names[@]}" | grep -qxF -- "$arg" || die "no mutant named $arg (mutants.sh --list)"
      selected+=("$arg") ;;
  esac
done
[ ${#selected[@]} -gt 0 ] || selected=("${all_names[@]}")

# The texts are checked against the tree as it is before anything is built.
helper check "$root" || die "some mutants no longer apply (above); update their texts"

say "copying the tree to $tree"
mkdir -p "$tree" "$logs"
# Files that changed get the time of the copy, so that the build sees them as newer than what it
# built from them before, whatever their time in the tree.
rsync -a --no-times --checksum --delete --exclude '/build*' --exclude '/.git' --exclude '/.demo' --exclude '/.testdb' \
  --exclude '/.package' "$root/" "$tree/"

# Test executables and the test entries of the chosen mutants.
declare -A entry_seen=()
entries=()
targets=()
for name in "${selected[@]}"; do
  for entry in $(helper get "$name" tests); do
    exe=${entry%%:*}
    [ -n "${entry_seen[$entry]:-}" ] || entries+=("$entry")
    entry_seen[$entry]=1
    printf '%s\n' "${targets[@]}" | grep -qxF "$exe" || targets+=("$exe")
  done
done

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
  # Paths below the common parent are hashed relative to it, so the copy shares the cache
  # with the tree it came from.
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$(dirname "$root")}
fi
jobs=${MUTANTS_JOBS:-$(nproc)}
build_targets() { cmake --build "$build" -j"$jobs" --target "$@"; }

say "configuring and building ${targets[*]} in $build"
cmake -S "$tree" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTABULON_WERROR=ON "${launcher[@]}" >"$logs/configure.log" 2>&1 ||
  die "configuring failed (see $logs/configure.log)"
build_targets "${targets[@]}" >"$logs/build.log" 2>&1 || die "the tree does not build without a mutant (see $logs/build.log)"

dbdir=$(mktemp -d "${TMPDIR:-/tmp}/tabulon-mutants.XXXXXX")
current_file=""
current_backup=""
cleanup() {
  # A mutant still in the copy is taken out again.
  if [ -n "$current_file" ] && [ -f "$current_backup" ]; then
    cp "$current_backup" "$current_file" && touch "$current_file"
  fi
  bash "$mariadb_script" stop "$dbdir/rollback-server" >/dev/null 2>&1 || true
  bash "$mariadb_script" stop "$dbdir" >/dev/null 2>&1 || true
  rm -rf "$dbdir"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

port_taken() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
port=${MUTANTS_PORT:-13400}
while port_taken "$port"; do
  port=$((port + 1))
  [ "$port" -lt 13500 ] || die "no free port between 13400 and 13499"
done
say "starting a private MariaDB server on 127.0.0.1:$port"
bash "$mariadb_script" start "$dbdir" "$port" --general-log >"$logs/server.log" 2>&1 ||
  die "the private MariaDB server did not start (see $logs/server.log)"
# A second one that rolls back a whole transaction on a lock wait timeout, for the tests of it.
rollback_port=$((port + 1))
while port_taken "$rollback_port"; do
  rollback_port=$((rollback_port + 1))
  [ "$rollback_port" -lt 13500 ] || die "no free port between 13400 and 13499"
done
bash "$mariadb_script" start "$dbdir/rollback-server" "$rollback_port" --rollback-on-timeout >>"$logs/server.log" 2>&1 ||
  die "the second private MariaDB server did not start (see $logs/server.log)"

# run_entry ENTRY LOG: runs one test executable (some of its functions) offscreen against the
# server, with the data and settings folders the test command gives it. Returns its status.
run_entry() {
  local entry=$1 log=$2 exe functions=()
  exe=${entry%%:*}
  if [ "$entry" != "$exe" ]; then
    IFS=, read -r -a functions <<<"${entry#*:}"
  fi
  local path
  path=$(find "$build/tests" -type f -name "$exe" -perm -u+x | head -n1)
  [ -n "$path" ] || { echo "no executable $exe" >>"$log"; return 2; }
  printf -- '--- %s\n' "$entry" >>"$log"
  (cd "$(dirname "$path")" &&
    env QT_QPA_PLATFORM=offscreen XDG_DATA_HOME="$build/test-data" XDG_CONFIG_HOME="$build/test-config" \
      TABULON_TEST_SERVER="127.0.0.1:$port" TABULON_TEST_ROLLBACK_SERVER="127.0.0.1:$rollback_port" timeout "${MUTANTS_TEST_TIMEOUT:-600}" "$path" "${functions[@]}") \
    >>"$log" 2>&1
}

say "running the tests without a mutant"
: >"$logs/baseline.log"
for entry in "${entries[@]}"; do
  log="$logs/baseline.log"
  run_entry "$entry" "$log" || die "$entry fails without a mutant (see $log); every mutant would look caught"
done

results=()
failures=0
for name in "${selected[@]}"; do
  file=$(helper get "$name" file)
  tests=$(helper get "$name" tests)
  log="$logs/$name.log"
  : >"$log"
  start=$SECONDS
  current_file="$tree/$file"
  current_backup="$scratch/original"
  cp "$current_file" "$current_backup"
  outcome=""
  if ! helper apply "$tree" "$name"; then
    outcome="does not apply"
  else
    say "$name: building"
    mutant_targets=()
    for entry in $tests; do mutant_targets+=("${entry%%:*}"); done
    if ! build_targets "${mutant_targets[@]}" >>"$log" 2>&1; then
      outcome="does not build"
    else
      say "$name: running $tests"
      outcome="survived"
      for entry in $tests; do
        status=0
        run_entry "$entry" "$log" || status=$?
        if [ "$status" -ne 0 ]; then
          outcome=caught
          [ "$status" -ne 124 ] || outcome="caught (time-out)"
          break
        fi
      done
    fi
  fi
  cp "$current_backup" "$current_file"
  touch "$current_file"
  current_file=""
  case "$outcome" in caught*) ;; *) failures=$((failures + 1)) ;; esac
  results+=("$(printf '%-32s %-15s %6ss  %s' "$name" "$outcome" $((SECONDS - start)) "$tests")")
  say "$name: $outcome"
done
# The copy is left as it came, built, for the next run.
build_targets "${targets[@]}" >"$logs/build.log" 2>&1 || true

printf '\n%-32s %-15s %7s  %s\n' mutant outcome time "tests run"
printf '%s\n' "${results[@]}"
printf '\n%d of %d mutants caught\n' $((${#selected[@]} - failures)) ${#selected[@]}
[ "$failures" -eq 0 ]
