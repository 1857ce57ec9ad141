#!/usr/bin/env bash
# Nubra's one entry point on a Debian 12 machine.
#
#   ./nubra.sh setup   install the Debian packages the build, the tests and the tools need
#   ./nubra.sh build   setup, then configure and build everything into build/
#   ./nubra.sh test    build, run the whole test suite, check the Debian package (and, as root,
#                      install and remove it), release two versions and let the older update
#                      itself to the newer on a virtual desktop, then rebuild under
#                      AddressSanitizer + UndefinedBehaviorSanitizer and run the unit tests
#                      again, then fuzz the parsers of outside input for a bounded time
#   ./nubra.sh run     build, start nubra-glossd and Nubra on this desktop (a terminal lookup without one)
#   ./nubra.sh package build the Debian package into build/package/
#   ./nubra.sh bench   build the benchmarks and run them (numbers are reported, never judged)
#   ./nubra.sh release [--version V] [--notes TEXT] [--out DIR]
#                      build the self-contained user-local bundle (~/.local/opt/Nubra) and write
#                      DIR/nubra-V-linux-x86_64.tar.gz, signed, with the manifest.json that
#                      nubra-glossd --releases DIR serves (DIR: build/releases)
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
BUILD="$ROOT/build"
ASAN_BUILD="$ROOT/build-asan"
JOBS="$(nproc 2>/dev/null || echo 2)"

PACKAGES=(
    # toolchain
    build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev ccache
    # libraries
    qt6-base-dev qt6-base-dev-tools qtkeychain-qt6-dev libsqlite3-dev libcpp-httplib-dev libssl-dev
    libatspi2.0-dev libx11-dev libxi-dev libxtst-dev libxfixes-dev libxres-dev libbenchmark-dev
    libwayland-dev libwayland-bin libxkbcommon-dev libglib2.0-dev
    # reading aloud; Debian's Qt speech headers include QtQmlIntegration without depending on it
    qt6-speech-dev qt6-declarative-dev qt6-speech-speechd-plugin speech-dispatcher espeak-ng
    # reading text on the screen, in English and Chinese (the command-line program is the benchmark's reference)
    libtesseract-dev tesseract-ocr tesseract-ocr-eng tesseract-ocr-chi-sim tesseract-ocr-chi-tra
    # the Latin fonts the recognizer's tests and benchmark draw their lines in
    fonts-dejavu-core fonts-liberation2
    # offline gloss backend data
    wordnet-base
    # test tools
    xvfb xauth xdotool dbus dbus-x11 at-spi2-core gnome-keyring bubblewrap zip unzip sqlite3 curl tzdata
    openbox mousepad imagemagick x11-apps python3 libglib2.0-bin python3-gi python3-dbus gir1.2-atspi-2.0
    trayer xclip x11-utils
    # a headless wlroots desktop for the Wayland capture tests
    sway xwayland x11-xserver-utils grim wl-clipboard
    # a headless GNOME (mutter) Wayland desktop for the Wayland capture suite, with screen pictures
    mutter qt6-wayland pipewire pipewire-bin wireplumber gstreamer1.0-pipewire gstreamer1.0-tools
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good
    # a headless KDE Plasma compositor (KWin) for the Wayland capture suite
    kwin-wayland
    # GNOME's own shortcuts, beside which the hot key's custom shortcut is set up in tests
    gsettings-desktop-schemas gnome-settings-daemon-common mutter-common
    # the applications the capture suite reads from
    firefox-esr chromium libreoffice-writer libreoffice-gtk3 evince gnome-text-editor gnome-terminal
    # package checks
    desktop-file-utils appstream lintian systemd man-db
    # a CJK font, so the Chinese screenshots of the desktop tests are legible
    fonts-wqy-microhei
    # Qt's own dialog texts in Chinese
    qt6-translations-l10n
    # signing releases
    openssl
)

log() { printf '\n==> %s\n' "$*"; }

# apt waits this long for another package manager (an unattended upgrade, a second apt-get) to let go
# of its locks, saying so while it waits, instead of failing at once.
APT_LOCK_WAIT=600
apt_get() {
    local sudo=()
    ((EUID == 0)) || sudo=(sudo)
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get -o DPkg::Lock::Timeout="$APT_LOCK_WAIT" "$@"
}

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
    echo "(if another package manager is running, this waits up to $((APT_LOCK_WAIT / 60)) minutes for it)"
    apt_get update -q
    apt_get install -y -q --no-install-recommends "${missing[@]}"
}

