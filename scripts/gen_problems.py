#!/usr/bin/env python3
"""Random SMT-LIB problems over floating-point comparisons, for fpsolve.

    gen_problems.py random SEED            one small random problem (mixed Boolean
                                           structure, several formats, special values)
    gen_problems.py chain N [FORMAT]       a strict ordering chain of N variables with
                                           bounds and a twist (sat)
    gen_problems.py chain-unsat N [FORMAT] the same chain closed into a cycle (unsat)
    gen_problems.py many N [SEED]          N variables in pairwise comparisons, ranges
                                           and classifications (satisfiable by design)
    gen_problems.py wide N [SEED]          the 'many' family in Float128 and (15, 200)
    gen_problems.py arith SEED             one small random problem with arithmetic and
                                           conversions over (3,4), (3,5), Float16, (4,12),
                                           Float32 or Float64 (let, define-fun, ite,
                                           rounding-mode variables)
    gen_problems.py mixed SEED             one small random problem mixing bit-vectors
                                           (widths 1 to 16, 32, 64) and floats ((3,5),
                                           Float16, Float32, Float64): every bit-vector
                                           operator, extract/extend/rotate, conversions
                                           both ways (fp.to_ubv/fp.to_sbv out of range
                                           included), fp over bit-vector terms
    gen_problems.py boolean SEED           arithmetic under rich Boolean structure: or,
                                           xor, =>, = and ite over Booleans and floats,
                                           several Boolean variables, nesting depth up to 4,
                                           formats from (2,3) to Float64
    gen_problems.py reals SEED             reals and floats linked by fp.to_real and to_fp
                                           (every rounding mode, variables too): linear
                                           real terms in every literal spelling, strict
                                           and non-strict comparisons, sums that only
                                           linear reasoning decides; formats (2,3) to
                                           Float64 (QF_FPLRA)

Every problem ends in (check-sat) and is written to standard
output.  The same arguments always give the same text.
"""
import random
import sys

FORMATS = [(2, 3), (3, 5), (5, 11), (8, 24), (11, 53), (15, 113)]
NAMED = {(5, 11): "Float16", (8, 24): "Float32", (11, 53): "Float64", (15, 113): "Float128"}
RMS = ["RNE", "RNA", "RTP", "RTN", "RTZ", "roundNearestTiesToEven", "roundTowardZero"]


def sort_text(fmt, rng=None):
    if fmt in NAMED and (rng is None or rng.random() < 0.5):
        return NAMED[fmt]
    return "(_ FloatingPoint %d %d)" % fmt


