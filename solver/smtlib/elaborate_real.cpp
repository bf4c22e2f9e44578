// Elaboration of real terms (see elaborate.h): the operators of one table
// (real_operators), fp.to_real, and to_fp of a real term.
//
// Every real expression becomes a linear form over the terms that are not
// linear (real variables, fp.to_real, ite), so the arithmetic is checked to
// be linear where it is written: * needs all factors but one constant, / a
// constant non-zero divisor; anything else is an error naming the term.
// Comparisons become atoms "t < 0" or "t <= 0" of the difference of their
// sides (a chain an and of adjacent pairs); = is two non-strict atoms.
// Integer numerals denote reals; the Int sort and the integer operators
// are errors.
#include "smtlib/elaborate.h"

#include "smtlib/literals.h"

#include "engine/real_terms.h"

namespace fpsolve {

struct RealOperator {
  enum Kind : std::uint8_t {
    add,     // + (n-ary)
    sub,     // - (unary negation, else left-associative)
    mul,     // * (n-ary, at most one non-constant factor)
    div,     // / (left-associative, constant non-zero divisors)
    compare, // < <= > >= (chains)
    to_real, // fp.to_real
    integer  // an integer operator: an error
  };
  char const* name;
  Kind kind;
  bool strict;  // compare: < and >
  bool swapped; // compare: > and >= are < and <= of swapped sides
};

namespace {

// Exact values of floats with up to 16 exponent bits (Float128 has 15) have
// at most some 2^16 bits; wider formats beside reals are refused.
constexpr std::uint64_t kMaxRealExponentBits = 16;

constexpr RealOperator real_operators[] = {
    {"+", RealOperator::add, false, false},
    {"-", RealOperator::sub, false, false},
    {"*", RealOperator::mul, false, false},
    {"/", RealOperator::div, false, false},
    {"<", RealOperator::compare, true, false},
    {"<=", RealOperator::compare, false, false},
    {">", RealOperator::compare, true, true},
    {">=", RealOperator::compare, false, true},
    {"fp.to_real", RealOperator::to_real, false, false},
    {"div", RealOperator::integer, false, false},
    {"mod", RealOperator::integer, false, false},
    {"abs", RealOperator::integer, false, false},
    {"to_int", RealOperator::integer, false, false},
    {"to_real", RealOperator::integer, false, false},
    {"is_int", RealOperator::integer, false, false},
};

RealOperator const* find_real_operator(SExpr const& e) {
  if (e.items.empty() || e.items[0].is_list || e.items[0].atom.kind != Tok::symbol) return nullptr;
  for (RealOperator const& o : real_operators)
    if (e.items[0].atom.text == o.name) return &o;
  return nullptr;
}

// A linear form: constant + sum of coefficient * term.
struct Linear {
  mpq_class constant;
  std::vector<std::pair<int, mpq_class>> sum;
};

Linear linear_of(Problem const& p, int t) {
  RealTerm const& r = p.reals[static_cast<std::size_t>(t)];
  if (r.op == RealOp::linear) return {r.constant, r.sum};
  return {0, {{t, 1}}};
}

void add_scaled(Linear& to, Linear const& x, mpq_class const& k) {
  to.constant += k * x.constant;
  for (auto const& [t, c] : x.sum)
    to.sum.emplace_back(t, k * c);
}

} // namespace

bool Elaborator::real_frame(SExpr const& e) const {
  RealOperator const* o = find_real_operator(e);
  if (!o || o->kind == RealOperator::integer) return false;
  std::size_t const argc = e.items.size() - 1;
  if (o->kind == RealOperator::to_real) return argc == 1;
  return argc >= (o->kind == RealOperator::sub ? 1u : 2u);
}

bool Elaborator::real_term(SExpr const& e, Value* out) {
  RealOperator const* o = find_real_operator(e);
  if (!o) return false;
  *out = real_operation(e, *o);
  return true;
}

int Elaborator::real_arg(SExpr const& e) {
  Value const v = elaborate(e);
  if (!v.is_real) throw SmtError(e.pos, "wrong sort: expected a Real term, found " + sort_text(v));
  return v.index;
}

Value Elaborator::real_var(std::string const& name) {
  int const t = p_.add_real_var(name);
  int const v = p_.add_var(name, false, {2, 2});
  p_.vars[static_cast<std::size_t>(v)].real = t;
  Value r;
  r.is_bool = false;
  r.index = t;
  r.is_real = true;
  return r;
}

int Elaborator::real_equal(int a, int b) {
  Linear d = linear_of(p_, a);
  add_scaled(d, linear_of(p_, b), -1);
  int const ab = p_.add_linear(d.constant, d.sum);
  Linear n;
  add_scaled(n, d, -1);
  int const ba = p_.add_linear(n.constant, n.sum);
  return p_.add_node(Op::and_, -1, -1, {p_.add_real_atom(ab, false), p_.add_real_atom(ba, false)});
}

Value Elaborator::real_operation(SExpr const& e, RealOperator const& o) {
  std::string const& name = e.items[0].atom.text;
  std::size_t const argc = e.items.size() - 1;
  Value r;
  r.is_bool = false;
  r.is_real = true;
  if (o.kind == RealOperator::integer)
    throw SmtError(e.items[0].pos, "unsupported integer operator '" + name +
                                       "'; integers are outside the supported logics (reals, "
                                       "floating point and bit-vectors)");
  if (o.kind == RealOperator::to_real) {
    if (argc != 1) throw SmtError(e.pos, "fp.to_real expects 1 floating-point argument");
    int const x = fp_of(e.items[1]);
    if (p_.format_of(x).eb > kMaxRealExponentBits)
      throw SmtError(e.items[1].pos, "unsupported fp.to_real of a format with more than " +
                                         std::to_string(kMaxRealExponentBits) +
                                         " exponent bits (its exact values grow too large)");
    r.index = p_.add_to_real(x);
    return r;
  }
  if (argc < (o.kind == RealOperator::sub ? 1u : 2u))
    throw SmtError(e.pos, name + (o.kind == RealOperator::sub ? " expects at least 1 argument"
                                                              : " expects at least 2 arguments"));
  std::vector<int> args;
  for (std::size_t i = 1; i <= argc; ++i)
    args.push_back(real_arg(e.items[i]));
  auto constant = [&](std::size_t i, mpq_class* q) {
    Linear const l = linear_of(p_, args[i]);
    if (!l.sum.empty()) return false;
    *q = l.constant;
    return true;
  };
  Linear acc = linear_of(p_, args[0]);
  switch (o.kind) {
  case RealOperator::compare: {
    std::vector<int> parts;
    for (std::size_t i = 0; i + 1 < args.size(); ++i) {
      Linear d = linear_of(p_, args[o.swapped ? i + 1 : i]);
      add_scaled(d, linear_of(p_, args[o.swapped ? i : i + 1]), -1);
      parts.push_back(p_.add_real_atom(p_.add_linear(d.constant, d.sum), o.strict));
    }
    Value b;
    b.index = parts.size() == 1 ? parts[0] : p_.add_node(Op::and_, -1, -1, parts);
    return b;
  }
  case RealOperator::add:
  case RealOperator::sub:
    if (o.kind == RealOperator::sub && argc == 1) {
      acc = {};
      add_scaled(acc, linear_of(p_, args[0]), -1);
    }
    for (std::size_t i = 1; i < args.size(); ++i)
      add_scaled(acc, linear_of(p_, args[i]), o.kind == RealOperator::sub ? -1 : 1);
    break;
  case RealOperator::mul: {
    // The product of the constants, times the one factor that may not be.
    mpq_class k = 1;
    int term = -1;
    for (std::size_t i = 0; i < args.size(); ++i) {
      mpq_class q;
      if (constant(i, &q)) {
        k *= q;
      } else if (term < 0) {
        term = args[i];
      } else {
        throw SmtError(e.pos, "unsupported non-linear term " + e.to_text() +
                                  "; a product needs every factor but one constant");
      }
    }
    acc = {};
    if (term < 0)
      acc.constant = k;
    else
      add_scaled(acc, linear_of(p_, term), k);
    break;
  }
  case RealOperator::div:
    for (std::size_t i = 1; i < args.size(); ++i) {
      mpq_class q;
      if (!constant(i, &q))
        throw SmtError(e.items[i + 1].pos, "unsupported non-linear term " + e.to_text() +
                                               "; a divisor must be a constant");
      if (q == 0) throw SmtError(e.items[i + 1].pos, "division by zero in " + e.to_text());
      Linear scaled;
      add_scaled(scaled, acc, 1 / q);
      acc = scaled;
    }
    break;
  default:
    break;
  }
  r.index = p_.add_linear(acc.constant, acc.sum);
  return r;
}

Value Elaborator::to_fp_of_real(SExpr const& e, int rm, int x, IEEEFloat::format f) {
  RealTerm const& t = p_.reals[static_cast<std::size_t>(x)];
  if (p_.operands[static_cast<std::size_t>(rm)].var < 0 && t.op == RealOp::linear &&
      t.sum.empty()) {
    auto const mode = rm_of_value(p_.constant_of(rm));
    return {false, p_.add_constant(fp_from_rational(t.constant, f, mode, e.items[2].pos))};
  }
  if (f.eb > kMaxRealExponentBits)
    throw SmtError(e.pos, "unsupported to_fp of a real term to a format with more than " +
                              std::to_string(kMaxRealExponentBits) +
                              " exponent bits (the exact ends of its roundings grow too large)");
  return {false, p_.add_real_round(rm, x, f)};
}

} // namespace fpsolve
