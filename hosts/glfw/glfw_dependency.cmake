# GLFW 3 as the target glfw: from its CMake package where there is one, else from pkg-config.
# Read by the build and by the installed package, so that both find GLFW the same way.
find_package(glfw3 3.3 CONFIG QUIET)
if(NOT TARGET glfw)
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(TAVREL_GLFW QUIET IMPORTED_TARGET glfw3>=3.3)
  endif()
  if(TARGET PkgConfig::TAVREL_GLFW)
    add_library(glfw INTERFACE IMPORTED)
    target_link_libraries(glfw INTERFACE PkgConfig::TAVREL_GLFW)
  endif()
endif()
