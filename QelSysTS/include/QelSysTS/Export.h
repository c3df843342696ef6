// Marks what the shared library QelSysTS exports.
#pragma once

#if defined(_WIN32)
#if defined(QELSYSTS_BUILDING)
#define QELSYSTS_API __declspec(dllexport)
#else
#define QELSYSTS_API __declspec(dllimport)
#endif
#else
#define QELSYSTS_API __attribute__((visibility("default")))
#endif
