#!/bin/sh
# Lookups against nubra-glossd from a second process on loopback: the WordNet backend beside the same
# server streaming a fixed body, in the same run. Numbers are reported, never judged.
#   bench/glossd/run.sh BUILD_DIR [THREADS] [COUNT] [SECONDS]
set -eu
BUILD=${1:?build directory}
THREADS=${2:-4}
COUNT=${3:-20000}
SECONDS_MAX=${4:-10}
GLOSSD="$BUILD/Sources/NubraGlossd/nubra-glossd"
LOAD="$BUILD/bench/glossd/bench_glossd_load"
LOGS=$(mktemp -d)

measure() { # backend
    LOG="$LOGS/$1"
    "$GLOSSD" --port 0 --backend "$1" --access-log /dev/null 2>"$LOG" &
    pid=$!
    port=""
    for _ in $(seq 100); do
        port=$(sed -n 's/.*listening on http:\/\/127\.0\.0\.1:\([0-9]*\).*/\1/p' "$LOG")
        [ -n "$port" ] && break
        sleep 0.1
    done
    [ -n "$port" ] || { echo "nubra-glossd did not start" >&2; kill "$pid"; exit 1; }
    result=$("$LOAD" "$port" "$THREADS" "$COUNT" "$SECONDS_MAX" bank)
    kill -TERM "$pid"
    wait "$pid" || true
    echo "$result"
}

wordnet=$(measure wordnet)
fixed=$(measure fixed)
rm -rf "$LOGS"
echo "wordnet: $wordnet"
echo "fixed:   $fixed"
rate() { echo "$1" | sed -n 's/.*per_second=\([0-9]*\).*/\1/p'; }
awk -v w="$(rate "$wordnet")" -v f="$(rate "$fixed")" \
    'BEGIN { if (f > 0) printf "wordnet/fixed throughput ratio: %.2f\n", w / f }'
