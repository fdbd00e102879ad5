#!/usr/bin/env bash
# Runs every fuzz target of a build for SECONDS each, on a copy of its corpus, and prints one
# table: executions, executions per second of wall time and per second of the target's CPU time,
# coverage (the edges the committed corpus reaches, then libFuzzer's edge and feature counts at
# the end), the new inputs kept, findings.
#
#   fuzz/run_all.sh SECONDS [BUILD_DIR] [-- LIBFUZZER_FLAGS...]
#
# BUILD_DIR defaults to build/asan (the preset whose targets carry AddressSanitizer and
# UndefinedBehaviorSanitizer). FUZZ_TARGETS (space-separated names, e.g. "fuzz_control") runs
# only those. Each target's log, the copy of its corpus (with what the run added) and any crash
# input stay in BUILD_DIR/fuzz/run/<target>/; add the new inputs to fuzz/corpus/<name>/ when
# they raise the coverage (`<target> -merge=1 fuzz/corpus/<name> BUILD_DIR/fuzz/run/<target>/corpus`
# keeps only those). Exit status: 0 no findings, 1 a target found something, 2 nothing to run.
set -u

if [ $# -lt 1 ] || ! [[ $1 =~ ^[0-9]+$ ]]; then
  echo "usage: fuzz/run_all.sh SECONDS [BUILD_DIR] [-- LIBFUZZER_FLAGS...]" >&2
  exit 2
fi
seconds=$1
shift
build=build/asan
if [ $# -gt 0 ] && [ "$1" != "--" ]; then
  build=$1
  shift
fi
[ "${1:-}" = "--" ] && shift
src=$(cd "$(dirname "$0")" && pwd)

targets=()
if [ -n "${FUZZ_TARGETS:-}" ]; then
  for t in $FUZZ_TARGETS; do targets+=("$build/fuzz/$t"); done
else
  for t in "$build"/fuzz/fuzz_*; do [ -x "$t" ] && [ -f "$t" ] && targets+=("$t"); done
fi
if [ ${#targets[@]} -eq 0 ] || [ ! -x "${targets[0]}" ]; then
  echo "run_all.sh: no fuzz targets in $build/fuzz (build the asan preset first)" >&2
  exit 2
fi

# The last "cov: N ft: M" of a libFuzzer log.
last_cov() { grep -o 'cov: [0-9]* ft: [0-9]*' "$1" | tail -1 | awk '{ print $2, $4 }'; }

rows=()
status=0
for target in "${targets[@]}"; do
  name=$(basename "$target")
  corpus_name=${name#fuzz_}
  run="$build/fuzz/run/$name"
  rm -rf "$run"
  mkdir -p "$run/corpus" "$run/artifacts"
  cp -r "$src/corpus/$corpus_name/." "$run/corpus/" 2>/dev/null
  before=$(ls "$run/corpus" | wc -l)
  echo "fuzzing $name for ${seconds}s ..." >&2
  # `times` in the subshell gives the CPU time its child used: executions per CPU second are
  # what the target does on a core of its own, whatever else the machine runs.
  (
    "$target" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
      -artifact_prefix="$run/artifacts/" "$@" "$run/corpus" >"$run/log" 2>&1
    rc=$?
    times >"$run/cpu"  # second line: the children's user and system time
    exit $rc
  )
  rc=$?
  cpu=$(awk 'NR == 2 { n = split($1 " " $2, t, " "); s = 0
               for (i = 1; i <= n; i++) { split(t[i], p, "m"); s += p[1] * 60 + p[2] }
               print s }' "$run/cpu")
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$run/log" | tail -1)
  per_s=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$run/log" | tail -1)
  start=$(grep -m1 -E 'INITED cov: [0-9]+' "$run/log" | grep -o 'cov: [0-9]* ft: [0-9]*' | awk '{ print $2 }')
  read -r cov ft <<<"$(last_cov "$run/log")"
  after=$(ls "$run/corpus" | wc -l)
  findings=$(ls "$run/artifacts" | wc -l)
  if [ $rc -ne 0 ] || [ "$findings" -gt 0 ]; then
    status=1
    verdict="FOUND (see $run)"
  else
    verdict=none
  fi
  rows+=("$(printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s' "$name" "${execs:-0}" \
    "${per_s:-0}" "$(awk -v e="${execs:-0}" -v c="$cpu" 'BEGIN { printf "%.0f", (c > 0 ? e / c : 0) }')" \
    "${start:--}" "${cov:--}" "${ft:--}" "+$((after - before))" "$verdict")")
done

echo
echo "libFuzzer, ${seconds}s per target, ASan+UBSan ($build)"
printf '%s\n' "${rows[@]}" | awk -F'\t' '
  BEGIN { fmt = "%-24s  %10s  %8s  %10s  %8s  %8s  %8s  %8s  %s\n"
          printf fmt, "target", "execs", "execs/s", "execs/cpu-s", "cov from", "cov", "ft", "inputs", "findings" }
  { printf fmt, $1, $2, $3, $4, $5, $6, $7, $8, $9 }'
exit $status
