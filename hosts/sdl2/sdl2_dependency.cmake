# SDL2 as the target SDL2::SDL2: from its CMake package where there is one, else from pkg-config.
# Read by the build and by the installed package, so that both find SDL2 the same way.
find_package(SDL2 CONFIG QUIET)
if(NOT TARGET SDL2::SDL2)
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(TAVREL_SDL2 QUIET IMPORTED_TARGET sdl2)
  endif()
  if(TARGET PkgConfig::TAVREL_SDL2)
    add_library(SDL2::SDL2 INTERFACE IMPORTED)
    target_link_libraries(SDL2::SDL2 INTERFACE PkgConfig::TAVREL_SDL2)
  endif()
endif()
