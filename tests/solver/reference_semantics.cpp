// The reference semantics (see reference_semantics.h): a direct interpreter
// of the S-expressions.  Operators are dispatched by name here, on purpose
// without the elaboration's operator table, so that the two readings of a
// script are written independently.
#include "tests/solver/reference_semantics.h"

#include "host/fp_arith.h"
#include "host/fp_convert.h"

#include <array>
#include <functional>
#include <gmpxx.h>
#include <set>
#include <sstream>
#include <stdexcept>

namespace fpsolve::reference {

namespace sw = qorv::swflt;

namespace {

// Thrown when an evaluation first needs an unspecified zero that no choice
// fixes yet; holds_with() catches it and tries both zeros.
struct NeedChoice {
  std::string key;
  std::uint64_t count; // the choices are 0 .. count - 1
};

[[noreturn]] void unsupported(SExpr const& e) {
  throw std::invalid_argument("reference: unsupported " + e.to_text());
}

Val boolean(bool b) {
  Val v;
  v.b = b;
  return v;
}

Val fp(IEEEFloat const& x) {
  Val v;
  v.kind = Sort::floating_point;
  v.x = x;
  return v;
}

std::uint64_t mask(std::uint32_t w) {
  return w >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << w) - 1;
}

Val bitvec(std::uint64_t v, std::uint32_t w) {
  Val r;
  r.kind = Sort::bitvector;
  r.bv = v & mask(w);
  r.width = w;
  return r;
}

// Two's complement value of a bit-vector.
std::int64_t signed_of(Val const& v) {
  if (v.width < 64 && (v.bv >> (v.width - 1) & 1))
    return static_cast<std::int64_t>(v.bv | ~mask(v.width));
  return static_cast<std::int64_t>(v.bv);
}

bool is_bv_literal(SExpr const& e) {
  return !e.is_list && (e.atom.kind == Tok::binary || e.atom.kind == Tok::hex);
}

// A bit-vector literal's value and width.
mpz_class bv_value(SExpr const& e, std::uint64_t* width) {
  bool const binary = e.atom.kind == Tok::binary;
  *width = (binary ? 1 : 4) * e.atom.text.size();
  return mpz_class(e.atom.text, binary ? 2 : 16);
}

std::uint64_t numeral(SExpr const& e) {
  if (e.is_list || e.atom.kind != Tok::numeral) unsupported(e);
  return std::stoull(e.atom.text);
}

// Numerals, decimals, (- r) and (/ r r) as exact rationals.
bool is_real_literal(SExpr const& e) {
  if (!e.is_list) return e.atom.kind == Tok::numeral || e.atom.kind == Tok::decimal;
  return !e.items.empty() && (e.items[0].is_symbol("-") || e.items[0].is_symbol("/"));
}

mpq_class real_value(SExpr const& e) {
  if (!e.is_list) {
    std::string digits = e.atom.text;
    std::size_t const dot = digits.find('.');
    mpz_class den = 1;
    if (dot != std::string::npos) {
      mpz_ui_pow_ui(den.get_mpz_t(), 10, digits.size() - dot - 1);
      digits.erase(dot, 1);
    }
    mpq_class q(mpz_class(digits, 10), den);
    q.canonicalize();
    return q;
  }
  if (e.items.size() == 2) return -real_value(e.items[1]);
  return real_value(e.items[1]) / real_value(e.items[2]);
}

Sort parse_sort(SExpr const& e) {
  Sort s;
  if (e.is_symbol("Bool")) return s;
  if (e.is_symbol("RoundingMode")) {
    s.kind = Sort::rounding_mode;
    return s;
  }
  s.kind = Sort::floating_point;
  if (e.is_symbol("Float16"))
    s.fmt = {5, 11};
  else if (e.is_symbol("Float32"))
    s.fmt = {8, 24};
  else if (e.is_symbol("Float64"))
    s.fmt = {11, 53};
  else if (e.is_symbol("Float128"))
    s.fmt = {15, 113};
  else if (e.is_list && e.items.size() == 4 && e.items[1].is_symbol("FloatingPoint"))
    s.fmt = {numeral(e.items[2]), numeral(e.items[3])};
  else if (e.is_list && e.items.size() == 3 && e.items[1].is_symbol("BitVec")) {
    s.kind = Sort::bitvector;
    s.width = static_cast<std::uint32_t>(numeral(e.items[2]));
    if (s.width > 64) unsupported(e);
  } else
    unsupported(e);
  return s;
}

} // namespace

