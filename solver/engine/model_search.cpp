// The model search (see model_search.h).
//
// The point moves one input at a time along the packed order: a line search
// with steps of 1, 2, 4, ... units in the last place while the distance
// falls, then halved steps down to one unit, which walks to the value where
// a comparison's sides meet (a product that must hit a constant is found by
// the ulp walk around the real solution).  When no input moves, random
// jumps of one or two inputs by 2^k units are kept if the distance does not
// grow (plateaus such as "these two results differ" give no slope); when
// that stops helping the search restarts: from the node's candidate picks,
// the seed (the probe's values), the lower ends, the upper ends, random
// ranks, values near one, in turn over the runs.
#include "engine/model_search.h"

#include <algorithm>
#include <cmath>

namespace fpsolve {

namespace {

// The largest jump, as a power of two of units in the last place: wide
// enough to cross any format's range in a few steps, small enough that a
// rank plus a step stays within 128-bit ranks.
constexpr unsigned max_jump_log = 120;

// Whether to - from <= step, for from <= to, without overflow: the two
// ends of a 128-bit format's ranks lie further apart than the signed range.
bool within(i128 from, i128 to, i128 step) {
  using u128 = qorv::URank128;
  return static_cast<u128>(to) - static_cast<u128>(from) <= static_cast<u128>(step);
}
bool within(mpz_class const& from, mpz_class const& to, mpz_class const& step) {
  return to - from <= step;
}
constexpr unsigned restart_kinds = 7;

} // namespace

template <class R>
ModelSearch<R>::ModelSearch(SearchContext& ctx, TrailCache<R> const& tc, Candidates<R>& candidates)
    : ctx_(ctx), tc_(tc), candidates_(candidates) {}

template <class R>
bool ModelSearch<R>::due() {
  std::uint64_t const decisions = ctx_.stats.decisions;
  if (decisions < next_) return false;
  next_ = std::max<std::uint64_t>(1, 2 * decisions);
  return true;
}

template <class R>
bool ModelSearch<R>::in_cone(int v, int o, std::vector<char>& seen) const {
  int const w = ctx_.p.operands[o].var;
  if (w < 0 || seen[w]) return false;
  seen[w] = 1;
  if (w == v) return true;
  for (auto const& [view, target] : links_)
    if (ctx_.p.operands[view].var == w && in_cone(v, target, seen)) return true;
  int const d = ctx_.p.vars[w].def;
  if (d < 0) return false;
  Def const& def = ctx_.p.defs[d];
  if (def.op == FpOp::ite) return true; // its condition is not followed: assume the worst
  for (int a : def.args)
    if (in_cone(v, a, seen)) return true;
  return def.rm >= 0 && in_cone(v, def.rm, seen);
}

template <class R>
void ModelSearch<R>::find_links() {
  linked_ = true;
  Problem const& p = ctx_.p;
  std::vector<int> stack(ctx_.roots.begin(), ctx_.roots.end()), equalities;
  std::vector<char> seen_node(p.nodes.size(), 0), follows(p.vars.size(), 0);
  while (!stack.empty()) {
    int const n = stack.back();
    stack.pop_back();
    if (seen_node[n]) continue;
    seen_node[n] = 1;
    Node const& nd = p.nodes[n];
    if (nd.op == Op::and_)
      stack.insert(stack.end(), nd.kids.begin(), nd.kids.end());
    else if (nd.op == Op::ident || nd.op == Op::fp_eq)
      equalities.push_back(n);
  }
  auto input = [&](int o) { return p.operands[o].var >= 0 && p.vars[p.operands[o].var].def < 0; };
  // Targets in order of preference: a term or a constant, an input that
  // already follows, any input.
  auto link = [&](int view, int o, int target) {
    Operand const& a = p.operands[view];
    if (a.var < 0 || a.abs || !ctx_.relevant[a.var] || p.vars[a.var].def >= 0 ||
        p.vars[a.var].is_rm || follows[a.var] || input(o) != (target > 0) ||
        (target == 1 && !follows[p.operands[o].var]))
      return false;
    std::vector<char> seen(p.vars.size(), 0);
    if (in_cone(a.var, o, seen)) return false;
    follows[a.var] = 1;
    links_.emplace_back(view, o);
    return true;
  };
  std::vector<char> done(p.nodes.size(), 0);
  for (int target = 0; target < 3; ++target)
    for (bool grew = true; grew;) {
      grew = false;
      for (int n : equalities)
        if (!done[n] &&
            (link(p.nodes[n].a, p.nodes[n].b, target) || link(p.nodes[n].b, p.nodes[n].a, target)))
          done[n] = 1, grew = target == 1; // a new follower may be a target
    }
  // An input that follows an input follows that one's target instead where
  // no sign changes on the way: a chain of equal inputs (a loop's variable
  // copied from one unrolled step to the next) then ends at one term, each
  // link is set as soon as its term is computed, and a move recomputes only
  // the slice it changes (Distance::follow) rather than the whole problem,
  // several times over.
  std::vector<int> link_of(p.vars.size(), -1);
  for (std::size_t l = 0; l < links_.size(); ++l)
    link_of[p.operands[links_[l].first].var] = static_cast<int>(l);
  for (auto& [view, o] : links_)
    for (std::size_t hops = 0; hops < links_.size() && input(o); ++hops) {
      int const l = link_of[p.operands[o].var];
      if (l < 0 || p.operands[o].neg || p.operands[o].abs || p.operands[links_[l].first].neg) break;
      o = links_[l].second;
    }
  for (auto const& [view, o] : links_)
    dist_->follow(view, o);
}

template <class R>
void ModelSearch<R>::collect_inputs() {
  inputs_.clear();
  for (std::size_t i = 0; i < ctx_.p.vars.size(); ++i) {
    int const v = static_cast<int>(i);
    if (!ctx_.relevant[v] || ctx_.p.vars[v].def >= 0) continue;
    auto const& c = tc_.ev.cur[v];
    R const nan = tc_.ev.format_of_var(v).nan;
    Input in{v, mx(c.lo, R(nan + 1)), c.hi, c.lo == nan};
    // A Boolean is true on every non-NaN rank: one stands for all of them.
    if (ctx_.p.vars[v].is_bool && !(in.hi < in.lo)) in.hi = in.lo;
    put(in, candidates_.pick(v));
    if ((in.lo == in.hi && !in.nan) || dist_->follows(v)) continue; // not searched
    if (in.hi < in.lo) in.lo = in.hi = nan;                         // only NaN
    inputs_.push_back(in);
  }
}

template <class R>
void ModelSearch<R>::put(Input const& in, R const& r) {
  dist_->set(in.var, value_of<R>(r, ctx_.p.vars[in.var].fmt));
}

template <class R>
double ModelSearch<R>::evaluate() {
  ++evals_;
  ++ctx_.stats.model_search_evals;
  std::uint64_t const before = dist_->computed();
  dist_->complete();
  work_ += 1 + (dist_->computed() - before);
  return dist_->of_roots(ctx_.roots);
}

template <class R>
R ModelSearch<R>::random_rank(R const& lo, R const& hi) {
  mpz_class l, h, w;
  rank_to_mpz(lo, &l);
  rank_to_mpz(hi, &h);
  for (int i = 0; i < 3; ++i)
    w = (w << 64) + mpz_class(static_cast<unsigned long>(rng_()));
  mpz_class const span = h - l + 1;
  mpz_class const z = l + w % span;
  R r;
  rank_from_mpz(z.get_mpz_t(), &r);
  return r;
}

template <class R>
void ModelSearch<R>::restart(unsigned kind) {
  // Values of magnitude 2^-8 .. 2^8 with a random fraction: where programs'
  // constants and the real solutions of their tests lie; all positive in
  // half of the restarts, and in kind 6 one value for every input (chains
  // of operations on similar values, such as repeated division, are met
  // first where all their inputs are alike).
  bool const positive = rng_() % 2;
  auto near_one = [&](bool plus) {
    double const frac = 1.0 + static_cast<double>(rng_() >> 11) / 9007199254740992.0;
    int const exp = static_cast<int>(rng_() % 17) - 8;
    return (plus || rng_() % 2 ? 1 : -1) * frac * std::ldexp(1.0, exp);
  };
  double const same = near_one(true);
  for (Input const& in : inputs_) {
    R r = candidates_.pick(in.var);
    IEEEFloat::format const f = ctx_.p.vars[in.var].fmt;
    if (kind == 1 && static_cast<std::size_t>(in.var) < seed_.size())
      r = rank_of<R>(canonical(seed_[in.var]));
    else if (kind == 2)
      r = in.lo;
    else if (kind == 3)
      r = in.hi;
    else if (kind == 4)
      r = ctx_.p.vars[in.var].is_bool && in.nan && rng_() % 2 ? dist_->format_of_var(in.var).nan
                                                              : random_rank(in.lo, in.hi);
    else if (kind >= 5 && !ctx_.p.vars[in.var].is_bool && !ctx_.p.vars[in.var].is_rm)
      r = rank_of<R>(IEEEFloat::from_double(kind == 5 ? near_one(positive) : same, f));
    if (!(in.lo == in.hi)) r = mn(mx(r, in.lo), in.hi);
    put(in, r);
  }
  ++ctx_.stats.model_search_restarts;
  cur_ = evaluate();
}

template <class R>
bool ModelSearch<R>::descend(Input const& in) {
  bool moved = false;
  if (ctx_.p.vars[in.var].is_bool) {
    // False is the NaN rank, true the one rank in.lo stands for.
    R const r = dist_->rank(in.var), nan = dist_->format_of_var(in.var).nan;
    if (!in.nan || in.lo == nan) return false; // only one value
    R const other = r == nan ? in.lo : nan;
    put(in, other);
    double const d = evaluate();
    if (d < cur_) {
      cur_ = d;
      return true;
    }
    put(in, r);
    return false;
  }
  if (in.lo == in.hi) return false;
  for (int dir : {1, -1}) {
    R step = 1;
    bool grow = true;
    while (!spent() && cur_ > 0 && step > 0) {
      R const r = dist_->rank(in.var);
      R cand = r;
      if (dir > 0)
        cand = r >= in.hi || within(r, in.hi, step) ? in.hi : R(r + step);
      else
        cand = r <= in.lo || within(in.lo, r, step) ? in.lo : R(r - step);
      double d = cur_;
      if (!(cand == r)) {
        put(in, cand);
        d = evaluate();
      }
      if (d < cur_) {
        cur_ = d;
        moved = true;
        if (grow && step < (R(1) << max_jump_log)) step *= 2;
      } else {
        if (!(cand == r)) put(in, r);
        grow = false;
        step /= 2;
      }
    }
  }
  return moved;
}

template <class R>
bool ModelSearch<R>::perturb() {
  std::size_t const n = inputs_.size();
  for (std::size_t t = 0; t < 2 * n + 2 && !spent(); ++t) {
    Input const* moved[2] = {&inputs_[rng_() % n], nullptr};
    if (n > 1 && rng_() % 2) moved[1] = &inputs_[rng_() % n];
    R old[2];
    for (int k = 0; k < 2 && moved[k]; ++k) {
      Input const& in = *moved[k];
      old[k] = dist_->rank(in.var);
      IEEEFloat::format const f = ctx_.p.vars[in.var].fmt;
      unsigned const bits =
          static_cast<unsigned>(std::min<std::uint64_t>(f.eb + f.sb, max_jump_log));
      R const step = R(1) << static_cast<unsigned>(rng_() % (bits / (1 + rng_() % 4) + 1));
      R const r = old[k];
      R cand = r;
      if (ctx_.p.vars[in.var].is_bool)
        cand = r == in.lo && in.nan ? dist_->format_of_var(in.var).nan : in.lo;
      else if (rng_() % 2)
        cand = r >= in.hi || within(r, in.hi, step) ? in.hi : R(r + step);
      else
        cand = r <= in.lo || within(in.lo, r, step) ? in.lo : R(r - step);
      put(in, cand);
    }
    double const d = evaluate();
    if (d <= cur_) {
      cur_ = d;
      return true;
    }
    for (int k = 1; k >= 0; --k)
      if (moved[k]) put(*moved[k], old[k]);
  }
  return false;
}

template <class R>
bool ModelSearch<R>::search(std::vector<IEEEFloat> const* seed, std::vector<IEEEFloat>* out) {
  PhaseTimer const timer(ctx_.stats.model_search_time);
  ++runs_;
  ++ctx_.stats.model_searches;
  evals_ = 0;
  seed_ = seed ? *seed : std::vector<IEEEFloat>{};
  // The budget, in Def computations (an evaluation recomputes the Defs
  // that read the inputs it moved): a fixed part, all of it at the first
  // run and an eighth at later ones, of `model-search-evals` whole
  // evaluations but at most 2^20 computations, so that a problem of many
  // Defs pays no more at the root than a small one; plus one computation
  // for every 2 bounds the propagation asserted since the last run (a bound
  // costs at least one projection of one Def), which keeps the search's
  // share of the time roughly constant.  Counts, not time, so runs repeat.
  std::uint64_t defs = 1;
  for (Def const& d : ctx_.p.defs)
    defs += ctx_.relevant[d.var] ? 1 : 0;
  std::uint64_t const fixed =
      std::min<std::uint64_t>(ctx_.opt.model_search_evals * defs, std::uint64_t{1} << 20);
  std::uint64_t const propagated = ctx_.stats.propagations - propagations_at_last_;
  propagations_at_last_ = ctx_.stats.propagations;
  budget_ = (runs_ == 1 ? fixed : fixed / 8) + propagated / 2;
  work_at_start_ = work_;
  if (!dist_) dist_.emplace(ctx_.p, ctx_.relevant);
  if (!linked_) find_links();
  collect_inputs();
  restart(restart_kind_++ % restart_kinds);
  double best = cur_;
  unsigned stale = 0;
  std::size_t offset = 0;
  while (!spent()) {
    if (cur_ == 0) {
      candidates_.model_into(out);
      std::vector<IEEEFloat> const& vals = dist_->values();
      for (std::size_t v = 0; v < out->size(); ++v)
        if (ctx_.relevant[v]) (*out)[v] = vals[v];
      if (candidates_.verify(*out)) return true;
      // A point the model check refuses (an unspecified result chosen
      // otherwise there): start elsewhere.
      restart(restart_kind_++ % restart_kinds);
      best = cur_;
      stale = 0;
      continue;
    }
    bool moved = false;
    for (std::size_t i = 0; i < inputs_.size() && cur_ > 0 && !spent(); ++i)
      moved = descend(inputs_[(offset + i) % inputs_.size()]) || moved;
    offset = inputs_.empty() ? 0 : (offset + 1) % inputs_.size();
    if (cur_ == 0) continue;
    if (!moved && !inputs_.empty()) perturb();
    if (cur_ < best) {
      best = cur_;
      stale = 0;
    } else if (inputs_.empty() || ++stale > 16) {
      if (inputs_.empty()) break; // one point, and it is not a model
      restart(restart_kind_++ % restart_kinds);
      best = cur_;
      stale = 0;
    }
  }
  return false;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(ModelSearch)

} // namespace fpsolve
