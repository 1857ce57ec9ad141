#!/bin/sh
# Builds the decoder fuzz target with clang and runs it for the given number of seconds (default 60).
# Usage: fuzz/run.sh [SECONDS]
set -eu
seconds=${1:-60}
here=$(cd "$(dirname "$0")" && pwd)
build=${NUBRA_FUZZ_BUILD:-$here/../build-fuzz}

launcher=""
command -v ccache >/dev/null && launcher=-DCMAKE_CXX_COMPILER_LAUNCHER=ccache
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo $launcher >/dev/null
cmake --build "$build" -j2

corpus=$build/corpus
mkdir -p "$corpus"
cp "$here"/seeds/* "$corpus"/ 2>/dev/null || true
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$build/fuzz_sse_decoder" -max_total_time="$seconds" -max_len=8192 -print_final_stats=1 "$corpus"