bool same_value(Val const& a, Val const& b) {
  switch (a.kind) {
  case Sort::boolean:
    return a.b == b.b;
  case Sort::rounding_mode:
    return a.rm == b.rm;
  case Sort::bitvector:
    return a.bv == b.bv;
  case Sort::floating_point:
    break;
  }
  if (a.x.is_nan() || b.x.is_nan()) return a.x.is_nan() && b.x.is_nan();
  return a.x.get_format() == b.x.get_format() && a.x.get_sign() == b.x.get_sign() &&
         (a.x.is_zero() ? b.x.is_zero() : sw::eq(a.x, b.x));
}

std::vector<Val> all_values(Sort const& s) {
  std::vector<Val> out;
  if (s.kind == Sort::boolean) return {boolean(false), boolean(true)};
  if (s.kind == Sort::rounding_mode) {
    for (auto rm : {sw::RNE, sw::RNA, sw::RTP, sw::RTN, sw::RTZ}) {
      Val v;
      v.kind = Sort::rounding_mode;
      v.rm = rm;
      out.push_back(v);
    }
    return out;
  }
  if (s.kind == Sort::bitvector) {
    if (s.width > 16) throw std::invalid_argument("reference: bit-vector too wide to enumerate");
    for (std::uint64_t v = 0; v <= mask(s.width); ++v)
      out.push_back(bitvec(v, s.width));
    return out;
  }
  std::uint64_t const width = s.fmt.eb + s.fmt.sb;
  if (width > 16) throw std::invalid_argument("reference: format too wide to enumerate");
  for (std::uint64_t p = 0; p < (std::uint64_t{1} << width); ++p) {
    IEEEFloat const x = IEEEFloat::from_bits(p, s.fmt);
    if (!x.is_nan()) out.push_back(fp(x));
  }
  out.push_back(fp(IEEEFloat::nan(s.fmt)));
  return out;
}

Script::Script(std::string const& text) {
  std::istringstream in(text);
  Reader reader(in);
  while (auto cmd = reader.next()) {
    if (!cmd->is_list || cmd->items.empty()) continue;
    std::vector<SExpr> const& it = cmd->items;
    if (it[0].is_symbol("declare-const") ||
        (it[0].is_symbol("declare-fun") && it[2].is_list && it[2].items.empty())) {
      constant_index_[it[1].atom.text] = static_cast<int>(constants_.size());
      constants_.push_back({it[1].atom.text, parse_sort(it.back())});
    } else if (it[0].is_symbol("define-fun")) {
      Macro m;
      for (SExpr const& p : it[2].items)
        m.params.push_back(p.items[0].atom.text);
      m.body = it[4];
      macros_[it[1].atom.text] = std::move(m);
    } else if (it[0].is_symbol("assert")) {
      assertions_.push_back(it[1]);
    }
  }
}

bool Script::holds(std::vector<Val> const& values) const {
  std::map<ChoiceKey, std::uint64_t> choices;
  return holds_with(values, choices);
}

bool Script::holds_with(std::vector<Val> const& values,
                        std::map<ChoiceKey, std::uint64_t>& choices) const {
  try {
    Env env{&values, {}, &choices};
    for (SExpr const& a : assertions_)
      if (!eval(a, env).b) return false;
    return true;
  } catch (NeedChoice const& need) {
    for (std::uint64_t c = 0; c < need.count; ++c) {
      choices[need.key] = c;
      if (holds_with(values, choices)) return true;
    }
    choices.erase(need.key);
    return false;
  }
}

bool Script::satisfiable() const {
  // A constant whose name occurs in no assertion and no definition cannot
  // change the outcome: one value of it stands for all.
  std::set<std::string> named;
  std::function<void(SExpr const&)> collect = [&](SExpr const& e) {
    if (!e.is_list) named.insert(e.atom.text);
    for (SExpr const& i : e.items)
      collect(i);
  };
  for (SExpr const& a : assertions_)
    collect(a);
  for (auto const& m : macros_)
    collect(m.second.body);
  std::vector<std::vector<Val>> domains;
  for (Constant const& c : constants_) {
    domains.push_back(all_values(c.sort));
    if (!named.count(c.name)) domains.back().resize(1);
  }
  std::vector<std::size_t> at(constants_.size(), 0);
  std::vector<Val> values;
  for (auto const& d : domains)
    values.push_back(d[0]);
  for (;;) {
    if (holds(values)) return true;
    std::size_t i = 0;
    for (; i < at.size(); ++i) { // the next assignment, as an odometer
      if (++at[i] < domains[i].size()) {
        values[i] = domains[i][at[i]];
        break;
      }
      at[i] = 0;
      values[i] = domains[i][0];
    }
    if (i == at.size()) return false;
  }
}

