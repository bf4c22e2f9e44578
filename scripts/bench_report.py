#!/usr/bin/env python3
"""Turns Google Benchmark JSON from bench/qorv_bench into a ratio table and a plot.

    bench_report.py results.json ratios.md plot.png

Benchmark names read "<area>.<operation>/<implementation>/<size>[/<arg>]".
For every (operation, size) the time per item of each peer is divided by
ours ("qorv"): a ratio above 1 means we are faster.  The goals of the
benchmark issue are checked at the end of the table.
"""
import json
import sys
from collections import defaultdict

AREAS = [
    ("hash", "Hash containers (ns per key)"),
    ("pool", "Block pool (ns per allocation + release)"),
    ("rational", "Rationals (ns per comparison)"),
    ("packed", "Packed order (ns per comparison)"),
    ("heur", "Heuristics (ns per term looked at / per bound)"),
    ("arith", "Floating-point arithmetic (ns per operation)"),
]

# (description, operation, size or None for every size, peer, minimum ratio)
GOALS = [
    ("present lookups 1e5 >= boost", "hash.lookup_hit.{k}", 100000, "boost_unordered_map", 1.0),
    ("present lookups 1e5 >= 1.25x std", "hash.lookup_hit.{k}", 100000, "std_unordered_map", 1.25),
    ("present lookups 1e6 within 1.8x of absl node", "hash.lookup_hit.{k}", 1000000,
     "absl_node_hash_map", 1 / 1.8),
    ("absent lookups >= boost", "hash.lookup_miss.{k}", None, "boost_unordered_map", 1.0),
    ("insertion with growth >= 1.4x std", "hash.insert.{k}", None, "std_unordered_map", 1.4),
    ("clear and refill >= 2x std", "hash.refill.{k}", None, "std_unordered_map", 2.0),
    ("bucket index <= half of % (64-bit hashes)", "hash.bucket_index.wide", None, "hw_division", 2.0),
    ("pool pair >= 2x malloc", "pool.pair", None, "malloc", 2.0),
    ("pool with 1e6 live >= 3x malloc", "pool.burst", 1000000, "malloc", 3.0),
    ("pool >= 2x pmr", "pool.pair", None, "pmr_unsync_pool", 2.0),
    ("pool bursts >= 2x pmr", "pool.burst", None, "pmr_unsync_pool", 2.0),
    ("small rationals < >= 2x mpq_cmp", "rational.lt.small", None, "gmp_mpq", 2.0),
    ("big rationals < within 1.1x of mpq_cmp", "rational.lt.big", None, "gmp_mpq", 1 / 1.1),
    ("Float32 order within 1.2x of key transform", "packed.lt.float32", None, "key_transform", 1 / 1.2),
    ("Float64 order within 1.2x of key transform", "packed.lt.float64", None, "key_transform", 1 / 1.2),
    ("decide() within 2x of its floor per term", "heur.decide", None, "floor", 0.5),
    ("search candidates within 3x of the floor per bound", "heur.search", None, "floor", 1 / 3),
    ("Float64 RNE add within 3x of hardware double", "arith.add.float64", None, "hw_double", 1 / 3),
    ("Float64 RNE mul within 3x of hardware double", "arith.mul.float64", None, "hw_double", 1 / 3),
    ("Float64 RNE div within 3x of hardware double", "arith.div.float64", None, "hw_double", 1 / 3),
    ("Float64 RNE sqrt within 3x of hardware double", "arith.sqrt.float64", None, "hw_double", 1 / 3),
    ("Float64 RNE fma within 3x of hardware double", "arith.fma.float64", None, "hw_double", 1 / 3),
    ("any-format add within 1.5x of bare MPFR", "arith.add.{f}", None, "mpfr", 1 / 1.5),
    ("any-format mul within 1.5x of bare MPFR", "arith.mul.{f}", None, "mpfr", 1 / 1.5),
    ("any-format div within 1.5x of bare MPFR", "arith.div.{f}", None, "mpfr", 1 / 1.5),
    ("any-format sqrt within 1.5x of bare MPFR", "arith.sqrt.{f}", None, "mpfr", 1 / 1.5),
    ("any-format fma within 1.5x of bare MPFR", "arith.fma.{f}", None, "mpfr", 1 / 1.5),
]


# The formats of the any-format arithmetic benchmarks (bench/fp_arith_bench.cpp).
ARITH_FORMATS = ["float16", "float64_rtz", "fp_10_47", "float128"]


