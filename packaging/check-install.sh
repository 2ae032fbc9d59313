#!/usr/bin/env bash
# Installs the build into a throw-away prefix and checks that the installed program works from
# there: every file in its place, the desktop entry and metainfo valid, and `vorlix analyze`
# and `vorlix probe` finding ffmpeg and the packaged tools from the installed location.
# Usage: check-install.sh <build dir> <app id>
set -euo pipefail
build=$1 id=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

cmake --install "$build" --prefix "$prefix" > "$work/install.log" || { cat "$work/install.log"; exit 1; }

executables=(bin/vorlix share/vorlix/bin/yt-dlp)
[[ -e $build/share/vorlix/bin/whisper-cli ]] && executables+=(share/vorlix/bin/whisper-cli)
for f in "${executables[@]}"; do
  [[ -f $prefix/$f && -x $prefix/$f ]] || fail "$f is not an installed executable"
done
# The downloader must stay a zip the interpreter runs, or it cannot update itself.
[[ $(head -c 2 "$prefix/share/vorlix/bin/yt-dlp") == '#!' ]] || fail "yt-dlp lost its shebang"
python3 -c 'import sys, zipfile; sys.exit(not zipfile.is_zipfile(sys.argv[1]))' "$prefix/share/vorlix/bin/yt-dlp" \
  || fail "yt-dlp is not a zip"

files=(share/applications/$id.desktop share/metainfo/$id.metainfo.xml share/icons/hicolor/scalable/apps/$id.svg
       share/doc/vorlix/copyright share/doc/vorlix/changelog.gz share/man/man1/vorlix.1.gz)
for f in "${files[@]}"; do
  [[ -s $prefix/$f ]] || fail "$f is missing or empty"
done
for size in 48 64 128 256; do
  png=$prefix/share/icons/hicolor/${size}x${size}/apps/$id.png
  got=$(python3 -c 'import struct, sys
d = open(sys.argv[1], "rb").read(24)
print("%dx%d" % struct.unpack(">II", d[16:24]) if d[:8] == b"\x89PNG\r\n\x1a\n" else "not a PNG")' "$png" 2>/dev/null || echo missing)
  [[ $got == "${size}x${size}" ]] || fail "icon $png is $got, not ${size}x${size}"
done
# Whatever fonts the build tree carries are installed, licence included.
if [[ -d $build/share/vorlix/fonts ]]; then
  diff -r "$build/share/vorlix/fonts" "$prefix/share/vorlix/fonts" > /dev/null || fail "fonts differ from the build tree"
fi

desktop-file-validate "$prefix/share/applications/$id.desktop" || fail "desktop entry does not validate"
appstreamcli validate --no-net --pedantic "$prefix/share/metainfo/$id.metainfo.xml" > "$work/as.log" \
  || { cat "$work/as.log"; fail "metainfo does not validate"; }
grep -qx "Icon=$id" "$prefix/share/applications/$id.desktop" || fail "desktop entry names another icon"
grep -q "<launchable type=\"desktop-id\">$id.desktop</launchable>" "$prefix/share/metainfo/$id.metainfo.xml" \
  || fail "metainfo launches another desktop entry"

# A private home, so the run leaves nothing behind and finds no tools installed earlier.
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_DATA_HOME=$work/home/.local/share \
       XDG_CACHE_HOME=$work/home/.cache QT_QPA_PLATFORM=offscreen
mkdir -p "$HOME"
# A click track: any tempo found shows ffmpeg was reached from the installed program.
ffmpeg -v error -f lavfi -i "aevalsrc='if(lt(mod(t,0.5),0.02),sin(2*PI*1000*t),0)':s=44100:d=12" "$work/clicks.wav"
out=$(cd "$work" && timeout 120 "$prefix/bin/vorlix" analyze "$work/clicks.wav")
[[ $out =~ ^bpm=[0-9.]+\ key= ]] || fail "installed analyze printed '$out'"

# Probing installs the packaged downloader from beside the installed binary into the tool folder.
out=$(timeout 120 "$prefix/bin/vorlix" probe http://127.0.0.1:9/none)
[[ $out == "probe failed: "* ]] || fail "installed probe printed '$out'"
cmp -s "$prefix/share/vorlix/bin/yt-dlp" "$XDG_DATA_HOME/Vorlix/bin/yt-dlp" \
  || fail "the installed program did not install its packaged yt-dlp"

((failures == 0)) && echo "installed tree OK"
((failures == 0))
