#include <tavrel_sdk/vulkan_host.hpp>

#include "vulkan_support.hpp"

#include "overlay_frag.h"
#include "overlay_vert.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

static_assert(std::endian::native == std::endian::little,
              "Cairo's native ARGB32 is the texture's B8G8R8A8 only on a little-endian machine");

namespace tavrel {
namespace {

using vulkan::check;
using vulkan::zeroed;

bool isSrgb(VkFormat format) {
  return format == VK_FORMAT_B8G8R8A8_SRGB || format == VK_FORMAT_R8G8B8A8_SRGB ||
         format == VK_FORMAT_A8B8G8R8_SRGB_PACK32;
}

std::uint64_t area(const PixelRect& rect) {
  return static_cast<std::uint64_t>(rect.width) * static_cast<std::uint64_t>(rect.height);
}

PixelRect unite(const PixelRect& a, const PixelRect& b) {
  const int left = std::min(a.x, b.x);
  const int top = std::min(a.y, b.y);
  return {left, top, std::max(a.x + a.width, b.x + b.width) - left, std::max(a.y + a.height, b.y + b.height) - top};
}

}  // namespace

VulkanError::VulkanError(const char* call, VkResult result)
    : std::runtime_error(std::string(call) + " failed: VkResult " + std::to_string(static_cast<int>(result))),
      result_(result) {}

struct VulkanHost::Device {
  struct Texture : vulkan::Image {
    bool filled = false;  // holds a whole frame; its layout is then SHADER_READ_ONLY_OPTIMAL
  };
  // Host memory the copies of one frame in flight read from.
  using Staging = vulkan::Buffer;

  explicit Device(const VulkanHostInfo& info);
  ~Device() { release(); }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  void makePipeline();
  void makeTexture(int width, int height);
  void destroyTexture();
  void reserve(Staging& staging, VkDeviceSize size);
  void waitIdle() const { vk.vkQueueWaitIdle(info.queue); }
  void release();

