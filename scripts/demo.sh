#!/usr/bin/env bash
# Runs Tabulon on a demo Orvita database. Installs what is missing, builds in build/, starts a
# private MariaDB server under .demo/ (its data is kept from run to run), creates the Orvita demo
# database for the user dbop on first use, points the program's settings at it and starts the
# program. The server is stopped again when the program ends.
#
# With a display the program runs in the foreground. Without one ($DISPLAY empty, or
# TABULON_DEMO_HEADLESS=1) it runs on a virtual X display: the script confirms the connection
# dialog, opens "Table D&ata", saves a screenshot, prints its path and ends the program.
#
# Environment: TABULON_DEMO_PORT (13310), TABULON_DEMO_CLIENTS (300), TABULON_BUILD_DIR (build/),
#              TABULON_DEMO_SCREENSHOT (.demo/screenshot.png), TABULON_DEMO_TIMEOUT (seconds, 60),
#              TABULON_DEMO_TOUR (a folder: without a display, also opens every tool in turn and
#              saves one screenshot each there, as docs/screenshots/ holds them),
#              TABULON_DEMO_PROGRAM and TABULON_DEMO_DEMODB (commands that run an installed
#              tabulon and tabulon-demodb instead of building them; scripts/package.sh uses them)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${TABULON_BUILD_DIR:-$root/build}
demo="$root/.demo"
dbdir="$demo/mariadb"
config="$demo/config"
port=${TABULON_DEMO_PORT:-13310}
clients=${TABULON_DEMO_CLIENTS:-300}
shot=$(realpath -m "${TABULON_DEMO_SCREENSHOT:-$demo/screenshot.png}")
timeout=${TABULON_DEMO_TIMEOUT:-60}
tour=${TABULON_DEMO_TOUR:+$(realpath -m "$TABULON_DEMO_TOUR")}
database=Orvita
mariadb_script="$root/scripts/private-mariadb.sh"

say() { printf '==> %s\n' "$*"; }
die() { printf 'demo.sh: %s\n' "$*" >&2; exit 1; }
port_taken() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

headless=no
if [ -z "${DISPLAY:-}" ] || [ "${TABULON_DEMO_HEADLESS:-0}" = 1 ]; then headless=yes; fi
if [ "$headless" = yes ]; then exec </dev/null; fi

say "checking packages"
bash "$root/scripts/install-deps.sh" || die "installing the packages failed; run this as root or with sudo"

if [ -n "${TABULON_DEMO_PROGRAM:-}" ]; then
  # An installed program, run as given (the words of the command split on spaces).
  read -r -a program <<<"$TABULON_DEMO_PROGRAM"
  read -r -a demodb <<<"${TABULON_DEMO_DEMODB:-tabulon-demodb}"
  say "running the installed program: ${program[*]}"
else
  say "building in $build"
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTABULON_WERROR=ON >/dev/null
  cmake --build "$build" --target tabulon tabulon-demodb -j"$(nproc)"
  program=("$build/src/tabulon")
  demodb=("$build/src/tabulon-demodb")
  [ -x "${program[0]}" ] || die "the build made no ${program[0]}"
fi

