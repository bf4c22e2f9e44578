// Totals and printing of the statistics table (see stats.h).
#include "engine/stats.h"

#include <iomanip>

namespace fpsolve {

Stats& Stats::operator+=(Stats const& o) {
#define FPSOLVE_STAT_ADD(kind, field, name, help) field += o.field;
  FPSOLVE_STATS(FPSOLVE_STAT_ADD)
#undef FPSOLVE_STAT_ADD
  return *this;
}

void print_stats(std::ostream& out, Stats const& s) {
  char const* sep = "(";
  auto put = [&](char const* name, auto value) {
    out << sep << ":" << name << " ";
    if constexpr (std::is_floating_point_v<decltype(value)>)
      out << std::fixed << std::setprecision(6) << value << std::defaultfloat;
    else
      out << value;
    sep = "\n ";
  };
#define FPSOLVE_STAT_PUT(kind, field, name, help) put(name, s.field);
  FPSOLVE_STATS(FPSOLVE_STAT_PUT)
#undef FPSOLVE_STAT_PUT
  out << ")\n";
}

} // namespace fpsolve
