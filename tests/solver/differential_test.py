#!/usr/bin/env python3
"""fpsolve against z3 and cvc5 on generated problems.

    differential_test.py FPSOLVE [COUNT] [FIRST_SEED] [JOBS] [ARITH_COUNT] [ARITH_TIMEOUT]
                         [MIXED_COUNT] [BOOLEAN_COUNT] [REALS_COUNT]

For each seed, the problem from gen_problems.py goes to fpsolve, z3 and cvc5;
all answers must be the same sat/unsat (a case where z3 or cvc5 gives up is
skipped).  COUNT problems of comparisons come from the 'random' family, where
fpsolve may never give up; ARITH_COUNT (default 0) more from the 'arith'
family (arithmetic and conversions over (3,4), (3,5), Float16, (4,12),
Float32 and Float64), where fpsolve runs with --timeout ARITH_TIMEOUT
(default 10 s) and may answer unknown on at most a tenth of them; MIXED_COUNT
(default 0) more, under the same rule, from the 'mixed' family (bit-vectors
and floats linked by every conversion); BOOLEAN_COUNT (default 0) more from
the 'boolean' family (the same arithmetic under disjunctions, xor, =>, = and
ite, several Boolean variables, formats from (2,3) to Float64) on the same
terms, with the peers limited to 3 s so that the family stays cheap in CI.  fpsolve
checks every model exactly before it answers sat (exit status 3 otherwise,
a failure here); every model is also fixed into the problem (one
(assert (= x value)) per constant) and z3 must find the result satisfiable.
REALS_COUNT (default 0) more, under the same rule, from the 'reals' family
(QF_FPLRA: reals and floats linked by fp.to_real and to_fp, linear real
arithmetic), with the peers limited to 5 s.  z3 gives up on most of these
(fp.to_real and to_fp of terms that are not constants), so cvc5 is often the
only peer that answers; z3 still confirms every model, which fixes every
value (Real values read exactly from decimals, numerals, (/ n d) and (- v)),
and settles a disagreement: a peer's sat whose own model z3 refutes, or a
peer's unsat against a model z3 confirms, is that peer's error (cvc5 1.0.3
rounds reals into (4,3) to zero), counted and printed, not failed.
Exit status 1 on any disagreement.
"""
import concurrent.futures
import fractions
import importlib.util
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
GEN = os.path.join(HERE, "..", "..", "scripts", "gen_problems.py")
spec = importlib.util.spec_from_file_location("gen_problems", GEN)
gen = importlib.util.module_from_spec(spec)
spec.loader.exec_module(gen)

MODEL_LINE = re.compile(
    r"^\s*\(define-fun (\S+) \(\) (Bool|Real|RoundingMode|\(_ FloatingPoint \d+ \d+\)|\(_ BitVec \d+\)) "
    r"(.*)\)\s*$")

REAL_TOKEN = re.compile(r"\(|\)|[^\s()]+")
REAL_ATOM = re.compile(r"^\d+(\.\d+)?$")


def real_value(text):
    """The rational a model gives a Real constant: a numeral or decimal, or
    (- v), (- v w), (/ v w) of such values; None for anything else."""
    tokens = REAL_TOKEN.findall(text)

    def parse(i):
        if tokens[i] != "(":
            if not REAL_ATOM.match(tokens[i]):
                raise ValueError(tokens[i])
            return fractions.Fraction(tokens[i]), i + 1
        op, args, i = tokens[i + 1], [], i + 2
        while tokens[i] != ")":
            v, i = parse(i)
            args.append(v)
        if op == "-" and len(args) in (1, 2):
            return (-args[0] if len(args) == 1 else args[0] - args[1]), i + 1
        if op == "/" and len(args) == 2:
            return args[0] / args[1], i + 1
        raise ValueError(op)

    try:
        v, end = parse(0)
        return v if end == len(tokens) else None
    except (ValueError, IndexError, ZeroDivisionError):
        return None


def model_fixes(out):
    """One (assert (= x value)) per constant of a sat answer's model, Real
    values rewritten as exact quotients of decimals; None if a Real value is
    not an exact rational."""
    fixes = []
    for line in out.split("\n")[2:]:
        m = MODEL_LINE.match(line)
        if not m:
            continue
        value = m.group(3)
        if m.group(2) == "Real":
            q = real_value(value)
            if q is None:
                return None
            value = "(/ %d.0 %d.0)" % (abs(q.numerator), q.denominator)
            value = "(- %s)" % value if q < 0 else value
        fixes.append("(assert (= %s %s))" % (m.group(1), value))
    return fixes


def z3_confirms(text, fixes):
    body = text.replace("(check-sat)\n", "")
    return first_line(run(["z3", "-T:10", "-in"], body + "\n".join(fixes) + "\n(check-sat)\n", 20))


def run(cmd, text, timeout):
    try:
        p = subprocess.run(cmd, input=text, capture_output=True, text=True, timeout=timeout)
        return p.stdout
    except subprocess.TimeoutExpired:
        return "timeout"


def first_line(out):
    return out.strip().split("\n")[0] if out.strip() else "(no output)"


