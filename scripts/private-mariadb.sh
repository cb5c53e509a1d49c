#!/usr/bin/env bash
# Starts or stops a private MariaDB server: its own data directory, socket, port and pid file
# under one folder owned by the caller. A system server and its data are never touched.
#
#   private-mariadb.sh start DIR PORT [--general-log] [--tls] [--rollback-on-timeout]
#                                       creates DIR on first use, starts, waits
#   private-mariadb.sh stop DIR
#   private-mariadb.sh env DIR          prints the connection settings
#
# The server listens on 127.0.0.1:PORT only. root connects over the socket without a
# password; the user dbop (empty password, all privileges) serves the program and the tests.
#
# --tls makes the server offer TLS. On first use openssl writes into DIR/tls: a CA of the
# folder's own (ca.pem, ca-key.pem), the server's certificate signed by it (server-cert.pem,
# server-key.pem; it names the host localhost only, so that a connection to 127.0.0.1 shows a
# host name mismatch) and a client certificate (client-cert.pem, client-key.pem).
#
# --rollback-on-timeout makes InnoDB take back a whole transaction, not only its statement, when
# a lock wait times out (innodb_rollback_on_timeout), as some operators' servers are set.
set -euo pipefail

cmd=${1:-}; dir=${2:-}
[ -n "$cmd" ] && [ -n "$dir" ] || { echo "usage: $0 start|stop|env DIR [PORT] [--general-log]" >&2; exit 2; }
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
data="$dir/data"; sock="$dir/mysqld.sock"; pidf="$dir/mysqld.pid"; logf="$dir/mysqld.err"

mariadbd_bin=/usr/sbin/mariadbd
[ -x "$mariadbd_bin" ] || mariadbd_bin=$(command -v mariadbd || command -v mysqld || true)
client_bin=$(command -v mariadb || command -v mysql || true)

# A CA, a server certificate for localhost and a client certificate, each made once.
make_certificates() {
  local tls=$1
  [ -f "$tls/client-key.pem" ] && return 0
  command -v openssl >/dev/null || { echo "openssl is needed for --tls" >&2; exit 1; }
  mkdir -p "$tls"
  (
    cd "$tls"
    openssl req -x509 -newkey rsa:2048 -nodes -days 3650 -subj "/CN=Tabulon test CA" \
      -keyout ca-key.pem -out ca.pem
    openssl req -newkey rsa:2048 -nodes -subj "/CN=localhost" -keyout server-key.pem -out server.csr
    printf 'subjectAltName=DNS:localhost\n' > server.ext
    openssl x509 -req -in server.csr -days 3650 -CA ca.pem -CAkey ca-key.pem -set_serial 01 \
      -extfile server.ext -out server-cert.pem
    openssl req -newkey rsa:2048 -nodes -subj "/CN=dbop" -keyout client-key.pem.new -out client.csr
    openssl x509 -req -in client.csr -days 3650 -CA ca.pem -CAkey ca-key.pem -set_serial 02 \
      -out client-cert.pem
    rm -f server.csr server.ext client.csr
    # Written last: its presence says the set is whole.
    mv client-key.pem.new client-key.pem
  ) >"$dir/tls.log" 2>&1 || { cat "$dir/tls.log" >&2; exit 1; }
}

running() { [ -f "$pidf" ] && kill -0 "$(cat "$pidf")" 2>/dev/null; }