Val Script::value_of(SExpr const& term) const {
  std::vector<Val> const none;
  std::map<ChoiceKey, std::uint64_t> choices;
  Env env{&none, {}, &choices};
  return eval(term, env);
}

Val Script::eval(SExpr const& e, Env& env) const {
  if (!e.is_list) {
    if (is_bv_literal(e)) {
      std::uint64_t w = 0;
      mpz_class const v = bv_value(e, &w);
      if (w > 64) unsupported(e);
      return bitvec(mpz_class(v & mpz_class(mask(static_cast<std::uint32_t>(w)))).get_ui(),
                    static_cast<std::uint32_t>(w));
    }
    if (e.atom.kind != Tok::symbol) unsupported(e);
    return eval_symbol(e, env);
  }
  if (e.items.empty()) unsupported(e);
  return apply(e, env);
}

Val Script::eval_symbol(SExpr const& e, Env& env) const {
  std::string const& n = e.atom.text;
  for (auto it = env.locals.rbegin(); it != env.locals.rend(); ++it)
    if (it->first == n) return it->second;
  if (auto c = constant_index_.find(n); c != constant_index_.end()) {
    if (static_cast<std::size_t>(c->second) >= env.values->size()) unsupported(e);
    return (*env.values)[static_cast<std::size_t>(c->second)];
  }
  if (n == "true" || n == "false") return boolean(n == "true");
  if (auto m = macros_.find(n); m != macros_.end()) {
    Env inner{env.values, {}, env.choices};
    return eval(m->second.body, inner);
  }
  Val v;
  v.kind = Sort::rounding_mode;
  v.rm = sw::parse_rounding_mode(n); // throws for any other name
  return v;
}

Val Script::apply(SExpr const& e, Env& env) const {
  SExpr const& h = e.items[0];
  std::size_t const n = e.items.size() - 1;
  auto arg = [&](std::size_t i) { return eval(e.items[i], env); };
  if (h.is_list) { // (_ to_fp eb sb), (_ to_fp_unsigned eb sb) or a bit-vector operator
    if (h.items.size() != 4 || h.items[1].is_symbol("extract")) return apply_indexed(e, env);
    bool const is_unsigned = h.items[1].is_symbol("to_fp_unsigned");
    if (!is_unsigned && !h.items[1].is_symbol("to_fp")) unsupported(e);
    return to_fp(e, {numeral(h.items[2]), numeral(h.items[3])}, is_unsigned, env);
  }
  if (h.is_symbol("_")) { // (_ +oo eb sb) and the other indexed constants
    std::string const& c = e.items[1].atom.text;
    if (e.items.size() == 3 && c.rfind("bv", 0) == 0) { // (_ bvN n)
      auto const w = static_cast<std::uint32_t>(numeral(e.items[2]));
      mpz_class const v(c.substr(2), 10);
      return bitvec(mpz_class(v & mpz_class(mask(w))).get_ui(), w);
    }
    IEEEFloat::format const f{numeral(e.items[2]), numeral(e.items[3])};
    if (c == "NaN") return fp(IEEEFloat::nan(f));
    if (c == "+oo" || c == "-oo") return fp(IEEEFloat::inf(f, c[0] == '-'));
    if (c == "+zero" || c == "-zero") return fp(IEEEFloat::zero(f, c[0] == '-'));
    unsupported(e);
  }
  std::string const& op = h.atom.text;
  if (op == "not") return boolean(!arg(1).b);
  if (op == "and" || op == "or") {
    bool const is_and = op == "and";
    for (std::size_t i = 1; i <= n; ++i)
      if (arg(i).b != is_and) return boolean(!is_and);
    return boolean(is_and);
  }
  if (op == "xor") { // left associative: true iff an odd number of arguments are
    bool r = false;
    for (std::size_t i = 1; i <= n; ++i)
      r = r != arg(i).b;
    return boolean(r);
  }
  if (op == "=>") { // right associative: a => (b => c)
    bool r = arg(n).b;
    for (std::size_t i = n - 1; i >= 1; --i)
      r = !arg(i).b || r;
    return boolean(r);
  }
  if (op == "=" || op == "distinct") {
    std::vector<Val> v;
    for (std::size_t i = 1; i <= n; ++i)
      v.push_back(arg(i));
    for (std::size_t i = 0; i < v.size(); ++i)
      for (std::size_t j = i + 1; j < v.size(); ++j) {
        bool const same = same_value(v[i], v[j]);
        if (op == "distinct" && same) return boolean(false);
        if (op == "=" && !same) return boolean(false);
      }
    return boolean(true);
  }
  if (op == "ite") return arg(1).b ? arg(2) : arg(3);
  if (op == "!") return arg(1);
  if (op == "let") { // parallel: every bound term sees only the outer names
    std::vector<std::pair<std::string, Val>> bound;
    for (SExpr const& b : e.items[1].items)
      bound.emplace_back(b.items[0].atom.text, eval(b.items[1], env));
    std::size_t const depth = env.locals.size();
    env.locals.insert(env.locals.end(), bound.begin(), bound.end());
    Val const v = eval(e.items[2], env);
    env.locals.resize(depth);
    return v;
  }
  if (auto m = macros_.find(op); m != macros_.end()) {
    Env inner{env.values, {}, env.choices}; // the body sees its parameters only
    for (std::size_t i = 0; i < m->second.params.size(); ++i)
      inner.locals.emplace_back(m->second.params[i], arg(i + 1));
    return eval(m->second.body, inner);
  }
  if (op.rfind("fp", 0) == 0) return apply_fp(op, e, env);
  if (op.rfind("bv", 0) == 0 || op == "concat") return apply_bv(op, e, env);
  unsupported(e);
}

