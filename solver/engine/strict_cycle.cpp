// The strict-cycle refutation (see strict_cycle.h).
//
// Nodes are the views x, -x, |x|, -|x| of the variables; every edge u <= v
// also gives -v <= -u, and |x| is tied to x by x <= |x| and -|x| <= x.  Each
// step holds only for non-NaN values, and a cycle through a comparison
// forces all of its nodes non-NaN.
#include "engine/strict_cycle.h"

#include <cstddef>
#include <utility>

namespace fpsolve {

ComparisonGraph::ComparisonGraph(Problem const& problem) : p_(problem) {
  auto plain = [&](int o) {
    Operand const& op = p_.operands[o];
    return op.var >= 0 && !op.abs && !op.neg;
  };
  auto zero = [&](int o) {
    Operand const& op = p_.operands[o];
    return op.var < 0 && !op.is_rm && p_.constant_of(o).is_zero();
  };
  for (Def const& d : p_.defs) {
    bool const sum = d.op == FpOp::add || d.op == FpOp::sub;
    if (!sum || d.args.size() != 2) continue;
    for (int i = 0; i < 2; ++i) {
      // x + 0, 0 + x, x - 0 (not 0 - x, which is -x)
      bool const shape = i == 0 || d.op == FpOp::add;
      if (shape && plain(d.args[i]) && zero(d.args[1 - i]) &&
          p_.operands[d.args[i]].fmt == p_.vars[d.var].fmt_id)
        identities_.push_back({d.var, p_.operands[d.args[i]].var});
    }
  }
}

void ComparisonGraph::var_steps(std::vector<VarStep>* out) const {
  out->clear();
  auto plain = [&](int o) {
    Operand const& op = p_.operands[o];
    return op.var >= 0 && !op.abs && !op.neg;
  };
  for (Edge const& e : edges_)
    if (plain(e.from) && plain(e.to))
      out->push_back(VarStep{p_.operands[e.from].var, p_.operands[e.to].var, e.strict});
  for (auto const* ties : {&identities_, &equal_})
    for (auto const& [t, x] : *ties) {
      out->push_back(VarStep{t, x, false});
      out->push_back(VarStep{x, t, false});
    }
}

bool ComparisonGraph::has_strict_cycle() const {
  std::size_t const nn = 4 * p_.vars.size();
  std::vector<std::vector<std::pair<int, bool>>> out(nn);
  std::vector<char> has_abs(p_.vars.size(), 0);
  auto id = [&](int o) {
    Operand const& op = p_.operands[o];
    return op.var * 4 + (op.abs ? 2 : 0) + (op.neg ? 1 : 0);
  };
  auto add = [&](int u, int v, bool s) {
    out[u].push_back({v, s});
    out[v ^ 1].push_back({u ^ 1, s});
  };
  for (Edge const& e : edges_) {
    if (p_.operands[e.from].var < 0 || p_.operands[e.to].var < 0) continue;
    add(id(e.from), id(e.to), e.strict);
    for (int o : {e.from, e.to})
      if (p_.operands[o].abs) has_abs[p_.operands[o].var] = 1;
  }
  for (auto const* ties : {&identities_, &equal_})
    for (auto const& [t, x] : *ties) {
      add(t * 4, x * 4, false);
      add(x * 4, t * 4, false);
    }
  for (std::size_t v = 0; v < has_abs.size(); ++v)
    if (has_abs[v]) {
      int x = static_cast<int>(v) * 4;
      add(x, x + 2, false); // x <= |x|
      add(x + 3, x, false); // -|x| <= x
    }
  // A strict edge u -> v lies on a cycle when u is reachable from v.
  std::vector<int> mark(nn, -1), stack;
  int round = 0;
  for (std::size_t u = 0; u < nn; ++u)
    for (auto const& [v0, strict] : out[u]) {
      if (!strict) continue;
      ++round;
      stack.assign(1, v0);
      mark[v0] = round;
      while (!stack.empty()) {
        int w = stack.back();
        stack.pop_back();
        if (w == static_cast<int>(u)) return true;
        for (auto const& [x, s] : out[w])
          if (mark[x] != round) {
            mark[x] = round;
            stack.push_back(x);
          }
      }
    }
  return false;
}

} // namespace fpsolve
