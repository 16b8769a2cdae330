#!/bin/bash
# apache.sh DIR PORT: Apache on loopback for as long as standard input is open (see lib.sh). Removes DIR at the end.
. "$(dirname "$0")/lib.sh"
DIR=${1:?} PORT=${2:?}
MODULES=/usr/lib/apache2/modules

# script NAME BODY: a CGI script.
script() {
  printf '#!/bin/sh\n%s\n' "$2" >"$DIR/cgi/$1"
  chmod 755 "$DIR/cgi/$1"
}

write_pages
mkdir -p "$DIR/cgi" "$DIR/run"
# The body is kept until it is whole: the server takes no answer before it has handed the request over.
script echo 'printf "Content-Type: text/plain\r\n\r\n"; body=$(mktemp); cat >"$body"; cat "$body"; rm -f "$body"'
script slow 'printf "Content-Type: text/plain\r\n\r\n1 first "; sleep 1; printf "2 second"'
script relative302 'printf "Status: 302 Found\r\nLocation: /a.txt\r\nContent-Type: text/plain\r\n\r\nmoved\n"'
script nowhere302 'printf "Status: 302 Found\r\nContent-Type: text/plain\r\n\r\nmoved\n"'
script error500 'printf "Status: 500 Broken\r\nContent-Type: text/plain\r\n\r\nbroken\n"'
cat >"$DIR/apache.conf" <<CONF
ServerRoot $DIR
ServerName 127.0.0.1:$PORT
Listen 127.0.0.1:$PORT
PidFile $DIR/apache.pid
DefaultRuntimeDir $DIR/run
$(as_root 'User www-data' 'Group www-data')
$(for module in mpm_prefork authz_core authz_user authn_core authn_file auth_basic alias cgi; do
  echo "LoadModule ${module}_module $MODULES/mod_$module.so"
done)
StartServers 1
MinSpareServers 1
ErrorLog $DIR/error.log
DocumentRoot $DIR/www
<Directory />
  AllowOverride None
  Require all granted
</Directory>
<Directory $DIR/www/auth>
  AuthType Basic
  AuthName "Members"
  AuthUserFile $DIR/passwords
  Require valid-user
</Directory>
Redirect 301 /absolute301 http://127.0.0.1:$PORT/a.txt
Redirect 302 /absolute302 http://127.0.0.1:$PORT/a.txt
$(for name in relative302 nowhere302 error500 echo slow; do echo "ScriptAlias /$name $DIR/cgi/$name"; done)
CONF
[ "$(id -u)" != 0 ] || chown www-data "$DIR/run"
serve "$PORT" /usr/sbin/apache2 -d "$DIR" -f "$DIR/apache.conf" -DFOREGROUND
