/* tavrel_vulkan.h compiles as C (C99): a game in C fills the info and calls the functions. */
#include <tavrel_sdk/tavrel_vulkan.h>

tavrel_status tavrel_vulkan_header_in_c(const tavrel_vulkan_info *info, tavrel_host **out);
tavrel_status tavrel_vulkan_header_in_c(const tavrel_vulkan_info *info, tavrel_host **out) {
  return tavrel_vulkan_host_new(info, out);
}
