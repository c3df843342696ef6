// What tests ask of the operating system, in the way of the one they run on.
#pragma once

#if defined(_WIN32)
#include "tests/support/SystemWindows.h"
#else
#include "tests/support/SystemPosix.h"
#endif
