# Targets: OOCPointCloudTarn::OOCPointCloudTarn, ::OOCPointCloud, ::QelSysTS; and ::Headers for
# programs that load OOCPointCloudTarn while they run.
include(CMakeFindDependencyMacro)
find_dependency(TBB)
include(${CMAKE_CURRENT_LIST_DIR}/OOCPointCloudTarnTargets.cmake)
