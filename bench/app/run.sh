#!/usr/bin/env bash
# How late the app's event loop answers during a scan of the synthetic home, and while the
# cleanup screen loads its plan: the 50th and 99th percentiles and the worst lateness of a 10 ms
# timer on the main thread, how soon the plan's first row shows, and how long a tick takes in a
# plan of 2,000 rows. Runs offscreen unless QT_QPA_PLATFORM says otherwise; the first scan warms
# the file cache and is not counted.
#
# usage: bench/app/run.sh [FILES]     (FILES: size of the synthetic home, default 250000)
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
out="$root/bench/out/app"
files="${1:-250000}"
home="$out/home-$files"
mkdir -p "$out"

(cd "$root" && cmake --preset release >/dev/null && cmake --build --preset release --target vorlan_app_bench >/dev/null)
bench="$root/build/release/bench/app/vorlan_app_bench"
[ -d "$home" ] || python3 "$root/bench/make-synthetic-home.py" "$home" "$files"

export QT_QPA_PLATFORM="${QT_QPA_PLATFORM:-offscreen}"
"$bench" "$home" >/dev/null
for run in 1 2 3; do
  echo "scan, run $run: $("$bench" "$home" scan | tr '\n' ' ')"
done
for run in 1 2 3; do
  echo "plan, run $run: $("$bench" "$home" plan | tr '\n' ' ')"
done
