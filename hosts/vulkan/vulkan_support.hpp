#pragma once

// What the Vulkan host shares with the project's own Vulkan programs (the test game and its
// benchmark): the device functions it calls, loaded through a vkGetInstanceProcAddr; zeroed
// structures; images with a view and mapped buffers, each with its memory. Internal: not
// installed, linked into the host and, in the build tree, into what links the host.

#include <tavrel_sdk/vulkan_host.hpp>

#include <cstdint>

namespace tavrel::vulkan {

#define TAVREL_VULKAN_DEVICE_FUNCTIONS(X)                                                             \
  X(vkAllocateDescriptorSets) X(vkAllocateMemory) X(vkBindBufferMemory) X(vkBindImageMemory)          \
  X(vkCmdBindDescriptorSets) X(vkCmdBindPipeline) X(vkCmdCopyBufferToImage) X(vkCmdDraw)              \
  X(vkCmdPipelineBarrier) X(vkCmdSetScissor) X(vkCmdSetViewport) X(vkCreateBuffer)                    \
  X(vkCreateDescriptorPool) X(vkCreateDescriptorSetLayout) X(vkCreateGraphicsPipelines)               \
  X(vkCreateImage) X(vkCreateImageView) X(vkCreatePipelineLayout) X(vkCreateSampler)                  \
  X(vkCreateShaderModule) X(vkDestroyBuffer) X(vkDestroyDescriptorPool) X(vkDestroyDescriptorSetLayout) \
  X(vkDestroyImage) X(vkDestroyImageView) X(vkDestroyPipeline) X(vkDestroyPipelineLayout)             \
  X(vkDestroySampler) X(vkDestroyShaderModule) X(vkFreeMemory) X(vkGetBufferMemoryRequirements)       \
  X(vkGetImageMemoryRequirements) X(vkMapMemory) X(vkQueueWaitIdle) X(vkUpdateDescriptorSets)

// One device's functions, and what making objects on it needs.
struct Functions {
#define TAVREL_VULKAN_MEMBER(name) PFN_##name name = nullptr;
  TAVREL_VULKAN_DEVICE_FUNCTIONS(TAVREL_VULKAN_MEMBER)
#undef TAVREL_VULKAN_MEMBER
  VkDevice device = VK_NULL_HANDLE;
  const VkAllocationCallbacks* allocator = nullptr;
  VkPhysicalDeviceMemoryProperties memory{};
};
// Throws VulkanError for a function the driver does not give.
Functions loadFunctions(PFN_vkGetInstanceProcAddr getInstanceProcAddr, VkInstance instance,
                        VkPhysicalDevice physicalDevice, VkDevice device, const VkAllocationCallbacks* allocator);

// A Vulkan structure of that type with every other field zero.
template <class T>
T zeroed(VkStructureType type, const void* next = nullptr) {
  T value{};
  value.sType = type;
  value.pNext = const_cast<void*>(next);  // some structures' pNext is not const
  return value;
}

// Throws VulkanError unless `result` is VK_SUCCESS.
void check(const char* call, VkResult result);

// Memory of a type `requirements` allows with the properties wanted; device-local is a
// preference, any type will then do.
VkDeviceMemory allocate(const Functions& vk, const VkMemoryRequirements& requirements, VkMemoryPropertyFlags wanted);

// A 2D colour image in device memory, with a view of it; nothing is left made when it throws.
struct Image {
  VkImage image = VK_NULL_HANDLE;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  VkImageView view = VK_NULL_HANDLE;
  VkExtent2D extent{};
};
Image makeImage(const Functions& vk, VkExtent2D extent, VkFormat format, VkImageUsageFlags usage);
void destroy(const Functions& vk, Image& image);

// A buffer in host-visible, coherent memory, mapped for its whole life.
struct Buffer {
  VkBuffer buffer = VK_NULL_HANDLE;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  unsigned char* mapped = nullptr;
  VkDeviceSize size = 0;
};
Buffer makeMappedBuffer(const Functions& vk, VkDeviceSize size, VkBufferUsageFlags usage);
void destroy(const Functions& vk, Buffer& buffer);

}  // namespace tavrel::vulkan
