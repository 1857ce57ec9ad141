#!/bin/sh
# Builds the fuzz targets with clang and runs each in turn, sharing the given number of seconds
# (default 60) between them. Every target starts from its seeds in seeds/<target>/ and keeps its corpus
# in the build folder. A failing target does not stop the others; the last line names every target
# that found something ("fuzz: failed: <targets>") and the script then exits with 1.
# Usage: fuzz/run.sh [SECONDS]
set -eu
seconds=${1:-60}
here=$(cd "$(dirname "$0")" && pwd)
build=${NUBRA_FUZZ_BUILD:-$here/../build-fuzz}
targets="sse_decoder update_manifest request_validator launch_message"

launcher=""
command -v ccache >/dev/null && launcher=-DCMAKE_CXX_COMPILER_LAUNCHER=ccache
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo $launcher >/dev/null
cmake --build "$build" -j2

count=$(echo $targets | wc -w)
each=$((seconds / count))
[ "$each" -ge 1 ] || each=1
failed=""
for target in $targets; do
    corpus=$build/corpus/$target
    mkdir -p "$corpus"
    cp "$here/seeds/$target"/* "$corpus"/ 2>/dev/null || true
    echo "==> fuzz_$target for $each s"
    if ! ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        "$build/fuzz_$target" -max_total_time="$each" -max_len=8192 -print_final_stats=1 \
        -artifact_prefix="$build/fuzz_$target-" "$corpus"; then
        echo "==> fuzz_$target FAILED (the input that failed is $build/fuzz_$target-*)"
        failed="$failed fuzz_$target"
    fi
done

if [ -n "$failed" ]; then
    echo "fuzz: failed:$failed"
    exit 1
fi
echo "fuzz: all $count targets passed"
