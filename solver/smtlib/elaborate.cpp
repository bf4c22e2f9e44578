// Elaboration of SMT-LIB terms and commands into a Problem (see
// elaborate.h): sorts, literals in every form, Boolean structure, the
// comparisons and classifications of the fragment.
#include "smtlib/elaborate.h"

#include "smtlib/literals.h"

#include <gmpxx.h>
#include <stdexcept>

namespace fpsolve {

namespace {

std::string fmt_text(IEEEFloat::format f) {
  return "(_ FloatingPoint " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ")";
}

std::uint64_t numeral_of(SExpr const& e, char const* what) {
  if (e.is_list || e.atom.kind != Tok::numeral || e.atom.text.size() > 9)
    throw SmtError(e.pos, std::string("expected a numeral for the ") + what);
  return std::stoull(e.atom.text);
}

IEEEFloat::format format_of(SExpr const& eb, SExpr const& sb) {
  IEEEFloat::format f{numeral_of(eb, "exponent width"), numeral_of(sb, "significand width")};
  try {
    IEEEFloat::check_format(f);
  } catch (std::invalid_argument const&) {
    throw SmtError(eb.pos, "invalid floating-point format " + fmt_text(f) +
                               "; expected both widths at least 2");
  }
  return f;
}

bool rounding_mode_of(SExpr const& e, IEEEFloat::rounding_mode* rm) {
  if (e.is_list || e.atom.kind != Tok::symbol) return false;
  std::string const& s = e.atom.text;
  if (s == "RNE" || s == "roundNearestTiesToEven")
    *rm = IEEEFloat::rm_nearest_even;
  else if (s == "RNA" || s == "roundNearestTiesToAway")
    *rm = IEEEFloat::rm_nearest_away;
  else if (s == "RTP" || s == "roundTowardPositive")
    *rm = IEEEFloat::rm_toward_positive;
  else if (s == "RTN" || s == "roundTowardNegative")
    *rm = IEEEFloat::rm_toward_negative;
  else if (s == "RTZ" || s == "roundTowardZero")
    *rm = IEEEFloat::rm_toward_zero;
  else
    return false;
  return true;
}

// A real literal: numeral, decimal, (- r) or (/ r r), as an exact rational.
mpq_class real_of(SExpr const& e) {
  if (!e.is_list && (e.atom.kind == Tok::numeral || e.atom.kind == Tok::decimal)) {
    std::string const& t = e.atom.text;
    auto dot = t.find('.');
    if (dot == std::string::npos) return mpq_class(mpz_class(t, 10));
    mpq_class q(mpz_class(t.substr(0, dot) + t.substr(dot + 1), 10),
                mpz_class("1" + std::string(t.size() - dot - 1, '0'), 10));
    q.canonicalize();
    return q;
  }
  if (e.is_list && e.items.size() == 2 && e.items[0].is_symbol("-")) return -real_of(e.items[1]);
  if (e.is_list && e.items.size() == 3 && e.items[0].is_symbol("/")) {
    mpq_class d = real_of(e.items[2]);
    if (d == 0) throw SmtError(e.pos, "division by zero in a real literal");
    return real_of(e.items[1]) / d;
  }
  throw SmtError(e.pos, "expected a real literal (numeral, decimal, (- r) or (/ r r))");
}

} // namespace

Elaborator::Sort Elaborator::parse_sort(SExpr const& e) const {
  Sort s;
  if (!e.is_list) {
    if (e.atom.kind != Tok::symbol) throw SmtError(e.pos, "expected a sort");
    std::string const& n = e.atom.text;
    if (n == "Bool")
      s.is_bool = true;
    else if (n == "RoundingMode")
      s.is_rm = true;
    else if (n == "Float16")
      s.fmt = {5, 11};
    else if (n == "Float32")
      s.fmt = {8, 24};
    else if (n == "Float64")
      s.fmt = {11, 53};
    else if (n == "Float128")
      s.fmt = {15, 113};
    else if (Binding const* b = lookup(n); b && b->is_sort)
      s = b->sort;
    else
      throw SmtError(e.pos, "unknown sort '" + n +
                                "'; expected Bool, a floating-point sort or a defined sort");
    return s;
  }
  if (e.items.size() == 4 && e.items[0].is_symbol("_") && e.items[1].is_symbol("FloatingPoint")) {
    s.fmt = format_of(e.items[2], e.items[3]);
    return s;
  }
  throw SmtError(e.pos, "unknown sort; expected Bool, Float16, Float32, Float64, Float128 or (_ "
                        "FloatingPoint eb sb)");
}

Elaborator::Binding const* Elaborator::lookup(std::string const& name) const {
  auto it = names_.find(name);
  return it == names_.end() ? nullptr : &it->second;
}

void Elaborator::bind(std::string const& name, Binding b, SExpr const& where) {
  if (names_.count(name)) throw SmtError(where.pos, "name '" + name + "' is already declared");
  names_.emplace(name, b);
  if (!scopes_.empty()) scopes_.back().names.push_back(name);
}

void Elaborator::declare(std::string const& name, SExpr const& sort_e, SExpr const& where) {
  Sort s = parse_sort(sort_e);
  if (s.is_rm)
    throw SmtError(
        sort_e.pos,
        "unsupported sort RoundingMode for a constant; expected Bool or a floating-point sort");
  if (lookup(name)) throw SmtError(where.pos, "name '" + name + "' is already declared");
  int const idx = p_.add_var(name, s.is_bool, s.fmt);
  Binding b;
  if (s.is_bool) {
    b.value = {true, p_.add_node(Op::bvar, idx)};
  } else {
    Operand o;
    o.var = idx;
    o.fmt = s.fmt;
    b.value = {false, p_.add_operand(o)};
  }
  bind(name, b, where);
  p_.declared.push_back(idx);
}

void Elaborator::define(std::string const& name, SExpr const& sort_e, SExpr const& body,
                        SExpr const& where) {
  Sort s = parse_sort(sort_e);
  Value v = elaborate(body);
  if (s.is_rm || v.is_bool != s.is_bool || (!s.is_bool && !(p_.operands[v.index].fmt == s.fmt)))
    throw SmtError(body.pos, "wrong sort: the body of '" + name + "' is " + sort_text(v) +
                                 ", expected the declared sort");
  Binding b;
  b.value = v;
  bind(name, b, where);
}

void Elaborator::define_sort(std::string const& name, SExpr const& sort_e, SExpr const& where) {
  Binding b;
  b.is_sort = true;
  b.sort = parse_sort(sort_e);
  bind(name, b, where);
}

void Elaborator::assert_formula(SExpr const& e) {
  p_.assertions.push_back(bool_of(e));
}

void Elaborator::push(std::size_t n) {
  for (std::size_t i = 0; i < n; ++i)
    scopes_.push_back(Scope{p_.assertions.size(), p_.declared.size(), {}});
}

void Elaborator::pop(std::size_t n, SExpr const& where) {
  if (n > scopes_.size())
    throw SmtError(where.pos, "pop of " + std::to_string(n) + " levels, but only " +
                                  std::to_string(scopes_.size()) + " pushed");
  for (std::size_t i = 0; i < n; ++i) {
    Scope& s = scopes_.back();
    p_.assertions.resize(s.assertions);
    p_.declared.resize(s.declared);
    for (auto const& name : s.names)
      names_.erase(name);
    scopes_.pop_back();
  }
}

std::string Elaborator::sort_text(Value v) const {
  return v.is_bool ? "Bool" : fmt_text(p_.operands[v.index].fmt);
}

int Elaborator::bool_of(SExpr const& e) {
  Value v = elaborate(e);
  if (!v.is_bool) throw SmtError(e.pos, "wrong sort: expected a Bool term, found " + sort_text(v));
  return v.index;
}

int Elaborator::fp_of(SExpr const& e) {
  Value v = elaborate(e);
  if (v.is_bool) throw SmtError(e.pos, "wrong sort: expected a floating-point term, found Bool");
  return v.index;
}

Value Elaborator::elaborate(SExpr const& e) {
  if (e.is_list) return elaborate_list(e);
  switch (e.atom.kind) {
  case Tok::symbol: {
    std::string const& n = e.atom.text;
    if (n == "true") return {true, p_.true_node()};
    if (n == "false") return {true, p_.false_node()};
    IEEEFloat::rounding_mode rm;
    if (rounding_mode_of(e, &rm))
      throw SmtError(e.pos,
                     "wrong sort: a rounding mode may only appear as the first argument of to_fp");
    Binding const* b = lookup(n);
    if (!b || b->is_sort)
      throw SmtError(e.pos, "undeclared name '" + n + "'; expected a declared constant");
    return b->value;
  }
  case Tok::numeral:
  case Tok::decimal:
    throw SmtError(e.pos, "wrong sort: found the real literal " + e.atom.text +
                              "; expected a Boolean or floating-point term");
  case Tok::binary:
  case Tok::hex:
    throw SmtError(e.pos, "a bit-vector literal may only appear inside fp or to_fp");
  default:
    throw SmtError(e.pos, "expected a term");
  }
}

// (_ +oo eb sb) and friends.
int Elaborator::indexed_fp(SExpr const& e) {
  if (e.items.size() != 4 || e.items[1].is_list)
    throw SmtError(e.pos,
                   "unknown indexed term; expected (_ +oo eb sb), (_ -oo eb sb), (_ NaN eb sb), "
                   "(_ +zero eb sb) or (_ -zero eb sb)");
  std::string const& n = e.items[1].atom.text;
  if (n != "+oo" && n != "-oo" && n != "NaN" && n != "+zero" && n != "-zero")
    throw SmtError(e.items[1].pos,
                   "unknown indexed constant '" + n + "'; expected +oo, -oo, NaN, +zero or -zero");
  IEEEFloat::format const f = format_of(e.items[2], e.items[3]);
  bool const negative = n[0] == '-';
  if (n == "NaN") return p_.add_constant(IEEEFloat::nan(f));
  if (n[1] == 'o') return p_.add_constant(IEEEFloat::inf(f, negative));
  return p_.add_constant(IEEEFloat::zero(f, negative));
}

int Elaborator::fp_app(SExpr const& e, std::string const& head) {
  std::size_t const argc = e.items.size() - 1;
  if (head == "fp") {
    if (argc != 3) throw SmtError(e.pos, "fp expects 3 bit-vector literals");
    for (std::size_t i = 1; i <= 3; ++i)
      if (e.items[i].is_list || e.items[i].atom.kind != Tok::binary)
        throw SmtError(e.items[i].pos, "expected a binary literal #b... as argument " +
                                           std::to_string(i) + " of fp");
    return p_.add_constant(fp_from_bit_strings(e.items[1].atom.text, e.items[2].atom.text,
                                               e.items[3].atom.text, e.pos));
  }
  // fp.neg / fp.abs: views of the argument, or folded constants.
  if (argc != 1) throw SmtError(e.pos, head + " expects 1 argument");
  int const a = fp_of(e.items[1]);
  bool const is_neg = head == "fp.neg";
  Operand o = p_.operands[a];
  if (o.var < 0) return p_.add_constant(flip_sign(o.constant, !is_neg));
  if (is_neg) {
    o.neg = !o.neg;
  } else {
    o.abs = true;
    o.neg = false;
  }
  return p_.add_operand(o);
}

Value Elaborator::elaborate_list(SExpr const& e) {
  if (e.items.empty()) throw SmtError(e.pos, "expected a term, found '()'");
  SExpr const& h = e.items[0];
  std::size_t const argc = e.items.size() - 1;
  if (h.is_symbol("_")) return {false, indexed_fp(e)};
  if (h.is_list) {
    // ((_ to_fp eb sb) RM real) and ((_ to_fp eb sb) bitvector)
    if (h.items.size() == 4 && h.items[0].is_symbol("_") && h.items[1].is_symbol("to_fp")) {
      IEEEFloat::format f = format_of(h.items[2], h.items[3]);
      IEEEFloat::rounding_mode rm;
      if (argc == 1 && !e.items[1].is_list &&
          (e.items[1].atom.kind == Tok::binary || e.items[1].atom.kind == Tok::hex))
        return {false, p_.add_constant(fp_from_bitvector(e.items[1].atom, f))};
      if (argc == 2 && rounding_mode_of(e.items[1], &rm)) {
        return {false, p_.add_constant(fp_from_rational(real_of(e.items[2]), f, rm, e.pos))};
      }
      throw SmtError(
          e.pos, "unsupported to_fp argument; expected a bit-vector literal, or a rounding mode "
                 "and a real literal");
    }
    throw SmtError(h.pos,
                   "unknown operator " + h.to_text() + "; expected a symbol or (_ to_fp eb sb)");
  }
  if (h.atom.kind != Tok::symbol) throw SmtError(h.pos, "expected an operator symbol");
  std::string const& op = h.atom.text;
  auto need = [&](std::size_t lo, char const* what) {
    if (argc < lo) throw SmtError(e.pos, op + " expects " + what);
  };
  auto bools = [&]() {
    std::vector<int> k;
    for (std::size_t i = 1; i <= argc; ++i)
      k.push_back(bool_of(e.items[i]));
    return k;
  };
  auto fps = [&]() {
    std::vector<int> k;
    for (std::size_t i = 1; i <= argc; ++i) {
      k.push_back(fp_of(e.items[i]));
      if (i > 1 && !(p_.operands[k.back()].fmt == p_.operands[k[0]].fmt))
        throw SmtError(e.items[i].pos, "wrong sort: argument " + std::to_string(i) + " of " + op +
                                           " is " + fmt_text(p_.operands[k.back()].fmt) +
                                           ", expected " + fmt_text(p_.operands[k[0]].fmt));
    }
    return k;
  };
  if (op == "not") {
    if (argc != 1) throw SmtError(e.pos, "not expects 1 argument");
    return {true, p_.add_node(Op::not_, -1, -1, bools())};
  }
  if (op == "and" || op == "or") {
    need(1, "at least 1 argument");
    return {true, p_.add_node(op == "and" ? Op::and_ : Op::or_, -1, -1, bools())};
  }
  if (op == "=>") {
    need(2, "at least 2 arguments");
    auto k = bools(); // right associative: a => (b => c)
    int r = k.back();
    for (std::size_t i = k.size() - 1; i-- > 0;)
      r = p_.add_node(Op::or_, -1, -1, {p_.add_node(Op::not_, -1, -1, {k[i]}), r});
    return {true, r};
  }
  if (op == "xor") {
    need(2, "at least 2 arguments");
    return {true, p_.add_node(Op::xor_, -1, -1, bools())};
  }
  if (op == "ite") {
    if (argc != 3) throw SmtError(e.pos, "ite expects 3 arguments");
    int c = bool_of(e.items[1]);
    Value t = elaborate(e.items[2]);
    if (!t.is_bool)
      throw SmtError(e.items[2].pos,
                     "unsupported ite over floating-point terms; expected Bool branches");
    return {true, p_.add_node(Op::ite, -1, -1, {c, t.index, bool_of(e.items[3])})};
  }
  if (op == "=" || op == "distinct") {
    need(2, "at least 2 arguments");
    Value first = elaborate(e.items[1]);
    std::vector<int> parts;
    if (first.is_bool) {
      auto k = bools();
      if (op == "=")
        for (std::size_t i = 0; i + 1 < k.size(); ++i)
          parts.push_back(p_.add_node(Op::iff, -1, -1, {k[i], k[i + 1]}));
      else
        for (std::size_t i = 0; i < k.size(); ++i)
          for (std::size_t j = i + 1; j < k.size(); ++j)
            parts.push_back(p_.add_node(Op::xor_, -1, -1, {k[i], k[j]}));
    } else {
      auto k = fps();
      if (op == "=")
        for (std::size_t i = 0; i + 1 < k.size(); ++i)
          parts.push_back(p_.add_node(Op::ident, k[i], k[i + 1]));
      else
        for (std::size_t i = 0; i < k.size(); ++i)
          for (std::size_t j = i + 1; j < k.size(); ++j)
            parts.push_back(p_.add_node(Op::not_, -1, -1, {p_.add_node(Op::ident, k[i], k[j])}));
    }
    return {true, parts.size() == 1 ? parts[0] : p_.add_node(Op::and_, -1, -1, parts)};
  }
  if (op == "fp.leq" || op == "fp.lt" || op == "fp.geq" || op == "fp.gt" || op == "fp.eq") {
    need(2, "at least 2 floating-point arguments");
    auto k = fps();
    std::vector<int> parts;
    for (std::size_t i = 0; i + 1 < k.size(); ++i) {
      int a = k[i], b = k[i + 1];
      if (op == "fp.geq" || op == "fp.gt") std::swap(a, b);
      Op o = op == "fp.eq" ? Op::fp_eq : (op == "fp.lt" || op == "fp.gt") ? Op::lt : Op::leq;
      parts.push_back(p_.add_node(o, a, b));
    }
    return {true, parts.size() == 1 ? parts[0] : p_.add_node(Op::and_, -1, -1, parts)};
  }
  static std::pair<char const*, Op> const classes[] = {{"fp.isNaN", Op::is_nan},
                                                       {"fp.isInfinite", Op::is_inf},
                                                       {"fp.isZero", Op::is_zero},
                                                       {"fp.isNormal", Op::is_normal},
                                                       {"fp.isSubnormal", Op::is_subnormal},
                                                       {"fp.isNegative", Op::is_negative},
                                                       {"fp.isPositive", Op::is_positive}};
  for (auto const& [name, o] : classes) {
    if (op != name) continue;
    if (argc != 1) throw SmtError(e.pos, op + " expects 1 argument");
    return {true, p_.add_node(o, fp_of(e.items[1]))};
  }
  if (op == "fp" || op == "fp.neg" || op == "fp.abs") return {false, fp_app(e, op)};
  if (op == "!") {
    need(1, "a term and attributes");
    return elaborate(e.items[1]);
  }
  if (Binding const* b = lookup(op); b && !b->is_sort)
    throw SmtError(h.pos, "'" + op + "' is a constant, not a function; expected an operator");
  throw SmtError(h.pos,
                 "unknown operator '" + op +
                     "'; expected a Boolean connective, a floating-point "
                     "comparison or classification, fp.neg, fp.abs or a floating-point literal");
}

} // namespace fpsolve
