// The incremental simplex against GLPK's exact simplex (glp_exact) on the
// work a search gives a linear-arithmetic decision procedure: push a level,
// tighten a bound, check, and on a conflict pop back a few levels.  Both run
// the same sequence (non-strict bounds: GLPK has no strict ones) and must
// agree on every answer.  GLPK keeps its basis between calls (a warm start)
// but reports an infeasible system without saying which bounds clash, so
// its conflicts are explained here by deletion: each bound dropped in turn
// and the rest re-solved, one exact solve per bound; the time per
// explanation is reported apart.
//
//   simplex_vs_glpk [vars rows steps seed]
#include "engine/simplex.h"

#include <glpk.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

namespace {

using fpsolve::DeltaRational;
using fpsolve::Simplex;
// Processor time of this thread: the machine may be shared, so wall time
// would measure the neighbours too.
struct Clock {
  using duration = std::chrono::nanoseconds;
  using time_point = std::chrono::time_point<Clock, duration>;
  static time_point now() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return time_point(duration(std::int64_t{t.tv_sec} * 1000000000 + t.tv_nsec));
  }
};

struct Bound {
  int column; // 0..vars-1: a variable, vars..vars+rows-1: a row
  bool upper;
  int value;
};

// GLPK's LP: structural columns are the variables, rows their forms; every
// bound is set again before each solve (what a search would do after a pop).
class Glpk {
public:
  Glpk(int vars, std::vector<std::vector<std::pair<int, int>>> const& rows) : vars_(vars) {
    glp_term_out(GLP_OFF);
    lp_ = glp_create_prob();
    glp_add_cols(lp_, vars);
    glp_add_rows(lp_, static_cast<int>(rows.size()));
    for (int j = 1; j <= vars; ++j)
      glp_set_col_bnds(lp_, j, GLP_FR, 0, 0);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      std::vector<int> idx{0};
      std::vector<double> val{0};
      for (auto [v, c] : rows[i]) {
        idx.push_back(v + 1);
        val.push_back(c);
      }
      int const r = static_cast<int>(i) + 1;
      glp_set_mat_row(lp_, r, static_cast<int>(idx.size()) - 1, idx.data(), val.data());
      glp_set_row_bnds(lp_, r, GLP_FR, 0, 0);
    }
    glp_init_smcp(&parm_);
  }
  ~Glpk() { glp_delete_prob(lp_); }
  Glpk(Glpk const&) = delete;
  Glpk& operator=(Glpk const&) = delete;

  bool feasible(std::vector<Bound> const& bounds, std::size_t skip = SIZE_MAX) {
    int const columns = vars_ + glp_get_num_rows(lp_);
    std::vector<double> lo(static_cast<std::size_t>(columns), -HUGE_VAL),
        hi(static_cast<std::size_t>(columns), HUGE_VAL);
    for (std::size_t i = 0; i < bounds.size(); ++i) {
      if (i == skip) continue;
      auto const k = static_cast<std::size_t>(bounds[i].column);
      double& b = bounds[i].upper ? hi[k] : lo[k];
      b = bounds[i].upper ? std::min(b, double(bounds[i].value))
                          : std::max(b, double(bounds[i].value));
    }
    for (int k = 0; k < columns; ++k) {
      double const l = lo[static_cast<std::size_t>(k)], h = hi[static_cast<std::size_t>(k)];
      int const type = l == -HUGE_VAL  ? (h == HUGE_VAL ? GLP_FR : GLP_UP)
                       : h == HUGE_VAL ? GLP_LO
                       : l == h        ? GLP_FX
                                       : GLP_DB;
      if (l > h) return false; // crossed bounds: GLPK refuses them as input
      if (k < vars_)
        glp_set_col_bnds(lp_, k + 1, type, l, h);
      else
        glp_set_row_bnds(lp_, k - vars_ + 1, type, l, h);
    }
    if (glp_exact(lp_, &parm_) != 0) std::abort();
    return glp_get_status(lp_) != GLP_NOFEAS;
  }

  // Deletion filter: a minimal infeasible subset of `bounds`.
  std::size_t explain(std::vector<Bound> bounds) {
    for (std::size_t i = 0; i < bounds.size();)
      if (!feasible(bounds, i))
        bounds.erase(bounds.begin() + static_cast<std::ptrdiff_t>(i));
      else
        ++i;
    return bounds.size();
  }