# --- the server ---------------------------------------------------------------------------------
mkdir -p "$dbdir"
# The server's socket path must stay under 107 bytes; a deep clone reaches its folder through a
# short link instead.
serverdir="$dbdir"
if [ ${#dbdir} -gt 90 ]; then
  serverdir="${TMPDIR:-/tmp}/tabulon-demo-$(id -u)-$(printf '%s' "$root" | cksum | cut -d' ' -f1)"
  ln -sfn "$dbdir" "$serverdir"
fi

started_here=no
pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  if [ "$started_here" = yes ]; then bash "$mariadb_script" stop "$serverdir" >/dev/null 2>&1 || true; fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM

if [ -f "$dbdir/mysqld.pid" ] && kill -0 "$(cat "$dbdir/mysqld.pid")" 2>/dev/null; then
  port=$(cat "$dbdir/port")
  say "the demo server is already running on 127.0.0.1:$port"
else
  port_taken "$port" && die "port $port is taken by another program; choose another with TABULON_DEMO_PORT"
  say "starting the demo MariaDB server on 127.0.0.1:$port (data in $dbdir)"
  bash "$mariadb_script" start "$serverdir" "$port" || die "the demo MariaDB server did not start; see $dbdir/mysqld.err"
  started_here=yes
fi

say "creating the $database demo database unless it exists"
TABULON_DEMODB_PASSWORD= "${demodb[@]}" --server "127.0.0.1:$port" --user dbop --database "$database" \
  --clients "$clients" --quiet || die "creating the demo database failed"

# --- the program's settings ---------------------------------------------------------------------
# QSettings' INI form of the keys Software/Corvane/Tabulon/{Server,User,Password,Database} of
# organisation Corvane, application Tabulon, under a configuration home of the demo's own;
# DataFolder tells Check Tables where the private server keeps its database folders; the safety
# copies of the demo's commands stay in the demo's folder too.
mkdir -p "$config/Corvane"
ini="$config/Corvane/Tabulon.ini"
# It holds a password, as the program's own file does: owner-only.
( umask 077; cat >"$ini" ) <<EOF
[Software]
Corvane\\Tabulon\\DataFolder=$dbdir/data/
Corvane\\Tabulon\\Database=$database
Corvane\\Tabulon\\Password=
Corvane\\Tabulon\\SafetyFolder=$demo/safety
Corvane\\Tabulon\\Server=127.0.0.1:$port
Corvane\\Tabulon\\User=dbop
EOF
chmod 600 "$ini"
export XDG_CONFIG_HOME="$config"

# --- an installation folder for "Re&name Folders && Files" to work on ------------------------------
install="$demo/Orvita"
if [ ! -d "$install" ]; then
  say "creating a sample installation folder in $install"
  mkdir -p "$install/bin" "$install/reports" "$install/templates"
  printf '[database]\r\nserver=127.0.0.1\r\nname=Orvita\r\n' >"$install/Orvita.ini"
  printf 'MZ\0\0Orvita client records\0' >"$install/bin/orvita.exe"
  for n in 1 2 3; do printf 'Orvita client list %s\r\n' "$n" >"$install/reports/orvita_clients_$n.rpt"; done
  printf 'Dear {owner},\r\nOrvita\r\n' >"$install/templates/orvita_letter.txt"
fi

# The program starts in the demo's folder, so its folder lists (the backup's, the folder tool's)
# open on the demo's own folders.
cd "$demo"

if [ "$headless" = no ]; then
  say "starting Tabulon (server 127.0.0.1:$port, database $database, user dbop, empty password)"
  status=0
  "${program[@]}" || status=$?
  exit "$status"
fi

# --- without a display: a virtual one, a few key presses and a screenshot ------------------------
for tool in Xvfb xdotool import; do
  command -v "$tool" >/dev/null || die "$tool is missing (install-deps.sh installs it)"
done

display=
for n in $(seq 90 189); do
  if [ ! -e "/tmp/.X11-unix/X$n" ] && [ ! -e "/tmp/.X$n-lock" ]; then display=$n; break; fi
done
[ -n "$display" ] || die "no free X display number between :90 and :189"

say "starting a virtual display :$display"
Xvfb ":$display" -screen 0 1280x800x24 -nolisten tcp >"$demo/xvfb.log" 2>&1 &
xvfb_pid=$!
pids+=("$xvfb_pid")
export DISPLAY=":$display"
# Ready once a client gets through, not when its socket appears.
for _ in $(seq 1 100); do
  xdotool getmouselocation >/dev/null 2>&1 && break
  kill -0 "$xvfb_pid" 2>/dev/null || die "Xvfb ended at once; see $demo/xvfb.log"
  sleep 0.1
done
xdotool getmouselocation >/dev/null 2>&1 || die "Xvfb did not open display :$display; see $demo/xvfb.log"
unset WAYLAND_DISPLAY

say "starting Tabulon on :$display (log in $demo/tabulon.log)"
QT_QPA_PLATFORM=xcb "${program[@]}" >"$demo/tabulon.log" 2>&1 &
app_pid=$!
pids=("$app_pid" "${pids[@]}")

app_alive() { kill -0 "$app_pid" 2>/dev/null; }
# The program's visible windows as "area id" lines, largest first.
app_windows() {
  local id geo w h
  for id in $(xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null || true); do
    geo=$(xdotool getwindowgeometry --shell "$id" 2>/dev/null) || continue
    w=$(sed -n 's/^WIDTH=//p' <<<"$geo")
    h=$(sed -n 's/^HEIGHT=//p' <<<"$geo")
    if [ "${w:-0}" -gt 1 ] && [ "${h:-0}" -gt 1 ]; then echo "$((w * h)) $id"; fi
  done | sort -rn
}
largest_window() { app_windows | awk 'NR == 1 { print $2 }'; }
smallest_window() { app_windows | awk '{ id = $2 } END { print id }'; }
# Waits until `condition` succeeds or the time is up; fails when the program has ended.
wait_for() {
  local seconds=$1; shift
  local deadline=$((SECONDS + seconds))
  while [ "$SECONDS" -lt "$deadline" ]; do
    "$@" && return 0
    app_alive || die "Tabulon ended early; see $demo/tabulon.log"
    sleep 0.25
  done
  return 1
}
has_windows() { [ "$(app_windows | awk 'END { print NR }')" -ge "$1" ]; }
connected() { xdotool search --onlyvisible --name '^Tabulon \[' >/dev/null 2>&1; }
screenshot() {
  mkdir -p "$(dirname "$shot")"
  import -window root "$shot" || die "taking the screenshot failed"
  say "screenshot: $shot"
}

wait_for "$timeout" has_windows 1 || die "no Tabulon window within $timeout s; see $demo/tabulon.log"
# The connection dialog follows the main window at start-up.
if wait_for 20 has_windows 2; then
  main=$(largest_window)
  dialog=$(smallest_window)
  # No window manager runs here: place the main window over the whole screen ourselves.
  xdotool windowmove "$main" 0 0 windowsize "$main" 1280 800 2>/dev/null || true
  sleep 1
  say "confirming the connection dialog"
  xdotool windowfocus --sync "$dialog" 2>/dev/null || true
  xdotool key --clearmodifiers Return
else
  say "no connection dialog appeared"
fi

if ! wait_for 20 connected; then
  screenshot
  die "the program did not connect to 127.0.0.1:$port (its caption never showed the database); screenshot kept"
fi
say "connected"

say "opening Table D&ata"
main=$(xdotool search --onlyvisible --name '^Tabulon \[' | awk 'NR == 1')
xdotool windowmove "$main" 0 0 windowsize "$main" 1280 800 2>/dev/null || true
xdotool windowfocus --sync "$main" 2>/dev/null || true
sleep 0.5
xdotool key --clearmodifiers alt+a
sleep 4
app_alive || die "Tabulon ended after opening Table D&ata; see $demo/tabulon.log"
screenshot

# --- the tour: every tool opened in turn, one screenshot each ------------------------------------
if [ -n "$tour" ]; then
  mkdir -p "$tour"
  # name, then the keys that open the tool from the main window's menus
  tools=(
    "tabledata:"
    "tableinfo:alt+e"
    "createtable:alt+c"
    "search:alt+s"
    "replacedata:alt+r"
    "backup:alt+h b"
    "restore:alt+h r"
    "checktable:alt+u Return"
    "repairtable:alt+u Down Return"
    "convertdb:alt+u Down Down Return"
    "importdata:alt+u i"
    "renamefolders:alt+n"
    "safetycopies:alt+u Down Down Down Down Return"
  )
  close_tool() {
    # Escape closes a tool; a tool that asks "Are you sure you want to exit?" gets Yes (Return).
    xdotool key --clearmodifiers Escape
    sleep 1
    if has_windows 2; then xdotool key --clearmodifiers Return; sleep 1; fi
  }
  for entry in "${tools[@]}"; do
    name=${entry%%:*}
    keys=${entry#*:}
    if [ -n "$keys" ]; then
      close_tool
      xdotool windowfocus --sync "$main" 2>/dev/null || true
      # shellcheck disable=SC2086
      xdotool key --clearmodifiers --delay 300 $keys
      sleep 3
    fi
    app_alive || die "Tabulon ended while opening $name; see $demo/tabulon.log"
    if [ "$name" = convertdb ]; then
      # The open-file dialog comes first: the Access sample of the tests typed into its file name
      # box opens the conversion window on it.
      xdotool type --delay 20 "$root/tests/fixtures/access/nwind.mdb"
      xdotool key --clearmodifiers Return
      sleep 3
    fi
    if [ "$name" = importdata ]; then
      # The Access sample of the tests as the source.
      xdotool key --clearmodifiers alt+f
      xdotool type --delay 20 "$root/tests/fixtures/access/nwind.mdb"
      xdotool key --clearmodifiers Return
      sleep 3
    fi
    if [ "$name" = renamefolders ]; then
      # The sample installation folder, typed into the folder box.
      xdotool key --clearmodifiers alt+f ctrl+a
      xdotool type --delay 20 "$install"
      xdotool key --clearmodifiers Return
      sleep 2
    fi
    import -window root "$tour/$name.png" || die "taking the screenshot of $name failed"
    say "screenshot of $name: $tour/$name.png"
    if [ "$name" = replacedata ]; then
      # Real work for the Safety Copies window to list, which leaves the data as it was: "Lyon"
      # replaced by itself, once by Replace on a hit of main_info1 and once by Replace All, each
      # writing its safety copy first. The tool is maximised at the top left with a fixed layout:
      # the buttons and the grid rows are clicked where they are. The hits list the zero
      # amounts of insurance first (the server finds 0 equal to any word); Replace All leaves
      # them, with a message that Return closes.
      dismiss() { if has_windows 2; then xdotool key --clearmodifiers Return; sleep 1; fi; }
      xdotool type --delay 20 Lyon
      xdotool key --clearmodifiers Tab
      xdotool type --delay 20 Lyon
      xdotool key --clearmodifiers Tab Tab space
      sleep 4
      xdotool mousemove 60 436 click 1
      sleep 1
      xdotool mousemove 67 76 click 1
      sleep 3
      dismiss
      xdotool mousemove 287 76 click 1
      sleep 5
      dismiss
      xdotool mousemove 640 780
      app_alive || die "Tabulon ended during the replace; see $demo/tabulon.log"
    fi
  done
fi
