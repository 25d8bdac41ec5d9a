#include "vulkan/offscreen_game.hpp"

#include <cstring>
#include <utility>

namespace tavrel::testing {
namespace {

constexpr VkFormat kFormat = VK_FORMAT_B8G8R8A8_UNORM;
constexpr VkClearColorValue kSky{{30 / 255.0f, 60 / 255.0f, 110 / 255.0f, 1.0f}};

// The scene's quads, in fractions of the target so that they follow a resize; later ones in front.
struct Quad {
  float x, y, width, height;
  std::uint32_t argb;
};
constexpr Quad kQuads[] = {{0.0f, 0.75f, 1.0f, 0.25f, 0xff28783c},
                           {0.2f, 0.5f, 0.15f, 0.25f, 0xffe68c1e},
                           {0.65f, 0.1f, 0.2f, 0.2f, 0xfff0e050}};

VkRect2D quadRect(const Quad& quad, VkExtent2D extent) {
  const auto scaled = [](float fraction, std::uint32_t size) { return static_cast<std::int32_t>(fraction * size); };
  const std::int32_t left = scaled(quad.x, extent.width);
  const std::int32_t top = scaled(quad.y, extent.height);
  return {{left, top},
          {static_cast<std::uint32_t>(scaled(quad.x + quad.width, extent.width) - left),
           static_cast<std::uint32_t>(scaled(quad.y + quad.height, extent.height) - top)}};
}

using vulkan::check;
using vulkan::zeroed;

}  // namespace

VkBool32 VKAPI_PTR OffscreenGame::onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT, VkDebugUtilsMessageTypeFlagsEXT,
                                            const VkDebugUtilsMessengerCallbackDataEXT* data, void* user) {
  auto* game = static_cast<OffscreenGame*>(user);
  const std::lock_guard<std::mutex> lock(game->messagesMutex_);
  game->messages_.emplace_back(data->pMessage != nullptr ? data->pMessage : "(no message)");
  return VK_FALSE;
}

struct OffscreenGame::Frame {
  VkCommandBuffer commands = VK_NULL_HANDLE;
  VkFence fence = VK_NULL_HANDLE;
  bool submitted = false;
  vulkan::Image target;
  VkFramebuffer framebuffer = VK_NULL_HANDLE;
  vulkan::Buffer readBack;
};

