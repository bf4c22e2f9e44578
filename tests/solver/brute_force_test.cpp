// fpsolve against brute force on formats small enough to enumerate.
//
// One generator writes scripts over (2, 3), (3, 4) and (4, 3): every
// floating-point operation (min and max included), every to_fp conversion
// (another format, real literals, signed and unsigned bit vectors, bit
// patterns), (fp s e m) and indexed literals, comparisons chained and not,
// classifications, = and distinct, Boolean connectives, ite over both
// sorts, let, a define-fun macro with parameters and one without, and
// rounding-mode constants and a rounding-mode variable.  Each script runs
// through fpsolve's command loop (reader, elaboration, search, get-model
// printing) with the model probe, without it, and without it with atom
// decisions before any value split (the scripts' connectives, xor, => and
// ite included, make them disjunctive), and the reference
// semantics (reference_semantics.h), which reads the same text on its own,
// is the judge: a sat model read back from the get-model output must
// satisfy every assertion, and unsat must survive the enumeration of every
// value of every declared constant.
#include "smtlib/driver.h"

#include "tests/solver/reference_semantics.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace fpsolve {
namespace {

using Format = IEEEFloat::format;

std::string sort_text(Format f) {
  return "(_ FloatingPoint " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ")";
}

class Generator {
public:
  Generator(std::mt19937& rng, Format f, Format other, int vars)
      : rng_(rng), f_(f), other_(other), vars_(vars) {}

  std::string script() {
    std::string const fs = sort_text(f_);
    std::string s = "(declare-const b Bool)(declare-const r RoundingMode)";
    for (int v = 0; v < vars_; ++v)
      s += "(declare-const x" + std::to_string(v) + " " + fs + ")";
    // The floating-point leaves of g are its parameters, those of c and of
    // the assertions the declared constants.
    fp_names_ = {"p", "q"};
    s += "(define-fun g ((p " + fs + ") (q " + fs + ") (m RoundingMode)) " + fs + " " +
         term(1, "m") + ")";
    fp_names_.clear();
    for (int v = 0; v < vars_; ++v)
      fp_names_.push_back("x" + std::to_string(v));
    s += "(define-fun c () " + fs + " " + term(1, "r") + ")";
    fp_names_.push_back("c");
    for (int i = pick(2); i >= 0; --i)
      s += "(assert " + formula(2) + ")";
    return s;
  }

private:
  int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }
  std::string bits(std::uint64_t n) {
    std::string s;
    for (std::uint64_t i = 0; i < n; ++i)
      s += pick(2) ? '1' : '0';
    return s;
  }
  std::string to_fp(Format f) {
    return "(_ to_fp " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ")";
  }
  std::string rm(std::string const& var) {
    static char const* const modes[] = {"RNE", "RNA", "RTP", "RTN", "RTZ", "roundTowardZero"};
    return pick(3) == 0 ? var : modes[pick(6)];
  }
  std::string constant_rm() { return rm("RNE"); }

  // A literal of format f_, in every written form.
  std::string literal() {
    static char const* const reals[] = {"0.3",         "1",      "2.5", "(- 0.75)", "(/ 1 3)",
                                        "(- (/ 7 2))", "1000.0", "0.0", "(- 0)",    "0.0625"};
    static char const* const indexed[] = {"+oo", "-oo", "NaN", "+zero", "-zero"};
    std::string const ff = std::to_string(f_.eb) + " " + std::to_string(f_.sb);
    switch (pick(6)) {
    case 0:
      return "(fp #b" + bits(1) + " #b" + bits(f_.eb) + " #b" + bits(f_.sb - 1) + ")";
    case 1:
      return std::string("(_ ") + indexed[pick(5)] + " " + ff + ")";
    case 2:
      return "(" + to_fp(f_) + " #b" + bits(f_.eb + f_.sb) + ")";
    case 3:
      return "(" + to_fp(f_) + " " + constant_rm() + " " + reals[pick(10)] + ")";
    case 4:
      return "(" + to_fp(f_) + " " + constant_rm() + " #b" + bits(1 + pick(6)) + ")";
    default:
      return "((_ to_fp_unsigned " + ff + ") " + constant_rm() + " #b" + bits(1 + pick(6)) + ")";
    }
  }

