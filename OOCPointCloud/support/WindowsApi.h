// The Windows API without the macros that would rename our functions. Include it last.
#pragma once

#if defined(_WIN32)

#if !defined(WIN32_LEAN_AND_MEAN)
#define WIN32_LEAN_AND_MEAN
#endif
#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#include <windows.h>
#undef CreateFile
#undef GetFreeSpace
#undef MoveFile
#undef ReplaceFile
#undef far
#undef near

#endif
