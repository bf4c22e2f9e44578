#!/usr/bin/env python3
"""Times fpsolve against z3 and cvc5 on generated problem families.

    bench_fpsolve.py FPSOLVE [TIMEOUT_SECONDS]

Every problem comes from gen_problems.py (the same text on every run) and goes
to the three solvers in turn, each with the same wall-clock limit.  The answers
must agree; a solver that runs out of time is reported as '>limit', one
that refuses the problem as 'error'; when no peer answers, the ratio is a lower
bound.  Prints a Markdown table: seconds per solver and the
ratio of the faster peer's time to fpsolve's.
"""
import os
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
FAMILIES = [
    ("chain", "50"), ("chain", "100"), ("chain-unsat", "50"), ("chain-unsat", "100"),
    ("many", "50"), ("many", "200"), ("wide", "50"), ("wide", "100"),
]


def timed(cmd, text, limit):
    start = time.perf_counter()
    try:
        out = subprocess.run(cmd, input=text, capture_output=True, text=True, timeout=limit).stdout
    except subprocess.TimeoutExpired:
        return None, limit
    answer = out.split("\n", 1)[0].strip()
    return answer, time.perf_counter() - start


def main():
    fpsolve = sys.argv[1]
    limit = float(sys.argv[2]) if len(sys.argv) > 2 else 30.0
    solvers = [("fpsolve", [fpsolve, "-"]), ("z3", ["z3", "-in"]),
               ("cvc5", ["cvc5", "--fp-exp", "--lang=smt2"])]
    print("| family | variables | answer | fpsolve s | z3 s | cvc5 s | faster peer / fpsolve |")
    print("|---|---|---|---|---|---|---|")
    disagreements = 0
    for family, n in FAMILIES:
        text = subprocess.run([sys.executable, os.path.join(HERE, "gen_problems.py"), family, n],
                              capture_output=True, text=True, check=True).stdout
        results = [timed(cmd, text, limit) for _, cmd in solvers]
        answers = {a for a, _ in results if a in ("sat", "unsat")}
        if len(answers) > 1:
            disagreements += 1
        cells = [("%.3f" % t) if a in ("sat", "unsat") else (">%g" % limit) if a is None
                 else "error" for a, t in results]
        answered = [t for a, t in results[1:] if a in ("sat", "unsat")]
        peer = min(answered) if answered else limit
        bound = "" if answered else ">="
        ratio = "%s%.0fx" % (bound, peer / max(results[0][1], 1e-6))
        print("| %s | %s | %s | %s | %s | %s | %s |" % (
            family, n, "/".join(sorted(answers)) or "none", *cells, ratio), flush=True)
    if disagreements:
        print("\n%d problem(s) with disagreeing answers" % disagreements)
        sys.exit(1)


if __name__ == "__main__":
    main()
