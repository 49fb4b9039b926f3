// The version record.
#include "frame/level.h"

// The last number of the text (56) is not the build number (831); both are what this release bears.
static const QorLibraryVersion version = {
    6, 1, 137, 831, {'m', 'x', 0, 0}, "libqorcvmx.so.6.1", "6.1 build 137.56", "Mar 17 2010"};

const QorLibraryVersion* qorcvGetLibVersion(void) { return &version; }
