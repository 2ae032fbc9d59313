#!/bin/sh
# Renders the Ember sampler and the settings window under Xvfb into PNG files.
# Usage: bench/ui_screenshots.sh [build dir] [output dir]
set -e
build=${1:-build}
out=${2:-$build/screenshots}
mkdir -p "$out"
out=$(cd "$out" && pwd)
QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1280x900x24" "$build/bench/bench_ui_screenshots" "$out"