  // A term of format f_; `m` is the rounding-mode name in scope.
  std::string term(int depth, std::string const& m) {
    int const k = depth == 0 ? pick(3) : pick(17);
    if (k == 0) return literal();
    if (k < 3 || k == 16)
      return fp_names_[static_cast<std::size_t>(pick(static_cast<int>(fp_names_.size())))];
    auto sub = [&] { return term(depth - 1, m); };
    static char const* const with_rm[] = {"fp.add", "fp.sub", "fp.mul", "fp.div"};
    if (k < 7)
      return std::string("(") + with_rm[k - 3] + " " + rm(m) + " " + sub() + " " + sub() + ")";
    if (k == 7) return "(fp.fma " + rm(m) + " " + sub() + " " + sub() + " " + sub() + ")";
    if (k == 8)
      return std::string(pick(2) ? "(fp.sqrt " : "(fp.roundToIntegral ") + rm(m) + " " + sub() +
             ")";
    static char const* const plain[] = {"fp.rem", "fp.min", "fp.max"};
    if (k < 12) return std::string("(") + plain[k - 9] + " " + sub() + " " + sub() + ")";
    if (k == 12) return std::string(pick(2) ? "(fp.abs " : "(fp.neg ") + sub() + ")";
    if (k == 13) // through the other format and back
      return "(" + to_fp(f_) + " " + rm(m) + " (" + to_fp(other_) + " " + rm(m) + " " + sub() +
             "))";
    if (k == 14) return "(ite " + formula(0, m) + " " + sub() + " " + sub() + ")";
    if (fp_names_[0] == "p") return sub(); // no macro inside the macro
    return "(g " + sub() + " " + sub() + " " + rm(m) + ")";
  }

  std::string formula(int depth, std::string const& m = "r") {
    int const k = depth == 0 ? pick(4) : pick(13);
    auto t = [&] { return term(depth == 0 ? 0 : 1, m); };
    if (k == 0) {
      static char const* const cmp[] = {"fp.leq", "fp.lt", "fp.geq",  "fp.gt",
                                        "fp.eq",  "=",     "distinct"};
      std::string s = std::string("(") + cmp[pick(7)] + " " + t() + " " + t();
      return s + (pick(4) == 0 ? " " + t() : "") + ")";
    }
    if (k == 1) {
      static char const* const cls[] = {"fp.isNaN",     "fp.isInfinite",  "fp.isZero",
                                        "fp.isNormal",  "fp.isSubnormal", "fp.isNegative",
                                        "fp.isPositive"};
      return std::string("(") + cls[pick(7)] + " " + t() + ")";
    }
    if (k == 2) return pick(2) ? "b" : "(= r " + rm("r") + ")";
    if (k == 3) return "(fp.leq " + t() + " " + t() + ")";
    auto sub = [&] { return formula(depth - 1, m); };
    if (k == 4) return "(not " + sub() + ")";
    if (k == 5) return "(ite " + sub() + " " + sub() + " " + sub() + ")";
    if (k == 6) { // a let-bound name in the body
      std::string const name = "l" + std::to_string(depth);
      std::string s = "(let ((" + name + " " + t() + ")) ";
      fp_names_.push_back(name);
      s += "(and " + sub() + " (fp.lt " + name + " " + t() + ")))";
      fp_names_.pop_back();
      return s;
    }
    static char const* const nary[] = {"and", "or", "xor", "=>", "=", "distinct"};
    std::string s = std::string("(") + nary[k - 7] + " " + sub() + " " + sub();
    return s + (pick(3) == 0 ? " " + sub() : "") + ")";
  }

  std::mt19937& rng_;
  Format f_, other_;
  int vars_;
  std::vector<std::string> fp_names_;
};

// Scripts that mix bit-vectors of width 3 with floats of format (2, 3):
// every bit-vector operator and comparison, the indexed operators (always
// brought back to width 3), the conversions both ways (fp.to_ubv and
// fp.to_sbv out of range included) and (fp s e m) over bit-vector terms.
class BvGenerator {
public:
  explicit BvGenerator(std::mt19937& rng) : rng_(rng) {}

