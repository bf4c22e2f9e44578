// The distance of a point from satisfying the assertions (see distance.h).
#include "engine/distance.h"

#include "engine/apply.h"

#include "host/fp_arith.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace fpsolve {

namespace {

// b - a for a <= b, as a double truncated toward zero: the difference of
// two 128-bit ranks may exceed the signed range, never the unsigned one,
// and both rank types truncate alike (mpz_get_d truncates), so that the
// narrow and the GMP ranks take the same steps.
double difference(i128 a, i128 b) {
  using u128 = qorv::URank128;
  u128 const d = static_cast<u128>(b) - static_cast<u128>(a);
  auto const hi = static_cast<std::uint64_t>(d >> 64), lo = static_cast<std::uint64_t>(d);
  int const length = hi ? 128 - __builtin_clzll(hi) : lo ? 64 - __builtin_clzll(lo) : 0;
  if (length <= 53) return static_cast<double>(lo);
  int const shift = length - 53;
  return std::ldexp(static_cast<double>(static_cast<std::uint64_t>(d >> shift)), shift);
}
double difference(mpz_class const& a, mpz_class const& b) {
  return mpz_class(b - a).get_d();
}

// The gap b - a between keys or ranks (0 when b <= a) as log2(1 + gap):
// a comparison of Float64 values is otherwise 2^29 times as far as the same
// comparison in Float32, and one far comparison would outweigh every near
// one, drawing the search to the ends of the range.  One unit in the last
// place still costs exactly 1.
template <class R>
double gap(R const& a, R const& b) {
  return b < a ? 0.0 : std::log2(1.0 + difference(a, b));
}

} // namespace

template <class R>
Distance<R>::Distance(Problem const& problem, std::vector<char> const& relevant)
    : p_(problem), relevant_(relevant), ev_(problem), memo_(problem.nodes.size()),
      stamp_(problem.nodes.size(), 0), follows_(problem.vars.size(), 0) {
  val_.reserve(p_.vars.size());
  for (Var const& v : p_.vars)
    val_.push_back(v.is_rm ? rm_value(IEEEFloat::rm_nearest_even) : IEEEFloat::zero(v.fmt, false));
  for (std::size_t v = 0; v < p_.vars.size(); ++v)
    set(static_cast<int>(v), val_[v]);
}

template <class R>
void Distance<R>::set(int v, IEEEFloat const& value) {
  store(v, value);
  if (p_.vars[v].def < 0) changed_.push_back(v);
}

template <class R>
void Distance<R>::store(int v, IEEEFloat const& value) {
  val_[v] = canonical(value);
  R const r = rank_of<R>(val_[v]);
  ev_.cur[v] = {r, r};
}

template <class R>
void Distance<R>::follow(int view, int o) {
  links_.emplace_back(view, o);
  follows_[p_.operands[view].var] = 1;
  // One pass suffices when every link's target is a Def and every Def that
  // reads a following input comes after its target's Def: the input is set
  // as soon as its target is computed.  An ite's condition may read any
  // variable, so an ite before a target counts as a reader.
  std::vector<int> def_of_var(p_.vars.size(), -1);
  for (std::size_t d = 0; d < p_.defs.size(); ++d)
    def_of_var[p_.defs[d].var] = static_cast<int>(d);
  after_def_.assign(p_.defs.size(), {});
  one_pass_ = true;
  for (std::size_t l = 0; l < links_.size(); ++l) {
    int const target = p_.operands[links_[l].second].var;
    int const d = target < 0 ? -1 : def_of_var[target];
    if (d < 0) {
      one_pass_ = false; // a constant or an input: set before the pass
      continue;
    }
    after_def_[d].push_back(static_cast<int>(l));
    int const v = p_.operands[links_[l].first].var;
    for (int e = 0; e <= d && one_pass_; ++e) {
      Def const& df = p_.defs[e];
      bool reads = df.op == FpOp::ite || (df.rm >= 0 && p_.operands[df.rm].var == v);
      for (int a : df.args)
        reads = reads || p_.operands[a].var == v;
      one_pass_ = !reads;
    }
  }
}