Val Script::apply_fp(std::string const& op, SExpr const& e, Env& env) const {
  if (op == "fp") { // (fp s e m): the bits side by side
    Val const s = eval(e.items[1], env), x = eval(e.items[2], env), m = eval(e.items[3], env);
    std::uint64_t const we = x.width, wm = m.width;
    mpz_class const bits = (((mpz_class(s.bv) << we) | mpz_class(x.bv)) << wm) | mpz_class(m.bv);
    return fp(IEEEFloat::from_bits(bits.get_mpz_t(), {we, wm + 1}));
  }
  std::array<Val, 4> a; // no allocation per node: enumerations evaluate millions
  std::size_t const n = e.items.size() - 1;
  if (n > a.size()) unsupported(e);
  for (std::size_t i = 0; i < n; ++i)
    a[i] = eval(e.items[i + 1], env);
  auto x = [&](std::size_t i) -> IEEEFloat const& { return a[i].x; };
  // Operations with a rounding mode: a[0] is the mode.
  sw::rounding_mode const rm = a[0].rm;
  if (op == "fp.add") return fp(sw::add(rm, x(1), x(2)));
  if (op == "fp.sub") return fp(sw::sub(rm, x(1), x(2)));
  if (op == "fp.mul") return fp(sw::mul(rm, x(1), x(2)));
  if (op == "fp.div") return fp(sw::div(rm, x(1), x(2)));
  if (op == "fp.fma") return fp(sw::fma(rm, x(1), x(2), x(3)));
  if (op == "fp.sqrt") return fp(sw::sqrt(rm, x(1)));
  if (op == "fp.roundToIntegral") return fp(sw::round_to_integral(rm, x(1)));
  if (op == "fp.rem") return fp(sw::rem(x(0), x(1)));
  if (op == "fp.min" || op == "fp.max") return min_max(op == "fp.max", x(0), x(1), env);
  if (op == "fp.abs") return fp(sw::abs(x(0)));
  if (op == "fp.neg") return fp(sw::neg(x(0)));
  if (op == "fp.isNaN") return boolean(x(0).is_nan());
  if (op == "fp.isInfinite") return boolean(x(0).is_inf());
  if (op == "fp.isZero") return boolean(x(0).is_zero());
  if (op == "fp.isNormal") return boolean(x(0).is_normal());
  if (op == "fp.isSubnormal") return boolean(x(0).is_subnormal());
  if (op == "fp.isNegative") return boolean(sw::is_negative(x(0)));
  if (op == "fp.isPositive") return boolean(sw::is_positive(x(0)));
  // Chainable comparisons: every adjacent pair.
  bool (*cmp)(IEEEFloat const&, IEEEFloat const&) = op == "fp.leq"   ? sw::leq
                                                    : op == "fp.lt"  ? sw::lt
                                                    : op == "fp.geq" ? sw::geq
                                                    : op == "fp.gt"  ? sw::gt
                                                    : op == "fp.eq"  ? sw::eq
                                                                     : nullptr;
  if (!cmp) unsupported(e);
  for (std::size_t i = 0; i + 1 < n; ++i)
    if (!cmp(x(i), x(i + 1))) return boolean(false);
  return boolean(true);
}

