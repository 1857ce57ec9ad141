#!/bin/sh
# Nubra beside a bare Qt tray program (bench_bare_tray) on a virtual X11 desktop: start-up, idle memory
# and CPU of both, idle memory by mapping and by file, and Nubra's bubble and card latencies beside curl
# on the same service; then the same lookups on headless sway and mutter (wayland_app_bench.py).
# Numbers are reported as ratios to the reference of the same run, never judged.
#   bench/app/run.sh [--only idle-memory|lookups|wayland]... BUILD_DIR [RUNS] [LOOKUPS]
# BUILD_DIR is configured with NUBRA_BENCH=ON. --only picks parts and leaves the idle CPU window out:
# idle-memory (start-up and idle memory beside the bare tray, about 25 s a run), lookups (Nubra's bubble
# and card latencies on X11), wayland (the lookups on sway and mutter).
# The X client library the watcher uses is for this benchmark only, so it is installed here rather than
# by the project's setup.
set -eu
ONLY=""
WAYLAND=no
while [ "${1:-}" = --only ]; do
    case "${2:?part}" in
    wayland) WAYLAND=yes ;;
    *) ONLY="$ONLY --only $2" ;;
    esac
    shift 2
done
X11=yes
if [ -z "$ONLY" ]; then
    # Nothing picked on X11: all of it there, and Wayland too unless Wayland alone was asked for.
    [ "$WAYLAND" = yes ] && X11=no || WAYLAND=yes
fi
BUILD=${1:?build directory}
RUNS=${2:-5}
LOOKUPS=${3:-10}
ROOT=$(cd "$(dirname "$0")/../.." && pwd)

if ! dpkg-query -W -f='${Status}' python3-xlib 2>/dev/null | grep -q "install ok installed"; then
    echo "Installing for the benchmark: python3-xlib"
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 update -q
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 install -y -q --no-install-recommends python3-xlib
fi

mkdir -p "$BUILD/bench"
cmake --build "$BUILD" --target bench_bare_tray nubra nubra-glossd nubra-test-wayland nubra-capture-probe
# Debian's python3: the AT-SPI and X bindings live there, not in another python3 earlier on PATH.
if [ "$X11" = yes ]; then
    # shellcheck disable=SC2086
    /usr/bin/python3 "$ROOT/bench/app/app_bench.py" \
        --nubra "$BUILD/Sources/NubraApp/nubra" --glossd "$BUILD/Sources/NubraGlossd/nubra-glossd" \
        --tray "$BUILD/bench/app/bench_bare_tray" --runs "$RUNS" --lookups "$LOOKUPS" --artifacts "$BUILD/bench" $ONLY
fi
[ "$WAYLAND" = yes ] || exit 0
for desktop in sway mutter; do
    /usr/bin/python3 "$ROOT/bench/app/wayland_app_bench.py" --desktop "$desktop" \
        --nubra "$BUILD/Sources/NubraApp/nubra" --glossd "$BUILD/Sources/NubraGlossd/nubra-glossd" \
        --probe "$BUILD/Sources/NubraCaptureProbe/nubra-capture-probe" \
        --tool "$BUILD/Tests/CaptureDesktopTests/nubra-test-wayland" --lookups "$LOOKUPS" \
        --artifacts "$BUILD/bench/wayland-$desktop"
done
