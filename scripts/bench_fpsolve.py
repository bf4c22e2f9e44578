#!/usr/bin/env python3
"""fpsolve against z3 and cvc5 on folders of SMT-LIB files.

    bench_fpsolve.py [--fpsolve PATH] [--timeout SECONDS] [--out DIR]
                     [--solvers fpsolve,z3,cvc5] [--reuse JSON [--reuse-solvers z3,cvc5]] [DIR...]

Every .smt2 file under each DIR (read in place, never copied) goes to
fpsolve, z3 and cvc5, one solver and one problem at a time, each with the
same wall-clock limit (default 60 s).  Without DIR: the generated families
(written by gen_problems.py into bench-results/generated/, the same text on
every run) and, when present, ../shared/benchmarks/qf_fp and
../shared/benchmarks/fp_regress beside the repository.  A family is a file's
folder; in a folder with a SOURCES.tsv (fp_regress: one row per file with
its logic and stated answers), a family is a logic.

A file may hold several check-sat commands: a solver's answer is the
sequence of its answers, definite when every one is sat or unsat.  An
(error ...) line makes fpsolve's answer "error" (an input it does not read
counts against it, whatever follows); the peers' errors count only when
they give no answer at all (z3 refuses cvc5's options and goes on).

The expected answer is the stated one of SOURCES.tsv, else the file's
(set-info :status ...) when it says sat or unsat, else the majority of the solvers' answers; an answer against it is
wrong (a tie is reported as disputed, wrong for nobody).  Per family and in
total: problems, solved and wrong per solver, PAR-2 (seconds; a problem not
solved, or answered wrongly, costs twice the limit) and the median speed-up
of fpsolve over the faster peer on the problems all three solve.  Writes
DIR/fpsolve-bench.md (the table, also printed), DIR/fpsolve-bench.json (every
run) and DIR/fpsolve-cactus.svg (problems solved within a time, per solver),
with DIR docs/ by default.

--solvers picks the columns, in order, among fpsolve, fpsolve-no-ms (the
same binary with --no-model-search, for the table with and without the model
search from one run), z3 and cvc5; the speed-up column needs z3 and cvc5.

--reuse takes the answers and times of the solvers named by --reuse-solvers
(z3 and cvc5 by default) from an earlier run's fpsolve-bench.json with the
same limit, so that after a change to fpsolve only fpsolve runs again; a
problem that the earlier run lacks runs every solver.
"""
import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
SHARED = os.path.join(ROOT, "..", "shared", "benchmarks", "qf_fp")
REGRESS = os.path.join(ROOT, "..", "shared", "benchmarks", "fp_regress")
KNOWN = ["fpsolve", "fpsolve-no-ms", "z3", "cvc5"]
SOLVERS = ["fpsolve", "z3", "cvc5"]  # the columns of this run (--solvers)
GENERATED = [("chain", ["chain 50", "chain 100"]), ("chain-unsat", ["chain-unsat 50", "chain-unsat 100"]),
             ("many", ["many 50", "many 200"]), ("wide", ["wide 50", "wide 100"]),
             ("arith", ["arith %d" % s for s in range(1, 21)])]
STATUS = re.compile(r"\(set-info :status (sat|unsat)\)")


def generate(out):
    """The generated families as files, one folder per family."""
    dirs = []
    for family, args in GENERATED:
        d = os.path.join(out, family)
        os.makedirs(d, exist_ok=True)
        for a in args:
            text = subprocess.run([sys.executable, os.path.join(HERE, "gen_problems.py")] + a.split(),
                                  capture_output=True, text=True, check=True).stdout
            with open(os.path.join(d, a.replace(" ", "-") + ".smt2"), "w") as f:
                f.write(text)
        dirs.append(d)
    return dirs


def command(solver, fpsolve, path):
    if solver == "fpsolve":
        return [fpsolve, path]
    if solver == "fpsolve-no-ms":
        return [fpsolve, "--no-model-search", path]
    if solver == "z3":
        return ["z3", path]
    return ["cvc5", "--fp-exp", "--incremental", "--lang=smt2", path]


def run(cmd, limit, strict):
    start = time.perf_counter()
    try:
        p = subprocess.run(cmd, capture_output=True, text=True, timeout=limit)
    except subprocess.TimeoutExpired:
        return "timeout", limit
    seconds = time.perf_counter() - start
    lines = [l.strip() for l in p.stdout.split("\n")]
    answers = [l for l in lines if l in ("sat", "unsat", "unknown")]
    if not answers or (strict and any(l.startswith("(error") for l in lines)):
        return "error", seconds
    return " ".join(answers), seconds


def definite(answer):
    """Every answer of the sequence is sat or unsat."""
    return bool(answer) and all(a in ("sat", "unsat") for a in answer.split())