Val Script::min_max(bool is_max, IEEEFloat const& x, IEEEFloat const& y, Env& env) const {
  if (x.is_zero() && y.is_zero() && x.get_sign() != y.get_sign()) {
    IEEEFloat::format const f = x.get_format();
    ChoiceKey const key = std::string(is_max ? "max " : "min ") + std::to_string(f.eb) + " " +
                          std::to_string(f.sb) + (x.get_sign() ? " -" : " +");
    auto c = env.choices->find(key);
    if (c == env.choices->end()) throw NeedChoice{key, 2};
    return fp(c->second ? x : y);
  }
  std::optional<IEEEFloat> const r = is_max ? sw::max(x, y) : sw::min(x, y);
  return fp(*r);
}

Val Script::to_fp(SExpr const& e, IEEEFloat::format f, bool is_unsigned, Env& env) const {
  std::uint64_t width = 0;
  if (e.items.size() == 2) { // a bit pattern of the format
    if (is_bv_literal(e.items[1])) {
      mpz_class const bits = bv_value(e.items[1], &width);
      return fp(IEEEFloat::from_bits(bits.get_mpz_t(), f));
    }
    mpz_class const bits(eval(e.items[1], env).bv);
    return fp(IEEEFloat::from_bits(bits.get_mpz_t(), f));
  }
  sw::rounding_mode const rm = eval(e.items[1], env).rm;
  SExpr const& x = e.items[2];
  if (is_bv_literal(x)) {
    mpz_class const bits = bv_value(x, &width);
    return fp(is_unsigned ? sw::from_ubv(rm, bits.get_mpz_t(), width, f)
                          : sw::from_sbv(rm, bits.get_mpz_t(), width, f));
  }
  if (is_real_literal(x)) return fp(sw::from_rational(rm, real_value(x).get_mpq_t(), f));
  Val const v = eval(x, env);
  if (v.kind == Sort::bitvector) {
    mpz_class const bits(v.bv);
    return fp(is_unsigned ? sw::from_ubv(rm, bits.get_mpz_t(), v.width, f)
                          : sw::from_sbv(rm, bits.get_mpz_t(), v.width, f));
  }
  return fp(sw::convert(rm, v.x, f));
}

