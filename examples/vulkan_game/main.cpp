// A small Linux game that runs its session under tavrel_sdk: a GLFW window, a Vulkan swapchain
// and a scene of its own (a night sky, a moon, the ground and a hopping block), the library's
// views laid over each frame by tavrel::VulkanHost and GLFW input going to the library first.
//
//   vulkan_game TOKEN LAUNCH_URL
//
// It integrates the library as the README's "Vulkan games" section says. Environment, for tests
// and local integration only (a mock service, `tavrel serve`): TAVREL_CA_FILE,
// TAVREL_SERVICE_URL, TAVREL_TREE_FILE (the view tree, written each second).

#define GLFW_INCLUDE_VULKAN
#include <GLFW/glfw3.h>

#include <tavrel_sdk/glfw_input.hpp>
#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>
#include <tavrel_sdk/vulkan_host.hpp>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kFramesInFlight = 2;

void check(VkResult result, const char* what) {
  if (result != VK_SUCCESS) throw std::runtime_error(std::string(what) + " failed: " + std::to_string(result));
}

// The game's renderer: device, swapchain, one render pass, a command buffer and a fence for each
// frame in flight.
struct Renderer {
  GLFWwindow* window = nullptr;
  VkInstance instance = VK_NULL_HANDLE;
  VkSurfaceKHR surface = VK_NULL_HANDLE;
  VkPhysicalDevice physicalDevice = VK_NULL_HANDLE;
  std::uint32_t queueFamily = 0;
  VkDevice device = VK_NULL_HANDLE;
  VkQueue queue = VK_NULL_HANDLE;
  VkSurfaceFormatKHR format{};
  VkRenderPass renderPass = VK_NULL_HANDLE;
  VkSwapchainKHR swapchain = VK_NULL_HANDLE;
  VkExtent2D extent{};
  std::vector<VkImageView> views;
  std::vector<VkFramebuffer> framebuffers;
  std::vector<VkSemaphore> rendered;  // one per swapchain image
  VkCommandPool pool = VK_NULL_HANDLE;
  std::array<VkCommandBuffer, kFramesInFlight> commands{};
  std::array<VkFence, kFramesInFlight> fences{};
  std::array<VkSemaphore, kFramesInFlight> acquired{};

