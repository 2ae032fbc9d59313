#!/bin/sh
# Start-up to a visible main window and the idle memory of vorlix under Xvfb, each against a
# bare Qt window (build/bench/bench_ui_startup_baseline) measured in the same run, with an empty
# history and with a 100,000-entry one (written by build/bench/bench_history_store --write).
# Usage: bench/startup.sh [build dir] [runs]
# Targets: start-up < 500 ms, idle RSS < 80 MB; with 100,000 entries start-up within 10 % of the
# empty history's and idle RSS <= 70 MB.
set -eu
build=$(cd "${1:-build}" && pwd)
runs=${2:-5}
vorlix=$build/bin/vorlix
baseline=$build/bench/bench_ui_startup_baseline
writer=$build/bench/bench_history_store
for tool in Xvfb xdotool "$vorlix" "$baseline" "$writer"; do
  command -v "$tool" >/dev/null 2>&1 || { echo "startup.sh: $tool not found" >&2; exit 1; }
done

work=$(mktemp -d)
xvfb_pid=
cleanup() {
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT INT TERM

# -noreset: every xdotool poll is a client; a reset after it leaves would refuse the program.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 3>"$work/display" 2>/dev/null &
xvfb_pid=$!
i=0
while [ ! -s "$work/display" ]; do
  i=$((i + 1)); [ $i -gt 500 ] && { echo "startup.sh: Xvfb did not start" >&2; exit 1; }
  sleep 0.02
done
export DISPLAY=":$(cat "$work/display")" QT_QPA_PLATFORM=xcb
unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS

# A private home; the engine counts as freshly updated so no self-update goes to the network.
export HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_CACHE_HOME=$work/cache
export XDG_RUNTIME_DIR=$work/run TMPDIR=$work/tmp
mkdir -p "$HOME" "$XDG_CONFIG_HOME/Vorlix" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" "$XDG_RUNTIME_DIR" "$TMPDIR"
chmod 700 "$XDG_RUNTIME_DIR"
printf '[General]\nlastEngineUpdateCheck=%s\n' "$(date +%s)" >"$XDG_CONFIG_HOME/Vorlix/Vorlix.conf"

now_ms() { echo $(($(date +%s%N) / 1000000)); }

# One start: prints "<ms to visible window> <idle RSS in kB>".
measure() { # program, window name
  start=$(now_ms)
  "$1" >/dev/null 2>"$work/stderr" &
  pid=$!
  until xdotool search --onlyvisible --name "^$2\$" >/dev/null 2>&1; do
    kill -0 "$pid" 2>/dev/null || { echo "startup.sh: $1 exited:" >&2; cat "$work/stderr" >&2; exit 1; }
    sleep 0.005
  done
  visible=$(($(now_ms) - start))
  sleep 3 # let start-up work (engine version query, first paint) settle
  rss=$(awk '/^VmRSS:/ { print $2 }' "/proc/$pid/status")
  kill "$pid"; wait "$pid" 2>/dev/null || true
  echo "$visible $rss"
}

median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
# "min / median / max" of one column.
spread() { cut -d' ' -f"$2" "$1" | sort -n | awk '{ v[NR] = $1 } END { m = (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2; printf "%s / %s / %s", v[1], m, v[NR] }'; }

history=$XDG_DATA_HOME/Vorlix/history.json
big=$work/history-100k.json
"$writer" --write "$big" >/dev/null

first=$(measure "$vorlix" Vorlix) # copies the packaged tools into the fresh home
: >"$work/vorlix"; : >"$work/baseline"; : >"$work/big"
n=0
while [ $n -lt "$runs" ]; do
  measure "$baseline" Baseline >>"$work/baseline"
  rm -f "$history"
  measure "$vorlix" Vorlix >>"$work/vorlix"
  cp "$big" "$history"
  sync # the copy's write-back is not the program's start-up
  measure "$vorlix" Vorlix >>"$work/big"
  n=$((n + 1))
done

v_ms=$(cut -d' ' -f1 "$work/vorlix" | median); b_ms=$(cut -d' ' -f1 "$work/baseline" | median)
v_kb=$(cut -d' ' -f2 "$work/vorlix" | median); b_kb=$(cut -d' ' -f2 "$work/baseline" | median)
h_ms=$(cut -d' ' -f1 "$work/big" | median); h_kb=$(cut -d' ' -f2 "$work/big" | median)
awk -v first="${first%% *}" -v v="$v_ms" -v b="$b_ms" -v vk="$v_kb" -v bk="$b_kb" -v h="$h_ms" -v hk="$h_kb" -v n="$runs" 'BEGIN {
  printf "startup to visible window (median of %d): vorlix %d ms, bare Qt window %d ms, ratio %.2f (target < 500 ms)\n", n, v, b, v / b
  printf "first start with tool installation: %d ms\n", first
  printf "idle RSS (median of %d): vorlix %.1f MB, bare Qt window %.1f MB, ratio %.2f (target < 80 MB)\n", n, vk / 1024, bk / 1024, vk / bk
  printf "startup with 100,000 history entries: %d ms, ratio to empty history %.2f (target <= 1.10)\n", h, h / v
  printf "idle RSS with 100,000 history entries: %.1f MB (target <= 70 MB)\n", hk / 1024
}'
echo "min / median / max: startup empty $(spread "$work/vorlix" 1) ms, 100k $(spread "$work/big" 1) ms;" \
  "RSS empty $(spread "$work/vorlix" 2) kB, 100k $(spread "$work/big" 2) kB"
