#!/bin/bash
# postgres.sh DIR PORT: PostgreSQL on loopback for as long as standard input is open (see lib.sh), with the database
# "test" of the user "test" (password "test,pass;{word}"). Removes DIR at the end.
. "$(dirname "$0")/lib.sh"
DIR=${1:?} PORT=${2:?}
PROGRAMS=$(ls -d /usr/lib/postgresql/*/bin | sort -V | tail -1)
[ -x "$PROGRAMS/initdb" ] || die "PostgreSQL is not installed (package postgresql)"

# The server refuses to run as root.
as_user=()
if [ "$(id -u)" = 0 ]; then
  as_user=(setpriv --reuid=postgres --regid=postgres --init-groups --inh-caps=-all env HOME=/nonexistent)
  chown postgres "$DIR"
fi
cd /
printf 'test,pass;{word}\n' >"$DIR/password"
chmod 644 "$DIR/password"
"${as_user[@]}" "$PROGRAMS/initdb" -D "$DIR/data" -U test -A scram-sha-256 --pwfile="$DIR/password" -E UTF8 \
  --locale=C.UTF-8 --no-sync >"$DIR/output.log" 2>&1 || die "initdb: $(tail -n 5 "$DIR/output.log")"
echo 'CREATE DATABASE test' | "${as_user[@]}" "$PROGRAMS/postgres" --single -D "$DIR/data" -c fsync=off postgres \
  >>"$DIR/output.log" 2>&1 || die "CREATE DATABASE: $(tail -n 5 "$DIR/output.log")"

answers() { "$PROGRAMS/pg_isready" -q -h 127.0.0.1 -p "$1" -t 1; }
STOP=INT  # at once; TERM waits for every client
serve "$PORT" "${as_user[@]}" "$PROGRAMS/postgres" -D "$DIR/data" -p "$PORT" -c listen_addresses=127.0.0.1 \
  -c unix_socket_directories= -c fsync=off -c synchronous_commit=off -c full_page_writes=off -c shared_buffers=16MB \
  -c max_connections=80 -c autovacuum=off -c jit=off -c log_min_messages=warning
