// What stops the tour: an error whose text is one line for the person at the terminal.
#ifndef QOR_TOUR_FAILURE_H
#define QOR_TOUR_FAILURE_H

#include <qorcvmx.h>

#include <stdexcept>
#include <string>

namespace tour {

struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The name of the first library function in a piece of code.
std::string nameIn(const std::string& code);

// Throws a Failure that names the call and the status, unless the status is qorStatusOk.
void require(const std::string& code, QorStatus status);

}  // namespace tour

#endif
