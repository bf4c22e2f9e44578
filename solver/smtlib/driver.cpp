// The SMT-LIB command loop (see driver.h): one Session per script, holding
// the problem, its elaborator and the last model.
#include "smtlib/driver.h"

#include "smtlib/elaborate.h"

#include "engine/apply.h"

#include "host/fp_arith.h"

#include <iostream>

#include <memory>

namespace fpsolve {

namespace {

std::string quoted(std::string const& s) {
  std::string r = "\"";
  for (char c : s)
    r += c == '"' ? std::string("\"\"") : std::string(1, c);
  return r + "\"";
}

std::string symbol_of(SExpr const& e, char const* what) {
  if (e.is_list || e.atom.kind != Tok::symbol)
    throw SmtError(e.pos, std::string("expected a symbol for ") + what);
  return e.atom.text;
}

void expect_arity(SExpr const& cmd, std::size_t n, char const* form) {
  if (cmd.items.size() != n)
    throw SmtError(cmd.pos, std::string("malformed command; expected ") + form);
}

void expect_no_params(SExpr const& e, char const* what) {
  if (!e.is_list || !e.items.empty())
    throw SmtError(e.pos, std::string(what) + " with parameters is not supported; expected ()");
}

std::size_t levels_of(SExpr const& cmd) {
  if (cmd.items.size() == 1) return 1;
  if (cmd.items.size() != 2 || cmd.items[1].is_list || cmd.items[1].atom.kind != Tok::numeral ||
      cmd.items[1].atom.text.size() > 6)
    throw SmtError(cmd.pos, "malformed command; expected (push n) or (pop n) with a numeral n");
  return std::stoul(cmd.items[1].atom.text);
}

std::string rm_text(IEEEFloat const& v) {
  return std::string(qorv::swflt::rounding_mode_name(rm_of_value(v)));
}

std::string value_text(Problem const& p, std::vector<IEEEFloat> const& model, Value v) {
  if (v.is_bool) return eval_bool(p, model, v.index) ? "true" : "false";
  if (v.is_rm) return rm_text(eval_fp(p, model, v.index));
  return eval_fp(p, model, v.index).to_str();
}

// A sat answer whose model fails the exact check: never printed.
struct ModelBug {};

class Session {
public:
  Session(std::ostream& out, DriverOptions const& o) : out_(out), opt_(o) {}
  // False at (exit).
  bool command(SExpr const& cmd);

private:
  void check_sat();
  void get_model(SExpr const& cmd);
  void get_value(SExpr const& cmd);
  void need_model(SExpr const& cmd) const {
    if (!have_model_)
      throw SmtError(cmd.pos, "no model available; expected a check-sat answering sat first");
  }

