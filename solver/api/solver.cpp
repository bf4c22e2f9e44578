// The embedding class (see solver.h) over the engine and the elaborator: the
// same Problem, Elaborator, solve and verify_model that the fpsolve command
// drives, so an embedded check answers as the command does.
#include "api/solver.h"

#include "engine/apply.h"
#include "engine/bv_ops.h"
#include "engine/options.h"
#include "engine/real_terms.h"
#include "engine/solve.h"
#include "host/fp_arith.h"
#include "smtlib/elaborate.h"
#include "smtlib/reader.h"

#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace fpsolve::api {

namespace {

// Exactly one S-expression of `text`.
SExpr parse_one(std::string_view text) {
  std::istringstream in{std::string(text)};
  Reader reader(in);
  std::unique_ptr<SExpr> e = reader.next();
  if (!e) throw SmtError(Pos{}, "expected a term, found no text");
  if (std::unique_ptr<SExpr> more = reader.next())
    throw SmtError(more->pos, "expected one term, found more text");
  return std::move(*e);
}

// Runs f, reporting input errors as std::invalid_argument.
template <class F>
auto input(F&& f) -> decltype(f()) {
  try {
    return f();
  } catch (SmtError const& e) {
    throw std::invalid_argument(e.what());
  }
}

} // namespace

struct Solver::Impl {
  Problem problem;
  Elaborator elaborator{problem};
  Options options;
  std::vector<IEEEFloat> model;
  std::vector<mpq_class> real_inputs; // with reals: the model's real inputs
  bool have_model = false;
  std::string reason_unknown;
  std::size_t depth = 0; // scopes open

  void declare(std::string_view name, std::string const& sort) {
    input([&] {
      SExpr const n = parse_one(name);
      if (n.is_list || n.atom.kind != Tok::symbol)
        throw SmtError(n.pos, "expected a symbol for the constant's name");
      have_model = false;
      elaborator.declare(n.atom.text, parse_one(sort), n);
    });
  }

  // The value of `term`, which must elaborate to a term of the wanted kind.
  Value term_of(std::string_view term, char const* want, bool (*ok)(Value)) {
    if (!have_model)
      throw std::logic_error("fpsolve::api::Solver: no model; expected a check() answering sat");
    return input([&] {
      SExpr const e = parse_one(term);
      Value const v = elaborator.elaborate(e);
      if (!ok(v))
        throw SmtError(e.pos, std::string("wrong sort: expected ") + want + ", found " +
                                  elaborator.sort_text(v));
      return v;
    });
  }

  std::string text_of(Value v) const {
    if (v.is_real) {
      std::vector<IEEEFloat> m = model;
      std::vector<mpq_class> in = real_inputs;
      complete_reals(problem, m, in);
      return real_text(real_values(problem, m, in)[static_cast<std::size_t>(v.index)]);
    }
    if (v.is_bool) return eval_bool(problem, model, v.index) ? "true" : "false";
    IEEEFloat const x = eval_fp(problem, model, v.index);
    if (v.is_rm) return std::string(qorv::swflt::rounding_mode_name(rm_of_value(x)));
    if (std::uint32_t const n = problem.operands[v.index].bv) return bv_text(x, n);
    return x.to_str();
  }
};

Solver::Solver() : impl_(std::make_unique<Impl>()) {}
Solver::~Solver() = default;
Solver::Solver(Solver&&) noexcept = default;
Solver& Solver::operator=(Solver&&) noexcept = default;

void Solver::declare_bool(std::string_view name) {
  impl_->declare(name, "Bool");
}

void Solver::declare_rounding_mode(std::string_view name) {
  impl_->declare(name, "RoundingMode");
}

void Solver::declare_fp(std::string_view name, qorv::IEEEFloat::format f) {
  qorv::IEEEFloat::check_format(f);
  impl_->declare(name, qorv::fp_sort_text(f));
}

void Solver::assert_formula(std::string_view term) {
  input([&] {
    SExpr const e = parse_one(term);
    impl_->have_model = false;
    impl_->elaborator.assert_formula(e);
  });
}

