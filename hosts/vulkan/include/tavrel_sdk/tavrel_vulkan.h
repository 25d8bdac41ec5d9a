/*
 * tavrel_vulkan.h: the Vulkan host from C (tavrel::VulkanHost in C++).
 *
 * The game hands over its device and queue once, installs the host before it makes the
 * screen, and records two things a frame into its own command buffer: the upload outside any
 * render pass, the draw inside its render pass after its own drawing:
 *
 *   tavrel_vulkan_info info = {0};
 *   info.instance = instance;  ...  info.get_instance_proc_addr = vkGetInstanceProcAddr;
 *   tavrel_host *host = NULL;
 *   tavrel_vulkan_host_new(&info, &host);
 *   tavrel_install_host(host);
 *   ...                                                  // each frame, its fence waited:
 *   tavrel_vulkan_record_upload(host, commands, frame_index);
 *   vkCmdBeginRenderPass(commands, ...);  draw_scene(commands);
 *   tavrel_vulkan_record_draw(host, commands);
 *   vkCmdEndRenderPass(commands);
 *   ...                                                  // swapchain made again:
 *   tavrel_vulkan_resize(host, window_width, window_height, extent.width, extent.height);
 *   ...                                                  // before vkDestroyDevice:
 *   tavrel_vulkan_shutdown(host);
 *
 * Every Vulkan function is loaded through get_instance_proc_addr; the library links no
 * Vulkan loader. Command buffers it recorded into go, in order, to the queue given.
 * Link tavrel::tavrel_sdk_vulkan (find_package(tavrel_sdk CONFIG COMPONENTS vulkan)).
 * All functions: main thread.
 */
#ifndef TAVREL_SDK_TAVREL_VULKAN_H
#define TAVREL_SDK_TAVREL_VULKAN_H

#include <tavrel_sdk/tavrel.h>

#include <vulkan/vulkan.h>

TAVREL_C_BEGIN

/* What the host needs of the game; fields left zero take their defaults. */
typedef struct tavrel_vulkan_info {
  VkInstance instance;
  VkPhysicalDevice physical_device;
  VkDevice device;
  uint32_t queue_family;
  VkQueue queue; /* waited on by tavrel_vulkan_resize() and tavrel_vulkan_shutdown() */
  /* The render pass and subpass the draw is recorded in; VK_NULL_HANDLE for dynamic
     rendering, which then needs color_format (and depth_format and stencil_format where
     the game renders with those attachments). With a render pass, color_format only says
     whether the target is sRGB. */
  VkRenderPass render_pass;
  uint32_t subpass;
  VkFormat color_format;
  VkFormat depth_format;
  VkFormat stencil_format;
  VkSampleCountFlagBits samples;     /* 0: one sample */
  uint32_t frames_in_flight;         /* 0: 2; frame indices run from 0 to frames_in_flight - 1 */
  VkPipelineCache pipeline_cache;    /* may be VK_NULL_HANDLE */
  const VkAllocationCallbacks *allocator; /* may be NULL */
  PFN_vkGetInstanceProcAddr get_instance_proc_addr;
  /* The swapchain's extent in pixels, and the window's size in points (the size input
     coordinates come in: glfwGetWindowSize); a window size of 0 takes the extent. */
  uint32_t framebuffer_width;
  uint32_t framebuffer_height;
  double window_width;
  double window_height;
} tavrel_vulkan_info;

/* Makes the host's pipeline, sampler and descriptor set on the game's device. *out receives
   one reference. TAVREL_ERROR_NULL_ARGUMENT for a missing handle or get_instance_proc_addr;
   TAVREL_ERROR_OUT_OF_RANGE for a framebuffer size of 0 or a negative window size;
   TAVREL_ERROR_INVALID_ARGUMENT with neither a render pass nor a colour format;
   TAVREL_ERROR_FAILED (logged with the VkResult) when Vulkan refuses. */
TAVREL_C_API tavrel_status tavrel_vulkan_host_new(const tavrel_vulkan_info *info, tavrel_host **out);

/* Outside any render pass, once a frame, after the game waited for the fence of this frame in
   flight: renders what changed and records its copy into the host's texture (nothing when
   nothing changed). TAVREL_ERROR_INVALID_ARGUMENT for a host that is not a Vulkan host;
   TAVREL_ERROR_OUT_OF_RANGE for a frame index of frames_in_flight or more;
   TAVREL_ERROR_FAILED when a staging buffer cannot grow (the change waits for the next
   frame). */
TAVREL_C_API tavrel_status tavrel_vulkan_record_upload(tavrel_host *host, VkCommandBuffer commands,
                                                       uint32_t frame_index);
/* Inside the game's render pass (or dynamic rendering), after its drawing: the library's frame
   over the render area. Binds the host's pipeline and descriptor set and sets viewport and
   scissor: a game that draws more afterwards sets its own again. */
TAVREL_C_API tavrel_status tavrel_vulkan_record_draw(tavrel_host *host, VkCommandBuffer commands);

/* The swapchain was made again, or the window changed size: waits for the queue to be idle
   when the size changed. A framebuffer size of 0 (a minimised window) is ignored. */
TAVREL_C_API tavrel_status tavrel_vulkan_resize(tavrel_host *host, double window_width,
                                                double window_height, uint32_t framebuffer_width,
                                                uint32_t framebuffer_height);

/* Before the device goes: waits for the queue to be idle and destroys all the host made in
   Vulkan; later records do nothing. The host stays installed as the library's screen. */
TAVREL_C_API tavrel_status tavrel_vulkan_shutdown(tavrel_host *host);

/* Bytes copied into staging buffers since the host was made. */
TAVREL_C_API tavrel_status tavrel_vulkan_bytes_uploaded(tavrel_host *host, uint64_t *bytes);

TAVREL_C_END

#endif /* TAVREL_SDK_TAVREL_VULKAN_H */
