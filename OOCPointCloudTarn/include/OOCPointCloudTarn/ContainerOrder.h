// The two orders in which a point cloud keeps its containers.
#pragma once

#include <OOCPointCloud/OOCPCContainer.h>

#include <cstring>

/// By name, byte by byte as unsigned characters up to the terminating zero.
struct ContainerNameOrder {
  bool operator()(const OOCPCContainer* a, const OOCPCContainer* b) const {
    return std::strcmp(a->GetName(), b->GetName()) < 0;
  }
};

/// By chunk type, and by name where the types are equal.
struct ContainerTypeOrder {
  bool operator()(const OOCPCContainer* a, const OOCPCContainer* b) const {
    if (a->GetChunkType() != b->GetChunkType()) return a->GetChunkType() < b->GetChunkType();
    return std::strcmp(a->GetName(), b->GetName()) < 0;
  }
};
