#!/usr/bin/env bash
# Installs everything a fresh Debian 12 machine lacks to build, run and test Vorlix.
# Idempotent: packages already present are skipped, and whisper-cli is built once and cached.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)

packages=(
  # build
  cmake ninja-build g++ pkg-config git ca-certificates
  # toolkit and libraries
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev libqt6svg6 qcoro-qt6-dev libkissfft-dev libgl-dev
  # external programs the application drives
  ffmpeg yt-dlp python3
  # fonts used by the interface
  fonts-jetbrains-mono
  # tests: media generation, packaging validation, notifications bus
  sox espeak-ng desktop-file-utils appstream dbus xvfb xauth imagemagick xdotool
  # the history file reader
  libsimdjson-dev
  # make deb: dpkg-shlibdeps
  dpkg-dev
  # libFuzzer harnesses (make fuzz, run briefly by CI)
  clang libclang-rt-14-dev
  # whisper-cli source comes from the npm registry
  nodejs npm
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
# The machine image may already carry node/npm outside of apt.
if command -v npm >/dev/null 2>&1; then
  tmp=()
  for p in "${missing[@]}"; do [[ $p == nodejs || $p == npm ]] || tmp+=("$p"); done
  missing=("${tmp[@]}")
fi

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  [[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

"$here/build-whisper.sh"
"$here/fetch-fonts.sh"
