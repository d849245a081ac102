// Why a gadget cannot be made, as a sentence for people with the next step to take.
#pragma once

#include <stdexcept>

namespace zul {

/// Thrown by everything that prepares or changes a gadget; vkgadget shows its text and ends.
class GadgetError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace zul