def check(fpsolve, seed, arith_timeout=None, family="arith"):
    peer_limit = 3 if family == "boolean" else 10
    if arith_timeout is None:
        text = gen.Random(seed).text()
        out = run([fpsolve, "--check", "-"], text + "(get-model)\n", 60)
    else:
        text = {"mixed": gen.Mixed, "boolean": gen.Boolean}.get(family, gen.Arith)(seed).text()
        out = run([fpsolve, "--check", "--timeout", str(arith_timeout), "-"], text + "(get-model)\n",
                  arith_timeout + 60)
    mine = first_line(out)
    if arith_timeout is not None and mine == "unknown":
        return "fpsolve-unknown %d" % seed
    z3 = first_line(run(["z3", "-T:%d" % peer_limit, "-in"], text, 2 * peer_limit))
    cvc5 = first_line(run(["cvc5", "--fp-exp", "--tlimit=%d" % (1000 * peer_limit), "--lang=smt2"],
                          text, 2 * peer_limit))
    if mine not in ("sat", "unsat"):
        return "FAIL seed %d: fpsolve answered %r" % (seed, mine)
    others = [a for a in (z3, cvc5) if a in ("sat", "unsat")]
    known_bug = False
    if any(a != mine for a in others):
        # cvc5's documented bug in these formats (see tests/host/fp_peer_test.py,
        # PEER_BUGS): recorded, not failed, when z3 agrees with fpsolve.
        known_bug = (arith_timeout is not None and z3 == mine and
                     ("FloatingPoint 3 5)" in text or "FloatingPoint 4 12)" in text))
        if not known_bug:
            return "FAIL seed %d: fpsolve %s, z3 %s, cvc5 %s" % (seed, mine, z3, cvc5)
    if mine == "sat" and z3 != "sat":
        # z3 gave up on the problem (it does on some unspecified conversions):
        # it cannot be asked to confirm the model either.
        return "skip"
    if mine == "sat":
        fixes = []
        for line in out.split("\n")[2:]:
            m = MODEL_LINE.match(line)
            if m:
                fixes.append("(assert (= %s %s))" % (m.group(1), m.group(3)))
        body = text.replace("(check-sat)\n", "")
        confirm = first_line(run(["z3", "-T:10", "-in"], body + "\n".join(fixes) + "\n(check-sat)\n", 20))
        if confirm != "sat":
            return "FAIL seed %d: z3 says %s to fpsolve's model" % (seed, confirm)
    if known_bug:
        return "cvc5-known-bug"
    return "skip" if len(others) < 2 else mine


def check_reals(fpsolve, seed, timeout):
    """One problem of the 'reals' family: see the module's description."""
    text = gen.Reals(seed).text()
    out = run([fpsolve, "--check", "--timeout", str(timeout), "-"], text + "(get-model)\n", timeout + 60)
    mine = first_line(out)
    if mine == "unknown":
        return "fpsolve-unknown %d" % seed
    if mine not in ("sat", "unsat"):
        return "FAIL seed %d: fpsolve answered %r" % (seed, mine)
    peers = {"z3": ["z3", "-T:5", "-in"],
             "cvc5": ["cvc5", "--fp-exp", "--tlimit=5000", "--lang=smt2", "--produce-models"]}
    outs = {p: run(cmd, text + "(get-model)\n", 10) for p, cmd in peers.items()}
    said = {p: first_line(o) for p, o in outs.items()}
    if mine == "sat":
        fixes = model_fixes(out)
        if fixes is None:
            return "FAIL seed %d: fpsolve's model has a Real value that is not an exact rational" % seed
        confirm = z3_confirms(text, fixes)
        if confirm == "unsat" or (confirm != "sat" and said["z3"] == "sat"):
            return "FAIL seed %d: z3 says %s to fpsolve's model" % (seed, confirm)
        if confirm != "sat":
            return "skip"
        wrong = [p for p in peers if said[p] == "unsat"]
        if wrong:
            return "peer-refuted seed %d: %s said unsat to a model z3 confirms" % (seed, wrong[0])
    else:
        for p in peers:
            if said[p] != "sat":
                continue
            fixes = model_fixes(outs[p])
            if fixes is None or z3_confirms(text, fixes) != "unsat":
                return "FAIL seed %d: fpsolve unsat, %s sat (z3 %s, cvc5 %s)" % (
                    seed, p, said["z3"], said["cvc5"])
            return "peer-refuted seed %d: %s said sat with a model z3 refutes" % (seed, p)
    return mine if any(said[p] in ("sat", "unsat") for p in peers) else "skip"


def main(argv):
    fpsolve = argv[1]
    count = int(argv[2]) if len(argv) > 2 else 300
    first = int(argv[3]) if len(argv) > 3 else 1
    jobs = int(argv[4]) if len(argv) > 4 else 2
    arith = int(argv[5]) if len(argv) > 5 else 0
    arith_timeout = float(argv[6]) if len(argv) > 6 else 10.0
    mixed = int(argv[7]) if len(argv) > 7 else 0
    boolean = int(argv[8]) if len(argv) > 8 else 0
    reals = int(argv[9]) if len(argv) > 9 else 0
    failures = []
    for family, n, t in (("random", count, None), ("arith", arith, arith_timeout),
                         ("mixed", mixed, arith_timeout), ("boolean", boolean, arith_timeout),
                         ("reals", reals, arith_timeout)):
        if n == 0:
            continue
        tally = {}
        unknown = []

        def one(seed, family=family, t=t):
            if family == "reals":
                return check_reals(fpsolve, seed, t)
            return check(fpsolve, seed, t, family)

        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            for r in pool.map(one, range(first, first + n)):
                if r.startswith("FAIL"):
                    failures.append(r)
                    r = "fail"
                if r.startswith("peer-refuted"):
                    print(r)
                    r = "peer-refuted"
                if r.startswith("fpsolve-unknown"):
                    unknown.append(r.split()[1])
                    r = "fpsolve-unknown"
                tally[r] = tally.get(r, 0) + 1
        print("differential: %d %s problems from seed %d: %s" % (n, family, first, tally))
        if unknown:
            print("fpsolve answered unknown on seeds %s" % " ".join(unknown))
        if tally.get("fpsolve-unknown", 0) * 10 > n:
            failures.append("FAIL %s: fpsolve gave up on more than a tenth of the problems" % family)
    for f in failures:
        print(f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
