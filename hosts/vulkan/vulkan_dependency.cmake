# The Vulkan headers as the target Vulkan::Headers. Read by the build and by the installed
# package: the host loads every function through the game's vkGetInstanceProcAddr, so neither
# it nor its users link the loader.
if(NOT TARGET Vulkan::Headers)
  find_package(Vulkan QUIET)
endif()
