#!/bin/sh
# Nubra beside GoldenDict on a virtual X11 desktop: start-up, idle memory and CPU of both, and Nubra's
# bubble and card latencies beside curl on the same service. Numbers are reported, never judged.
#   bench/app/run.sh BUILD_DIR [RUNS] [LOOKUPS]
# The reference (GoldenDict with WordNet served by dictd) and the X client library the watcher uses are
# for this benchmark only, so they are installed here rather than by the project's setup.
set -eu
BUILD=${1:?build directory}
RUNS=${2:-5}
LOOKUPS=${3:-10}
ROOT=$(cd "$(dirname "$0")/../.." && pwd)

missing=""
for package in goldendict dictd dict-wn python3-xlib; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
        missing="$missing $package"
done
if [ -n "$missing" ]; then
    echo "Installing for the benchmark:$missing"
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    # The system dictd this may start is not used: the benchmark runs its own on a free port.
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -q
    # shellcheck disable=SC2086
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing
fi

mkdir -p "$BUILD/bench"
# Debian's python3: the AT-SPI and X bindings live there, not in another python3 earlier on PATH.
exec /usr/bin/python3 "$ROOT/bench/app/app_bench.py" \
    --nubra "$BUILD/Sources/NubraApp/nubra" --glossd "$BUILD/Sources/NubraGlossd/nubra-glossd" \
    --runs "$RUNS" --lookups "$LOOKUPS" --artifacts "$BUILD/bench"