  VulkanHostInfo info;
  vulkan::Functions vk;
  VkSampler sampler = VK_NULL_HANDLE;
  VkDescriptorSetLayout setLayout = VK_NULL_HANDLE;
  VkDescriptorPool descriptorPool = VK_NULL_HANDLE;
  VkDescriptorSet descriptorSet = VK_NULL_HANDLE;
  VkPipelineLayout pipelineLayout = VK_NULL_HANDLE;
  VkPipeline pipeline = VK_NULL_HANDLE;
  Texture texture;
  std::vector<Staging> staging;  // one per frame in flight
  // What the toolkit drew that the texture does not hold yet: the last frame's damage, or the
  // bounds of several frames' when frames were rendered without an upload in between.
  std::vector<PixelRect> pending;
};

VulkanHost::Device::Device(const VulkanHostInfo& given)
    : info(given),
      vk(vulkan::loadFunctions(info.getInstanceProcAddr, info.instance, info.physicalDevice, info.device,
                               info.allocator)) {
  staging.resize(info.framesInFlight);
  try {
    makePipeline();
  } catch (...) {
    release();  // a throwing constructor runs no destructor of its own
    throw;
  }
}

void VulkanHost::Device::release() {
  destroyTexture();
  for (Staging& each : staging) vulkan::destroy(vk, each);
  staging.clear();
  const VkDevice device = info.device;
  const VkAllocationCallbacks* allocator = info.allocator;
  if (pipeline) vk.vkDestroyPipeline(device, pipeline, allocator);
  if (pipelineLayout) vk.vkDestroyPipelineLayout(device, pipelineLayout, allocator);
  if (descriptorPool) vk.vkDestroyDescriptorPool(device, descriptorPool, allocator);  // frees the set
  if (setLayout) vk.vkDestroyDescriptorSetLayout(device, setLayout, allocator);
  if (sampler) vk.vkDestroySampler(device, sampler, allocator);
  pipeline = VK_NULL_HANDLE;
  pipelineLayout = VK_NULL_HANDLE;
  descriptorPool = VK_NULL_HANDLE;
  setLayout = VK_NULL_HANDLE;
  sampler = VK_NULL_HANDLE;
}

void VulkanHost::Device::makePipeline() {
  const VkDevice device = info.device;
  VkSamplerCreateInfo samplerInfo = zeroed<VkSamplerCreateInfo>(VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO);
  samplerInfo.magFilter = samplerInfo.minFilter = VK_FILTER_NEAREST;
  samplerInfo.addressModeU = samplerInfo.addressModeV = samplerInfo.addressModeW = VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
  samplerInfo.maxLod = 0.0f;
  check("vkCreateSampler", vk.vkCreateSampler(device, &samplerInfo, info.allocator, &sampler));

  VkDescriptorSetLayoutBinding binding{};
  binding.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
  binding.descriptorCount = 1;
  binding.stageFlags = VK_SHADER_STAGE_FRAGMENT_BIT;
  binding.pImmutableSamplers = &sampler;
  VkDescriptorSetLayoutCreateInfo setLayoutInfo = zeroed<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
  setLayoutInfo.bindingCount = 1;
  setLayoutInfo.pBindings = &binding;
  check("vkCreateDescriptorSetLayout", vk.vkCreateDescriptorSetLayout(device, &setLayoutInfo, info.allocator, &setLayout));

  const VkDescriptorPoolSize poolSize{VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1};
  VkDescriptorPoolCreateInfo poolInfo = zeroed<VkDescriptorPoolCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO);
  poolInfo.maxSets = 1;
  poolInfo.poolSizeCount = 1;
  poolInfo.pPoolSizes = &poolSize;
  check("vkCreateDescriptorPool", vk.vkCreateDescriptorPool(device, &poolInfo, info.allocator, &descriptorPool));
  VkDescriptorSetAllocateInfo setInfo = zeroed<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
  setInfo.descriptorPool = descriptorPool;
  setInfo.descriptorSetCount = 1;
  setInfo.pSetLayouts = &setLayout;
  check("vkAllocateDescriptorSets", vk.vkAllocateDescriptorSets(device, &setInfo, &descriptorSet));

  VkPipelineLayoutCreateInfo layoutInfo = zeroed<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
  layoutInfo.setLayoutCount = 1;
  layoutInfo.pSetLayouts = &setLayout;
  check("vkCreatePipelineLayout", vk.vkCreatePipelineLayout(device, &layoutInfo, info.allocator, &pipelineLayout));