template <class R>
bool Distance<R>::apply_link(std::size_t l) {
  auto const& [view, o] = links_[l];
  int const v = p_.operands[view].var;
  IEEEFloat x = operand_value(p_, val_, o);
  if (p_.operands[view].neg && !x.is_nan()) x = qorv::swflt::neg(x);
  x = canonical(x);
  if (rank_of<R>(x) == ev_.cur[v].lo) return false;
  store(v, x);
  changed_.push_back(v);
  return true;
}

template <class R>
void Distance<R>::complete() {
  for (std::size_t pass = 0; pass < 4; ++pass) {
    compute_defs();
    if (one_pass_) break;
    bool changed = false;
    for (std::size_t l = 0; l < links_.size(); ++l)
      changed = apply_link(l) || changed;
    if (!changed) break;
  }
  ++epoch_;
}

template <class R>
void Distance<R>::compute_def(std::size_t i) {
  ++computed_;
  Def const& d = p_.defs[i];
  IEEEFloat::format const to = p_.vars[d.var].fmt;
  if (d.op == FpOp::ite) {
    store(d.var, operand_value(p_, val_, d.args[ev_.eval(d.cond) == l_True ? 0 : 1]));
  } else {
    std::vector<IEEEFloat> args;
    args.reserve(d.args.size());
    for (int o : d.args)
      args.push_back(operand_value(p_, val_, o));
    auto const rm =
        d.rm >= 0 ? rm_of_value(operand_value(p_, val_, d.rm)) : IEEEFloat::rm_nearest_even;
    // An unspecified result (min or max of two zeros) takes +0, as the
    // model's completion does when nothing else was proposed.
    std::optional<IEEEFloat> const r = apply_op(d.op, rm, args, to);
    store(d.var, r ? *r : IEEEFloat::zero(to, false));
  }
  if (!after_def_.empty())
    for (int l : after_def_[i])
      apply_link(static_cast<std::size_t>(l));
}

template <class R>
void Distance<R>::compute_defs() {
  if (readers_.empty()) {
    // Which relevant Defs read each variable; an ite's condition may read
    // any, so with an ite every completion is a whole one.
    readers_.resize(p_.vars.size());
    for (std::size_t i = 0; i < p_.defs.size(); ++i) {
      Def const& d = p_.defs[i];
      if (!relevant_[d.var]) continue;
      whole_ = whole_ || d.op == FpOp::ite;
      for (int o : d.args)
        if (p_.operands[o].var >= 0) readers_[p_.operands[o].var].push_back(static_cast<int>(i));
      if (d.rm >= 0 && p_.operands[d.rm].var >= 0)
        readers_[p_.operands[d.rm].var].push_back(static_cast<int>(i));
    }
    mark_.assign(p_.defs.size(), 0);
  }
  // The first completion is a whole one: a Def of constants reads no input.
  if (whole_ || !one_pass_ || !completed_) {
    for (std::size_t i = 0; i < p_.defs.size(); ++i)
      if (relevant_[p_.defs[i].var]) compute_def(i);
    changed_.clear();
    completed_ = true;
    return;
  }
  // Only the Defs that read a changed input, directly or through other
  // Defs and following inputs, in the problem's order: a move of one input
  // of a program with many recomputes one slice of it.
  ++mark_epoch_;
  std::vector<int> todo, cone;
  todo.swap(changed_);
  while (!todo.empty()) {
    int const v = todo.back();
    todo.pop_back();
    for (int d : readers_[v]) {
      if (mark_[d] == mark_epoch_) continue;
      mark_[d] = mark_epoch_;
      cone.push_back(d);
      todo.push_back(p_.defs[d].var);
      for (int l : after_def_.empty() ? std::vector<int>{} : after_def_[d])
        todo.push_back(p_.operands[links_[l].first].var);
    }
  }
  std::sort(cone.begin(), cone.end());
  for (int d : cone)
    compute_def(static_cast<std::size_t>(d));
  changed_.clear(); // the following inputs set above are already covered
}

template <class R>
double Distance<R>::of_roots(std::vector<int> const& roots) {
  double sum = 0;
  for (int r : roots)
    sum += to_true(r);
  return sum;
}

