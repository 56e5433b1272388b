// The exception of misuse. Part of tx.hpp, which is what applications include.
#ifndef TX_ERROR_HPP
#define TX_ERROR_HPP

#include <stdexcept>

#include "tx/export.hpp"

namespace tx {

/// Misuse: the text names what was given and what is known, "no parameter 'rho2'; the system has
/// sigma, rho, beta".
class TX_EXPORT Error : public std::invalid_argument {
  public:
    using std::invalid_argument::invalid_argument;
};

}  // namespace tx

#endif
