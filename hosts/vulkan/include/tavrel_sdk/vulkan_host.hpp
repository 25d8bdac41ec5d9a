#pragma once

// The library's views over a Vulkan game's frames.
//
// The game hands over its device and queue once, in a VulkanHostInfo. Each frame it records two
// things into its own command buffer: recordUpload() outside any render pass (what changed in
// the toolkit's frame goes to the host's texture through a staging buffer of that frame in
// flight), and recordDraw() inside its render pass, after its own drawing (one triangle over the
// render area, blended premultiplied: one, one minus source alpha). Input reaches the toolkit
// through UIHost's fingers and keys, or a host's input adapter (hosts/glfw).
// Link tavrel::tavrel_sdk_vulkan (find_package(tavrel_sdk CONFIG COMPONENTS vulkan)).
//
// Every Vulkan function is loaded through the game's vkGetInstanceProcAddr: a game that loads
// Vulkan its own way (volk, its own table) works, and the library does not link the loader.
//
// Thread safety: main thread only. The command buffers the host records into must be submitted,
// in the order recorded, to `queue`.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/host.hpp>

#include <vulkan/vulkan.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>

namespace tavrel {

struct VulkanHostInfo {
  VkInstance instance = VK_NULL_HANDLE;
  VkPhysicalDevice physicalDevice = VK_NULL_HANDLE;
  VkDevice device = VK_NULL_HANDLE;
  std::uint32_t queueFamily = 0;
  VkQueue queue = VK_NULL_HANDLE;  // waited on by resize() and shutdown()
  // The render pass and subpass recordDraw() is called in; VK_NULL_HANDLE for dynamic
  // rendering, which then needs the attachments' formats below.
  VkRenderPass renderPass = VK_NULL_HANDLE;
  std::uint32_t subpass = 0;
  // The colour attachment's format. Needed with dynamic rendering; with a render pass it is
  // only read to see whether the target is sRGB (the texture is then sampled as sRGB, so
  // colours come out as drawn; translucent edges blend in linear light).
  VkFormat colorFormat = VK_FORMAT_UNDEFINED;
  VkFormat depthFormat = VK_FORMAT_UNDEFINED;    // dynamic rendering only
  VkFormat stencilFormat = VK_FORMAT_UNDEFINED;  // dynamic rendering only
  VkSampleCountFlagBits samples = VK_SAMPLE_COUNT_1_BIT;
  std::uint32_t framesInFlight = 2;  // frame indices run from 0 to framesInFlight - 1
  VkPipelineCache pipelineCache = VK_NULL_HANDLE;
  const VkAllocationCallbacks* allocator = nullptr;
  PFN_vkGetInstanceProcAddr getInstanceProcAddr = nullptr;
  // The render area in pixels (the swapchain's extent), and the screen in points: the window's
  // size, the one input coordinates come in (glfwGetWindowSize). Frames are drawn at the
  // extent's width over the window's, one frame pixel a framebuffer pixel on HiDPI screens
  // too. A window size of zero takes the extent (scale 1).
  VkExtent2D extent{};
  CGSize windowSize{};
};

// A Vulkan call that failed, with its result.
class TAVREL_EXPORT VulkanError : public std::runtime_error {
 public:
  VulkanError(const char* call, VkResult result);
  VkResult result() const { return result_; }

 private:
  VkResult result_;
};

class TAVREL_EXPORT VulkanHost final : public UIHost {
 public:
  // Makes the texture, sampler, descriptor set, pipeline and their memory. Install it with
  // UIHost::install() before any view is made. Throws std::invalid_argument for an incomplete
  // info and VulkanError when Vulkan refuses.
  explicit VulkanHost(const VulkanHostInfo& info);
  // shutdown(), if the game has not called it.
  ~VulkanHost() override;
  VulkanHost(const VulkanHost&) = delete;
  VulkanHost& operator=(const VulkanHost&) = delete;

  CGSize screenSize() const override { return screenSize_; }
  double screenScale() const override { return scale_; }

  // Outside any render pass, once a frame, after the game has waited for the fence of
  // `frameIndex`'s previous submission: renders what changed in the toolkit and records the
  // copy of those pixels into the texture, with its barriers. Records nothing when nothing
  // changed. Throws VulkanError when a staging buffer cannot grow (the change is kept for the
  // next frame).
  void recordUpload(VkCommandBuffer commands, std::uint32_t frameIndex);
  // Inside the game's render pass (or dynamic rendering) for this frame, after recordUpload():
  // binds the host's pipeline and descriptor set, sets viewport and scissor to the toolkit's
  // frame, and draws it over the game. A game that draws more afterwards sets its own again.
  void recordDraw(VkCommandBuffer commands) const;

  // The swapchain was made again at another extent, or the window changed size (zero: the
  // extent in points): the toolkit is laid out again for it, the host waits for the queue to be
  // idle, and the next frame makes the texture at the new size and uploads the whole toolkit
  // frame. Nothing when neither changed, so a game
  // may call it whenever it makes its swapchain again. A zero extent (a minimised window) is
  // ignored.
  void resize(CGSize windowSize, VkExtent2D extent);
  // Waits for the queue to be idle and destroys everything the host made in Vulkan; call before
  // destroying the device. The host stays usable as the toolkit's screen; recordUpload() and
  // recordDraw() then record nothing. Idempotent.
  void shutdown();

  std::uint32_t framesInFlight() const { return framesInFlight_; }
  // Bytes copied into staging buffers since the host was made.
  std::uint64_t bytesUploaded() const { return bytesUploaded_; }

 protected:
  void presentFrame(const UIFrame& frame) override;

 private:
  struct Device;
  void setSize(CGSize windowSize, VkExtent2D extent);

  std::unique_ptr<Device> device_;
  CGSize screenSize_;
  double scale_ = 1.0;
  std::uint32_t framesInFlight_;
  std::uint64_t bytesUploaded_ = 0;
};

}  // namespace tavrel