def bits_literal(rng, fmt, bits):
    eb, sb = fmt
    s = format(bits, "0%db" % (eb + sb))
    kind = rng.random()
    if kind < 0.5:
        return "(fp #b%s #b%s #b%s)" % (s[0], s[1:1 + eb], s[1 + eb:])
    if kind < 0.75 or (eb + sb) % 4:
        return "((_ to_fp %d %d) #b%s)" % (eb, sb, s)
    return "((_ to_fp %d %d) #x%s)" % (eb, sb, format(bits, "0%dx" % ((eb + sb) // 4)))


def special(rng, fmt):
    eb, sb = fmt
    sign = rng.randrange(2) << (eb + sb - 1)
    top = ((1 << eb) - 1) << (sb - 1)
    pick = rng.randrange(9)
    if pick == 0:
        return "(_ %s %d %d)" % (rng.choice(["+oo", "-oo", "NaN", "+zero", "-zero"]), eb, sb)
    if pick == 1:  # NaN with some payload
        return bits_literal(rng, fmt, sign | top | rng.randrange(1, 1 << (sb - 1)))
    if pick == 2:  # subnormal
        return bits_literal(rng, fmt, sign | rng.randrange(1, 1 << (sb - 1)))
    if pick == 3:  # zero or infinity
        return bits_literal(rng, fmt, sign | rng.choice([0, top]))
    if pick <= 5:  # decimal rounded into the format
        num = rng.choice(["0.0", "1.0", "0.1", "2.5", "1.5", "100.25", "0.001", "7.0", "65504.0", "3.0", "1e"])
        if num == "1e":
            num = "(/ 1.0 %d.0)" % rng.randrange(2, 12)
        if rng.random() < 0.4:
            num = "(- %s)" % num
        return "((_ to_fp %d %d) %s %s)" % (eb, sb, rng.choice(RMS), num)
    # a random finite value
    exp = rng.randrange(0, (1 << eb) - 1)
    return bits_literal(rng, fmt, sign | (exp << (sb - 1)) | rng.randrange(0, 1 << (sb - 1)))


class Random:
    def __init__(self, seed):
        self.rng = random.Random(seed)
        r = self.rng
        self.formats = r.sample(FORMATS[:5] + [(15, 113)] * (r.random() < 0.15), r.randrange(1, 3))
        self.fvars = {f: [] for f in self.formats}
        self.bvars = []
        self.lines = ["(set-logic ALL)"]
        for i in range(r.randrange(2, 6)):
            f = r.choice(self.formats)
            name = "x%d" % i
            self.fvars[f].append(name)
            self.lines.append("(declare-const %s %s)" % (name, sort_text(f, r)))
        for i in range(r.randrange(0, 3)):
            self.bvars.append("b%d" % i)
            self.lines.append("(declare-fun b%d () Bool)" % i)
        self.formats = [f for f in self.formats if self.fvars[f]]

    def term(self, f, depth=0):
        r = self.rng
        p = r.random()
        if p < 0.25:
            return special(r, f)
        t = r.choice(self.fvars[f])
        if p < 0.4:
            t = "(fp.neg %s)" % t
        elif p < 0.5:
            t = "(fp.abs %s)" % t
        elif p < 0.53:
            t = "(fp.neg (fp.abs %s))" % t
        return t

    def atom(self):
        r = self.rng
        if self.bvars and r.random() < 0.15:
            return r.choice(self.bvars)
        f = r.choice(self.formats)
        p = r.random()
        if p < 0.55:
            op = r.choice(["fp.leq", "fp.lt", "fp.geq", "fp.gt", "fp.eq", "=", "fp.lt", "fp.leq"])
            n = 2 if r.random() < 0.8 else 3
            return "(%s %s)" % (op, " ".join(self.term(f) for _ in range(n)))
        if p < 0.65:
            return "(distinct %s %s)" % (self.term(f), self.term(f))
        pred = r.choice(["fp.isNaN", "fp.isInfinite", "fp.isZero", "fp.isNormal", "fp.isSubnormal",
                         "fp.isNegative", "fp.isPositive"])
        return "(%s %s)" % (pred, self.term(f))

    def formula(self, depth):
        r = self.rng
        if depth == 0 or r.random() < 0.35:
            a = self.atom()
            return "(not %s)" % a if r.random() < 0.25 else a
        op = r.choice(["and", "or", "or", "not", "=>", "xor", "ite", "="])
        if op == "not":
            return "(not %s)" % self.formula(depth - 1)
        if op == "ite":
            return "(ite %s %s %s)" % tuple(self.formula(depth - 1) for _ in range(3))
        n = 2 if op in ("=>", "xor", "=") or r.random() < 0.6 else 3
        return "(%s %s)" % (op, " ".join(self.formula(depth - 1) for _ in range(n)))

    def text(self):
        r = self.rng
        for _ in range(r.randrange(1, 6)):
            self.lines.append("(assert %s)" % self.formula(r.randrange(0, 3)))
        self.lines += ["(check-sat)"]
        return "\n".join(self.lines) + "\n"


ARITH_FORMATS = [(3, 4), (3, 5), (5, 11), (4, 12), (8, 24), (11, 53)]


class Arith:
    """A few variables of one or two formats, terms built from every
    operation, comparisons of them under a little Boolean structure."""

    def __init__(self, seed):
        self.rng = r = random.Random(seed)
        small = r.random() < 0.6
        pool = ARITH_FORMATS[:2] if small else ARITH_FORMATS
        self.formats = r.sample(pool, 1 if r.random() < 0.7 else 2)
        self.lines = ["(set-logic ALL)"]  # real literals in to_fp need ALL for cvc5
        self.fvars = {f: [] for f in self.formats}
        for i in range(r.randrange(1, 4)):
            f = self.formats[i % len(self.formats)]
            self.fvars[f].append("x%d" % i)
            self.lines.append("(declare-fun x%d () %s)" % (i, sort_text(f, r)))
        self.rms = []
        if r.random() < 0.3:
            self.rms.append("rm0")
            self.lines.append("(declare-fun rm0 () RoundingMode)")
        self.macros = {}
        if r.random() < 0.3:
            f = self.formats[0]
            s = sort_text(f)
            self.lines.append("(define-fun mac0 ((a %s) (b %s)) %s (fp.add %s (fp.mul %s a b) a))"
                              % (s, s, s, self.rm(), self.rm()))
            self.macros[f] = "mac0"

    def rm(self):
        r = self.rng
        if self.rms and r.random() < 0.5:
            return r.choice(self.rms)
        return r.choice(RMS[:5])

    def leaf(self, f):
        r = self.rng
        if r.random() < 0.3 or not self.fvars[f]:
            return special(r, f)
        return r.choice(self.fvars[f])

    def term(self, f, depth):
        r = self.rng
        if depth == 0 or r.random() < 0.3:
            return self.leaf(f)
        d = depth - 1
        k = r.randrange(16)
        if k < 4:
            op = ["fp.add", "fp.sub", "fp.mul", "fp.div"][k]
            return "(%s %s %s %s)" % (op, self.rm(), self.term(f, d), self.term(f, d))
        if k == 4:
            return "(fp.fma %s %s %s %s)" % (self.rm(), self.term(f, d), self.term(f, d), self.term(f, d))
        if k == 5:
            return "(fp.sqrt %s %s)" % (self.rm(), self.term(f, d))
        if k == 6:
            return "(fp.rem %s %s)" % (self.term(f, d), self.term(f, d))
        if k == 7:
            return "(fp.roundToIntegral %s %s)" % (self.rm(), self.term(f, d))
        if k == 8:
            return "(%s %s %s)" % (r.choice(["fp.min", "fp.max"]), self.term(f, d), self.term(f, d))
        if k == 9:
            return "(%s %s)" % (r.choice(["fp.neg", "fp.abs"]), self.term(f, d))
        if k == 10:
            other = r.choice(self.formats)
            return "((_ to_fp %d %d) %s %s)" % (f[0], f[1], self.rm(), self.term(other, d))
        if k == 11:
            return "(ite %s %s %s)" % (self.atom(0), self.term(f, d), self.term(f, d))
        if k == 12 and f in self.macros:
            return "(%s %s %s)" % (self.macros[f], self.term(f, d), self.term(f, d))
        if k == 13:
            return "(let ((t%d %s)) (fp.mul %s t%d t%d))" % (depth, self.term(f, d), self.rm(), depth, depth)
        if k == 14:
            bits = r.randrange(0, 1 << 6)
            kind = "to_fp_unsigned" if r.random() < 0.5 else "to_fp"
            return "((_ %s %d %d) %s #b%s)" % (kind, f[0], f[1], r.choice(RMS[:5]), format(bits, "06b"))
        return self.leaf(f)

    def atom(self, depth):
        r = self.rng
        f = r.choice(self.formats)
        p = r.random()
        if p < 0.7:
            op = r.choice(["fp.leq", "fp.lt", "fp.geq", "fp.gt", "fp.eq", "=", "distinct"])
            return "(%s %s %s)" % (op, self.term(f, depth), self.term(f, depth))
        if p < 0.8 and self.rms:
            return "(= %s %s)" % (self.rms[0], r.choice(RMS[:5]))
        pred = r.choice(["fp.isNaN", "fp.isInfinite", "fp.isZero", "fp.isNormal", "fp.isSubnormal",
                         "fp.isNegative", "fp.isPositive"])
        return "(%s %s)" % (pred, self.term(f, depth))

    def formula(self):
        r = self.rng
        a = self.atom(r.randrange(1, 3))
        p = r.random()
        if p < 0.2:
            return "(not %s)" % a
        if p < 0.4:
            return "(or %s %s)" % (a, self.atom(1))
        return a

    def text(self):
        r = self.rng
        for _ in range(r.randrange(1, 4)):
            self.lines.append("(assert %s)" % self.formula())
        self.lines += ["(check-sat)"]
        return "\n".join(self.lines) + "\n"


BV_WIDTHS = list(range(1, 17)) + [32, 64]
MIXED_FORMATS = [(3, 5), (5, 11), (8, 24), (11, 53)]
BV_BINARY = ["bvand", "bvor", "bvxor", "bvnand", "bvnor", "bvxnor", "bvadd", "bvsub", "bvmul",
             "bvudiv", "bvurem", "bvsdiv", "bvsrem", "bvsmod", "bvshl", "bvlshr", "bvashr"]
BV_COMPARE = ["bvult", "bvule", "bvugt", "bvuge", "bvslt", "bvsle", "bvsgt", "bvsge", "=", "distinct"]


class Mixed:
    """Bit-vectors of one width and floats of one format, linked by every
    conversion, under comparisons of both theories."""

    def __init__(self, seed):
        self.rng = r = random.Random(seed)
        self.w = r.choice(BV_WIDTHS[:16]) if r.random() < 0.75 else r.choice(BV_WIDTHS)
        self.f = r.choice(MIXED_FORMATS[:2]) if r.random() < 0.6 else r.choice(MIXED_FORMATS)
        self.lines = ["(set-logic ALL)"]  # real literals in to_fp need ALL for cvc5
        self.bvars = ["b%d" % i for i in range(r.randrange(1, 3))]
        self.fvars = ["x%d" % i for i in range(r.randrange(1, 3))]
        for v in self.bvars:
            self.lines.append("(declare-fun %s () (_ BitVec %d))" % (v, self.w))
        for v in self.fvars:
            self.lines.append("(declare-fun %s () %s)" % (v, sort_text(self.f, r)))
        self.rms = ["rm0"] if r.random() < 0.3 else []
        if self.rms:
            self.lines.append("(declare-fun rm0 () RoundingMode)")

    def rm(self):
        r = self.rng
        return r.choice(self.rms) if self.rms and r.random() < 0.5 else r.choice(RMS[:5])

    def bv_literal(self, w):
        r = self.rng
        v = r.choice([0, 1, (1 << w) - 1, 1 << (w - 1), r.randrange(1 << w)])
        k = r.random()
        if k < 0.4:
            return "#b" + format(v, "0%db" % w)
        if k < 0.6 and w % 4 == 0:
            return "#x" + format(v, "0%dx" % (w // 4))
        return "(_ bv%d %d)" % (v, w)

    def resize(self, t, frm, to):
        """t of width frm as a term of width to (low bits or zero/sign extension)."""
        if frm == to:
            return t
        if frm > to:
            lo = self.rng.randrange(frm - to + 1)
            return "((_ extract %d %d) %s)" % (lo + to - 1, lo, t)
        return "((_ %s %d) %s)" % (self.rng.choice(["zero_extend", "sign_extend"]), to - frm, t)

    def bv(self, d):
        r = self.rng
        w = self.w
        if d == 0 or r.random() < 0.25:
            return r.choice(self.bvars) if r.random() < 0.7 else self.bv_literal(w)
        k = r.randrange(10)
        if k < 4:
            return "(%s %s %s)" % (r.choice(BV_BINARY), self.bv(d - 1), self.bv(d - 1))
        if k == 4:
            return "(%s %s)" % (r.choice(["bvnot", "bvneg"]), self.bv(d - 1))
        if k == 5:
            return "(ite %s %s %s)" % (self.atom(0), self.bv(d - 1), self.bv(d - 1))
        if k == 6:  # a window of a concatenation
            return self.resize("(concat %s %s)" % (self.bv(d - 1), self.bv(d - 1)), 2 * w, w)
        if k == 7:
            return "((_ %s %d) %s)" % (r.choice(["rotate_left", "rotate_right"]), r.randrange(2 * w),
                                       self.bv(d - 1))
        if k == 8 and w == 1:
            return "(bvcomp %s %s)" % (self.bv(d - 1), self.bv(d - 1))
        return "((_ %s %d) %s %s)" % (r.choice(["fp.to_ubv", "fp.to_sbv"]), w, self.rm(), self.fp(d - 1))

    def fp(self, d):
        r = self.rng
        eb, sb = self.f
        if d == 0 or r.random() < 0.25:
            return r.choice(self.fvars) if r.random() < 0.7 else special(r, self.f)
        k = r.randrange(6)
        if k == 0:
            return "((_ %s %d %d) %s %s)" % (r.choice(["to_fp", "to_fp_unsigned"]), eb, sb, self.rm(),
                                            self.bv(d - 1))
        if k == 1:
            return "((_ to_fp %d %d) %s)" % (eb, sb, self.resize(self.bv(d - 1), self.w, eb + sb))
        if k == 2:
            return "(fp %s %s %s)" % (self.resize(self.bv(d - 1), self.w, 1),
                                      self.resize(self.bv(d - 1), self.w, eb),
                                      self.resize(self.bv(d - 1), self.w, sb - 1))
        if k == 3:
            return "(fp.roundToIntegral %s %s)" % (self.rm(), self.fp(d - 1))
        return "(%s %s %s %s)" % (r.choice(["fp.add", "fp.mul"]), self.rm(), self.fp(d - 1), self.fp(d - 1))

    def atom(self, d):
        r = self.rng
        p = r.random()
        if p < 0.55:
            return "(%s %s %s)" % (r.choice(BV_COMPARE), self.bv(d), self.bv(d))
        if p < 0.85:
            op = r.choice(["fp.leq", "fp.lt", "fp.eq", "=", "distinct"])
            return "(%s %s %s)" % (op, self.fp(d), self.fp(d))
        return "(%s %s)" % (r.choice(["fp.isNaN", "fp.isInfinite", "fp.isZero", "fp.isNegative"]),
                            self.fp(d))

    def text(self):
        r = self.rng
        for _ in range(r.randrange(1, 4)):
            a = self.atom(r.randrange(1, 3))
            self.lines.append("(assert %s)" % ("(not %s)" % a if r.random() < 0.2 else a))
        self.lines += ["(check-sat)"]
        return "\n".join(self.lines) + "\n"


BOOL_FORMATS = [(2, 3), (3, 4), (4, 3), (3, 5), (5, 11), (8, 24), (11, 53)]


class Boolean(Arith):
    """Arith's terms and atoms under a Boolean skeleton: several Boolean
    variables, disjunctions, xor, implications, equivalences and ite over
    Booleans and floats, nested up to depth 4."""

    def __init__(self, seed):
        self.rng = r = random.Random(seed)
        small = r.random() < 0.6
        pool = BOOL_FORMATS[:4] if small else BOOL_FORMATS
        self.formats = r.sample(pool, 1 if r.random() < 0.7 else 2)
        self.lines = ["(set-logic ALL)"]
        self.fvars = {f: [] for f in self.formats}
        for i in range(r.randrange(2, 5)):
            f = self.formats[i % len(self.formats)]
            self.fvars[f].append("x%d" % i)
            self.lines.append("(declare-fun x%d () %s)" % (i, sort_text(f, r)))
        self.bvars = ["b%d" % i for i in range(r.randrange(1, 5))]
        for b in self.bvars:
            self.lines.append("(declare-fun %s () Bool)" % b)
        self.rms = []
        if r.random() < 0.2:
            self.rms.append("rm0")
            self.lines.append("(declare-fun rm0 () RoundingMode)")
        self.macros = {}

    def leaf(self, f):
        r = self.rng
        if r.random() < 0.15:
            return "(ite %s %s %s)" % (self.formula(1), r.choice(self.fvars[f] or [special(r, f)]),
                                       special(r, f))
        return Arith.leaf(self, f)

    def batom(self):
        r = self.rng
        if r.random() < 0.3:
            return r.choice(self.bvars)
        return self.atom(r.randrange(0, 2))

    def formula(self, depth):
        r = self.rng
        if depth == 0 or r.random() < 0.25:
            return self.batom()
        d = depth - 1
        op = r.choice(["or", "or", "and", "not", "=>", "xor", "xor", "ite", "="])
        if op == "not":
            return "(not %s)" % self.formula(d)
        if op == "ite":
            return "(ite %s %s %s)" % (self.formula(d), self.formula(d), self.formula(d))
        n = 2 if op in ("=>", "=") or r.random() < 0.6 else 3
        return "(%s %s)" % (op, " ".join(self.formula(d) for _ in range(n)))

    def text(self):
        r = self.rng
        for _ in range(r.randrange(1, 4)):
            self.lines.append("(assert %s)" % self.formula(r.randrange(2, 5)))
        self.lines += ["(check-sat)"]
        return "\n".join(self.lines) + "\n"


REAL_FORMATS = [(2, 3), (3, 4), (4, 3), (3, 5), (5, 11), (8, 24), (11, 53)]
REAL_COMPARE = ["<", "<=", ">", ">=", "=", "distinct", "<", "<="]


class Reals:
    """Real variables and floats linked both ways: linear real terms (sums,
    differences, negations, products and quotients by constants, ite) over
    real variables and fp.to_real of float terms, compared strictly and
    non-strictly; floats rounded from real terms by to_fp under every
    rounding mode, constants and variables.  Half of the problems also
    bound a few terms and their weighted sum, on the edge of what the
    bounds allow or past it, so only linear reasoning tells sat from unsat.
    Floats read by fp.to_real are mostly asserted finite: fp.to_real of NaN
    and infinities is unspecified."""

    def __init__(self, seed):
        self.rng = r = random.Random(seed)
        pool = REAL_FORMATS[:4] if r.random() < 0.6 else REAL_FORMATS
        self.formats = r.sample(pool, 1 if r.random() < 0.7 else 2)
        self.lines = ["(set-logic QF_FPLRA)"]
        self.rvars = ["r%d" % i for i in range(r.randrange(1, 4))]
        for v in self.rvars:
            self.lines.append("(declare-fun %s () Real)" % v)
        self.fvars = {f: [] for f in self.formats}
        for i in range(r.randrange(1, 4)):
            f = self.formats[i % len(self.formats)]
            self.fvars[f].append("x%d" % i)
            self.lines.append("(declare-fun x%d () %s)" % (i, sort_text(f, r)))
            if r.random() < 0.8:
                self.lines.append("(assert (not (or (fp.isNaN x%d) (fp.isInfinite x%d))))" % (i, i))
        self.rms = ["rm0"] if r.random() < 0.4 else []
        if self.rms:
            self.lines.append("(declare-fun rm0 () RoundingMode)")
        # Half of the problems round real terms with variables (cvc5 alone
        # decides them), the other half only constant real terms.
        self.round_vars = r.random() < 0.5

    def rm(self):
        r = self.rng
        return r.choice(self.rms) if self.rms and r.random() < 0.5 else r.choice(RMS)

    def const_term(self, d):
        """A real term without variables: constants under + - * /."""
        r = self.rng
        if d == 0 or r.random() < 0.4:
            return self.const()
        k = r.randrange(4)
        if k == 0:
            return "(+ %s %s)" % (self.const_term(d - 1), self.const_term(d - 1))
        if k == 1:
            return "(- %s)" % self.const_term(d - 1)
        if k == 2:
            return "(* %s %s)" % (self.const(), self.const_term(d - 1))
        return "(/ %s %s)" % (self.const_term(d - 1), r.choice(["3", "(- 2.0)", "(/ 7 2)"]))

    def const(self):
        """A real constant in one of SMT-LIB's spellings."""
        r = self.rng
        k = r.randrange(5)
        if k == 0:
            t = str(r.randrange(0, 12))  # a numeral in a real context
        elif k == 1:
            t = r.choice(["0.5", "1.0", "2.5", "0.1", "3.75", "0.001", "1.25", "7.0", "0.0"])
        elif k == 2:
            t = "(/ %d %d)" % (r.randrange(1, 20), r.randrange(2, 10))
        elif k == 3:
            t = "(/ %d.0 %d.0)" % (r.randrange(1, 20), r.randrange(2, 10))
        else:
            t = "%d.%d" % (r.randrange(0, 16), r.choice([0, 25, 5, 75, 125, 3]))
        return "(- %s)" % t if r.random() < 0.3 else t

    def to_real(self, d):
        r = self.rng
        f = r.choice(self.formats)
        x = r.choice(self.fvars[f]) if self.fvars[f] and (d == 0 or r.random() < 0.7) else self.fp(f, d)
        return "(fp.to_real %s)" % x

    def real(self, d):
        r = self.rng
        if d == 0 or r.random() < 0.3:
            p = r.random()
            return r.choice(self.rvars) if p < 0.45 else self.to_real(0) if p < 0.8 else self.const()
        k = r.randrange(8)
        if k == 0:
            return "(+ %s)" % " ".join(self.real(d - 1) for _ in range(r.randrange(2, 4)))
        if k == 1:
            return "(- %s %s)" % (self.real(d - 1), self.real(d - 1))
        if k == 2:
            return "(- %s)" % self.real(d - 1)
        if k == 3:
            a, c = self.real(d - 1), self.const()
            return "(* %s %s)" % ((c, a) if r.random() < 0.5 else (a, c))
        if k == 4:
            return "(/ %s %s)" % (self.real(d - 1), r.choice(["2", "3.0", "(- 4)", "(/ 1 3)", "0.5"]))
        if k == 5:
            return "(ite %s %s %s)" % (self.atom(0), self.real(d - 1), self.real(d - 1))
        return self.to_real(d - 1)

    def fp(self, f, d):
        r = self.rng
        eb, sb = f
        if d == 0 or r.random() < 0.25:
            if self.fvars[f] and r.random() < 0.6:
                return r.choice(self.fvars[f])
            return "((_ to_fp %d %d) %s %s)" % (eb, sb, self.rm(), self.const())
        k = r.randrange(5)
        if k <= 1:
            t = self.real(d - 1) if self.round_vars else self.const_term(d)
            return "((_ to_fp %d %d) %s %s)" % (eb, sb, self.rm(), t)
        if k == 2:
            return "(%s %s %s %s)" % (r.choice(["fp.add", "fp.sub", "fp.mul"]), self.rm(), self.fp(f, d - 1),
                                      self.fp(f, d - 1))
        if k == 3:
            g = r.choice(self.formats)
            return "((_ to_fp %d %d) %s %s)" % (eb, sb, self.rm(), self.fp(g, d - 1))
        return "(%s %s)" % (r.choice(["fp.neg", "fp.abs"]), self.fp(f, d - 1))

    def atom(self, d):
        r = self.rng
        p = r.random()
        if p < 0.6:
            return "(%s %s %s)" % (r.choice(REAL_COMPARE), self.real(d), self.real(d))
        if p < 0.65:
            return "(< %s %s %s)" % (self.real(d), self.real(d), self.real(d))
        if p < 0.9:
            f = r.choice(self.formats)
            op = r.choice(["fp.leq", "fp.lt", "fp.geq", "fp.gt", "fp.eq", "=", "distinct"])
            return "(%s %s %s)" % (op, self.fp(f, d), self.fp(f, d))
        if self.rms:
            return "(= %s %s)" % (self.rms[0], r.choice(RMS[:5]))
        return "(fp.isZero %s)" % self.fp(r.choice(self.formats), d)

    def linear(self):
        """Terms t_i < c_i (or <=) and sum a_i * t_i > sum a_i * c_i + e: unsat
        for e >= 0 (strict somewhere), sat for e < 0 when the t_i reach."""
        r = self.rng
        ts = [r.choice(self.rvars) if r.random() < 0.5 else self.to_real(0)
              for _ in range(r.randrange(2, 4))]
        total = 0
        parts = []
        for t in ts:
            a, c = r.randrange(1, 4), r.randrange(-3, 4)
            strict = r.random() < 0.6
            self.lines.append("(assert (%s %s %s))" % ("<" if strict else "<=", t, lit(c)))
            total += a * c
            parts.append(t if a == 1 else "(* %d %s)" % (a, t))
        e = r.choice([0, 0, -1, "(- (/ 1 8))"]) if r.random() < 0.7 else 0
        bound = lit(total) if e == 0 else "(+ %s %s)" % (lit(total), e if e != -1 else "(- 1)")
        op = ">" if e != 0 or r.random() < 0.5 else ">="
        self.lines.append("(assert (%s (+ %s) %s))" % (op, " ".join(parts), bound))

    def text(self):
        r = self.rng
        if r.random() < 0.5:
            self.linear()
        for _ in range(r.randrange(1, 4)):
            a = self.atom(r.randrange(1, 3))
            p = r.random()
            if p < 0.2:
                a = "(not %s)" % a
            elif p < 0.35:
                a = "(or %s %s)" % (a, self.atom(1))
            self.lines.append("(assert %s)" % a)
        self.lines += ["(check-sat)"]
        return "\n".join(self.lines) + "\n"


def fmt_arg(args, i, default):
    if len(args) <= i:
        return default
    eb, sb = args[i].split(",")
    return (int(eb), int(sb))


def chain(n, fmt, closed):
    eb, sb = fmt
    out = ["(set-logic ALL)"]
    out += ["(declare-const v%d %s)" % (i, sort_text(fmt)) for i in range(n)]
    names = " ".join("v%d" % i for i in range(n))
    out.append("(assert (fp.lt ((_ to_fp %d %d) RNE (- 1000.0)) %s ((_ to_fp %d %d) RNE 1000.0)))"
               % (eb, sb, names, eb, sb))
    out.append("(assert (or (fp.isNegative v%d) (fp.isZero v%d)))" % (n // 2, n // 2))
    out.append("(assert (not (fp.eq v%d (fp.neg v%d))))" % (0, n - 1))
    if closed:
        out.append("(assert (fp.leq v%d v0))" % (n - 1))
    out += ["(check-sat)"]
    return "\n".join(out) + "\n"


def many(n, seed, formats):
    """n variables; each is pinned into its own window by constants, then
    compared with earlier ones in the direction the windows allow, under
    Boolean structure, so the problem is satisfiable."""
    r = random.Random(seed)
    out = ["(set-logic ALL)"]
    vs = []
    for i in range(n):
        f = formats[i % len(formats)]
        vs.append(("y%d" % i, f))
        out.append("(declare-const y%d %s)" % (i, sort_text(f)))
    for i, (v, f) in enumerate(vs):
        eb, sb = f
        lo, hi = 10 * i - 500, 10 * i - 492
        out.append("(assert (fp.leq ((_ to_fp %d %d) RNE %s) %s ((_ to_fp %d %d) RNE %s)))"
                   % (eb, sb, lit(lo), v, eb, sb, lit(hi)))
        if r.random() < 0.3:
            out.append("(assert (not (fp.isZero %s)))" % v)
    for i in range(1, n):
        for _ in range(2):
            j = r.randrange(0, i)
            (a, fa), (b, fb) = vs[j], vs[i]
            if fa != fb:
                continue
            if r.random() < 0.5:
                out.append("(assert (fp.lt %s %s))" % (a, b))
            else:
                c = "(fp.isNaN %s)" % a
                out.append("(assert (or %s (fp.leq %s %s) (= %s %s)))" % (c, a, b, a, b))
    out += ["(check-sat)"]
    return "\n".join(out) + "\n"


def lit(x):
    return "(- %d.0)" % -x if x < 0 else "%d.0" % x


def main(argv):
    if len(argv) < 3:
        sys.stderr.write(__doc__)
        return 2
    kind, n = argv[1], int(argv[2])
    if kind == "random":
        sys.stdout.write(Random(n).text())
    elif kind == "arith":
        sys.stdout.write(Arith(n).text())
    elif kind == "mixed":
        sys.stdout.write(Mixed(n).text())
    elif kind == "boolean":
        sys.stdout.write(Boolean(n).text())
    elif kind == "reals":
        sys.stdout.write(Reals(n).text())
    elif kind in ("chain", "chain-unsat"):
        sys.stdout.write(chain(n, fmt_arg(argv, 3, (11, 53)), kind == "chain-unsat"))
    elif kind == "many":
        sys.stdout.write(many(n, int(argv[3]) if len(argv) > 3 else 1, [(8, 24), (11, 53), (5, 11)]))
    elif kind == "wide":
        sys.stdout.write(many(n, int(argv[3]) if len(argv) > 3 else 1, [(15, 113), (15, 200)]))
    else:
        sys.stderr.write(__doc__)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
