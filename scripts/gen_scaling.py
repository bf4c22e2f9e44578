#!/usr/bin/env python3
"""Easy but long QF_FP problems, for how time and memory grow with n.

    gen_scaling.py FAMILY N

writes an SMT-LIB script with N Float32 variables to standard output.
Families (all satisfiable, none needs a decision to be answered):

    chain   x0 < x1 + 0 < ... : (fp.lt xi (fp.add RNE xi+1 +0)) for each i
    sums    si = si-1 + xi with every xi in [1, 2] and sN >= N
    wide    one (and ...) of N independent (fp.lt (fp.add RNE xi 1) yi)

The same arguments always give the same text.
"""
import sys

F = "Float32"
ZERO = "(_ +zero 8 24)"
ONE = "((_ to_fp 8 24) RNE 1.0)"
TWO = "((_ to_fp 8 24) RNE 2.0)"


def declare(out, name, n):
    for i in range(n):
        out.append("(declare-const %s%d %s)\n" % (name, i, F))


def chain(n, out):
    declare(out, "x", n)
    for i in range(n - 1):
        out.append("(assert (fp.lt x%d (fp.add RNE x%d %s)))\n" % (i, i + 1, ZERO))


def sums(n, out):
    declare(out, "x", n)
    for i in range(n):
        out.append("(assert (and (fp.leq %s x%d) (fp.leq x%d %s)))\n" % (ONE, i, i, TWO))
    out.append("(define-fun s0 () %s x0)\n" % F)
    for i in range(1, n):
        out.append("(define-fun s%d () %s (fp.add RNE s%d x%d))\n" % (i, F, i - 1, i))
    out.append("(assert (fp.geq s%d ((_ to_fp 8 24) RNE %d.0)))\n" % (n - 1, n))


def wide(n, out):
    declare(out, "x", n)
    declare(out, "y", n)
    out.append("(assert (and\n")
    for i in range(n):
        out.append(" (fp.lt (fp.add RNE x%d %s) y%d)\n" % (i, ONE, i))
    out.append("))\n")


def main():
    families = {"chain": chain, "sums": sums, "wide": wide}
    if len(sys.argv) != 3 or sys.argv[1] not in families:
        sys.exit(__doc__)
    out = ["(set-logic QF_FP)\n"]
    families[sys.argv[1]](int(sys.argv[2]), out)
    out.append("(check-sat)\n(exit)\n")
    sys.stdout.write("".join(out))


if __name__ == "__main__":
    main()
