#!/bin/sh
# The program behind one of the web servers a camera ships, end to end on a free loopback port:
# tests/web_server_test.sh lighttpd|apache2|mini_httpd. The server runs from the sample
# configuration of tools/web/ with the program at its installed place; a wrapper there records
# the CGI environment of every request. Checks a pull point at its own address (the query
# reaches the program), the headers that reach it, the bodies a server may pass on oddly (each
# answered, never a hang) and HTTP digest in the ONVIF mode.
server="${1:-}"
case "$server" in
    lighttpd) binary=lighttpd; package=lighttpd ;;
    apache2) binary=apache2; package=apache2 ;;
    mini_httpd) binary=mini_httpd; package=mini-httpd ;;
    *) echo "usage: $0 lighttpd|apache2|mini_httpd" >&2; exit 2 ;;
esac
. "$(dirname "$0")/common.sh"
PATH="$PATH:/usr/sbin:/sbin"
if ! command -v "$binary" >/dev/null; then
    . "$top/tools/packages.sh"
    install_missing "$package" >/dev/null || { echo "SKIP: $package not installable"; exit 77; }
fi
chmod 755 "$work"
htdocs="$work/htdocs"
pid=""
port=$(free_port tcp)
more_cleanup() {
    if [ -n "$pid" ]; then
        kill -TERM "$pid" 2>/dev/null
        wait "$pid" 2>/dev/null
    fi
    ONVIF_ROOT="$root" $shm remove >/dev/null 2>&1
}
fail() {
    echo "FAIL ($server): $*"
    cat "$work"/*.log "$work"/apache/error.log 2>/dev/null | tail -20
    exit 1
}

# --- A camera root and its segment.
mkdir -p "$root" "$htdocs/onvif"
cp -a "$top/factory/." "$root/"
sed -i "s|^root.Network.IPAddress=.*|root.Network.IPAddress=127.0.0.1|" "$root/etc/sysconfig/network.conf"
for conf in "$root/tmp/onvif/onvif.conf" "$root/usr/apache/htdocs/onvif/onvif.conf"; do
    sed -i -e "s|^Network.IPv4.Config.Manual.Address=.*|Network.IPv4.Config.Manual.Address=127.0.0.1|" \
        -e "s|^Network.Protocols.HTTP.Port=.*|Network.Protocols.HTTP.Port=$port|" "$conf"
done
ONVIF_ROOT="$root" $shm create >/dev/null || fail "no segment"
ONVIF_ROOT="$root" $shm set $(grep -v '^#' "$top/tools/sim/camera-words" | tr '\n' ' ') >/dev/null

# The program's place; the wrapper records the environment the server gave.
cat > "$htdocs/onvif/device_service" <<WRAPPER
#!/bin/sh
{ env | LC_ALL=C sort; echo; } >> "$work/env.log"
ONVIF_ROOT="$root" exec "$build/device_service"
WRAPPER
chmod 755 "$htdocs/onvif/device_service"
touch "$work/env.log"
# A server started as root hands requests to an unprivileged user.
user=""
if [ "$(id -u)" -eq 0 ]; then
    user=nobody
    chown -R "$user" "$work"
fi
sample() { sed "s|@ONVIF_INSTALL_HTDOCS_DIR@|$htdocs|g" "$top/tools/web/$1" > "$work/$1"; }

case "$server" in
lighttpd)
    sample lighttpd-onvif.conf
    cat > "$work/lighttpd.conf" <<CONF
server.bind = "127.0.0.1"
server.port = $port
server.document-root = "$htdocs"
$([ -n "$user" ] && echo "server.username = \"$user\"")
include "$work/lighttpd-onvif.conf"
CONF
    lighttpd -D -f "$work/lighttpd.conf" > "$work/server.log" 2>&1 &
    pid=$!
    ;;
apache2)
    sample apache2-onvif.conf
    modules=/usr/lib/apache2/modules
    mkdir -p "$work/apache"
    cat > "$work/apache2.conf" <<CONF
ServerRoot "$work/apache"
DefaultRuntimeDir "$work/apache"
PidFile "$work/apache/httpd.pid"
ErrorLog "$work/apache/error.log"
Mutex file:$work/apache default
Listen 127.0.0.1:$port
ServerName 127.0.0.1
LoadModule mpm_event_module $modules/mod_mpm_event.so
LoadModule authz_core_module $modules/mod_authz_core.so
LoadModule alias_module $modules/mod_alias.so
LoadModule cgid_module $modules/mod_cgid.so
ScriptSock "$work/apache/cgid.sock"
StartServers 1
ServerLimit 1
ThreadsPerChild 8
MaxRequestWorkers 8
DocumentRoot "$htdocs"
$([ -n "$user" ] && printf 'User %s\nGroup nogroup\n' "$user")
Include "$work/apache2-onvif.conf"
CONF
    [ -z "$user" ] || chown -R "$user" "$work/apache"
    apache2 -f "$work/apache2.conf" -DFOREGROUND > "$work/server.log" 2>&1 &
    pid=$!
    ;;
mini_httpd)
    sample mini_httpd.conf
    mini_httpd -C "$work/mini_httpd.conf" -h 127.0.0.1 -p "$port" -D -l "$work/access.log" \
        ${user:+-u "$user"} > "$work/server.log" 2>&1 &
    pid=$!
    ;;
esac

url="http://127.0.0.1:$port/onvif/device_service"
# mini_httpd cuts the answer off when the body came in its first read of the
# request (its body copier shuts the connection's sending side): the body
# goes after a short wait for a 100 Continue that never comes.
later=""
[ "$server" != mini_httpd ] || later="--expect100-timeout 0.2"
# post URL FILE [curl options]: the answer, then its status on a last line.
post() {
    to="$1"; file="$2"; shift 2
    curl -s --max-time 10 -H 'Content-Type: application/soap+xml; charset=utf-8' ${later:+-H "Expect: 100-continue" $later} \
        "$@" --data-binary @"$file" -w '\n%{http_code}' "$to"
}
soap() {  # BODY [HEADER [URL]], as common.sh's, through post
    envelope "$1" "${2:-}" > "$work/request"
    post "${3:-$url}" "$work/request"
}
status_of() { printf '%s\n' "$1" | tail -n 1; }

answer=""
for i in $(seq 1 100); do
    answer=$(post "$url" "$top/tools/sim/GetDeviceInformation.xml") && [ "$(status_of "$answer")" = 200 ] && break
    sleep 0.1
done
echo "$answer" | grep -q "<tds:Manufacturer>Camera</tds:Manufacturer>" || fail "no device information: $answer"

subscription=$(pull_point)
case "$subscription" in
    "http://127.0.0.1:$port/onvif/device_service?"*) ;;
    *) fail "pull point address: $subscription" ;;
esac
pulled=$(pull "$subscription" "$subscription")
echo "$pulled" | grep -q 'PropertyOperation="Initialized"' || fail "pull at $subscription: $pulled"
grep -qx "QUERY_STRING=${subscription#*\?}" "$work/env.log" || fail "no QUERY_STRING ${subscription#*\?}"

# --- What reaches the program: the host, the client, the credentials.
: > "$work/env.log"
post "$url" "$top/tools/sim/GetDeviceInformation.xml" -H 'Authorization: Digest username="admin", realm="camera"' > /dev/null
grep -Eq "^(HOST|HTTP_HOST)=127.0.0.1:$port\$" "$work/env.log" || fail "no host variable"
grep -qx "REMOTE_ADDR=127.0.0.1" "$work/env.log" || fail "no REMOTE_ADDR"
grep -qx "REQUEST_METHOD=POST" "$work/env.log" || fail "no REQUEST_METHOD"
if [ "$server" = mini_httpd ]; then
    # mini_httpd 1.30 keeps the header from every CGI program.
    ! grep -q "^HTTP_AUTHORIZATION=" "$work/env.log" || fail "mini_httpd now passes Authorization: update the contract"
else
    grep -qx 'HTTP_AUTHORIZATION=Digest username="admin", realm="camera"' "$work/env.log" \
        || fail "Authorization withheld from the program"
fi

# --- Bodies a server may pass on oddly: an answer every time, never a hang.
expect=$(post "$url" "$top/tools/sim/GetDeviceInformation.xml" -H 'Expect: 100-continue')
[ "$(status_of "$expect")" = 200 ] || fail "Expect: 100-continue: $expect"
chunked=$(post "$url" "$top/tools/sim/GetDeviceInformation.xml" -H 'Transfer-Encoding: chunked')
case "$(status_of "$chunked")" in
    200) echo "$chunked" | grep -q 'GetDeviceInformationResponse' || fail "chunked: $chunked" ;;
    400|411|501) ;;
    *) fail "chunked body: $chunked" ;;
esac
head -c 70000 /dev/zero | tr '\0' ' ' > "$work/long"
long=$(post "$url" "$work/long")
case "$(status_of "$long")" in
    400|413) ;;
    *) fail "over-long body: $long" ;;
esac
# More bytes than Content-Length announces: the program reads what was
# announced and answers that. With the body in the same packet as the
# headers mini_httpd sends nothing at all.
raw_post() {  # pause between headers and body, in seconds
    python3 - "$port" "$top/tools/sim/GetDeviceInformation.xml" "$1" <<'PY'
import socket, sys, time
body = open(sys.argv[2], "rb").read()
head = (b"POST /onvif/device_service HTTP/1.0\r\nHost: 127.0.0.1\r\nContent-Type: application/soap+xml\r\n"
        b"Content-Length: %d\r\n\r\n" % len(body))
s = socket.create_connection(("127.0.0.1", int(sys.argv[1])), timeout=10)
if float(sys.argv[3]):
    s.sendall(head)
    time.sleep(float(sys.argv[3]))
    head = b""
s.sendall(head + body + b"<trailing>garbage</trailing>" * 4)
print(b"".join(iter(lambda: s.recv(65536), b"")).decode("utf-8", "replace"))
PY
}
if [ "$server" = mini_httpd ]; then
    [ -z "$(raw_post 0)" ] || fail "mini_httpd now answers a body in the headers' packet: update the contract"
    announced=$(raw_post 0.2)
else
    announced=$(raw_post 0)
fi
echo "$announced" | head -n 1 | grep -q ' 200 ' || fail "longer than announced: $announced"
echo "$announced" | grep -q '</tds:GetDeviceInformationResponse></SOAP-ENV:Body></SOAP-ENV:Envelope>$' \
    || fail "answer cut: $announced"
# --- The ONVIF mode over HTTP digest: a request without credentials is
# challenged once per algorithm, and curl's answer to the challenge passes.
# mini_httpd keeps Authorization from the program: its cameras need
# WS-Security tokens.
if [ "$server" != mini_httpd ]; then
    sed -i "s|^Conformance.Mode=.*|Conformance.Mode=onvif|" "$root/tmp/onvif/onvif.conf"
    printf '%s' '<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Body>\
<GetUsers xmlns="http://www.onvif.org/ver10/device/wsdl"/></s:Body></s:Envelope>' > "$work/users"
    users() { post "$url" "$work/users" "$@"; }
    challenged=$(users -D "$work/challenge.headers")
    [ "$(status_of "$challenged")" = 401 ] || fail "no challenge: $challenged"
    # Apache joins the two headers into one list, as HTTP allows.
    challenges=$(grep -i '^WWW-Authenticate:' "$work/challenge.headers" | tr '\n' ' ')
    [ "$(echo "$challenges" | grep -o 'Digest realm=' | wc -l)" = 2 ] || fail "challenges: $challenges"
    echo "$challenges" | grep -q 'algorithm=SHA-256.*algorithm=MD5' || fail "SHA-256 not first: $challenges"
    signed=$(users --digest -u onvifuser:onvif1234)
    [ "$(status_of "$signed")" = 200 ] || fail "digest: $signed"
fi

echo "PASS ($server: chunked body $(status_of "$chunked"), over-long body $(status_of "$long"))"
