// The SMT-LIB lexer and S-expression reader (see reader.h): positions on
// every token, bounded nesting, and an SmtError for every malformed input.
#include "smtlib/reader.h"

#include <cctype>
#include <cstring>

namespace fpsolve {

namespace {

std::string describe(Pos p, std::string const& message) {
  return "line " + std::to_string(p.line) + " column " + std::to_string(p.column) + ": " + message;
}

bool simple_symbol_char(int c) {
  if (c < 0 || c > 127) return false;
  if (std::isalnum(c)) return true;
  return c != 0 && std::strchr("~!@$%^&*_-+=<>.?/", c) != nullptr;
}

std::string printable(int c) {
  if (c >= 32 && c < 127) return std::string("'") + static_cast<char>(c) + "'";
  return "byte " + std::to_string(c & 0xff);
}

} // namespace

SmtError::SmtError(Pos p, std::string const& message)
    : std::runtime_error(describe(p, message)), pos(p) {}

int Lexer::peek() {
  std::streambuf* const buf = in_.rdbuf();
  if (!in_.good() || !buf) return EOF;
  int c = EOF;
  try {
    c = buf->sgetc();
  } catch (...) {
    in_.setstate(std::ios::badbit);
    return EOF;
  }
  if (c == std::char_traits<char>::eof()) {
    in_.setstate(std::ios::eofbit);
    return EOF;
  }
  return std::char_traits<char>::to_int_type(std::char_traits<char>::to_char_type(c));
}

int Lexer::get() {
  int c = peek();
  if (c != EOF) in_.rdbuf()->sbumpc();
  if (c == '\n') {
    ++pos_.line;
    pos_.column = 1;
  } else if (c != EOF) {
    ++pos_.column;
  }
  return c;
}

void Lexer::skip_space_and_comments() {
  for (;;) {
    int c = peek();
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
      get();
    } else if (c == ';') {
      while (peek() != EOF && peek() != '\n')
        get();
    } else {
      return;
    }
  }
}

Token Lexer::next() {
  skip_space_and_comments();
  Token t;
  t.pos = pos_;
  int c = peek();
  if (c == EOF) return t;
  get();
  if (c == '(') {
    t.kind = Tok::lparen;
  } else if (c == ')') {
    t.kind = Tok::rparen;
  } else if (c == '"') {
    t.kind = Tok::string;
    for (;;) {
      int d = get();
      if (d == EOF) throw SmtError(t.pos, "unterminated string literal; expected a closing '\"'");
      if (d == '"') {
        if (peek() != '"') break;
        get();
      }
      t.text.push_back(static_cast<char>(d));
    }
  } else if (c == '|') {
    // SMT-LIB 2.6 leaves a backslash out of quoted symbols, but model checkers
    // print it there (ESBMC's |execution_statet::\guard_exec@0!0|) and
    // other solvers read it; it is taken as an ordinary character, so the
    // name, and the model printed with it, stays as written.
    t.kind = Tok::symbol;
    for (;;) {
      int d = get();
      if (d == EOF) throw SmtError(t.pos, "unterminated quoted symbol; expected a closing '|'");
      if (d == '|') break;
      t.text.push_back(static_cast<char>(d));
    }
  } else if (c == ':') {
    t.kind = Tok::keyword;
    t.text = ":";
    while (simple_symbol_char(peek()))
      t.text.push_back(static_cast<char>(get()));
    if (t.text.size() == 1) throw SmtError(t.pos, "expected a keyword name after ':'");
  } else if (c == '#') {
    int d = get();
    bool bin = d == 'b';
    if (!bin && d != 'x') throw SmtError(t.pos, "expected '#b' or '#x' literal");
    t.kind = bin ? Tok::binary : Tok::hex;
    while (bin ? (peek() == '0' || peek() == '1')
               : (peek() >= 0 && peek() < 128 && std::isxdigit(peek())))
      t.text.push_back(static_cast<char>(get()));
    if (t.text.empty() || simple_symbol_char(peek()))
      throw SmtError(t.pos, bin ? "expected binary digits after '#b'"
                                : "expected hexadecimal digits after '#x'");
  } else if (c >= '0' && c <= '9') {
    t.kind = Tok::numeral;
    t.text.push_back(static_cast<char>(c));
    while (peek() >= '0' && peek() <= '9')
      t.text.push_back(static_cast<char>(get()));
    if (peek() == '.') {
      t.kind = Tok::decimal;
      t.text.push_back(static_cast<char>(get()));
      if (!(peek() >= '0' && peek() <= '9'))
        throw SmtError(t.pos, "expected digits after the decimal point");
      while (peek() >= '0' && peek() <= '9')
        t.text.push_back(static_cast<char>(get()));
    }
    if (simple_symbol_char(peek()))
      throw SmtError(t.pos, "malformed number; expected a numeral or decimal");
    if (t.text.size() > 1 && t.text[0] == '0' && t.text[1] != '.')
      throw SmtError(t.pos, "malformed numeral '" + t.text + "'; leading zeros are not allowed");
  } else if (simple_symbol_char(c)) {
    t.kind = Tok::symbol;
    t.text.push_back(static_cast<char>(c));
    while (simple_symbol_char(peek()))
      t.text.push_back(static_cast<char>(get()));
  } else {
    throw SmtError(t.pos, "unexpected character " + printable(c));
  }
  return t;
}

