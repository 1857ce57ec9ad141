#!/bin/sh
# Nubra beside GoldenDict on a virtual X11 desktop: start-up, idle memory and CPU of both, and Nubra's
# bubble and card latencies beside curl on the same service; Nubra's idle memory by mapping beside a
# bare Qt tray program's. Numbers are reported, never judged.
#   bench/app/run.sh [--only idle-memory|lookups]... BUILD_DIR [RUNS] [LOOKUPS]
# BUILD_DIR is configured with NUBRA_BENCH=ON. --only picks parts without GoldenDict: idle-memory (Nubra's
# idle memory beside the bare tray's, about 25 s a run), lookups (Nubra's bubble and card latencies).
# The reference (GoldenDict with WordNet served by dictd) and the X client library the watcher uses are
# for this benchmark only, so they are installed here rather than by the project's setup.
set -eu
ONLY=""
while [ "${1:-}" = --only ]; do
    ONLY="$ONLY --only ${2:?part}"
    shift 2
done
BUILD=${1:?build directory}
RUNS=${2:-5}
LOOKUPS=${3:-10}
ROOT=$(cd "$(dirname "$0")/../.." && pwd)

references="goldendict dictd dict-wn"
[ -z "$ONLY" ] || references=""
missing=""
for package in $references python3-xlib; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
        missing="$missing $package"
done
if [ -n "$missing" ]; then
    echo "Installing for the benchmark:$missing"
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    # The system dictd this may start is not used: the benchmark runs its own on a free port.
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 update -q
    # shellcheck disable=SC2086
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 install -y -q --no-install-recommends $missing
fi

mkdir -p "$BUILD/bench"
cmake --build "$BUILD" --target bench_bare_tray nubra nubra-glossd
# Debian's python3: the AT-SPI and X bindings live there, not in another python3 earlier on PATH.
# shellcheck disable=SC2086
exec /usr/bin/python3 "$ROOT/bench/app/app_bench.py" \
    --nubra "$BUILD/Sources/NubraApp/nubra" --glossd "$BUILD/Sources/NubraGlossd/nubra-glossd" \
    --tray "$BUILD/bench/app/bench_bare_tray" --runs "$RUNS" --lookups "$LOOKUPS" --artifacts "$BUILD/bench" $ONLY
