#!/usr/bin/env python3
"""Draws the benchmark's figures against the number of routes, from protorib-bench's JSON.

    scripts/bench-plot.py [JSON [PNG]]     default: build/bench.json -> docs/perf/bench.png

Left: time of install, failover, review and leaking, the library's (solid) and the plain
computation's (dashed) where there is one. Right: memory per prefix after install (heap in use and
peak resident set) for both, and the leak machinery's heap per leaked route, with the aim of
400 bytes per prefix. Needs matplotlib (scripts/setup-debian.sh --bench).
"""
import json
import os
import sys
from collections import defaultdict

try:
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
except ImportError:
    # Debian's python3-matplotlib belongs to Debian's interpreter, which another python3 earlier
    # on PATH (a virtual environment, pyenv) does not see: run under that one instead.
    system = "/usr/bin/python3"
    if os.path.exists(system) and os.path.realpath(sys.executable) != os.path.realpath(system):
        os.execv(system, [system] + sys.argv)
    sys.exit("bench-plot.py: matplotlib is missing; scripts/setup-debian.sh --bench installs it")

TIMES = [("install", "time"), ("failover", "time"), ("review", "time"), ("leaking", "time")]
MEMORY = [("install", "heap per prefix"), ("install", "peak RSS per prefix"),
          ("leaking", "heap per route")]
MARKERS = {"IPv4": "o", "IPv6": "s"}


def series(rows, workload, figure):
    """(family, side) -> sorted [(routes, value)] for one figure; side is 'library' or 'plain'."""
    out = defaultdict(list)
    for r in rows:
        if r["workload"] != workload or r["figure"] != figure:
            continue
        out[(r["family"], "library")].append((r["routes"], r["value"]))
        if r.get("plain") is not None:
            out[(r["family"], "plain")].append((r["routes"], r["plain"]))
    return {k: sorted(v) for k, v in out.items()}


def draw(ax, rows, wanted, colours):
    drawn = 0
    for i, (workload, figure) in enumerate(wanted):
        for (family, side), points in series(rows, workload, figure).items():
            xs, ys = zip(*points)
            label = f"{workload} {figure}, {family}" + (" (plain)" if side == "plain" else "")
            plain = side == "plain"
            ax.plot(xs, ys, marker=MARKERS.get(family, "x"), linestyle="--" if plain else "-",
                    color=colours[i % len(colours)], label=label, alpha=0.6 if plain else 0.9)
            drawn += 1
    return drawn


def main(argv):
    source = argv[1] if len(argv) > 1 else "build/bench.json"
    target = argv[2] if len(argv) > 2 else "docs/perf/bench.png"
    try:
        with open(source) as f:
            doc = json.load(f)
    except OSError as e:
        sys.exit(f"bench-plot.py: cannot read {source}: {e.strerror} (scripts/bench.sh writes it)")
    except json.JSONDecodeError as e:
        sys.exit(f"bench-plot.py: {source} is not JSON: {e}")
    rows = doc.get("rows", [])
    if not rows:
        sys.exit(f"bench-plot.py: {source} has no rows")

    colours = plt.rcParams["axes.prop_cycle"].by_key()["color"]
    fig, (left, right) = plt.subplots(1, 2, figsize=(15, 6.5))
    drawn = draw(left, rows, TIMES, colours)
    drawn += draw(right, rows, MEMORY, colours[len(TIMES):] + colours[:len(TIMES)])
    if not drawn:
        sys.exit(f"bench-plot.py: {source} has none of the time or memory figures")
    left.set_xscale("log")
    left.set_yscale("log")
    left.set_xlabel("routes")
    left.set_ylabel("seconds")
    left.set_title("Time")
    left.grid(True, which="both", alpha=0.3)
    left.legend(fontsize=7)

    right.axhline(400, color="red", linewidth=1, linestyle=":", label="aim: 400 B per prefix")
    right.set_xscale("log")
    right.set_yscale("log")
    right.set_xlabel("routes")
    right.set_ylabel("bytes per prefix (or per leaked route)")
    right.set_title("Memory")
    right.grid(True, which="both", alpha=0.3)
    right.legend(fontsize=7)

    run = doc.get("run", {})
    fig.suptitle(f"protorib-bench, {run.get('commit', 'unknown commit')}, {run.get('date', '')}, "
                 f"{run.get('cores', '?')} cores")
    fig.tight_layout()
    fig.savefig(target, dpi=110)
    print(f"bench-plot.py: wrote {target}")


if __name__ == "__main__":
    main(sys.argv)