def load(path):
    with open(path) as f:
        data = json.load(f)
    times = {}  # (op, impl, size) -> ns per item
    allocs = {}
    for b in data["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration":
            continue
        parts = b["name"].split("/")
        op, impl, size = parts[0], parts[1], int(parts[2])
        ips = b.get("items_per_second")
        if not ips:
            continue
        times[(op, impl, size)] = 1e9 / ips
        if "allocs_per_call" in b:
            allocs[(op, impl, size)] = b["allocs_per_call"]
    return data.get("context", {}), times, allocs


def fmt_size(n):
    return f"1e{len(str(n)) - 1}" if str(n).startswith("1") and set(str(n)[1:]) <= {"0"} else str(n)


def ratio_tables(times, allocs):
    out = []
    ops = defaultdict(set)
    peers = defaultdict(list)
    for (op, impl, size) in times:
        area = op.split(".")[0]
        ops[area].add((op, size))
        if impl != "qorv" and impl not in peers[area]:
            peers[area].append(impl)
    for area, title in AREAS:
        if area not in ops:
            continue
        cols = peers[area]
        out.append(f"### {title}\n")
        out.append("Ratio = peer time / our time (above 1: we are faster).\n")
        head = "| operation | size | qorv ns | " + " | ".join(cols) + " |"
        out.append(head)
        out.append("|" + "---|" * (3 + len(cols)))
        for op, size in sorted(ops[area]):
            ours = times.get((op, "qorv", size))
            if ours is None:
                continue
            cells = []
            for p in cols:
                t = times.get((op, p, size))
                cells.append(f"{t / ours:.2f}" if t else "")
            note = ""
            if (op, "qorv", size) in allocs:
                note = f" ({allocs[(op, 'qorv', size)]:.3g} allocs/call)"
            out.append(f"| {op}{note} | {fmt_size(size)} | {ours:.2f} | " + " | ".join(cells) + " |")
        out.append("")
    return out


def goal_rows(times, allocs):
    rows = ["### Goals\n", "| goal | case | ratio | target | |", "|---|---|---|---|---|"]
    for desc, op_pat, size, peer, need in GOALS:
        keys = ["lit", "term"] if "{k}" in op_pat else ARITH_FORMATS if "{f}" in op_pat else [None]
        for k in keys:
            op = op_pat.format(k=k, f=k) if k else op_pat
            for (o, impl, s), ours in sorted(times.items()):
                if o != op or impl != "qorv" or (size is not None and s != size):
                    continue
                t = times.get((op, peer, s))
                if t is None:
                    continue
                r = t / ours
                ok = "met" if r >= need else "**missed**"
                rows.append(f"| {desc} | {op} {fmt_size(s)} | {r:.2f} | {need:.2f} | {ok} |")
    for (o, impl, s), a in sorted(allocs.items()):
        narrow_arith = o.startswith("arith.") and not o.endswith(".float128")
        if (o.startswith("heur.") or narrow_arith) and impl == "qorv":
            ok = "met" if a == 0 else "**missed**"
            rows.append(f"| no allocation once grown | {o} {fmt_size(s)} | {a:.3g} allocs/call | 0 | {ok} |")
    rows.append("")
    return rows


def plot(times, path):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    panels = [f"hash.{op}.{k}" for k in ("lit", "term")
              for op in ("insert", "lookup_hit", "lookup_miss", "refill")]
    panels += ["heur.decide", "heur.search", "pool.burst"]
    fig, axes = plt.subplots(3, 4, figsize=(18, 12))
    for ax, op in zip(axes.flat, panels):
        impls = sorted({i for (o, i, _) in times if o == op}, key=lambda i: (i != "qorv", i))
        for impl in impls:
            pts = sorted((s, t) for (o, i, s), t in times.items() if o == op and i == impl)
            if not pts:
                continue
            xs, ys = zip(*pts)
            ax.plot(xs, ys, marker="o", linewidth=2.5 if impl == "qorv" else 1.2, label=impl)
        ax.set_xscale("log")
        ax.set_yscale("log")
        ax.set_title(op)
        ax.set_xlabel("entries / terms / bounds / blocks")
        ax.set_ylabel("ns per operation")
        ax.grid(True, which="both", alpha=0.3)
        ax.legend(fontsize=7)
    for ax in list(axes.flat)[len(panels):]:
        ax.axis("off")
    fig.suptitle("qorv-fp against its peers: time per operation against size (lower is better)")
    fig.tight_layout()
    fig.savefig(path, dpi=90)


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    context, times, allocs = load(sys.argv[1])
    lines = ["# Benchmark ratios\n"]
    cpu = context.get("num_cpus", "?")
    mhz = context.get("mhz_per_cpu", "?")
    lines.append(f"Run of {context.get('date', '?')} on {cpu} CPUs at {mhz} MHz, "
                 f"benchmark library built as {context.get('library_build_type', '?')}; our code in Release.\n")
    lines += goal_rows(times, allocs)
    lines += ratio_tables(times, allocs)
    with open(sys.argv[2], "w") as f:
        f.write("\n".join(lines) + "\n")
    plot(times, sys.argv[3])


if __name__ == "__main__":
    main()