# Every build goes through ccache. Paths are hashed relative to the checkout and not by the folder the
# compiler runs in, so a second clone, and build folders that sit side by side at the same depth
# (build/, build-release/), reuse each other's objects.
export CCACHE_BASEDIR="$ROOT" CCACHE_NOHASHDIR=1

configure() { # <build dir> [cmake options...]
    local dir="$1" launcher=()
    shift
    command -v ccache >/dev/null && launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    cmake -S "$ROOT" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" "$@" >/dev/null
}

build() {
    setup
    log "Building into $BUILD"
    # The benchmarks are built too, so that a change cannot leave them behind.
    configure "$BUILD" -DNUBRA_BENCH=ON
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

# Two releases made the way users get them, and the older one's update to the newer, tried for real
# (a good and a tampered archive). Skipped, not failed, where no virtual desktop can be made.
update_end_to_end() {
    local releases="$BUILD/update-test" status=0
    rm -rf "$releases"
    if ! release --version 1.0.0 --out "$releases/old" || ! release --version 1.1.0 --notes "Faster lookups" \
        --out "$releases/new"; then
        echo "	update_desktop (Failed: the releases could not be made)" >>"$FAILURES"
        tally 0 1
        return 1
    fi
    /usr/bin/python3 "$ROOT/Tests/UpdateDesktopTests/update_desktop.py" --old "$releases/old" \
        --new "$releases/new" --glossd "$BUILD/Sources/NubraGlossd/nubra-glossd" \
        --artifacts "$BUILD/Tests/UpdateDesktopTests" || status=$?
    case "$status" in
    0) tally 1 0 ;;
    77) echo "update_desktop skipped: no virtual desktop here" ;;
    *)
        echo "	update_desktop (Failed)" >>"$FAILURES"
        tally 0 1
        return 1
        ;;
    esac
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

    log "Releasing two versions; the older updates itself to the newer on a virtual desktop"
    update_end_to_end || status=1

    log "Building the unit tests under AddressSanitizer + UndefinedBehaviorSanitizer"
    configure "$ASAN_BUILD" -DNUBRA_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
    cmake --build "$ASAN_BUILD" -j "$JOBS"
    log "Running the unit tests under the sanitizers"
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 LSAN_OPTIONS="suppressions=$ROOT/Tests/lsan.supp" \
        UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest_tallied --test-dir "$ASAN_BUILD" -L unit --output-on-failure -j "$JOBS" || status=1

    log "Fuzzing the parsers of outside input for ${NUBRA_FUZZ_SECONDS:-60} s in all (clang, ASan + UBSan)"
    # libFuzzer reports every new input; keep that in a file and show each target's closing statistics,
    # or the whole end of the report when one found something.
    local fuzzlog="$ROOT/build-fuzz/run.log" fuzzfailed
    mkdir -p "$ROOT/build-fuzz"
    if "$ROOT/fuzz/run.sh" "${NUBRA_FUZZ_SECONDS:-60}" >"$fuzzlog" 2>&1; then
        grep -E '^(==> |Done|stat::)' "$fuzzlog" || true
        tally 1 0
    else
        tail -n 80 "$fuzzlog"
        # "fuzz: failed: fuzz_a fuzz_b"; nothing when the targets could not even be built.
        fuzzfailed="$(sed -n 's/^fuzz: failed: //p' "$fuzzlog")"
        echo "	${fuzzfailed:-fuzz (build)} (Failed; the whole report is in $fuzzlog)" >>"$FAILURES"
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
    build
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
    log "Selection capture in Firefox and Chromium on a long page, beside mousepad"
    cmake --build "$BUILD" --target bench_capture_apps
    log "Selection capture on Wayland (headless sway): settled selection to snapshot, beside a compositor round trip"
    cmake --build "$BUILD" --target bench_capture_wayland
    log "Text recognition of rendered English and Chinese lines, beside the tesseract program"
    "$BUILD/bench/ocr/bench_ocr"
    log "The application beside a bare Qt tray program: start-up, idle memory and CPU; bubble and card beside curl"
    "$ROOT/bench/app/run.sh" "$BUILD" "${NUBRA_BENCH_RUNS:-5}" "${NUBRA_BENCH_LOOKUPS:-10}"
}

