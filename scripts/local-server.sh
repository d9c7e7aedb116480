#!/bin/sh
# A distribution server on loopback, for the demo and the tests.
#
#   local-server.sh start DIR   serves DIR/www over https as localhost, as long as its caller runs
#   local-server.sh stop DIR    ends the server, if one runs
#
# start replaces a running server, and fails during another start or stop of the same DIR. stop
# waits for a running start and ends its server. The server ends within a second after its caller,
# however the caller ends.
#
# All files are in DIR: certificates, nginx's files, DIR/access.log and DIR/curl/.curlrc. With
# CURL_HOME=DIR/curl, curl finds the server and trusts it. DIR/extra.conf may contain directives for
# the server block, and DIR/site.conf further server blocks.
set -eu

PATH=$PATH:/usr/sbin:/sbin

make_certificates() {
  [ ! -e server.pem ] || return 0
  key='-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes'
  # shellcheck disable=SC2086 # several words
  {
    openssl req -x509 $key -keyout ca.key -out ca.pem -days 30 -subj "/CN=Loopback authority"
    openssl req $key -keyout server.key -out server.csr -subj "/CN=localhost"
  } 2>openssl.log
  echo "subjectAltName=DNS:localhost" >server.ext
  openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 30 \
    -extfile server.ext -out server.pem 2>>openssl.log
}

write_configuration() {
  # As root, nginx would run its workers as another user, who may not read this directory.
  user=
  [ "$(id -u)" -ne 0 ] || user='user root;'
  cat >nginx.conf <<CONF
$user
worker_processes 1;
pid "$dir/nginx.pid";
error_log "$dir/error.log";
events { worker_connections 512; }
http {
  access_log "$dir/access.log";
  client_body_temp_path "$dir/temp";
  proxy_temp_path "$dir/temp";
  fastcgi_temp_path "$dir/temp";
  uwsgi_temp_path "$dir/temp";
  scgi_temp_path "$dir/temp";
  default_type application/octet-stream;
  server {
    listen 127.0.0.1:$1 ssl;
    server_name localhost;
    ssl_certificate "$dir/server.pem";
    ssl_certificate_key "$dir/server.key";
    root "$dir/www";
    include "$dir/extra.con[f]";
  }
  include "$dir/site.con[f]";
}
CONF
  cat >curl/.curlrc <<CONF
connect-to = "localhost:443:127.0.0.1:$1"
cacert = "$dir/ca.pem"
noproxy = "*"
CONF
}

# Waits for the pid file of the server, which stop needs. Fails if the server cannot start.
is_up() {
  for _ in $(seq 250); do
    [ ! -s nginx.pid ] || return 0
    ! grep -qs emerg start.log || return 1
    sleep 0.02
  done
  return 1
}

# Serves until the caller ends. tail waits for that, and nginx ends when tail, its parent, ends.
serve() {
  trap - HUP INT TERM
  setpriv --pdeathsig TERM nginx -c "$dir/nginx.conf" -g 'daemon off;' &
  exec tail --pid="$PPID" -f /dev/null
}

start() {
  flock -n 9 || {
    echo "$dir: another start or stop is at work" >&2
    return 1
  }
  trap '' HUP INT TERM # stop could not end a server whose start was interrupted
  end_server
  mkdir -p www curl
  make_certificates
  for _ in 1 2 3 4 5 6 7 8 9 10; do
    write_configuration $((20000 + $(od -An -N2 -tu2 /dev/urandom) % 12000))
    serve >start.log 2>&1 9>&- & # without the lock
    if is_up; then return 0; fi
    # It may still run, and nothing else would end it.
    { kill $! && wait $!; } 2>/dev/null || true
    grep -q 'Address already in use' start.log || break
  done
  cat start.log >&2
  return 1
}

stop() {
  flock 9
  end_server
}

end_server() {
  # The server may end at any moment, for example by a signal to the whole process group.
  pid=$(cat nginx.pid 2>/dev/null) || return 0
  tail=$(sed -n 's/^PPid:[[:space:]]*//p' "/proc/$pid/status" 2>/dev/null) || return 0
  ! grep -qsx tail "/proc/$tail/comm" || kill "$tail" 2>/dev/null || true
  # nginx removes the pid file last. The process may remain as a zombie for a while.
  while [ -e nginx.pid ] && grep -qsx nginx "/proc/$pid/comm"; do sleep 0.02; done
}

case ${1-}:$# in
  start:2 | stop:2) ;;
  *)
    echo "usage: $0 start|stop DIR" >&2
    exit 1
    ;;
esac
cd "$2"
dir=$(pwd)
exec 9<.
"$1"