  explicit Renderer(GLFWwindow* w) : window(w) {
    std::uint32_t count = 0;
    const char** extensions = glfwGetRequiredInstanceExtensions(&count);
    VkApplicationInfo app{VK_STRUCTURE_TYPE_APPLICATION_INFO, nullptr, "vulkan_game", 1, nullptr, 0, VK_API_VERSION_1_1};
    VkInstanceCreateInfo instanceInfo{VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO, nullptr, 0, &app, 0, nullptr, count, extensions};
    check(vkCreateInstance(&instanceInfo, nullptr, &instance), "vkCreateInstance");
    check(glfwCreateWindowSurface(instance, window, nullptr, &surface), "glfwCreateWindowSurface");
    vkEnumeratePhysicalDevices(instance, &count, nullptr);
    std::vector<VkPhysicalDevice> devices(count);
    vkEnumeratePhysicalDevices(instance, &count, devices.data());
    for (VkPhysicalDevice candidate : devices) {
      vkGetPhysicalDeviceQueueFamilyProperties(candidate, &count, nullptr);
      std::vector<VkQueueFamilyProperties> families(count);
      vkGetPhysicalDeviceQueueFamilyProperties(candidate, &count, families.data());
      for (std::uint32_t i = 0; i < count && physicalDevice == VK_NULL_HANDLE; ++i) {
        VkBool32 present = VK_FALSE;
        vkGetPhysicalDeviceSurfaceSupportKHR(candidate, i, surface, &present);
        if ((families[i].queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0 && present == VK_TRUE) {
          physicalDevice = candidate;
          queueFamily = i;
        }
      }
    }
    if (physicalDevice == VK_NULL_HANDLE) throw std::runtime_error("no device presents to this window");
    const float priority = 1.0f;
    VkDeviceQueueCreateInfo queueInfo{VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO, nullptr, 0, queueFamily, 1, &priority};
    const char* swapchainExtension = VK_KHR_SWAPCHAIN_EXTENSION_NAME;
    VkDeviceCreateInfo deviceInfo{VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO, nullptr, 0, 1, &queueInfo, 0, nullptr, 1,
                                  &swapchainExtension, nullptr};
    check(vkCreateDevice(physicalDevice, &deviceInfo, nullptr, &device), "vkCreateDevice");
    vkGetDeviceQueue(device, queueFamily, 0, &queue);

    vkGetPhysicalDeviceSurfaceFormatsKHR(physicalDevice, surface, &count, nullptr);
    std::vector<VkSurfaceFormatKHR> formats(count);
    vkGetPhysicalDeviceSurfaceFormatsKHR(physicalDevice, surface, &count, formats.data());
    format = formats.at(0);
    for (const VkSurfaceFormatKHR& each : formats) {
      if (each.format == VK_FORMAT_B8G8R8A8_UNORM) format = each;
    }
    VkAttachmentDescription attachment{0, format.format, VK_SAMPLE_COUNT_1_BIT, VK_ATTACHMENT_LOAD_OP_CLEAR,
                                       VK_ATTACHMENT_STORE_OP_STORE, VK_ATTACHMENT_LOAD_OP_DONT_CARE,
                                       VK_ATTACHMENT_STORE_OP_DONT_CARE, VK_IMAGE_LAYOUT_UNDEFINED,
                                       VK_IMAGE_LAYOUT_PRESENT_SRC_KHR};
    VkAttachmentReference reference{0, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
    VkSubpassDescription subpass{0, VK_PIPELINE_BIND_POINT_GRAPHICS, 0, nullptr, 1, &reference, nullptr, nullptr, 0, nullptr};
    VkSubpassDependency dependency{VK_SUBPASS_EXTERNAL, 0, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT,
                                   VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, 0,
                                   VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT, 0};
    VkRenderPassCreateInfo passInfo{VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO, nullptr, 0, 1, &attachment, 1, &subpass, 1,
                                    &dependency};
    check(vkCreateRenderPass(device, &passInfo, nullptr, &renderPass), "vkCreateRenderPass");

    VkCommandPoolCreateInfo poolInfo{VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO, nullptr,
                                     VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT, queueFamily};
    check(vkCreateCommandPool(device, &poolInfo, nullptr, &pool), "vkCreateCommandPool");
    VkCommandBufferAllocateInfo allocation{VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO, nullptr, pool,
                                           VK_COMMAND_BUFFER_LEVEL_PRIMARY, kFramesInFlight};
    check(vkAllocateCommandBuffers(device, &allocation, commands.data()), "vkAllocateCommandBuffers");
    for (std::uint32_t i = 0; i < kFramesInFlight; ++i) {
      VkFenceCreateInfo fenceInfo{VK_STRUCTURE_TYPE_FENCE_CREATE_INFO, nullptr, VK_FENCE_CREATE_SIGNALED_BIT};
      check(vkCreateFence(device, &fenceInfo, nullptr, &fences[i]), "vkCreateFence");
      VkSemaphoreCreateInfo semaphoreInfo{VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO, nullptr, 0};
      check(vkCreateSemaphore(device, &semaphoreInfo, nullptr, &acquired[i]), "vkCreateSemaphore");
    }
    makeSwapchain();
  }

  ~Renderer() {
    vkDeviceWaitIdle(device);
    destroySwapchain(swapchain);
    for (std::uint32_t i = 0; i < kFramesInFlight; ++i) {
      vkDestroyFence(device, fences[i], nullptr);
      vkDestroySemaphore(device, acquired[i], nullptr);
    }
    vkDestroyCommandPool(device, pool, nullptr);
    vkDestroyRenderPass(device, renderPass, nullptr);
    vkDestroyDevice(device, nullptr);
    vkDestroySurfaceKHR(instance, surface, nullptr);
    vkDestroyInstance(instance, nullptr);
  }

  void makeSwapchain() {
    VkSurfaceCapabilitiesKHR capabilities{};
    vkGetPhysicalDeviceSurfaceCapabilitiesKHR(physicalDevice, surface, &capabilities);
    extent = capabilities.currentExtent;
    if (extent.width == UINT32_MAX) {
      int width = 0;
      int height = 0;
      glfwGetFramebufferSize(window, &width, &height);
      extent = {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
    }
    std::uint32_t images = capabilities.minImageCount + 1;
    if (capabilities.maxImageCount != 0 && images > capabilities.maxImageCount) images = capabilities.maxImageCount;
    const VkSwapchainKHR old = swapchain;
    VkSwapchainCreateInfoKHR info{VK_STRUCTURE_TYPE_SWAPCHAIN_CREATE_INFO_KHR};
    info.surface = surface;
    info.minImageCount = images;
    info.imageFormat = format.format;
    info.imageColorSpace = format.colorSpace;
    info.imageExtent = extent;
    info.imageArrayLayers = 1;
    info.imageUsage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT;
    info.imageSharingMode = VK_SHARING_MODE_EXCLUSIVE;
    info.preTransform = capabilities.currentTransform;
    info.compositeAlpha = VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR;
    info.presentMode = VK_PRESENT_MODE_FIFO_KHR;  // always there
    info.clipped = VK_TRUE;
    info.oldSwapchain = old;
    check(vkCreateSwapchainKHR(device, &info, nullptr, &swapchain), "vkCreateSwapchainKHR");
    destroySwapchain(old);
    vkGetSwapchainImagesKHR(device, swapchain, &images, nullptr);
    std::vector<VkImage> swapchainImages(images);
    vkGetSwapchainImagesKHR(device, swapchain, &images, swapchainImages.data());
    for (VkImage image : swapchainImages) {
      VkImageViewCreateInfo viewInfo{VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO};
      viewInfo.image = image;
      viewInfo.viewType = VK_IMAGE_VIEW_TYPE_2D;
      viewInfo.format = format.format;
      viewInfo.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
      check(vkCreateImageView(device, &viewInfo, nullptr, &views.emplace_back()), "vkCreateImageView");
      VkFramebufferCreateInfo framebufferInfo{VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO, nullptr, 0, renderPass, 1,
                                              &views.back(), extent.width, extent.height, 1};
      check(vkCreateFramebuffer(device, &framebufferInfo, nullptr, &framebuffers.emplace_back()), "vkCreateFramebuffer");
      VkSemaphoreCreateInfo semaphoreInfo{VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO, nullptr, 0};
      check(vkCreateSemaphore(device, &semaphoreInfo, nullptr, &rendered.emplace_back()), "vkCreateSemaphore");
    }
  }

  // The views and framebuffers are the present swapchain's; `which` goes with them.
  void destroySwapchain(VkSwapchainKHR which) {
    if (which == VK_NULL_HANDLE) return;
    for (VkFramebuffer framebuffer : framebuffers) vkDestroyFramebuffer(device, framebuffer, nullptr);
    for (VkImageView view : views) vkDestroyImageView(device, view, nullptr);
    for (VkSemaphore semaphore : rendered) vkDestroySemaphore(device, semaphore, nullptr);
    framebuffers.clear();
    views.clear();
    rendered.clear();
    vkDestroySwapchainKHR(device, which, nullptr);
  }
};

// The scene: rectangles cleared in the render pass, in the window's 800 × 600 points.
void drawScene(VkCommandBuffer commands, VkExtent2D extent, double seconds) {
  const double sx = extent.width / 800.0;
  const double sy = extent.height / 600.0;
  const auto rect = [&](double x, double y, double w, double h, float r, float g, float b) {
    const auto left = static_cast<std::int32_t>(std::max(0.0, x * sx));
    const auto top = static_cast<std::int32_t>(std::max(0.0, y * sy));
    const auto right = static_cast<std::int32_t>(std::min<double>(extent.width, (x + w) * sx));
    const auto bottom = static_cast<std::int32_t>(std::min<double>(extent.height, (y + h) * sy));
    if (right <= left || bottom <= top) return;
    VkClearAttachment attachment{VK_IMAGE_ASPECT_COLOR_BIT, 0, {}};
    attachment.clearValue.color = {{r / 255.0f, g / 255.0f, b / 255.0f, 1.0f}};
    const VkClearRect area{{{left, top}, {static_cast<std::uint32_t>(right - left), static_cast<std::uint32_t>(bottom - top)}}, 0, 1};
    vkCmdClearAttachments(commands, 1, &attachment, 1, &area);
  };
  rect(580, 70, 80, 80, 200, 170, 60);   // the moon
  rect(0, 480, 800, 120, 30, 90, 50);    // the ground
  const double hop = std::fabs(std::sin(seconds * 3.0)) * 120.0;
  rect(std::fmod(seconds * 120.0, 860.0) - 60.0, 420.0 - hop, 60, 60, 70, 190, 210);  // the block
}

std::atomic<bool> validated{false};
bool mayPlay = false;
bool resized = false;  // the framebuffer changed size: the swapchain is made again

// The game's own input: a click on the scene is a jump.
void onMouseButton(GLFWwindow* window, int button, int action, int) {
  if (button != GLFW_MOUSE_BUTTON_LEFT || action != GLFW_PRESS || !mayPlay) return;
  double x = 0;
  double y = 0;
  glfwGetCursorPos(window, &x, &y);
  tavrel::TavrelSDK::sharedInstance().emitGameEvent(std::to_string(std::lround(x)) + "," + std::to_string(std::lround(y)), "jump");
}

int run(GLFWwindow* window, const std::string& token, const std::string& launchUrl) {
  Renderer renderer(window);
  glfwSetMouseButtonCallback(window, onMouseButton);  // the game's callbacks first

  // --- The README's "Vulkan games" integration ------------------------------------------------
  int width = 0;
  int height = 0;
  glfwGetWindowSize(window, &width, &height);
  tavrel::VulkanHostInfo info;
  info.instance = renderer.instance;
  info.physicalDevice = renderer.physicalDevice;
  info.device = renderer.device;
  info.queueFamily = renderer.queueFamily;
  info.queue = renderer.queue;
  info.renderPass = renderer.renderPass;
  info.colorFormat = renderer.format.format;
  info.framesInFlight = kFramesInFlight;
  info.getInstanceProcAddr = vkGetInstanceProcAddr;
  info.extent = renderer.extent;
  info.windowSize = tavrel::CGSizeMake(width, height);
  auto host = std::make_shared<tavrel::VulkanHost>(info);
  tavrel::UIHost::install(host);          // before any view is made
  tavrel::GlfwInput input(window);        // chains to the game's callbacks

  auto& platform = tavrel::Platform::current();
  platform.setInfoDictionaryJson(R"({"CFBundleURLTypes": [{"CFBundleURLSchemes": ["vulkangame"]}]})");
  // Tests and local integration only: a mock service on 127.0.0.1 (tavrel serve).
  if (const char* ca = std::getenv("TAVREL_CA_FILE")) platform.setTrustedCertificatesFile(ca);
  if (const char* url = std::getenv("TAVREL_SERVICE_URL")) platform.setServiceBaseUrlForTesting(url);
  auto screen = std::make_shared<tavrel::UIWindow>();  // the game's screen, kept while it runs
  screen->setRootViewController(std::make_shared<tavrel::UIViewController>());
  screen->makeKeyAndVisible();
  auto& sdk = tavrel::TavrelSDK::sharedInstance();
  sdk.initialiseOverlay(screen->rootViewController(), token);
  sdk.showWatermark();
  sdk.showTouches();
  sdk.validate([](bool) { validated = true; });  // called with yes only
  sdk.processUrlRequest(launchUrl);
  // ---------------------------------------------------------------------------------------------

  const char* treeFile = std::getenv("TAVREL_TREE_FILE");
  double lastTreeWrite = -1.0;
  bool announced = false;
  std::uint32_t frame = 0;
  glfwSetFramebufferSizeCallback(window, [](GLFWwindow*, int, int) { resized = true; });
  while (!glfwWindowShouldClose(window)) {
    glfwPollEvents();  // the library takes its input first through its callbacks
    if (validated && !announced) {
      announced = mayPlay = true;
      sdk.emitGameEvent("level-1", "start");
      std::puts("vulkan_game: the session may go on");
      std::fflush(stdout);
    }
    VkFence fence = renderer.fences[frame];
    vkWaitForFences(renderer.device, 1, &fence, VK_TRUE, UINT64_MAX);
    std::uint32_t image = 0;
    VkResult result = vkAcquireNextImageKHR(renderer.device, renderer.swapchain, UINT64_MAX, renderer.acquired[frame],
                                            VK_NULL_HANDLE, &image);
    if (result == VK_ERROR_OUT_OF_DATE_KHR || resized) {
      // The swapchain made again at the window's new size, and the host told in one call.
      resized = false;
      vkDeviceWaitIdle(renderer.device);
      renderer.makeSwapchain();
      glfwGetWindowSize(window, &width, &height);
      host->resize(tavrel::CGSizeMake(width, height), renderer.extent);
      if (result == VK_SUCCESS || result == VK_SUBOPTIMAL_KHR) {
        // The acquired image's semaphore is signalled: wait on it in an empty submission.
        VkPipelineStageFlags stage = VK_PIPELINE_STAGE_ALL_COMMANDS_BIT;
        VkSubmitInfo drain{VK_STRUCTURE_TYPE_SUBMIT_INFO, nullptr, 1, &renderer.acquired[frame], &stage, 0, nullptr, 0, nullptr};
        vkQueueSubmit(renderer.queue, 1, &drain, VK_NULL_HANDLE);
        vkQueueWaitIdle(renderer.queue);
      }
      continue;
    }
    check(result == VK_SUBOPTIMAL_KHR ? VK_SUCCESS : result, "vkAcquireNextImageKHR");
    vkResetFences(renderer.device, 1, &fence);

    VkCommandBuffer commands = renderer.commands[frame];
    vkResetCommandBuffer(commands, 0);
    VkCommandBufferBeginInfo begin{VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO, nullptr,
                                   VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT, nullptr};
    vkBeginCommandBuffer(commands, &begin);
    host->recordUpload(commands, frame);  // outside the render pass: what changed in the views
    VkClearValue sky{};
    sky.color = {{14 / 255.0f, 28 / 255.0f, 72 / 255.0f, 1.0f}};
    VkRenderPassBeginInfo pass{VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO, nullptr, renderer.renderPass,
                               renderer.framebuffers[image], {{0, 0}, renderer.extent}, 1, &sky};
    vkCmdBeginRenderPass(commands, &pass, VK_SUBPASS_CONTENTS_INLINE);
    drawScene(commands, renderer.extent, glfwGetTime());  // the game's frame
    host->recordDraw(commands);  // the overlay, any login page or alert, over it
    vkCmdEndRenderPass(commands);
    vkEndCommandBuffer(commands);
    VkPipelineStageFlags wait = VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT;
    VkSubmitInfo submit{VK_STRUCTURE_TYPE_SUBMIT_INFO, nullptr, 1, &renderer.acquired[frame], &wait, 1, &commands, 1,
                        &renderer.rendered[image]};
    check(vkQueueSubmit(renderer.queue, 1, &submit, fence), "vkQueueSubmit");
    VkPresentInfoKHR present{VK_STRUCTURE_TYPE_PRESENT_INFO_KHR, nullptr, 1, &renderer.rendered[image], 1,
                             &renderer.swapchain, &image, nullptr};
    result = vkQueuePresentKHR(renderer.queue, &present);
    if (result == VK_ERROR_OUT_OF_DATE_KHR || result == VK_SUBOPTIMAL_KHR) resized = true;
    frame = (frame + 1) % kFramesInFlight;

    if (treeFile != nullptr && glfwGetTime() - lastTreeWrite >= 1.0) {
      lastTreeWrite = glfwGetTime();
      std::ofstream(std::string(treeFile) + ".tmp") << tavrel::dumpViewTree();
      std::rename((std::string(treeFile) + ".tmp").c_str(), treeFile);
    }
    // The library's timers and main-queue work run on the thread that runs the main loop.
    platform.runMainLoopFor(1.0 / 60);
  }
  vkDeviceWaitIdle(renderer.device);
  host->shutdown();  // before the device goes
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string token = argc > 1 ? argv[1] : "";      // from the companion app
  const std::string launchUrl = argc > 2 ? argv[2] : "";  // the URL the game was opened with
  if (!glfwInit() || !glfwVulkanSupported()) {
    std::fprintf(stderr, "vulkan_game: no display or no Vulkan\n");
    return 1;
  }
  glfwWindowHint(GLFW_CLIENT_API, GLFW_NO_API);
  GLFWwindow* window = glfwCreateWindow(800, 600, "vulkan_game", nullptr, nullptr);
  if (window == nullptr) {
    std::fprintf(stderr, "vulkan_game: no window\n");
    return 1;
  }
  int status = 1;
  try {
    status = run(window, token, launchUrl);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vulkan_game: %s\n", e.what());
  }
  glfwDestroyWindow(window);
  glfwTerminate();
  return status;
}
