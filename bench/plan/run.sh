#!/usr/bin/env bash
# Times `vorlan plan --json` against `du -sk` and `gdu -n` of the same cleanup parents, on a
# synthetic home folder that holds nothing but those parents, warm cache.
#
# usage: bench/plan/run.sh [FILES]   (FILES: files under the parents, at least; default 200000)
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
out="$root/bench/out/plan"
files="${1:-200000}"
home="$out/home-$files"
build="$root/build/release"
mkdir -p "$out"

command -v hyperfine >/dev/null || { echo "hyperfine is needed (scripts/bootstrap --bench installs it)" >&2; exit 1; }
(cd "$root" && cmake --preset release >/dev/null && cmake --build --preset release --target vorlan >/dev/null)
vorlan="$build/VorlanCli/vorlan"

parents=("Library/Caches" "Library/Application Support" "Library/Group Containers"
         "Library/Developer/CoreSimulator" "Library/Developer/Xcode/DerivedData"
         ".cache" ".gradle/caches" ".npm" ".bun/install")

if [ ! -d "$home" ]; then
  # The generator spreads files over the whole home; make enough that the parents alone hold
  # FILES, then drop everything else so every tool walks exactly the same folders.
  python3 "$root/bench/make-synthetic-home.py" "$home.tmp" $((files * 108 / 64 + 1000)) >/dev/null
  mkdir -p "$home"
  for p in "${parents[@]}"; do
    if [ -d "$home.tmp/$p" ]; then mkdir -p "$home/$(dirname "$p")"; mv "$home.tmp/$p" "$home/$p"; fi
  done
  rm -rf "$home.tmp"
fi

existing=()
for p in "${parents[@]}"; do [ -d "$home/$p" ] && existing+=("$home/$p"); done
counted=$(find "${existing[@]}" -type f | wc -l)
echo "files under the parents: $counted"
[ "$counted" -ge "$files" ] || { echo "too few files; remove $home and run again" >&2; exit 1; }

# One plan first, to show what is measured and that it runs.
HOME="$home" "$vorlan" plan --all --no-progress | tail -n 4

quoted=""
for p in "${existing[@]}"; do quoted+=" '$p'"; done
cmds=(
  "HOME='$home' '$vorlan' plan --json --no-progress >/dev/null"
  "du -sk$quoted >/dev/null"
)
names=("vorlan plan --json" "du -sk")
if command -v gdu >/dev/null; then
  cmds+=("gdu -n -p '$home' >/dev/null")
  names+=("gdu -n")
fi

args=(--warmup 3 --runs "${RUNS:-15}" --export-markdown "$out/results.md")
for i in "${!cmds[@]}"; do args+=(--command-name "${names[$i]}" "${cmds[$i]}"); done
hyperfine "${args[@]}"
echo "table: $out/results.md"
