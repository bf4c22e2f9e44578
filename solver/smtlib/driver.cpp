// The SMT-LIB command loop (see driver.h): one Session per script, holding
// the options, the output channels, the problem with its elaborator, the
// assertions as written, and what the last check-sat left behind.
#include "smtlib/driver.h"

#include "smtlib/elaborate.h"

#include "engine/apply.h"
#include "engine/bv_ops.h"
#include "engine/real_terms.h"

#include "host/fp_arith.h"

#include <algorithm>
#include <cassert>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace fpsolve {

namespace {

std::string quoted(std::string const& s) {
  std::string r = "\"";
  for (char c : s)
    r += c == '"' ? std::string("\"\"") : std::string(1, c);
  return r + "\"";
}

std::string symbol_text(std::string const& name) {
  return SExpr{false, Token{Tok::symbol, name, {}}, {}, {}}.to_text();
}

std::string symbol_of(SExpr const& e, char const* what) {
  if (e.is_list || e.atom.kind != Tok::symbol)
    throw SmtError(e.pos, std::string("expected a symbol for ") + what);
  return e.atom.text;
}

std::string keyword_of(SExpr const& e) {
  if (e.is_list || e.atom.kind != Tok::keyword)
    throw SmtError(e.pos, "expected a keyword such as :print-success");
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

// Every level costs memory even when empty, so the stack is bounded.
constexpr std::size_t kMaxLevels = 1000000;

std::size_t levels_of(SExpr const& cmd) {
  if (cmd.items.size() == 1) return 1;
  if (cmd.items.size() != 2 || cmd.items[1].is_list || cmd.items[1].atom.kind != Tok::numeral)
    throw SmtError(cmd.pos, "malformed command; expected (push n) or (pop n) with a numeral n");
  std::string const& t = cmd.items[1].atom.text;
  if (t.size() > 7 || std::stoul(t) > kMaxLevels)
    throw SmtError(cmd.items[1].pos, "too many levels; expected at most 1000000");
  return std::stoul(t);
}

// The name given by (! t ... :named n ...), or "".
std::string name_of(SExpr const& e) {
  if (!e.is_list || e.items.size() < 2 || !e.items[0].is_symbol("!")) return "";
  for (std::size_t i = 2; i + 1 < e.items.size(); ++i) {
    SExpr const& k = e.items[i];
    SExpr const& n = e.items[i + 1];
    if (!k.is_list && k.atom.kind == Tok::keyword && k.atom.text == ":named" && !n.is_list &&
        n.atom.kind == Tok::symbol)
      return n.atom.text;
  }
  return "";
}

// The names of the named terms inside e, depth first in the order written.
std::vector<std::string> names_inside(SExpr const& e) {
  std::vector<std::string> names;
  std::vector<SExpr const*> todo{&e}; // without recursion
  while (!todo.empty()) {
    SExpr const& x = *todo.back();
    todo.pop_back();
    if (std::string n = name_of(x); !n.empty()) names.push_back(std::move(n));
    for (auto k = x.items.rbegin(); k != x.items.rend(); ++k)
      if (k->is_list) todo.push_back(&*k);
  }
  return names;
}

std::string rm_text(IEEEFloat const& v) {
  return std::string(qorv::swflt::rounding_mode_name(rm_of_value(v)));
}

// With reals, the model is completed with them first (real_terms.h), so
// that the variables of real atoms and rounds, even those built after the
// check, have their meaning.
std::string value_text(Problem const& p, std::vector<IEEEFloat> const& given,
                       std::vector<mpq_class> const& real_inputs, Value v) {
  std::vector<IEEEFloat> model = given;
  std::vector<mpq_class> inputs = real_inputs;
  if (!p.reals.empty()) complete_reals(p, model, inputs);
  if (v.is_real) return real_text(real_values(p, model, inputs)[static_cast<std::size_t>(v.index)]);
  if (v.is_bool) return eval_bool(p, model, v.index) ? "true" : "false";
  if (v.is_rm) return rm_text(eval_fp(p, model, v.index));
  if (std::uint32_t const n = p.operands[v.index].bv) return bv_text(eval_fp(p, model, v.index), n);
  return eval_fp(p, model, v.index).to_str();
}

// A sat answer whose model fails the exact check: never printed.
struct ModelBug {};

// Whether a command printed an answer of its own; `success` is printed for
// the others under :print-success.
enum class Reply { quiet, answered, exit };

enum class Last { none, sat, unsat, unknown };

class Session {
public:
  Session(Reader& reader, std::ostream& out, DriverOptions const& start);
  // False at (exit).
  bool command(SExpr const& cmd);
  void error(std::string const& message);
  // Reading and elaborating are timed into the statistics' parse time.
  double& parse_time() { return totals_.parse_time; }

private:
  // The assertions keep their texts and their names, not their
  // S-expressions: a long script's parsed commands would otherwise stay
  // alive (about 1 KB for a short comparison), all for get-assertions,
  // get-assignment and unsat cores.  The texts are kept only under
  // :produce-assertions (off by default, as the standard says), back to
  // back in one string (a string each costs a header and a heap block per
  // assertion, more than a short text itself); the names lie in side
  // tables, as named terms are rare.
  class Asserted {
  public:
    std::size_t size() const noexcept { return size_; }
    // Assertion i as get-assertions writes it back; only the first
    // texts() assertions have one.
    std::size_t texts() const noexcept { return ends_.size(); }
    std::string_view text(std::size_t i) const {
      std::size_t const from = i == 0 ? 0 : ends_[i - 1];
      return std::string_view(texts_).substr(from, ends_[i] - from);
    }
    // (i, n): assertion i is named n, by increasing i.
    std::vector<std::pair<std::size_t, std::string>> const& names() const { return names_; }
    // (i, n): each (! ... :named n) inside assertion i, by increasing i and
    // depth first within one assertion.
    std::vector<std::pair<std::size_t, std::string>> const& inside() const { return inside_; }
    // Records e, with its text when `text` is set and every earlier
    // assertion has one.
    void push_back(SExpr const& e, bool text);
    // Keeps the first n assertions.
    void resize(std::size_t n);
    void clear() { resize(0); }
    void shrink_to_fit() {
      texts_.shrink_to_fit();
      ends_.shrink_to_fit();
    }

  private:
    std::size_t size_ = 0;
    std::string texts_;
    std::vector<std::size_t> ends_; // assertion i's text ends at ends_[i]
    std::vector<std::pair<std::size_t, std::string>> names_;
    std::vector<std::pair<std::size_t, std::string>> inside_;
  };
  struct Assumption {
    SExpr term;
    int node;
  };

  Reply run(std::string const& name, SExpr const& cmd);
  Reply set_option(SExpr const& cmd);
  Reply get_info(SExpr const& cmd);
  void change(std::string const& name, SExpr const& cmd);
  void check_sat(std::vector<Assumption> assumptions);
  // Solves with `roots` standing for the assertions (nullptr: the
  // assertions themselves).  They are swapped in for the run and back after
  // it, not copied: a copy would stay alive through the whole search.
  Result solve_roots(std::vector<int>* roots);
  void get_model(SExpr const& cmd);
  void get_value(SExpr const& cmd);
  void get_assignment(SExpr const& cmd);
  std::string unsat_core(SExpr const& cmd);
  std::string unsat_assumptions(SExpr const& cmd);
  std::ostream* channel(std::string const& name, std::unique_ptr<std::ofstream>& file, Pos pos);
  void fresh_problem();
  void need(Last what, SExpr const& cmd, char const* expected) const;
  void need_option(bool on, SExpr const& cmd, char const* option) const;

  Reader& reader_;
  std::ostream& stdout_;
  std::ostream& stderr_;
  DriverOptions const& start_;
  Options opt_;
  std::unique_ptr<std::ofstream> regular_file_, diagnostic_file_;
  std::ostream* regular_ = nullptr;
  std::ostream* diagnostic_ = nullptr;
  std::unique_ptr<Problem> p_;
  std::unique_ptr<Elaborator> el_;
  Asserted asserted_; // one per entry of p_->assertions
  std::size_t levels_ = 0;
  // What the last check-sat left; any change to the assertions forgets it.
  Last last_ = Last::none;
  std::string reason_unknown_;
  std::vector<IEEEFloat> model_;
  std::vector<mpq_class> real_inputs_; // with reals: the model's real inputs
  std::vector<Assumption> assumptions_;
  std::optional<std::string> core_; // computed once per unsat answer
  Stats totals_;
};

void Session::Asserted::push_back(SExpr const& e, bool text) {
  std::size_t const i = size();
  std::size_t const names = names_.size(), inside = inside_.size();
  try {
    if (std::string n = name_of(e); !n.empty()) names_.emplace_back(i, std::move(n));
    for (std::string& n : names_inside(e))
      inside_.emplace_back(i, std::move(n));
    if (text && texts() == i) {
      texts_ += e.to_text();
      ends_.push_back(texts_.size());
    }
  } catch (...) { // all or nothing
    texts_.resize(texts() == 0 ? 0 : ends_.back());
    names_.resize(names);
    inside_.resize(inside);
    throw;
  }
  ++size_;
}

void Session::Asserted::resize(std::size_t n) {
  if (n >= size()) return;
  size_ = n;
  if (n < texts()) ends_.resize(n);
  texts_.resize(texts() == 0 ? 0 : ends_.back());
  auto const from = [n](auto const& v) {
    return std::find_if(v.begin(), v.end(), [n](auto const& x) { return x.first >= n; });
  };
  names_.erase(from(names_), names_.end());
  inside_.erase(from(inside_), inside_.end());
}

Session::Session(Reader& reader, std::ostream& out, DriverOptions const& start)
    : reader_(reader), stdout_(out), stderr_(start.diagnostic ? *start.diagnostic : std::cerr),
      start_(start), opt_(start.search) {
  regular_ = channel(opt_.regular_output_channel, regular_file_, {});
  diagnostic_ = channel(opt_.diagnostic_output_channel, diagnostic_file_, {});
  fresh_problem();
}

void Session::fresh_problem() {
  el_.reset();
  p_ = std::make_unique<Problem>();
  el_ = std::make_unique<Elaborator>(*p_);
  asserted_.clear();
  levels_ = 0;
  last_ = Last::none;
}

std::ostream* Session::channel(std::string const& name, std::unique_ptr<std::ofstream>& file,
                               Pos pos) {
  if (name == "stdout") return &stdout_;
  if (name == "stderr") return &stderr_;
  if (!start_.channel_files)
    throw SmtError(pos, "output channel '" + name + "' refused; expected stdout or stderr");
  // Appended to, as the standard asks of an existing file.
  auto f = std::make_unique<std::ofstream>(name, std::ios::app);
  if (!*f) throw SmtError(pos, "cannot open '" + name + "' for writing");
  file = std::move(f);
  return file.get();
}

void Session::error(std::string const& message) {
  *regular_ << "(error " << quoted(message) << ")\n";
  regular_->flush();
}

void Session::need(Last what, SExpr const& cmd, char const* expected) const {
  if (last_ != what)
    throw SmtError(cmd.pos, cmd.items[0].atom.text + " is not available; expected it right after " +
                                expected);
}

void Session::need_option(bool on, SExpr const& cmd, char const* option) const {
  if (!on)
    throw SmtError(cmd.pos, cmd.items[0].atom.text + " is not enabled; expected (set-option " +
                                option + " true) first");
}

bool Session::command(SExpr const& cmd) {
  if (!cmd.is_list || cmd.items.empty() || cmd.items[0].is_list ||
      cmd.items[0].atom.kind != Tok::symbol)
    throw SmtError(cmd.pos, "expected a command of the form (name ...)");
  std::string const name = cmd.items[0].atom.text;
  bool const print_success = opt_.print_success;
  Reply const r = run(name, cmd);
  // reset answers as the client asked it to before the reset.
  if (r != Reply::answered && (name == "reset" ? print_success : opt_.print_success))
    *regular_ << "success\n";
  regular_->flush();
  diagnostic_->flush();
  return r != Reply::exit;
}

Reply Session::run(std::string const& name, SExpr const& cmd) {
  auto const& it = cmd.items;
  if (name == "exit") {
    expect_arity(cmd, 1, "(exit)");
    return Reply::exit;
  }
  if (name == "set-logic") {
    expect_arity(cmd, 2, "(set-logic name)");
    symbol_of(it[1], "the logic");
    return Reply::quiet;
  }
  if (name == "set-info") {
    if (it.size() < 2 || it.size() > 3) throw SmtError(cmd.pos, "expected (set-info :key value)");
    keyword_of(it[1]);
    return Reply::quiet;
  }
  if (name == "set-option") return set_option(cmd);
  if (name == "get-option") {
    expect_arity(cmd, 2, "(get-option :name)");
    OptionInfo const* info = find_option(keyword_of(it[1]).substr(1));
    *regular_ << (info ? option_text(opt_, *info) : "unsupported") << "\n";
    return Reply::answered;
  }
  if (name == "get-info") return get_info(cmd);
  if (name == "echo") {
    expect_arity(cmd, 2, "(echo \"text\")");
    if (it[1].is_list || it[1].atom.kind != Tok::string)
      throw SmtError(it[1].pos, "expected a string");
    *regular_ << quoted(it[1].atom.text) << "\n";
    return Reply::answered;
  }
  if (name == "check-sat") {
    expect_arity(cmd, 1, "(check-sat)");
    check_sat({});
    return Reply::answered;
  }
  if (name == "check-sat-assuming") {
    if (it.size() != 2 || !it[1].is_list)
      throw SmtError(cmd.pos, "malformed command; expected (check-sat-assuming (literal*))");
    std::vector<Assumption> as;
    {
      PhaseTimer t(totals_.parse_time);
      for (SExpr const& a : it[1].items) {
        Value v = el_->elaborate(a);
        if (!v.is_bool)
          throw SmtError(a.pos,
                         "wrong sort: expected a Bool assumption, found " + el_->sort_text(v));
        as.push_back({a, v.index});
      }
    }
    check_sat(std::move(as));
    return Reply::answered;
  }
  if (name == "get-model") {
    expect_arity(cmd, 1, "(get-model)");
    get_model(cmd);
    return Reply::answered;
  }
  if (name == "get-value") {
    get_value(cmd);
    return Reply::answered;
  }
  if (name == "get-assignment") {
    expect_arity(cmd, 1, "(get-assignment)");
    get_assignment(cmd);
    return Reply::answered;
  }
  if (name == "get-assertions") {
    expect_arity(cmd, 1, "(get-assertions)");
    need_option(opt_.produce_assertions, cmd, ":produce-assertions");
    std::string answer = "(";
    // Turning the option on needs an empty assertion stack, so every
    // assertion since has its text.
    assert(asserted_.texts() == asserted_.size() && "texts kept since the option was turned on");
    for (std::size_t i = 0; i < asserted_.size(); ++i)
      answer.append(answer.size() > 1 ? "\n " : "").append(asserted_.text(i));
    *regular_ << answer << ")\n";
    return Reply::answered;
  }
  if (name == "get-unsat-core") {
    expect_arity(cmd, 1, "(get-unsat-core)");
    *regular_ << unsat_core(cmd) << "\n";
    return Reply::answered;
  }
  if (name == "get-unsat-assumptions") {
    expect_arity(cmd, 1, "(get-unsat-assumptions)");
    *regular_ << unsat_assumptions(cmd) << "\n";
    return Reply::answered;
  }
  if (name == "reset") {
    expect_arity(cmd, 1, "(reset)");
    opt_ = start_.search;
    regular_ = &stdout_; // until the startup channels are open again
    diagnostic_ = &stderr_;
    regular_file_.reset();
    diagnostic_file_.reset();
    regular_ = channel(opt_.regular_output_channel, regular_file_, cmd.pos);
    diagnostic_ = channel(opt_.diagnostic_output_channel, diagnostic_file_, cmd.pos);
    reader_.set_max_depth(opt_.max_nesting);
    totals_ = Stats{};
    fresh_problem();
    return Reply::quiet;
  }
  if (name == "reset-assertions") {
    // Declarations and definitions go too: they live on the assertion
    // stack, and there are no global declarations.
    expect_arity(cmd, 1, "(reset-assertions)");
    fresh_problem();
    return Reply::quiet;
  }
  PhaseTimer t(totals_.parse_time);
  change(name, cmd);
  // Only a command that succeeded gets here: a failed one changed nothing.
  last_ = Last::none;
  return Reply::quiet;
}

// The commands that change the declarations or the assertions.
void Session::change(std::string const& name, SExpr const& cmd) {
  auto const& it = cmd.items;
  if (name == "declare-const") {
    expect_arity(cmd, 3, "(declare-const name sort)");
    el_->declare(symbol_of(it[1], "the constant"), it[2], it[1]);
  } else if (name == "declare-fun") {
    expect_arity(cmd, 4, "(declare-fun name () sort)");
    expect_no_params(it[2], "declare-fun");
    el_->declare(symbol_of(it[1], "the function"), it[3], it[1]);
  } else if (name == "define-const") {
    expect_arity(cmd, 4, "(define-const name sort term)");
    el_->define(symbol_of(it[1], "the constant"), it[2], it[3], it[1]);
  } else if (name == "define-fun") {
    expect_arity(cmd, 5, "(define-fun name ((param sort)*) sort term)");
    el_->define_fun(symbol_of(it[1], "the function"), it[2], it[3], it[4], it[1]);
  } else if (name == "define-sort") {
    expect_arity(cmd, 4, "(define-sort name () sort)");
    expect_no_params(it[2], "define-sort");
    el_->define_sort(symbol_of(it[1], "the sort"), it[3], it[1]);
  } else if (name == "declare-sort") {
    expect_arity(cmd, 3, "(declare-sort name arity)");
    if (it[2].is_list || it[2].atom.kind != Tok::numeral)
      throw SmtError(it[2].pos, "expected the sort's arity, a numeral");
    el_->declare_sort(symbol_of(it[1], "the sort"), it[1]);
  } else if (name == "assert") {
    expect_arity(cmd, 2, "(assert term)");
    el_->assert_formula(it[1]);
    asserted_.push_back(it[1], opt_.produce_assertions);
  } else if (name == "push") {
    std::size_t const n = levels_of(cmd);
    if (levels_ + n > kMaxLevels)
      throw SmtError(cmd.pos, "too many levels; expected at most 1000000 in all");
    el_->push(n);
    levels_ += n;
  } else if (name == "pop") {
    std::size_t const n = levels_of(cmd);
    el_->pop(n, cmd);
    levels_ -= n;
    asserted_.resize(p_->assertions.size());
  } else if (name == "define-funs-rec" || name == "define-fun-rec" || name == "declare-datatypes" ||
             name == "declare-datatype" || name == "get-proof") {
    throw SmtError(it[0].pos, "unsupported command '" + name + "' (outside QF_FP)");
  } else {
    throw SmtError(it[0].pos,
                   "unknown command '" + name +
                       "'; expected an SMT-LIB 2.6 command such as assert, check-sat, get-model, "
                       "push, pop, set-option, get-info or exit");
  }
}

Reply Session::set_option(SExpr const& cmd) {
  expect_arity(cmd, 3, "(set-option :name value)");
  OptionInfo const* info = find_option(keyword_of(cmd.items[1]).substr(1));
  if (!info) {
    *regular_ << "unsupported\n";
    return Reply::answered;
  }
  if (!start_.script_sets_limits && info >= find_option("max-decisions"))
    throw SmtError(cmd.items[1].pos,
                   "option ':" + std::string(info->name) + "' is fixed by the embedding");
  SExpr const& v = cmd.items[2];
  bool const is_text = info->kind == OptionKind::text;
  if (v.is_list || (v.atom.kind == Tok::string) != is_text)
    throw SmtError(v.pos, "option '" + std::string(info->name) + "' expects " +
                              (is_text ? "a string" : "a symbol or a number"));
  Options next = opt_;
  std::string why;
  if (!fpsolve::set_option(next, *info, v.atom.text, &why)) throw SmtError(v.pos, why);
  // The texts of earlier assertions were not kept (the standard lets this
  // option be set only before the first assertion).
  if (next.produce_assertions && !opt_.produce_assertions && asserted_.size() > 0)
    throw SmtError(cmd.items[1].pos, "option ':produce-assertions' can be turned on only while "
                                     "there are no assertions; expected it before the first "
                                     "assert");
  // A channel that cannot be opened leaves the option as it was.
  if (info->name == "regular-output-channel")
    regular_ = channel(next.regular_output_channel, regular_file_, v.pos);
  if (info->name == "diagnostic-output-channel")
    diagnostic_ = channel(next.diagnostic_output_channel, diagnostic_file_, v.pos);
  opt_ = next;
  reader_.set_max_depth(opt_.max_nesting);
  return Reply::quiet;
}

Reply Session::get_info(SExpr const& cmd) {
  expect_arity(cmd, 2, "(get-info :key)");
  std::string const key = keyword_of(cmd.items[1]);
  std::ostream& o = *regular_;
  if (key == ":name") {
    o << "(:name \"fpsolve\")\n";
  } else if (key == ":version") {
    o << "(:version " << quoted(start_.version) << ")\n";
  } else if (key == ":authors") {
    o << "(:authors \"The qorv-fp authors\")\n";
  } else if (key == ":error-behavior") {
    o << "(:error-behavior continued-execution)\n";
  } else if (key == ":reason-unknown") {
    need(Last::unknown, cmd, "a check-sat answering unknown");
    o << "(:reason-unknown " << (reason_unknown_.empty() ? "incomplete" : reason_unknown_) << ")\n";
  } else if (key == ":assertion-stack-levels") {
    o << "(:assertion-stack-levels " << levels_ << ")\n";
  } else if (key == ":all-statistics") {
    // Totals over every check-sat so far (and the unsat cores' re-solves).
    print_stats(o, totals_);
  } else {
    o << "unsupported\n";
  }
  return Reply::answered;
}

// Solves with `roots` as the assertions, then puts the assertions back.
// Every sat is checked: the model, with every term computed exactly by the
// host's arithmetic, must make every root true.
Result Session::solve_roots(std::vector<int>* roots) {
  struct SwapBack {
    std::vector<int>& assertions;
    std::vector<int>* roots;
    ~SwapBack() {
      if (roots) assertions.swap(*roots);
    }
  } swap_back{p_->assertions, roots};
  if (roots) p_->assertions.swap(*roots);
  Options o = opt_;
  if (!o.trace_out) o.trace_out = diagnostic_;
  Result r = solve(*p_, o);
  totals_ += r.stats;
  std::string why;
  bool const verified = r.answer != Answer::sat ? true
                        : p_->has_reals()       ? verify_reals(*p_, r.model, r.real_inputs, &why)
                                                : verify_model(*p_, r.model, &why);
  if (!verified) {
    std::cerr << "fpsolve: internal error, please report: the search answered sat but " << why
              << "\n";
    for (int v : p_->declared)
      std::cerr << "  " << p_->vars[v].name() << " = " << r.model[v].to_str() << "\n";
    throw ModelBug{};
  }
  return r;
}

void Session::check_sat(std::vector<Assumption> assumptions) {
  last_ = Last::none;
  // The problem's tables grew by doubling while the script was read; the
  // search keeps them alive for its whole run, so the spare room goes.
  p_->vars.shrink_to_fit();
  p_->operands.shrink_to_fit();
  p_->nodes.shrink_to_fit();
  p_->defs.shrink_to_fit();
  p_->assertions.shrink_to_fit();
  p_->declared.shrink_to_fit();
  asserted_.shrink_to_fit();
  el_->shrink_to_fit();
  std::vector<int> roots;
  if (!assumptions.empty()) {
    roots = p_->assertions;
    for (Assumption const& a : assumptions)
      roots.push_back(a.node);
  }
  Result r = solve_roots(assumptions.empty() ? nullptr : &roots);
  if (opt_.stats) print_stats(*diagnostic_, r.stats);
  last_ = r.answer == Answer::sat     ? Last::sat
          : r.answer == Answer::unsat ? Last::unsat
                                      : Last::unknown;
  // The search says which limit ran out; (get-info :reason-unknown) answers
  // "incomplete" where it says nothing.
  reason_unknown_ = r.reason_unknown;
  model_ = std::move(r.model);
  real_inputs_ = std::move(r.real_inputs);
  assumptions_ = std::move(assumptions);
  core_.reset();
  *regular_ << (last_ == Last::sat ? "sat" : last_ == Last::unsat ? "unsat" : "unknown") << "\n";
}

void Session::get_model(SExpr const& cmd) {
  need_option(opt_.produce_models, cmd, ":produce-models");
  need(Last::sat, cmd, "a check-sat answering sat");
  std::ostream& o = *regular_;
  o << "(\n";
  std::vector<IEEEFloat> model = model_;
  std::vector<mpq_class> inputs = real_inputs_;
  std::vector<mpq_class> reals;
  if (!p_->reals.empty()) {
    complete_reals(*p_, model, inputs);
    reals = real_values(*p_, model, inputs);
  }
  for (int v : p_->declared) {
    Var const& var = p_->vars[v];
    o << "  (define-fun " << symbol_text(var.name()) << " () ";
    if (var.real >= 0)
      o << "Real " << real_text(reals[static_cast<std::size_t>(var.real)]);
    else if (var.is_bool)
      o << "Bool " << (model_[v].is_nan() ? "false" : "true");
    else if (var.is_rm)
      o << "RoundingMode " << rm_text(model_[v]);
    else if (var.bv > 0)
      o << bv_sort_text(var.bv) << " " << bv_text(model_[v], var.bv);
    else
      o << qorv::fp_sort_text(var.fmt) << " " << model_[v].to_str();
    o << ")\n";
  }
  o << ")\n";
}

void Session::get_value(SExpr const& cmd) {
  if (cmd.items.size() != 2 || !cmd.items[1].is_list || cmd.items[1].items.empty())
    throw SmtError(cmd.pos, "malformed command; expected (get-value (term ...))");
  need_option(opt_.produce_models, cmd, ":produce-models");
  need(Last::sat, cmd, "a check-sat answering sat");
  std::string answer = "(";
  for (SExpr const& t : cmd.items[1].items) {
    Value v = el_->elaborate(t);
    if (answer.size() > 1) answer += "\n ";
    answer += "(" + t.to_text() + " " + value_text(*p_, model_, real_inputs_, v) + ")";
  }
  *regular_ << answer << ")\n";
}

// The named Boolean terms of the assertions, in the order they are written.
void Session::get_assignment(SExpr const& cmd) {
  need_option(opt_.produce_assignments, cmd, ":produce-assignments");
  need(Last::sat, cmd, "a check-sat answering sat");
  std::vector<std::string> names;
  for (auto const& [i, n] : asserted_.inside())
    if (std::find(names.begin(), names.end(), n) == names.end()) names.push_back(n);
  std::string answer = "(";
  for (std::string const& n : names) {
    Value v = el_->elaborate(SExpr{false, Token{Tok::symbol, n, {}}, {}, {}});
    if (!v.is_bool) continue;
    if (answer.size() > 1) answer += "\n ";
    answer += "(" + symbol_text(n) + " " + value_text(*p_, model_, real_inputs_, v) + ")";
  }
  *regular_ << answer << ")\n";
}

// Deletion: a named assertion leaves the core only when the rest is proven
// unsat without it, so the core is unsat whatever the re-solves answer.
std::string Session::unsat_core(SExpr const& cmd) {
  need_option(opt_.produce_unsat_cores, cmd, ":produce-unsat-cores");
  need(Last::unsat, cmd, "a check-sat answering unsat");
  if (core_) return *core_;
  std::vector<int> fixed;
  std::vector<std::size_t> core; // positions in asserted_.names()
  auto named = asserted_.names().begin();
  for (std::size_t i = 0; i < asserted_.size(); ++i)
    if (named != asserted_.names().end() && named->first == i)
      core.push_back(static_cast<std::size_t>(named++ - asserted_.names().begin()));
    else
      fixed.push_back(p_->assertions[i]);
  for (Assumption const& a : assumptions_)
    fixed.push_back(a.node);
  for (std::size_t k = 0; k < core.size();) {
    std::vector<int> roots = fixed;
    for (std::size_t j = 0; j < core.size(); ++j)
      if (j != k) roots.push_back(p_->assertions[asserted_.names()[core[j]].first]);
    if (solve_roots(&roots).answer == Answer::unsat)
      core.erase(core.begin() + static_cast<std::ptrdiff_t>(k));
    else
      ++k;
  }
  std::string answer = "(";
  for (std::size_t i : core)
    answer += (answer.size() > 1 ? " " : "") + symbol_text(asserted_.names()[i].second);
  core_ = answer + ")";
  return *core_;
}

std::string Session::unsat_assumptions(SExpr const& cmd) {
  need_option(opt_.produce_unsat_assumptions, cmd, ":produce-unsat-assumptions");
  need(Last::unsat, cmd, "a check-sat-assuming answering unsat");
  std::vector<std::size_t> kept;
  for (std::size_t i = 0; i < assumptions_.size(); ++i)
    kept.push_back(i);
  for (std::size_t k = 0; k < kept.size();) {
    std::vector<int> roots = p_->assertions;
    for (std::size_t j = 0; j < kept.size(); ++j)
      if (j != k) roots.push_back(assumptions_[kept[j]].node);
    if (solve_roots(&roots).answer == Answer::unsat)
      kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(k));
    else
      ++k;
  }
  std::string answer = "(";
  for (std::size_t i : kept)
    answer += (answer.size() > 1 ? " " : "") + assumptions_[i].term.to_text();
  return answer + ")";
}

} // namespace

int run_script(std::istream& in, std::ostream& out, DriverOptions const& options) {
  Reader reader(in, options.search.max_nesting);
  std::optional<Session> session;
  try {
    session.emplace(reader, out, options);
  } catch (SmtError const& e) {
    // A startup channel: the message's position means nothing here.
    std::string const why = e.what();
    (options.diagnostic ? *options.diagnostic : std::cerr)
        << "fpsolve: " << why.substr(why.find(": ") + 2) << "\n";
    return kExitBadOptions;
  }
  bool failed = false;
  for (;;) {
    try {
      std::unique_ptr<SExpr> cmd;
      {
        PhaseTimer t(session->parse_time());
        cmd = reader.next();
      }
      if (!cmd || !session->command(*cmd)) break;
    } catch (ModelBug const&) {
      return kExitModelBug;
    } catch (SmtError const& e) {
      session->error(e.what());
      failed = true;
    } catch (std::exception const& e) {
      session->error(std::string("cannot process the command: ") + e.what());
      failed = true;
    }
  }
  return failed ? kExitInputError : kExitClean;
}

} // namespace fpsolve
