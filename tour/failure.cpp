// Statuses in words.
#include "failure.h"

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

void require(const std::string& call, QorStatus status) {
  if (status == qorStatusOk) return;
  throw Failure(call.substr(0, call.find('(')) + " returned " + std::to_string(status) + ": " + meaning(status));
}

}  // namespace tour
