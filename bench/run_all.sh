#!/usr/bin/env bash
# Runs every benchmark program of a build with repetitions and random interleaving, then prints
# one table of their ratio lines: measure, ratio of the medians (real and CPU time), target and
# verdict (judged on the time the target names).
#
#   bench/run_all.sh [BUILD_DIR] [-- BENCHMARK_FLAGS...]
#
# BUILD_DIR defaults to build/default. BENCH_REPETITIONS (default 5) and BENCH_MIN_TIME (seconds
# per repetition, default 0.2) set the length of the run; flags after -- go to every program
# (e.g. --benchmark_filter=...). Each program's own output is kept in BUILD_DIR/bench/*.out.
# Exit status: 0 every target met, 1 a target missed, 2 a program failed or none was found.
set -u

build=build/default
if [ $# -gt 0 ] && [ "$1" != "--" ]; then
  build=$1
  shift
fi
[ "${1:-}" = "--" ] && shift
reps=${BENCH_REPETITIONS:-5}
min_time=${BENCH_MIN_TIME:-0.2}

programs=("$build"/bench/bench_*)
if [ ! -x "${programs[0]}" ]; then
  echo "run_all.sh: no benchmark programs in $build/bench (build the default preset first)" >&2
  exit 2
fi

rows=$(mktemp)
trap 'rm -f "$rows"' EXIT
status=0
for program in "${programs[@]}"; do
  [ -x "$program" ] && [ -f "$program" ] || continue
  case "$program" in *.out) continue ;; esac
  name=$(basename "$program")
  out="$program.out"
  echo "running $name ..." >&2
  "$program" --benchmark_repetitions="$reps" --benchmark_enable_random_interleaving=true \
    --benchmark_report_aggregates_only=true --benchmark_min_time="$min_time" \
    --benchmark_color=false "$@" >"$out" 2>&1
  rc=$?
  if [ $rc -ne 0 ] || grep -q "ERROR OCCURRED" "$out"; then
    printf '%s\tfailed (exit status %d, see %s)\t-\t-\t-\tFAILED\n' "$name" "$rc" "$out" >>"$rows"
    status=2
    continue
  fi
  # ratio A / B, N thread(s): real R, cpu C[ (target <= T on real|cpu)]
  sed -e 's/\x1b\[[0-9;]*m//g' "$out" | sed -n 's/^ratio \(.*\): real \([0-9.]*\), cpu \([0-9.]*\)\(.*\)$/\1\t\2\t\3\t\4/p' |
    while IFS=$'\t' read -r what real cpu rest; do
      target=-
      verdict=-
      if [[ $rest =~ target\ \<=\ ([0-9.]+)\ on\ (real|cpu) ]]; then
        limit=${BASH_REMATCH[1]}
        on=${BASH_REMATCH[2]}
        target="<= $limit ($on)"
        value=$real
        [ "$on" = cpu ] && value=$cpu
        verdict=$(awk -v v="$value" -v t="$limit" 'BEGIN { print (v <= t) ? "met" : "MISSED" }')
      fi
      printf '%s\t%s\t%s\t%s\t%s\t%s\n' "$name" "$what" "$real" "$cpu" "$target" "$verdict"
    done >>"$rows"
done

if grep -q $'\tMISSED$' "$rows" && [ $status -eq 0 ]; then
  status=1
fi
echo
echo "Ratios of medians over $reps repetitions, randomly interleaved ($build)"
awk -F'\t' '
  BEGIN { n = 0 }
  { m[n] = $1 ": " $2; r[n] = $3; c[n] = $4; t[n] = $5; v[n] = $6; n++
    if (length(m[n - 1]) > w) w = length(m[n - 1]) }
  END {
    if (w < 7) w = 7
    fmt = "%-" w "s  %6s  %6s  %-14s  %s\n"
    printf fmt, "measure", "real", "cpu", "target", "verdict"
    for (i = 0; i < n; i++) printf fmt, m[i], r[i], c[i], t[i], v[i]
  }' "$rows"
exit $status
