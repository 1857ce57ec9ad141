#!/bin/sh
# Lookups against nubra-glossd from a second process on loopback, in the same run: the WordNet backend
# beside the same server streaming a fixed body, and the fixed body again while SLOW clients hold
# connections open by trickling headers that never end (what the service's limits cost the others).
# Numbers are reported, never judged.
#   bench/glossd/run.sh BUILD_DIR [THREADS] [COUNT] [SECONDS] [SLOW]
set -eu
BUILD=${1:?build directory}
THREADS=${2:-4}
COUNT=${3:-20000}
SECONDS_MAX=${4:-10}
SLOW=${5:-16}
GLOSSD="$BUILD/Sources/NubraGlossd/nubra-glossd"
LOAD="$BUILD/bench/glossd/bench_glossd_load"
LOGS=$(mktemp -d)

measure() { # backend [slow clients]
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
    result=$("$LOAD" "$port" "$THREADS" "$COUNT" "$SECONDS_MAX" bank "${2:-0}")
    kill -TERM "$pid"
    wait "$pid" || true
    echo "$result"
}

wordnet=$(measure wordnet)
fixed=$(measure fixed)
besieged=$(measure fixed "$SLOW")
rm -rf "$LOGS"
echo "wordnet:            $wordnet"
echo "fixed:              $fixed"
echo "fixed, $SLOW slow:   $besieged"
value() { echo "$1" | sed -n "s/.*$2=\([0-9.]*\).*/\1/p"; }
ratio() { # label numerator denominator
    awk -v label="$1" -v a="$2" -v b="$3" 'BEGIN { if (b > 0) printf "%s: %.2f\n", label, a / b }'
}
ratio "wordnet/fixed throughput ratio" "$(value "$wordnet" per_second)" "$(value "$fixed" per_second)"
ratio "with/without slow clients, throughput ratio" "$(value "$besieged" per_second)" \
    "$(value "$fixed" per_second)"
ratio "with/without slow clients, first delta median ratio" \
    "$(value "$besieged" first_delta_ms_median)" "$(value "$fixed" first_delta_ms_median)"
ratio "with/without slow clients, first delta p99 ratio" "$(value "$besieged" first_delta_ms_p99)" \
    "$(value "$fixed" first_delta_ms_p99)"
