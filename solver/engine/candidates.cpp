// The candidate models of a search node (see candidates.h).
#include "engine/candidates.h"

#include "engine/apply.h"
#include "engine/real_terms.h"

#include <string>

namespace fpsolve {

template <class R>
R Candidates<R>::pick(int v) const {
  auto const& iv = tc_.ev.cur[v];
  FormatRanks<R> const& f = tc_.ev.format_of_var(v);
  bool const relevant = ctx_.relevant[v];
  if (ctx_.p.vars[v].is_bool)
    return relevant && iv.hi > f.nan ? R(f.nan + 1) : f.nan; // true when possible
  if (ctx_.p.vars[v].is_rm) return relevant ? iv.lo : R(0);
  if (iv.lo <= 0 && 0 <= iv.hi) return 0;
  return iv.hi < 0 ? iv.hi : iv.lo;
}

template <class R>
std::vector<IEEEFloat> Candidates<R>::model() const {
  std::vector<IEEEFloat> m;
  model_into(&m);
  return m;
}

template <class R>
void Candidates<R>::model_into(std::vector<IEEEFloat>* m) const {
  std::size_t const n = ctx_.p.vars.size();
  m->resize(n);
  for (std::size_t v = 0; v < n; ++v)
    (*m)[v] = value_of(pick(static_cast<int>(v)), ctx_.p.vars[v].fmt);
}

template <class R>
bool Candidates<R>::verify(std::vector<IEEEFloat>& m) {
  PhaseTimer const timer(ctx_.stats.check_time);
  ++ctx_.stats.model_checks;
  std::string why;
  if (ctx_.p.has_reals()) {
    std::vector<mpq_class> inputs = ctx_.real_inputs;
    return verify_reals(ctx_.p, m, inputs, &why, &ctx_.relevant);
  }
  return verify_model(ctx_.p, m, &why, &ctx_.relevant);
}

template <class R>
bool Candidates<R>::completion_differs(std::vector<IEEEFloat>& m) {
  PhaseTimer const timer(ctx_.stats.check_time);
  ++ctx_.stats.model_checks;
  if (ctx_.p.has_reals()) {
    std::vector<mpq_class> inputs = ctx_.real_inputs;
    return complete_reals(ctx_.p, m, inputs, &ctx_.relevant);
  }
  return complete_model(ctx_.p, m, nullptr, &ctx_.relevant);
}

template <class R>
bool Candidates<R>::try_candidate(std::vector<IEEEFloat>* out) {
  model_into(out);
  if (ctx_.p.defs.empty() && !ctx_.p.has_reals())
    return true; // evaluation over the intervals was exact enough
  return verify(*out);
}

template <class R>
bool Candidates<R>::all_single() const {
  // Selectors are no inputs of the model: only the problem's own variables count.
  for (int v = 0; v < ctx_.first_selector; ++v)
    if (ctx_.relevant[v] && !(tc_.ev.cur[v].lo == tc_.ev.cur[v].hi)) return false;
  return true;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(Candidates)

} // namespace fpsolve
