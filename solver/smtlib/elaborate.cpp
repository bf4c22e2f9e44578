// Elaboration of SMT-LIB terms and commands into a Problem (see
// elaborate.h): sorts, literals in every form, Boolean structure, and the
// floating-point operators, all from one table (fp_operators) so that what
// is elaborated and what is checked cannot drift apart.
#include "smtlib/elaborate.h"

#include "smtlib/literals.h"

#include "engine/apply.h"

#include "host/fp_convert.h"

#include <cstdint>
#include <gmpxx.h>
#include <stdexcept>
#include <utility>

namespace fpsolve {

namespace {

// Terms nested deeper than this below the last explicit stack are
// elaborated by elaborate_iteratively: the recursion of a few frames per
// level stays well within any thread's stack, sanitizers included.
constexpr int kRecursionDepth = 48;

} // namespace

std::uint64_t numeral_of(SExpr const& e, char const* what) {
  if (e.is_list || e.atom.kind != Tok::numeral || e.atom.text.size() > 9)
    throw SmtError(e.pos, std::string("expected a numeral for the ") + what);
  return std::stoull(e.atom.text);
}

namespace {} // namespace

std::uint32_t bv_width_of(SExpr const& e) {
  std::uint64_t const n = numeral_of(e, "bit-vector width");
  if (n < 1 || n > kMaxBvWidth)
    throw SmtError(e.pos, "unsupported bit-vector width " + std::to_string(n) + "; expected 1 to " +
                              std::to_string(kMaxBvWidth));
  return static_cast<std::uint32_t>(n);
}

namespace {

IEEEFloat::format format_of(SExpr const& eb, SExpr const& sb) {
  IEEEFloat::format f{numeral_of(eb, "exponent width"), numeral_of(sb, "significand width")};
  try {
    IEEEFloat::check_format(f);
  } catch (std::invalid_argument const&) {
    throw SmtError(eb.pos, "invalid floating-point format " + qorv::fp_sort_text(f) +
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

// "-" followed by a numeral or a decimal.
bool negative_literal(std::string const& s) {
  std::size_t const dot = s.find('.');
  auto digits = [&](std::size_t from, std::size_t to) {
    return to > from && s.find_first_not_of("0123456789", from) >= to;
  };
  if (s.size() < 2 || s[0] != '-') return false;
  if (dot == std::string::npos) return digits(1, s.size());
  return digits(1, dot) && digits(dot + 1, s.size());
}

// A numeral or decimal as an exact rational ((- r) and (/ r r) are real
// operations on it, elaborate_real.cpp).
mpq_class real_of(SExpr const& e) {
  std::string const& t = e.atom.text;
  auto dot = t.find('.');
  if (dot == std::string::npos) return mpq_class(mpz_class(t, 10));
  mpq_class q(mpz_class(t.substr(0, dot) + t.substr(dot + 1), 10),
              mpz_class("1" + std::string(t.size() - dot - 1, '0'), 10));
  q.canonicalize();
  return q;
}

} // namespace

// The floating-point operators that take floating-point operands, one row
// each.  A row drives both the elaboration and the checks: the arity, a
// rounding mode before the operands, and one format shared by every
// floating-point operand (fp_operands).  The result is Bool for chains and
// tests, a value of the operands' format for terms and sign operations.
struct FpOperator {
  enum Kind : std::uint8_t {
    term,  // a Def (arithmetic), folded when every argument is a constant
    chain, // a comparison of two or more operands, each adjacent pair an atom
    test,  // a classification: an atom of one operand
    neg,   // sign operations: views of a variable, folded on a constant
    abs
  };
  char const* name;
  Kind kind;
  bool rm;              // a rounding-mode argument first
  std::size_t operands; // floating-point operands; a chain takes at least this many
  FpOp def;             // term: the operation of the Def
  Op atom;              // chain and test: the atom
  bool swapped;         // chain: fp.geq and fp.gt are fp.leq and fp.lt of swapped operands
};

namespace {

constexpr FpOperator term(char const* name, FpOp def, bool rm, std::size_t operands) {
  return {name, FpOperator::term, rm, operands, def, Op::t, false};
}
constexpr FpOperator chain(char const* name, Op atom, bool swapped) {
  return {name, FpOperator::chain, false, 2, FpOp::add, atom, swapped};
}
constexpr FpOperator test(char const* name, Op atom) {
  return {name, FpOperator::test, false, 1, FpOp::add, atom, false};
}
constexpr FpOperator sign(char const* name, FpOperator::Kind kind) {
  return {name, kind, false, 1, FpOp::add, Op::t, false};
}

constexpr FpOperator fp_operators[] = {
    term("fp.add", FpOp::add, true, 2),
    term("fp.sub", FpOp::sub, true, 2),
    term("fp.mul", FpOp::mul, true, 2),
    term("fp.div", FpOp::div, true, 2),
    term("fp.fma", FpOp::fma, true, 3),
    term("fp.sqrt", FpOp::sqrt, true, 1),
    term("fp.rem", FpOp::rem, false, 2),
    term("fp.roundToIntegral", FpOp::round_to_integral, true, 1),
    term("fp.min", FpOp::min, false, 2),
    term("fp.max", FpOp::max, false, 2),
    chain("fp.leq", Op::leq, false),
    chain("fp.lt", Op::lt, false),
    chain("fp.geq", Op::leq, true),
    chain("fp.gt", Op::lt, true),
    chain("fp.eq", Op::fp_eq, false),
    test("fp.isNaN", Op::is_nan),
    test("fp.isInfinite", Op::is_inf),
    test("fp.isZero", Op::is_zero),
    test("fp.isNormal", Op::is_normal),
    test("fp.isSubnormal", Op::is_subnormal),
    test("fp.isNegative", Op::is_negative),
    test("fp.isPositive", Op::is_positive),
    sign("fp.neg", FpOperator::neg),
    sign("fp.abs", FpOperator::abs),
};

FpOperator const* find_fp_operator(std::string const& name) {
  for (FpOperator const& o : fp_operators)
    if (name == o.name) return &o;
  return nullptr;
}

} // namespace

Elaborator::Sort Elaborator::parse_sort(SExpr const& e) const {
  // (Float32) for Float32: written by some tools and read by the common solvers.
  if (e.is_list && e.items.size() == 1 && !e.items[0].is_list) return parse_sort(e.items[0]);
  Sort s;
  if (!e.is_list) {
    if (e.atom.kind != Tok::symbol) throw SmtError(e.pos, "expected a sort");
    std::string const& n = e.atom.text;
    if (n == "Bool")
      s.is_bool = true;
    else if (n == "RoundingMode")
      s.is_rm = true;
    else if (n == "Real")
      s.is_real = true;
    else if (n == "Int")
      throw SmtError(e.pos, "unsupported sort 'Int'; integers are outside the supported logics "
                            "(reals, floating point and bit-vectors)");
    else if (n == "Float16")
      s.fmt = {5, 11};
    else if (n == "Float32")
      s.fmt = {8, 24};
    else if (n == "Float64")
      s.fmt = {11, 53};
    else if (n == "Float128")
      s.fmt = {15, 113};
    else if (std::optional<Binding> b = lookup(n); b && b->is_sort) {
      if (b->uninterpreted)
        throw SmtError(e.pos, "unsupported uninterpreted sort '" + n + "' (outside QF_FP)");
      s = b->sort;
    } else
      throw SmtError(e.pos, "unknown sort '" + n +
                                "'; expected Bool, Real, a floating-point sort or a defined sort");
    return s;
  }
  if (e.items.size() == 4 && e.items[0].is_symbol("_") && e.items[1].is_symbol("FloatingPoint")) {
    s.fmt = format_of(e.items[2], e.items[3]);
    return s;
  }
  if (e.items.size() == 3 && e.items[0].is_symbol("_") && e.items[1].is_symbol("BitVec")) {
    s.bv = bv_width_of(e.items[2]);
    s.fmt = bv_format(s.bv);
    return s;
  }
  throw SmtError(e.pos, "unknown sort; expected Bool, Float16, Float32, Float64, Float128, (_ "
                        "FloatingPoint eb sb) or (_ BitVec n)");
}

namespace {

// The kinds of a packed binding (Elaborator::names_).
enum class Packed : std::uint32_t { operand, rm_operand, node, real, rich };
constexpr unsigned kKindShift = 29;
constexpr std::uint32_t kIndexMask = (1u << kKindShift) - 1;

std::uint32_t packed(Packed kind, int index) {
  if (index < 0 || static_cast<std::uint32_t>(index) > kIndexMask)
    throw std::length_error("more than 2^29 terms");
  return static_cast<std::uint32_t>(kind) << kKindShift | static_cast<std::uint32_t>(index);
}

} // namespace

std::optional<Elaborator::Binding> Elaborator::lookup(std::string const& name) const {
  std::uint32_t bound;
  if (!names_.find(name, &bound)) return std::nullopt;
  auto const index = static_cast<int>(bound & kIndexMask);
  Binding b;
  switch (static_cast<Packed>(bound >> kKindShift)) {
  case Packed::operand:
    b.value = {false, index};
    break;
  case Packed::rm_operand:
    b.value = {false, index, true};
    break;
  case Packed::node:
    b.value = {true, index};
    break;
  case Packed::real:
    b.value = {false, index, false, true};
    break;
  case Packed::rich:
    return rich_[static_cast<std::size_t>(index)];
  }
  return b;
}

void Elaborator::push_local(std::string const& name, Value v) {
  int const index = static_cast<int>(locals_.size());
  auto [it, fresh] = innermost_.try_emplace(name, index);
  locals_.push_back(Local{name, v, fresh ? -1 : it->second});
  it->second = index;
}

void Elaborator::pop_locals(std::size_t size) {
  while (locals_.size() > size) {
    Local const& l = locals_.back();
    if (l.shadowed < 0)
      innermost_.erase(l.name);
    else
      innermost_[l.name] = l.shadowed;
    locals_.pop_back();
  }
}

// The newest entry of a name is the one in sight; when it lies below
// visible_from_ (outside the macro body being elaborated), so do the older
// ones.
Value const* Elaborator::find_local(std::string const& name) const {
  if (innermost_.empty()) return nullptr;
  auto it = innermost_.find(name);
  if (it == innermost_.end() || static_cast<std::size_t>(it->second) < visible_from_)
    return nullptr;
  return &locals_[static_cast<std::size_t>(it->second)].value;
}

void Elaborator::bind(std::string const& name, Binding b, SExpr const& where) {
  std::uint32_t bound;
  if (names_.find(name, &bound))
    throw SmtError(where.pos, "name '" + name + "' is already declared");
  if (!b.is_sort && !b.macro) {
    Value const v = b.value;
    Packed const kind = v.is_bool   ? Packed::node
                        : v.is_real ? Packed::real
                        : v.is_rm   ? Packed::rm_operand
                                    : Packed::operand;
    names_.insert(name, packed(kind, v.index));
    return;
  }
  bound = packed(Packed::rich, static_cast<int>(rich_.size()));
  rich_.push_back(std::move(b));
  try {
    names_.insert(name, bound);
  } catch (...) {
    rich_.pop_back();
    throw;
  }
}

void Elaborator::declare(std::string const& name, SExpr const& sort_e, SExpr const& where) {
  Sort s = parse_sort(sort_e);
  if (lookup(name)) throw SmtError(where.pos, "name '" + name + "' is already declared");
  Binding b;
  if (s.is_real) {
    b.value = real_var(name);
    bind(name, b, where);
    p_.declared.push_back(static_cast<int>(p_.vars.size()) - 1);
    return;
  }
  if (s.is_rm) {
    b.value = {false, p_.add_rm_var(name), true};
    bind(name, b, where);
    p_.declared.push_back(p_.operands[b.value.index].var);
    return;
  }
  if (s.bv > 0) {
    b.value = {false, p_.add_bv_var(name, s.bv)};
    bind(name, b, where);
    p_.declared.push_back(p_.operands[b.value.index].var);
    return;
  }
  int const idx = p_.add_var(name, s.is_bool, s.fmt);
  if (s.is_bool) {
    b.value = {true, p_.add_node(Op::bvar, idx)};
  } else {
    Operand o;
    o.var = idx;
    b.value = {false, p_.add_operand(o)};
  }
  bind(name, b, where);
  p_.declared.push_back(idx);
}

void Elaborator::define(std::string const& name, SExpr const& sort_e, SExpr const& body,
                        SExpr const& where) {
  Sort s = parse_sort(sort_e);
  Value v = elaborate(body);
  if (!has_sort(v, s))
    throw SmtError(body.pos, "wrong sort: the body of '" + name + "' is " + sort_text(v) +
                                 ", expected the declared sort");
  Binding b;
  b.value = v;
  bind(name, b, where);
}

Elaborator::Sort Elaborator::sort_of(Value v) const {
  Sort s;
  s.is_bool = v.is_bool;
  s.is_rm = v.is_rm;
  s.is_real = v.is_real;
  if (!v.is_bool && !v.is_rm && !v.is_real) {
    s.fmt = p_.format_of(v.index);
    s.bv = p_.operands[v.index].bv;
  }
  return s;
}

// The one sort check: Bool, RoundingMode and each floating-point format are
// the sorts; the format of Bool and RoundingMode does not count.
bool Elaborator::has_sort(Value v, Sort const& s) const {
  Sort const t = sort_of(v);
  if (t.is_bool || s.is_bool) return t.is_bool == s.is_bool;
  if (t.is_real || s.is_real) return t.is_real == s.is_real;
  if (t.is_rm || s.is_rm) return t.is_rm == s.is_rm;
  return t.fmt == s.fmt && t.bv == s.bv;
}

void Elaborator::check_argument_sort(SExpr const& e, std::size_t i, Value v, Value first) const {
  if (!has_sort(v, sort_of(first)))
    throw SmtError(e.items[i].pos, "wrong sort: argument " + std::to_string(i) + " of " +
                                       e.items[0].atom.text + " is " + sort_text(v) +
                                       ", expected " + sort_text(first));
}

Value Elaborator::let(SExpr const& e) {
  if (e.items.size() != 3 || !e.items[1].is_list || e.items[1].items.empty())
    throw SmtError(e.pos, "malformed let; expected (let ((name term)+) term)");
  std::vector<Value> bound;
  for (SExpr const& b : e.items[1].items)
    bound.push_back(elaborate(let_binding(b).items[1]));
  LocalsGuard guard(*this);
  bind_let(e, bound);
  return elaborate(e.items[2]);
}

SExpr const& Elaborator::let_binding(SExpr const& b) {
  if (!b.is_list || b.items.size() != 2 || b.items[0].is_list ||
      b.items[0].atom.kind != Tok::symbol)
    throw SmtError(b.pos, "malformed let binding; expected (name term)");
  return b;
}

// let binds in parallel: every bound term is elaborated before any name is.
void Elaborator::bind_let(SExpr const& e, std::vector<Value> const& bound) {
  for (std::size_t i = 0; i < bound.size(); ++i)
    push_local(e.items[1].items[i].items[0].atom.text, bound[i]);
}

int Elaborator::rm_of(SExpr const& e) {
  Value v = elaborate(e);
  if (!v.is_rm)
    throw SmtError(e.pos, "wrong sort: expected a RoundingMode term, found " + sort_text(v));
  return v.index;
}

void Elaborator::define_sort(std::string const& name, SExpr const& sort_e, SExpr const& where) {
  Binding b;
  b.is_sort = true;
  b.sort = parse_sort(sort_e);
  bind(name, b, where);
}

void Elaborator::declare_sort(std::string const& name, SExpr const& where) {
  Binding b;
  b.is_sort = true;
  b.uninterpreted = true;
  bind(name, b, where);
}

void Elaborator::assert_formula(SExpr const& e) {
  p_.assertions.push_back(bool_of(e));
}

void Elaborator::push(std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    scopes_.push_back(Scope{p_.assertions.size(), p_.declared.size(), rich_.size()});
    names_.push_mark();
  }
}

void Elaborator::pop(std::size_t n, SExpr const& where) {
  if (n > scopes_.size())
    throw SmtError(where.pos, "pop of " + std::to_string(n) + " levels, but only " +
                                  std::to_string(scopes_.size()) + " pushed");
  for (std::size_t i = 0; i < n; ++i) {
    Scope& s = scopes_.back();
    p_.assertions.resize(s.assertions);
    p_.declared.resize(s.declared);
    names_.pop_mark();
    rich_.resize(s.rich);
    scopes_.pop_back();
  }
}

std::string Elaborator::sort_text(Value v) const {
  if (v.is_real) return "Real";
  if (!v.is_bool && !v.is_rm && p_.operands[v.index].bv > 0)
    return "(_ BitVec " + std::to_string(p_.operands[v.index].bv) + ")";
  return v.is_bool ? "Bool" : v.is_rm ? "RoundingMode" : qorv::fp_sort_text(p_.format_of(v.index));
}

int Elaborator::bool_of(SExpr const& e) {
  Value v = elaborate(e);
  if (!v.is_bool) throw SmtError(e.pos, "wrong sort: expected a Bool term, found " + sort_text(v));
  return v.index;
}

int Elaborator::fp_of(SExpr const& e) {
  Value v = elaborate(e);
  if (v.is_bool || v.is_rm || v.is_real || p_.operands[v.index].bv > 0)
    throw SmtError(e.pos, "wrong sort: expected a floating-point term, found " + sort_text(v));
  return v.index;
}

Value Elaborator::elaborate(SExpr const& e) {
  if (!ready_.empty()) {
    if (auto it = ready_.find(&e); it != ready_.end()) {
      Value const v = it->second;
      ready_.erase(it);
      return v;
    }
  }
  if (!e.is_list) return elaborate_atom(e);
  if (depth_ >= kRecursionDepth) return elaborate_iteratively(e);
  struct Nested {
    int& depth;
    explicit Nested(int& d) : depth(++d) {}
    Nested(Nested const&) = delete;
    Nested& operator=(Nested const&) = delete;
    ~Nested() { --depth; }
  } nested(depth_);
  return elaborate_list(e);
}

Value Elaborator::elaborate_atom(SExpr const& e) {
  switch (e.atom.kind) {
  case Tok::symbol: {
    std::string const& n = e.atom.text;
    if (n == "true") return {true, p_.true_node()};
    if (n == "false") return {true, p_.false_node()};
    if (Value const* local = find_local(n)) return *local;
    IEEEFloat::rounding_mode rm;
    if (rounding_mode_of(e, &rm)) return {false, p_.add_rm_constant(rm), true};
    std::optional<Binding> b = lookup(n);
    if (!b && negative_literal(n)) { // z3's -42.0 for (- 42.0), when no name is bound to it
      Value r;
      r.is_bool = false;
      r.is_real = true;
      r.index = p_.add_linear(
          -real_of(SExpr{false, Token{Tok::decimal, n.substr(1), e.pos}, {}, {}}), {});
      return r;
    }
    if (!b || b->is_sort)
      throw SmtError(e.pos, "undeclared name '" + n + "'; expected a declared constant");
    if (b->macro)
      throw SmtError(e.pos, "'" + n + "' expects " + std::to_string(b->macro->params.size()) +
                                " arguments");
    return b->value;
  }
  case Tok::numeral:
  case Tok::decimal: { // a numeral denotes a real: integers are no sort of ours
    Value r;
    r.is_bool = false;
    r.is_real = true;
    r.index = p_.add_linear(real_of(e), {});
    return r;
  }
  case Tok::binary:
  case Tok::hex:
    return {false, bv_constant(e)};
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

// (fp s e m) of three bit-vector literals, else of bit-vector terms.
int Elaborator::fp_literal(SExpr const& e) {
  std::size_t const argc = e.items.size() - 1;
  if (argc != 3) throw SmtError(e.pos, "fp expects 3 bit-vector arguments");
  for (std::size_t i = 1; i <= 3; ++i)
    if (e.items[i].is_list ||
        (e.items[i].atom.kind != Tok::binary && e.items[i].atom.kind != Tok::hex))
      return fp_of_bv_terms(e);
  std::string bits[3];
  for (std::size_t i = 1; i <= 3; ++i) {
    SExpr const& x = e.items[i];
    if (x.is_list || (x.atom.kind != Tok::binary && x.atom.kind != Tok::hex))
      throw SmtError(x.pos, "expected a bit-vector literal (#b... or #x...) as argument " +
                                std::to_string(i) + " of fp");
    if (x.atom.kind == Tok::binary) {
      bits[i - 1] = x.atom.text;
    } else { // each hex digit is four bits
      for (char c : x.atom.text) {
        int const d = std::stoi(std::string(1, c), nullptr, 16);
        for (int b = 3; b >= 0; --b)
          bits[i - 1] += (d >> b & 1) ? '1' : '0';
      }
    }
  }
  return p_.add_constant(fp_from_bit_strings(bits[0], bits[1], bits[2], e.pos));
}

Value Elaborator::elaborate_list(SExpr const& e) {
  if (e.items.empty()) throw SmtError(e.pos, "expected a term, found '()'");
  SExpr const& h = e.items[0];
  std::size_t const argc = e.items.size() - 1;
  if (Value v; bv_term(e, &v)) return v;
  if (Value v; real_term(e, &v)) return v;
  if (h.is_symbol("_")) return {false, indexed_fp(e)};
  if (h.is_list) {
    if (h.items.size() == 4 && h.items[0].is_symbol("_") &&
        (h.items[1].is_symbol("to_fp") || h.items[1].is_symbol("to_fp_unsigned")))
      return to_fp(e, format_of(h.items[2], h.items[3]), h.items[1].is_symbol("to_fp_unsigned"));
    if (h.items.size() >= 2 && h.items[0].is_symbol("_") && !h.items[1].is_list)
      throw SmtError(h.pos, "unsupported operator (_ " + h.items[1].atom.text +
                                " ...); bit-vector and real results are outside QF_FP's "
                                "floating-point terms");
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
    if (t.is_bool) return {true, p_.add_node(Op::ite, -1, -1, {c, t.index, bool_of(e.items[3])})};
    if (t.is_rm)
      throw SmtError(e.pos, "unsupported ite over rounding modes; expected Bool or floating-point "
                            "branches");
    Value f = elaborate(e.items[3]);
    if (!has_sort(f, sort_of(t)))
      throw SmtError(e.items[3].pos, "wrong sort: the branches of ite are " + sort_text(t) +
                                         " and " + sort_text(f));
    if (t.is_real) {
      t.index = p_.add_real_ite(c, t.index, f.index);
      return t;
    }
    Def d;
    d.op = FpOp::ite;
    d.args = {t.index, f.index};
    d.cond = c;
    return {false, p_.add_def(d, p_.format_of(t.index), p_.operands[t.index].bv)};
  }
  if (op == "=" || op == "distinct") {
    need(2, "at least 2 arguments");
    // Each argument is elaborated once; all must share the first's sort.
    std::vector<int> k;
    Value first;
    for (std::size_t i = 1; i <= argc; ++i) {
      Value v = elaborate(e.items[i]);
      if (i == 1)
        first = v;
      else
        check_argument_sort(e, i, v, first);
      k.push_back(v.index);
    }
    std::vector<int> parts;
    for (std::size_t i = 0; i < k.size(); ++i)
      for (std::size_t j = i + 1; j < k.size(); ++j) {
        if (op == "=" && j != i + 1) continue; // = chains, distinct is pairwise
        if (first.is_bool)
          parts.push_back(p_.add_node(op == "=" ? Op::iff : Op::xor_, -1, -1, {k[i], k[j]}));
        else if (first.is_real && op == "=")
          parts.push_back(real_equal(k[i], k[j]));
        else if (first.is_real)
          parts.push_back(p_.add_node(Op::not_, -1, -1, {real_equal(k[i], k[j])}));
        else if (op == "=")
          parts.push_back(p_.add_node(Op::ident, k[i], k[j]));
        else
          parts.push_back(p_.add_node(Op::not_, -1, -1, {p_.add_node(Op::ident, k[i], k[j])}));
      }
    return {true, parts.size() == 1 ? parts[0] : p_.add_node(Op::and_, -1, -1, parts)};
  }
  if (FpOperator const* o = find_fp_operator(op)) return fp_operation(e, *o);
  if (op == "fp") return {false, fp_literal(e)};
  if (op == "!") {
    need(1, "a term and attributes");
    Value v = elaborate(e.items[1]);
    for (std::size_t i = 2; i < e.items.size(); ++i) {
      SExpr const& a = e.items[i];
      if (a.is_list || a.atom.kind != Tok::keyword)
        throw SmtError(a.pos, "expected an attribute keyword");
      if (a.atom.text == ":named" || a.atom.text == "named") {
        if (i + 1 >= e.items.size() || e.items[i + 1].is_list ||
            e.items[i + 1].atom.kind != Tok::symbol)
          throw SmtError(a.pos, "expected a symbol after :named");
        Binding b;
        b.value = v;
        bind(e.items[i + 1].atom.text, b, e.items[i + 1]);
        ++i;
      } else if (i + 1 < e.items.size() &&
                 (e.items[i + 1].is_list || e.items[i + 1].atom.kind != Tok::keyword)) {
        ++i; // the attribute's value
      }
    }
    return v;
  }
  if (op == "let") return let(e);
  if (op == "forall" || op == "exists")
    throw SmtError(h.pos, "unsupported quantifier '" + op + "'; QF_FP has no quantifiers");
  std::optional<Binding> const b = lookup(op);
  if (b && b->macro) return apply_macro(*b->macro, e);
  if (b && !b->is_sort)
    throw SmtError(h.pos, "'" + op + "' is a constant, not a function; expected an operator");
  throw SmtError(h.pos, "unsupported operator '" + op +
                            "'; expected a Boolean connective, a floating-point operation, "
                            "comparison or classification, or a defined function");
}

std::vector<int> Elaborator::fp_operands(SExpr const& e, std::size_t first) {
  std::vector<int> k;
  for (std::size_t i = first; i < e.items.size(); ++i) {
    k.push_back(fp_of(e.items[i]));
    if (i > first) check_argument_sort(e, i, {false, k.back()}, {false, k[0]});
  }
  return k;
}

Value Elaborator::fp_operation(SExpr const& e, FpOperator const& o) {
  bool const chain = o.kind == FpOperator::chain;
  std::size_t const want = o.operands + (o.rm ? 1 : 0);
  if (chain ? e.items.size() - 1 < want : e.items.size() - 1 != want)
    throw SmtError(e.pos, std::string(o.name) + " expects " + (chain ? "at least " : "") +
                              std::to_string(want) + (chain ? " floating-point" : "") +
                              (want == 1 ? " argument" : " arguments") +
                              (o.rm ? " (a rounding mode first)" : ""));
  int const rm = o.rm ? rm_of(e.items[1]) : -1;
  std::vector<int> const args = fp_operands(e, o.rm ? 2 : 1);
  switch (o.kind) {
  case FpOperator::chain: {
    std::vector<int> parts;
    for (std::size_t i = 0; i + 1 < args.size(); ++i)
      parts.push_back(o.swapped ? p_.add_node(o.atom, args[i + 1], args[i])
                                : p_.add_node(o.atom, args[i], args[i + 1]));
    return {true, parts.size() == 1 ? parts[0] : p_.add_node(Op::and_, -1, -1, parts)};
  }
  case FpOperator::test:
    return {true, p_.add_node(o.atom, args[0])};
  case FpOperator::neg:
  case FpOperator::abs: {
    bool const is_neg = o.kind == FpOperator::neg;
    Operand v = p_.operands[args[0]];
    if (v.var < 0) return {false, p_.add_constant(flip_sign(p_.constant_of(args[0]), !is_neg))};
    if (is_neg) {
      v.neg = !v.neg;
    } else {
      v.abs = true;
      v.neg = false;
    }
    return {false, p_.add_operand(v)};
  }
  case FpOperator::term:
    break;
  }
  Def d;
  d.op = o.def;
  d.rm = rm;
  d.args = args;
  IEEEFloat::format const f = p_.format_of(d.args[0]);
  // Constants fold, unless the result is unspecified.
  bool constant = d.rm < 0 || p_.operands[d.rm].var < 0;
  for (int a : d.args)
    constant = constant && p_.operands[a].var < 0;
  if (constant) {
    std::vector<IEEEFloat> values;
    for (int a : d.args)
      values.push_back(p_.constant_of(a));
    auto const mode = d.rm >= 0 ? rm_of_value(p_.constant_of(d.rm)) : IEEEFloat::rm_nearest_even;
    if (std::optional<IEEEFloat> r = apply_op(d.op, mode, values, f))
      return {false, p_.add_constant(*r)};
  }
  return {false, p_.add_def(d, f)};
}

Value Elaborator::to_fp(SExpr const& e, IEEEFloat::format f, bool is_unsigned) {
  std::size_t const argc = e.items.size() - 1;
  char const* const name = is_unsigned ? "to_fp_unsigned" : "to_fp";
  auto is_bv = [](SExpr const& x) {
    return !x.is_list && (x.atom.kind == Tok::binary || x.atom.kind == Tok::hex);
  };
  // A literal pattern folds here, whatever its width (a wrong one is an error at it).
  if (argc == 1 && !is_unsigned && is_bv(e.items[1]))
    return {false, p_.add_constant(fp_from_bitvector(e.items[1].atom, f))};
  if (argc == 1 && !is_unsigned) {
    std::uint32_t width = 0;
    int const x = bv_of(e.items[1], &width);
    if (width != f.eb + f.sb)
      throw SmtError(e.items[1].pos, "wrong sort: to_fp of a bit pattern of " +
                                         qorv::fp_sort_text(f) + " expects (_ BitVec " +
                                         std::to_string(f.eb + f.sb) + "), found " +
                                         sort_text({false, x}));
    return {false, bv_def(FpOp::fp_of_bits, {x}, 0, -1, f)};
  }
  if (argc != 2)
    throw SmtError(e.pos, std::string("unsupported ") + name +
                              " arguments; expected a rounding mode and a term, or a "
                              "bit-vector literal");
  int const rm = rm_of(e.items[1]);
  SExpr const& x = e.items[2];
  bool const rm_constant = p_.operands[rm].var < 0;
  Value v = elaborate(x);
  if (v.is_real) {
    if (is_unsigned)
      throw SmtError(x.pos, "wrong sort: to_fp_unsigned expects a bit-vector, found a real");
    return to_fp_of_real(e, rm, v.index, f);
  }
  if (!v.is_bool && !v.is_rm && p_.operands[v.index].bv > 0)
    return to_fp_of_bv(e, rm, v.index, f, is_unsigned);
  if (is_unsigned)
    throw SmtError(x.pos, "wrong sort: to_fp_unsigned expects a bit-vector, found " + sort_text(v));
  if (v.is_bool || v.is_rm)
    throw SmtError(x.pos, "unsupported to_fp argument of sort " + sort_text(v) +
                              "; expected a floating-point term, a real or a bit-vector literal");
  if (rm_constant && p_.operands[v.index].var < 0)
    return {false, p_.add_constant(canonical(qorv::swflt::convert(rm_of_value(p_.constant_of(rm)),
                                                                  p_.constant_of(v.index), f)))};
  Def d;
  d.op = FpOp::convert;
  d.rm = rm;
  d.args = {v.index};
  return {false, p_.add_def(d, f)};
}

// A list term on the explicit stack of elaborate_iteratively.  Its arguments
// items[next..end) (for a let, the bound terms of its bindings next..end) are
// elaborated first, in order, and left in ready_; then the operator's own
// code (finish) takes them from there.  A let or a macro application has its
// body as one more argument, elaborated with the names bound.  A frame with
// no arguments to elaborate first (a literal, an indexed constant, a term in
// error) is finished by the operator's own code alone.
struct Elaborator::Frame {
  enum Kind : std::uint8_t { call, let_term, macro_term };
  SExpr const* e = nullptr;
  Kind kind = call;
  std::size_t next = 1;
  std::size_t end = 1;
  std::shared_ptr<Macro const> m; // macro: the definition applied
  bool bound = false;             // let and macro: the names are bound, the body is next
  std::size_t locals = 0;         // let and macro: what to restore after the body
  std::size_t visible_from = 0;
  std::vector<int> arguments; // macro: the arguments' indices, the application's key
  bool known = false;         // macro: an equal application gave `value`, the body is skipped
  Value value;
};

// The frame of e: which arguments are terms, so that nothing that is not a
// term (a real literal, an attribute value, a sort) is elaborated as one.  A
// term whose arity is wrong gets no arguments, so its error comes first, as
// from the recursive path.
Elaborator::Frame Elaborator::frame_of(SExpr const& e) const {
  Frame f;
  f.e = &e;
  if (e.items.empty()) return f;
  SExpr const& h = e.items[0];
  std::size_t const argc = e.items.size() - 1;
  auto args = [&](std::size_t from, std::size_t to) {
    f.next = from;
    f.end = to;
    return f;
  };
  if (bv_frame(e) || real_frame(e)) return args(1, argc + 1);
  if (h.is_list) {
    bool const to_fp = h.items.size() == 4 && h.items[0].is_symbol("_") &&
                       h.items[1].is_symbol("to_fp") && argc == 2;
    return to_fp ? args(1, 3) : f;
  }
  if (h.atom.kind != Tok::symbol) return f;
  std::string const& op = h.atom.text;
  if (op == "not") return argc == 1 ? args(1, 2) : f;
  if (op == "and" || op == "or") return argc >= 1 ? args(1, argc + 1) : f;
  if (op == "=>" || op == "xor" || op == "=" || op == "distinct")
    return argc >= 2 ? args(1, argc + 1) : f;
  if (op == "ite") return argc == 3 ? args(1, 4) : f;
  if (FpOperator const* o = find_fp_operator(op)) {
    std::size_t const want = o->operands + (o->rm ? 1 : 0);
    bool const ok = o->kind == FpOperator::chain ? argc >= want : argc == want;
    return ok ? args(1, argc + 1) : f;
  }
  if (op == "!") return argc >= 1 ? args(1, 2) : f;
  if (op == "let") {
    if (argc != 2 || !e.items[1].is_list || e.items[1].items.empty()) return f;
    f.kind = Frame::let_term;
    return args(0, e.items[1].items.size());
  }
  if (op == "fp" || op == "_" || op == "forall" || op == "exists") return f;
  if (std::optional<Binding> b = lookup(op); b && b->macro && b->macro->params.size() == argc) {
    f.kind = Frame::macro_term;
    f.m = b->macro;
    return args(1, argc + 1);
  }
  return f;
}

SExpr const* Elaborator::next_argument(Frame& f) {
  SExpr const& e = *f.e;
  if (f.kind == Frame::call) return f.next < f.end ? &e.items[f.next++] : nullptr;
  if (f.next < f.end) {
    if (f.kind == Frame::macro_term) return &e.items[f.next++];
    return &let_binding(e.items[1].items[f.next++]).items[1];
  }
  if (f.bound) return nullptr;
  // Every argument is elaborated: bind the names, then the body is next.
  std::vector<Value> values;
  std::size_t const count = f.kind == Frame::let_term ? f.end : f.end - 1;
  for (std::size_t i = 0; i < count; ++i)
    values.push_back(f.kind == Frame::let_term
                         ? elaborate(e.items[1].items[i].items[1])
                         : macro_argument(*f.m, e, i, elaborate(e.items[i + 1])));
  f.locals = locals_.size();
  f.visible_from = visible_from_;
  f.bound = true;
  if (f.kind == Frame::let_term) {
    bind_let(e, values);
    return &e.items[2];
  }
  for (Value const& v : values)
    f.arguments.push_back(v.index);
  if (Value const* known = known_application(*f.m, f.arguments)) {
    f.known = true;
    f.value = *known;
    return nullptr;
  }
  visible_from_ = locals_.size(); // the body sees the parameters only
  for (std::size_t i = 0; i < values.size(); ++i)
    push_local(f.m->params[i].first, values[i]);
  return &f.m->body;
}

Value Elaborator::finish(Frame& f) {
  if (f.kind == Frame::call) return elaborate_list(*f.e);
  if (f.known) return f.value;
  Value const v = elaborate(f.kind == Frame::let_term ? f.e->items[2] : f.m->body);
  pop_locals(f.locals);
  visible_from_ = f.visible_from;
  if (f.kind == Frame::macro_term) remember(*f.m, std::move(f.arguments), v);
  return v;
}

// The same steps as the recursive path, in the same order and scopes, with
// the pending terms on the heap.  Values handed between frames go through
// ready_; whatever is left there (after an error) is removed on the way out.
Value Elaborator::elaborate_iteratively(SExpr const& root) {
  LocalsGuard guard(*this);
  struct Restore {
    Elaborator& el;
    int depth;
    std::vector<SExpr const*> made;
    ~Restore() {
      for (SExpr const* e : made)
        el.ready_.erase(e);
      el.depth_ = depth;
    }
  } restore{*this, depth_, {}};
  depth_ = 0;
  std::vector<Frame> stack{frame_of(root)};
  for (;;) {
    if (SExpr const* a = next_argument(stack.back())) {
      if (a->is_list) {
        stack.push_back(frame_of(*a));
      } else {
        ready_[a] = elaborate_atom(*a);
        restore.made.push_back(a);
      }
      continue;
    }
    Value const v = finish(stack.back());
    SExpr const* const e = stack.back().e;
    stack.pop_back();
    if (stack.empty()) return v;
    ready_[e] = v;
    restore.made.push_back(e);
  }
}

} // namespace fpsolve
