// Building a Problem: every add_* appends and returns the new index, so an
// index handed out once stays valid for the life of the problem.
#include "engine/problem.h"

#include "host/packed_rank.h"

#include <cassert>
#include <functional>
#include <stdexcept>

#include <utility>

namespace fpsolve {

Problem::Problem() {
  true_ = add_node(Op::t);
  false_ = add_node(Op::f);
}

int Problem::add_var(std::string const& name, bool is_bool, IEEEFloat::format fmt) {
  Var v;
  v.name = name;
  v.is_bool = is_bool;
  v.fmt = is_bool ? IEEEFloat::format{2, 2} : fmt;
  v.term = tm.mk_var(name, tm.fp_sort(v.fmt));
  vars.push_back(std::move(v));
  return static_cast<int>(vars.size() - 1);
}

int Problem::add_bv_var(std::string const& name, std::uint32_t n) {
  int const v = add_var(name, false, bv_format(n));
  vars[v].bv = n;
  Operand o;
  o.var = v;
  o.fmt = bv_format(n);
  o.bv = n;
  return add_operand(o);
}

int Problem::add_bv_constant(mpz_class const& value, std::uint32_t n) {
  assert(value >= 0 && mpz_sizeinbase(value.get_mpz_t(), 2) <= n &&
         "a bit-vector constant lies in 0 .. 2^n - 1");
  std::string const key = "bv" + std::to_string(n) + ":" + value.get_str(16);
  if (auto it = constant_index_.find(key); it != constant_index_.end()) return it->second;
  Operand o;
  o.fmt = bv_format(n);
  o.bv = n;
  o.constant = qorv::from_packed_rank(value.get_mpz_t(), o.fmt);
  operands.push_back(std::move(o));
  constant_index_.emplace(key, static_cast<int>(operands.size() - 1));
  return static_cast<int>(operands.size() - 1);
}

int Problem::add_constant(IEEEFloat const& v) {
  Operand o;
  o.constant = canonical(v);
  std::string const bits = o.constant.to_str();
  if (auto it = constant_index_.find(bits); it != constant_index_.end()) return it->second;
  o.fmt = v.get_format();
  operands.push_back(std::move(o));
  constant_index_.emplace(bits, static_cast<int>(operands.size() - 1));
  return static_cast<int>(operands.size() - 1);
}

int Problem::add_operand(Operand const& o) {
  operands.push_back(o);
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
  o.fmt = {2, 2};
  o.is_rm = true;
  return add_operand(o);
}

int Problem::add_rm_constant(IEEEFloat::rounding_mode rm) {
  int& known = rm_constant_[static_cast<int>(rm_of_value(rm_value(rm)))];
  if (known < 0) {
    Operand o;
    o.constant = rm_value(rm);
    o.fmt = {2, 2};
    o.is_rm = true;
    known = add_operand(o);
  }
  return known;
}

int Problem::add_def(Def d, IEEEFloat::format fmt, std::uint32_t bv) {
  if (bv > 0) fmt = bv_format(bv);
  DefKey key{d.op, d.rm, d.args, d.cond, fmt.eb, fmt.sb};
  if (auto it = def_index_.find(key); it != def_index_.end()) return it->second;
  int const v = add_var("@t" + std::to_string(defs.size()), false, fmt);
  vars[v].def = static_cast<int>(defs.size());
  vars[v].bv = bv;
  d.var = v;
  defs.push_back(std::move(d));
  Operand o;
  o.var = v;
  o.fmt = fmt;
  o.bv = bv;
  int const operand = add_operand(o);
  def_index_.emplace(std::move(key), operand);
  return operand;
}

std::size_t Problem::DefKeyHash::operator()(DefKey const& k) const {
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
  for (int a : k.args)
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
