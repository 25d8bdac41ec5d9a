// The C functions of tavrel_vulkan.h: each forwards to VulkanHost.

#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/tavrel_vulkan.h>
#include <tavrel_sdk/vulkan_host.hpp>

#include <exception>
#include <memory>
#include <new>
#include <string>

namespace {

tavrel_status refuse(const char* function, tavrel_status status, const std::string& why) {
  tavrel::Platform::current().log(std::string(function) + ": " + why);
  return status;
}

// The Vulkan host behind a handle, or a status to return.
std::shared_ptr<tavrel::VulkanHost> vulkanHost(const char* function, tavrel_host* handle, tavrel_status* status) {
  if (handle == nullptr) {
    *status = refuse(function, TAVREL_ERROR_NULL_ARGUMENT, "host is NULL");
    return nullptr;
  }
  auto host = std::dynamic_pointer_cast<tavrel::VulkanHost>(tavrel::hostFromC(handle));
  if (!host) *status = refuse(function, TAVREL_ERROR_INVALID_ARGUMENT, "host is not a Vulkan host");
  return host;
}

// Runs body() with every exception turned into a logged TAVREL_ERROR_FAILED.
template <class Body>
tavrel_status guarded(const char* function, Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return refuse(function, TAVREL_ERROR_FAILED, "out of memory");
  } catch (const std::exception& e) {
    return refuse(function, TAVREL_ERROR_FAILED, e.what());
  }
}

}  // namespace

tavrel_status tavrel_vulkan_host_new(const tavrel_vulkan_info* in, tavrel_host** out) {
  if (in == nullptr || out == nullptr) return refuse(__func__, TAVREL_ERROR_NULL_ARGUMENT, "info or out is NULL");
  if (in->instance == VK_NULL_HANDLE || in->physical_device == VK_NULL_HANDLE || in->device == VK_NULL_HANDLE ||
      in->queue == VK_NULL_HANDLE || in->get_instance_proc_addr == nullptr) {
    return refuse(__func__, TAVREL_ERROR_NULL_ARGUMENT,
                  "instance, physical_device, device, queue and get_instance_proc_addr are needed");
  }
  if (in->framebuffer_width == 0 || in->framebuffer_height == 0 || !(in->window_width >= 0.0) ||
      !(in->window_height >= 0.0)) {
    return refuse(__func__, TAVREL_ERROR_OUT_OF_RANGE, "a framebuffer size of 0 or a negative window size");
  }
  if (in->render_pass == VK_NULL_HANDLE && in->color_format == VK_FORMAT_UNDEFINED) {
    return refuse(__func__, TAVREL_ERROR_INVALID_ARGUMENT, "neither a render pass nor a colour format");
  }
  return guarded(__func__, [&] {
    tavrel::VulkanHostInfo info;
    info.instance = in->instance;
    info.physicalDevice = in->physical_device;
    info.device = in->device;
    info.queueFamily = in->queue_family;
    info.queue = in->queue;
    info.renderPass = in->render_pass;
    info.subpass = in->subpass;
    info.colorFormat = in->color_format;
    info.depthFormat = in->depth_format;
    info.stencilFormat = in->stencil_format;
    if (in->samples != 0) info.samples = in->samples;
    if (in->frames_in_flight != 0) info.framesInFlight = in->frames_in_flight;
    info.pipelineCache = in->pipeline_cache;
    info.allocator = in->allocator;
    info.getInstanceProcAddr = in->get_instance_proc_addr;
    info.extent = {in->framebuffer_width, in->framebuffer_height};
    info.windowSize = tavrel::CGSizeMake(in->window_width, in->window_height);
    *out = tavrel::hostForC(std::make_shared<tavrel::VulkanHost>(info));
    return *out != nullptr ? TAVREL_OK : refuse(__func__, TAVREL_ERROR_FAILED, "out of memory");
  });
}

tavrel_status tavrel_vulkan_record_upload(tavrel_host* handle, VkCommandBuffer commands, uint32_t frameIndex) {
  tavrel_status status = TAVREL_OK;
  const auto host = vulkanHost(__func__, handle, &status);
  if (!host) return status;
  if (commands == VK_NULL_HANDLE) return refuse(__func__, TAVREL_ERROR_NULL_ARGUMENT, "commands is VK_NULL_HANDLE");
  if (frameIndex >= host->framesInFlight()) {
    return refuse(__func__, TAVREL_ERROR_OUT_OF_RANGE, "frame_index is not below frames_in_flight");
  }
  return guarded(__func__, [&] {
    host->recordUpload(commands, frameIndex);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_vulkan_record_draw(tavrel_host* handle, VkCommandBuffer commands) {
  tavrel_status status = TAVREL_OK;
  const auto host = vulkanHost(__func__, handle, &status);
  if (!host) return status;
  if (commands == VK_NULL_HANDLE) return refuse(__func__, TAVREL_ERROR_NULL_ARGUMENT, "commands is VK_NULL_HANDLE");
  host->recordDraw(commands);
  return TAVREL_OK;
}

tavrel_status tavrel_vulkan_resize(tavrel_host* handle, double windowWidth, double windowHeight,
                                   uint32_t framebufferWidth, uint32_t framebufferHeight) {
  tavrel_status status = TAVREL_OK;
  const auto host = vulkanHost(__func__, handle, &status);
  if (!host) return status;
  if (!(windowWidth >= 0.0) || !(windowHeight >= 0.0)) {
    return refuse(__func__, TAVREL_ERROR_OUT_OF_RANGE, "a negative window size");
  }
  host->resize(tavrel::CGSizeMake(windowWidth, windowHeight), {framebufferWidth, framebufferHeight});
  return TAVREL_OK;
}

tavrel_status tavrel_vulkan_shutdown(tavrel_host* handle) {
  tavrel_status status = TAVREL_OK;
  const auto host = vulkanHost(__func__, handle, &status);
  if (!host) return status;
  host->shutdown();
  return TAVREL_OK;
}

tavrel_status tavrel_vulkan_bytes_uploaded(tavrel_host* handle, uint64_t* bytes) {
  tavrel_status status = TAVREL_OK;
  const auto host = vulkanHost(__func__, handle, &status);
  if (!host) return status;
  if (bytes == nullptr) return refuse(__func__, TAVREL_ERROR_NULL_ARGUMENT, "bytes is NULL");
  *bytes = host->bytesUploaded();
  return TAVREL_OK;
}
