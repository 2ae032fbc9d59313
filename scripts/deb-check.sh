#!/usr/bin/env bash
# Checks the built .deb the way a user meets it: its metadata, then dpkg installs it into a
# throw-away root, where the installed binary has to start and report its version, and removes
# it again without leaving a file behind.
# Usage: deb-check.sh <build dir>
set -euo pipefail
build=${1:-build}
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
deb=$build/vorlix_${version}_amd64.deb
[[ -f $deb ]] || { echo "deb-check: no $deb (run make deb)"; exit 1; }

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

dpkg-deb --field "$deb" Package Version Architecture Section Depends Homepage
depends=$(dpkg-deb --field "$deb" Depends)
for d in ffmpeg python3 libqt6widgets6 libc6; do
  re="(^|[ ,])$d([ ,(]|\$)"
  [[ $depends =~ $re ]] || fail "Depends lacks $d"
done
# Every dependency names a real package: this machine, which built the package, has them all.
for d in $(sed 's/([^)]*)//g; s/,/ /g' <<< "$depends"); do
  dpkg-query -W -f='${Status}' "$d" 2> /dev/null | grep -q 'install ok installed' || fail "Depends names $d, not installed here"
done

# The throw-away root has an empty package database of its own; the libraries come from the host.
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status"
dpkg --root="$root" --force-depends --force-not-root -i "$deb" > "$root/dpkg.log" 2>&1 || { cat "$root/dpkg.log"; fail "dpkg -i failed"; }
for f in usr/bin/vorlix usr/share/vorlix/bin/yt-dlp usr/share/applications/app.vorlix.vorlix.desktop \
         usr/share/metainfo/app.vorlix.vorlix.metainfo.xml usr/share/doc/vorlix/copyright; do
  [[ -e $root/$f ]] || fail "package lacks /$f"
done
if [[ -L $root/usr/share/vorlix/bin/whisper-cli ]]; then
  [[ -x $root/usr/share/vorlix/bin/whisper-cli ]] || fail "whisper-cli link is dangling"
fi

# No session bus: a Vorlix running on this desktop must not answer for the unpacked one.
run() { env -u DBUS_SESSION_BUS_ADDRESS HOME="$root/home" QT_QPA_PLATFORM=offscreen timeout 60 "$root/usr/bin/vorlix" "$@" 2>&1; }
out=$(run --version) || true
[[ $out == *"$version"* ]] || fail "installed vorlix --version printed '$out'"
ffmpeg -v error -f lavfi -i "aevalsrc='if(lt(mod(t,0.5),0.02),sin(2*PI*1000*t),0)':s=44100:d=12" "$root/clicks.wav"
out=$(run analyze "$root/clicks.wav") || true
[[ $out =~ ^bpm=[0-9.]+\ key= ]] || fail "installed vorlix analyze printed '$out'"

dpkg --root="$root" --force-not-root -r vorlix > "$root/dpkg.log" 2>&1 || { cat "$root/dpkg.log"; fail "dpkg -r failed"; }
left=$(cd "$root" && find usr \( -type f -o -type l \) 2> /dev/null | head -5 || true)
[[ -z $left ]] || fail "removal left $left"

# Warnings are shown; errors fail the check.
if command -v lintian > /dev/null; then
  lintian --info "$deb" || fail "lintian reports errors"
fi
echo "deb-check: $(du -h "$deb" | cut -f1) $deb"
((failures == 0))
