#!/usr/bin/env python3
"""Time and peak memory against n on the scaling families, beside z3 and cvc5.

    bench_scaling.py [--fpsolve PATH] [--baseline PATH] [--timeout S]
                     [--sizes 2000,20000,200000] [--families chain,sums,wide]
                     [--out FILE.json]

Each family of gen_scaling.py at each size goes to fpsolve (and to an older
fpsolve binary given as --baseline, labelled "before"), z3 and cvc5, one run
at a time, under /usr/bin/time for the wall-clock time and the peak resident
memory.  A solver that gives no answer within the limit (default 60 s) at
one size is not run at the larger ones of that family (reported as "-").
Prints a Markdown table (time in seconds, peak memory in MB, bytes per
variable for fpsolve) and writes every run to --out.
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
    ap.add_argument("--sizes", default="2000,20000,200000")
    ap.add_argument("--families", default="chain,sums,wide")
    ap.add_argument("--out", default=os.path.join(ROOT, "bench-results", "scaling.json"))
    args = ap.parse_args()
    solvers = ["fpsolve"] + (["before"] if args.baseline else []) + ["z3", "cvc5"]
    sizes = [int(s) for s in args.sizes.split(",")]
    rows = []
    work = tempfile.mkdtemp(prefix="scaling-")
    for fam in args.families.split(","):
        gave_up = set()
        for n in sizes:
            path = os.path.join(work, "%s-%d.smt2" % (fam, n))
            with open(path, "w") as f:
                subprocess.run([sys.executable, os.path.join(HERE, "gen_scaling.py"), fam, str(n)], stdout=f,
                               check=True)
            row = {"family": fam, "n": n, "runs": {}}
            for s in solvers:
                if s in gave_up:
                    continue
                answer, seconds, kb = run(command(s, path, args), args.timeout)
                row["runs"][s] = {"answer": answer, "seconds": seconds, "peak_kb": kb}
                if answer not in ("sat", "unsat"):
                    gave_up.add(s)
                print("%s %d %s: %s %.2f s %d KB" % (fam, n, s, answer, seconds, kb), file=sys.stderr, flush=True)
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
        f = r["runs"]["fpsolve"]
        per = "%.0f" % (f["peak_kb"] * 1024 / r["n"]) if f["answer"] in ("sat", "unsat") else "-"
        print("| %s | %d | %s | %s |" % (r["family"], r["n"], " | ".join(cells), per))


if __name__ == "__main__":
    main()
