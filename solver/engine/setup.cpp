// The search's setup (see setup.h).
#include "engine/setup.h"

#include "engine/real_terms.h"

namespace fpsolve {

void setup_search(SearchContext& ctx, PropagationQueue& queue, qorv::FpDecDepManager& manager) {
  Problem const& p = ctx.p;
  // A wide asserted conjunction is its conjuncts, each an entry of its own:
  // one entry for all of them would be visited whole whenever any of its
  // variables narrows, which is quadratic in its width.  A narrow one stays
  // whole: visiting it costs little, and it keeps the order of visits (and
  // so the points where a round stalls) that the search was tuned with.
  ctx.roots.clear();
  std::vector<int> split(p.assertions.rbegin(), p.assertions.rend());
  while (!split.empty()) {
    int const n = split.back();
    split.pop_back();
    std::uint64_t const width = p.nodes[n].kids.size();
    if (p.nodes[n].op == Op::and_ && ctx.opt.split_conjunctions &&
        width >= ctx.opt.split_conjunctions)
      split.insert(split.end(), p.nodes[n].kids.rbegin(), p.nodes[n].kids.rend());
    else
      ctx.roots.push_back(n);
  }
  // The links of the atoms' selectors propagate like assertions.
  ctx.roots.insert(ctx.roots.end(), ctx.links.begin(), ctx.links.end());
  ctx.roots.shrink_to_fit(); // grown by doubling, it lives through the search
  std::size_t const nv = p.vars.size();
  int const nr = static_cast<int>(ctx.roots.size());
  queue.reset(nv, ctx.roots.size() + p.defs.size(), ctx.opt.ordered_queue);
  ctx.relevant.assign(nv, 0);
  std::vector<std::pair<int, int>> watches; // (variable, entry), for the queue
  auto watch = [&](int v, int entry) { watches.emplace_back(v, entry); };
  std::vector<int> work; // relevant variables whose Def is still to be visited
  auto mark = [&](int v) {
    if (ctx.relevant[v]) return;
    ctx.relevant[v] = 1;
    work.push_back(v);
  };
  // The variables that occur directly in the atoms under a node (not
  // through Defs), each reported to f.
  std::vector<int> seen(p.nodes.size(), -1);
  int stamp = 0;
  auto node_vars = [&](int root, auto const& f) {
    ++stamp;
    std::vector<int> todo{root};
    while (!todo.empty()) {
      int n = todo.back();
      todo.pop_back();
      if (seen[n] == stamp) continue;
      seen[n] = stamp;
      Node const& nd = p.nodes[n];
      if (nd.op == Op::bvar)
        f(nd.a);
      else if (nd.op >= Op::leq) {
        if (p.operands[nd.a].var >= 0) f(p.operands[nd.a].var);
        if (nd.b >= 0 && p.operands[nd.b].var >= 0) f(p.operands[nd.b].var);
      }
      for (int k : nd.kids)
        todo.push_back(k);
    }
  };
  for (int r = 0; r < nr; ++r)
    node_vars(ctx.roots[r], [&](int v) {
      watch(v, r);
      mark(v);
    });
  // The floats and Booleans read by the real side of a relevant variable
  // (a real atom's, a to_fp of a real's) are relevant too.  Built only
  // where there is a real side: a list per variable is room that long
  // float problems should not pay for at every check-sat.
  std::vector<std::vector<int>> const real_deps =
      p.has_reals() ? real_dependencies(p) : std::vector<std::vector<int>>{};
  while (!work.empty()) {
    int const v = work.back();
    work.pop_back();
    if (!real_deps.empty())
      for (int u : real_deps[static_cast<std::size_t>(v)])
        mark(u);
    int const d = p.vars[v].def;
    if (d < 0) continue;
    Def const& df = p.defs[d];
    int const entry = nr + d;
    watch(v, entry);
    auto use = [&](int u) {
      watch(u, entry);
      mark(u);
    };
    for (int o : df.args)
      if (p.operands[o].var >= 0) use(p.operands[o].var);
    if (df.rm >= 0 && p.operands[df.rm].var >= 0) use(p.operands[df.rm].var);
    if (df.cond >= 0) node_vars(df.cond, use);
  }
  // Inputs first (Booleans, rounding modes, then floating point), so that
  // the Boolean structure is settled before values; the Defs' variables form
  // the second segment, decided only when every input is a single value
  // (then only unspecified results are left to choose).
  ctx.var_of_id.assign(p.tm.term_count() + 1, -1);
  // Sized once: a list grown by doubling holds up to twice the room.
  std::size_t decided = 0;
  for (std::size_t v = 0; v < nv && static_cast<int>(v) < ctx.first_selector; ++v)
    decided += ctx.relevant[v] ? 1 : 0;
  manager.terms.reserve(manager.terms.size() + decided);
  for (int pass = 0; pass < 4; ++pass) {
    if (pass == 3) manager.split = manager.terms.size();
    for (std::size_t v = 0; v < nv; ++v) {
      Var const& var = p.vars[v];
      int const kind = var.def >= 0 ? 3 : var.is_bool ? 0 : var.is_rm ? 1 : 2;
      if (ctx.relevant[v] && kind == pass) {
        // Selectors are decided on atoms only, never split by the heuristic.
        if (static_cast<int>(v) < ctx.first_selector) manager.terms.push_back(var.term);
        ctx.var_of_id[var.term->id] = static_cast<int>(v);
      }
    }
  }
  queue.set_entry_watch(watches);
  std::size_t relevant_defs = 0;
  for (Def const& d : p.defs)
    relevant_defs += ctx.relevant[d.var] ? 1 : 0;
  queue.all.reserve(relevant_defs + ctx.roots.size());
  for (std::size_t d = 0; d < p.defs.size(); ++d)
    if (ctx.relevant[p.defs[d].var]) queue.all.push_back(nr + static_cast<int>(d));
  for (int r = 0; r < nr; ++r)
    queue.all.push_back(r);
  queue.enqueue_all();
}

} // namespace fpsolve
