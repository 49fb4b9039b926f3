// Statuses in words.
#include "failure.h"

#include <algorithm>

namespace tour {

static const char* meaning(QorStatus status) {
  switch (status) {
    case qorStatusBadArg: return "an argument outside its range";
    case qorStatusBadSize: return "a size below its minimum";
    case qorStatusNullPtr: return "a null pointer";
    case qorStatusNoMemory: return "out of memory";
    case qorStatusBadStep: return "a row step shorter than a row";
    case qorStatusBadMask: return "a mask size that is not allowed";
    case qorStatusBadAnchor: return "an anchor outside the kernel";
    case qorStatusBadStepAlign: return "a row step that is no multiple of the element size";
    default: return status < 0 ? "an error" : "a warning";
  }
}

std::string nameIn(const std::string& code) {
  const size_t begin = std::min(code.find("qor"), code.size());
  return code.substr(begin, code.find('(', begin) - begin);
}

void require(const std::string& code, QorStatus status) {
  if (status == qorStatusOk) return;
  throw Failure(nameIn(code) + " returned " + std::to_string(status) + ": " + meaning(status));
}

}  // namespace tour
