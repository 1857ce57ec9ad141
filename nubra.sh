#!/usr/bin/env bash
# Nubra's one entry point on a Debian 12 machine.
#
#   ./nubra.sh setup   install the Debian packages the build, the tests and the tools need
#   ./nubra.sh build   setup, then configure and build everything into build/
#   ./nubra.sh test    build, run the whole test suite, check the Debian package (and, as root,
#                      install and remove it), then rebuild under AddressSanitizer +
#                      UndefinedBehaviorSanitizer and run the unit tests again, then fuzz the
#                      event-stream decoder for a bounded time
#   ./nubra.sh run     build, start nubra-glossd and Nubra on this desktop (a terminal lookup without one)
#   ./nubra.sh package build the Debian package into build/package/
#   ./nubra.sh bench   build the benchmarks and run them (numbers are reported, never judged)
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
BUILD="$ROOT/build"
ASAN_BUILD="$ROOT/build-asan"
JOBS="$(nproc 2>/dev/null || echo 2)"

PACKAGES=(
    # toolchain
    build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev
    # libraries
    qt6-base-dev qt6-base-dev-tools qtkeychain-qt6-dev libsqlite3-dev libcpp-httplib-dev libssl-dev
    libatspi2.0-dev libx11-dev libxi-dev libxtst-dev libxfixes-dev libbenchmark-dev
    # offline gloss backend data
    wordnet-base
    # test tools
    xvfb xauth xdotool dbus dbus-x11 at-spi2-core gnome-keyring bubblewrap zip unzip sqlite3 curl tzdata
    openbox mousepad imagemagick x11-apps python3 libglib2.0-bin python3-gi python3-dbus gir1.2-atspi-2.0
    trayer xclip
    # package checks
    desktop-file-utils appstream lintian systemd man-db
    # a CJK font, so the Chinese screenshots of the desktop tests are legible
    fonts-wqy-microhei
    # Qt's own dialog texts in Chinese
    qt6-translations-l10n
)

log() { printf '\n==> %s\n' "$*"; }

