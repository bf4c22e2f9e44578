// Exact results and model completion (see apply.h).  Everything here is
// evaluation of single values with the host's arithmetic; nothing reads the
// search's intervals.
#include "engine/apply.h"

#include "engine/bv_ops.h"
#include "engine/evaluator.h"

#include "host/fp_convert.h"

#include <map>
#include <stdexcept>
#include <utility>

namespace fpsolve {

namespace sw = qorv::swflt;

std::optional<IEEEFloat> apply_op(FpOp op, IEEEFloat::rounding_mode rm,
                                  std::vector<IEEEFloat> const& a, IEEEFloat::format to) {
  if (bv_family(op)) return bv_apply(op, rm, a, to);
  IEEEFloat r;
  switch (op) {
  case FpOp::add:
    r = sw::add(rm, a[0], a[1]);
    break;
  case FpOp::sub:
    r = sw::sub(rm, a[0], a[1]);
    break;
  case FpOp::mul:
    r = sw::mul(rm, a[0], a[1]);
    break;
  case FpOp::div:
    r = sw::div(rm, a[0], a[1]);
    break;
  case FpOp::fma:
    r = sw::fma(rm, a[0], a[1], a[2]);
    break;
  case FpOp::sqrt:
    r = sw::sqrt(rm, a[0]);
    break;
  case FpOp::rem:
    r = sw::rem(a[0], a[1]);
    break;
  case FpOp::round_to_integral:
    r = sw::round_to_integral(rm, a[0]);
    break;
  case FpOp::min:
  case FpOp::max: {
    std::optional<IEEEFloat> m = op == FpOp::min ? sw::min(a[0], a[1]) : sw::max(a[0], a[1]);
    if (!m) return std::nullopt;
    r = *m;
    break;
  }
  case FpOp::convert:
    r = sw::convert(rm, a[0], to);
    break;
  case FpOp::ite:
    throw std::logic_error("apply_op: ite depends on a condition");
  default:
    break; // the bit-vector family, above
  }
  return canonical(r);
}

IEEEFloat operand_value(Problem const& p, std::vector<IEEEFloat> const& model, int o) {
  Operand const& op = p.operands[o];
  if (op.var < 0) return p.constant_of(o);
  IEEEFloat v = canonical(model[op.var]);
  if (v.is_nan()) return v;
  if (op.abs) v = sw::abs(v);
  if (op.neg) v = sw::neg(v);
  return v;
}

namespace {

// Completion over an evaluator that tracks the values (ite conditions are
// evaluated by it).  Both rank types evaluate alike; the 128-bit one, where
// every format fits it, takes no allocation per value.
template <class R>
bool complete_with(Problem const& p, Evaluator<R>& ev, std::vector<IEEEFloat>& model,
                   bool* changed_specified, std::vector<char> const* claims,
                   std::string* why = nullptr) {
  std::size_t const given = model.size();
  model.resize(p.vars.size());
  for (std::size_t v = given; v < p.vars.size(); ++v)
    model[v] = p.vars[v].is_rm ? rm_value(IEEEFloat::rm_nearest_even)
                               : IEEEFloat::zero(p.vars[v].fmt, false);
  for (std::size_t v = 0; v < p.vars.size(); ++v)
    if (p.vars[v].def < 0) {
      model[v] = canonical(model[v]);
      R const r = rank_of<R>(model[v]);
      ev.cur[v] = {r, r};
    }
  std::map<std::pair<FpOp, std::vector<mpz_class>>, IEEEFloat> choices;
  bool changed = false;
  if (changed_specified) *changed_specified = false;
  for (Def const& d : p.defs) {
    IEEEFloat::format const to = p.vars[d.var].fmt;
    IEEEFloat value;
    bool specified = true;
    if (d.op == FpOp::ite) {
      value = operand_value(p, model, d.args[ev.eval(d.cond) == l_True ? 0 : 1]);
    } else {
      std::vector<IEEEFloat> args;
      for (int o : d.args)
        args.push_back(operand_value(p, model, o));
      auto const rm =
          d.rm >= 0 ? rm_of_value(operand_value(p, model, d.rm)) : IEEEFloat::rm_nearest_even;
      if (std::optional<IEEEFloat> r = apply_op(d.op, rm, args, to)) {
        value = *r;
      } else {
        specified = false;
        // The choice is a function of the operation, its result sort, its
        // rounding mode and its operand values.
        std::vector<mpz_class> key{mpz_class(static_cast<unsigned long>(to.sb)),
                                   mpz_class(static_cast<int>(rm))};
        for (IEEEFloat const& x : args)
          key.push_back(rank_of<mpz_class>(x));
        IEEEFloat const& proposal = model[d.var];
        bool const proposed = static_cast<std::size_t>(d.var) < given && !proposal.is_nan() &&
                              proposal.get_format() == to;
        // A bit-vector may take any value of its width, a min or max a zero.
        bool const fits =
            proposed && (p.vars[d.var].bv > 0
                             ? rank_of<mpz_class>(proposal) >= 0 &&
                                   mpz_sizeinbase(rank_of<mpz_class>(proposal).get_mpz_t(), 2) <=
                                       p.vars[d.var].bv
                             : proposal.is_zero());
        IEEEFloat pick = fits ? proposal : IEEEFloat::zero(to, false);
        value = choices.emplace(std::make_pair(d.op, std::move(key)), pick).first->second;
      }
    }
    bool const claimed = static_cast<std::size_t>(d.var) < given && (!claims || (*claims)[d.var]);
    if (claimed && !(model[d.var].to_str() == value.to_str())) {
      changed = true;
      if (specified && changed_specified) *changed_specified = true;
      if (specified && why && why->empty())
        *why = "term " + p.vars[d.var].name() + " is " + model[d.var].to_str() +
               " in the model but " + value.to_str() + " exactly";
    }
    model[d.var] = value;
    R const r = rank_of<R>(value);
    ev.cur[d.var] = {r, r};
  }
  return changed;
}

template <class R>
bool verify_with(Problem const& p, std::vector<IEEEFloat>& model, std::string* why,
                 std::vector<char> const* claims) {
  Evaluator<R> ev(p);
  bool changed_specified = false;
  why->clear();
  complete_with(p, ev, model, &changed_specified, claims, why);
  if (changed_specified) return false;
  for (std::size_t i = 0; i < p.assertions.size(); ++i)
    if (ev.eval(p.assertions[i]) != l_True) {
      *why = "assertion " + std::to_string(i + 1) + " is false under the model";
      return false;
    }
  return true;
}

} // namespace

// Ranks of a format of w bits lie within +-2^(w-1), so 128 bits suffice up to
// w = 128 (Float128 included).
bool ranks_fit_128(Problem const& p) {
  for (IEEEFloat::format const& f : p.formats)
    if (f.eb + f.sb > 128) return false;
  return true;
}

bool complete_model(Problem const& p, std::vector<IEEEFloat>& model, bool* changed_specified,
                    std::vector<char> const* claims) {
  if (ranks_fit_128(p)) {
    Evaluator<i128> ev(p);
    return complete_with(p, ev, model, changed_specified, claims);
  }
  Evaluator<mpz_class> ev(p);
  return complete_with(p, ev, model, changed_specified, claims);
}

bool verify_model(Problem const& p, std::vector<IEEEFloat>& model, std::string* why,
                  std::vector<char> const* claims) {
  return ranks_fit_128(p) ? verify_with<i128>(p, model, why, claims)
                          : verify_with<mpz_class>(p, model, why, claims);
}

} // namespace fpsolve
