#!/usr/bin/env python3
"""Writes a protorib-agent script that loads many routes, for timing the agent at scale.

Every route has two alternatives of two vias each. The vias are drawn from a fixed pool (10,000
by default) of next hops that are published resolved in every VRF before the routes come, so each
route reaches the RIB as it is added; alternatives pair the pool's vias so that a bounded number
of via sets is shared by many routes, as on a real router. The script ends with `run` and
`show summary`.

    scripts/gen-routes.py > /tmp/routes.script                # 1,000,000 routes over 4 VRFs
    scripts/gen-routes.py --routes 100000 --vrfs 2 -o small.script
    build/default/agent/protorib-agent /tmp/routes.script
"""
import argparse
import sys


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--routes", type=int, default=1_000_000, help="routes in all (default 1,000,000)")
    p.add_argument("--vias", type=int, default=10_000, help="next hops in the pool (default 10,000; even)")
    p.add_argument("--vrfs", type=int, default=4, help="VRFs the routes are spread over (default 4)")
    p.add_argument("--protocol", default="staticConfig", help="routing protocol (default staticConfig)")
    p.add_argument("-o", "--output", help="file to write (default: standard output)")
    a = p.parse_args()
    if a.routes < 1 or a.vrfs < 1 or a.vias < 4 or a.vias % 2:
        p.error("need at least one route and one VRF, and an even pool of at least 4 vias")
    per_vrf = -(-a.routes // a.vrfs)
    if per_vrf > 1 << 24:
        p.error("at most 16,777,216 routes per VRF (one /24 each under 10.0.0.0/8 and up)")
    pairs = a.vias // 2
    out = open(a.output, "w") if a.output else sys.stdout
    w = out.write
    # The tables are sized for what comes: every VRF's routes, and one via set per pair per VRF.
    w(f"# {a.routes} routes, two alternatives of two vias each out of {a.vias}, over {a.vrfs} VRFs\n")
    w(f"protocol {a.protocol}\n")
    w(f"limits routes {per_vrf} viasets {pairs * a.vrfs + 16} vrfs {a.vrfs + 1}\n")
    w("start cold\n")
    vias = [f"100.{64 + (i >> 16)}.{(i >> 8) & 255}.{i & 255}" for i in range(a.vias)]
    for v in range(a.vrfs):
        name = f"vrf{v + 1}"
        w(f"vrf add {name} {v + 1}\n")
        w("".join(f"metric {name} ipv4 {via} resolved\n" for via in vias))
    done = 0
    for v in range(a.vrfs):
        name = f"vrf{v + 1}"
        count = min(per_vrf, a.routes - done)
        lines = []
        for j in range(count):
            prefix = f"{10 + (j >> 16)}.{(j >> 8) & 255}.{j & 255}.0/24"
            first = j % pairs
            second = (first + pairs // 2) % pairs
            lines.append(f"route add {name} {prefix} pref 1 via {vias[2 * first]} via {vias[2 * first + 1]}\n"
                         f"route add {name} {prefix} pref 2 via {vias[2 * second]} via {vias[2 * second + 1]}\n")
            if len(lines) == 10000:
                w("".join(lines))
                lines.clear()
        w("".join(lines))
        done += count
    w("run\nshow summary\n")
    if out is not sys.stdout:
        out.close()


if __name__ == "__main__":
    main()
