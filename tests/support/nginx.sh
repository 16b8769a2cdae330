#!/bin/bash
# nginx.sh DIR PORT: nginx on loopback for as long as standard input is open (see lib.sh). Removes DIR at the end.
. "$(dirname "$0")/lib.sh"
DIR=${1:?} PORT=${2:?}
MODULES=/usr/lib/nginx/modules

write_pages
mkdir -p "$DIR/temporary"
cat >"$DIR/nginx.conf" <<CONF
load_module $MODULES/ngx_http_echo_module.so;
daemon off;
$(as_root 'user www-data;')
worker_processes 1;
pid $DIR/nginx.pid;
error_log $DIR/error.log notice;
events { worker_connections 64; }
http {
  access_log off;
  client_body_temp_path $DIR/temporary/body;
  proxy_temp_path $DIR/temporary/proxy;
  fastcgi_temp_path $DIR/temporary/fastcgi;
  uwsgi_temp_path $DIR/temporary/uwsgi;
  scgi_temp_path $DIR/temporary/scgi;
  server {
    listen 127.0.0.1:$PORT;
    root $DIR/www;
    location /auth/ { auth_basic "Members"; auth_basic_user_file $DIR/passwords; }
    location = /absolute301 { return 301 http://127.0.0.1:$PORT/a.txt; }
    location = /absolute302 { return 302 http://127.0.0.1:$PORT/a.txt; }
    location = /relative302 { absolute_redirect off; return 302 /a.txt; }
    location = /nowhere302 { default_type text/plain; echo_status 302; echo moved; }
    location = /error500 { return 500; }
    location = /echo { default_type text/plain; echo_read_request_body; echo_request_body; }
    location = /slow { default_type text/plain; echo -n "1 first "; echo_flush; echo_sleep 1; echo -n "2 second"; }
  }
}
CONF
serve "$PORT" /usr/sbin/nginx -e "$DIR/error.log" -c "$DIR/nginx.conf"