def sources_of(d):
    """file name -> (logic, stated answers) from a folder's SOURCES.tsv, if it
    has those columns (the QF_FP sample's lists only where each file is from)."""
    path = os.path.join(d, "SOURCES.tsv")
    if not os.path.isfile(path):
        return {}
    with open(path) as f:
        head = f.readline().rstrip("\n").split("\t")
        rows = [dict(zip(head, l.rstrip("\n").split("\t"))) for l in f if l.strip()]
    if not {"file", "logic", "stated"} <= set(head):
        return {}
    return {r["file"]: (r["logic"], r["stated"]) for r in rows}


def files_of(d):
    out = []
    for base, _, names in os.walk(d):
        out += [os.path.join(base, n) for n in sorted(names) if n.endswith(".smt2")]
    return sorted(out)


def expected_answer(path, answers, stated=None):
    if stated and definite(stated):
        return stated, "stated"
    with open(path, errors="replace") as f:
        m = STATUS.search(f.read())
    if m:
        return m.group(1), "status"
    known = [a for a in answers.values() if definite(a)]
    if not known:
        return None, "none"
    best = max(set(known), key=known.count)
    if 2 * known.count(best) <= len(known):
        return None, "disputed"
    return best, "majority"


def summarize(rows, limit):
    out = {"problems": len(rows)}
    for s in SOLVERS:
        solved = [r for r in rows if definite(r["answers"][s]) and r["expected"] in (None, r["answers"][s])]
        wrong = [r for r in rows if definite(r["answers"][s]) and r["expected"]
                 and r["answers"][s] != r["expected"]]
        par2 = sum(r["seconds"][s] if r in solved else 2 * limit for r in rows)
        out[s] = {"solved": len(solved), "wrong": len(wrong), "par2": par2}
    ratios = []
    for r in rows if {"z3", "cvc5"} <= set(SOLVERS) else []:
        ok = all(definite(r["answers"][s]) and r["expected"] in (None, r["answers"][s]) for s in SOLVERS)
        if ok:
            ratios.append(min(r["seconds"]["z3"], r["seconds"]["cvc5"]) / max(r["seconds"]["fpsolve"], 1e-3))
    out["all_solve"] = len(ratios)
    out["median_speedup"] = statistics.median(ratios) if ratios else None
    return out


def table(families, limit):
    lines = ["| family | problems | " + " | ".join("%s solved / wrong" % x for x in SOLVERS) +
             " | PAR-2 %s (s) | all solve | median speed-up vs faster peer |" % " / ".join(SOLVERS),
             "|---|---|" + "---|" * len(SOLVERS) + "---|---|---|"]
    for name, s in families:
        med = "-" if s["median_speedup"] is None else "%.2fx" % s["median_speedup"]
        lines.append("| %s | %d | %s | %s | %d | %s |" % (
            name, s["problems"], " | ".join("%d / %d" % (s[x]["solved"], s[x]["wrong"]) for x in SOLVERS),
            " / ".join("%.0f" % s[x]["par2"] for x in SOLVERS), s["all_solve"], med))
    return "\n".join(lines)


