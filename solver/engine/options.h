// The solver's options: one table (FPSOLVE_OPTIONS) that defines the
// fields of `Options`, their defaults, the command line (`--name=value`,
// `--name value`, and `--name` / `--no-name` for flags), `set-option :name`
// and `get-option :name`, and the usage text.  Adding a row is the only way
// to add an option; nothing else keeps a second list.
//
// Values are parsed strictly: a count is decimal digits that fit in 64 bits,
// seconds a non-negative finite decimal, a flag `true` or `false`; anything
// else is rejected with a message and leaves the option unchanged.
//
// The engine reads only the search and tuning rows; the front end reads the
// others.  The defaults of the tuning rows are the values the search was
// measured with (docs/design.md); they are options so that A/B runs need no
// rebuild.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

namespace fpsolve {

struct LearnedLiteral; // solve.h

enum class OptionKind : std::uint8_t { flag, count, seconds, text };

// X(kind, field, name, default, help)
#define FPSOLVE_OPTIONS(X)                                                                         \
  /* SMT-LIB standard options (set-option / get-option; also on the command line) */               \
  X(flag, print_success, "print-success", false,                                                   \
    "answer success to every command that has no other answer")                                    \
  X(flag, produce_models, "produce-models", true,                                                  \
    "allow get-model and get-value (on by default, as in z3)")                                     \
  X(flag, produce_unsat_cores, "produce-unsat-cores", false, "allow get-unsat-core")               \
  X(flag, produce_assignments, "produce-assignments", false, "allow get-assignment")               \
  X(flag, produce_assertions, "produce-assertions", false,                                         \
    "allow get-assertions (off by default, as the standard says; on, every assertion's text is "   \
    "kept)")                                                                                       \
  X(flag, produce_unsat_assumptions, "produce-unsat-assumptions", false,                           \
    "allow get-unsat-assumptions")                                                                 \
  X(count, random_seed, "random-seed", 0,                                                          \
    "accepted and reported; the decision heuristic's generator is seeded 42 by contract")          \
  X(text, regular_output_channel, "regular-output-channel", "stdout",                              \
    "where answers go: stdout, stderr or a file name")                                             \
  X(text, diagnostic_output_channel, "diagnostic-output-channel", "stderr",                        \
    "where diagnostics go: stdout, stderr or a file name")                                         \
  /* the solver's own rows from here on (front ends may fix them: keep this order) */              \
  /* resource limits and reporting */                                                              \
  X(count, max_decisions, "max-decisions", 0, "answer unknown after N decisions (0: no limit)")    \
  X(seconds, timeout, "timeout", 0, "answer unknown after S seconds per check-sat (0: no limit)")  \
  X(flag, stats, "stats", false, "statistics on the diagnostic channel after every check-sat")     \
  X(flag, trace, "trace", false, "search frames of the asserted terms at every backtrack")         \
  X(flag, check, "check", false, "cross-check the search state against the trail at every step")   \
  /* the search's parts, for A/B runs */                                                           \
  X(flag, probe, "probe", true, "run the model probe")                                             \
  X(flag, model_search, "model-search", true, "run the model search guided by distance")           \
  X(flag, learning, "learning", true, "learn clauses on conflicts and jump back")                  \
  X(flag, atom_decisions, "atom-decisions", true,                                                  \
    "decide the truth of atoms before splitting values")                                           \
  X(count, atom_delay, "atom-delay", 1,                                                            \
    "conflicts of the value search before atom decisions start (from the root)")                   \
  X(flag, big_ranks, "big-ranks", false, "GMP ranks even where 128-bit ranks suffice")             \
  X(flag, compact_trail, "compact-trail", true,                                                    \
    "one trail entry per term and level (else one per narrowing)")                                 \
  X(flag, chain_jump, "chain-jump", true,                                                          \
    "jump comparison chains to their fixpoint when a round creeps")                                \
  X(flag, ordered_queue, "ordered-queue", false,                                                   \
    "visit queued entries comparisons first, then Defs in dependency order (else first in)")       \
  X(flag, real_lemmas, "real-lemmas", true,                                                        \
    "learn the bounds a simplex refutation used as the conflict's clause")                         \
  X(flag, real_narrowing, "real-narrowing", true,                                                  \
    "narrow floats behind fp.to_real and to_fp by the real bounds the rows imply")                 \
  /* tuning */                                                                                     \
  X(count, propagation_budget, "propagation-budget", 32,                                           \
    "propagation steps per entry (plus 1000) before a round counts as stalled")                    \
  X(count, timer_stride, "timer-stride", 64, "propagation steps between looks at the clock")       \
  X(count, split_conjunctions, "split-conjunctions", 64,                                           \
    "an asserted and of at least N conjuncts is one entry per conjunct (0: never)")                \
  X(count, clause_cap, "clause-cap", 4000, "learned clauses kept before the older half goes")      \
  X(count, clause_growth, "clause-growth", 50, "percent the clause cap grows at each reduction")   \
  X(count, minimize_effort, "minimize-effort", 100,                                                \
    "clause minimization's propagation, in percent of the rest (0: top prefix only)")              \
  X(count, probe_growth, "probe-growth", 2, "the probe runs after 0, 1, g, g^2, ... decisions")    \
  X(count, model_search_evals, "model-search-evals", 10000,                                        \
    "whole evaluations of the first model search run (an eighth at later ones)")                   \
  X(count, max_nesting, "max-nesting", 1000, "deepest nesting of parentheses read")

namespace detail {
template <OptionKind K>
struct OptionType;
template <>
struct OptionType<OptionKind::flag> {
  using type = bool;
};
template <>
struct OptionType<OptionKind::count> {
  using type = std::uint64_t;
};
template <>
struct OptionType<OptionKind::seconds> {
  using type = double;
};
template <>
struct OptionType<OptionKind::text> {
  using type = std::string;
};
} // namespace detail

struct Options {
#define FPSOLVE_OPTION_FIELD(kind, field, name, def, help)                                         \
  typename detail::OptionType<OptionKind::kind>::type field = def;
  FPSOLVE_OPTIONS(FPSOLVE_OPTION_FIELD)
#undef FPSOLVE_OPTION_FIELD
  // Where the trace goes when `trace` is on (the front end sets it).
  std::ostream* trace_out = nullptr;
  // When set, sees every learned clause (tests check each against the
  // assertions by enumeration).
  std::function<void(std::span<LearnedLiteral const>)> learned_clause_hook;
};

struct OptionInfo {
  OptionKind kind;
  std::string_view name; // without the leading ':' or "--"
  std::string_view default_text;
  std::string_view help;
};

// Every row of the table, in its order.
std::span<OptionInfo const> option_table();
// The row named `name`, or nullptr.
OptionInfo const* find_option(std::string_view name);

// Sets the option from its text; on bad text returns false with the reason
// in `why` and leaves `o` unchanged.
bool set_option(Options& o, OptionInfo const& info, std::string_view text, std::string* why);
// The option's value as SMT-LIB text (flags true/false, texts quoted).
std::string option_text(Options const& o, OptionInfo const& info);
// One line per option: "  --name=KIND   help (default D)".
void print_option_usage(std::ostream& out);

} // namespace fpsolve