  std::string script() {
    std::string s = "(set-logic QF_BVFP)(declare-const b Bool)(declare-const r RoundingMode)"
                    "(declare-const x (_ BitVec 3))(declare-const y (_ BitVec 3))"
                    "(declare-const f (_ FloatingPoint 2 3))";
    for (int i = pick(3); i >= 0; --i)
      s += "(assert " + formula(2) + ")";
    return s;
  }

private:
  int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }
  std::string rm() {
    static char const* const modes[] = {"r", "RNE", "RNA", "RTP", "RTN", "RTZ"};
    return modes[pick(6)];
  }
  std::string literal() {
    int const v = pick(8);
    if (pick(2)) return "(_ bv" + std::to_string(v + 8 * pick(2)) + " 3)";
    return std::string("#b") + (v & 4 ? '1' : '0') + (v & 2 ? '1' : '0') + (v & 1 ? '1' : '0');
  }
  std::string bv(int depth) {
    int const k = depth == 0 ? pick(3) : pick(14);
    if (k == 0) return literal();
    if (k < 3) return pick(2) ? "x" : "y";
    auto sub = [&] { return bv(depth - 1); };
    static char const* const binary[] = {"bvand",  "bvor",   "bvxor", "bvnand", "bvnor",  "bvxnor",
                                         "bvadd",  "bvsub",  "bvmul", "bvudiv", "bvurem", "bvsdiv",
                                         "bvsrem", "bvsmod", "bvshl", "bvlshr", "bvashr"};
    if (k < 6) return std::string("(") + binary[pick(17)] + " " + sub() + " " + sub() + ")";
    if (k == 6) return std::string(pick(2) ? "(bvnot " : "(bvneg ") + sub() + ")";
    if (k == 7) return "(ite " + formula(0) + " " + sub() + " " + sub() + ")";
    if (k == 8) { // a window of a concatenation
      int const j = pick(4);
      return "((_ extract " + std::to_string(j + 2) + " " + std::to_string(j) + ") (concat " +
             sub() + " " + sub() + "))";
    }
    if (k == 9) {
      static char const* const ext[] = {"zero_extend", "sign_extend", "repeat"};
      int const e = pick(3);
      int const amount = e == 2 ? 2 : 1 + pick(3);
      int const j = pick(e == 2 ? 4 : amount + 1); // the window lies within the result
      return "((_ extract " + std::to_string(j + 2) + " " + std::to_string(j) + ") ((_ " + ext[e] +
             " " + std::to_string(amount) + ") " + sub() + "))";
    }
    if (k == 10)
      return std::string(pick(2) ? "((_ rotate_left " : "((_ rotate_right ") +
             std::to_string(pick(5)) + ") " + sub() + ")";
    if (k == 11)
      return std::string(pick(2) ? "((_ fp.to_ubv 3) " : "((_ fp.to_sbv 3) ") + rm() + " " +
             fp(depth - 1) + ")";
    if (k == 12)
      return "(concat (bvcomp " + sub() + " " + sub() + ") ((_ extract 1 0) " + sub() + "))";
    return "((_ extract 2 0) (bvadd ((_ zero_extend 2) " + sub() + ") #b00011))";
  }
  std::string fp(int depth) {
    int const k = depth <= 0 ? pick(2) : pick(8);
    if (k == 0) return "f";
    if (k == 1) return pick(2) ? "(_ +zero 2 3)" : "((_ to_fp 2 3) #b01001)";
    auto b = [&] { return bv(depth - 1); };
    if (k == 2) return "((_ to_fp 2 3) " + rm() + " " + b() + ")";
    if (k == 3) return "((_ to_fp_unsigned 2 3) " + rm() + " " + b() + ")";
    if (k == 4) return "((_ to_fp 2 3) (concat " + b() + " ((_ extract 1 0) " + b() + ")))";
    if (k == 5)
      return "(fp ((_ extract 2 2) " + b() + ") ((_ extract 1 0) " + b() + ") ((_ extract 2 1) " +
             b() + "))";
    if (k == 6) return "(fp.add " + rm() + " " + fp(depth - 1) + " " + fp(depth - 1) + ")";
    return "(fp.mul " + rm() + " " + fp(depth - 1) + " " + fp(depth - 1) + ")";
  }
  std::string formula(int depth) {
    int const k = depth == 0 ? pick(3) : pick(7);
    if (k == 0) {
      static char const* const cmp[] = {"bvult", "bvule", "bvugt", "bvuge", "bvslt",
                                        "bvsle", "bvsgt", "bvsge", "=",     "distinct"};
      return std::string("(") + cmp[pick(10)] + " " + bv(1) + " " + bv(1) + ")";
    }
    if (k == 1) {
      static char const* const cmp[] = {"fp.leq", "fp.lt", "fp.eq", "=", "fp.isNaN"};
      int const c = pick(5);
      if (c == 4) return "(fp.isNaN " + fp(1) + ")";
      return std::string("(") + cmp[c] + " " + fp(1) + " " + fp(1) + ")";
    }
    if (k == 2) return "b";
    auto sub = [&] { return formula(depth - 1); };
    if (k == 3) return "(not " + sub() + ")";
    static char const* const nary[] = {"and", "or", "xor"};
    return std::string("(") + nary[k - 4] + " " + sub() + " " + sub() + ")";
  }

  std::mt19937& rng_;
};