  VkShaderModule modules[2] = {VK_NULL_HANDLE, VK_NULL_HANDLE};
  const std::pair<const std::uint32_t*, std::size_t> code[2] = {{kOverlay_vert, sizeof kOverlay_vert},
                                                                {kOverlay_frag, sizeof kOverlay_frag}};
  VkPipelineShaderStageCreateInfo stages[2] = {
      zeroed<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO),
      zeroed<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO)};
  VkResult result = VK_SUCCESS;
  for (int i = 0; i < 2 && result == VK_SUCCESS; ++i) {
    VkShaderModuleCreateInfo moduleInfo = zeroed<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
    moduleInfo.codeSize = code[i].second;
    moduleInfo.pCode = code[i].first;
    result = vk.vkCreateShaderModule(device, &moduleInfo, info.allocator, &modules[i]);
    stages[i].stage = i == 0 ? VK_SHADER_STAGE_VERTEX_BIT : VK_SHADER_STAGE_FRAGMENT_BIT;
    stages[i].module = modules[i];
    stages[i].pName = "main";
  }

  VkPipelineVertexInputStateCreateInfo vertexInput = zeroed<VkPipelineVertexInputStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO);
  VkPipelineInputAssemblyStateCreateInfo assembly = zeroed<VkPipelineInputAssemblyStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO);
  assembly.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;
  VkPipelineViewportStateCreateInfo viewport = zeroed<VkPipelineViewportStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO);
  viewport.viewportCount = 1;
  viewport.scissorCount = 1;
  VkPipelineRasterizationStateCreateInfo raster = zeroed<VkPipelineRasterizationStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO);
  raster.polygonMode = VK_POLYGON_MODE_FILL;
  raster.cullMode = VK_CULL_MODE_NONE;
  raster.frontFace = VK_FRONT_FACE_COUNTER_CLOCKWISE;
  raster.lineWidth = 1.0f;
  VkPipelineMultisampleStateCreateInfo multisample = zeroed<VkPipelineMultisampleStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO);
  multisample.rasterizationSamples = info.samples;
  VkPipelineDepthStencilStateCreateInfo depth = zeroed<VkPipelineDepthStencilStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_DEPTH_STENCIL_STATE_CREATE_INFO);
  // Cairo's pixels are premultiplied: the colour is added as it is, over what shows through.
  VkPipelineColorBlendAttachmentState blend{};
  blend.blendEnable = VK_TRUE;
  blend.srcColorBlendFactor = blend.srcAlphaBlendFactor = VK_BLEND_FACTOR_ONE;
  blend.dstColorBlendFactor = blend.dstAlphaBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
  blend.colorBlendOp = blend.alphaBlendOp = VK_BLEND_OP_ADD;
  blend.colorWriteMask = VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT | VK_COLOR_COMPONENT_B_BIT |
                         VK_COLOR_COMPONENT_A_BIT;
  VkPipelineColorBlendStateCreateInfo blendState = zeroed<VkPipelineColorBlendStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO);
  blendState.attachmentCount = 1;
  blendState.pAttachments = &blend;
  const VkDynamicState dynamic[] = {VK_DYNAMIC_STATE_VIEWPORT, VK_DYNAMIC_STATE_SCISSOR};
  VkPipelineDynamicStateCreateInfo dynamicState = zeroed<VkPipelineDynamicStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_DYNAMIC_STATE_CREATE_INFO);
  dynamicState.dynamicStateCount = 2;
  dynamicState.pDynamicStates = dynamic;
  VkPipelineRenderingCreateInfo rendering = zeroed<VkPipelineRenderingCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_RENDERING_CREATE_INFO);
  rendering.colorAttachmentCount = 1;
  rendering.pColorAttachmentFormats = &info.colorFormat;
  rendering.depthAttachmentFormat = info.depthFormat;
  rendering.stencilAttachmentFormat = info.stencilFormat;

  VkGraphicsPipelineCreateInfo pipelineInfo = zeroed<VkGraphicsPipelineCreateInfo>(VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO);
  pipelineInfo.pNext = info.renderPass == VK_NULL_HANDLE ? &rendering : nullptr;
  pipelineInfo.stageCount = 2;
  pipelineInfo.pStages = stages;
  pipelineInfo.pVertexInputState = &vertexInput;
  pipelineInfo.pInputAssemblyState = &assembly;
  pipelineInfo.pViewportState = &viewport;
  pipelineInfo.pRasterizationState = &raster;
  pipelineInfo.pMultisampleState = &multisample;
  pipelineInfo.pDepthStencilState = &depth;
  pipelineInfo.pColorBlendState = &blendState;
  pipelineInfo.pDynamicState = &dynamicState;
  pipelineInfo.layout = pipelineLayout;
  pipelineInfo.renderPass = info.renderPass;
  pipelineInfo.subpass = info.subpass;
  if (result == VK_SUCCESS) {
    result = vk.vkCreateGraphicsPipelines(device, info.pipelineCache, 1, &pipelineInfo, info.allocator, &pipeline);
  }
  for (VkShaderModule module : modules) {
    if (module) vk.vkDestroyShaderModule(device, module, info.allocator);
  }
  check("vkCreateGraphicsPipelines", result);
}