// Bit-vector operators on 64-bit words, written from the standard's
// definitions (signed division truncates, the remainder takes the
// dividend's sign, smod the divisor's).
Val Script::apply_bv(std::string const& op, SExpr const& e, Env& env) const {
  std::vector<Val> a;
  for (std::size_t i = 1; i < e.items.size(); ++i)
    a.push_back(eval(e.items[i], env));
  std::uint32_t const w = a[0].width;
  std::uint64_t const x = a[0].bv, y = a.size() > 1 ? a[1].bv : 0;
  std::int64_t const sx = signed_of(a[0]), sy = a.size() > 1 ? signed_of(a[1]) : 0;
  auto fold = [&](auto f) {
    std::uint64_t r = x;
    for (std::size_t i = 1; i < a.size(); ++i)
      r = f(r, a[i].bv) & mask(w);
    return bitvec(r, w);
  };
  if (op == "concat") {
    std::uint64_t r = 0;
    std::uint32_t total = 0;
    for (Val const& v : a) {
      total += v.width;
      if (total > 64) unsupported(e);
      r = (v.width >= 64 ? 0 : r << v.width) | v.bv;
    }
    return bitvec(r, total);
  }
  if (op == "bvnot") return bitvec(~x, w);
  if (op == "bvneg") return bitvec(0 - x, w);
  if (op == "bvand") return fold([](std::uint64_t p, std::uint64_t q) { return p & q; });
  if (op == "bvor") return fold([](std::uint64_t p, std::uint64_t q) { return p | q; });
  if (op == "bvxor") return fold([](std::uint64_t p, std::uint64_t q) { return p ^ q; });
  if (op == "bvadd") return fold([](std::uint64_t p, std::uint64_t q) { return p + q; });
  if (op == "bvmul") return fold([](std::uint64_t p, std::uint64_t q) { return p * q; });
  if (op == "bvnand") return bitvec(~(x & y), w);
  if (op == "bvnor") return bitvec(~(x | y), w);
  if (op == "bvxnor") return bitvec(~(x ^ y), w);
  if (op == "bvsub") return bitvec(x - y, w);
  if (op == "bvudiv") return bitvec(y == 0 ? mask(w) : x / y, w);
  if (op == "bvurem") return bitvec(y == 0 ? x : x % y, w);
  if (op == "bvshl") return bitvec(y >= w ? 0 : x << y, w);
  if (op == "bvlshr") return bitvec(y >= w ? 0 : x >> y, w);
  if (op == "bvashr") return bitvec(static_cast<std::uint64_t>(sx >> (y >= w ? w - 1 : y)), w);
  if (op == "bvcomp") return bitvec(x == y ? 1 : 0, 1);
  if (w >= 64 && (op == "bvsdiv" || op == "bvsrem" || op == "bvsmod")) unsupported(e);
  if (op == "bvsdiv") {
    if (sy == 0) return bitvec(sx < 0 ? 1 : mask(w), w);
    return bitvec(static_cast<std::uint64_t>(sx / sy), w);
  }
  if (op == "bvsrem") return bitvec(sy == 0 ? x : static_cast<std::uint64_t>(sx % sy), w);
  if (op == "bvsmod") {
    if (sy == 0) return bitvec(x, w);
    std::int64_t r = sx % sy;
    if (r != 0 && (r < 0) != (sy < 0)) r += sy;
    return bitvec(static_cast<std::uint64_t>(r), w);
  }
  if (op == "bvult") return boolean(x < y);
  if (op == "bvule") return boolean(x <= y);
  if (op == "bvugt") return boolean(x > y);
  if (op == "bvuge") return boolean(x >= y);
  if (op == "bvslt") return boolean(sx < sy);
  if (op == "bvsle") return boolean(sx <= sy);
  if (op == "bvsgt") return boolean(sx > sy);
  if (op == "bvsge") return boolean(sx >= sy);
  unsupported(e);
}

Val Script::apply_indexed(SExpr const& e, Env& env) const {
  SExpr const& h = e.items[0];
  std::string const& name = h.items[1].atom.text;
  auto const k = static_cast<std::uint32_t>(numeral(h.items[2]));
  if (name == "fp.to_ubv" || name == "fp.to_sbv") {
    bool const is_signed = name == "fp.to_sbv";
    sw::rounding_mode const rm = eval(e.items[1], env).rm;
    IEEEFloat const x = eval(e.items[2], env).x;
    std::optional<qorv::QNumber> const q = is_signed ? sw::to_sbv(rm, x, k) : sw::to_ubv(rm, x, k);
    if (q) {
      mpz_class z;
      q->get_num(z.get_mpz_t());
      mpz_fdiv_r_2exp(z.get_mpz_t(), z.get_mpz_t(), k);
      return bitvec(z.get_ui(), k);
    }
    if (k > 16) unsupported(e);
    ChoiceKey const key = name + " " + std::to_string(k) + " " + std::to_string(rm) + " " +
                          (x.is_nan() ? std::string("NaN") : x.to_str());
    auto c = env.choices->find(key);
    if (c == env.choices->end()) throw NeedChoice{key, std::uint64_t{1} << k};
    return bitvec(c->second, k);
  }
  Val const v = eval(e.items[1], env);
  std::uint32_t const w = v.width;
  if (name == "extract") {
    auto const j = static_cast<std::uint32_t>(numeral(h.items[3]));
    return bitvec(v.bv >> j, k - j + 1);
  }
  if (name == "zero_extend") return bitvec(v.bv, w + k);
  if (name == "sign_extend") return bitvec(static_cast<std::uint64_t>(signed_of(v)), w + k);
  if (name == "repeat") {
    if (std::uint64_t{w} * k > 64) unsupported(e);
    if (k == 1) return v;
    std::uint64_t r = 0;
    for (std::uint32_t i = 0; i < k; ++i)
      r = (r << w) | v.bv;
    return bitvec(r, w * k);
  }
  std::uint32_t const r = k % w;
  if (r == 0) return v;
  std::uint32_t const left = name == "rotate_left" ? r : w - r;
  if (name != "rotate_left" && name != "rotate_right") unsupported(e);
  return bitvec((v.bv << left) | (v.bv >> (w - left)), w);
}

} // namespace fpsolve::reference