private:
  int vars_;
  glp_prob* lp_;
  glp_smcp parm_;
};

double seconds(Clock::duration d) {
  return std::chrono::duration<double>(d).count();
}

} // namespace

int main(int argc, char** argv) {
  int const vars = argc > 1 ? std::atoi(argv[1]) : 10;
  int const nrows = argc > 2 ? std::atoi(argv[2]) : 10;
  int const steps = argc > 3 ? std::atoi(argv[3]) : 2000;
  std::mt19937 rng(argc > 4 ? static_cast<unsigned>(std::atoi(argv[4])) : 1u);
  auto num = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };

  std::vector<std::vector<std::pair<int, int>>> rows(static_cast<std::size_t>(nrows));
  for (auto& r : rows) // three distinct variables with odd coefficients
    for (int v = num(0, vars - 1); r.size() < 3; v = num(0, vars - 1))
      if (std::none_of(r.begin(), r.end(), [v](auto const& t) { return t.first == v; }))
        r.emplace_back(v, num(-5, 5) | 1);
  Simplex s;
  std::vector<Simplex::Var> column; // GLPK's column k is the simplex's column[k]
  for (int i = 0; i < vars; ++i)
    column.push_back(s.new_var());
  for (auto const& r : rows) {
    std::vector<Simplex::Term> terms;
    for (auto [v, c] : r)
      terms.emplace_back(static_cast<Simplex::Var>(v), c);
    column.push_back(s.add_row(terms));
  }
  Glpk g(vars, rows);

  std::vector<std::vector<Bound>> levels;
  std::vector<Simplex::Reason> conflict;
  Clock::duration ours{}, theirs{}, explaining{};
  int conflicts = 0;
  std::size_t our_size = 0, their_size = 0;
  for (int step = 0; step < steps; ++step) {
    s.push();
    levels.emplace_back();
    // Mostly rows, so that conflicts need the rows and not only two bounds
    // of one column.
    int const at = num(0, 3) == 0 ? num(0, vars - 1) : num(vars, vars + nrows - 1);
    Bound const b{at, num(0, 1) == 1, num(-10, 10)};
    levels.back().push_back(b);
    std::vector<Bound> all;
    for (auto const& l : levels)
      all.insert(all.end(), l.begin(), l.end());

    auto t0 = Clock::now();
    Simplex::Var const v = column[static_cast<std::size_t>(b.column)];
    auto const why = static_cast<Simplex::Reason>(step);
    bool const ok_ours = (b.upper ? s.assert_upper(v, DeltaRational(b.value), why, conflict)
                                  : s.assert_lower(v, DeltaRational(b.value), why, conflict)) &&
                         s.check(conflict);
    auto t1 = Clock::now();
    bool const ok_theirs = g.feasible(all);
    auto t2 = Clock::now();
    ours += t1 - t0;
    theirs += t2 - t1;
    if (ok_ours != ok_theirs) {
      std::printf("disagreement at step %d\n", step);
      return 1;
    }
    if (!ok_ours) {
      ++conflicts;
      our_size += conflict.size();
      auto t3 = Clock::now();
      their_size += g.explain(all);
      explaining += Clock::now() - t3;
      unsigned const back = static_cast<unsigned>(num(1, static_cast<int>(levels.size())));
      s.pop(back);
      levels.resize(levels.size() - back);
    }
  }
  std::printf("%d vars, %d rows, %d checks, %d conflicts, %llu pivots\n", vars, nrows, steps,
              conflicts, static_cast<unsigned long long>(s.pivot_count()));
  std::printf("incremental simplex: %.2f us per check (conflict explained by the row), "
              "mean conflict %.1f bounds\n",
              1e6 * seconds(ours) / steps, conflicts ? double(our_size) / conflicts : 0.0);
  std::printf("glp_exact:           %.2f us per check, no explanation; deletion filter "
              "%.2f us per conflict, mean minimal conflict %.1f bounds\n",
              1e6 * seconds(theirs) / steps,
              conflicts ? 1e6 * seconds(explaining) / conflicts : 0.0,
              conflicts ? double(their_size) / conflicts : 0.0);
  return 0;
}
