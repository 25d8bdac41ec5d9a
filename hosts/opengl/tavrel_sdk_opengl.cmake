# The component "opengl" of the installed package: tavrel::tavrel_sdk_opengl. It needs no GL
# library or header at the game's build: the game's own loader hands it every function.
include("${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk_openglTargets.cmake")
set(tavrel_sdk_opengl_FOUND TRUE)