  std::ostream& out_;
  DriverOptions const& opt_;
  Problem p_;
  Elaborator el_{p_};
  std::vector<IEEEFloat> model_;
  bool have_model_ = false;
};

bool Session::command(SExpr const& cmd) {
  if (!cmd.is_list || cmd.items.empty() || cmd.items[0].is_list ||
      cmd.items[0].atom.kind != Tok::symbol)
    throw SmtError(cmd.pos, "expected a command of the form (name ...)");
  std::string const name = cmd.items[0].atom.text;
  auto const& it = cmd.items;
  if (name == "exit") return false;
  if (name == "set-logic" || name == "set-info" || name == "set-option") return true;
  if (name == "check-sat") {
    expect_arity(cmd, 1, "(check-sat)");
    check_sat();
    return true;
  }
  if (name == "get-model") {
    expect_arity(cmd, 1, "(get-model)");
    get_model(cmd);
    return true;
  }
  if (name == "get-value") {
    get_value(cmd);
    return true;
  }
  if (name == "echo") {
    expect_arity(cmd, 2, "(echo \"text\")");
    if (it[1].is_list || it[1].atom.kind != Tok::string)
      throw SmtError(it[1].pos, "expected a string");
    out_ << quoted(it[1].atom.text) << "\n";
    return true;
  }
  // Everything below changes the assertions, so any earlier model is gone.
  have_model_ = false;
  if (name == "declare-const") {
    expect_arity(cmd, 3, "(declare-const name sort)");
    el_.declare(symbol_of(it[1], "the constant"), it[2], it[1]);
  } else if (name == "declare-fun") {
    expect_arity(cmd, 4, "(declare-fun name () sort)");
    expect_no_params(it[2], "declare-fun");
    el_.declare(symbol_of(it[1], "the function"), it[3], it[1]);
  } else if (name == "define-fun") {
    expect_arity(cmd, 5, "(define-fun name ((param sort)*) sort term)");
    el_.define_fun(symbol_of(it[1], "the function"), it[2], it[3], it[4], it[1]);
  } else if (name == "define-sort") {
    expect_arity(cmd, 4, "(define-sort name () sort)");
    expect_no_params(it[2], "define-sort");
    el_.define_sort(symbol_of(it[1], "the sort"), it[3], it[1]);
  } else if (name == "declare-sort") {
    expect_arity(cmd, 3, "(declare-sort name arity)");
    if (it[2].is_list || it[2].atom.kind != Tok::numeral)
      throw SmtError(it[2].pos, "expected the sort's arity, a numeral");
    el_.declare_sort(symbol_of(it[1], "the sort"), it[1]);
  } else if (name == "assert") {
    expect_arity(cmd, 2, "(assert term)");
    el_.assert_formula(it[1]);
  } else if (name == "push") {
    el_.push(levels_of(cmd));
  } else if (name == "pop") {
    el_.pop(levels_of(cmd), cmd);
  } else {
    if (name == "define-funs-rec" || name == "define-fun-rec" || name == "declare-datatypes" ||
        name == "check-sat-assuming")
      throw SmtError(it[0].pos, "unsupported command '" + name + "' (outside QF_FP)");
    throw SmtError(
        it[0].pos,
        "unknown command '" + name +
            "'; expected set-logic, set-info, set-option, "
            "declare-const, declare-fun, declare-sort, define-fun, define-sort, assert, check-sat, "
            "get-model, get-value, push, pop or exit");
  }
  return true;
}

void Session::check_sat() {
  Result r = solve(p_, opt_.search);
  have_model_ = r.answer == Answer::sat;
  model_ = std::move(r.model);
  if (have_model_) {
    // Every sat is checked: the model, with every term computed exactly by
    // the host's arithmetic, must make every assertion true.
    std::string why;
    if (!verify_model(p_, model_, &why)) {
      std::cerr << "fpsolve: internal error, please report: the search answered sat but " << why
                << "\n";
      for (int v : p_.declared)
        std::cerr << "  " << p_.vars[v].name << " = " << model_[v].to_str() << "\n";
      throw ModelBug{};
    }
  }
  out_ << (r.answer == Answer::sat     ? "sat"
           : r.answer == Answer::unsat ? "unsat"
                                       : "unknown")
       << "\n";
  if (opt_.search.stats) print_stats(out_, r.stats);
  out_.flush();
}

void Session::get_model(SExpr const& cmd) {
  need_model(cmd);
  out_ << "(\n";
  for (int v : p_.declared) {
    Var const& var = p_.vars[v];
    out_ << "  (define-fun " << SExpr{false, Token{Tok::symbol, var.name, {}}, {}, {}}.to_text()
         << " () ";
    if (var.is_bool)
      out_ << "Bool " << (model_[v].is_nan() ? "false" : "true");
    else if (var.is_rm)
      out_ << "RoundingMode " << rm_text(model_[v]);
    else
      out_ << "(_ FloatingPoint " << var.fmt.eb << " " << var.fmt.sb << ") " << model_[v].to_str();
    out_ << ")\n";
  }
  out_ << ")\n";
}

void Session::get_value(SExpr const& cmd) {
  if (cmd.items.size() != 2 || !cmd.items[1].is_list || cmd.items[1].items.empty())
    throw SmtError(cmd.pos, "malformed command; expected (get-value (term ...))");
  need_model(cmd);
  std::string answer = "(";
  for (SExpr const& t : cmd.items[1].items) {
    Value v = el_.elaborate(t);
    if (answer.size() > 1) answer += "\n ";
    answer += "(" + t.to_text() + " " + value_text(p_, model_, v) + ")";
  }
  out_ << answer << ")\n";
}

} // namespace

int run_script(std::istream& in, std::ostream& out, DriverOptions const& options) {
  Reader reader(in);
  Session session(out, options);
  try {
    while (std::unique_ptr<SExpr> cmd = reader.next())
      if (!session.command(*cmd)) break;
  } catch (ModelBug const&) {
    return 3;
  } catch (SmtError const& e) {
    out << "(error " << quoted(e.what()) << ")\n";
    return 1;
  } catch (std::exception const& e) {
    out << "(error " << quoted(std::string("cannot process the input: ") + e.what()) << ")\n";
    return 1;
  }
  return 0;
}

} // namespace fpsolve
