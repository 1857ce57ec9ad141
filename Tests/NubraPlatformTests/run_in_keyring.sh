#!/bin/sh
# Runs a test binary inside a private D-Bus session with an unlocked gnome-keyring, so that it talks to
# a real Secret Service without touching the user's own keyring. Exits 77 (skipped) with the reason
# when such a session cannot be made here.
set -u
test_binary=$1
shift

skip() {
    echo "SKIP: $*"
    exit 77
}

command -v dbus-run-session >/dev/null 2>&1 || skip "dbus-run-session is not installed (package dbus-daemon/dbus-x11)"
command -v gnome-keyring-daemon >/dev/null 2>&1 || skip "gnome-keyring-daemon is not installed (package gnome-keyring)"

home=$(mktemp -d) || skip "no temporary directory"
trap 'rm -rf "$home"' EXIT
mkdir -p "$home/runtime" && chmod 700 "$home/runtime"

HOME=$home XDG_DATA_HOME=$home/data XDG_RUNTIME_DIR=$home/runtime XDG_CONFIG_HOME=$home/config \
    dbus-run-session -- sh -c '
        # A password on stdin creates and unlocks the login keyring without a prompt.
        printf "nubra-test" | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1 || exit 76
        exec "$@"
    ' sh "$test_binary" "$@"
status=$?
[ "$status" -eq 76 ] && skip "gnome-keyring-daemon could not start in the private session"
# dbus-run-session itself fails with 1 before running anything when there is no dbus-daemon.
exit "$status"
