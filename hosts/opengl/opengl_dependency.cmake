# The OpenGL headers (types and enumerants only) as the target tavrel::opengl_headers: the
# compositor links no GL library and takes its functions from the game's loader. Read by the
# build and by the installed package, so that both look for them the same way.
if(NOT TARGET tavrel::opengl_headers)
  find_path(TAVREL_GLCOREARB_INCLUDE_DIR GL/glcorearb.h)
  if(TAVREL_GLCOREARB_INCLUDE_DIR)
    add_library(tavrel::opengl_headers INTERFACE IMPORTED)
    set_target_properties(tavrel::opengl_headers PROPERTIES
      INTERFACE_INCLUDE_DIRECTORIES ${TAVREL_GLCOREARB_INCLUDE_DIR})
  endif()
endif()