setup() {
    local missing=()
    for package in "${PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$package")
    done
    if ((${#missing[@]} == 0)); then
        log "All ${#PACKAGES[@]} Debian packages are present"
        return
    fi
    log "Installing: ${missing[*]}"
    local sudo=()
    ((EUID == 0)) || sudo=(sudo)
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -q
    "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
}

configure() { # <build dir> [cmake options...]
    local dir="$1"
    shift
    cmake -S "$ROOT" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
}

build() {
    setup
    log "Building into $BUILD"
    configure "$BUILD"
    cmake --build "$BUILD" -j "$JOBS"
}

# The Debian package, built from build/ for installation under /usr; prints its path.
package() {
    build
    log "Packaging into $BUILD/package"
    configure "$BUILD" -DCMAKE_INSTALL_PREFIX=/usr
    cmake --build "$BUILD" -j "$JOBS"
    rm -f "$BUILD"/package/nubra_*.deb
    (cd "$BUILD" && cpack -G DEB -B "$BUILD/package" >/dev/null)
    ls "$BUILD"/package/nubra_*.deb
}

TALLY="$(mktemp)"
FAILURES="$(mktemp)"
trap 'rm -f "$TALLY" "$FAILURES"' EXIT

# The closing tally: one "<passed> <failed>" line per step, and the names of what failed.
tally() { echo "$1 $2" >>"$TALLY"; }

# Runs ctest with the given arguments and tallies its summary line.
ctest_tallied() {
    local output summary status=0
    output="$(mktemp)"
    ctest "$@" 2>&1 | tee "$output" || status=1
    summary="$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$output")" || status=1
    # "	 31 - capture_desktop (Failed)" under "The following tests FAILED:"
    sed -n '/^The following tests FAILED:/,$p' "$output" | grep -E '^\s+[0-9]+ - ' >>"$FAILURES" || true
    rm -f "$output"
    # "100% tests passed, 0 tests failed out of 33"
    [[ -n "$summary" ]] && tally "$(($(awk '{print $NF - $4}' <<<"$summary")))" "$(awk '{print $4}' <<<"$summary")"
    return "$status"
}

run_tests() {
    build
    local status=0
    log "Running the test suite"
    ctest_tallied --test-dir "$BUILD" --output-on-failure -j "$JOBS" || status=1

    log "Checking the Debian package; installing and removing it when running as root"
    if package && "$ROOT/Tests/PackageTests/check_package.py" --install "$BUILD"/package/nubra_*.deb; then
        tally 1 0
    else
        echo "	check_package (Failed)" >>"$FAILURES"
        tally 0 1
        status=1
    fi

    log "Building the unit tests under AddressSanitizer + UndefinedBehaviorSanitizer"
    configure "$ASAN_BUILD" -DNUBRA_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
    cmake --build "$ASAN_BUILD" -j "$JOBS"
    log "Running the unit tests under the sanitizers"
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        ctest_tallied --test-dir "$ASAN_BUILD" -L unit --output-on-failure -j "$JOBS" || status=1

    log "Fuzzing the event-stream decoder for ${NUBRA_FUZZ_SECONDS:-60} s (clang, ASan + UBSan)"
    # libFuzzer reports every new input; keep that in a file and show the closing statistics, or the
    # whole end of the report when it found something.
    local fuzzlog="$ROOT/build-fuzz/run.log"
    mkdir -p "$ROOT/build-fuzz"
    if "$ROOT/fuzz/run.sh" "${NUBRA_FUZZ_SECONDS:-60}" >"$fuzzlog" 2>&1; then
        grep -E '^(Done|stat::)' "$fuzzlog" || true
        tally 1 0
    else
        tail -n 80 "$fuzzlog"
        echo "	fuzz_sse_decoder (Failed; the whole report is in $fuzzlog)" >>"$FAILURES"
        tally 0 1
        status=1
    fi

    local passed failed
    passed="$(awk '{sum += $1} END {print sum + 0}' "$TALLY")"
    failed="$(awk '{sum += $2} END {print sum + 0}' "$TALLY")"
    ((failed == 0)) || status=1
    echo
    if [[ -s "$FAILURES" ]]; then
        echo "Failed:"
        cat "$FAILURES"
    fi
    echo "$passed passed, $failed failed"
    return "$status"
}

# Starts nubra-glossd at the development endpoint unless a service already answers there; sets SERVICE
# to the process it started (empty when it used one that was running).
SERVICE=""
start_service() {
    local glossd="$BUILD/Sources/NubraGlossd/nubra-glossd" address="http://127.0.0.1:8790"
    if curl -fsS "$address/v1/updates/latest" >/dev/null 2>&1; then
        log "A gloss service already answers at $address; using it"
        return
    fi
    log "Starting nubra-glossd (WordNet backend) at $address"
    "$glossd" --backend wordnet &
    SERVICE=$!
    trap 'kill "$SERVICE" 2>/dev/null; rm -f "$TALLY" "$FAILURES"' EXIT
    for _ in $(seq 50); do
        curl -fsS "$address/v1/updates/latest" >/dev/null 2>&1 && return
        kill -0 "$SERVICE" 2>/dev/null || { echo "nubra-glossd did not start" >&2; return 1; }
        sleep 0.1
    done
}

# Nubra on the user's desktop, talking to the local reference service. Without a display there is no
# desktop to explain text on: one lookup through the command-line front end shows the same service.
run_app() {
    build
    start_service
    if [[ -n "${DISPLAY:-}" ]]; then
        log "Starting nubra --dev: select a word in any application (quit from the tray or: nubra --quit)"
        "$BUILD/Sources/NubraApp/nubra" --dev
        return
    fi
    local cli="$BUILD/Sources/NubraCLI/nubra-cli"
    log "No X display (DISPLAY is not set), so Nubra cannot run here; one lookup through nubra-cli instead"
    "$cli" gloss --dev --before "We walked along the river " --after " to watch the boats come in." bank
    if [[ -n "$SERVICE" ]]; then
        log "nubra-glossd keeps listening at http://127.0.0.1:8790. Try: $cli gloss --dev <text>"
        echo "Stop it with Ctrl+C."
        wait "$SERVICE"
    fi
}

run_bench() {
    setup
    configure "$BUILD" -DNUBRA_BENCH=ON
    cmake --build "$BUILD" -j "$JOBS"
    log "Event-stream decoder throughput, beside plain UTF-8 decoding"
    "$BUILD/bench/service/bench_sse_decoder" --benchmark_min_time=1
    log "Added latency from the server's write to the consumer, beside curl's time to first byte"
    "$BUILD/bench/service/bench_added_latency"
    log "nubra-glossd under load from a second process: WordNet beside a fixed answer"
    "$ROOT/bench/glossd/run.sh" "$BUILD"
    log "History store beside the sqlite3 shell"
    "$ROOT/bench/history/compare_sqlite3.sh" "$BUILD/bench/history/bench_history"
    log "Selection capture: release to snapshot on the AT-SPI and PRIMARY paths"
    cmake --build "$BUILD" --target bench_capture
    log "The application beside GoldenDict: start-up, idle memory and CPU, bubble and card latency"
    "$ROOT/bench/app/run.sh" "$BUILD" "${NUBRA_BENCH_RUNS:-5}" "${NUBRA_BENCH_LOOKUPS:-10}"
}

case "${1:-}" in
setup) setup ;;
build) build ;;
test) run_tests ;;
package) package ;;
run) run_app ;;
bench) run_bench ;;
*)
    sed -n '2,12p' "$0" | sed 's/^# \{0,1\}//'
    exit 2
    ;;
esac