std::unique_ptr<OffscreenGame> OffscreenGame::create(const Options& options, std::string* whyNot) {
  std::unique_ptr<OffscreenGame> game(new OffscreenGame());
  game->options_ = options;
  game->extent_ = options.extent;
  const char* layer = "VK_LAYER_KHRONOS_validation";
  if (options.validation) {
    std::uint32_t count = 0;
    vkEnumerateInstanceLayerProperties(&count, nullptr);
    std::vector<VkLayerProperties> layers(count);
    vkEnumerateInstanceLayerProperties(&count, layers.data());
    bool found = false;
    for (const auto& each : layers) found = found || std::strcmp(each.layerName, layer) == 0;
    if (!found) {
      *whyNot = "no Vulkan validation layer (vulkan-validationlayers)";
      return nullptr;
    }
  }
  VkApplicationInfo application = zeroed<VkApplicationInfo>(VK_STRUCTURE_TYPE_APPLICATION_INFO);
  application.apiVersion = VK_API_VERSION_1_3;
  VkDebugUtilsMessengerCreateInfoEXT messenger = zeroed<VkDebugUtilsMessengerCreateInfoEXT>(VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT);
  messenger.messageSeverity = VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
  messenger.messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_GENERAL_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT |
                          VK_DEBUG_UTILS_MESSAGE_TYPE_PERFORMANCE_BIT_EXT;
  messenger.pfnUserCallback = onMessage;
  messenger.pUserData = game.get();
  // Missing barriers show as hazards only with synchronization validation.
  const VkValidationFeatureEnableEXT enabled[] = {VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT};
  VkValidationFeaturesEXT features = zeroed<VkValidationFeaturesEXT>(VK_STRUCTURE_TYPE_VALIDATION_FEATURES_EXT, &messenger);
  features.enabledValidationFeatureCount = 1;
  features.pEnabledValidationFeatures = enabled;
  const char* extensions[] = {VK_EXT_DEBUG_UTILS_EXTENSION_NAME, VK_EXT_VALIDATION_FEATURES_EXTENSION_NAME};
  VkInstanceCreateInfo instanceInfo = zeroed<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
  instanceInfo.pNext = options.validation ? &features : nullptr;
  instanceInfo.pApplicationInfo = &application;
  instanceInfo.enabledLayerCount = options.validation ? 1 : 0;
  instanceInfo.ppEnabledLayerNames = &layer;
  instanceInfo.enabledExtensionCount = options.validation ? 2 : 0;
  instanceInfo.ppEnabledExtensionNames = extensions;
  if (vkCreateInstance(&instanceInfo, nullptr, &game->instance_) != VK_SUCCESS) {
    *whyNot = "no Vulkan instance (no loader or driver: libvulkan1, mesa-vulkan-drivers)";
    return nullptr;
  }
  if (options.validation) {
    auto create = reinterpret_cast<PFN_vkCreateDebugUtilsMessengerEXT>(
        vkGetInstanceProcAddr(game->instance_, "vkCreateDebugUtilsMessengerEXT"));
    check("vkCreateDebugUtilsMessengerEXT", create(game->instance_, &messenger, nullptr, &game->messenger_));
  }

  std::uint32_t count = 0;
  vkEnumeratePhysicalDevices(game->instance_, &count, nullptr);
  std::vector<VkPhysicalDevice> devices(count);
  vkEnumeratePhysicalDevices(game->instance_, &count, devices.data());
  for (VkPhysicalDevice device : devices) {
    VkPhysicalDeviceProperties properties{};
    vkGetPhysicalDeviceProperties(device, &properties);
    if (properties.apiVersion < VK_API_VERSION_1_3) continue;
    std::uint32_t families = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(device, &families, nullptr);
    std::vector<VkQueueFamilyProperties> family(families);
    vkGetPhysicalDeviceQueueFamilyProperties(device, &families, family.data());
    for (std::uint32_t i = 0; i < families && game->physicalDevice_ == VK_NULL_HANDLE; ++i) {
      if ((family[i].queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0) {
        game->physicalDevice_ = device;
        game->queueFamily_ = i;
      }
    }
  }
  if (game->physicalDevice_ == VK_NULL_HANDLE) {
    *whyNot = "no Vulkan 1.3 device with a graphics queue (lavapipe: mesa-vulkan-drivers)";
    return nullptr;
  }

  const float priority = 1.0f;
  VkDeviceQueueCreateInfo queueInfo = zeroed<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO);
  queueInfo.queueFamilyIndex = game->queueFamily_;
  queueInfo.queueCount = 1;
  queueInfo.pQueuePriorities = &priority;
  VkPhysicalDeviceVulkan13Features features13 = zeroed<VkPhysicalDeviceVulkan13Features>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_3_FEATURES);
  features13.dynamicRendering = options.dynamicRendering ? VK_TRUE : VK_FALSE;
  VkDeviceCreateInfo deviceInfo = zeroed<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO, &features13);
  deviceInfo.queueCreateInfoCount = 1;
  deviceInfo.pQueueCreateInfos = &queueInfo;
  check("vkCreateDevice", vkCreateDevice(game->physicalDevice_, &deviceInfo, nullptr, &game->device_));
  vkGetDeviceQueue(game->device_, game->queueFamily_, 0, &game->queue_);
  game->vk_ = vulkan::loadFunctions(vkGetInstanceProcAddr, game->instance_, game->physicalDevice_, game->device_, nullptr);

  if (!options.dynamicRendering) {
    VkAttachmentDescription attachment{};
    attachment.format = kFormat;
    attachment.samples = VK_SAMPLE_COUNT_1_BIT;
    attachment.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
    attachment.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
    attachment.stencilLoadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE;
    attachment.stencilStoreOp = VK_ATTACHMENT_STORE_OP_DONT_CARE;
    attachment.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    attachment.finalLayout = VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
    const VkAttachmentReference reference{0, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
    VkSubpassDescription subpass{};
    subpass.pipelineBindPoint = VK_PIPELINE_BIND_POINT_GRAPHICS;
    subpass.colorAttachmentCount = 1;
    subpass.pColorAttachments = &reference;
    // In: after the last read-back of this image. Out: before this frame's read-back.
    const VkSubpassDependency dependencies[] = {
        {VK_SUBPASS_EXTERNAL, 0, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, 0,
         VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT, 0},
        {0, VK_SUBPASS_EXTERNAL, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, VK_PIPELINE_STAGE_TRANSFER_BIT,
         VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT, VK_ACCESS_TRANSFER_READ_BIT, 0}};
    VkRenderPassCreateInfo passInfo = zeroed<VkRenderPassCreateInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO);
    passInfo.attachmentCount = 1;
    passInfo.pAttachments = &attachment;
    passInfo.subpassCount = 1;
    passInfo.pSubpasses = &subpass;
    passInfo.dependencyCount = 2;
    passInfo.pDependencies = dependencies;
    check("vkCreateRenderPass", vkCreateRenderPass(game->device_, &passInfo, nullptr, &game->renderPass_));
  }

  VkCommandPoolCreateInfo poolInfo = zeroed<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
  poolInfo.flags = VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT;
  poolInfo.queueFamilyIndex = game->queueFamily_;
  check("vkCreateCommandPool", vkCreateCommandPool(game->device_, &poolInfo, nullptr, &game->commandPool_));
  game->frames_.resize(options.framesInFlight);
  for (Frame& frame : game->frames_) {
    VkCommandBufferAllocateInfo allocation = zeroed<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
    allocation.commandPool = game->commandPool_;
    allocation.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
    allocation.commandBufferCount = 1;
    check("vkAllocateCommandBuffers", vkAllocateCommandBuffers(game->device_, &allocation, &frame.commands));
    VkFenceCreateInfo fenceInfo = zeroed<VkFenceCreateInfo>(VK_STRUCTURE_TYPE_FENCE_CREATE_INFO);
    check("vkCreateFence", vkCreateFence(game->device_, &fenceInfo, nullptr, &frame.fence));
  }
  game->makeTargets();
  return game;
}

