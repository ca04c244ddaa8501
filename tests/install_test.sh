#!/bin/sh
# The staged tree of a firmware image: cmake --install of the build given
# (default build/) into a DESTDIR holds the program, the factory files and the
# web server configurations with the modes an image needs, and nothing else.
. "$(dirname "$0")/common.sh"
build="${1:-$build}"
stage="$work/stage"
DESTDIR="$stage" cmake --install "$build" > "$log" 2>&1 || fail "install"

factory=usr/share/onvif/factory
while read -r mode path; do
    [ -e "$stage/$path" ] || fail "missing $path"
    [ "$(stat -c %a "$stage/$path")" = "$mode" ] || fail "$path has mode $(stat -c %a "$stage/$path"), not $mode"
done <<EOF
755 usr/apache/htdocs/onvif/device_service
644 etc/onvif/lighttpd-onvif.conf
644 etc/onvif/apache2-onvif.conf
644 etc/onvif/mini_httpd.conf
644 $factory/tmp/onvif/onvif.conf
644 $factory/tmp/ONVIF_SHM/onvif
755 $factory/tmp/onvif/tmp
644 $factory/usr/apache/htdocs/onvif/Users.conf
755 $factory/usr/apache/htdocs/cgi-bin
644 $factory/etc/appWeb/appweb.pass
644 $factory/etc/sysconfig/network.conf
EOF
[ -x "$stage/usr/apache/htdocs/onvif/device_service" ] || fail "program not executable"

# Only those three places; no test stand-ins, notes or placeholders.
others=$(cd "$stage" && find . -type f | grep -v -e '^./usr/apache/htdocs/onvif/device_service$' \
    -e '^./etc/onvif/[^/]*\.conf$' -e "^./$factory/")
[ -z "$others" ] || fail "unexpected files: $others"
for gone in proc root MEDIA-FILES.md tmp/onvif/tmp/.keep; do
    [ ! -e "$stage/$factory/$gone" ] || fail "$gone staged"
done
for conf in "$stage"/etc/onvif/*.conf; do
    ! grep -q '@' "$conf" || fail "$conf keeps a placeholder"
    grep -q '/usr/apache/htdocs' "$conf" || fail "$conf does not name the document root"
done
echo PASS
