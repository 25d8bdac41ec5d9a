include(CMakePackageConfigHelpers)

install(TARGETS tavrel_sdk EXPORT tavrel_sdkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tavrel_sdk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(TAVREL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tavrel_sdk)
install(EXPORT tavrel_sdkTargets NAMESPACE tavrel:: DESTINATION ${TAVREL_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/tavrel_sdkConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tavrel_sdkConfig.cmake INSTALL_DESTINATION ${TAVREL_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tavrel_sdkConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tavrel_sdkConfig.cmake ${PROJECT_BINARY_DIR}/tavrel_sdkConfigVersion.cmake
  DESTINATION ${TAVREL_CMAKE_DIR})

configure_file(${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk.pc.in ${PROJECT_BINARY_DIR}/tavrel_sdk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavrel_sdk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# A game in C: the same library, without the C++ standard flag a C compiler refuses.
configure_file(${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk_c.pc.in ${PROJECT_BINARY_DIR}/tavrel_sdk_c.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavrel_sdk_c.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
