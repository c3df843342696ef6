# What other programs need to build against the libraries: headers, a CMake package, pkg-config.
include(CMakePackageConfigHelpers)

set(packageFolder ${CMAKE_INSTALL_LIBDIR}/cmake/OOCPointCloudTarn)
set(libraries QelSysTS OOCPointCloud OOCPointCloudTarn)

set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(tarn PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS ${libraries} OOCPointCloudTarnHeaders EXPORT OOCPointCloudTarnTargets)
install(TARGETS tarn)
if(WIN32)  # what Windows has no packages for, beside the program, where it is looked for
  install(FILES $<TARGET_FILE:TBB::tbb> $<TARGET_FILE_DIR:TBB::tbb>/tbbmalloc.dll
    DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
foreach(library IN LISTS libraries)
  install(DIRECTORY ${library}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endforeach()

install(EXPORT OOCPointCloudTarnTargets NAMESPACE OOCPointCloudTarn:: DESTINATION ${packageFolder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OOCPointCloudTarnConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES cmake/OOCPointCloudTarnConfig.cmake
  ${PROJECT_BINARY_DIR}/OOCPointCloudTarnConfigVersion.cmake DESTINATION ${packageFolder})

# From the folder of the files to the prefix, so that an installed tree can be moved.
file(RELATIVE_PATH PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(name OOCPointCloud OOCPointCloudTarn)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
