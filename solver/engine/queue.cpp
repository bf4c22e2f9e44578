// The propagation queues (see queue.h).
#include "engine/queue.h"

#include "support/invariant.h"

#include <algorithm>
#include <cassert>
#include <functional>
#include <string>

namespace fpsolve {

void PropagationQueue::reset(std::size_t vars, std::size_t entries, bool ordered) {
  ordered_ = ordered;
  vars_ = vars;
  watch_start_.assign(vars + 1, 0);
  watch_.clear();
  clause_watch_.clear();
  all.clear();
  lost = false;
  entries_.clear();
  entry_queued_.assign(entries, 0);
  clause_vars_.clear();
  clause_var_queued_.clear();
}

void PropagationQueue::set_entry_watch(std::vector<std::pair<int, int>>& pairs) {
  // A stable counting sort by variable keeps each variable's entries in
  // their order, so dropping repeats is a look at the previous one.
  std::vector<int> start(vars_ + 1, 0);
  for (auto const& [v, e] : pairs)
    ++start[static_cast<std::size_t>(v) + 1];
  for (std::size_t v = 0; v < vars_; ++v)
    start[v + 1] += start[v];
  std::vector<int> sorted(pairs.size());
  {
    std::vector<int> at(start.begin(), start.end() - 1);
    for (auto const& [v, e] : pairs)
      sorted[static_cast<std::size_t>(at[static_cast<std::size_t>(v)]++)] = e;
  }
  std::vector<std::pair<int, int>>().swap(pairs);
  watch_.clear();
  watch_.reserve(sorted.size());
  for (std::size_t v = 0; v < vars_; ++v) {
    watch_start_[v] = static_cast<int>(watch_.size());
    for (int i = start[v]; i < start[v + 1]; ++i) {
      int const e = sorted[static_cast<std::size_t>(i)];
      if (i == start[v] || sorted[static_cast<std::size_t>(i - 1)] != e) watch_.push_back(e);
    }
  }
  watch_start_[vars_] = static_cast<int>(watch_.size());
  watch_.shrink_to_fit();
}

void PropagationQueue::push(int entry) {
  if (entry_queued_[entry]) return;
  entry_queued_[entry] = 1;
  entries_.push_back(entry);
  if (ordered_) std::push_heap(entries_.begin(), entries_.end(), std::greater<>());
}

int PropagationQueue::pop_front() {
  assert(!entries_.empty() && "pop from an empty queue");
  int e;
  if (ordered_) {
    std::pop_heap(entries_.begin(), entries_.end(), std::greater<>());
    e = entries_.back();
    entries_.pop_back();
  } else {
    e = entries_.front();
    entries_.pop_front();
  }
  entry_queued_[e] = 0;
  return e;
}

void PropagationQueue::push_front(int entry) {
  assert(!entry_queued_[entry] && "an entry is queued at most once");
  if (ordered_) return push(entry);
  entries_.push_front(entry);
  entry_queued_[entry] = 1;
}

void PropagationQueue::enqueue_watchers(int v) {
  if (!clause_watch_.empty() && !clause_watch_[v].empty() && !clause_var_queued_[v]) {
    clause_var_queued_[v] = 1;
    clause_vars_.push_back(v);
  }
  for (int e : entry_watch(v))
    push(e);
}

void PropagationQueue::enqueue_all() {
  lost = false;
  for (int e : all)
    push(e);
}

int PropagationQueue::pop_clause_var() {
  int const v = clause_vars_.back();
  clause_vars_.pop_back();
  clause_var_queued_[v] = 0;
  return v;
}

void PropagationQueue::clear_clause_vars() {
  for (int u : clause_vars_)
    clause_var_queued_[u] = 0;
  clause_vars_.clear();
}

void PropagationQueue::clear() {
  for (int e : entries_)
    entry_queued_[e] = 0;
  entries_.clear();
  clear_clause_vars();
}

void PropagationQueue::restore(Snapshot const& s) {
  clear();
  entries_ = s.entries;
  clause_vars_ = s.clause_vars;
  for (int e : entries_)
    entry_queued_[e] = 1;
  for (int u : clause_vars_)
    clause_var_queued_[u] = 1;
  lost = s.lost;
}

void PropagationQueue::check_invariants() const {
  // Counting the flags and checking each queued item's flag shows both
  // directions: every flag belongs to exactly one queued item.
  auto agree = [](auto const& items, std::vector<char> const& flags, char const* what) {
    std::size_t set = 0;
    for (char f : flags)
      set += f ? 1 : 0;
    for (int x : items)
      if (!flags[x]) qorv::invariant_violated("fpsolve queue", what, std::to_string(x));
    if (set != items.size())
      qorv::invariant_violated("fpsolve queue", what, std::to_string(set) + " flags set");
  };
  agree(entries_, entry_queued_, "queued entries and their flags disagree");
  agree(clause_vars_, clause_var_queued_, "queued clause variables and their flags disagree");
}

} // namespace fpsolve