OffscreenGame::~OffscreenGame() { release(); }

void OffscreenGame::release() {
  if (device_ != VK_NULL_HANDLE) {
    waitIdle();
    destroyTargets();
    for (Frame& frame : frames_) vkDestroyFence(device_, frame.fence, nullptr);
    if (commandPool_) vkDestroyCommandPool(device_, commandPool_, nullptr);
    if (renderPass_) vkDestroyRenderPass(device_, renderPass_, nullptr);
    vkDestroyDevice(device_, nullptr);
  }
  if (messenger_ != VK_NULL_HANDLE) {
    auto destroy = reinterpret_cast<PFN_vkDestroyDebugUtilsMessengerEXT>(
        vkGetInstanceProcAddr(instance_, "vkDestroyDebugUtilsMessengerEXT"));
    destroy(instance_, messenger_, nullptr);
  }
  if (instance_ != VK_NULL_HANDLE) vkDestroyInstance(instance_, nullptr);
  device_ = VK_NULL_HANDLE;
  messenger_ = VK_NULL_HANDLE;
  instance_ = VK_NULL_HANDLE;
}

VulkanHostInfo OffscreenGame::hostInfo() const {
  VulkanHostInfo info;
  info.instance = instance_;
  info.physicalDevice = physicalDevice_;
  info.device = device_;
  info.queueFamily = queueFamily_;
  info.queue = queue_;
  info.renderPass = renderPass_;
  info.colorFormat = kFormat;
  info.framesInFlight = options_.framesInFlight;
  info.getInstanceProcAddr = vkGetInstanceProcAddr;
  info.extent = extent_;
  return info;
}

