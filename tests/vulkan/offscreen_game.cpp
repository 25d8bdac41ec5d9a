#include "vulkan/offscreen_game.hpp"

#include <cstdlib>
#include <fstream>
#include <utility>

namespace tavrel::testing {
namespace {

constexpr VkFormat kFormat = VK_FORMAT_B8G8R8A8_UNORM;

using vulkan::check;
using vulkan::zeroed;

}  // namespace

std::unique_ptr<OffscreenGame> OffscreenGame::create(const Options& options, std::string* whyNot) {
  std::unique_ptr<OffscreenGame> game(new OffscreenGame());
  const VkApplicationInfo application{VK_STRUCTURE_TYPE_APPLICATION_INFO, nullptr, nullptr, 0, nullptr, 0, VK_API_VERSION_1_3};
  // The layer's own switches, read as the instance is made: what it reports goes to a file.
  const std::uint32_t validation = options.validationFolder.empty() ? 0 : 1;
  if (validation) {
    std::ofstream(options.validationFolder + "/vk_layer_settings.txt")
        << "khronos_validation.report_flags = error,warn,perf\n"
           "khronos_validation.debug_action = VK_DBG_LAYER_ACTION_LOG_MSG\n"
           "khronos_validation.log_filename = "
        << options.validationFolder << "/validation.log\n";
    setenv("VK_LAYER_SETTINGS_PATH", options.validationFolder.c_str(), 1);
  }
  // Missing barriers show as hazards only with synchronization validation.
  const VkValidationFeatureEnableEXT enabled[] = {VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT};
  const VkValidationFeaturesEXT features{VK_STRUCTURE_TYPE_VALIDATION_FEATURES_EXT, nullptr, 1, enabled, 0, nullptr};
  const char* layer = "VK_LAYER_KHRONOS_validation";
  const char* extension = VK_EXT_VALIDATION_FEATURES_EXTENSION_NAME;
  const VkInstanceCreateInfo instanceInfo{VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO,
                                          validation ? &features : nullptr,
                                          0,
                                          &application,
                                          validation,
                                          &layer,
                                          validation,
                                          &extension};
  const VkResult made = vkCreateInstance(&instanceInfo, nullptr, &game->instance_);
  if (made != VK_SUCCESS) {
    *whyNot = made == VK_ERROR_LAYER_NOT_PRESENT ? "no Vulkan validation layer (vulkan-validationlayers)"
                                                 : "no Vulkan instance (no loader or driver: libvulkan1, mesa-vulkan-drivers)";
    return nullptr;
  }
  // Queue family 0 draws on every driver there is; lavapipe has no other.
  std::uint32_t count = 0;
  vkEnumeratePhysicalDevices(game->instance_, &count, nullptr);
  std::vector<VkPhysicalDevice> devices(count);
  vkEnumeratePhysicalDevices(game->instance_, &count, devices.data());
  for (VkPhysicalDevice device : devices) {
    VkPhysicalDeviceProperties properties{};
    vkGetPhysicalDeviceProperties(device, &properties);
    if (properties.apiVersion >= VK_API_VERSION_1_3) game->physicalDevice_ = device;
  }
  if (game->physicalDevice_ == VK_NULL_HANDLE) {
    *whyNot = "no Vulkan 1.3 device (lavapipe: mesa-vulkan-drivers)";
    return nullptr;
  }
  const float priority = 1.0f;
  const VkDeviceQueueCreateInfo queueInfo{VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO, nullptr, 0, 0, 1, &priority};
  VkPhysicalDeviceVulkan13Features features13 = zeroed<VkPhysicalDeviceVulkan13Features>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_3_FEATURES);
  features13.dynamicRendering = options.dynamicRendering ? VK_TRUE : VK_FALSE;
  const VkDeviceCreateInfo deviceInfo{
      VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO, &features13, 0, 1, &queueInfo, 0, nullptr, 0, nullptr, nullptr};
  check("vkCreateDevice", vkCreateDevice(game->physicalDevice_, &deviceInfo, nullptr, &game->device_));
  vkGetDeviceQueue(game->device_, 0, 0, &game->queue_);
  game->vk_ = vulkan::loadFunctions(vkGetInstanceProcAddr, game->instance_, game->physicalDevice_, game->device_, nullptr);

