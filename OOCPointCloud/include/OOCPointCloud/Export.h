// Marks what the shared library OOCPointCloud exports.
#pragma once

#if defined(_WIN32)
#if defined(OOCPOINTCLOUD_BUILDING)
#define OOCPOINTCLOUD_API __declspec(dllexport)
#else
#define OOCPOINTCLOUD_API __declspec(dllimport)
#endif
#else
#define OOCPOINTCLOUD_API __attribute__((visibility("default")))
#endif
