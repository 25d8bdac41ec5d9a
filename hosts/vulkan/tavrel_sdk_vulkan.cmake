# The component "vulkan" of the installed package: tavrel::tavrel_sdk_vulkan, where the Vulkan
# headers are found.
include("${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk_vulkan_dependency.cmake")
if(TARGET Vulkan::Headers)
  include("${CMAKE_CURRENT_LIST_DIR}/tavrel_sdk_vulkanTargets.cmake")
  set(tavrel_sdk_vulkan_FOUND TRUE)
else()
  set(tavrel_sdk_vulkan_FOUND FALSE)
  set(tavrel_sdk_NOT_FOUND_MESSAGE "tavrel_sdk component vulkan: Vulkan headers not found (libvulkan-dev)")
endif()