def cactus(rows, limit, path):
    """An SVG cactus plot: for each solver, the k-th fastest correct answer's
    time against k."""
    w, h, pad = 640, 400, 50
    n = max(1, len(rows))
    colors = {"fpsolve": "#d62728", "fpsolve-no-ms": "#ff7f0e", "z3": "#1f77b4", "cvc5": "#2ca02c"}
    parts = ['<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" font-family="sans-serif" '
             'font-size="12">' % (w, h),
             '<rect width="100%" height="100%" fill="white"/>',
             '<line x1="%d" y1="%d" x2="%d" y2="%d" stroke="black"/>' % (pad, h - pad, w - pad, h - pad),
             '<line x1="%d" y1="%d" x2="%d" y2="%d" stroke="black"/>' % (pad, pad, pad, h - pad),
             '<text x="%d" y="%d" text-anchor="middle">problems solved (of %d)</text>' % (w / 2, h - 10, n),
             '<text x="15" y="%d" transform="rotate(-90 15 %d)" text-anchor="middle">seconds (limit %g)'
             '</text>' % (h / 2, h / 2, limit)]
    for i in range(0, 5):
        y = h - pad - i * (h - 2 * pad) / 4
        parts.append('<text x="%d" y="%d" text-anchor="end">%.3g</text>' % (pad - 4, y + 4, limit * i / 4))
        x = pad + i * (w - 2 * pad) / 4
        parts.append('<text x="%d" y="%d" text-anchor="middle">%d</text>' % (x, h - pad + 16, n * i / 4))
    for k, s in enumerate(SOLVERS):
        times = sorted(r["seconds"][s] for r in rows
                       if definite(r["answers"][s]) and r["expected"] in (None, r["answers"][s]))
        pts = ["%.1f,%.1f" % (pad + (i + 1) * (w - 2 * pad) / n, h - pad - t / limit * (h - 2 * pad))
               for i, t in enumerate(times)]
        if pts:
            parts.append('<polyline fill="none" stroke="%s" stroke-width="2" points="%s"/>' %
                         (colors[s], " ".join(pts)))
        parts.append('<text x="%d" y="%d" fill="%s">%s (%d)</text>' % (pad + 10, pad + 15 * k, colors[s], s,
                                                                     len(times)))
    parts.append("</svg>")
    with open(path, "w") as f:
        f.write("\n".join(parts) + "\n")


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("dirs", nargs="*")
    ap.add_argument("--fpsolve", default=os.path.join(ROOT, "build", "tools", "fpsolve"))
    ap.add_argument("--timeout", type=float, default=60.0)
    ap.add_argument("--out", default=os.path.join(ROOT, "docs"))
    ap.add_argument("--reuse", help="fpsolve-bench.json of an earlier run with the same limit")
    ap.add_argument("--reuse-solvers", default="z3,cvc5")
    ap.add_argument("--solvers", default="fpsolve,z3,cvc5")
    args = ap.parse_args()
    SOLVERS[:] = args.solvers.split(",")
    if not set(SOLVERS) <= set(KNOWN) or "fpsolve" not in SOLVERS:
        sys.exit("bench_fpsolve: --solvers takes fpsolve and names among " + ", ".join(KNOWN))
    earlier, reused = {}, set()
    if args.reuse:
        with open(args.reuse) as f:
            old = json.load(f)
        if old["timeout"] != args.timeout:
            sys.exit("bench_fpsolve: %s ran with a %g s limit, not %g s" % (args.reuse, old["timeout"],
                                                                          args.timeout))
        earlier = {os.path.normpath(r["file"]): r for r in old["rows"]}
        reused = set(args.reuse_solvers.split(","))
        if not reused <= set(SOLVERS):
            sys.exit("bench_fpsolve: --reuse-solvers takes names among " + ", ".join(SOLVERS))
    dirs = args.dirs
    if not dirs:
        dirs = generate(os.path.join(ROOT, "bench-results", "generated"))
        if os.path.isdir(SHARED):
            dirs += [os.path.join(SHARED, d) for d in sorted(os.listdir(SHARED))
                     if os.path.isdir(os.path.join(SHARED, d))]
        if os.path.isdir(REGRESS):
            dirs.append(REGRESS)
    rows, families = [], []
    for d in dirs:
        fam = []
        sources = sources_of(d)
        for path in files_of(d):
            logic, stated = sources.get(os.path.basename(path), (None, None))
            answers, seconds = {}, {}
            before = earlier.get(os.path.normpath(os.path.relpath(path, ROOT)))
            for s in SOLVERS:  # one at a time: the machine is shared
                if before and s in reused:
                    answers[s], seconds[s] = before["answers"][s], before["seconds"][s]
                else:
                    answers[s], seconds[s] = run(command(s, args.fpsolve, path), args.timeout,
                                                 s == "fpsolve")
            expected, source = expected_answer(path, answers, stated)
            for s in SOLVERS:  # a solver that stopped early answered part of the script
                if expected and definite(answers[s]) and len(answers[s].split()) != len(expected.split()):
                    answers[s] = "error"
            family = os.path.basename(os.path.normpath(d))
            if logic:
                family += " " + ("(no logic)" if logic == "none" else logic)
            row = {"family": family, "file": os.path.relpath(path, ROOT),
                   "answers": answers, "seconds": seconds, "expected": expected, "source": source}
            fam.append(row)
            print("%-70s %s" % (row["file"][-70:], " ".join("%s:%s/%.2f" % (s, answers[s], seconds[s])
                                                            for s in SOLVERS)), file=sys.stderr, flush=True)
        rows += fam
        for name in sorted(set(r["family"] for r in fam)):
            families.append((name, summarize([r for r in fam if r["family"] == name], args.timeout)))
    families.append(("**all**", summarize(rows, args.timeout)))
    text = table(families, args.timeout)
    wrong = [r for r in rows for s in SOLVERS
             if definite(r["answers"][s]) and r["expected"] and r["answers"][s] != r["expected"]]
    disputed = [r["file"] for r in rows if r["source"] == "disputed"]
    notes = ["", "Limit %g s per solver and problem; one solver at a time." % args.timeout]
    if reused:
        notes.append("%s: answers and times taken from an earlier run with the same limit (%s)." %
                     (", ".join(sorted(reused)), os.path.basename(args.reuse)))
    for r in wrong:
        notes.append("- wrong: %s expected %s (%s), answers %s" % (r["file"], r["expected"], r["source"],
                                                                   r["answers"]))
    for f in disputed:
        notes.append("- disputed (no status, solvers split): %s" % f)
    os.makedirs(args.out, exist_ok=True)
    with open(os.path.join(args.out, "fpsolve-bench.md"), "w") as f:
        f.write(text + "\n" + "\n".join(notes) + "\n")
    with open(os.path.join(args.out, "fpsolve-bench.json"), "w") as f:
        json.dump({"timeout": args.timeout, "rows": rows}, f, indent=1)
    cactus(rows, args.timeout, os.path.join(args.out, "fpsolve-cactus.svg"))
    print(text + "\n" + "\n".join(notes))
    return 1 if any(definite(r["answers"]["fpsolve"]) and r["expected"]
                    and r["answers"]["fpsolve"] != r["expected"] for r in rows) else 0


if __name__ == "__main__":
    sys.exit(main())
