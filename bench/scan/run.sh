#!/usr/bin/env bash
# Times `vorlan scan` with each engine against `du -sk` and other disk-usage tools on a synthetic
# home folder, in one hyperfine run with a warm cache, and counts the system calls of `du -sk`
# and of the walk engine's scan. Figures print as ratios to `du -sk`.
#
# usage: bench/scan/run.sh [FILES]     (FILES: size of the synthetic home, default 250000)
#        RUNS=N for more or fewer timed runs (default 5)
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
out="$root/bench/out/scan"
files="${1:-250000}"
home="$out/home-$files"
mkdir -p "$out"

command -v hyperfine >/dev/null || { echo "hyperfine is needed (scripts/bootstrap --bench installs it)" >&2; exit 1; }
(cd "$root" && cmake --preset release >/dev/null && cmake --build --preset release --target vorlan >/dev/null)
vorlan="$root/build/release/VorlanCli/vorlan"
[ -d "$home" ] || python3 "$root/bench/make-synthetic-home.py" "$home" "$files"

# Both engines must tell the same story before their times mean anything.
HOME="$home" "$vorlan" scan --json --no-progress --engine walk > "$out/walk.json"
HOME="$home" "$vorlan" scan --json --no-progress --engine du > "$out/du.json"
python3 - "$out/walk.json" "$out/du.json" <<'PY'
import json, sys
walk, du = (json.load(open(p)) for p in sys.argv[1:])
if walk["findings"] != du["findings"]:
    sys.exit("the engines disagree: compare bench/out/scan/walk.json and du.json")
print(f"both engines: the same {len(walk['findings'])} findings")
PY

cmds=(
  "du -sk '$home' >/dev/null"
  "HOME='$home' '$vorlan' scan --no-progress --engine walk >/dev/null"
  "HOME='$home' '$vorlan' scan --no-progress --engine du >/dev/null"
)
names=("du -sk" "vorlan scan (walk)" "vorlan scan (du)")
if command -v ncdu >/dev/null; then cmds+=("ncdu -o /dev/null '$home'"); names+=("ncdu -o /dev/null"); fi
if command -v gdu >/dev/null; then cmds+=("gdu -n '$home' >/dev/null"); names+=("gdu -n"); fi

args=()
for i in "${!cmds[@]}"; do args+=(-n "${names[$i]}" "${cmds[$i]}"); done
hyperfine --warmup 1 --runs "${RUNS:-5}" --export-json "$out/scan.json" "${args[@]}"

# System calls, children and threads included; the fstatat family is what a walk pays per entry.
# strace is Linux's (scripts/bootstrap installs it there); without it the counts are left out.
rm -f "$out/strace-du.txt" "$out/strace-walk.txt"
if command -v strace >/dev/null; then
  strace -c -f -o "$out/strace-du.txt" du -sk "$home" >/dev/null
  HOME="$home" strace -c -f -o "$out/strace-walk.txt" "$vorlan" scan --no-progress --engine walk >/dev/null
fi

python3 - "$out/scan.json" "$out/strace-du.txt" "$out/strace-walk.txt" "$files" <<'PY'
import json, sys

results = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
base = results["du -sk"]["mean"]

def calls(path):
    counts = {}
    try:
        lines = open(path).readlines()
    except FileNotFoundError:
        return counts
    for line in lines:
        parts = line.split()
        # "% time  seconds  usecs/call  calls  [errors]  syscall"; the total line is skipped.
        if len(parts) >= 5 and parts[0][0].isdigit() and parts[-1] != "total":
            counts[parts[-1]] = int(parts[3])
    return counts

stat_names = ("newfstatat", "fstatat64", "statx", "lstat", "stat", "fstat")
du_calls, walk_calls = calls(sys.argv[2]), calls(sys.argv[3])
du_stat = sum(du_calls.get(n, 0) for n in stat_names)
walk_stat = sum(walk_calls.get(n, 0) for n in stat_names)

print(f"\n{int(sys.argv[4]):,} files, warm cache, mean of the runs:\n")
print("| command | mean | × du -sk |")
print("|---|---:|---:|")
for name, r in results.items():
    print(f"| `{name}` | {r['mean']:.3f} s ± {r['stddev']:.3f} | {r['mean'] / base:.2f}× |")
if du_calls and walk_calls:
    print("\n| system calls (strace -c -f) | du -sk | vorlan scan (walk) | ratio |")
    print("|---|---:|---:|---:|")
    print(f"| stat family (newfstatat, statx, …) | {du_stat:,} | {walk_stat:,} | {walk_stat / du_stat:.3f}× |")
    for name in ("openat", "getdents64"):
        d, w = du_calls.get(name, 0), walk_calls.get(name, 0)
        print(f"| {name} | {d:,} | {w:,} | {w / d if d else 0:.3f}× |")
    d, w = sum(du_calls.values()), sum(walk_calls.values())
    print(f"| all | {d:,} | {w:,} | {w / d:.3f}× |")

walk = results["vorlan scan (walk)"]["mean"]
goals = [("walk scan at most 0.8× du -sk", walk <= 0.8 * base)]
if du_calls and walk_calls:
    goals.append(("walk scan at most 1.05× du's stat calls", walk_stat <= 1.05 * du_stat))
for other in ("ncdu -o /dev/null", "gdu -n"):
    if other in results:
        goals.append((f"walk scan ahead of {other}", walk < results[other]["mean"]))
print()
for goal, met in goals:
    print(f"{'met   ' if met else 'MISSED'}  {goal}")
PY
