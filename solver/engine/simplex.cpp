#include "engine/simplex.h"

#include "support/invariant.h"

#include <algorithm>
#include <cassert>
#include <string>

namespace fpsolve {

namespace {

// Pivots of one check() chosen for a sparse tableau before Bland's rule takes
// over; a fixed count keeps the run reproducible and termination intact.
constexpr std::uint64_t kGreedyPivots = 64;

} // namespace

Simplex::Var Simplex::new_var() {
  Var const v = static_cast<Var>(value_.size());
  value_.emplace_back();
  lower_.emplace_back();
  upper_.emplace_back();
  row_of_.push_back(kNoRow);
  column_.emplace_back();
  position_.push_back(0);
  return v;
}

Simplex::Var Simplex::add_row(std::span<Term const> terms) {
  // The canonical form: columns in order, repeated ones merged, zeros dropped.
  std::vector<Term> form(terms.begin(), terms.end());
  std::sort(form.begin(), form.end(),
            [](Term const& a, Term const& b) { return a.first < b.first; });
  std::vector<Term> merged;
  for (Term& t : form) {
    assert(t.first < value_.size() && "add_row: a term names an unknown column");
    if (!merged.empty() && merged.back().first == t.first)
      merged.back().second += t.second;
    else
      merged.push_back(std::move(t));
    if (merged.back().second == 0) merged.pop_back();
  }
  if (auto it = forms_.find(merged); it != forms_.end()) return it->second;

  // The row over non-basic columns: basic ones are replaced by their rows.
  Var const s = new_var();
  std::uint32_t const r = static_cast<std::uint32_t>(rows_.size());
  rows_.push_back(Row{s, {}});
  row_of_[s] = r;
  std::vector<Term>& row = rows_[r].terms;
  auto add = [&](Var v, mpq_class const& c) {
    if (position_[v] == 0) {
      row.emplace_back(v, c);
      position_[v] = static_cast<std::uint32_t>(row.size());
    } else {
      row[position_[v] - 1].second += c;
    }
  };
  for (Term const& t : merged) {
    if (row_of_[t.first] == kNoRow)
      add(t.first, t.second);
    else
      for (Term const& u : rows_[row_of_[t.first]].terms)
        add(u.first, t.second * u.second);
  }
  for (Term const& t : row)
    position_[t.first] = 0;
  std::erase_if(row, [](Term const& t) { return t.second == 0; });
  for (Term const& t : row) {
    column_[t.first].push_back(r);
    value_[s].add_scaled(t.second, value_[t.first]);
  }
  forms_.emplace(std::move(merged), s);
  QORV_DEBUG_CHECK(*this);
  return s;
}

bool Simplex::assert_lower(Var v, DeltaRational const& b, Reason why,
                           std::vector<Reason>& conflict) {
  return assert_bound(v, false, b, why, conflict);
}

bool Simplex::assert_upper(Var v, DeltaRational const& b, Reason why,
                           std::vector<Reason>& conflict) {
  return assert_bound(v, true, b, why, conflict);
}

bool Simplex::assert_bound(Var v, bool upper, DeltaRational const& b, Reason why,
                           std::vector<Reason>& conflict) {
  std::optional<Bound>& mine = upper ? upper_[v] : lower_[v];
  std::optional<Bound> const& other = upper ? lower_[v] : upper_[v];
  if (mine && (upper ? mine->value <= b : mine->value >= b)) return true;
  if (other && (upper ? b < other->value : b > other->value)) {
    conflict.assign({other->reason, why});
    return false;
  }
  if (!level_start_.empty()) undo_.push_back(Undo{v, upper, mine});
  mine = Bound{b, why};
  if (row_of_[v] == kNoRow && (upper ? value_[v] > b : value_[v] < b)) update(v, b);
  QORV_DEBUG_CHECK(*this);
  return true;
}

void Simplex::push() {
  level_start_.push_back(undo_.size());
}

void Simplex::pop(unsigned levels) {
  assert(levels <= level_start_.size() && "Simplex::pop: more levels than pushed");
  if (levels == 0) return;
  std::size_t const start = level_start_[level_start_.size() - levels];
  level_start_.resize(level_start_.size() - levels);
  while (undo_.size() > start) {
    Undo& u = undo_.back();
    (u.upper ? upper_ : lower_)[u.var] = std::move(u.old);
    undo_.pop_back();
  }
  QORV_DEBUG_CHECK(*this);
}

std::optional<DeltaRational> Simplex::lower(Var v) const {
  return lower_[v] ? std::optional(lower_[v]->value) : std::nullopt;
}
std::optional<DeltaRational> Simplex::upper(Var v) const {
  return upper_[v] ? std::optional(upper_[v]->value) : std::nullopt;
}
std::optional<Simplex::Reason> Simplex::lower_reason(Var v) const {
  return lower_[v] ? std::optional(lower_[v]->reason) : std::nullopt;
}
std::optional<Simplex::Reason> Simplex::upper_reason(Var v) const {
  return upper_[v] ? std::optional(upper_[v]->reason) : std::nullopt;
}

// Moves non-basic v to `to`; every basic column of a row v occurs in follows.
void Simplex::update(Var v, DeltaRational const& to) {
  DeltaRational const step = to - value_[v];
  for (std::uint32_t r : column_[v]) {
    Row const& row = rows_[r];
    auto it = std::find_if(row.terms.begin(), row.terms.end(),
                           [v](Term const& t) { return t.first == v; });
    value_[row.basic].add_scaled(it->second, step);
  }
  value_[v] = to;
}

// The basic column of row r moves to `to` through `entering`, which then
// takes its place in the basis.
void Simplex::pivot_and_update(std::uint32_t r, Var entering, DeltaRational const& to) {
  Var const leaving = rows_[r].basic;
  auto it = std::find_if(rows_[r].terms.begin(), rows_[r].terms.end(),
                         [entering](Term const& t) { return t.first == entering; });
  mpq_class const a = it->second;
  DeltaRational const theta = (1 / a) * (to - value_[leaving]);
  value_[leaving] = to;
  value_[entering] += theta;
  for (std::uint32_t k : column_[entering]) {
    if (k == r) continue;
    auto jt = std::find_if(rows_[k].terms.begin(), rows_[k].terms.end(),
                           [entering](Term const& t) { return t.first == entering; });
    value_[rows_[k].basic].add_scaled(jt->second, theta);
  }
  pivot(r, entering);
}

// Row r solved for `entering`, then substituted into every other row that
// mentions it.
void Simplex::pivot(std::uint32_t r, Var entering) {
  ++pivots_;
  Row& row = rows_[r];
  Var const leaving = row.basic;
  auto it = std::find_if(row.terms.begin(), row.terms.end(),
                         [entering](Term const& t) { return t.first == entering; });
  mpq_class const inv = 1 / it->second;
  row.terms.erase(it);
  for (Term& t : row.terms)
    t.second *= -inv;
  row.terms.emplace_back(leaving, inv);
  row.basic = entering;
  row_of_[leaving] = kNoRow;
  row_of_[entering] = r;
  column_[leaving].push_back(r);

  std::vector<std::uint32_t> others = std::move(column_[entering]);
  column_[entering].clear();
  for (std::uint32_t k : others) {
    if (k == r) continue;
    auto jt = std::find_if(rows_[k].terms.begin(), rows_[k].terms.end(),
                           [entering](Term const& t) { return t.first == entering; });
    mpq_class const c = jt->second;
    add_scaled_row(k, c, r, entering);
  }
}

// Row `target` += k * row `source`, where `gone` (a column of target with
// coefficient k, now basic in source) leaves target.
void Simplex::add_scaled_row(std::uint32_t target, mpq_class const& k, std::uint32_t source,
                             Var gone) {
  std::vector<Term>& row = rows_[target].terms;
  for (std::size_t i = 0; i < row.size(); ++i)
    position_[row[i].first] = static_cast<std::uint32_t>(i + 1);
  for (Term const& t : rows_[source].terms) {
    if (position_[t.first] == 0) {
      row.emplace_back(t.first, k * t.second);
      position_[t.first] = static_cast<std::uint32_t>(row.size());
      column_[t.first].push_back(target);
    } else {
      row[position_[t.first] - 1].second += k * t.second;
    }
  }
  for (Term const& t : row) {
    position_[t.first] = 0;
    if (t.second == 0) drop_from_column(t.first, target);
  }
  std::erase_if(row, [gone](Term const& t) { return t.second == 0 || t.first == gone; });
}

void Simplex::drop_from_column(Var v, std::uint32_t r) {
  std::vector<std::uint32_t>& col = column_[v];
  auto it = std::find(col.begin(), col.end(), r);
  assert(it != col.end() && "Simplex: a column list misses a row the column occurs in");
  *it = col.back();
  col.pop_back();
}

// A row whose basic column is out of bounds: the one with the smallest
// column under Bland's rule, the first found otherwise; kNoRow if none.
std::uint32_t Simplex::violated_row(bool bland) const {
  std::uint32_t best = kNoRow;
  for (std::uint32_t r = 0; r < rows_.size(); ++r) {
    Var const b = rows_[r].basic;
    bool const out =
        (lower_[b] && value_[b] < lower_[b]->value) || (upper_[b] && value_[b] > upper_[b]->value);
    if (!out) continue;
    if (!bland) return r;
    if (best == kNoRow || b < rows_[best].basic) best = r;
  }
  return best;
}

// A non-basic column of row r that can move so the basic column increases
// (or decreases): the smallest one under Bland's rule, else the one in the
// fewest rows, so the pivot fills in the least.
std::optional<Simplex::Var> Simplex::entering(std::uint32_t r, bool increase, bool bland) const {
  std::optional<Var> best;
  for (Term const& t : rows_[r].terms) {
    Var const v = t.first;
    bool const up = (t.second > 0) == increase;
    bool const can = up ? !upper_[v] || value_[v] < upper_[v]->value
                        : !lower_[v] || value_[v] > lower_[v]->value;
    if (!can) continue;
    if (!best || (bland ? v < *best : column_[v].size() < column_[*best].size())) best = v;
  }
  return best;
}

// Row r's basic column must increase (decrease) and no column can move: the
// bound it violates and the bounds that pin every column of the row form an
// infeasible set (their sum with the row's coefficients is a contradiction).
void Simplex::explain(std::uint32_t r, bool increase, std::vector<Reason>& conflict) const {
  Var const b = rows_[r].basic;
  conflict.clear();
  conflict.push_back(increase ? lower_[b]->reason : upper_[b]->reason);
  for (Term const& t : rows_[r].terms) {
    bool const pinned_above = (t.second > 0) == increase;
    std::optional<Bound> const& bound = pinned_above ? upper_[t.first] : lower_[t.first];
    assert(bound && "Simplex::explain: a column that cannot move has no bound");
    conflict.push_back(bound->reason);
  }
}

bool Simplex::check(std::vector<Reason>& conflict) {
  for (std::uint64_t steps = 0;; ++steps) {
    bool const bland = steps >= kGreedyPivots;
    std::uint32_t const r = violated_row(bland);
    if (r == kNoRow) break;
    Var const b = rows_[r].basic;
    bool const increase = lower_[b] && value_[b] < lower_[b]->value;
    std::optional<Var> const e = entering(r, increase, bland);
    if (!e) {
      explain(r, increase, conflict);
      return false;
    }
    pivot_and_update(r, *e, increase ? lower_[b]->value : upper_[b]->value);
    QORV_DEBUG_CHECK(*this);
  }
  choose_delta();
  return true;
}

// The largest delta in (0, 1] that keeps l <= x <= u for every bound once
// delta is a number: l.real + l.delta*d <= x.real + x.delta*d holds for all
// d > 0 when the real parts are equal (the order then compares the delta
// parts) and otherwise fails only beyond (x.real - l.real) / (l.delta - x.delta).
void Simplex::choose_delta() {
  delta_ = 1;
  auto limit = [this](DeltaRational const& lo, DeltaRational const& hi) {
    if (lo.real < hi.real && lo.delta > hi.delta) {
      mpq_class const d = (hi.real - lo.real) / (lo.delta - hi.delta);
      if (d < delta_) delta_ = d;
    }
  };
  for (Var v = 0; v < value_.size(); ++v) {
    if (lower_[v]) limit(lower_[v]->value, value_[v]);
    if (upper_[v]) limit(value_[v], upper_[v]->value);
  }
}

// Each row read as sum c_i * x_i = 0 (the basic column with c = -1) bounds
// c_k * x_k by -sum of the others: above through the bounds that cap each
// -c_i * x_i from above, below through those that cap it from below.  With
// one column unbounded on the side needed, only that column gets a bound.
void Simplex::propagate_bounds(BoundCallback const& found) const {
  std::vector<Term> all;
  std::vector<Reason> reasons;
  for (Row const& row : rows_) {
    all = row.terms;
    all.emplace_back(row.basic, -1);
    for (bool const from_max : {true, false}) {
      auto used = [&](Term const& t) -> std::optional<Bound> const& {
        return (t.second > 0) == from_max ? lower_[t.first] : upper_[t.first];
      };
      DeltaRational sum;
      std::size_t missing = 0;
      Var missing_var = 0;
      for (Term const& t : all) {
        if (std::optional<Bound> const& b = used(t))
          sum.add_scaled(-t.second, b->value);
        else if (++missing == 1)
          missing_var = t.first;
      }
      if (missing > 1) continue;
      for (Term const& t : all) {
        Var const k = t.first;
        if (missing == 1 && k != missing_var) continue;
        DeltaRational rest = sum;
        if (missing == 0) rest.add_scaled(t.second, used(t)->value);
        DeltaRational const bound = (1 / t.second) * rest;
        bool const is_upper = (t.second > 0) == from_max;
        std::optional<Bound> const& now = is_upper ? upper_[k] : lower_[k];
        if (now && (is_upper ? now->value <= bound : now->value >= bound)) continue;
        reasons.clear();
        for (Term const& u : all)
          if (u.first != k) reasons.push_back(used(u)->reason);
        found(k, is_upper, bound, reasons);
      }
    }
  }
}

bool Simplex::check_invariants() const {
  char const* const me = "Simplex";
  std::size_t const n = value_.size();
  if (lower_.size() != n || upper_.size() != n || row_of_.size() != n || column_.size() != n ||
      position_.size() != n)
    qorv::invariant_violated(me, "per-column arrays differ in length");
  std::size_t occurrences = 0;
  for (std::uint32_t r = 0; r < rows_.size(); ++r) {
    Row const& row = rows_[r];
    if (row_of_[row.basic] != r)
      qorv::invariant_violated(me, "a row's basic column does not name the row", std::to_string(r));
    DeltaRational sum;
    for (Term const& t : row.terms) {
      if (row_of_[t.first] != kNoRow || t.second == 0)
        qorv::invariant_violated(me, "a row holds a basic column or a zero coefficient",
                                 std::to_string(r));
      auto const& col = column_[t.first];
      if (std::count(col.begin(), col.end(), r) != 1)
        qorv::invariant_violated(me, "a column list misses a row", std::to_string(t.first));
      sum.add_scaled(t.second, value_[t.first]);
    }
    occurrences += row.terms.size();
    if (sum != value_[row.basic])
      qorv::invariant_violated(me, "the assignment breaks a row", std::to_string(r));
  }
  std::size_t listed = 0;
  for (Var v = 0; v < n; ++v) {
    listed += column_[v].size();
    if (lower_[v] && upper_[v] && upper_[v]->value < lower_[v]->value)
      qorv::invariant_violated(me, "crossed bounds", std::to_string(v));
    if (row_of_[v] != kNoRow) continue;
    if ((lower_[v] && value_[v] < lower_[v]->value) || (upper_[v] && value_[v] > upper_[v]->value))
      qorv::invariant_violated(me, "a non-basic column is out of bounds", std::to_string(v));
  }
  if (listed != occurrences)
    qorv::invariant_violated(me, "column lists name rows the column is not in");
  if (!std::is_sorted(level_start_.begin(), level_start_.end()) ||
      (!level_start_.empty() && level_start_.back() > undo_.size()))
    qorv::invariant_violated(me, "level starts out of order");
  return true;
}

} // namespace fpsolve
