// Reals beside floats: the rounding preimages against rounding itself, the
// solver against enumeration over tiny formats, and the reading of the
// real syntax (forms, errors, printing).
#include "smtlib/driver.h"

#include "engine/real_rounding.h"
#include "engine/real_terms.h"

#include "engine/ranks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace fpsolve {
namespace {

using Format = IEEEFloat::format;

std::vector<IEEEFloat> all_values(Format f) {
  std::vector<IEEEFloat> v;
  for (std::uint64_t bits = 0; bits < (std::uint64_t{1} << (f.eb + f.sb)); ++bits)
    v.push_back(IEEEFloat::from_bits(bits, f));
  return v;
}

// Rationals around every float of f: the values, the points halfway and a
// quarter of the way between neighbours, and beyond the largest.
std::vector<mpq_class> samples(Format f) {
  std::vector<mpq_class> pts;
  for (IEEEFloat const& x : all_values(f))
    if (!x.is_nan() && !x.is_inf()) pts.push_back(exact_value(x));
  mpq_class const top = *std::max_element(pts.begin(), pts.end());
  for (mpq_class const& extra : {mpq_class(top * 2), mpq_class(top * 4)}) {
    pts.push_back(extra);
    pts.push_back(-extra);
  }
  std::sort(pts.begin(), pts.end());
  pts.erase(std::unique(pts.begin(), pts.end()), pts.end());
  std::vector<mpq_class> out;
  for (std::size_t i = 0; i + 1 < pts.size(); ++i)
    for (int q = 0; q < 4; ++q)
      out.push_back(pts[i] + (pts[i + 1] - pts[i]) * q / 4);
  out.push_back(pts.back());
  return out;
}

bool within_lower(RealEnd const& e, mpq_class const& t) {
  return e.unbounded || t > e.value || (t == e.value && !e.strict);
}
bool within_upper(RealEnd const& e, mpq_class const& t) {
  return e.unbounded || t < e.value || (t == e.value && !e.strict);
}

TEST(RealRounding, PreimagesAgreeWithRounding) {
  for (Format f : {Format{2, 3}, Format{3, 4}, Format{4, 3}}) {
    std::vector<mpq_class> const ts = samples(f);
    for (IEEEFloat const& v : all_values(f)) {
      if (v.is_nan()) continue;
      mpz_class const rv = rank_of<mpz_class>(v);
      for (int m = 0; m < 5; ++m) {
        auto const rm = static_cast<IEEEFloat::rounding_mode>(m);
        std::optional<RealEnd> const lo = rounding_at_least(rm, v), hi = rounding_at_most(rm, v);
        for (mpq_class const& t : ts) {
          mpz_class const r = rank_of<mpz_class>(round_real(rm, t, f));
          ASSERT_EQ(r >= rv, lo && within_lower(*lo, t))
              << v.to_str() << " mode " << m << " at " << t.get_str();
          ASSERT_EQ(r <= rv, hi && within_upper(*hi, t))
              << v.to_str() << " mode " << m << " at " << t.get_str();
        }
      }
    }
  }
}

// The other direction: the finite floats within real ends (each end alone,
// strict or not, against the floats themselves), and the image of a range
// under to_fp against rounding each sample inside it.
TEST(RealRounding, FloatsWithinAndImagesAgreeWithRounding) {
  std::mt19937 rng(3);
  for (Format f : {Format{2, 3}, Format{3, 4}}) {
    std::vector<mpq_class> const ts = samples(f);
    std::vector<IEEEFloat> finite;
    for (IEEEFloat const& v : all_values(f))
      if (!v.is_nan() && !v.is_inf()) finite.push_back(v);
    std::sort(finite.begin(), finite.end(), [](IEEEFloat const& a, IEEEFloat const& b) {
      return rank_of<mpz_class>(a) < rank_of<mpz_class>(b);
    });
    for (mpq_class const& t : ts)
      for (bool strict : {false, true}) {
        RealEnd const e{false, t, strict};
        std::optional<IEEEFloat> least, greatest; // value above t, below t
        for (IEEEFloat const& v : finite) {
          mpq_class const x = exact_value(v);
          if (!least && (x > t || (x == t && !strict))) least = v;
          if (x < t || (x == t && !strict)) greatest = v;
        }
        auto const lo = floats_within(RealRange{e, RealEnd{}}, f);
        auto const hi = floats_within(RealRange{RealEnd{}, e}, f);
        ASSERT_EQ(lo.has_value(), least.has_value()) << t.get_str() << strict;
        ASSERT_EQ(hi.has_value(), greatest.has_value()) << t.get_str() << strict;
        if (lo) {
          ASSERT_EQ(rank_of<mpz_class>(lo->first), rank_of<mpz_class>(*least)) << t.get_str();
        }
        if (hi) {
          ASSERT_EQ(rank_of<mpz_class>(hi->second), rank_of<mpz_class>(*greatest)) << t.get_str();
        }
      }
    EXPECT_FALSE(floats_within(RealRange{{false, 1, false}, {false, 1, true}}, f));
    for (int round = 0; round < 300; ++round) {
      mpq_class a = ts[rng() % ts.size()], b = ts[rng() % ts.size()];
      if (b < a) std::swap(a, b);
      unsigned const modes = 1 + rng() % 31;
      auto const [lo, hi] =
          rounding_image(modes, RealRange{{false, a, false}, {false, b, false}}, f);
      mpz_class least = rank_of<mpz_class>(hi), greatest = rank_of<mpz_class>(lo);
      for (mpq_class const& t : ts)
        for (int m = 0; m < 5 && a <= t && t <= b; ++m)
          if (modes >> m & 1u) {
            mpz_class const r =
                rank_of<mpz_class>(round_real(static_cast<IEEEFloat::rounding_mode>(m), t, f));
            least = std::min(least, r);
            greatest = std::max(greatest, r);
          }
      ASSERT_EQ(least, rank_of<mpz_class>(lo)) << a.get_str() << " " << b.get_str();
      ASSERT_EQ(greatest, rank_of<mpz_class>(hi)) << a.get_str() << " " << b.get_str();
    }
  }
}

std::string run(std::string const& script, int* status = nullptr) {
  DriverOptions opt;
  opt.search.check = true;
  opt.search.timeout = 20;
  std::istringstream in(script);
  std::ostringstream out, diagnostic;
  opt.diagnostic = &diagnostic;
  int const s = run_script(in, out, opt);
  if (status) *status = s;
  return out.str() + diagnostic.str();
}

std::string fmt_text(Format f) {
  return "(_ FloatingPoint " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ")";
}

std::string q_text(mpq_class const& q) {
  std::string const a =
      "(/ " + mpq_class(abs(q)).get_num().get_str() + " " + q.get_den().get_str() + ")";
  return q < 0 ? "(- " + a + ")" : a;
}

// Scripts over one finite float x, one real r and a rounding mode m
// (variable or constant): fp.to_real of x against a linear term in r,
// bounds on r, and to_fp of a linear term in r compared with x.  The judge
// enumerates x and the modes; for r, every atom is linear in r once x and m
// are fixed, so its truth changes only at the breakpoints (the constants,
// and the points where a rounding of r's term changes: the values of the
// format and the points halfway between them, mapped back through the
// term), and testing every breakpoint and a point between each pair
// decides whether some r satisfies all of them.
TEST(Reals, AgreeWithEnumerationOverTinyFormats) {
  std::mt19937 rng(7);
  char const* ops[] = {"<", "<=", "=", ">=", ">", "distinct"};
  char const* modes[] = {"RNE", "RNA", "RTP", "RTN", "RTZ"};
  int answered[2] = {0, 0};
  for (int round = 0; round < 60; ++round) {
    Format const f = round % 3 == 0 ? Format{3, 4} : Format{2, 3};
    // Two statements: the draws happen in this order on every compiler, and
    // GMP compares and divides only canonical quotients.
    auto small = [&] {
      int const num = static_cast<int>(rng() % 13) - 6;
      mpq_class q(num, 1 + rng() % 4);
      q.canonicalize();
      return q;
    };
    auto coef = [&] {
      mpq_class k = small();
      return k == 0 ? mpq_class(1) : k;
    };
    bool const rm_var = rng() % 2 != 0;
    int const fixed_mode = static_cast<int>(rng() % 5);
    struct Atom {
      int kind; // 0: to_real(x) c (k r + c); 1: r c b; 2: to_fp(m, k r + c) c' x
      int op;
      mpq_class k, c;
    };
    std::vector<Atom> atoms;
    for (int i = 0, n = 1 + static_cast<int>(rng() % 3); i < n; ++i)
      atoms.push_back({static_cast<int>(rng() % 3), static_cast<int>(rng() % 6), coef(), small()});
    std::string s = "(set-logic QF_FPLRA)(declare-const x " + fmt_text(f) +
                    ")(declare-const r Real)(declare-const m RoundingMode)"
                    "(assert (not (or (fp.isNaN x) (fp.isInfinite x))))";
    std::string const mode = rm_var ? "m" : modes[fixed_mode];
    for (Atom const& a : atoms) {
      std::string const lin = "(+ (* " + q_text(a.k) + " r) " + q_text(a.c) + ")";
      if (a.kind == 0) s += "(assert (" + std::string(ops[a.op]) + " (fp.to_real x) " + lin + "))";
      if (a.kind == 1) s += "(assert (" + std::string(ops[a.op]) + " r " + q_text(a.c) + "))";
      if (a.kind == 2) {
        std::string const y = "((_ to_fp " + std::to_string(f.eb) + " " + std::to_string(f.sb) +
                              ") " + mode + " " + lin + ")";
        char const* fcmp[] = {"fp.lt", "fp.leq", "fp.eq", "fp.geq", "fp.gt", "distinct"};
        s += "(assert (" + std::string(fcmp[a.op]) + " " + y + " x))";
      }
    }
    // The judge.
    std::vector<mpq_class> grid;
    for (IEEEFloat const& v : all_values(f))
      if (!v.is_nan() && !v.is_inf()) grid.push_back(exact_value(v));
    std::sort(grid.begin(), grid.end());
    std::vector<mpq_class> cuts = grid;
    for (std::size_t i = 0; i + 1 < grid.size(); ++i)
      cuts.push_back((grid[i] + grid[i + 1]) / 2);
    cuts.push_back(grid.back() * 2);
    cuts.push_back(-grid.back() * 2);
    bool sat = false;
    for (IEEEFloat const& x : all_values(f)) {
      if (x.is_nan() || x.is_inf()) continue;
      mpq_class const xv = exact_value(x);
      for (int m = 0; m < 5 && !sat; ++m) {
        if (!rm_var && m != fixed_mode) continue;
        auto const rm = static_cast<IEEEFloat::rounding_mode>(m);
        std::vector<mpq_class> pts;
        for (Atom const& a : atoms) {
          if (a.kind == 0) pts.push_back((xv - a.c) / a.k);
          if (a.kind == 1) pts.push_back(a.c);
          if (a.kind == 2)
            for (mpq_class const& t : cuts)
              pts.push_back((t - a.c) / a.k);
        }
        std::sort(pts.begin(), pts.end());
        pts.erase(std::unique(pts.begin(), pts.end()), pts.end());
        std::vector<mpq_class> rs = pts;
        for (std::size_t i = 0; i + 1 < pts.size(); ++i)
          rs.push_back((pts[i] + pts[i + 1]) / 2);
        rs.push_back(pts.front() - 1);
        rs.push_back(pts.back() + 1);
        for (mpq_class const& r : rs) {
          bool all = true;
          for (Atom const& a : atoms) {
            int c; // the sign of lhs - rhs, or of the rounded value against x
            if (a.kind == 2) {
              IEEEFloat const y = round_real(rm, a.k * r + a.c, f);
              mpq_class const yv =
                  y.is_inf() ? mpq_class(y.get_sign() ? -1000 : 1000) : exact_value(y);
              c = cmp(yv, xv);
              // = is fp.eq here, and distinct is on values: zeros differ by sign.
              if (a.op == 5) c = (rank_of<mpz_class>(y) == rank_of<mpz_class>(x)) ? 0 : 1;
            } else {
              mpq_class const lhs = a.kind == 0 ? xv : r;
              mpq_class const rhs = a.kind == 0 ? a.k * r + a.c : a.c;
              c = cmp(lhs, rhs);
            }
            bool const holds[] = {c<0, c <= 0, c == 0, c >= 0, c> 0, c != 0};
            all = all && holds[a.op];
          }
          if (all) {
            sat = true;
            break;
          }
        }
      }
      if (sat) break;
    }
    // The default search, and the search without learning (chronological
    // backtracking over the simplex's conflicts), with atoms decided from
    // the start, on GMP ranks, without trail compaction, and without the
    // narrowing by real bounds (so that most refutations are learned as
    // clauses of the bounds they used).
    for (char const* variant : {"", "(set-option :learning false)", "(set-option :atom-delay 0)",
                                "(set-option :big-ranks true)", "(set-option :compact-trail false)",
                                "(set-option :real-narrowing false)"}) {
      int status = 0;
      std::string const out = run(variant + s + "(check-sat)", &status);
      ASSERT_EQ(status, 0) << variant << s << "\n" << out;
      ASSERT_EQ(out.substr(0, out.find('\n')), sat ? "sat" : "unsat") << variant << s;
    }
    ++answered[sat ? 1 : 0];
  }
  EXPECT_GT(answered[0], 5);
  EXPECT_GT(answered[1], 5);
}

TEST(Reals, ReadsEveryFormAndPrintsModels) {
  int status = 0;
  // Literal forms, integer numerals as reals, linear arithmetic, ite, and the
  // printing of values as the peers print them.
  std::string out = run("(set-option :produce-models true)(set-logic QF_LRA)"
                        "(declare-const a Real)(declare-const b Real)(declare-const c Real)"
                        "(assert (= a (/ 1 3)))(assert (= b (- 2.0)))"
                        "(assert (= c (ite (> a 0) (* 2 (- a b)) (/ b 4))))"
                        "(assert (distinct a b c 0))(check-sat)(get-model)"
                        "(get-value ((+ a 1.5) (< a b) (- 7)))",
                        &status);
  EXPECT_EQ(status, 0) << out;
  EXPECT_NE(out.find("sat\n("), std::string::npos) << out;
  EXPECT_NE(out.find("(define-fun a () Real (/ 1 3))"), std::string::npos) << out;
  EXPECT_NE(out.find("(define-fun b () Real (- 2.0))"), std::string::npos) << out;
  EXPECT_NE(out.find("(define-fun c () Real (/ 14 3))"), std::string::npos) << out;
  EXPECT_NE(out.find("((+ a 1.5) (/ 11 6))"), std::string::npos) << out;
  EXPECT_NE(out.find("((< a b) false)"), std::string::npos) << out;
  EXPECT_NE(out.find("((- 7) (- 7.0))"), std::string::npos) << out;
  // z3's negative literal, where no name is bound to it.
  EXPECT_EQ(run("(assert (= ((_ to_fp 5 11) RTZ -42.0) ((_ to_fp 5 11) RNE (- 42))))(check-sat)"),
            "sat\n");
  // Linear reasoning the bounds alone do not give, and strictness.
  EXPECT_EQ(run("(declare-const x Real)(declare-const y Real)"
                "(assert (> (+ x y) 2))(assert (< x 1))(assert (<= y 1))(check-sat)"),
            "unsat\n");
  EXPECT_EQ(run("(declare-const x Real)(declare-const y Real)"
                "(assert (>= (+ x y) 2))(assert (<= x 1))(assert (<= y 1))(check-sat)"),
            "sat\n");
  // fp.to_real of NaN is a free value but a function: two terms of equal
  // operands agree.
  EXPECT_EQ(run("(declare-const x Float32)(declare-const y Float32)"
                "(assert (fp.isNaN x))(assert (fp.isNaN y))"
                "(assert (distinct (fp.to_real x) (fp.to_real y)))(check-sat)"),
            "unsat\n");
  EXPECT_EQ(run("(assert (= (fp.to_real (_ +oo 8 24)) 5.0))(check-sat)"), "sat\n");
  // to_fp of a real under a rounding-mode variable.
  EXPECT_EQ(run("(declare-const m RoundingMode)(declare-const r Real)"
                "(assert (= ((_ to_fp 8 24) m r) ((_ to_fp 8 24) RNE 3.0)))"
                "(assert (> r 3.0))(assert (not (= m RNE)))(check-sat)"),
            "sat\n");
  EXPECT_EQ(run("(declare-const m RoundingMode)(declare-const r Real)"
                "(assert (= ((_ to_fp 2 3) m r) (_ +oo 2 3)))(assert (< r 3.5))(check-sat)"),
            "unsat\n");
}

// Bounds flow from the reals into the floats without a split: the real
// bounds leave x exactly the floats strictly between 2.5 and 3.0 (in (3,4)
// the one float 2.75).
TEST(Reals, RealBoundsNarrowFloats) {
  auto stat = [](std::string const& out, std::string const& name) {
    std::size_t const at = out.find(":" + name + " ");
    return at == std::string::npos ? -1 : std::stol(out.substr(at + name.size() + 2));
  };
  std::string const x = "(declare-const x (_ FloatingPoint 3 4))"
                        "(assert (not (or (fp.isNaN x) (fp.isInfinite x))))"
                        "(assert (> (fp.to_real x) 2.5))(assert (< (fp.to_real x) 3.0))";
  std::string out = run(x + "(assert (distinct x ((_ to_fp 3 4) RNE 2.75)))(check-sat)"
                            "(get-info :all-statistics)");
  EXPECT_EQ(out.substr(0, 6), "unsat\n") << out;
  EXPECT_EQ(stat(out, "decisions"), 0) << out;
  out = run("(set-option :produce-models true)" + x + "(check-sat)(get-value (x))");
  EXPECT_NE(out.find("((x (fp #b0 #b100 #b011)))"), std::string::npos) << out;
  // NaN's real value is free: without the first assertion x may be NaN.
  out = run("(declare-const x (_ FloatingPoint 3 4))(assert (not (fp.isInfinite x)))"
            "(assert (> (fp.to_real x) 2.5))(assert (< (fp.to_real x) 3.0))"
            "(assert (not (= x ((_ to_fp 3 4) RNE 2.75))))(check-sat)");
  EXPECT_EQ(out, "sat\n");
}

TEST(Reals, ErrorsNameTheTermAndItsPosition) {
  auto error = [](std::string const& script) {
    std::string const out = run(script);
    return out.substr(0, out.find('\n'));
  };
  EXPECT_NE(error("(declare-const x Int)").find("unsupported sort 'Int'"), std::string::npos);
  EXPECT_NE(error("(declare-const x Real)(declare-const y Real)(assert (< (* x y) 1))")
                .find("non-linear term (* x y)"),
            std::string::npos);
  EXPECT_NE(error("(declare-const x Real)(declare-const y Real)(assert (< (/ x y) 1))")
                .find("divisor must be a constant"),
            std::string::npos);
  EXPECT_NE(error("(declare-const x Real)(assert (< (/ x 0) 1))").find("division by zero"),
            std::string::npos);
  EXPECT_NE(error("(declare-const x Real)(assert (< (div x 2) 1))")
                .find("unsupported integer operator 'div'"),
            std::string::npos);
  EXPECT_NE(error("(declare-const x Float32)(assert (< x 1.0))").find("expected a Real term"),
            std::string::npos);
  EXPECT_NE(error("(declare-const x Real)(assert (fp.isNaN x))").find("found Real"),
            std::string::npos);
  // Every error is positioned: line 1, at the offending term.
  EXPECT_NE(error("(declare-const x Real)(assert (< (* x x) 1))").find("line 1 column 34"),
            std::string::npos);
}

} // namespace
} // namespace fpsolve
