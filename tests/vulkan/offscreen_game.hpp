#pragma once

// A Vulkan game without a window, for the Vulkan host's test and benchmark.

#include <tavrel_sdk/vulkan_host.hpp>

#include "vulkan_support.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tavrel::testing {

class OffscreenGame {
 public:
  struct Options {
    VkExtent2D extent{320, 240};
    std::uint32_t framesInFlight = 2;
    bool dynamicRendering = false;  // else a render pass of its own
    // Under the validation layer, its warnings and errors in validation.log there; empty: none.
    std::string validationFolder;
  };
  static constexpr std::uint32_t kScene = 0xff1e3c6e;  // 0xAARRGGBB

  // Null, with the reason in `whyNot`, where there is no Vulkan device or validation layer.
  static std::unique_ptr<OffscreenGame> create(const Options& options, std::string* whyNot);
  ~OffscreenGame() { release(); }
  // Idempotent; the validation layer's log holds its last words (objects left alive) once done.
  void release();

  VulkanHostInfo hostInfo() const;
  VkExtent2D extent() const { return extent_; }
  // One frame in the next frame in flight, which it returns: `outside(commands, frameIndex)`
  // recorded before the pass, the scene and `inside(commands)` in it, then the read-back copy.
  std::uint32_t frame(const std::function<void(VkCommandBuffer, std::uint32_t)>& outside,
                      const std::function<void(VkCommandBuffer)>& inside);
  // The pixels of the last frame of `frameIndex` once done: B8G8R8A8, rows packed.
  const std::uint32_t* readBack(std::uint32_t frameIndex);
  void resize(VkExtent2D extent);
  void waitIdle() const { vkDeviceWaitIdle(device_); }

 private:
  struct Frame {
    VkCommandBuffer commands = VK_NULL_HANDLE;
    VkFence fence = VK_NULL_HANDLE;
    vulkan::Image target;
    VkFramebuffer framebuffer = VK_NULL_HANDLE;
    vulkan::Buffer readBack;
  };
  OffscreenGame() = default;
  void destroyTargets();

  VkExtent2D extent_{};
  VkInstance instance_ = VK_NULL_HANDLE;
  VkPhysicalDevice physicalDevice_ = VK_NULL_HANDLE;
  VkDevice device_ = VK_NULL_HANDLE;
  VkQueue queue_ = VK_NULL_HANDLE;
  vulkan::Functions vk_;
  VkRenderPass renderPass_ = VK_NULL_HANDLE;
  VkCommandPool commandPool_ = VK_NULL_HANDLE;
  std::vector<Frame> frames_;
  std::uint32_t next_ = 0;
};

}  // namespace tavrel::testing