void OffscreenGame::makeTargets() {
  for (Frame& frame : frames_) {
    frame.target = vulkan::makeImage(vk_, extent_, kFormat, VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT);
    if (renderPass_ != VK_NULL_HANDLE) {
      VkFramebufferCreateInfo framebufferInfo = zeroed<VkFramebufferCreateInfo>(VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO);
      framebufferInfo.renderPass = renderPass_;
      framebufferInfo.attachmentCount = 1;
      framebufferInfo.pAttachments = &frame.target.view;
      framebufferInfo.width = extent_.width;
      framebufferInfo.height = extent_.height;
      framebufferInfo.layers = 1;
      check("vkCreateFramebuffer", vkCreateFramebuffer(device_, &framebufferInfo, nullptr, &frame.framebuffer));
    }
    frame.readBack = vulkan::makeMappedBuffer(vk_, VkDeviceSize{extent_.width} * extent_.height * 4, VK_BUFFER_USAGE_TRANSFER_DST_BIT);
  }
}

void OffscreenGame::destroyTargets() {
  for (Frame& frame : frames_) {
    if (frame.framebuffer) vkDestroyFramebuffer(device_, frame.framebuffer, nullptr);
    vulkan::destroy(vk_, frame.target);
    vulkan::destroy(vk_, frame.readBack);
    frame.framebuffer = VK_NULL_HANDLE;
  }
}

std::uint32_t OffscreenGame::frame(const Outside& outside, const Inside& inside) {
  const std::uint32_t index = next_;
  next_ = (next_ + 1) % options_.framesInFlight;
  Frame& frame = frames_[index];
  if (frame.submitted) {
    check("vkWaitForFences", vkWaitForFences(device_, 1, &frame.fence, VK_TRUE, UINT64_MAX));
    check("vkResetFences", vkResetFences(device_, 1, &frame.fence));
  }
  VkCommandBuffer commands = frame.commands;
  check("vkResetCommandBuffer", vkResetCommandBuffer(commands, 0));
  VkCommandBufferBeginInfo begin = zeroed<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
  begin.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
  check("vkBeginCommandBuffer", vkBeginCommandBuffer(commands, &begin));
  outside(commands, index);

  const VkRect2D area{{0, 0}, extent_};
  VkClearValue clear{};
  clear.color = kSky;
  VkImageMemoryBarrier barrier = zeroed<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
  barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
  barrier.image = frame.target.image;
  barrier.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  if (renderPass_ != VK_NULL_HANDLE) {
    VkRenderPassBeginInfo pass = zeroed<VkRenderPassBeginInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO);
    pass.renderPass = renderPass_;
    pass.framebuffer = frame.framebuffer;
    pass.renderArea = area;
    pass.clearValueCount = 1;
    pass.pClearValues = &clear;
    vkCmdBeginRenderPass(commands, &pass, VK_SUBPASS_CONTENTS_INLINE);
  } else {
    barrier.dstAccessMask = VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT;
    barrier.oldLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    barrier.newLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
    vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, 0, 0,
                         nullptr, 0, nullptr, 1, &barrier);
    VkRenderingAttachmentInfo attachment = zeroed<VkRenderingAttachmentInfo>(VK_STRUCTURE_TYPE_RENDERING_ATTACHMENT_INFO);
    attachment.imageView = frame.target.view;
    attachment.imageLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
    attachment.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
    attachment.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
    attachment.clearValue = clear;
    VkRenderingInfo rendering = zeroed<VkRenderingInfo>(VK_STRUCTURE_TYPE_RENDERING_INFO);
    rendering.renderArea = area;
    rendering.layerCount = 1;
    rendering.colorAttachmentCount = 1;
    rendering.pColorAttachments = &attachment;
    vkCmdBeginRendering(commands, &rendering);
  }
  for (const Quad& quad : kQuads) {
    VkClearAttachment attachment{VK_IMAGE_ASPECT_COLOR_BIT, 0, {}};
    for (int c = 0; c < 3; ++c) attachment.clearValue.color.float32[c] = ((quad.argb >> (16 - 8 * c)) & 0xff) / 255.0f;
    attachment.clearValue.color.float32[3] = 1.0f;
    const VkClearRect rect{quadRect(quad, extent_), 0, 1};
    vkCmdClearAttachments(commands, 1, &attachment, 1, &rect);
  }
  inside(commands);
  if (renderPass_ != VK_NULL_HANDLE) {
    vkCmdEndRenderPass(commands);
  } else {
    vkCmdEndRendering(commands);
    barrier.srcAccessMask = VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT;
    barrier.dstAccessMask = VK_ACCESS_TRANSFER_READ_BIT;
    barrier.oldLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
    barrier.newLayout = VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
    vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, VK_PIPELINE_STAGE_TRANSFER_BIT, 0, 0,
                         nullptr, 0, nullptr, 1, &barrier);
  }
  VkBufferImageCopy copy{};
  copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  copy.imageExtent = {extent_.width, extent_.height, 1};
  vkCmdCopyImageToBuffer(commands, frame.target.image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, frame.readBack.buffer, 1, &copy);
  // The host reads the buffer once the fence says the copy is done.
  VkBufferMemoryBarrier toHost = zeroed<VkBufferMemoryBarrier>(VK_STRUCTURE_TYPE_BUFFER_MEMORY_BARRIER);
  toHost.srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
  toHost.dstAccessMask = VK_ACCESS_HOST_READ_BIT;
  toHost.srcQueueFamilyIndex = toHost.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
  toHost.buffer = frame.readBack.buffer;
  toHost.size = VK_WHOLE_SIZE;
  vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0, 0, nullptr, 1, &toHost,
                       0, nullptr);
  check("vkEndCommandBuffer", vkEndCommandBuffer(commands));

  VkSubmitInfo submit = zeroed<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
  submit.commandBufferCount = 1;
  submit.pCommandBuffers = &commands;
  check("vkQueueSubmit", vkQueueSubmit(queue_, 1, &submit, frame.fence));
  frame.submitted = true;
  return index;
}

