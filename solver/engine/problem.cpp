// Building a Problem: every add_* appends and returns the new index, so an
// index handed out once stays valid for the life of the problem.
#include "engine/problem.h"

#include "engine/real_terms.h"

#include "host/packed_rank.h"

#include <algorithm>
#include <cassert>
#include <functional>
#include <map>
#include <stdexcept>

#include <utility>

namespace fpsolve {

Problem::Problem() {
  true_ = add_node(Op::t);
  false_ = add_node(Op::f);
}

int Problem::add_var(std::string const& name, bool is_bool, IEEEFloat::format fmt) {
  Var v;
  v.is_bool = is_bool;
  v.fmt = is_bool ? IEEEFloat::format{2, 2} : fmt;
  v.fmt_id = format_id(v.fmt);
  v.term = tm.mk_var(name, tm.fp_sort(v.fmt));
  vars.push_back(std::move(v));
  return static_cast<int>(vars.size() - 1);
}

int Problem::add_bv_var(std::string const& name, std::uint32_t n) {
  int const v = add_var(name, false, bv_format(n));
  vars[v].bv = n;
  Operand o;
  o.var = v;
  o.bv = n;
  return add_operand(o);
}

int Problem::add_bv_constant(mpz_class const& value, std::uint32_t n) {
  assert(value >= 0 && mpz_sizeinbase(value.get_mpz_t(), 2) <= n &&
         "a bit-vector constant lies in 0 .. 2^n - 1");
  std::string const key = "bv" + std::to_string(n) + ":" + value.get_str(16);
  if (auto it = constant_index_.find(key); it != constant_index_.end()) return it->second;
  Operand o;
  o.fmt = format_id(bv_format(n));
  o.bv = n;
  o.constant = static_cast<int>(constants.size());
  constants.push_back(qorv::from_packed_rank(value.get_mpz_t(), bv_format(n)));
  operands.push_back(o);
  constant_index_.emplace(key, static_cast<int>(operands.size() - 1));
  return static_cast<int>(operands.size() - 1);
}

int Problem::add_constant(IEEEFloat const& v) {
  IEEEFloat c = canonical(v);
  std::string const bits = c.to_str();
  if (auto it = constant_index_.find(bits); it != constant_index_.end()) return it->second;
  Operand o;
  o.fmt = format_id(v.get_format());
  o.constant = static_cast<int>(constants.size());
  constants.push_back(std::move(c));
  operands.push_back(o);
  constant_index_.emplace(bits, static_cast<int>(operands.size() - 1));
  return static_cast<int>(operands.size() - 1);
}

int Problem::add_operand(Operand const& o) {
  assert(o.var >= 0 && "constants are added by add_constant");
  operands.push_back(o);
  operands.back().constant = -1;
  operands.back().fmt = vars[static_cast<std::size_t>(o.var)].fmt_id;
  return static_cast<int>(operands.size() - 1);
}

int Problem::add_node(Op op, int a, int b, std::vector<int> kids) {
  nodes.push_back(Node{op, a, b, std::move(kids)});
  return static_cast<int>(nodes.size() - 1);
}

int Problem::add_rm_var(std::string const& name) {
  int const v = add_var(name, false, {2, 2});
  vars[v].is_rm = true;
  Operand o;
  o.var = v;
  o.is_rm = true;
  return add_operand(o);
}

int Problem::add_rm_constant(IEEEFloat::rounding_mode rm) {
  int& known = rm_constant_[static_cast<int>(rm_of_value(rm_value(rm)))];
  if (known < 0) {
    Operand o;
    o.fmt = format_id({2, 2});
    o.constant = static_cast<int>(constants.size());
    o.is_rm = true;
    constants.push_back(rm_value(rm));
    operands.push_back(o);
    known = static_cast<int>(operands.size() - 1);
  }
  return known;
}

int Problem::add_def(Def d, IEEEFloat::format fmt, std::uint32_t bv) {
  if (bv > 0) fmt = bv_format(bv);
  DefKey const key{d.op, d.rm, &d.args, d.cond, fmt.eb, fmt.sb};
  if (2 * (defs.size() + 1) > def_index_.size()) { // at most half full
    std::vector<int> const old = std::exchange(
        def_index_, std::vector<int>(std::max<std::size_t>(16, 2 * def_index_.size()), -1));
    for (int o : old)
      if (o >= 0) def_index_[def_slot(key_of_result(o))] = o;
  }
  std::size_t const slot = def_slot(key);
  if (def_index_[slot] >= 0) return def_index_[slot];
  int const v = add_var("@t" + std::to_string(defs.size()), false, fmt);
  vars[v].def = static_cast<int>(defs.size());
  vars[v].bv = bv;
  d.var = v;
  defs.push_back(std::move(d));
  Operand o;
  o.var = v;
  o.bv = bv;
  int const operand = add_operand(o);
  def_index_[slot] = operand;
  return operand;
}

int Problem::add_real_var(std::string const& name) {
  RealTerm t;
  t.name = name;
  reals.push_back(std::move(t));
  return static_cast<int>(reals.size() - 1);
}

int Problem::add_linear(mpq_class const& constant,
                        std::vector<std::pair<int, mpq_class>> const& sum) {
  // Flattened over linear terms and merged by term, so equal forms share.
  mpq_class c = constant;
  std::map<int, mpq_class> merged;
  for (auto const& [t, k] : sum) {
    RealTerm const& rt = reals[static_cast<std::size_t>(t)];
    if (rt.op != RealOp::linear) {
      merged[t] += k;
      continue;
    }
    c += k * rt.constant;
    for (auto const& [u, j] : rt.sum)
      merged[u] += k * j;
  }
  RealTerm lin;
  lin.op = RealOp::linear;
  lin.constant = c;
  std::string key = "L" + c.get_str();
  for (auto const& [t, k] : merged)
    if (k != 0) {
      lin.sum.emplace_back(t, k);
      key += " " + std::to_string(t) + ":" + k.get_str();
    }
  if (c == 0 && lin.sum.size() == 1 && lin.sum[0].second == 1) return lin.sum[0].first;
  auto [it, fresh] = real_index_.try_emplace(key, static_cast<int>(reals.size()));
  if (fresh) reals.push_back(std::move(lin));
  return it->second;
}

int Problem::add_to_real(int operand) {
  Operand const& o = operands[static_cast<std::size_t>(operand)];
  IEEEFloat::format const& of = format_of(operand);
  std::string const f = std::to_string(of.eb) + "." + std::to_string(of.sb);
  auto [sp, fresh_specials] = special_index_.try_emplace(f);
  if (fresh_specials)
    for (int i = 0; i < 3; ++i) // not declared: models show them through the terms only
      sp->second[static_cast<std::size_t>(i)] = add_real_var("@to_real." +
                                                             std::string(i == 0   ? "nan."
                                                                         : i == 1 ? "+oo."
                                                                                  : "-oo.") +
                                                             f);
  std::array<int, 3> const specials = sp->second;
  if (o.var < 0) {
    IEEEFloat const& c = constant_of(operand);
    if (c.is_nan()) return specials[0];
    if (c.is_inf()) return specials[c.get_sign() ? 2 : 1];
    return add_linear(exact_value(c), {});
  }
  auto [it, fresh] =
      real_index_.try_emplace("T" + std::to_string(operand), static_cast<int>(reals.size()));
  if (fresh) {
    RealTerm t;
    t.op = RealOp::to_real;
    t.operand = operand;
    for (std::size_t i = 0; i < 3; ++i)
      t.special[i] = specials[i];
    reals.push_back(std::move(t));
  }
  return it->second;
}

int Problem::add_real_ite(int cond, int a, int b) {
  if (cond == true_ || a == b) return a;
  if (cond == false_) return b;
  std::string const key =
      "I" + std::to_string(cond) + " " + std::to_string(a) + " " + std::to_string(b);
  auto [it, fresh] = real_index_.try_emplace(key, static_cast<int>(reals.size()));
  if (fresh) {
    RealTerm t;
    t.op = RealOp::ite;
    t.cond = cond;
    t.a = a;
    t.b = b;
    reals.push_back(std::move(t));
  }
  return it->second;
}

int Problem::add_real_atom(int term, bool strict) {
  RealTerm const& t = reals[static_cast<std::size_t>(term)];
  if (t.op == RealOp::linear && t.sum.empty())
    return (strict ? t.constant < 0 : t.constant <= 0) ? true_ : false_;
  std::string const key = (strict ? "A<" : "A") + std::to_string(term);
  if (auto it = real_index_.find(key); it != real_index_.end()) return it->second;
  int const v = add_var("@r" + std::to_string(real_atoms.size()), true, {2, 2});
  real_atoms.push_back(RealAtom{v, term, strict});
  int const n = add_node(Op::bvar, v);
  real_index_.emplace(key, n);
  return n;
}

int Problem::add_real_round(int rm, int real, IEEEFloat::format fmt) {
  std::string const key = "R" + std::to_string(rm) + " " + std::to_string(real) + " " +
                          std::to_string(fmt.eb) + " " + std::to_string(fmt.sb);
  if (auto it = real_index_.find(key); it != real_index_.end()) return it->second;
  int const v = add_var("@f" + std::to_string(real_rounds.size()), false, fmt);
  real_rounds.push_back(RealRound{v, rm, real});
  Operand o;
  o.var = v;
  int const operand = add_operand(o);
  real_index_.emplace(key, operand);
  return operand;
}

std::uint16_t Problem::format_id(IEEEFloat::format const& f) {
  // Formats are few (a handful of float sorts, a bit-vector width each), so
  // a scan is the cheapest index.
  for (std::size_t i = 0; i < formats.size(); ++i)
    if (formats[i] == f) return static_cast<std::uint16_t>(i);
  if (formats.size() > UINT16_MAX) throw std::length_error("more than 65536 sorts");
  formats.push_back(f);
  return static_cast<std::uint16_t>(formats.size() - 1);
}

Problem::DefKey Problem::key_of_result(int operand) const {
  Var const& v = vars[operands[operand].var];
  Def const& d = defs[v.def];
  return DefKey{d.op, d.rm, &d.args, d.cond, v.fmt.eb, v.fmt.sb};
}

std::size_t Problem::def_slot(DefKey const& k) const {
  // Fibonacci hashing spreads the combined hash over the slots; linear
  // probing from there.
  std::size_t const mask = def_index_.size() - 1;
  std::size_t i = static_cast<std::size_t>((hash(k) * 0x9e3779b97f4a7c15ULL) >> 32) & mask;
  while (def_index_[i] >= 0 && !(key_of_result(def_index_[i]) == k))
    i = (i + 1) & mask;
  return i;
}

std::uint64_t Problem::hash(DefKey const& k) {
  // Boost's hash_combine step over every field.
  std::size_t h = 0;
  auto mix = [&h](std::uint64_t v) {
    h ^= std::hash<std::uint64_t>()(v) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
  };
  mix(static_cast<std::uint64_t>(k.op));
  mix(static_cast<std::uint64_t>(k.rm));
  mix(static_cast<std::uint64_t>(k.cond));
  mix(k.eb);
  mix(k.sb);
  for (int a : *k.args)
    mix(static_cast<std::uint64_t>(a));
  return h;
}

IEEEFloat rm_value(IEEEFloat::rounding_mode rm) {
  if (rm > IEEEFloat::rm_toward_zero) throw std::invalid_argument("invalid rounding mode");
  return qorv::from_packed_rank128(static_cast<qorv::Rank128>(rm), {2, 2});
}

IEEEFloat::rounding_mode rm_of_value(IEEEFloat const& v) {
  qorv::Rank128 const r = qorv::packed_rank128(v);
  assert(r >= 0 && r <= 4 && "a rounding mode is one of the five values");
  return static_cast<IEEEFloat::rounding_mode>(static_cast<int>(r));
}

IEEEFloat canonical(IEEEFloat const& v) {
  return v.is_nan() ? IEEEFloat::nan(v.get_format()) : v;
}

} // namespace fpsolve
