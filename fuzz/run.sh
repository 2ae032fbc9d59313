#!/usr/bin/env bash
# Runs every harness in <dir> for <seconds> each, starting from fuzz/corpus/<name>; new inputs go to
# a scratch corpus, never into the repository. Prints each harness's executions; fails on a crash
# (its input is kept in <dir>/crashes/).
set -uo pipefail
dir=${1:?harness folder}
seconds=${2:-60}
seeds="$(cd "$(dirname "$0")" && pwd)/corpus"
mkdir -p "$dir/crashes"
failed=0
for harness in "$dir"/fuzz_*; do
  [ -f "$harness" ] && [ -x "$harness" ] || continue
  name=$(basename "$harness")
  scratch=$(mktemp -d)
  log="$dir/$name.log"
  "$harness" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$dir/crashes/$name-" "$scratch" "$seeds/${name#fuzz_}" >"$log" 2>&1
  status=$?
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$')
  if [ $status -eq 0 ]; then
    echo "$name: ${runs:-0} executions, no crash"
  else
    echo "$name: FAILED after ${runs:-?} executions (status $status), see $log"
    tail -n 30 "$log"
    failed=1
  fi
  rm -rf "$scratch"
done
exit $failed
