# Sourced by the set-up scripts: install_missing PACKAGE... installs with
# apt-get (through sudo when not root) the Debian packages that are not
# installed yet, and leaves their names in $missing.
install_missing() {
    missing=""
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
    done
    [ -n "$missing" ] || return 0
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    for p in $missing; do
        case "$p" in
        *:*) arch=${p#*:}
             dpkg --print-foreign-architectures | grep -qx "$arch" || $sudo dpkg --add-architecture "$arch" ;;
        esac
    done
    # A foreign architecture's security index is sometimes caught mid-sync;
    # what is needed comes from the main archive all the same.
    $sudo apt-get update -qq || true
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -o DPkg::Lock::Timeout=900 -y -qq $missing
}
