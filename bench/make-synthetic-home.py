#!/usr/bin/env python3
"""Builds a synthetic home folder for benchmarks: rule folders, folders under the cleanup
parents and loose folders, with a given number of small files in all.

usage: make-synthetic-home.py TARGET [FILES]   (FILES defaults to 200000)
"""
import os
import random
import sys

# Where the files go, with a weight: caches and tool homes that the rule table knows,
# children of the cleanup parents, and folders no rule covers.
PLACES = [
    (".cache/pip/http", 8), (".cache/go-build", 8), (".cache/huggingface/hub", 4),
    (".npm/_cacache/content-v2", 8), (".npm/_logs", 1),
    (".gradle/caches/modules-2/files-2.1", 6), (".gradle/wrapper/dists", 2),
    (".cargo/registry/cache", 4), (".cargo/bin", 1), (".rustup/toolchains", 4),
    (".bun/install/cache", 3), (".m2/repository", 4), (".nvm/versions", 3),
    ("Library/Caches/com.google.Chrome", 6), ("Library/Caches/Homebrew", 3),
    ("Library/Caches/com.apple.Safari", 2),
    ("Library/Application Support/Code/CachedData", 4),
    ("Library/Application Support/Slack/Cache", 3),
    ("Library/Group Containers/group.com.docker", 2),
    ("Library/Developer/CoreSimulator/Devices", 3),
    ("Library/Developer/Xcode/DerivedData/App-abc", 4),
    ("Library/Logs/DiagnosticReports", 1),
    ("Documents/reports", 4), ("Downloads", 3), ("프로젝트/웹앱/node_modules", 8),
    ("src/app/build", 6), ("Pictures/휴가", 2), ("Music", 1),
]


def main() -> int:
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    target = sys.argv[1]
    total = int(sys.argv[2]) if len(sys.argv) > 2 else 200_000
    rng = random.Random(42)
    weights = sum(w for _, w in PLACES)
    made = 0
    for place, weight in PLACES:
        count = total * weight // weights if place != PLACES[-1][0] else total - made
        base = os.path.join(target, place)
        for i in range(count):
            # 50 files a folder, folders two levels deep, so walks see real fan-out.
            folder = os.path.join(base, f"d{i // 2500:03d}", f"e{(i // 50) % 50:02d}")
            if i % 50 == 0:
                os.makedirs(folder, exist_ok=True)
            with open(os.path.join(folder, f"f{i:06d}.bin"), "wb") as f:
                f.write(b"x" * rng.randint(1, 6000))
        made += count
    print(f"{made} files under {target}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
