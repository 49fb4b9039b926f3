// Everything that a family needs of the frame.
#pragma once

#include "frame/checks.h"
#include "frame/level.h"
#include "frame/loops.h"
#include "frame/rows.h"
#include "frame/services.h"
#include "frame/stripes.h"
