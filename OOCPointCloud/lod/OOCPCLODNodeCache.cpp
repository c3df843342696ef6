// Anchors the interface of the level-of-detail node caches.
#include <OOCPointCloud/OOCPCLODNodeCache.h>

OOCPCLODNodeCache::~OOCPCLODNodeCache() = default;
