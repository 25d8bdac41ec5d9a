# A host library: hosts/NAME built as tavrel_sdk_NAME (alias tavrel::tavrel_sdk_NAME), with its
# headers, and installed as the package's component NAME: its targets, tavrel_sdk_NAME.cmake,
# and DEPENDENCY_FILE (how the component finds its own library) where it has one.
#   tavrel_host_library(NAME SOURCES ... HEADERS ... [PUBLIC ...] [PRIVATE ...] [DEPENDENCY_FILE file])
function(tavrel_host_library name)
  cmake_parse_arguments(ARG "" "DEPENDENCY_FILE" "SOURCES;HEADERS;PUBLIC;PRIVATE" ${ARGN})
  set(target tavrel_sdk_${name})
  add_library(${target} SHARED ${ARG_SOURCES})
  add_library(tavrel::${target} ALIAS ${target})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${target} PUBLIC tavrel_sdk ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  if(NOT TAVREL_INSTALL)
    return()
  endif()
  set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tavrel_sdk)
  install(TARGETS ${target} EXPORT ${target}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(FILES ${ARG_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavrel_sdk)
  install(EXPORT ${target}Targets NAMESPACE tavrel:: DESTINATION ${cmake_dir})
  install(FILES ${target}.cmake DESTINATION ${cmake_dir})
  if(ARG_DEPENDENCY_FILE)
    install(FILES ${ARG_DEPENDENCY_FILE} DESTINATION ${cmake_dir} RENAME ${target}_dependency.cmake)
  endif()
endfunction()
