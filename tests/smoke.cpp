// Smoke run: builds a few values and prints them, proving the library links
// and its basic operations work in an installed-like setting.
#include "host/ieee_float.h"
#include "support/packed_order.h"

#include <iostream>

int main() {
  using qorv::IEEEFloat;
  IEEEFloat const nan = IEEEFloat::nan({11, 53});
  IEEEFloat const inf = IEEEFloat::inf({11, 53}, true);
  bool ordered = IEEEFloat::Packed{&nan} < IEEEFloat::Packed{&inf};
  std::cout << "NaN      " << nan.to_str() << "\n-inf     " << inf.to_str()
            << "\nNaN < -inf in the packed order: " << (ordered ? "yes" : "no") << "\n";
  return ordered ? 0 : 1;
}