void VulkanHost::Device::makeTexture(int width, int height) {
  destroyTexture();
  const VkDevice device = info.device;
  const VkFormat format = isSrgb(info.colorFormat) ? VK_FORMAT_B8G8R8A8_SRGB : VK_FORMAT_B8G8R8A8_UNORM;
  static_cast<vulkan::Image&>(texture) =
      vulkan::makeImage(vk, {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)}, format,
                        VK_IMAGE_USAGE_TRANSFER_DST_BIT | VK_IMAGE_USAGE_SAMPLED_BIT);

  // The set is in no pending command buffer: a new texture comes only with a new size, after
  // resize() waited for the queue, or with the first frame.
  VkDescriptorImageInfo image{VK_NULL_HANDLE, texture.view, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL};
  VkWriteDescriptorSet write = zeroed<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
  write.dstSet = descriptorSet;
  write.descriptorCount = 1;
  write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
  write.pImageInfo = &image;
  vk.vkUpdateDescriptorSets(device, 1, &write, 0, nullptr);
}

void VulkanHost::Device::destroyTexture() {
  vulkan::destroy(vk, texture);
  texture = Texture{};
}

void VulkanHost::Device::reserve(Staging& buffer, VkDeviceSize size) {
  if (size <= buffer.size) return;
  // Its last copies are done: the game waited for this frame in flight's fence.
  vulkan::destroy(vk, buffer);
  buffer = vulkan::makeMappedBuffer(vk, std::max<VkDeviceSize>(size, 64 * 1024), VK_BUFFER_USAGE_TRANSFER_SRC_BIT);
}

VulkanHost::VulkanHost(const VulkanHostInfo& info) : framesInFlight_(info.framesInFlight) {
  if (info.instance == VK_NULL_HANDLE || info.physicalDevice == VK_NULL_HANDLE || info.device == VK_NULL_HANDLE ||
      info.queue == VK_NULL_HANDLE || info.getInstanceProcAddr == nullptr) {
    throw std::invalid_argument("VulkanHostInfo: instance, physical device, device, queue and getInstanceProcAddr are needed");
  }
  if (info.renderPass == VK_NULL_HANDLE && info.colorFormat == VK_FORMAT_UNDEFINED) {
    throw std::invalid_argument("VulkanHostInfo: a render pass, or the colour format for dynamic rendering");
  }
  if (info.framesInFlight == 0 || info.extent.width == 0 || info.extent.height == 0 ||
      info.windowSize.width < 0.0 || info.windowSize.height < 0.0) {
    throw std::invalid_argument("VulkanHostInfo: framesInFlight and the extent must be above 0");
  }
  setSize(info.windowSize, info.extent);
  device_ = std::make_unique<Device>(info);
}

void VulkanHost::setSize(CGSize windowSize, VkExtent2D extent) {
  if (windowSize.width <= 0.0 || windowSize.height <= 0.0) {
    windowSize = CGSizeMake(extent.width, extent.height);
  }
  screenSize_ = windowSize;
  scale_ = extent.width / windowSize.width;
}

VulkanHost::~VulkanHost() { shutdown(); }

void VulkanHost::presentFrame(const UIFrame& frame) {
  if (!device_) return;
  Device& d = *device_;
  if (frame.damage.empty()) return;
  if (d.pending.empty()) {
    d.pending = frame.damage;
    return;
  }
  // Two frames' rectangles may overlap, and a copy's regions must not.
  PixelRect bounds = d.pending.front();
  for (const PixelRect& rect : d.pending) bounds = unite(bounds, rect);
  for (const PixelRect& rect : frame.damage) bounds = unite(bounds, rect);
  d.pending = {bounds};
}

