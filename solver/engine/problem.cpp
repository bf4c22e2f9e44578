// Building a Problem: every add_* appends and returns the new index, so an
// index handed out once stays valid for the life of the problem.
#include "engine/problem.h"

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

int Problem::add_constant(IEEEFloat const& v) {
  Operand o;
  o.constant = canonical(v);
  o.fmt = v.get_format();
  operands.push_back(std::move(o));
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

IEEEFloat canonical(IEEEFloat const& v) {
  return v.is_nan() ? IEEEFloat::nan(v.get_format()) : v;
}

} // namespace fpsolve
