// Builds against the installed package only: includes, links, runs.
#include <fp/interval_heuristics.h>
#include <host/fp_host.h>
#include <host/terms.h>

#include <iostream>

int main() {
  qorv::TermManager tm;
  qorv::FpIntervalDomain domain;
  qorv::FpBoundsTrail trail(&tm);
  qorv::FpDecDepManager manager;
  manager.terms.push_back(tm.mk_var("x", tm.fp_sort(8, 24)));
  qorv::fp::FpIntervalDecisionHeuristic heuristic(domain, trail, manager);
  qorv::FpBoundElement* e = heuristic.decide();
  e->print(std::cout);
  std::cout << "\n";
  bool ok = !domain.is_no_decision(e) && e->flag();
  domain.release_FpBoundElement(e);
  return ok ? 0 : 1;
}