const std::uint32_t* OffscreenGame::readBack(std::uint32_t frameIndex) {
  Frame& frame = frames_.at(frameIndex);
  if (frame.submitted) check("vkWaitForFences", vkWaitForFences(device_, 1, &frame.fence, VK_TRUE, UINT64_MAX));
  return reinterpret_cast<const std::uint32_t*>(frame.readBack.mapped);
}

std::uint32_t OffscreenGame::scenePixel(int x, int y) const {
  std::uint32_t pixel = 0xff000000 | static_cast<std::uint32_t>(kSky.float32[0] * 255 + 0.5f) << 16 |
                        static_cast<std::uint32_t>(kSky.float32[1] * 255 + 0.5f) << 8 |
                        static_cast<std::uint32_t>(kSky.float32[2] * 255 + 0.5f);
  for (const Quad& quad : kQuads) {
    const VkRect2D rect = quadRect(quad, extent_);
    if (x >= rect.offset.x && y >= rect.offset.y && x < rect.offset.x + static_cast<int>(rect.extent.width) &&
        y < rect.offset.y + static_cast<int>(rect.extent.height)) {
      pixel = quad.argb;
    }
  }
  return pixel;
}

void OffscreenGame::resize(VkExtent2D extent) {
  waitIdle();
  destroyTargets();
  extent_ = extent;
  makeTargets();
}

void OffscreenGame::waitIdle() const { vkDeviceWaitIdle(device_); }

std::vector<std::string> OffscreenGame::takeMessages() {
  const std::lock_guard<std::mutex> lock(messagesMutex_);
  return std::exchange(messages_, {});
}

}  // namespace tavrel::testing