# The release signing key: generated on first use, outside the repository, readable by its owner only.
# Sets KEY and PUBLIC_KEY (the public half, beside it, rewritten only when it changes, so that the
# build's copy of it does not go stale and is not rebuilt for nothing).
KEY=""
PUBLIC_KEY=""
release_key() {
    KEY="$(realpath -m "${NUBRA_RELEASE_KEY:-${XDG_DATA_HOME:-$HOME/.local/share}/nubra-release/signing-key.pem}")"
    case "$KEY/" in
    "$(realpath "$ROOT")"/*)
        echo "The signing key $KEY is inside the repository; keep it elsewhere (NUBRA_RELEASE_KEY)" >&2
        return 1
        ;;
    esac
    PUBLIC_KEY="${KEY%.pem}.pub.pem"
    if [[ ! -e "$KEY" ]]; then
        log "Generating an Ed25519 release signing key in $KEY"
        [[ -d "$(dirname "$KEY")" ]] || mkdir -p -m 700 "$(dirname "$KEY")"
        (umask 077 && openssl genpkey -algorithm ed25519 -out "$KEY")
        chmod 600 "$KEY"
    fi
    openssl pkey -in "$KEY" -noout -text 2>/dev/null | head -n 1 | grep -q '^ED25519 Private-Key' || {
        echo "$KEY is not an Ed25519 private key" >&2
        return 1
    }
    local derived
    derived="$(openssl pkey -in "$KEY" -pubout)"
    [[ -f "$PUBLIC_KEY" && "$(cat "$PUBLIC_KEY")" == "$derived" ]] || printf '%s\n' "$derived" >"$PUBLIC_KEY"
}

# Copies the Qt libraries `ldd` finds for the given programs and libraries into the bundle's lib/.
bundle_qt_libraries() { # <lib dir> <file...>
    local lib="$1" library
    shift
    ldd "$@" 2>/dev/null | awk '$2 == "=>" && $3 ~ /^\// && $3 ~ /\/lib(Qt6|qt6keychain)[^\/]*$/ {print $3}' |
        sort -u | while read -r library; do
        [[ -e "$lib/$(basename "$library")" ]] || install -m 644 "$(realpath "$library")" "$lib/$(basename "$library")"
    done
}

# The user-local bundle: one folder Nubra/ with its own Qt, packed, checksummed and signed, next to
# the manifest that announces it.
release() {
    local version="" notes="" out="$BUILD/releases"
    while (($#)); do
        case "$1" in
        --version) version="${2:?--version needs a value}" ;;
        --notes) notes="${2?--notes needs a value}" ;;
        --out) out="${2:?--out needs a folder}" ;;
        *)
            echo "release: unknown argument $1 (takes --version V, --notes TEXT, --out DIR)" >&2
            return 2
            ;;
        esac
        shift 2
    done
    [[ -n "$version" ]] || version="$(sed -n 's/^project(Nubra VERSION \([^ )]*\).*/\1/p' "$ROOT/CMakeLists.txt")"
    # Configuring checks that it is a version; it goes into file names below.
    out="$(realpath -m "$out")"
    setup
    release_key

    # Its own build folder, so the development build keeps its settings. It compiles exactly as the
    # tested build does and sits beside it, so the compiler cache hands it the tested build's objects
    # (only the version's source and the links are new); install --strip drops the debug information.
    # The bundle's programs and the recognizer module look for libraries in its lib/ first (DT_RPATH,
    # which also covers what Qt loads for them, such as the platform plugin's own libraries).
    local dir="$ROOT/build-release" stage="$ROOT/build-release/stage"
    log "Building version $version into $dir"
    configure "$dir" -DNUBRA_VERSION_OVERRIDE="$version" -DNUBRA_UPDATE_PUBLIC_KEY="$PUBLIC_KEY" \
        -DCMAKE_INSTALL_RPATH='$ORIGIN/../lib;$ORIGIN/../../lib' -DCMAKE_BUILD_WITH_INSTALL_RPATH=ON \
        -DCMAKE_EXE_LINKER_FLAGS=-Wl,--disable-new-dtags -DCMAKE_MODULE_LINKER_FLAGS=-Wl,--disable-new-dtags
    cmake --build "$dir" -j "$JOBS" --target nubra nubra-ocr nubra-cli nubra-glossd nubra-capture-probe \
        nubra-install-data

    log "Staging the bundle in $stage/Nubra"
    rm -rf "$stage"
    local app="$stage/Nubra"
    cmake --install "$dir" --prefix "$app" --strip >/dev/null
    # The user unit names a fixed path; a bundle may be unpacked anywhere, so it has none.
    rm -rf "$app/share/systemd"

    # Qt from the build machine: the libraries, the X11 platform plugin, TLS (HTTPS) and input methods.
    local qt_plugins
    qt_plugins="$(qtpaths6 --query QT_INSTALL_PLUGINS)"
    mkdir -p "$app/lib" "$app/plugins" "$app/translations"
    for plugin in platforms/libqxcb.so tls platforminputcontexts; do
        mkdir -p "$(dirname "$app/plugins/$plugin")"
        cp -R "$qt_plugins/$plugin" "$app/plugins/$plugin"
    done
    cp "$(qtpaths6 --query QT_INSTALL_TRANSLATIONS)"/qtbase_zh_*.qm "$app/translations/" 2>/dev/null || true
    local programs=("$app/bin/nubra" "$app/bin/nubra-cli" "$app/bin/nubra-glossd"
        "$app/libexec/nubra/nubra-capture-probe" "$app/lib/nubra/nubra-ocr.so") plugins
    mapfile -t plugins < <(find "$app/plugins" -name '*.so')
    bundle_qt_libraries "$app/lib" "${programs[@]}" "${plugins[@]}"
    bundle_qt_libraries "$app/lib" "$app"/lib/*.so*
    printf '[Paths]\nPrefix = ..\nPlugins = plugins\nTranslations = translations\n' >"$app/bin/qt.conf"
    printf '[Paths]\nPrefix = ../..\nPlugins = plugins\nTranslations = translations\n' >"$app/libexec/nubra/qt.conf"

    local leaks
    leaks="$(ldd "${programs[@]}" | grep -E 'lib(Qt6|qt6keychain).* => |not found' | grep -v "=> $app/" || true)"
    if [[ -n "$leaks" ]]; then
        printf 'Qt libraries from outside the bundle, or missing:\n%s\n' "$leaks" >&2
        return 1
    fi

    local name="nubra-$version-linux-x86_64.tar.gz"
    local archive="$out/$name"
    log "Packing and signing $archive"
    mkdir -p "$out"
    tar --sort=name --owner=0 --group=0 --numeric-owner -czf "$archive" -C "$stage" Nubra
    local sha signature check
    sha="$(sha256sum <"$archive" | cut -d' ' -f1)"
    signature="$(openssl pkeyutl -sign -inkey "$KEY" -rawin -in "$archive" | base64 -w0)"
    check="$(mktemp)"
    base64 -d <<<"$signature" >"$check"
    if ! openssl pkeyutl -verify -pubin -inkey "$PUBLIC_KEY" -rawin -in "$archive" -sigfile "$check" >/dev/null; then
        rm -f "$check"
        echo "release: the signature of $archive does not verify with $PUBLIC_KEY" >&2
        return 1
    fi
    rm -f "$check"
    # The version is signed together with the archive's checksum, so this archive cannot be announced
    # as any other version.
    local statement version_signature
    statement="$(mktemp)"
    printf 'nubra-release %s %s' "$version" "$sha" >"$statement"
    version_signature="$(openssl pkeyutl -sign -inkey "$KEY" -rawin -in "$statement" | base64 -w0)"
    rm -f "$statement"
    python3 - "$out/manifest.json" "$version" "$notes" "$name" "$sha" "$signature" "$version_signature" <<'PY'
import json, sys
path, version, notes, url, sha256, signature, version_signature = sys.argv[1:]
manifest = {"available": True, "version": version}
if notes:
    manifest["notes"] = notes
manifest.update(url=url, sha256=sha256, signature=signature, version_signature=version_signature)
with open(path + ".new", "w", encoding="utf-8") as file:
    json.dump(manifest, file, ensure_ascii=False, indent=2)
    file.write("\n")
PY
    mv "$out/manifest.json.new" "$out/manifest.json"

    log "Release $version"
    echo "Archive:   $archive"
    echo "SHA-256:   $sha"
    echo "Manifest:  $out/manifest.json"
    echo "Signed with $KEY (public key $PUBLIC_KEY, built into this bundle)."
    echo "The production signing key is a deployment value: set NUBRA_RELEASE_KEY to its path."
    echo "Serve it:  $dir/Sources/NubraGlossd/nubra-glossd --releases $out"
}

case "${1:-}" in
setup) setup ;;
build) build ;;
test) run_tests ;;
package) package ;;
run) run_app ;;
bench) run_bench ;;
release)
    shift
    release "$@"
    ;;
*)
    sed -n '2,17p' "$0" | sed 's/^# \{0,1\}//'
    exit 2
    ;;
esac
