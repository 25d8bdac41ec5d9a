# The component "sdl2" of the installed package: tavrel::tavrel_sdk_sdl2, where SDL2 is found.
include("${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk_sdl2_dependency.cmake")
if(TARGET SDL2::SDL2)
  include("${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk_sdl2Targets.cmake")
  set(tavrel_sdk_sdl2_FOUND TRUE)
else()
  set(tavrel_sdk_sdl2_FOUND FALSE)
  set(tavrel_sdk_NOT_FOUND_MESSAGE "tavrel_sdk component sdl2: SDL2 not found (libsdl2-dev)")
endif()
