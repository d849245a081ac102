// What keeps a gadget from being made, told with the next step to take.
#pragma once

#include <stdexcept>

namespace zul {

class GadgetError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace zul
