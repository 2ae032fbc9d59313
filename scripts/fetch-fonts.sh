#!/usr/bin/env bash
# Fetches the interface's type faces (SIL Open Font Licence) from the npm packages of Google Fonts:
# Schibsted Grotesk, which no Debian package carries, and JetBrains Mono for machines without
# fonts-jetbrains-mono. Only the weights the interface uses are kept, with each face's licence.
# Cached per package version in ~/.cache/vorlix/fonts/<face>, so later runs are instant.
set -euo pipefail

cache=${XDG_CACHE_HOME:-$HOME/.cache}/vorlix/fonts
mkdir -p "$cache"

fetch() { # package, file prefix, weights...
  local package=$1 prefix=$2
  shift 2
  local name=${package#@expo-google-fonts/}
  local version
  version=$(cd "$cache" && npm view "$package" version 2>/dev/null || true)
  if [[ -z $version ]]; then
    # Offline: keep whatever was fetched last.
    [[ -d $cache/$name ]] && return 0
    echo "fetch-fonts: cannot reach the npm registry and no cached $name" >&2
    return 1
  fi
  local dest=$cache/$name-$version
  if [[ ! -f $dest/$prefix-OFL.txt ]]; then
    local work
    work=$(mktemp -d "${TMPDIR:-/tmp}/vorlix-fonts-XXXXXX")
    (cd "$work" && npm pack --silent "$package@$version" >/dev/null)
    tar -xzf "$work"/*.tgz -C "$work"
    rm -rf "$dest.tmp" && mkdir -p "$dest.tmp"
    for weight in "$@"; do
      install -m 644 "$work/package/$weight/${prefix}_$weight.ttf" "$dest.tmp/"
    done
    install -m 644 "$work/package/LICENSE_FONT" "$dest.tmp/$prefix-OFL.txt"
    rm -rf "$work" "$dest"
    mv "$dest.tmp" "$dest"
    echo "fetch-fonts: cached $name $version"
  fi
  ln -sfn "$dest" "$cache/$name"
}

fetch @expo-google-fonts/schibsted-grotesk SchibstedGrotesk 400Regular 600SemiBold 700Bold
fetch @expo-google-fonts/jetbrains-mono JetBrainsMono 400Regular 500Medium 600SemiBold 700Bold