void VulkanHost::recordUpload(VkCommandBuffer commands, std::uint32_t frameIndex) {
  if (!device_) return;
  Device& d = *device_;
  if (frameIndex >= d.info.framesInFlight) throw std::invalid_argument("VulkanHost: frame index out of range");
  const UIFrame& frame = renderFrame();
  if (frame.width <= 0 || frame.height <= 0) return;
  if (d.texture.extent.width != static_cast<std::uint32_t>(frame.width) ||
      d.texture.extent.height != static_cast<std::uint32_t>(frame.height)) {
    d.makeTexture(frame.width, frame.height);
  }
  const bool whole = !d.texture.filled;
  if (whole) d.pending = {{0, 0, frame.width, frame.height}};
  if (d.pending.empty()) return;

  std::uint64_t bytes = 0;
  for (const PixelRect& rect : d.pending) bytes += area(rect) * 4;
  Device::Staging& staging = d.staging[frameIndex];
  d.reserve(staging, bytes);
  std::vector<VkBufferImageCopy> regions;
  regions.reserve(d.pending.size());
  VkDeviceSize offset = 0;
  for (const PixelRect& rect : d.pending) {
    const auto rowBytes = static_cast<std::size_t>(rect.width) * 4;
    const auto* source = reinterpret_cast<const unsigned char*>(frame.pixels) +
                         static_cast<std::size_t>(rect.y) * static_cast<std::size_t>(frame.stride) + rect.x * 4;
    for (int row = 0; row < rect.height; ++row) {
      std::memcpy(staging.mapped + offset + row * rowBytes, source + static_cast<std::size_t>(row) * frame.stride,
                  rowBytes);
    }
    VkBufferImageCopy region{};
    region.bufferOffset = offset;  // rows packed: the row length is the rectangle's width
    region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    region.imageOffset = {rect.x, rect.y, 0};
    region.imageExtent = {static_cast<std::uint32_t>(rect.width), static_cast<std::uint32_t>(rect.height), 1};
    regions.push_back(region);
    offset += rowBytes * rect.height;
  }

  // Before: the copy waits for earlier frames' draws to have read the texture. After: this
  // frame's draw waits for the copy.
  VkImageMemoryBarrier barrier = zeroed<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
  barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
  barrier.image = d.texture.image;
  barrier.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  barrier.srcAccessMask = 0;
  barrier.dstAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
  barrier.oldLayout = whole ? VK_IMAGE_LAYOUT_UNDEFINED : VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL;
  barrier.newLayout = VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL;
  d.vk.vkCmdPipelineBarrier(commands, whole ? VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT : VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT,
                            VK_PIPELINE_STAGE_TRANSFER_BIT, 0, 0, nullptr, 0, nullptr, 1, &barrier);
  d.vk.vkCmdCopyBufferToImage(commands, staging.buffer, d.texture.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
                              static_cast<std::uint32_t>(regions.size()), regions.data());
  barrier.srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
  barrier.dstAccessMask = VK_ACCESS_SHADER_READ_BIT;
  barrier.oldLayout = VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL;
  barrier.newLayout = VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL;
  d.vk.vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, 0, 0,
                            nullptr, 0, nullptr, 1, &barrier);
  d.texture.filled = true;
  d.pending.clear();
  bytesUploaded_ += bytes;
}

void VulkanHost::recordDraw(VkCommandBuffer commands) const {
  if (!device_ || !device_->texture.filled) return;
  const Device& d = *device_;
  const VkExtent2D extent = d.texture.extent;
  const VkViewport viewport{0.0f, 0.0f, static_cast<float>(extent.width), static_cast<float>(extent.height), 0.0f, 1.0f};
  const VkRect2D scissor{{0, 0}, extent};
  d.vk.vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, d.pipeline);
  d.vk.vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, d.pipelineLayout, 0, 1, &d.descriptorSet, 0,
                               nullptr);
  d.vk.vkCmdSetViewport(commands, 0, 1, &viewport);
  d.vk.vkCmdSetScissor(commands, 0, 1, &scissor);
  d.vk.vkCmdDraw(commands, 3, 1, 0, 0);
}

void VulkanHost::resize(CGSize windowSize, VkExtent2D extent) {
  if (extent.width == 0 || extent.height == 0) return;  // minimised: nothing is drawn meanwhile
  const CGSize screen = screenSize_;
  const double scale = scale_;
  setSize(windowSize, extent);
  if (screen == screenSize_ && scale == scale_) return;
  screenChanged();
  if (!device_) return;
  // The texture changes size with the frame; earlier frames may still read the old one.
  device_->waitIdle();
  device_->destroyTexture();
}

void VulkanHost::shutdown() {
  if (!device_) return;
  device_->waitIdle();
  device_.reset();
}

}  // namespace tavrel
