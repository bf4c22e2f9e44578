// Decisions on atoms, checked by enumeration on tiny formats: every clause
// the search learns (over atoms and bounds alike) must hold in every model
// of the assertions, and the answers with and without atom decisions must
// agree with the enumeration.  The problems are Boolean-rich: disjunctions,
// xor, implications, equivalences and ite over Booleans and floats, nested
// three deep, over two variables of (2, 3) and three Booleans, so that
// every assignment can be tried.
#include "engine/apply.h"
#include "engine/evaluator.h"
#include "engine/solve.h"
#include "tests/common/script_problem.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace fpsolve {
namespace {

std::string boolean_rich_script(std::mt19937& rng) {
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  static char const* const consts[] = {"(fp #b0 #b01 #b00)", "(fp #b1 #b10 #b01)", "(_ +zero 2 3)",
                                       "(_ -oo 2 3)", "(_ NaN 2 3)"};
  std::function<std::string(int)> formula;
  std::function<std::string(int)> term = [&](int depth) -> std::string {
    int const k = depth == 0 ? pick(3) : pick(6);
    if (k == 0) return consts[pick(5)];
    if (k < 3) return "x" + std::to_string(pick(2));
    if (k == 3) return "(fp.add RNE " + term(depth - 1) + " " + term(depth - 1) + ")";
    if (k == 4) return "(fp.mul RTZ " + term(depth - 1) + " " + term(depth - 1) + ")";
    return "(ite " + formula(0) + " " + term(depth - 1) + " " + term(depth - 1) + ")";
  };
  formula = [&](int depth) -> std::string {
    int const k = depth == 0 ? pick(4) : pick(11);
    static char const* const cmp[] = {"fp.leq", "fp.lt", "fp.eq", "=", "fp.gt"};
    static char const* const cls[] = {"fp.isNaN",      "fp.isZero",     "fp.isSubnormal",
                                      "fp.isNegative", "fp.isInfinite", "fp.isNormal"};
    if (k == 0) return std::string("(") + cmp[pick(5)] + " " + term(1) + " " + term(1) + ")";
    if (k == 1) return std::string("(") + cls[pick(6)] + " " + term(1) + ")";
    if (k < 4) return "b" + std::to_string(pick(3));
    if (k == 4) return "(not " + formula(depth - 1) + ")";
    if (k == 5)
      return "(ite " + formula(depth - 1) + " " + formula(depth - 1) + " " + formula(depth - 1) +
             ")";
    static char const* const conn[] = {"or", "or", "xor", "=>", "="};
    return std::string("(") + conn[k - 6] + " " + formula(depth - 1) + " " + formula(depth - 1) +
           ")";
  };
  std::string s =
      "(declare-const b0 Bool)(declare-const b1 Bool)(declare-const b2 Bool)"
      "(declare-const x0 (_ FloatingPoint 2 3))(declare-const x1 (_ FloatingPoint 2 3))";
  for (int i = 1 + pick(3); i >= 0; --i)
    s += "(assert " + formula(3) + ")";
  return s;
}

// Every assignment of the inputs, each completed (the Defs' exact values)
// and loaded into an evaluator, which then evaluates exactly; f sees each.
void for_each_assignment(Problem const& p, std::function<void(Evaluator<mpz_class> const&)> f) {
  Evaluator<mpz_class> ev(p);
  std::vector<int> inputs;
  for (std::size_t v = 0; v < p.vars.size(); ++v)
    if (p.vars[v].def < 0) inputs.push_back(static_cast<int>(v));
  std::vector<mpz_class> at(inputs.size());
  auto first = [&](int v) { return ev.format_of_var(v).nan; };
  auto last = [&](int v) {
    return p.vars[v].is_bool ? mpz_class(first(v) + 1) : ev.format_of_var(v).pinf;
  };
  for (std::size_t i = 0; i < inputs.size(); ++i)
    at[i] = first(inputs[i]);
  for (;;) {
    std::vector<IEEEFloat> model;
    for (std::size_t v = 0, i = 0; v < p.vars.size(); ++v)
      model.push_back(i < inputs.size() && inputs[i] == static_cast<int>(v)
                          ? value_of(at[i++], p.vars[v].fmt)
                          : IEEEFloat::nan(p.vars[v].fmt));
    complete_model(p, model);
    for (std::size_t v = 0; v < model.size(); ++v) {
      mpz_class const r = rank_of<mpz_class>(canonical(model[v]));
      ev.cur[v] = {r, r};
    }
    f(ev);
    std::size_t i = 0;
    for (; i < inputs.size() && at[i] == last(inputs[i]); ++i)
      at[i] = first(inputs[i]);
    if (i == inputs.size()) return;
    at[i] += 1;
  }
}

TEST(AtomDecisions, LearnedClausesHoldInEveryModelAndAnswersMatchEnumeration) {
  std::mt19937 rng(11);
  int sat = 0, unsat = 0, clauses = 0, atom_literals = 0, atom_decisions = 0;
  for (int i = 0; i < 40; ++i) {
    std::string const text = boolean_rich_script(rng);
    Problem p;
    test::elaborate_script(p, text);
    std::vector<std::vector<LearnedLiteral>> learned;
    Options opt;
    opt.check = true;
    opt.probe = false; // sat from the search, so more of it is exercised
    opt.model_search = false;
    opt.atom_delay = 0; // atom decisions from the start
    opt.learned_clause_hook = [&](std::span<LearnedLiteral const> c) {
      learned.emplace_back(c.begin(), c.end());
    };
    Result const with = solve(p, opt);
    opt.learned_clause_hook = nullptr;
    opt.atom_delay = Options().atom_delay;
    Result const delayed = solve(p, opt);
    opt.atom_decisions = false;
    Result const without = solve(p, opt);
    ASSERT_NE(with.answer, Answer::unknown) << text;
    ASSERT_EQ(with.answer, without.answer) << text;
    ASSERT_EQ(delayed.answer, without.answer) << text;
    ASSERT_EQ(with.model.size(), with.answer == Answer::sat ? p.vars.size() : 0u)
        << "selectors leaked into the model";
    for (Result const* r : {&with, &delayed}) {
      if (r->answer != Answer::sat) continue;
      for (int a : p.assertions)
        ASSERT_TRUE(eval_bool(p, r->model, a)) << "a model fails: " << text;
    }
    atom_decisions += static_cast<int>(with.stats.atom_decisions);
    bool any_model = false;
    for_each_assignment(p, [&](Evaluator<mpz_class> const& ev) {
      if (ev.eval_all(p.assertions) != l_True) return;
      any_model = true;
      for (std::vector<LearnedLiteral> const& c : learned) {
        bool holds = false;
        for (LearnedLiteral const& l : c) {
          if (l.atom >= 0) {
            holds = holds || (ev.eval(l.atom) == l_True) == l.lower;
          } else {
            mpz_class const r = rank_of<mpz_class>(l.value), v = ev.cur[l.var].lo;
            holds = holds || (l.lower ? r <= v : v <= r);
          }
        }
        ASSERT_TRUE(holds) << "a learned clause fails in a model: " << text;
      }
    });
    EXPECT_EQ(any_model, with.answer == Answer::sat) << text;
    (with.answer == Answer::sat ? sat : unsat) += 1;
    clauses += static_cast<int>(learned.size());
    for (auto const& c : learned)
      for (LearnedLiteral const& l : c)
        atom_literals += l.atom >= 0;
  }
  std::printf("[ atoms    ] %d sat, %d unsat, %d atom decisions, %d clauses, %d atom literals\n",
              sat, unsat, atom_decisions, clauses, atom_literals);
  EXPECT_GT(unsat, 6);
  EXPECT_GT(atom_literals, 20); // the clauses do name atoms
}

// Two shapes that made the search enumerate.  The first needs `fp.rem x0
// x0` to miss a constant, which only single values of x0 show; its clauses
// must not keep the splits of x2 and x3 made in between, or each value of
// x0 is refuted again in every box of theirs.  In the second, b0 true
// makes the ite x itself, so `x < x`, which bounds refute one value at a
// time.  Both were unknown after thousands of decisions.
TEST(AtomDecisions, UnrelatedSplitsLeaveClausesAndSettledItesEqualTheirBranch) {
  char const* const scripts[] = {
      "(declare-fun x0 () (_ FloatingPoint 3 5))(declare-fun x2 () (_ FloatingPoint 3 5))"
      "(declare-fun x3 () (_ FloatingPoint 3 5))(declare-fun b0 () Bool)"
      "(assert (not (and (not (or (fp.leq (fp #b0 #b111 #b1110) x2) (= (fp #b0 #b001 #b0110) "
      "(fp.rem x0 x0)))) (=> (fp.isInfinite x3) (xor b0 b0)))))(assert (fp.isSubnormal x3))",
      "(declare-fun x () Float32)(declare-fun b () Bool)"
      "(assert (fp.lt x (ite b x ((_ to_fp 8 24) RTZ (- 3.0)))))(assert (or b (fp.isPositive x)))"};
  for (char const* text : scripts) {
    Problem p;
    test::elaborate_script(p, text);
    Options opt;
    opt.max_decisions = 3000;
    opt.timeout = 20;
    EXPECT_EQ(solve(p, opt).answer, Answer::unsat) << text;
  }
}

} // namespace
} // namespace fpsolve
