# The component "glfw" of the installed package: tavrel::tavrel_sdk_glfw, where GLFW is found.
include("${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk_glfw_dependency.cmake")
if(TARGET glfw)
  include("${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk_glfwTargets.cmake")
  set(tavrel_sdk_glfw_FOUND TRUE)
else()
  set(tavrel_sdk_glfw_FOUND FALSE)
  set(tavrel_sdk_NOT_FOUND_MESSAGE "tavrel_sdk component glfw: GLFW 3.3 not found (libglfw3-dev)")
endif()
