// What propagation still has to visit: the watch lists of every variable
// and the two queues they feed.
//
// Entries are what the propagation round visits: assertion r is entry r,
// Def d is entry roots + d.  A variable whose interval narrows queues the
// entries it occurs in and, when learned clauses watch it, itself on the
// clause queue.  Invariants (check_invariants): an entry or variable is
// queued at most once, and its `queued` flag is set exactly while it is
// queued.
//
// The entries' watch lists are fixed once the search is set up, so they are
// one array of entries grouped by variable (a start offset per variable):
// two ints per watch instead of a vector (and a heap block) per variable.
// The clauses' watch lists exist only once a clause is learned, which most
// long, easy problems never do.
//
// The entry queue is first in, first out, or, when ordered, a min-heap on
// the entry number: the assertions (cheap comparisons) before the Defs, and
// the Defs in their dependency order (a Def's operands are earlier Defs'
// results), so a narrowing that flows forward through a chain of Defs is
// carried along it in one pass instead of one step per pass.
#pragma once

#include <cstddef>
#include <deque>
#include <span>
#include <utility>
#include <vector>

namespace fpsolve {

class PropagationQueue {
public:
  // Empty watch lists and queues for `vars` variables and `entries` entries.
  void reset(std::size_t vars, std::size_t entries, bool ordered = false);

  std::size_t entry_count() const { return entry_queued_.size(); }
  bool entries_empty() const { return entries_.empty(); }
  // Queues the entry unless it is queued already.
  void push(int entry);
  int pop_front();
  // Returns an entry just popped to the front (a round stopped before it);
  // ordered, to its place, which is the front unless smaller ones came.
  void push_front(int entry);
  // The entries' watch lists from (variable, entry) pairs: each variable's
  // entries in the order given, a repeat of the entry just before dropped.
  // Consumes `pairs`.
  void set_entry_watch(std::vector<std::pair<int, int>>& pairs);
  std::span<int const> entry_watch(int v) const {
    return {watch_.data() + watch_start_[v], watch_.data() + watch_start_[v + 1]};
  }
  // The list of clauses watching v, made (for every variable) at first use.
  std::vector<int>& clause_watch(int v) {
    if (clause_watch_.empty()) {
      clause_watch_.resize(vars_);
      clause_var_queued_.assign(vars_, 0);
    }
    return clause_watch_[v];
  }
  // Whether any clause watches anything (clause_watch was used).
  bool has_clause_watches() const { return !clause_watch_.empty(); }
  // Queues every entry that watches v, and v for its clauses.
  void enqueue_watchers(int v);
  // Queues the relevant entries in their first order (`all`).
  void enqueue_all();

  bool clause_vars_empty() const { return clause_vars_.empty(); }
  int pop_clause_var();
  void clear_clause_vars();
  // Drops everything queued (a conflict makes it moot).
  void clear();

  // The queues at one point of a probe's dive, to return to.
  struct Snapshot {
    std::deque<int> entries;
    std::vector<int> clause_vars;
    bool lost;
  };
  Snapshot save() const { return Snapshot{entries_, clause_vars_, lost}; }
  void restore(Snapshot const& s);

  void check_invariants() const;

  std::vector<int> all; // the relevant entries, Defs first
  bool lost = false;    // a stalled round left entries that a conflict dropped

private:
  bool ordered_ = false;
  std::size_t vars_ = 0;
  std::vector<int> watch_start_; // per variable and one more: where its entries start
  std::vector<int> watch_;       // the entries each variable occurs in, grouped by variable
  // Per variable, empty until a clause is learned: clauses watching it
  // (lazily pruned).
  std::vector<std::vector<int>> clause_watch_;
  std::deque<int> entries_; // ordered: a heap under std::greater

  std::vector<char> entry_queued_;
  std::vector<int> clause_vars_;        // variables whose watching clauses are due
  std::vector<char> clause_var_queued_; // sized with clause_watch_
};

} // namespace fpsolve
