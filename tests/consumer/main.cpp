// Builds against the installed package only: includes, links, runs.  The
// heuristic decides once on a fresh term, and the embedded solver answers a
// small problem whose model it then reads back.
#include <qorv/fp/interval_heuristics.h>
#include <qorv/host/fp_arith.h>
#include <qorv/host/fp_host.h>
#include <qorv/host/terms.h>
#include <qorv/solver/api/solver.h>

#include <iostream>

namespace {

bool heuristic_decides() {
  qorv::TermManager tm;
  qorv::FpIntervalDomain domain;
  qorv::FpBoundsTrail trail(&tm);
  qorv::FpDecDepManager manager;
  manager.terms.push_back(tm.mk_var("x", tm.fp_sort(8, 24)));
  qorv::fp::FpIntervalDecisionHeuristic heuristic(domain, trail, manager);
  qorv::FpBoundElement* e = heuristic.decide();
  e->print(std::cout);
  std::cout << "\n";
  bool const ok = !domain.is_no_decision(e) && e->flag();
  domain.release_FpBoundElement(e);
  return ok;
}

// x + 1 == 3 in Float32 under a declared rounding mode: sat, and the model
// read back satisfies it under the host's arithmetic.
bool solver_answers() {
  fpsolve::api::Solver s;
  s.declare_fp("x", {8, 24});
  s.declare_rounding_mode("r");
  s.assert_formula("(fp.eq (fp.add r x ((_ to_fp 8 24) RNE 1.0)) ((_ to_fp 8 24) RNE 3.0))");
  if (s.check() != fpsolve::api::Answer::sat) return false;
  std::cout << s.model_text();
  qorv::IEEEFloat::format const f32{8, 24};
  qorv::IEEEFloat const sum = qorv::swflt::add(s.rounding_mode_value("r"), s.fp_value("x"),
                                               qorv::IEEEFloat::from_double(1.0, f32));
  return qorv::swflt::eq(sum, qorv::IEEEFloat::from_double(3.0, f32));
}

} // namespace

int main() {
  bool const ok = heuristic_decides() && solver_answers();
  return ok ? 0 : 1;
}
