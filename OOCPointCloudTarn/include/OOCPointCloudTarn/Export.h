// Marks what the shared library OOCPointCloudTarn exports.
#pragma once

#if defined(_WIN32)
#if defined(OOCPOINTCLOUDTARN_BUILDING)
#define OOCPOINTCLOUDTARN_API  // exports.def names what leaves the library
#else
#define OOCPOINTCLOUDTARN_API __declspec(dllimport)
#endif
#else
#define OOCPOINTCLOUDTARN_API __attribute__((visibility("default")))
#endif
