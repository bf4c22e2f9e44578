// The public entry points (see solve.h): the choice of rank type, and the
// exact evaluation of models.
#include "engine/solve.h"

#include "engine/apply.h"
#include "engine/search.h"

#include <cassert>

namespace fpsolve {

namespace {

template <class R>
void load_model(Evaluator<R>& ev, std::vector<IEEEFloat> const& model) {
  for (std::size_t v = 0; v < model.size(); ++v) {
    R r = rank_of<R>(canonical(model[v]));
    ev.cur[v] = {r, r};
  }
}

} // namespace

Result solve(Problem& p, Options const& options) {
  // Both rank types run the same search; GMP ranks on request let tests
  // compare the two paths on the same problems.
  if (!options.big_ranks && ranks_fit_128(p)) return Search<i128>(p, options).run();
  return Search<mpz_class>(p, options).run();
}

bool eval_bool(Problem const& p, std::vector<IEEEFloat> const& given, int node) {
  std::vector<IEEEFloat> model = given;
  complete_model(p, model);
  Evaluator<mpz_class> ev(p);
  load_model(ev, model);
  lbool const v = ev.eval(node);
  assert(v != l_Undef && "a model gives every atom a truth value");
  return v == l_True;
}

IEEEFloat eval_fp(Problem const& p, std::vector<IEEEFloat> const& given, int operand) {
  std::vector<IEEEFloat> model = given;
  complete_model(p, model);
  return operand_value(p, model, operand);
}

} // namespace fpsolve
