// The jump of comparison chains (see chain_jump.h).
#include "engine/chain_jump.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace fpsolve {

// Tarjan's strongly connected components, without recursion (a chain is as
// deep as it is long).  A component is finished after every component it
// reaches, so a step between two components goes from the higher number to
// the lower: decreasing numbers are a topological order.
template <class R>
void ChainJump<R>::components(std::size_t nv) {
  std::vector<int> index(nv, -1), low(nv, 0), stack, path;
  std::vector<std::size_t> next(nv, 0); // the next step to follow from v
  std::vector<char> on_stack(nv, 0);
  comp_.assign(nv, -1);
  int counter = 0, comps = 0;
  for (std::size_t root = 0; root < nv; ++root) {
    if (index[root] >= 0 || first_[root] == first_[root + 1]) continue;
    path.push_back(static_cast<int>(root));
    while (!path.empty()) {
      int const v = path.back();
      if (index[v] < 0) {
        index[v] = low[v] = counter++;
        next[v] = first_[v];
        stack.push_back(v);
        on_stack[v] = 1;
      }
      if (next[v] < first_[v + 1]) {
        int const w = steps_[by_from_[next[v]++]].to;
        if (index[w] < 0)
          path.push_back(w);
        else if (on_stack[w])
          low[v] = std::min(low[v], index[w]);
        continue;
      }
      path.pop_back();
      if (!path.empty()) low[path.back()] = std::min(low[path.back()], low[v]);
      if (low[v] != index[v]) continue;
      for (int w = -1; w != v;) {
        w = stack.back();
        stack.pop_back();
        on_stack[w] = 0;
        comp_[w] = comps;
      }
      ++comps;
    }
  }
  comp_first_.assign(static_cast<std::size_t>(comps) + 1, 0);
  for (std::size_t v = 0; v < nv; ++v)
    if (comp_[v] >= 0) ++comp_first_[comp_[v] + 1];
  for (int c = 0; c < comps; ++c)
    comp_first_[c + 1] += comp_first_[c];
  members_.assign(comp_first_.back(), 0);
  std::vector<std::size_t> fill(comp_first_.begin(), comp_first_.end() - 1);
  for (std::size_t v = 0; v < nv; ++v)
    if (comp_[v] >= 0) members_[fill[comp_[v]]++] = static_cast<int>(v);
}

template <class R>
bool ChainJump<R>::jump() {
  bool const ok = jump_once();
  auto release = [](auto& v) { std::remove_reference_t<decltype(v)>().swap(v); };
  release(steps_);
  release(first_);
  release(by_from_);
  release(comp_);
  release(members_);
  release(comp_first_);
  release(lo_);
  release(hi_);
  return ok;
}

template <class R>
bool ChainJump<R>::jump_once() {
  graph_.var_steps(&steps_);
  if (steps_.empty()) return true;
  std::size_t const nv = ctx_.p.vars.size();
  first_.assign(nv + 1, 0);
  for (auto const& s : steps_)
    ++first_[s.from + 1];
  for (std::size_t v = 0; v < nv; ++v)
    first_[v + 1] += first_[v];
  by_from_.assign(steps_.size(), 0);
  {
    std::vector<std::size_t> fill(first_.begin(), first_.end() - 1);
    for (std::size_t i = 0; i < steps_.size(); ++i)
      by_from_[fill[steps_[i].from]++] = static_cast<int>(i);
  }
  components(nv);
  int const comps = static_cast<int>(comp_first_.size()) - 1;
  // Each component's key range: the intersection of its members' ranges.
  lo_.assign(static_cast<std::size_t>(comps), R(0));
  hi_.assign(static_cast<std::size_t>(comps), R(0));
  for (int c = 0; c < comps; ++c)
    for (std::size_t i = comp_first_[c]; i < comp_first_[c + 1]; ++i) {
      int const v = members_[i];
      auto const& cur = tc_.ev.cur[v];
      R const lo = key(mx(cur.lo, R(tc_.ev.format_of_var(v).nan + 1)));
      R const hi = key(cur.hi);
      if (i == comp_first_[c] || lo_[c] < lo) lo_[c] = lo;
      if (i == comp_first_[c] || hi < hi_[c]) hi_[c] = hi;
    }
  for (auto const& s : steps_)
    if (s.strict && comp_[s.from] == comp_[s.to]) return false; // x < ... <= x
  // Lower ends along the topological order, upper ends against it.  An
  // empty component (its members can only be NaN) passes nothing on.
  for (int c = comps - 1; c >= 0; --c) {
    if (hi_[c] < lo_[c]) continue;
    for (std::size_t i = comp_first_[c]; i < comp_first_[c + 1]; ++i)
      for (std::size_t k = first_[members_[i]]; k < first_[members_[i] + 1]; ++k) {
        auto const& s = steps_[by_from_[k]];
        int const d = comp_[s.to];
        if (d != c) lo_[d] = mx(lo_[d], R(lo_[c] + (s.strict ? 1 : 0)));
      }
  }
  for (int c = 0; c < comps; ++c)
    for (std::size_t i = comp_first_[c]; i < comp_first_[c + 1]; ++i)
      for (std::size_t k = first_[members_[i]]; k < first_[members_[i] + 1]; ++k) {
        auto const& s = steps_[by_from_[k]];
        int const d = comp_[s.to];
        if (d != c && lo_[d] <= hi_[d]) hi_[c] = mn(hi_[c], R(hi_[d] - (s.strict ? 1 : 0)));
      }
  bool narrowed = false;
  for (int c = 0; c < comps; ++c)
    for (std::size_t i = comp_first_[c]; i < comp_first_[c + 1]; ++i) {
      int const v = members_[i];
      auto const cur = tc_.ev.cur[v];
      R const nan = tc_.ev.format_of_var(v).nan;
      Set<R> const t{cur.lo == nan, mx(min_rank_key_ge(lo_[c]), R(nan + 1)),
                     max_rank_key_le(hi_[c])};
      if (!atoms_.restrict_var(v, t)) return false;
      narrowed = narrowed || !(tc_.ev.cur[v].lo == cur.lo && tc_.ev.cur[v].hi == cur.hi);
    }
  if (narrowed) ++ctx_.stats.chain_jumps;
  return true;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(ChainJump)

} // namespace fpsolve
