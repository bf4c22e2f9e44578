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
// The entry queue is first in, first out, or, when ordered, a min-heap on
// the entry number: the assertions (cheap comparisons) before the Defs, and
// the Defs in their dependency order (a Def's operands are earlier Defs'
// results), so a narrowing that flows forward through a chain of Defs is
// carried along it in one pass instead of one step per pass.
#pragma once

#include <cstddef>
#include <deque>
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

  std::vector<std::vector<int>> entry_watch;  // per variable: the entries it occurs in
  std::vector<std::vector<int>> clause_watch; // per variable: clauses watching it (lazily pruned)
  std::vector<int> all;                       // the relevant entries, Defs first
  bool lost = false; // a stalled round left entries that a conflict dropped

private:
  bool ordered_ = false;
  std::deque<int> entries_; // ordered: a heap under std::greater

  std::vector<char> entry_queued_;
  std::vector<int> clause_vars_; // variables whose watching clauses are due
  std::vector<char> clause_var_queued_;
};

} // namespace fpsolve