void Solver::push() {
  impl_->have_model = false;
  impl_->elaborator.push(1);
  ++impl_->depth;
}

void Solver::pop() {
  if (impl_->depth == 0) throw std::logic_error("fpsolve::api::Solver: pop without a push");
  impl_->have_model = false;
  impl_->elaborator.pop(1, SExpr{});
  --impl_->depth;
}

void Solver::set_option(std::string_view name, std::string_view value) {
  OptionInfo const* info = find_option(name);
  if (!info) throw std::invalid_argument("unknown option '" + std::string(name) + "'");
  std::string why;
  if (!fpsolve::set_option(impl_->options, *info, value, &why)) throw std::invalid_argument(why);
}

std::string Solver::get_option(std::string_view name) const {
  OptionInfo const* info = find_option(name);
  if (!info) throw std::invalid_argument("unknown option '" + std::string(name) + "'");
  return option_text(impl_->options, *info);
}

Answer Solver::check() {
  Impl& s = *impl_;
  Result r = solve(s.problem, s.options);
  s.model = std::move(r.model);
  s.real_inputs = std::move(r.real_inputs);
  s.reason_unknown = std::move(r.reason_unknown);
  s.have_model = r.answer == fpsolve::Answer::sat;
  if (s.have_model) {
    std::string why;
    bool const verified = s.problem.has_reals()
                              ? verify_reals(s.problem, s.model, s.real_inputs, &why)
                              : verify_model(s.problem, s.model, &why);
    if (!verified) {
      s.have_model = false;
      throw std::logic_error(
          "fpsolve: internal error, please report: the search answered sat but " + why);
    }
    return Answer::sat;
  }
  return r.answer == fpsolve::Answer::unsat ? Answer::unsat : Answer::unknown;
}

std::string const& Solver::reason_unknown() const {
  return impl_->reason_unknown;
}

qorv::IEEEFloat Solver::fp_value(std::string_view term) {
  Value const v = impl_->term_of(term, "a floating-point term",
                                 [](Value x) { return !x.is_bool && !x.is_rm && !x.is_real; });
  if (impl_->problem.operands[v.index].bv > 0)
    throw std::invalid_argument("fpsolve::api::Solver: '" + std::string(term) +
                                "' is a bit-vector term; its value is value_text's");
  return eval_fp(impl_->problem, impl_->model, v.index);
}

bool Solver::bool_value(std::string_view term) {
  Value const v = impl_->term_of(term, "a Bool term", [](Value x) { return x.is_bool; });
  return eval_bool(impl_->problem, impl_->model, v.index);
}

qorv::IEEEFloat::rounding_mode Solver::rounding_mode_value(std::string_view term) {
  Value const v = impl_->term_of(term, "a RoundingMode term", [](Value x) { return x.is_rm; });
  return rm_of_value(eval_fp(impl_->problem, impl_->model, v.index));
}

std::string Solver::value_text(std::string_view term) {
  return impl_->text_of(impl_->term_of(term, "a term", [](Value) { return true; }));
}

std::string Solver::model_text() const {
  Impl const& s = *impl_;
  if (!s.have_model)
    throw std::logic_error("fpsolve::api::Solver: no model; expected a check() answering sat");
  std::string out = "(\n";
  for (int v : s.problem.declared) {
    Var const& var = s.problem.vars[v];
    out += "  (define-fun " + SExpr{false, Token{Tok::symbol, var.name(), {}}, {}, {}}.to_text() +
           " () ";
    if (var.real >= 0)
      out += "Real " + s.text_of(Value{false, var.real, false, true});
    else if (var.is_bool)
      out += std::string("Bool ") + (s.model[v].is_nan() ? "false" : "true");
    else if (var.is_rm)
      out +=
          "RoundingMode " + std::string(qorv::swflt::rounding_mode_name(rm_of_value(s.model[v])));
    else if (var.bv > 0)
      out += bv_sort_text(var.bv) + " " + bv_text(s.model[v], var.bv);
    else
      out += qorv::fp_sort_text(var.fmt) + " " + s.model[v].to_str();
    out += ")\n";
  }
  return out + ")\n";
}

} // namespace fpsolve::api