  if (!options.dynamicRendering) {
    const VkAttachmentDescription attachment{0, kFormat, VK_SAMPLE_COUNT_1_BIT, VK_ATTACHMENT_LOAD_OP_CLEAR,
                                             VK_ATTACHMENT_STORE_OP_STORE, VK_ATTACHMENT_LOAD_OP_DONT_CARE,
                                             VK_ATTACHMENT_STORE_OP_DONT_CARE, VK_IMAGE_LAYOUT_UNDEFINED,
                                             VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL};
    const VkAttachmentReference reference{0, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
    const VkSubpassDescription subpass{0, VK_PIPELINE_BIND_POINT_GRAPHICS, 0, nullptr, 1, &reference, nullptr, nullptr, 0, nullptr};
    // In: after the last read-back of this image. Out: before this frame's read-back.
    const VkSubpassDependency dependencies[] = {
        {VK_SUBPASS_EXTERNAL, 0, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, 0,
         VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT, 0},
        {0, VK_SUBPASS_EXTERNAL, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, VK_PIPELINE_STAGE_TRANSFER_BIT,
         VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT, VK_ACCESS_TRANSFER_READ_BIT, 0}};
    const VkRenderPassCreateInfo passInfo{
        VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO, nullptr, 0, 1, &attachment, 1, &subpass, 2, dependencies};
    check("vkCreateRenderPass", vkCreateRenderPass(game->device_, &passInfo, nullptr, &game->renderPass_));
  }

  const VkCommandPoolCreateInfo poolInfo{VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO, nullptr,
                                        VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT, 0};
  check("vkCreateCommandPool", vkCreateCommandPool(game->device_, &poolInfo, nullptr, &game->commandPool_));
  std::vector<VkCommandBuffer> commands(options.framesInFlight);
  const VkCommandBufferAllocateInfo allocation{VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO, nullptr, game->commandPool_,
                                              VK_COMMAND_BUFFER_LEVEL_PRIMARY, options.framesInFlight};
  check("vkAllocateCommandBuffers", vkAllocateCommandBuffers(game->device_, &allocation, commands.data()));
  // Signalled: a frame waits for its previous submission, the first one too.
  const VkFenceCreateInfo fenceInfo{VK_STRUCTURE_TYPE_FENCE_CREATE_INFO, nullptr, VK_FENCE_CREATE_SIGNALED_BIT};
  for (VkCommandBuffer each : commands) {
    Frame& frame = game->frames_.emplace_back();
    frame.commands = each;
    check("vkCreateFence", vkCreateFence(game->device_, &fenceInfo, nullptr, &frame.fence));
  }
  game->resize(options.extent);
  return game;
}

void OffscreenGame::release() {
  if (device_ != VK_NULL_HANDLE) {
    waitIdle();
    destroyTargets();
    for (Frame& frame : frames_) vkDestroyFence(device_, frame.fence, nullptr);
    vkDestroyCommandPool(device_, commandPool_, nullptr);
    vkDestroyRenderPass(device_, renderPass_, nullptr);
    vkDestroyDevice(std::exchange(device_, VK_NULL_HANDLE), nullptr);
  }
  vkDestroyInstance(std::exchange(instance_, VK_NULL_HANDLE), nullptr);
}

VulkanHostInfo OffscreenGame::hostInfo() const {
  VulkanHostInfo info;
  info.instance = instance_;
  info.physicalDevice = physicalDevice_;
  info.device = device_;
  info.queue = queue_;
  info.renderPass = renderPass_;
  info.colorFormat = kFormat;
  info.framesInFlight = static_cast<std::uint32_t>(frames_.size());
  info.getInstanceProcAddr = vkGetInstanceProcAddr;
  info.extent = extent_;
  return info;
}

void OffscreenGame::resize(VkExtent2D extent) {
  waitIdle();
  destroyTargets();
  extent_ = extent;
  for (Frame& frame : frames_) {
    frame.target = vulkan::makeImage(vk_, extent_, kFormat, VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT);
    frame.readBack = vulkan::makeMappedBuffer(vk_, VkDeviceSize{extent_.width} * extent_.height * 4, VK_BUFFER_USAGE_TRANSFER_DST_BIT);
    if (renderPass_ == VK_NULL_HANDLE) continue;
    const VkFramebufferCreateInfo framebufferInfo{VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO, nullptr, 0, renderPass_, 1,
                                                  &frame.target.view, extent_.width, extent_.height, 1};
    check("vkCreateFramebuffer", vkCreateFramebuffer(device_, &framebufferInfo, nullptr, &frame.framebuffer));
  }
}

void OffscreenGame::destroyTargets() {
  for (Frame& frame : frames_) {
    vkDestroyFramebuffer(device_, std::exchange(frame.framebuffer, VK_NULL_HANDLE), nullptr);
    vulkan::destroy(vk_, frame.target);
    vulkan::destroy(vk_, frame.readBack);
  }
}

std::uint32_t OffscreenGame::frame(const std::function<void(VkCommandBuffer, std::uint32_t)>& outside,
                                   const std::function<void(VkCommandBuffer)>& inside) {
  const std::uint32_t index = std::exchange(next_, (next_ + 1) % frames_.size());
  Frame& frame = frames_[index];
  check("vkWaitForFences", vkWaitForFences(device_, 1, &frame.fence, VK_TRUE, UINT64_MAX));
  check("vkResetFences", vkResetFences(device_, 1, &frame.fence));
  VkCommandBuffer commands = frame.commands;
  check("vkResetCommandBuffer", vkResetCommandBuffer(commands, 0));
  const VkCommandBufferBeginInfo begin{VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO, nullptr,
                                       VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT, nullptr};
  check("vkBeginCommandBuffer", vkBeginCommandBuffer(commands, &begin));
  outside(commands, index);

  VkClearValue clear{};
  for (int c = 0; c < 3; ++c) clear.color.float32[c] = ((kScene >> (16 - 8 * c)) & 0xff) / 255.0f;
  clear.color.float32[3] = 1.0f;
  // Dynamic rendering's layouts are the game's to change: for the pass, then for the copy.
  const auto transition = [&](VkImageLayout from, VkImageLayout to, VkPipelineStageFlags before,
                              VkPipelineStageFlags after, VkAccessFlags written, VkAccessFlags read) {
    const VkImageMemoryBarrier barrier{VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER, nullptr, written, read, from, to,
                                       VK_QUEUE_FAMILY_IGNORED, VK_QUEUE_FAMILY_IGNORED, frame.target.image,
                                       {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1}};
    vkCmdPipelineBarrier(commands, before, after, 0, 0, nullptr, 0, nullptr, 1, &barrier);
  };
  if (renderPass_ != VK_NULL_HANDLE) {
    const VkRenderPassBeginInfo pass{
        VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO, nullptr, renderPass_, frame.framebuffer, {{0, 0}, extent_}, 1, &clear};
    vkCmdBeginRenderPass(commands, &pass, VK_SUBPASS_CONTENTS_INLINE);
    inside(commands);
    vkCmdEndRenderPass(commands);
  } else {
    transition(VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL, VK_PIPELINE_STAGE_TRANSFER_BIT,
               VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, 0, VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT);
    const VkRenderingAttachmentInfo attachment{VK_STRUCTURE_TYPE_RENDERING_ATTACHMENT_INFO, nullptr, frame.target.view,
                                               VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL, VK_RESOLVE_MODE_NONE,
                                               VK_NULL_HANDLE, VK_IMAGE_LAYOUT_UNDEFINED, VK_ATTACHMENT_LOAD_OP_CLEAR,
                                               VK_ATTACHMENT_STORE_OP_STORE, clear};
    const VkRenderingInfo rendering{
        VK_STRUCTURE_TYPE_RENDERING_INFO, nullptr, 0, {{0, 0}, extent_}, 1, 0, 1, &attachment, nullptr, nullptr};
    vkCmdBeginRendering(commands, &rendering);
    inside(commands);
    vkCmdEndRendering(commands);
    transition(VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL,
               VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, VK_PIPELINE_STAGE_TRANSFER_BIT,
               VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT, VK_ACCESS_TRANSFER_READ_BIT);
  }
  const VkBufferImageCopy copy{0, 0, 0, {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1}, {0, 0, 0}, {extent_.width, extent_.height, 1}};
  vkCmdCopyImageToBuffer(commands, frame.target.image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, frame.readBack.buffer, 1, &copy);
  // The host reads the buffer once the fence says the copy is done.
  const VkMemoryBarrier toHost{VK_STRUCTURE_TYPE_MEMORY_BARRIER, nullptr, VK_ACCESS_TRANSFER_WRITE_BIT, VK_ACCESS_HOST_READ_BIT};
  vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0, 1, &toHost, 0, nullptr,
                       0, nullptr);
  check("vkEndCommandBuffer", vkEndCommandBuffer(commands));
  const VkSubmitInfo submit{VK_STRUCTURE_TYPE_SUBMIT_INFO, nullptr, 0, nullptr, nullptr, 1, &commands, 0, nullptr};
  check("vkQueueSubmit", vkQueueSubmit(queue_, 1, &submit, frame.fence));
  return index;
}

const std::uint32_t* OffscreenGame::readBack(std::uint32_t frameIndex) {
  Frame& frame = frames_.at(frameIndex);
  check("vkWaitForFences", vkWaitForFences(device_, 1, &frame.fence, VK_TRUE, UINT64_MAX));
  return reinterpret_cast<const std::uint32_t*>(frame.readBack.mapped);
}

}  // namespace tavrel::testing