case "$cmd" in
start)
  port=${3:?port required}
  general_log=0; tls=0; extra_args=()
  for opt in "${@:4}"; do
    case "$opt" in
      --general-log) general_log=1 ;;
      --tls) tls=1 ;;
      --rollback-on-timeout) extra_args+=(--innodb-rollback-on-timeout=ON) ;;
      *) echo "unknown option $opt" >&2; exit 2 ;;
    esac
  done
  if running; then echo "private MariaDB already running in $dir"; exit 0; fi
  tls_args=()
  if [ "$tls" = 1 ]; then
    make_certificates "$dir/tls"
    tls_args=(--ssl-ca="$dir/tls/ca.pem" --ssl-cert="$dir/tls/server-cert.pem" --ssl-key="$dir/tls/server-key.pem")
  fi
  user=$(id -un)
  if [ ! -d "$data/mysql" ]; then
    mkdir -p "$data"
    mariadb-install-db --no-defaults --datadir="$data" --user="$user" \
      --auth-root-authentication-method=socket --skip-test-db --skip-name-resolve \
      >"$dir/install.log" 2>&1 \
      || { cat "$dir/install.log" >&2; exit 1; }
  fi
  echo "$port" > "$dir/port"
  # The server runs as an operator's does: the server's own defaults (packet size, sql_mode,
  # durability), Debian's packaged character set and collation, and the local time of a zone
  # with daylight saving (time_zone SYSTEM, as installed). A test that needs another setting
  # sets it itself and says why.
  TZ=Europe/Oslo "$mariadbd_bin" --no-defaults --datadir="$data" --socket="$sock" --port="$port" \
    --bind-address=127.0.0.1 --pid-file="$pidf" --log-error="$logf" --user="$user" \
    --skip-name-resolve --general-log="$general_log" --log-output=TABLE \
    --character-set-server=utf8mb4 --collation-server=utf8mb4_general_ci "${tls_args[@]}" "${extra_args[@]}" \
    >/dev/null 2>&1 &
  for _ in $(seq 1 120); do
    if "$client_bin" --no-defaults -uroot --socket="$sock" -e 'select 1' >/dev/null 2>&1; then break; fi
    sleep 0.5
  done
  "$client_bin" --no-defaults -uroot --socket="$sock" -e 'select 1' >/dev/null 2>&1 \
    || { echo "private MariaDB did not start; see $logf" >&2; tail -20 "$logf" >&2 || true; exit 1; }
  "$client_bin" --no-defaults -uroot --socket="$sock" <<'SQL'
CREATE USER IF NOT EXISTS 'dbop'@'localhost' IDENTIFIED BY '';
CREATE USER IF NOT EXISTS 'dbop'@'127.0.0.1' IDENTIFIED BY '';
GRANT ALL PRIVILEGES ON *.* TO 'dbop'@'localhost' WITH GRANT OPTION;
GRANT ALL PRIVILEGES ON *.* TO 'dbop'@'127.0.0.1' WITH GRANT OPTION;
FLUSH PRIVILEGES;
SQL
  # Named time zones, as a server with its time-zone tables loaded knows them.
  if [ "$("$client_bin" --no-defaults -uroot --socket="$sock" -N -e 'SELECT COUNT(*) FROM mysql.time_zone_name')" = 0 ]; then
    mariadb-tzinfo-to-sql /usr/share/zoneinfo 2>/dev/null | "$client_bin" --no-defaults -uroot --socket="$sock" mysql
  fi
  # The log table outlives the server, and a new server numbers its connections from 1 again:
  # statements of an earlier run would read as this run's.
  "$client_bin" --no-defaults -uroot --socket="$sock" -e 'TRUNCATE TABLE mysql.general_log'
  tls_note=""; [ "$tls" = 1 ] && tls_note=", TLS with the CA $dir/tls/ca.pem"
  echo "private MariaDB running on 127.0.0.1:$port (socket $sock$tls_note)"
  ;;
stop)
  if running; then
    pid=$(cat "$pidf")
    kill "$pid" 2>/dev/null || true
    for _ in $(seq 1 60); do kill -0 "$pid" 2>/dev/null || break; sleep 0.5; done
    kill -9 "$pid" 2>/dev/null || true
  fi
  ;;
env)
  echo "TABULON_TEST_SERVER=127.0.0.1:$(cat "$dir/port")"
  echo "TABULON_TEST_SOCKET=$sock"
  if [ -f "$dir/tls/client-key.pem" ]; then echo "TABULON_TEST_TLS_DIR=$dir/tls"; fi
  ;;
*) echo "unknown command $cmd" >&2; exit 2 ;;
esac
