// Elaboration of bit-vector terms (see elaborate.h): literals, the operators
// of one table (bv_operators), the indexed operators, and the conversions
// between bit-vectors and floats.
//
// Only the core operations become Defs (problem.h); the rest are written
// with them as SMT-LIB defines them: bvnand, bvnor and bvxnor are bvnot of
// bvand, bvor and bvxor; bvcomp an ite; the signed comparisons the unsigned
// ones with the sign bits flipped (x + 2^(n-1), which is x xor 2^(n-1),
// orders two's complement values as unsigned ones); extract a right shift and a truncation;
// zero_extend, repeat and the rotations concatenations.  Every operand is
// checked to have the sort the operator wants; an error names the argument
// and is positioned at it.
#include "smtlib/elaborate.h"

#include "engine/apply.h"
#include "engine/bv_ops.h"

#include <gmpxx.h>
#include <string>

namespace fpsolve {

struct BvOperator {
  enum Kind : std::uint8_t {
    term,    // a Def of `def`
    negated, // bvnot of a Def of `def`
    compare, // an atom `atom` (leq or lt) in the unsigned or signed order
    comp,    // bvcomp: #b1 when equal, else #b0
    reduce   // bvredor and bvredand (the solvers' common extension): one bit
  };
  char const* name;
  Kind kind;
  std::size_t operands; // exact, or the least for left-associative ones
  bool nary;            // left-associative: (op a b c) is (op (op a b) c)
  FpOp def;
  Op atom;
  bool swapped;   // compare: uge and ugt are ule and ult of swapped operands
  bool is_signed; // compare: the two's complement order
};

namespace {

constexpr BvOperator op(char const* name, FpOp def, std::size_t operands, bool nary = false) {
  return {name, BvOperator::term, operands, nary, def, Op::t, false, false};
}
constexpr BvOperator negated(char const* name, FpOp def) {
  return {name, BvOperator::negated, 2, false, def, Op::t, false, false};
}
constexpr BvOperator cmp(char const* name, Op atom, bool swapped, bool is_signed) {
  return {name, BvOperator::compare, 2, false, FpOp::add, atom, swapped, is_signed};
}

constexpr BvOperator bv_operators[] = {
    op("bvnot", FpOp::bv_not, 1),
    op("bvneg", FpOp::bv_neg, 1),
    op("bvand", FpOp::bv_and, 2, true),
    op("bvor", FpOp::bv_or, 2, true),
    op("bvxor", FpOp::bv_xor, 2, true),
    op("bvadd", FpOp::bv_add, 2, true),
    op("bvmul", FpOp::bv_mul, 2, true),
    op("bvsub", FpOp::bv_sub, 2),
    op("bvudiv", FpOp::bv_udiv, 2),
    op("bvurem", FpOp::bv_urem, 2),
    op("bvsdiv", FpOp::bv_sdiv, 2),
    op("bvsrem", FpOp::bv_srem, 2),
    op("bvsmod", FpOp::bv_smod, 2),
    op("bvshl", FpOp::bv_shl, 2),
    op("bvlshr", FpOp::bv_lshr, 2),
    op("bvashr", FpOp::bv_ashr, 2),
    op("concat", FpOp::bv_concat, 2, true),
    negated("bvnand", FpOp::bv_and),
    negated("bvnor", FpOp::bv_or),
    negated("bvxnor", FpOp::bv_xor),
    {"bvcomp", BvOperator::comp, 2, false, FpOp::add, Op::t, false, false},
    {"bvredor", BvOperator::reduce, 1, false, FpOp::add, Op::t, false, false},
    {"bvredand", BvOperator::reduce, 1, false, FpOp::add, Op::t, false, false},
    cmp("bvule", Op::leq, false, false),
    cmp("bvult", Op::lt, false, false),
    cmp("bvuge", Op::leq, true, false),
    cmp("bvugt", Op::lt, true, false),
    cmp("bvsle", Op::leq, false, true),
    cmp("bvslt", Op::lt, false, true),
    cmp("bvsge", Op::leq, true, true),
    cmp("bvsgt", Op::lt, true, true),
};

BvOperator const* find_bv_operator(std::string const& name) {
  for (BvOperator const& o : bv_operators)
    if (name == o.name) return &o;
  return nullptr;
}

// Indexed operators: their index count and their argument count.
struct Indexed {
  char const* name;
  std::size_t indices, args;
};
constexpr Indexed indexed_operators[] = {
    {"extract", 2, 1},     {"zero_extend", 1, 1},  {"sign_extend", 1, 1}, {"repeat", 1, 1},
    {"rotate_left", 1, 1}, {"rotate_right", 1, 1}, {"fp.to_ubv", 1, 2},   {"fp.to_sbv", 1, 2},
};

Indexed const* find_indexed(SExpr const& h) {
  if (!h.is_list || h.items.size() < 3 || !h.items[0].is_symbol("_") || h.items[1].is_list)
    return nullptr;
  for (Indexed const& x : indexed_operators)
    if (h.items[1].atom.text == x.name && h.items.size() == 2 + x.indices) return &x;
  return nullptr;
}

// (_ bvN n): the symbol bvN with N all digits.
bool is_bv_numeral(SExpr const& e) {
  if (e.items.size() != 3 || !e.items[0].is_symbol("_") || e.items[1].is_list) return false;
  std::string const& t = e.items[1].atom.text;
  if (t.size() < 3 || t.compare(0, 2, "bv") != 0) return false;
  return t.find_first_not_of("0123456789", 2) == std::string::npos;
}

} // namespace

bool Elaborator::bv_frame(SExpr const& e) const {
  SExpr const& h = e.items[0];
  std::size_t const argc = e.items.size() - 1;
  if (Indexed const* x = find_indexed(h)) return argc == x->args;
  if (h.is_list || h.atom.kind != Tok::symbol) return false;
  BvOperator const* o = find_bv_operator(h.atom.text);
  return o && (o->nary ? argc >= o->operands : argc == o->operands);
}

bool Elaborator::bv_term(SExpr const& e, Value* out) {
  SExpr const& h = e.items[0];
  if (h.is_symbol("_") && is_bv_numeral(e)) {
    *out = {false, bv_constant(e)};
    return true;
  }
  if (find_indexed(h)) {
    *out = bv_indexed(e);
    return true;
  }
  if (h.is_list || h.atom.kind != Tok::symbol) return false;
  BvOperator const* o = find_bv_operator(h.atom.text);
  if (!o) return false;
  *out = bv_operation(e, *o);
  return true;
}

int Elaborator::bv_of(SExpr const& e, std::uint32_t* width) {
  Value v = elaborate(e);
  if (v.is_bool || v.is_rm || v.is_real || p_.operands[v.index].bv == 0)
    throw SmtError(e.pos, "wrong sort: expected a bit-vector term, found " + sort_text(v));
  if (width) *width = p_.operands[v.index].bv;
  return v.index;
}

int Elaborator::bv_def(FpOp op, std::vector<int> args, std::uint32_t n, int rm,
                       IEEEFloat::format f) {
  IEEEFloat::format const to = n > 0 ? bv_format(n) : f;
  bool constant = rm < 0 || p_.operands[rm].var < 0;
  for (int a : args)
    constant = constant && p_.operands[a].var < 0;
  if (constant) {
    std::vector<IEEEFloat> values;
    for (int a : args)
      values.push_back(p_.constant_of(a));
    auto const mode = rm >= 0 ? rm_of_value(p_.constant_of(rm)) : IEEEFloat::rm_nearest_even;
    if (std::optional<IEEEFloat> r = apply_op(op, mode, values, to))
      return n > 0 ? p_.add_bv_constant(bv_value(*r), n) : p_.add_constant(*r);
  }
  Def d;
  d.op = op;
  d.rm = rm;
  d.args = std::move(args);
  return p_.add_def(d, to, n);
}

int Elaborator::bv_constant(SExpr const& e) {
  if (e.is_list) { // (_ bvN n): N modulo 2^n
    std::uint32_t const n = bv_width_of(e.items[2]);
    mpz_class v(e.items[1].atom.text.substr(2), 10);
    mpz_fdiv_r_2exp(v.get_mpz_t(), v.get_mpz_t(), n);
    return p_.add_bv_constant(v, n);
  }
  std::string const& t = e.atom.text;
  bool const binary = e.atom.kind == Tok::binary;
  std::uint64_t const n = binary ? t.size() : 4 * t.size();
  if (n < 1 || n > kMaxBvWidth)
    throw SmtError(e.pos, "unsupported bit-vector literal of width " + std::to_string(n) +
                              "; expected 1 to " + std::to_string(kMaxBvWidth) + " bits");
  return p_.add_bv_constant(mpz_class(t, binary ? 2 : 16), static_cast<std::uint32_t>(n));
}

int Elaborator::bv_extract(int x, std::uint32_t hi, std::uint32_t lo) {
  std::uint32_t const n = p_.operands[x].bv;
  if (lo == 0 && hi + 1 == n) return x;
  int const shifted = lo == 0 ? x : bv_def(FpOp::bv_lshr, {x, p_.add_bv_constant(lo, n)}, n);
  return bv_def(FpOp::bv_trunc, {shifted}, hi - lo + 1);
}

Value Elaborator::bv_operation(SExpr const& e, BvOperator const& o) {
  std::size_t const argc = e.items.size() - 1;
  if (o.nary ? argc < o.operands : argc != o.operands)
    throw SmtError(e.pos, std::string(o.name) + " expects " + (o.nary ? "at least " : "") +
                              std::to_string(o.operands) + " bit-vector argument" +
                              (o.operands == 1 ? "" : "s"));
  std::vector<int> args;
  std::vector<std::uint32_t> widths;
  for (std::size_t i = 1; i <= argc; ++i) {
    std::uint32_t w = 0;
    args.push_back(bv_of(e.items[i], &w));
    widths.push_back(w);
    if (o.def != FpOp::bv_concat && w != widths[0])
      throw SmtError(e.items[i].pos, "wrong sort: argument " + std::to_string(i) + " of " + o.name +
                                         " is " + sort_text({false, args.back()}) + ", expected " +
                                         sort_text({false, args[0]}));
  }
  std::uint32_t const n = widths[0];
  switch (o.kind) {
  case BvOperator::term: {
    if (o.operands == 1) return {false, bv_def(o.def, args, n)};
    int r = args[0];
    std::uint32_t w = n;
    for (std::size_t i = 1; i < args.size(); ++i) {
      if (o.def == FpOp::bv_concat) {
        if (w + widths[i] > kMaxBvWidth)
          throw SmtError(e.pos, "unsupported concatenation wider than " +
                                    std::to_string(kMaxBvWidth) + " bits");
        w += widths[i];
      }
      r = bv_def(o.def, {r, args[i]}, w);
    }
    return {false, r};
  }
  case BvOperator::negated:
    return {false, bv_def(FpOp::bv_not, {bv_def(o.def, args, n)}, n)};
  case BvOperator::reduce: // bvredor is bvnot of x = 0, bvredand x = 1...1
  case BvOperator::comp: {
    int one = p_.add_bv_constant(1, 1), zero = p_.add_bv_constant(0, 1);
    if (o.kind == BvOperator::reduce) {
      bool const all = std::string(o.name) == "bvredand";
      args.push_back(p_.add_bv_constant(all ? (mpz_class(1) << n) - 1 : mpz_class(0), n));
      if (!all) std::swap(one, zero);
    }
    Operand const &a = p_.operands[args[0]], &b = p_.operands[args[1]];
    if (a.var < 0 && b.var < 0)
      return {false,
              p_.constant_of(args[0]).to_str() == p_.constant_of(args[1]).to_str() ? one : zero};
    Def d;
    d.op = FpOp::ite;
    d.cond = p_.add_node(Op::ident, args[0], args[1]);
    d.args = {one, zero};
    return {false, p_.add_def(d, bv_format(1), 1)};
  }
  case BvOperator::compare:
    break;
  }
  int a = args[0], b = args[1];
  if (o.is_signed) {
    int const flip = p_.add_bv_constant(mpz_class(1) << (n - 1), n);
    a = bv_def(FpOp::bv_add, {a, flip}, n); // x + 2^(n-1) is x xor 2^(n-1), and
    b = bv_def(FpOp::bv_add, {b, flip}, n); // its projection keeps each half exact
  }
  return {true, o.swapped ? p_.add_node(o.atom, b, a) : p_.add_node(o.atom, a, b)};
}

Value Elaborator::bv_indexed(SExpr const& e) {
  SExpr const& h = e.items[0];
  Indexed const& x = *find_indexed(h);
  std::string const name = x.name;
  if (e.items.size() - 1 != x.args)
    throw SmtError(e.pos, "(_ " + name + " ...) expects " + std::to_string(x.args) +
                              (x.args == 1 ? " argument" : " arguments"));
  std::uint64_t const k = numeral_of(h.items[2], "index");
  if (name == "fp.to_ubv" || name == "fp.to_sbv") {
    std::uint32_t const n = bv_width_of(h.items[2]);
    int const rm = rm_of(e.items[1]);
    int const f = fp_of(e.items[2]);
    return {false, bv_def(name == "fp.to_ubv" ? FpOp::ubv_of_fp : FpOp::sbv_of_fp, {f}, n, rm)};
  }
  std::uint32_t n = 0;
  int const a = bv_of(e.items[1], &n);
  if (name == "extract") {
    std::uint64_t const lo = numeral_of(h.items[3], "index");
    if (lo > k || k >= n)
      throw SmtError(h.pos, "invalid extract indices " + std::to_string(k) + " " +
                                std::to_string(lo) + " of a bit-vector of width " +
                                std::to_string(n) + "; expected n > i >= j >= 0");
    return {false, bv_extract(a, static_cast<std::uint32_t>(k), static_cast<std::uint32_t>(lo))};
  }
  if (name == "rotate_left" || name == "rotate_right") {
    std::uint32_t r = static_cast<std::uint32_t>(k % n);
    if (name == "rotate_right") r = (n - r) % n;
    if (r == 0) return {false, a};
    return {false,
            bv_def(FpOp::bv_concat, {bv_extract(a, n - 1 - r, 0), bv_extract(a, n - 1, n - r)}, n)};
  }
  std::uint64_t const total = name == "repeat" ? k * n : n + k;
  if ((name == "repeat" && k == 0) || total > kMaxBvWidth)
    throw SmtError(h.items[2].pos, "invalid index " + std::to_string(k) + " of " + name +
                                       "; the result must have 1 to " +
                                       std::to_string(kMaxBvWidth) + " bits");
  auto const w = static_cast<std::uint32_t>(total);
  if (name == "repeat") {
    int r = a;
    for (std::uint32_t i = 1; i < k; ++i)
      r = bv_def(FpOp::bv_concat, {r, a}, (i + 1) * n);
    return {false, r};
  }
  if (k == 0) return {false, a};
  if (name == "sign_extend") return {false, bv_def(FpOp::bv_sext, {a}, w)};
  int const zeros = p_.add_bv_constant(0, static_cast<std::uint32_t>(k));
  return {false, bv_def(FpOp::bv_concat, {zeros, a}, w)};
}

int Elaborator::fp_of_bv_terms(SExpr const& e) {
  std::uint32_t w[3] = {0, 0, 0};
  int parts[3];
  for (std::size_t i = 0; i < 3; ++i)
    parts[i] = bv_of(e.items[i + 1], &w[i]);
  if (w[0] != 1)
    throw SmtError(e.items[1].pos, "wrong sort: the sign of fp is " + sort_text({false, parts[0]}) +
                                       ", expected (_ BitVec 1)");
  IEEEFloat::format const f{w[1], std::uint64_t{w[2]} + 1};
  try {
    IEEEFloat::check_format(f);
  } catch (std::invalid_argument const&) {
    throw SmtError(e.pos, "invalid floating-point format " + qorv::fp_sort_text(f) +
                              " of fp; expected an exponent of at least 2 bits");
  }
  int const se = bv_def(FpOp::bv_concat, {parts[0], parts[1]}, 1 + w[1]);
  int const bits = bv_def(FpOp::bv_concat, {se, parts[2]}, 1 + w[1] + w[2]);
  return bv_def(FpOp::fp_of_bits, {bits}, 0, -1, f);
}

Value Elaborator::to_fp_of_bv(SExpr const& /*e*/, int rm, int x, IEEEFloat::format f,
                              bool is_unsigned) {
  return {false, bv_def(is_unsigned ? FpOp::fp_of_ubv : FpOp::fp_of_sbv, {x}, 0, rm, f)};
}

} // namespace fpsolve
