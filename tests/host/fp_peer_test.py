#!/usr/bin/env python3
"""This library's floating-point arithmetic against z3 and cvc5.

    fp_peer_test.py FP_PEER_CASES SEED COUNT

FP_PEER_CASES writes COUNT random cases (operation, format, SMT-LIB term and
this library's answer).  Both solvers evaluate every case, in batches of
definitions `(define-fun cN () Bool (= term answer))` read back with one
`get-value` per batch.  Every case where a solver says false is printed with
the solver's own value of the term.  A disagreement fails the run unless it
matches a documented bug of that solver (PEER_BUGS below) and the other
solver agrees with this library on that case; it is then printed and counted
but tolerated.  A missing solver fails the run: this test
never skips.
"""
import concurrent.futures
import re
import shutil
import subprocess
import sys

SOLVERS = {
    "z3": ["z3", "-in", "-T:300"],
    # cvc5 needs --fp-exp for formats other than Float16/32/64/128.
    "cvc5": ["cvc5", "--fp-exp", "--lang=smt2", "--produce-models"],
}
BATCH = 500

# Documented solver bugs: (solver, formats, what goes wrong).  A disagreement
# of that solver in one of those formats is recorded, not failed, when the
# other solver confirms this library's answer.  Add an entry only after
# checking cases by hand against the exact definition.
PEER_BUGS = [
    ("cvc5", {"3,5", "4,12"},
     "cvc5 1.0.3 (--fp-exp) in formats whose significand outgrows the exponent range: "
     "conversions, sqrt and roundToIntegral that overflow or land on subnormals give "
     "values out of the format, e.g. ((_ to_fp 4 12) RNE (fp #b1 #b11110 #b0101001011)) "
     "is a finite (4,12) value instead of -oo, and subnormal results that print "
     "like ours but are not = to them"),
]


def script(cases, first):
    lines = ["(set-option :produce-models true)", "(set-logic ALL)"]
    for i, c in enumerate(cases):
        lines.append("(define-fun c%d () Bool %s)" % (first + i, check_term(c)))
    lines.append("(check-sat)")
    lines.append("(get-value (%s))" % " ".join("c%d" % (first + i) for i in range(len(cases))))
    return "\n".join(lines) + "\n"


def check_term(case):
    op, fmt, term, expected = case
    if expected == "either-zero":
        eb, sb = fmt.split(",")
        return "(or (= %s (_ +zero %s %s)) (= %s (_ -zero %s %s)))" % (term, eb, sb, term, eb, sb)
    return "(= %s %s)" % (term, expected)


def run(solver, text):
    try:
        p = subprocess.run(SOLVERS[solver], input=text, capture_output=True, text=True, timeout=600)
        return p.stdout + p.stderr
    except subprocess.TimeoutExpired:
        return "(error timeout)"


def evaluate(solver, cases, first):
    """{case index: True/False} from one batch, or an error text."""
    out = run(solver, script(cases, first))
    answers = {int(i): v == "true" for i, v in re.findall(r"\(c(\d+) (true|false)\)", out)}
    if len(answers) != len(cases):
        return "batch from case %d: %s" % (first, out.strip()[:2000])
    return answers


def solver_value(solver, term):
    text = "(set-option :produce-models true)\n(set-logic ALL)\n(check-sat)\n(get-value (%s))\n" % term
    out = run(solver, text).strip().split("\n", 1)
    return out[1].strip() if len(out) > 1 else out[0]


def main(argv):
    if len(argv) != 4:
        print(__doc__)
        return 2
    missing = [s for s, cmd in SOLVERS.items() if shutil.which(cmd[0]) is None]
    if missing:
        print("FAIL: %s not found on PATH; this test needs both z3 and cvc5 "
              "(scripts/setup.sh installs them)" % " and ".join(missing))
        return 1
    gen = subprocess.run([argv[1], argv[2], argv[3]], capture_output=True, text=True, check=True)
    cases = [tuple(line.split("\t")) for line in gen.stdout.splitlines()]
    batches = [(s, cases[i:i + BATCH], i) for s in SOLVERS for i in range(0, len(cases), BATCH)]
    failures, tolerated = [], []
    agrees = {s: {} for s in SOLVERS}
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for solver, answers in pool.map(lambda b: (b[0], evaluate(*b)), batches):
            if isinstance(answers, str):
                failures.append("%s could not evaluate the %s" % (solver, answers))
            else:
                agrees[solver].update(answers)
    for solver in SOLVERS:
        for i, ok in sorted(agrees[solver].items()):
            if ok:
                continue
            op, fmt, term, expected = cases[i]
            report = "%s disagrees on case %d (%s, format %s):\n  term: %s\n  ours: %s\n  %s: %s" % (
                solver, i, op, fmt, term, expected, solver, solver_value(solver, term))
            confirmed = all(agrees[o].get(i) for o in SOLVERS if o != solver)
            bug = [why for s, fmts, why in PEER_BUGS if s == solver and fmt in fmts and confirmed]
            if bug:
                tolerated.append(report + "\n  documented %s bug: %s" % (solver, bug[0]))
            else:
                failures.append(report)
    for line in tolerated:
        print("TOLERATED " + line)
    for line in failures:
        print("FAIL " + line)
    print("%d cases, each evaluated by %s: %d disagreements, %d of them documented peer bugs"
          % (len(cases), " and ".join(SOLVERS), len(failures) + len(tolerated), len(tolerated)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
