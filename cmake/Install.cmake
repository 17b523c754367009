include(CMakePackageConfigHelpers)

# The include/ tree and the generated headers, under the same paths.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${FEXO_GENERATED_INCLUDE_DIR}/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(TARGETS FeXONotificationService EXPORT FeXONotificationServiceTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(FEXO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/FeXONotificationService)
install(EXPORT FeXONotificationServiceTargets
  NAMESPACE FeXO::
  FILE FeXONotificationServiceTargets.cmake
  DESTINATION ${FEXO_CMAKE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/FeXONotificationServiceConfig.cmake.in
  ${PROJECT_BINARY_DIR}/FeXONotificationServiceConfig.cmake
  INSTALL_DESTINATION ${FEXO_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/FeXONotificationServiceConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/FeXONotificationServiceConfig.cmake
  ${PROJECT_BINARY_DIR}/FeXONotificationServiceConfigVersion.cmake
  DESTINATION ${FEXO_CMAKE_DIR})

# Relative to the file's own place, so that the installed tree can be moved.
file(RELATIVE_PATH FEXO_PC_PREFIX_FROM_PCDIR /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" FEXO_PC_PREFIX_FROM_PCDIR "${FEXO_PC_PREFIX_FROM_PCDIR}")
foreach(pc FeXONotificationService FeXONotificationService-c)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