struct Outcome {
  bool sat = false;
  std::vector<reference::Val> model; // one value per declared constant
};

// The script through fpsolve's command loop; a sat model is read back from
// its get-model output with the reference's own reading of values.
Outcome run(reference::Script const& ref, std::string const& text, bool probe,
            bool atoms_first = false) {
  DriverOptions opt;
  opt.search.check = true;
  opt.search.probe = probe;
  if (atoms_first) opt.search.atom_delay = 0; // atom decisions before any value split
  std::istringstream in(text + "(check-sat)(get-model)");
  std::ostringstream out;
  int const status = run_script(in, out, opt);
  std::istringstream answer(out.str());
  Reader reader(answer);
  Outcome r;
  auto const first = reader.next();
  r.sat = first && first->is_symbol("sat");
  if (!r.sat) {
    EXPECT_TRUE(first && first->is_symbol("unsat")) << out.str();
    return r;
  }
  EXPECT_EQ(status, 0) << out.str();
  auto const model = reader.next();
  r.model.resize(ref.constants().size());
  std::vector<bool> seen(r.model.size(), false);
  for (SExpr const& d : model->items) // (define-fun name () sort value)
    for (std::size_t i = 0; i < ref.constants().size(); ++i)
      if (ref.constants()[i].name == d.items[1].atom.text) {
        r.model[i] = ref.value_of(d.items[4]);
        seen[i] = true;
      }
  for (std::size_t i = 0; i < seen.size(); ++i)
    EXPECT_TRUE(seen[i]) << "no value for " << ref.constants()[i].name << ": " << out.str();
  return r;
}

TEST(BruteForce, AnswersAndModelsAgainstTheReference) {
  struct Round {
    Format f, other;
    int vars, scripts;
  };
  Round const rounds[] = {
      {{2, 3}, {3, 4}, 2, 160}, {{3, 4}, {2, 3}, 1, 80}, {{4, 3}, {3, 4}, 1, 80}};
  std::mt19937 rng(7);
  int sat = 0, unsat = 0;
  for (Round const& round : rounds)
    for (int i = 0; i < round.scripts; ++i) {
      std::string const text = Generator(rng, round.f, round.other, round.vars).script();
      reference::Script const ref(text);
      Outcome const with_probe = run(ref, text, true), bare = run(ref, text, false);
      Outcome const atoms_first = run(ref, text, false, true);
      ASSERT_EQ(with_probe.sat, bare.sat) << text;
      ASSERT_EQ(atoms_first.sat, bare.sat) << text;
      if (with_probe.sat) {
        ++sat;
        EXPECT_TRUE(ref.holds(with_probe.model)) << "model fails: " << text;
        EXPECT_TRUE(ref.holds(bare.model)) << "model fails without the probe: " << text;
        EXPECT_TRUE(ref.holds(atoms_first.model)) << "model fails with atoms first: " << text;
      } else {
        ++unsat;
        EXPECT_FALSE(ref.satisfiable()) << "unsat, yet satisfiable: " << text;
      }
    }
  std::printf("[ answers  ] %d sat, %d unsat\n", sat, unsat);
  // Both answers must be well represented, or the test proves little.
  EXPECT_GT(sat, 40);
  EXPECT_GT(unsat, 40);
}

TEST(BruteForce, BitVectorsAndConversionsAgainstTheReference) {
  std::mt19937 rng(11);
  int sat = 0, unsat = 0;
  for (int i = 0; i < 240; ++i) {
    std::string const text = BvGenerator(rng).script();
    reference::Script const ref(text);
    Outcome const with_probe = run(ref, text, true), bare = run(ref, text, false);
    ASSERT_EQ(with_probe.sat, bare.sat) << text;
    if (with_probe.sat) {
      ++sat;
      EXPECT_TRUE(ref.holds(with_probe.model)) << "model fails: " << text;
      EXPECT_TRUE(ref.holds(bare.model)) << "model fails without the probe: " << text;
    } else {
      ++unsat;
      EXPECT_FALSE(ref.satisfiable()) << "unsat, yet satisfiable: " << text;
    }
  }
  std::printf("[ answers  ] %d sat, %d unsat\n", sat, unsat);
  EXPECT_GT(sat, 30);
  EXPECT_GT(unsat, 30);
}

} // namespace
} // namespace fpsolve
