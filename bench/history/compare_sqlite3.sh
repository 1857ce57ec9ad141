#!/bin/sh
# Runs bench_history and, on the same database files in the same run, the sqlite3 shell on the same
# statements; prints each timing beside the shell's and their ratio (ours / shell: lower is better).
# Usage: compare_sqlite3.sh <path to bench_history>
set -eu
bench=${1:?usage: compare_sqlite3.sh <path to bench_history>}
command -v sqlite3 >/dev/null || { echo "needs the sqlite3 shell (Debian package sqlite3)" >&2; exit 1; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

NUBRA_BENCH_DIR=$dir "$bench" --benchmark_format=csv >"$dir/ours.csv" 2>/dev/null

columns="id, created_at, selected_text, context_before, context_after, gloss,
       contextual_meaning, source_app, style, length, model, credits_cost
FROM history"
order="ORDER BY created_at DESC, id DESC LIMIT 100;"
search_sql="SELECT $columns WHERE (selected_text LIKE '%needle%' OR gloss LIKE '%needle%') $order"
recent_sql="SELECT $columns $order"
insert_sql="INSERT INTO history (created_at, selected_text, context_before, context_after, gloss,
  contextual_meaning, source_app, style, length, model, credits_cost)
VALUES (strftime('%Y-%m-%dT%H:%M:%fZ', 'now'), 'selection 17 of some text', 'text that came before the selection, cut',
  'text that came after the selection, cut', 'An explanation of the selected words with a little **Markdown**, a path a/b, and some Chinese 这是一个解释，说明所选文字在上下文中的含义。
- first point
- second point with more words to make it realistic
', 'what it means here', 'Safari', 'plain', 'medium', 'cloud', 1);
DELETE FROM history WHERE id NOT IN (
  SELECT id FROM history ORDER BY created_at DESC, id DESC LIMIT 100
);"

now_ns() { date +%s%N; }

# Wall time in nanoseconds of one shell run of the script file $2 on database $1.
shell_ns() {
    start=$(now_ns)
    sqlite3 "$1" <"$2" >/dev/null
    echo $(($(now_ns) - start))
}

# Per-statement shell time in microseconds: `count` repetitions in one run, less an empty run.
per_op_us() { # db, statement, count
    : >"$dir/empty.sql"
    i=0
    : >"$dir/op.sql"
    while [ $i -lt "$3" ]; do printf '%s\n' "$2" >>"$dir/op.sql"; i=$((i + 1)); done
    base=$(shell_ns "$1" "$dir/empty.sql")
    total=$(shell_ns "$1" "$dir/op.sql")
    echo "$total $base $3" | awk '{ printf "%.1f", ($1 - $2) / $3 / 1000 }'
}

# Our time in microseconds for a benchmark, or a named counter of it.
ours_us() { # name, [counter column]
    awk -F, -v name="\"$1\"" -v column="${2:-}" '
        NR == 1 { for (i = 1; i <= NF; i++) if ($i == "\"" column "\"") c = i; next }
        $1 == name {
            if (c) { printf "%.1f", $c; exit }
            scale = ($5 == "ms") ? 1000 : ($5 == "ns") ? 0.001 : ($5 == "s") ? 1e6 : 1
            printf "%.1f", $3 * scale; exit
        }' "$dir/ours.csv"
}

row() { # label, ours, shell
    echo "$1 $2 $3" | awk '{ printf "%-34s %12.1f us %12.1f us %8.2fx\n", $1, $2, $3, $2 / $3 }'
}

printf '%-34s %15s %15s %9s\n' statement nubra "sqlite3 shell" ratio
row search-100k-rows "$(ours_us searchBigTable)" "$(per_op_us "$dir/search.sqlite3" "$search_sql" 20)"
row recent-100 "$(ours_us recentBigTable)" "$(per_op_us "$dir/search.sqlite3" "$recent_sql" 500)"
row insert+trim-mean "$(ours_us insertAndTrim/iterations:300/manual_time)" \
    "$(per_op_us "$dir/insert.sqlite3" "$insert_sql" 300)"
echo "insert+trim median $(ours_us insertAndTrim/iterations:300/manual_time median_us) us," \
    "p99 $(ours_us insertAndTrim/iterations:300/manual_time p99_us) us"

# Exports: our throughput beside the shell writing the same 100 000 rows as JSON and as Markdown.
throughput() { # mode
    printf '.mode %s\nSELECT contextual_meaning, created_at, credits_cost, gloss, length, model, selected_text, source_app, style FROM history ORDER BY created_at DESC, id DESC;\n' "$1" >"$dir/export.sql"
    start=$(now_ns)
    sqlite3 "$dir/search.sqlite3" <"$dir/export.sql" >"$dir/export.out"
    elapsed=$(($(now_ns) - start))
    echo "$(wc -c <"$dir/export.out") $elapsed" | awk '{ printf "%.1f", $1 / ($2 / 1e9) / 1e6 }'
}
bytes_rate() { # name
    awk -F, -v name="\"$1\"" '$1 == name { printf "%.1f", $6 / 1e6 }' "$dir/ours.csv"
}
echo "export JSON Lines $(bytes_rate exportJsonl) MB/s (shell .mode json: $(throughput json) MB/s)"
echo "export Markdown   $(bytes_rate exportMarkdown) MB/s (shell .mode markdown: $(throughput markdown) MB/s)"
