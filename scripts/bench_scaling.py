#!/usr/bin/env python3
"""Time and peak memory against n on the scaling families, beside z3 and cvc5.

    bench_scaling.py [--fpsolve PATH] [--baseline PATH] [--timeout S]
                     [--sizes 100,500,2000,20000,200000] [--families chain,sums,wide]
                     [--solvers fpsolve,z3,cvc5] [--reuse FILE.json]
                     [--out FILE.json] [--plot FILE.svg]

Each family of gen_scaling.py at each size goes to fpsolve (and to an older
fpsolve binary given as --baseline, labelled "before"), z3 and cvc5, one run
at a time, under /usr/bin/time for the wall-clock time and the peak resident
memory.  A solver that gives no answer within the limit (default 60 s) at
one size is not run at the larger ones of that family (reported as "-").
Prints a Markdown table (time in seconds, peak memory in MB, bytes per
variable for fpsolve) and writes every run to --out.  --reuse takes the runs
of the solvers not listed in --solvers from an earlier --out file (so the
peers, slow to time out, are run once and fpsolve after each change); --plot
draws time and peak memory against n, one panel per family, log-log, with a
timed-out run drawn as a cross at the limit (needs matplotlib).
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)


def command(solver, path, args):
    if solver == "fpsolve":
        return [args.fpsolve, path]
    if solver == "before":
        return [args.baseline, path]
    if solver == "z3":
        return ["z3", "-smt2", path]
    return ["cvc5", "--lang=smt2", path]


def run(cmd, limit):
    """(answer, seconds, peak KB); answer 'timeout' past the limit."""
    with tempfile.NamedTemporaryFile("r") as stats:
        full = ["/usr/bin/time", "-f", "%e %M", "-o", stats.name, "timeout", str(limit)] + cmd
        p = subprocess.run(full, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        fields = stats.read().split()[-2:]
    seconds, kb = float(fields[0]), int(fields[1])
    out = p.stdout.strip().split("\n")[0] if p.stdout.strip() else ""
    answer = out if out in ("sat", "unsat", "unknown") else ("timeout" if p.returncode == 124 else "error")
    return answer, seconds, kb


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--fpsolve", default=os.path.join(ROOT, "build", "tools", "fpsolve"))
    ap.add_argument("--baseline")
    ap.add_argument("--timeout", type=float, default=60.0)
    ap.add_argument("--sizes", default="100,500,2000,20000,200000")
    ap.add_argument("--families", default="chain,sums,wide")
    ap.add_argument("--solvers", default="fpsolve,before,z3,cvc5", help="those to run now ('' for none)")
    ap.add_argument("--reuse")
    ap.add_argument("--out", default=os.path.join(ROOT, "bench-results", "scaling.json"))
    ap.add_argument("--plot")
    args = ap.parse_args()
    solvers = ["fpsolve"] + (["before"] if args.baseline else []) + ["z3", "cvc5"]
    run_now = set(args.solvers.split(","))
    old = {}
    if args.reuse:
        with open(args.reuse) as f:
            for r in json.load(f)["rows"]:
                old[(r["family"], r["n"])] = r["runs"]
    sizes = [int(s) for s in args.sizes.split(",")]
    rows = []
    work = tempfile.mkdtemp(prefix="scaling-")
    for fam in args.families.split(","):
        gave_up = set()
        for n in sizes:
            path = os.path.join(work, "%s-%d.smt2" % (fam, n))
            if any(s in run_now for s in solvers):
                with open(path, "w") as f:
                    subprocess.run([sys.executable, os.path.join(HERE, "gen_scaling.py"), fam, str(n)], stdout=f,
                                   check=True)
            row = {"family": fam, "n": n, "runs": {}}
            for s in solvers:
                if s not in run_now:
                    if s in old.get((fam, n), {}):
                        row["runs"][s] = old[(fam, n)][s]
                    continue
                if s in gave_up:
                    continue
                answer, seconds, kb = run(command(s, path, args), args.timeout)
                row["runs"][s] = {"answer": answer, "seconds": seconds, "peak_kb": kb}
                if answer not in ("sat", "unsat"):
                    gave_up.add(s)
                print("%s %d %s: %s %.2f s %d KB" % (fam, n, s, answer, seconds, kb), file=sys.stderr, flush=True)
            if os.path.exists(path):
                os.remove(path)
            rows.append(row)
    os.makedirs(os.path.dirname(os.path.abspath(args.out)), exist_ok=True)
    with open(args.out, "w") as f:
        json.dump({"timeout": args.timeout, "rows": rows}, f, indent=1)
    head = "| family | n | " + " | ".join("%s time / memory" % s for s in solvers) + " | fpsolve bytes per variable |"
    print(head)
    print("|" + "---|" * (head.count("|") - 1))
    for r in rows:
        cells = []
        for s in solvers:
            x = r["runs"].get(s)
            if not x:
                cells.append("-")
            elif x["answer"] in ("sat", "unsat"):
                cells.append("%.2f s / %.0f MB" % (x["seconds"], x["peak_kb"] / 1024))
            else:
                cells.append("%s (%.0f s)" % (x["answer"], x["seconds"]))
        f = r["runs"].get("fpsolve")
        per = "%.0f" % (f["peak_kb"] * 1024 / r["n"]) if f and f["answer"] in ("sat", "unsat") else "-"
        print("| %s | %d | %s | %s |" % (r["family"], r["n"], " | ".join(cells), per))
    if args.plot:
        plot(rows, solvers, args.timeout, args.plot)


def plot(rows, solvers, limit, path):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    families = list(dict.fromkeys(r["family"] for r in rows))
    fig, axes = plt.subplots(2, len(families), figsize=(4.2 * len(families), 7), squeeze=False)
    for col, fam in enumerate(families):
        for row, (key, label) in enumerate((("seconds", "time (s)"), ("peak_kb", "peak memory (MB)"))):
            ax = axes[row][col]
            for s in solvers:
                done = [(r["n"], r["runs"][s]) for r in rows if r["family"] == fam and s in r["runs"]]
                ok = [(n, x[key] / (1024 if key == "peak_kb" else 1)) for n, x in done
                      if x["answer"] in ("sat", "unsat")]
                out = [n for n, x in done if x["answer"] not in ("sat", "unsat")]
                line = ax.plot([n for n, _ in ok], [v for _, v in ok], marker="o", label=s)[0]
                if out and key == "seconds":
                    ax.plot(out, [limit] * len(out), marker="x", linestyle="none", markersize=10,
                            color=line.get_color())
            if key == "seconds":
                ax.axhline(limit, color="grey", linewidth=0.5, linestyle=":")
                ax.set_title("%s (x: no answer in %.0f s)" % (fam, limit))
            ax.set_xscale("log")
            ax.set_yscale("log")
            ax.set_xlabel("n")
            ax.set_ylabel(label)
            ax.grid(True, which="both", linewidth=0.3)
            ax.legend(fontsize=8)
    fig.tight_layout()
    fig.savefig(path)


if __name__ == "__main__":
    main()
