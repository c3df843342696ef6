// The function by which the framework knows this module.
#include <OOCPointCloudTarn/Export.h>

extern "C" OOCPOINTCLOUDTARN_API void VELMORA_WORKS_QXB2_INTERNAL_OOCPointCloudTarn();

/// Does nothing: its name alone identifies the module.
void VELMORA_WORKS_QXB2_INTERNAL_OOCPointCloudTarn() {}
