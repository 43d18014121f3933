#include "model/FatalError.h"

#include <cstdlib>
#include <iostream>

namespace pellix {

void fatalError(std::string_view message) {
  std::cerr << "Fatal error: " << message << std::endl;
  std::abort();
}

}  // namespace pellix
