#include "vulkan_support.hpp"

namespace tavrel::vulkan {

Functions loadFunctions(PFN_vkGetInstanceProcAddr getInstanceProcAddr, VkInstance instance,
                        VkPhysicalDevice physicalDevice, VkDevice device, const VkAllocationCallbacks* allocator) {
  const auto instanceFunction = [&](const char* name) {
    const PFN_vkVoidFunction function = getInstanceProcAddr(instance, name);
    if (function == nullptr) throw VulkanError(name, VK_ERROR_INITIALIZATION_FAILED);
    return function;
  };
  const auto getDeviceProcAddr = reinterpret_cast<PFN_vkGetDeviceProcAddr>(instanceFunction("vkGetDeviceProcAddr"));
  Functions vk;
#define TAVREL_VULKAN_LOAD(name)                                                                     \
  vk.name = reinterpret_cast<PFN_##name>(getDeviceProcAddr(device, #name));                          \
  if (vk.name == nullptr) throw VulkanError(#name, VK_ERROR_INITIALIZATION_FAILED);
  TAVREL_VULKAN_DEVICE_FUNCTIONS(TAVREL_VULKAN_LOAD)
#undef TAVREL_VULKAN_LOAD
  vk.device = device;
  vk.allocator = allocator;
  reinterpret_cast<PFN_vkGetPhysicalDeviceMemoryProperties>(instanceFunction("vkGetPhysicalDeviceMemoryProperties"))(
      physicalDevice, &vk.memory);
  return vk;
}

void check(const char* call, VkResult result) {
  if (result != VK_SUCCESS) throw VulkanError(call, result);
}

VkDeviceMemory allocate(const Functions& vk, const VkMemoryRequirements& requirements, VkMemoryPropertyFlags wanted) {
  const auto type = [&](VkMemoryPropertyFlags flags) {
    for (std::uint32_t i = 0; i < vk.memory.memoryTypeCount; ++i) {
      if ((requirements.memoryTypeBits & (1u << i)) != 0 && (vk.memory.memoryTypes[i].propertyFlags & flags) == flags) return i;
    }
    return UINT32_MAX;
  };
  std::uint32_t chosen = type(wanted);
  if (chosen == UINT32_MAX && wanted == VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT) chosen = type(0);
  if (chosen == UINT32_MAX) throw VulkanError("vkAllocateMemory", VK_ERROR_FEATURE_NOT_PRESENT);
  VkMemoryAllocateInfo allocation = zeroed<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  allocation.allocationSize = requirements.size;
  allocation.memoryTypeIndex = chosen;
  VkDeviceMemory made = VK_NULL_HANDLE;
  check("vkAllocateMemory", vk.vkAllocateMemory(vk.device, &allocation, vk.allocator, &made));
  return made;
}

Image makeImage(const Functions& vk, VkExtent2D extent, VkFormat format, VkImageUsageFlags usage) {
  Image made;
  try {
    VkImageCreateInfo imageInfo = zeroed<VkImageCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO);
    imageInfo.imageType = VK_IMAGE_TYPE_2D;
    imageInfo.format = format;
    imageInfo.extent = {extent.width, extent.height, 1};
    imageInfo.mipLevels = imageInfo.arrayLayers = 1;
    imageInfo.samples = VK_SAMPLE_COUNT_1_BIT;
    imageInfo.tiling = VK_IMAGE_TILING_OPTIMAL;
    imageInfo.usage = usage;
    imageInfo.sharingMode = VK_SHARING_MODE_EXCLUSIVE;
    imageInfo.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    check("vkCreateImage", vk.vkCreateImage(vk.device, &imageInfo, vk.allocator, &made.image));
    VkMemoryRequirements requirements{};
    vk.vkGetImageMemoryRequirements(vk.device, made.image, &requirements);
    made.memory = allocate(vk, requirements, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT);
    check("vkBindImageMemory", vk.vkBindImageMemory(vk.device, made.image, made.memory, 0));
    VkImageViewCreateInfo viewInfo = zeroed<VkImageViewCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO);
    viewInfo.image = made.image;
    viewInfo.viewType = VK_IMAGE_VIEW_TYPE_2D;
    viewInfo.format = format;
    viewInfo.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    check("vkCreateImageView", vk.vkCreateImageView(vk.device, &viewInfo, vk.allocator, &made.view));
  } catch (...) {
    destroy(vk, made);
    throw;
  }
  made.extent = extent;
  return made;
}

void destroy(const Functions& vk, Image& image) {
  if (image.view) vk.vkDestroyImageView(vk.device, image.view, vk.allocator);
  if (image.image) vk.vkDestroyImage(vk.device, image.image, vk.allocator);
  if (image.memory) vk.vkFreeMemory(vk.device, image.memory, vk.allocator);
  image = Image{};
}

Buffer makeMappedBuffer(const Functions& vk, VkDeviceSize size, VkBufferUsageFlags usage) {
  Buffer made;
  try {
    VkBufferCreateInfo bufferInfo = zeroed<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
    bufferInfo.size = size;
    bufferInfo.usage = usage;
    bufferInfo.sharingMode = VK_SHARING_MODE_EXCLUSIVE;
    check("vkCreateBuffer", vk.vkCreateBuffer(vk.device, &bufferInfo, vk.allocator, &made.buffer));
    VkMemoryRequirements requirements{};
    vk.vkGetBufferMemoryRequirements(vk.device, made.buffer, &requirements);
    // Coherent: the writes need no flush, and a submission makes them visible to a copy.
    made.memory = allocate(vk, requirements, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
    check("vkBindBufferMemory", vk.vkBindBufferMemory(vk.device, made.buffer, made.memory, 0));
    void* mapped = nullptr;
    check("vkMapMemory", vk.vkMapMemory(vk.device, made.memory, 0, VK_WHOLE_SIZE, 0, &mapped));
    made.mapped = static_cast<unsigned char*>(mapped);
  } catch (...) {
    destroy(vk, made);
    throw;
  }
  made.size = size;
  return made;
}

void destroy(const Functions& vk, Buffer& buffer) {
  // Freeing the memory unmaps it.
  if (buffer.buffer) vk.vkDestroyBuffer(vk.device, buffer.buffer, vk.allocator);
  if (buffer.memory) vk.vkFreeMemory(vk.device, buffer.memory, vk.allocator);
  buffer = Buffer{};
}

}  // namespace tavrel::vulkan
