// The options table's rows as data, and strict parsing and printing of
// option values (see options.h).
#include "engine/options.h"

#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <sstream>

namespace fpsolve {

namespace {

#define FPSOLVE_OPTION_STR2(x) #x
#define FPSOLVE_OPTION_STR(x) FPSOLVE_OPTION_STR2(x)
#define FPSOLVE_OPTION_ROW(kind, field, name, def, help)                                           \
  OptionInfo{OptionKind::kind, name, FPSOLVE_OPTION_STR(def), help},
constexpr OptionInfo kRows[] = {FPSOLVE_OPTIONS(FPSOLVE_OPTION_ROW)};
#undef FPSOLVE_OPTION_ROW

// Field access by row: the table's order is the rows' order.
template <class F>
auto with_field(Options& o, std::string_view name, F&& f) {
#define FPSOLVE_OPTION_VISIT(kind, field, oname, def, help)                                        \
  if (name == oname) return f(o.field);
  FPSOLVE_OPTIONS(FPSOLVE_OPTION_VISIT)
#undef FPSOLVE_OPTION_VISIT
  return f(o.max_decisions); // unreachable for a row of the table
}

bool parse(std::string_view s, bool* out) {
  if (s == "true") return *out = true, true;
  if (s == "false") return *out = false, true;
  return false;
}

bool parse(std::string_view s, std::uint64_t* out) {
  if (s.empty() || s.size() > 20) return false;
  std::uint64_t v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    std::uint64_t const d = static_cast<std::uint64_t>(c - '0');
    if (v > (UINT64_MAX - d) / 10) return false;
    v = v * 10 + d;
  }
  *out = v;
  return true;
}

bool parse(std::string_view s, double* out) {
  // Digits with at most one '.', at least one digit: no signs, exponents,
  // hex, inf or nan, which strtod would take.
  std::size_t digits = 0, dots = 0;
  for (char c : s) {
    if (c == '.')
      ++dots;
    else if (c >= '0' && c <= '9')
      ++digits;
    else
      return false;
  }
  if (digits == 0 || dots > 1) return false;
  std::string const text(s);
  double const v = std::strtod(text.c_str(), nullptr);
  if (!std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool parse(std::string_view s, std::string* out) {
  *out = std::string(s);
  return true;
}

std::string text_of(bool v) {
  return v ? "true" : "false";
}
std::string text_of(std::uint64_t v) {
  return std::to_string(v);
}
std::string text_of(double v) {
  std::ostringstream s;
  s << std::setprecision(17) << v;
  std::string t = s.str();
  if (t.find('.') == std::string::npos && t.find('e') == std::string::npos) t += ".0";
  return t;
}
std::string text_of(std::string const& v) {
  std::string r = "\"";
  for (char c : v)
    r += c == '"' ? std::string("\"\"") : std::string(1, c);
  return r + "\"";
}

char const* kind_name(OptionKind k) {
  switch (k) {
  case OptionKind::flag:
    return "BOOL";
  case OptionKind::count:
    return "N";
  case OptionKind::seconds:
    return "SECONDS";
  case OptionKind::text:
    return "TEXT";
  }
  return "";
}

} // namespace

std::span<OptionInfo const> option_table() {
  return kRows;
}

OptionInfo const* find_option(std::string_view name) {
  for (OptionInfo const& r : kRows)
    if (r.name == name) return &r;
  return nullptr;
}

bool set_option(Options& o, OptionInfo const& info, std::string_view text, std::string* why) {
  return with_field(o, info.name, [&](auto& field) {
    auto v = field;
    if (parse(text, &v)) {
      field = v;
      return true;
    }
    if (why) {
      static constexpr char const* expected[] = {"true or false", "a whole number",
                                                 "a non-negative decimal number", "a text"};
      *why = "option '" + std::string(info.name) + "' expects " +
             expected[static_cast<int>(info.kind)] + ", not '" + std::string(text) + "'";
    }
    return false;
  });
}

std::string option_text(Options const& o, OptionInfo const& info) {
  return with_field(const_cast<Options&>(o), info.name,
                    [](auto const& field) { return text_of(field); });
}

void print_option_usage(std::ostream& out) {
  for (OptionInfo const& r : kRows) {
    std::string head = "  --" + std::string(r.name);
    if (r.kind != OptionKind::flag) head += "=" + std::string(kind_name(r.kind));
    out << std::left << std::setw(34) << head << " " << r.help;
    if (r.kind == OptionKind::flag)
      out << " (default " << r.default_text << "; --no-" << r.name << " turns it off)";
    else
      out << " (default " << r.default_text << ")";
    out << "\n";
  }
}

} // namespace fpsolve
