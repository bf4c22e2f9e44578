// The simplex decides exactly what Fourier-Motzkin elimination decides, on
// random small systems of strict and non-strict bounds over linear forms,
// asserted level by level and popped at random: every sat model meets every
// active bound exactly, every conflict (from a bound or from check) is an
// infeasible subset of the active bounds alone, and every propagated bound
// follows from the reasons it names.  A pop that forgets a bound, a pivot
// that breaks a row, a delta chosen too large or a conflict that blames the
// wrong row fails here with the step that shows it.
#include "engine/simplex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace fpsolve {
namespace {

// sum a_i * x_i < b (strict) or <= b, over the original variables.
struct Lin {
  std::vector<mpq_class> a;
  mpq_class b;
  bool strict;
};

// Whether the conjunction has a real solution: eliminate one variable at a
// time (each pair of opposite signs adds up to a constraint without it).
bool feasible(std::vector<Lin> cs, std::size_t vars) {
  for (std::size_t k = 0; k < vars; ++k) {
    std::vector<Lin> pos, neg, next;
    for (Lin& c : cs)
      (c.a[k] > 0 ? pos : c.a[k] < 0 ? neg : next).push_back(std::move(c));
    for (Lin const& p : pos)
      for (Lin const& q : neg) {
        mpq_class const s = 1 / p.a[k], t = -1 / q.a[k];
        Lin r{std::vector<mpq_class>(vars), s * p.b + t * q.b, p.strict || q.strict};
        for (std::size_t i = 0; i < vars; ++i)
          r.a[i] = s * p.a[i] + t * q.a[i];
        next.push_back(std::move(r));
      }
    cs = std::move(next);
  }
  return std::all_of(cs.begin(), cs.end(),
                     [](Lin const& c) { return c.strict ? 0 < c.b : 0 <= c.b; });
}

std::vector<Lin> pick(std::vector<Lin> const& all, std::vector<Simplex::Reason> const& which) {
  std::vector<Lin> out;
  for (Simplex::Reason r : which)
    out.push_back(all[r]);
  return out;
}

TEST(Simplex, AgreesWithFourierMotzkinThroughPushAndPop) {
  std::mt19937 rng(42);
  auto num = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  auto ratio = [&](int lo, int hi) {
    int const top = num(lo, hi); // drawn before the denominator on every compiler
    mpq_class q(top, num(1, 2));
    q.canonicalize();
    return q;
  };
  int sat = 0, unsat = 0, implied = 0;
  for (int trial = 0; trial < 600; ++trial) {
    std::size_t const n = static_cast<std::size_t>(num(1, 3));
    Simplex s;
    std::vector<std::vector<mpq_class>> form; // each column over the originals
    for (std::size_t i = 0; i < n; ++i) {
      s.new_var();
      form.emplace_back(n);
      form.back()[i] = 1;
    }
    for (int r = num(1, 4); r > 0; --r) { // forms over earlier columns, slacks included
      std::vector<Simplex::Term> terms;
      std::vector<mpq_class> f(n);
      for (int t = num(1, 3); t > 0; --t) {
        auto const v = static_cast<Simplex::Var>(num(0, static_cast<int>(form.size()) - 1));
        mpq_class const c = ratio(-3, 3);
        terms.emplace_back(v, c);
        for (std::size_t i = 0; i < n; ++i)
          f[i] += c * form[v][i];
      }
      Simplex::Var const v = s.add_row(terms);
      ASSERT_EQ(s.add_row(terms), v) << "the same form twice gives the same slack";
      if (v == form.size()) form.push_back(f);
    }
    std::vector<Lin> all;                     // every bound ever asserted; Reason = index
    std::vector<std::vector<int>> active{{}}; // per level, the bounds it asserted
    auto active_bounds = [&] {
      std::vector<Lin> out;
      for (auto const& l : active)
        for (int i : l)
          out.push_back(all[static_cast<std::size_t>(i)]);
      return out;
    };
    std::vector<Simplex::Reason> conflict;
    for (int step = 0; step < 12; ++step) {
      if (s.level() > 0 && num(0, 3) == 0) {
        auto const k = static_cast<unsigned>(num(1, static_cast<int>(s.level())));
        s.pop(k);
        active.resize(active.size() - k);
      }
      s.push();
      active.emplace_back();
      bool ok = true;
      for (int b = num(1, 3); b > 0 && ok; --b) {
        auto const v = static_cast<Simplex::Var>(num(0, static_cast<int>(form.size()) - 1));
        bool const upper = num(0, 1), strict = num(0, 1);
        mpq_class const c = ratio(-6, 6);
        // x <= c is x <= c; x >= c is -x <= -c.
        Lin l{form[v], upper ? c : mpq_class(-c), strict};
        if (!upper)
          for (mpq_class& a : l.a)
            a = -a;
        all.push_back(l);
        auto const why = static_cast<Simplex::Reason>(all.size() - 1);
        DeltaRational const bound(c, strict ? (upper ? -1 : 1) : 0);
        ok = upper ? s.assert_upper(v, bound, why, conflict)
                   : s.assert_lower(v, bound, why, conflict);
        if (ok) active.back().push_back(static_cast<int>(why));
      }
      ASSERT_TRUE(s.check_invariants());
      if (ok) ok = s.check(conflict);
      ASSERT_TRUE(s.check_invariants());
      std::vector<Lin> const now = active_bounds();
      if (!ok) {
        ++unsat;
        ASSERT_FALSE(feasible(pick(all, conflict), n)) << "trial " << trial << " step " << step;
        for (Simplex::Reason r : conflict) // from the active bounds and the one just refused
          ASSERT_TRUE(r + 1 == all.size() ||
                      std::any_of(active.begin(), active.end(), [&](auto& l) {
                        return std::count(l.begin(), l.end(), static_cast<int>(r)) > 0;
                      }));
        s.pop(1); // the search backtracks past the conflict
        active.pop_back();
        continue;
      }
      ++sat;
      ASSERT_TRUE(feasible(now, n)) << "trial " << trial << " step " << step;
      std::vector<mpq_class> x(n);
      for (std::size_t i = 0; i < n; ++i)
        x[i] = s.model_value(static_cast<Simplex::Var>(i));
      for (Simplex::Var v = 0; v < form.size(); ++v) { // slacks agree with their forms
        mpq_class fx;
        for (std::size_t i = 0; i < n; ++i)
          fx += form[v][i] * x[i];
        ASSERT_EQ(fx, s.model_value(v));
      }
      for (Lin const& l : now) {
        mpq_class lhs;
        for (std::size_t i = 0; i < n; ++i)
          lhs += l.a[i] * x[i];
        ASSERT_TRUE(l.strict ? lhs < l.b : lhs <= l.b) << "trial " << trial << " step " << step;
      }
      s.propagate_bounds([&](Simplex::Var v, bool upper, DeltaRational const& b,
                             std::vector<Simplex::Reason> const& why) {
        ++implied;
        // The negation of v <= b.real + b.delta * delta (or of >=) with the reasons is infeasible.
        Lin neg{form[v], upper ? mpq_class(-b.real) : b.real, upper ? b.delta >= 0 : b.delta <= 0};
        if (upper)
          for (mpq_class& a : neg.a)
            a = -a;
        std::vector<Lin> cs = pick(all, why);
        cs.push_back(neg);
        EXPECT_FALSE(feasible(cs, n)) << "trial " << trial << " step " << step;
      });
    }
  }
  EXPECT_GT(sat, 1000);
  EXPECT_GT(unsat, 500);
  EXPECT_GT(implied, 500);
}

TEST(Simplex, StrictBoundsModelsAndCancellingForms) {
  // x + y > 2, x < 1, y < 1 is infeasible only because of strictness; with
  // x + y >= 2 and x, y <= 1 the only model is x = y = 1.
  for (bool strict : {true, false}) {
    Simplex s;
    Simplex::Var const x = s.new_var(), y = s.new_var();
    Simplex::Term const sum[] = {{x, 1}, {y, 1}};
    Simplex::Var const xy = s.add_row(sum);
    std::vector<Simplex::Reason> conflict;
    ASSERT_TRUE(s.assert_lower(xy, DeltaRational(2, strict ? 1 : 0), 0, conflict));
    ASSERT_TRUE(s.assert_upper(x, DeltaRational(1), 1, conflict));
    ASSERT_TRUE(s.assert_upper(y, DeltaRational(1, strict ? -1 : 0), 2, conflict));
    ASSERT_EQ(s.check(conflict), !strict);
    if (strict) {
      std::sort(conflict.begin(), conflict.end());
      EXPECT_EQ(conflict, (std::vector<Simplex::Reason>{0, 1, 2}));
    } else {
      EXPECT_EQ(s.model_value(x), 1);
      EXPECT_EQ(s.model_value(y), 1);
    }
  }
  // x - x is the constant 0: a strict bound above 0 is infeasible by itself.
  Simplex s;
  Simplex::Var const x = s.new_var();
  Simplex::Term const zero[] = {{x, 1}, {x, -1}};
  Simplex::Var const z = s.add_row(zero);
  std::vector<Simplex::Reason> conflict;
  ASSERT_TRUE(s.assert_lower(z, DeltaRational::above(0), 7, conflict));
  ASSERT_FALSE(s.check(conflict));
  EXPECT_EQ(conflict, std::vector<Simplex::Reason>{7});
}

} // namespace
} // namespace fpsolve
