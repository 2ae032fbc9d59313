#!/usr/bin/env bash
# Builds whisper-cli from the whisper.cpp sources vendored in the npm package nodejs-whisper
# (Debian 12 ships no whisper.cpp). The binary is cached per package version, so later runs are instant.
set -euo pipefail

cache=${XDG_CACHE_HOME:-$HOME/.cache}/vorlix
mkdir -p "$cache"
version=$(cd "$cache" && npm view nodejs-whisper version 2>/dev/null || true)
if [[ -z $version ]]; then
  # Offline: keep whatever was built last.
  found=$(ls -1t "$cache"/whisper-cli-* 2>/dev/null | head -n1 || true)
  if [[ -n $found ]]; then ln -sfn "$found" "$cache/whisper-cli"; exit 0; fi
  echo "build-whisper: cannot reach the npm registry and no cached whisper-cli" >&2
  exit 1
fi
bin="$cache/whisper-cli-$version"
if [[ -x $bin ]]; then
  ln -sfn "$bin" "$cache/whisper-cli"
  exit 0
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/vorlix-whisper-build-XXXXXX")
trap 'rm -rf "$work"' EXIT
echo "build-whisper: building whisper-cli from nodejs-whisper $version"
(cd "$work" && npm pack --silent "nodejs-whisper@$version" >/dev/null)
tar -xzf "$work"/nodejs-whisper-*.tgz -C "$work"
src="$work/package/cpp/whisper.cpp"
cmake -S "$src" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DGGML_NATIVE=OFF -DBUILD_SHARED_LIBS=OFF -DWHISPER_BUILD_TESTS=OFF \
  -DWHISPER_BUILD_EXAMPLES=ON -DWHISPER_SDL2=OFF -DWHISPER_CURL=OFF >/dev/null
cmake --build "$work/build" --target whisper-cli -j"$(nproc)"
install -m 755 "$work/build/bin/whisper-cli" "$bin.tmp"
mv "$bin.tmp" "$bin"
ln -sfn "$bin" "$cache/whisper-cli"
echo "build-whisper: cached $bin"
