// define-fun with parameters and its applications (see elaborate.h).
//
// An application elaborates the body with the parameters bound to the
// arguments.  Elaborating the same function on the same argument values
// again would build nothing new (Defs are shared by the problem) but would
// take the body's time again: a chain of functions, each applying the one
// before twice, doubles it at every link.  So the value of each application
// is kept with the function, under its arguments' indices, and an equal
// application takes it from there: elaborating a script takes time
// proportional to its text and to the terms it builds.
//
// A definition is checked by elaborating its body once over placeholder
// inputs.  Expanding the functions that body applies would make a chain of
// n definitions cost n^2; since each of them was checked at its own
// definition for every argument of its parameters' sorts, an application
// inside a body being checked stands for a placeholder of its result sort.
// A placeholder is a variable, the least foldable value, so the check can
// only fail more often than an expansion would; when it fails, the body is
// checked again by expansion, which reports exactly the error (or none)
// that expansion always did.
//
// A body with a named term, (! t :named n), binds n at every elaboration
// (the second one is an error): such a function is neither shared nor
// stood for, and behaves exactly as a macro.
#include "smtlib/elaborate.h"

#include <utility>

namespace fpsolve {

namespace {

// A name is bound under `!` somewhere in e (the scan keeps its own stack:
// bodies nest as deep as the input).
bool names_a_term(SExpr const& e) {
  std::vector<SExpr const*> todo{&e};
  while (!todo.empty()) {
    SExpr const* x = todo.back();
    todo.pop_back();
    if (!x->is_list) {
      if (x->is_symbol("!")) return true;
      continue;
    }
    for (SExpr const& i : x->items)
      todo.push_back(&i);
  }
  return false;
}

} // namespace

std::size_t Elaborator::ArgumentsHash::operator()(std::vector<int> const& k) const {
  std::size_t h = k.size();
  for (int i : k)
    h = h * 0x9E3779B97F4A7C15ull + static_cast<std::size_t>(static_cast<unsigned>(i));
  return h ^ (h >> 29);
}

Value Elaborator::placeholder(std::string const& name, Sort const& s) {
  if (s.is_bool) return {true, p_.add_node(Op::bvar, p_.add_var(name, true, s.fmt))};
  if (s.is_real) return real_var(name);
  if (s.is_rm) return {false, p_.add_rm_var(name), true};
  if (s.bv > 0) return {false, p_.add_bv_var(name, s.bv)};
  Operand o;
  o.var = p_.add_var(name, false, s.fmt);
  return {false, p_.add_operand(o)};
}

void Elaborator::define_fun(std::string const& name, SExpr const& params, SExpr const& sort_e,
                            SExpr const& body, SExpr const& where) {
  if (!params.is_list) throw SmtError(params.pos, "expected a parameter list (name sort)*");
  if (params.items.empty()) return define(name, sort_e, body, where);
  auto m = std::make_shared<Macro>();
  for (SExpr const& prm : params.items) {
    if (!prm.is_list || prm.items.size() != 2 || prm.items[0].is_list ||
        prm.items[0].atom.kind != Tok::symbol)
      throw SmtError(prm.pos, "expected a parameter (name sort)");
    m->params.emplace_back(prm.items[0].atom.text, parse_sort(prm.items[1]));
  }
  m->result = parse_sort(sort_e);
  m->body = body;
  m->shared = !names_a_term(body);
  // The placeholders and what is built on them occur in no assertion, so
  // the search never sees them.
  std::vector<Value> placeholders;
  for (auto const& [pname, ps] : m->params)
    placeholders.push_back(placeholder("@" + name + "." + pname, ps));
  auto check = [&](bool stand_for) {
    LocalsGuard guard(*this);
    struct Checking {
      bool& flag;
      bool saved;
      ~Checking() { flag = saved; }
    } checking{checking_, checking_};
    checking_ = stand_for;
    visible_from_ = locals_.size(); // the body sees the parameters only
    for (std::size_t i = 0; i < placeholders.size(); ++i)
      push_local(m->params[i].first, placeholders[i]);
    return elaborate(body);
  };
  Value v;
  if (!m->shared) {
    v = check(false);
  } else {
    try {
      v = check(true);
    } catch (SmtError const&) {
      v = check(false);
    }
  }
  if (!has_sort(v, m->result))
    throw SmtError(body.pos, "wrong sort: the body of '" + name + "' is " + sort_text(v) +
                                 ", expected the declared sort");
  Binding b;
  b.macro = std::move(m);
  bind(name, b, where);
}

Value const* Elaborator::known_application(Macro const& m, std::vector<int> const& args) {
  if (!m.shared) return nullptr;
  if (checking_) {
    if (m.stand_in.index < 0) m.stand_in = placeholder("@result", m.result);
    return &m.stand_in;
  }
  auto it = m.applications.find(args);
  return it == m.applications.end() ? nullptr : &it->second;
}

void Elaborator::remember(Macro const& m, std::vector<int> args, Value v) {
  if (m.shared && !checking_) m.applications.emplace(std::move(args), v);
}

Value Elaborator::apply_macro(Macro const& m, SExpr const& e) {
  std::string const& name = e.items[0].atom.text;
  if (e.items.size() - 1 != m.params.size())
    throw SmtError(e.pos, "'" + name + "' expects " + std::to_string(m.params.size()) +
                              " arguments, found " + std::to_string(e.items.size() - 1));
  std::vector<Value> args;
  std::vector<int> key;
  for (std::size_t i = 0; i < m.params.size(); ++i) {
    args.push_back(macro_argument(m, e, i, elaborate(e.items[i + 1])));
    key.push_back(args.back().index);
  }
  if (Value const* known = known_application(m, key)) return *known;
  Value v;
  {
    LocalsGuard guard(*this);
    visible_from_ = locals_.size(); // the body sees the parameters only
    for (std::size_t i = 0; i < args.size(); ++i)
      push_local(m.params[i].first, args[i]);
    v = elaborate(m.body);
  }
  remember(m, std::move(key), v);
  return v;
}

Value Elaborator::macro_argument(Macro const& m, SExpr const& e, std::size_t i, Value v) const {
  if (!has_sort(v, m.params[i].second))
    throw SmtError(e.items[i + 1].pos, "wrong sort: argument " + std::to_string(i + 1) + " of '" +
                                           e.items[0].atom.text + "' is " + sort_text(v));
  return v;
}

} // namespace fpsolve
