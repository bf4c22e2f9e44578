// Decisions on the truth of atoms (see atom_decisions.h).
#include "engine/atom_decisions.h"

#include <string>
#include <utility>

namespace fpsolve {

namespace {

// A Boolean variable or an atom that relates two terms.  An atom on one
// term (a classification, a comparison with a constant or of a term with
// itself) holds on a union of rank ranges of that term: value splits settle
// it as well, and deciding it only cuts the term's interval into pieces that
// the value search then has to refute one by one.
bool relates_terms(Problem const& p, Node const& nd) {
  if (nd.op == Op::bvar) return true;
  if (nd.op < Op::leq || nd.b < 0) return false;
  int const a = p.operands[nd.a].var, b = p.operands[nd.b].var;
  return a >= 0 && b >= 0 && a != b;
}

bool is_connective(Op op) {
  return op >= Op::not_ && op <= Op::iff;
}

} // namespace

AtomSelectors::AtomSelectors(Problem& p, bool enabled)
    : first(static_cast<int>(p.vars.size())), p_(p), vars_(p.vars.size()), nodes_(p.nodes.size()) {
  decidable_of.assign(nodes_, -1);
  if (!enabled) return;
  // The nodes the assertions force through `and` and `not` alone.
  std::vector<char> forced(nodes_, 0);
  std::vector<std::pair<int, bool>> todo;
  for (int r : p.assertions)
    todo.emplace_back(r, true);
  while (!todo.empty()) {
    auto const [n, pol] = todo.back();
    todo.pop_back();
    if (forced[n]) continue;
    forced[n] = 1;
    Node const& nd = p.nodes[n];
    if (nd.op == Op::not_) todo.emplace_back(nd.kids[0], !pol);
    if ((nd.op == Op::and_ && pol) || (nd.op == Op::or_ && !pol))
      for (int k : nd.kids)
        todo.emplace_back(k, pol);
  }
  std::vector<char> cond(nodes_, 0);
  for (Def const& d : p.defs)
    if (d.cond >= 0) cond[d.cond] = 1;
  for (Node const& nd : p.nodes)
    if (nd.op == Op::ite) cond[nd.kids[0]] = 1;
  // Depth-first from the assertions, into the ite conditions of the Defs the
  // atoms reach; the polarity of an occurrence under xor, iff or an ite
  // condition counts as positive.
  std::vector<char> seen(nodes_, 0), def_seen(p.defs.size(), 0);
  for (auto it = p.assertions.rbegin(); it != p.assertions.rend(); ++it)
    todo.emplace_back(*it, true);
  std::vector<int> vars;
  auto reach_var = [&](int v) {
    vars.push_back(v);
    while (!vars.empty()) {
      int const u = vars.back();
      vars.pop_back();
      int const d = u >= 0 ? p.vars[u].def : -1;
      if (d < 0 || def_seen[d]) continue;
      def_seen[d] = 1;
      Def const& df = p.defs[d];
      for (int o : df.args)
        vars.push_back(p.operands[o].var);
      if (df.rm >= 0) vars.push_back(p.operands[df.rm].var);
      if (df.cond < 0) continue;
      def_conds.push_back(df.cond);
      todo.emplace_back(df.cond, true);
    }
  };
  while (!todo.empty()) {
    auto const [n, pol] = todo.back();
    todo.pop_back();
    if (seen[n]) continue;
    seen[n] = 1;
    Node const& nd = p.nodes[n];
    if (!forced[n] && (relates_terms(p, nd) || (cond[n] && is_connective(nd.op)))) {
      decidable_of[n] = static_cast<int>(decidable.size());
      decidable.push_back(Decidable{n, nd.op == Op::bvar ? nd.a : -1, pol});
    }
    if (nd.op >= Op::leq) {
      reach_var(p.operands[nd.a].var);
      if (nd.b >= 0) reach_var(p.operands[nd.b].var);
    }
    for (std::size_t i = nd.kids.size(); i-- > 0;) {
      bool kid_pol = true;
      if (nd.op == Op::not_) kid_pol = !pol;
      if (nd.op == Op::and_ || nd.op == Op::or_ || (nd.op == Op::ite && i > 0)) kid_pol = pol;
      todo.emplace_back(nd.kids[i], kid_pol);
    }
  }
  for (Decidable& d : decidable) {
    if (d.var >= 0) continue; // a Boolean variable is its own selector
    d.var = p.add_var("@a" + std::to_string(d.node), true, {2, 2});
    int const b = p.add_node(Op::bvar, d.var);
    links.push_back(p.add_node(Op::iff, -1, -1, {b, d.node}));
  }
}

AtomSelectors::~AtomSelectors() {
  p_.vars.erase(p_.vars.begin() + static_cast<std::ptrdiff_t>(vars_), p_.vars.end());
  p_.nodes.erase(p_.nodes.begin() + static_cast<std::ptrdiff_t>(nodes_), p_.nodes.end());
}

template <class R>
bool AtomDecider<R>::undetermined(int v) const {
  auto const& c = tc_.ev.cur[v];
  R const& nan = tc_.ev.format_of_var(v).nan;
  return c.lo == nan && nan < c.hi;
}

template <class R>
void AtomDecider<R>::walk(int root) {
  Evaluator<R> const& ev = tc_.ev;
  std::vector<int>& todo = todo_;
  todo.assign(1, root);
  while (!todo.empty()) {
    int const n = todo.back();
    todo.pop_back();
    if (seen_[n] == stamp_) continue;
    seen_[n] = stamp_;
    lbool const v = ev.eval(n);
    int const k = n < static_cast<int>(sel_.decidable_of.size()) ? sel_.decidable_of[n] : -1;
    if (v != l_Undef) {
      if (k >= 0) phase_[k] = v == l_True;
      continue;
    }
    if (k >= 0 && undetermined(sel_.decidable[k].var) &&
        (best_ < 0 ||
         ctx_.activity[sel_.decidable[best_].var] < ctx_.activity[sel_.decidable[k].var]))
      best_ = k;
    Node const& nd = ctx_.p.nodes[n];
    if (nd.op == Op::ite) {
      lbool const c = ev.eval(nd.kids[0]);
      if (c != l_Undef) {
        todo.push_back(nd.kids[c == l_True ? 1 : 2]);
        continue;
      }
    }
    for (std::size_t i = nd.kids.size(); i-- > 0;)
      todo.push_back(nd.kids[i]);
  }
}

template <class R>
typename AtomDecider<R>::Choice AtomDecider<R>::pick(std::vector<IEEEFloat> const& witness) {
  if (sel_.decidable.empty()) return {};
  if (seen_.empty()) seen_.assign(ctx_.p.nodes.size(), 0);
  ++stamp_;
  best_ = -1;
  for (int r : ctx_.p.assertions)
    walk(r);
  for (int n : sel_.def_conds)
    walk(n);
  if (best_ < 0) return {};
  if (witness.size() == ctx_.p.vars.size()) {
    if (!exact_) exact_.emplace(ctx_.p);
    for (std::size_t v = 0; v < witness.size(); ++v) {
      R const r = rank_of<R>(canonical(witness[v]));
      exact_->cur[v] = {r, r};
    }
    lbool const w = exact_->eval(sel_.decidable[best_].node);
    if (w != l_Undef) phase_[best_] = w == l_True;
  }
  return Choice{sel_.decidable[best_].var, phase_[best_] != 0};
}

template <class R>
typename AtomDecider<R>::Choice AtomDecider<R>::open_selector() {
  for (std::size_t k = 0; k < sel_.decidable.size(); ++k) {
    AtomSelectors::Decidable const& d = sel_.decidable[k];
    if (d.var < sel_.first || !undetermined(d.var)) continue;
    lbool const v = tc_.ev.eval(d.node);
    return Choice{d.var, v == l_Undef ? phase_[k] != 0 : v == l_True};
  }
  return {};
}

FPSOLVE_INSTANTIATE_FOR_RANKS(AtomDecider)

} // namespace fpsolve
