# What the scripts of real servers share: a server of the tests' own, in a folder of its own, on loopback.
#
# A server runs for as long as its script's standard input is open. The test holds the other end of that pipe, so the
# server stops and its folder goes when the test ends, in whatever way it ends.
set -eu
umask 022

die() { echo "$(basename "$0"): $*" >&2; exit 1; }

answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1"); }
STOP=TERM

# serve PORT COMMAND...: starts the command, a server that stays in the foreground; prints "ready" when it answers.
serve() {
  local port=$1; shift
  setsid "$@" </dev/null >>"$DIR/output.log" 2>&1 &
  server=$!
  trap stop EXIT
  trap 'exit 1' HUP INT TERM
  local try=0
  until answers "$port" 2>/dev/null; do
    kill -0 "$server" 2>/dev/null || die "$1 ended: $(tail -n 5 "$DIR"/*.log)"
    [ $((try += 1)) -lt 500 ] || die "$1 does not answer on port $port"
    sleep 0.02
  done
  echo ready
  cat >/dev/null
}

# The server leads a process group of its own: whatever it started goes with it.
stop() {
  trap - EXIT
  kill "-$STOP" -- "-$server" 2>/dev/null || :
  local try=0
  while kill -0 -- "-$server" 2>/dev/null && [ $((try += 1)) -lt 250 ]; do sleep 0.02; done
  kill -KILL -- "-$server" 2>/dev/null || :
  wait "$server" 2>/dev/null || :
  rm -rf "$DIR"
}

# The pages that every server has. Two users may enter /auth/: ada with a short password, ida with one of 200 bytes.
write_pages() {
  mkdir -p "$DIR/www/auth"
  printf 'alpha\nbeta\n' >"$DIR/www/a.txt"
  echo 'behind a login' >"$DIR/www/auth/secret.txt"
  { password_line ada pw; password_line ida "$(printf 'p%.0s' $(seq 200))"; } >"$DIR/passwords"
}
password_line() { echo "$1:{SHA}$(printf %s "$2" | openssl dgst -sha1 -binary | openssl base64 -A)"; }

# A line of the configuration that only root may have: servers drop its rights.
as_root() { [ "$(id -u)" != 0 ] || printf '%s\n' "$@"; }
