// Exact values of real terms and the check of models with reals (see
// real_terms.h).
#include "engine/real_terms.h"

#include "engine/apply.h"
#include "engine/evaluator.h"

#include "host/fp_convert.h"

namespace fpsolve {

mpq_class exact_value(IEEEFloat const& x) {
  std::optional<qorv::QNumber> const q = qorv::swflt::to_real(x);
  mpq_class r;
  q->get_num(mpq_numref(r.get_mpq_t()));
  q->get_den(mpq_denref(r.get_mpq_t()));
  r.canonicalize();
  return r;
}

IEEEFloat round_real(IEEEFloat::rounding_mode rm, mpq_class const& q, IEEEFloat::format f) {
  return qorv::swflt::from_rational(rm, q.get_mpq_t(), f);
}

namespace {

// The variables that the atoms under `root` read directly.
void node_vars(Problem const& p, int root, std::vector<int>& out) {
  std::vector<int> todo{root};
  while (!todo.empty()) {
    Node const& nd = p.nodes[static_cast<std::size_t>(todo.back())];
    todo.pop_back();
    if (nd.op == Op::bvar) out.push_back(nd.a);
    if (nd.op >= Op::leq) {
      if (p.operands[static_cast<std::size_t>(nd.a)].var >= 0)
        out.push_back(p.operands[static_cast<std::size_t>(nd.a)].var);
      if (nd.b >= 0 && p.operands[static_cast<std::size_t>(nd.b)].var >= 0)
        out.push_back(p.operands[static_cast<std::size_t>(nd.b)].var);
    }
    todo.insert(todo.end(), nd.kids.begin(), nd.kids.end());
  }
}

void term_vars(Problem const& p, int root, std::vector<int>& out) {
  std::vector<int> todo{root};
  while (!todo.empty()) {
    RealTerm const& t = p.reals[static_cast<std::size_t>(todo.back())];
    todo.pop_back();
    switch (t.op) {
    case RealOp::var:
      break;
    case RealOp::linear:
      for (auto const& [u, k] : t.sum)
        todo.push_back(u);
      break;
    case RealOp::to_real:
      if (int const v = p.operands[static_cast<std::size_t>(t.operand)].var; v >= 0)
        out.push_back(v);
      break;
    case RealOp::ite:
      node_vars(p, t.cond, out);
      todo.push_back(t.a);
      todo.push_back(t.b);
      break;
    }
  }
}

bool same(IEEEFloat const& a, IEEEFloat const& b) {
  return rank_of<mpz_class>(canonical(a)) == rank_of<mpz_class>(canonical(b));
}

} // namespace

std::vector<mpq_class> real_values(Problem const& p, std::vector<IEEEFloat> const& model,
                                   std::vector<mpq_class> const& inputs) {
  Evaluator<mpz_class> ev(p);
  for (std::size_t v = 0; v < model.size() && v < p.vars.size(); ++v) {
    mpz_class const r = rank_of<mpz_class>(canonical(model[v]));
    ev.cur[v] = {r, r};
  }
  // Every term reads only terms built before it.
  std::vector<mpq_class> val(p.reals.size());
  for (std::size_t i = 0; i < p.reals.size(); ++i) {
    RealTerm const& t = p.reals[i];
    switch (t.op) {
    case RealOp::var:
      val[i] = i < inputs.size() ? inputs[i] : mpq_class(0);
      break;
    case RealOp::linear:
      val[i] = t.constant;
      for (auto const& [u, k] : t.sum)
        val[i] += k * val[static_cast<std::size_t>(u)];
      break;
    case RealOp::to_real: {
      IEEEFloat const x = operand_value(p, model, t.operand);
      int const special = x.is_nan() ? 0 : !x.is_inf() ? -1 : x.get_sign() ? 2 : 1;
      val[i] = special < 0
                   ? exact_value(x)
                   : val[static_cast<std::size_t>(t.special[static_cast<std::size_t>(special)])];
      break;
    }
    case RealOp::ite:
      val[i] = val[static_cast<std::size_t>(ev.eval(t.cond) == l_True ? t.a : t.b)];
      break;
    }
  }
  return val;
}

bool complete_reals(Problem const& p, std::vector<IEEEFloat>& model, std::vector<mpq_class>& inputs,
                    std::vector<char> const* claims) {
  std::vector<IEEEFloat> const given = model;
  inputs.resize(p.reals.size());
  for (std::size_t pass = 0; pass <= p.reals.size() + p.real_rounds.size() + 1; ++pass) {
    complete_model(p, model);
    std::vector<mpq_class> const val = real_values(p, model, inputs);
    bool moved = false;
    auto set = [&](int v, IEEEFloat const& x) {
      if (same(model[static_cast<std::size_t>(v)], x)) return;
      model[static_cast<std::size_t>(v)] = x;
      moved = true;
    };
    for (RealAtom const& a : p.real_atoms) {
      mpq_class const& x = val[static_cast<std::size_t>(a.term)];
      bool const truth = a.strict ? x < 0 : x <= 0;
      if (truth ==
          model[static_cast<std::size_t>(a.var)].is_nan()) // a Boolean is true when not NaN
        set(a.var, truth ? IEEEFloat::zero({2, 2}, false) : IEEEFloat::nan({2, 2}));
    }
    for (RealRound const& r : p.real_rounds) {
      auto const rm = rm_of_value(operand_value(p, model, r.rm));
      set(r.var, round_real(rm, val[static_cast<std::size_t>(r.real)],
                            p.vars[static_cast<std::size_t>(r.var)].fmt));
    }
    if (!moved) break;
  }
  bool changed = false;
  for (std::size_t v = 0; v < given.size() && v < model.size(); ++v)
    if ((!claims || (v < claims->size() && (*claims)[v])) &&
        (p.vars[v].is_bool ? given[v].is_nan() != model[v].is_nan() : !same(given[v], model[v])))
      changed = true;
  return changed;
}

bool verify_reals(Problem const& p, std::vector<IEEEFloat>& model, std::vector<mpq_class>& inputs,
                  std::string* why, std::vector<char> const* claims) {
  why->clear();
  if (complete_reals(p, model, inputs, claims)) {
    *why = "a term's value in the model is not its exact value";
    return false;
  }
  Evaluator<mpz_class> ev(p);
  for (std::size_t v = 0; v < p.vars.size(); ++v) {
    mpz_class const r = rank_of<mpz_class>(canonical(model[v]));
    ev.cur[v] = {r, r};
  }
  for (std::size_t i = 0; i < p.assertions.size(); ++i)
    if (ev.eval(p.assertions[i]) != l_True) {
      *why = "assertion " + std::to_string(i + 1) + " is false under the model";
      return false;
    }
  return true;
}

std::vector<std::vector<int>> real_dependencies(Problem const& p) {
  std::vector<std::vector<int>> deps(p.vars.size());
  for (RealAtom const& a : p.real_atoms)
    term_vars(p, a.term, deps[static_cast<std::size_t>(a.var)]);
  for (RealRound const& r : p.real_rounds) {
    std::vector<int>& d = deps[static_cast<std::size_t>(r.var)];
    if (int const v = p.operands[static_cast<std::size_t>(r.rm)].var; v >= 0) d.push_back(v);
    term_vars(p, r.real, d);
  }
  return deps;
}

std::string real_text(mpq_class const& q) {
  mpq_class const a = abs(q);
  std::string s = a.get_den() == 1
                      ? a.get_num().get_str() + ".0"
                      : "(/ " + a.get_num().get_str() + " " + a.get_den().get_str() + ")";
  return q < 0 ? "(- " + s + ")" : s;
}

} // namespace fpsolve
