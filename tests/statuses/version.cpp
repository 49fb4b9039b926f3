// The one function that cannot fail.
#include "statuses/table.h"

namespace statuses {

Rows versionRows() { return {Row("qorcvGetLibVersion")}; }

}  // namespace statuses
