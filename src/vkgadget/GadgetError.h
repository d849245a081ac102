// Why a gadget cannot be created, as a sentence for people that includes the next step.
#pragma once

#include <stdexcept>

namespace zul {

/// Thrown by all operations that prepare or change a gadget; vkgadget prints its text and exits.
class GadgetError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace zul
