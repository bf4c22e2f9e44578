#!/usr/bin/env python3
"""Large SMT-LIB scripts of the shapes tools write, for timing fpsolve's reading.

    gen_large.py SHAPE BYTES [--check-sat]

writes a script of about BYTES bytes (suffixes k and M allowed: 5M) to
standard output.  Shapes:

    decls    100k-style declarations: one declare-const per line, one assertion
    and      one (and a1 ... an) of comparisons over 1000 constants
    let      a chain of nested lets, each binding a sum of the previous one
    deep     one right-nested term (fp.add RNE x (fp.add RNE x ...))
    defs     define-funs without parameters, each using the one before, and a
             two-parameter function applied in each
    asserts  one named assertion per line
    defun    a chain of one-parameter functions, each applying the one before
             once, and an assertion on the last applied to a constant
    defun2   the same chain with each body applying the one before twice
             (macro expansion would double the work at every link)

The script ends in (exit), so only reading and elaboration are timed, or in
(check-sat) with --check-sat.  The let and deep shapes nest as deep as their
size: run them with --max-nesting above the depth (the first line says it).
The same arguments always give the same text.
"""
import sys

F = "Float32"


def size_arg(text):
    scale = {"k": 1000, "M": 1000 * 1000}.get(text[-1:], 1)
    return int(text[:-1] if scale > 1 else text) * scale


def decls(size, out):
    n = 0
    while out.size < size:
        out.write("(declare-const x%d %s)\n" % (n, F))
        n += 1
    out.write("(assert (fp.leq x0 x%d))\n" % (n - 1))


def declare(out, n):
    for i in range(n):
        out.write("(declare-const x%d %s)\n" % (i, F))


def conjunction(size, out):
    declare(out, 1000)
    out.write("(assert (and")
    i = 0
    while out.size < size:
        out.write("\n (fp.leq x%d x%d)" % (i % 1000, (i * 7 + 1) % 1000))
        i += 1
    out.write("))\n")


def let_chain(size, out):
    declare(out, 2)
    # (let ((tN (fp.add RNE tN-1 x1))) ...): about 40 bytes and 2 levels a link
    depth = max(1, (size - out.size) // 40)
    out.write("; nesting %d\n(assert " % (depth + 2))
    out.write("(let ((t0 x0))")
    for i in range(1, depth):
        out.write("\n(let ((t%d (fp.add RNE t%d x1)))" % (i, i - 1))
    out.write(" (fp.leq t%d x1)" % (depth - 1))
    out.write(")" * depth + ")\n")


def deep_term(size, out):
    declare(out, 2)
    depth = max(1, (size - out.size) // 17)
    out.write("; nesting %d\n(assert (fp.leq " % (depth + 2))
    out.write("(fp.add RNE x1 " * depth + "x0" + ")" * depth + " x1))\n")


def definitions(size, out):
    declare(out, 1000)
    out.write("(define-fun step ((a %s) (b %s)) %s (fp.add RNE a (fp.mul RNE b b)))\n" % (F, F, F))
    out.write("(define-fun d0 () %s x0)\n" % F)
    i = 1
    while out.size < size:
        out.write("(define-fun d%d () %s (step d%d x%d))\n" % (i, F, i - 1, i % 1000))
        i += 1
    out.write("(assert (fp.leq x0 d%d))\n" % (i - 1))


def function_chain(size, out, uses):
    declare(out, 2)
    out.write("(define-fun f0 ((x %s)) %s (fp.add RNE x x1))\n" % (F, F))
    i = 1
    while out.size < size:
        call = "(f%d x)" % (i - 1)
        body = "(fp.mul RNE %s %s)" % (call, call) if uses == 2 else "(fp.add RNE %s x1)" % call
        out.write("(define-fun f%d ((x %s)) %s %s)\n" % (i, F, F, body))
        i += 1
    out.write("; functions %d\n(assert (fp.lt (f%d x0) x1))\n" % (i, i - 1))


def assertions(size, out):
    declare(out, 1000)
    i = 0
    while out.size < size:
        out.write("(assert (! (fp.lt x%d x%d) :named a%d))\n" % (i % 1000, (i * 7 + 1) % 1000, i))
        i += 1


SHAPES = {"decls": decls, "and": conjunction, "let": let_chain, "deep": deep_term,
          "defs": definitions, "asserts": assertions,
          "defun": lambda size, out: function_chain(size, out, 1),
          "defun2": lambda size, out: function_chain(size, out, 2)}


class Counted:
    def __init__(self, stream):
        self.stream = stream
        self.size = 0

    def write(self, text):
        self.size += len(text)
        self.stream.write(text)


def main():
    args = [a for a in sys.argv[1:] if a != "--check-sat"]
    if len(args) != 2 or args[0] not in SHAPES:
        sys.exit(__doc__)
    out = Counted(sys.stdout)
    out.write("(set-logic QF_FP)\n")
    SHAPES[args[0]](size_arg(args[1]), out)
    out.write("(check-sat)\n" if "--check-sat" in sys.argv else "(exit)\n")


if __name__ == "__main__":
    main()
