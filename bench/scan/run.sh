#!/usr/bin/env bash
# Times `vorlan scan` against the du runs it is made of, and against other disk-usage tools,
# on a synthetic home folder. Figures print as ratios to `du -sk`.
#
# usage: bench/scan/run.sh [FILES]     (FILES: size of the synthetic home, default 200000)
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
out="$root/bench/out/scan"
files="${1:-200000}"
home="$out/home-$files"
mkdir -p "$out"

command -v hyperfine >/dev/null || { echo "hyperfine is needed (scripts/bootstrap --bench installs it)" >&2; exit 1; }
(cd "$root" && cmake --preset release >/dev/null && cmake --build --preset release --target vorlan >/dev/null)
vorlan="$root/build/release/VorlanCli/vorlan"
[ -d "$home" ] || python3 "$root/bench/make-synthetic-home.py" "$home" "$files"

# Record the exact du commands a scan makes, through a du that logs and passes on.
shim="$out/shim"
mkdir -p "$shim"
real_du="$(command -v du)"
cat > "$shim/du" <<SHIM
#!/bin/sh
printf '%s\n' "\$*" >> "$out/du-calls.log"
exec "$real_du" "\$@"
SHIM
chmod +x "$shim/du"
rm -f "$out/du-calls.log"
HOME="$home" PATH="$shim:$PATH" "$vorlan" scan --no-progress >/dev/null
{
  echo "#!/bin/sh"
  while IFS= read -r line; do
    # Arguments are "-xk -d N PATH"; the path may hold blanks.
    set -- $line
    flags="$1 $2 $3"; shift 3
    # Through env, as vorlan runs every tool, so both sides pay the same for finding du.
    printf '/usr/bin/env du %s "%s" >/dev/null\n' "$flags" "$*"
  done < "$out/du-calls.log"
} > "$out/du-runs.sh"
echo "du calls made by one scan: $(wc -l < "$out/du-calls.log")"

cmds=(
  "HOME='$home' '$vorlan' scan --no-progress"
  "sh '$out/du-runs.sh'"
  "du -sk '$home'"
)
names=("vorlan scan" "same du runs" "du -sk")
if command -v gdu >/dev/null; then cmds+=("gdu -n '$home' >/dev/null"); names+=("gdu -n"); fi
if command -v ncdu >/dev/null; then cmds+=("ncdu -o /dev/null '$home'"); names+=("ncdu -o"); fi

args=()
for i in "${!cmds[@]}"; do args+=(-n "${names[$i]}" "${cmds[$i]}"); done
hyperfine --warmup 1 --runs "${RUNS:-5}" --export-json "$out/scan.json" "${args[@]}"

python3 - "$out/scan.json" <<'PY'
import json, sys
results = {r["command"]: r["mean"] for r in json.load(open(sys.argv[1]))["results"]}
base = results["du -sk"]
print("\nmean seconds, and ratio to du -sk:")
for name, mean in results.items():
    print(f"  {name:14s} {mean:8.3f} s  {mean / base:6.2f}x")
print(f"\nvorlan scan / same du runs: {results['vorlan scan'] / results['same du runs']:.3f}x")
PY