template <class R>
std::pair<double, double> Distance<R>::node(int n) {
  if (stamp_[n] == epoch_) return memo_[n];
  Node const& nd = p_.nodes[n];
  std::pair<double, double> d{0.0, 0.0};
  switch (nd.op) {
  case Op::t:
    d = {0.0, nan_cost};
    break;
  case Op::f:
    d = {nan_cost, 0.0};
    break;
  case Op::bvar:
    d = ev_.eval(n) == l_True ? std::pair{0.0, 1.0} : std::pair{1.0, 0.0};
    break;
  case Op::not_: {
    auto const k = node(nd.kids[0]);
    d = {k.second, k.first};
    break;
  }
  case Op::and_:
  case Op::or_: {
    // and: true needs every operand (sum), false needs one (least); or the
    // other way round.
    double sum = 0, least = std::numeric_limits<double>::infinity();
    bool const is_and = nd.op == Op::and_;
    for (int k : nd.kids) {
      auto const c = node(k);
      sum += is_and ? c.first : c.second;
      least = std::min(least, is_and ? c.second : c.first);
    }
    d = is_and ? std::pair{sum, least} : std::pair{least, sum};
    break;
  }
  case Op::xor_:
  case Op::iff: {
    // The value flips when one operand flips; one of each operand's two
    // distances is 0, so the other is their sum.
    bool parity = nd.op == Op::iff;
    double flip = std::numeric_limits<double>::infinity();
    for (int k : nd.kids) {
      auto const c = node(k);
      parity ^= c.first == 0;
      flip = std::min(flip, c.first + c.second);
    }
    d = parity ? std::pair{0.0, flip} : std::pair{flip, 0.0};
    break;
  }
  case Op::ite: {
    auto const c = node(nd.kids[0]), a = node(nd.kids[1]), b = node(nd.kids[2]);
    d = {std::min(c.first + a.first, c.second + b.first),
         std::min(c.first + a.second, c.second + b.second)};
    break;
  }
  default:
    d = atom(nd);
  }
  stamp_[n] = epoch_;
  memo_[n] = d;
  return d;
}

template <class R>
std::pair<double, double> Distance<R>::atom(Node const& nd) const {
  Set<R> const a = ev_.img(nd.a);
  switch (nd.op) {
  case Op::leq:
  case Op::lt:
  case Op::fp_eq: {
    Set<R> const b = ev_.img(nd.b);
    if (a.nan || b.nan) return {nan_cost, 0.0};
    R const ka = key(a.lo), kb = key(b.lo);
    if (nd.op == Op::leq) return {gap(kb, ka), gap(ka, R(kb + 1))};
    if (nd.op == Op::lt) return {gap(kb, R(ka + 1)), gap(ka, kb)};
    return {gap(ka, kb) + gap(kb, ka), ka == kb ? 1.0 : 0.0};
  }
  case Op::ident: {
    Set<R> const b = ev_.img(nd.b);
    if (a.nan && b.nan) return {0.0, nan_cost}; // one side must leave NaN
    if (a.nan || b.nan) return {nan_cost, 0.0};
    return {gap(a.lo, b.lo) + gap(b.lo, a.lo), a.lo == b.lo ? 1.0 : 0.0};
  }
  case Op::is_nan:
    return a.nan ? std::pair{0.0, 1.0} : std::pair{nan_cost, 0.0};
  default: {
    if (a.nan) return {nan_cost, 0.0};
    auto const& ranges =
        ev_.format_of_operand(nd.a).holds[static_cast<int>(nd.op) - static_cast<int>(Op::is_inf)];
    double to_in = std::numeric_limits<double>::infinity(), to_out = to_in;
    for (auto const& [lo, hi] : ranges) {
      if (lo <= a.lo && a.lo <= hi) {
        to_in = 0;
        to_out = std::min(to_out, std::min(gap(lo, R(a.lo + 1)), gap(a.lo, R(hi + 1))));
      } else {
        to_in = std::min(to_in, a.lo < lo ? gap(a.lo, lo) : gap(hi, a.lo));
      }
    }
    return {to_in, to_in > 0 ? 0.0 : to_out};
  }
  }
}

FPSOLVE_INSTANTIATE_FOR_RANKS(Distance)

} // namespace fpsolve
