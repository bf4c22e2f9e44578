// Reading SMT-LIB 2.6 text: a lexer and an S-expression reader that remember
// the line and column (both 1-based) of every token.
//
// The reader hands out one top-level S-expression at a time, so a script is
// answered command by command and an error late in the file still lets the
// earlier commands run.  Every failure is an SmtError carrying the position
// it refers to and a message saying what was expected there; nothing in the
// reader crashes or loops on malformed text.  Nesting is limited (the
// max-nesting option) so a hostile input cannot exhaust the memory.
//
// After an error the reader stays usable: a malformed top-level expression
// is skipped up to the parenthesis that closes it (or the end of the input),
// so the next call to next() starts at the next command, as a solver that
// continues after errors needs.  It never reads past the closing parenthesis
// of a command, so a client on a pipe gets its answer before it writes the
// next command.
//
// An S-expression may be nested as deep as the nesting limit allows (the
// limit may be raised far beyond the default); copying, printing and
// destroying one use explicit stacks, never recursion, so the depth costs
// heap, not stack.
#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace fpsolve {

struct Pos {
  std::size_t line = 1;
  std::size_t column = 1;
};

// An input error; what() is "line L column C: <message>".
class SmtError : public std::runtime_error {
public:
  SmtError(Pos p, std::string const& message);
  Pos pos;
};

enum class Tok { lparen, rparen, symbol, keyword, numeral, decimal, binary, hex, string, eof };

struct Token {
  Tok kind = Tok::eof;
  std::string text; // symbols unquoted; #b/#x keep only their digits
  Pos pos;
};

class Lexer {
public:
  explicit Lexer(std::istream& in) : in_(in) {}
  Token next();

private:
  // Characters come straight from the stream's buffer (a sentry per
  // character costs more than the rest of the lexer); the stream's state
  // still reports the end of the input and a failing buffer, as
  // std::istream::get would.
  int peek();
  int get();
  void skip_space_and_comments();

  std::istream& in_;
  Pos pos_;
};

struct SExpr;

// The items of a list: a vector whose copy and destruction walk nested lists
// with an explicit stack, so a list nested a million deep is copied and
// freed without deep recursion.
class SExprItems : public std::vector<SExpr> {
public:
  SExprItems() = default;
  SExprItems(SExprItems const& other);
  SExprItems(SExprItems&& other) noexcept = default;
  SExprItems& operator=(SExprItems const& other);
  SExprItems& operator=(SExprItems&& other) noexcept;
  ~SExprItems();
};

struct SExpr {
  bool is_list = false;
  Token atom;       // atoms only
  SExprItems items; // lists only
  Pos pos;          // the atom, or the opening parenthesis
  bool is_symbol(char const* s) const {
    return !is_list && atom.kind == Tok::symbol && atom.text == s;
  }
  // The expression written back as SMT-LIB text (for get-value answers).
  std::string to_text() const;
};

class Reader {
public:
  explicit Reader(std::istream& in, std::size_t max_depth = 1000)
      : lex_(in), max_depth_(max_depth) {}
  // The next top-level expression, or nullptr at the end of the input.
  std::unique_ptr<SExpr> next();
  // The deepest nesting of parentheses accepted from now on (at least 1).
  void set_max_depth(std::size_t depth) { max_depth_ = depth < 1 ? 1 : depth; }

private:
  SExpr read(Token first);
  // Consumes tokens until `depth` open parentheses are closed or the input
  // ends, ignoring malformed tokens: what is left of an expression in error.
  void skip_rest(std::size_t depth);
  Lexer lex_;
  std::size_t max_depth_;
};

} // namespace fpsolve