namespace {

// The text of an atom (for to_text).
std::string atom_text(Token const& atom) {
  switch (atom.kind) {
  case Tok::binary:
    return "#b" + atom.text;
  case Tok::hex:
    return "#x" + atom.text;
  case Tok::string: {
    std::string r = "\"";
    for (char ch : atom.text)
      r += ch == '"' ? std::string("\"\"") : std::string(1, ch);
    return r + "\"";
  }
  case Tok::symbol: {
    bool simple = !atom.text.empty() && !std::isdigit(static_cast<unsigned char>(atom.text[0]));
    for (char ch : atom.text)
      simple = simple && simple_symbol_char(static_cast<unsigned char>(ch));
    return simple ? atom.text : "|" + atom.text + "|";
  }
  default:
    return atom.text;
  }
}

// Moves the items of every list among `items` onto `pending`, so that
// destroying `items` recurses no further than one level.
void detach_nested(std::vector<SExpr>& items, std::vector<SExprItems>& pending) {
  for (SExpr& e : items)
    if (!e.items.empty()) pending.push_back(std::move(e.items));
}

} // namespace

SExprItems::SExprItems(SExprItems const& other) : std::vector<SExpr>() {
  // Each step copies the atoms and positions of one list's items; nested
  // lists are queued as (source, destination) pairs.  Destinations stay
  // valid: a list's items are reserved before any is appended.
  std::vector<std::pair<SExprItems const*, SExprItems*>> todo{{&other, this}};
  while (!todo.empty()) {
    auto [from, to] = todo.back();
    todo.pop_back();
    to->reserve(from->size());
    for (SExpr const& e : *from) {
      to->push_back(SExpr{e.is_list, e.atom, SExprItems(), e.pos});
      if (!e.items.empty()) todo.emplace_back(&e.items, &to->back().items);
    }
  }
}

SExprItems& SExprItems::operator=(SExprItems const& other) {
  if (this != &other) *this = SExprItems(other);
  return *this;
}

SExprItems& SExprItems::operator=(SExprItems&& other) noexcept {
  SExprItems old(std::move(*this)); // freed iteratively when it goes
  std::vector<SExpr>::operator=(std::move(other));
  return *this;
}

SExprItems::~SExprItems() {
  if (empty()) return;
  std::vector<SExprItems> pending;
  detach_nested(*this, pending);
  while (!pending.empty()) {
    SExprItems next = std::move(pending.back());
    pending.pop_back();
    detach_nested(next, pending);
  }
}

std::string SExpr::to_text() const {
  if (!is_list) return atom_text(atom);
  // Depth-first with an explicit stack of (list, next item).
  std::string s = "(";
  std::vector<std::pair<SExpr const*, std::size_t>> stack{{this, 0}};
  while (!stack.empty()) {
    auto& [list, next] = stack.back();
    if (next == list->items.size()) {
      s += ')';
      stack.pop_back();
      continue;
    }
    if (next > 0) s += ' ';
    SExpr const& item = list->items[next++];
    if (item.is_list) {
      s += '(';
      stack.emplace_back(&item, 0);
    } else {
      s += atom_text(item.atom);
    }
  }
  return s;
}

std::unique_ptr<SExpr> Reader::next() {
  Token t = lex_.next();
  if (t.kind == Tok::eof) return nullptr;
  if (t.kind == Tok::rparen)
    throw SmtError(t.pos,
                   "unbalanced parentheses: unexpected ')'; expected '(' to begin a command");
  return std::make_unique<SExpr>(read(std::move(t)));
}

void Reader::skip_rest(std::size_t depth) {
  while (depth > 0) {
    Token t;
    try {
      t = lex_.next();
    } catch (SmtError const&) {
      continue; // every lexer error consumes at least one character
    }
    if (t.kind == Tok::eof) return;
    if (t.kind == Tok::lparen) ++depth;
    if (t.kind == Tok::rparen) --depth;
  }
}

// Iterative, so deep nesting costs heap, not stack.
SExpr Reader::read(Token first) {
  if (first.kind != Tok::lparen) {
    SExpr e;
    e.pos = first.pos;
    e.atom = std::move(first);
    return e;
  }
  std::vector<SExpr> stack;
  SExpr top;
  top.is_list = true;
  top.pos = first.pos;
  stack.push_back(std::move(top));
  for (;;) {
    Token t;
    try {
      t = lex_.next();
    } catch (SmtError const&) {
      skip_rest(stack.size());
      throw;
    }
    if (t.kind == Tok::eof) {
      Pos open = stack.back().pos;
      throw SmtError(t.pos, "unbalanced parentheses: expected ')' to close the '(' at line " +
                                std::to_string(open.line) + " column " +
                                std::to_string(open.column) + ", found the end of the input");
    }
    if (t.kind == Tok::lparen) {
      if (stack.size() >= max_depth_) {
        skip_rest(stack.size() + 1);
        throw SmtError(t.pos, "expressions nested deeper than max-nesting (" +
                                  std::to_string(max_depth_) + ")");
      }
      SExpr e;
      e.is_list = true;
      e.pos = t.pos;
      stack.push_back(std::move(e));
    } else if (t.kind == Tok::rparen) {
      SExpr done = std::move(stack.back());
      stack.pop_back();
      if (stack.empty()) return done;
      stack.back().items.push_back(std::move(done));
    } else {
      SExpr e;
      e.pos = t.pos;
      e.atom = std::move(t);
      stack.back().items.push_back(std::move(e));
    }
  }
}

} // namespace fpsolve
