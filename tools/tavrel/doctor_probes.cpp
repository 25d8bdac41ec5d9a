#include "doctor_probes.hpp"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace tavrel::cli {
namespace {

// A library opened for the probe and closed after it.
class Loaded {
 public:
  explicit Loaded(const char* name) : handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL)) {}
  ~Loaded() {
    if (handle_ != nullptr) dlclose(handle_);
  }
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;
  explicit operator bool() const { return handle_ != nullptr; }
  template <typename F>
  F get(const char* name) const {
    return reinterpret_cast<F>(dlsym(handle_, name));
  }

 private:
  void* handle_;
};

// ---- X11 ----
using XOpenDisplayFn = void* (*)(const char*);
using XCloseDisplayFn = int (*)(void*);

// ---- EGL and GL ----
using EGLDisplay = void*;
using EGLConfig = void*;
using EGLContext = void*;
using EGLint = std::int32_t;
using EGLBoolean = unsigned;
constexpr EGLint kEglNone = 0x3038, kEglVersion = 0x3054, kEglRenderableType = 0x3040, kEglOpenGlBit = 0x0008,
                 kEglSurfaceType = 0x3033;
constexpr unsigned kEglOpenGlApi = 0x30A2, kEglPlatformSurfacelessMesa = 0x31DD;
constexpr unsigned kGlRenderer = 0x1F01, kGlVersion = 0x1F02;
using EglGetProcAddressFn = void* (*)(const char*);
using EglGetDisplayFn = EGLDisplay (*)(void*);
using EglGetPlatformDisplayFn = EGLDisplay (*)(unsigned, void*, const EGLint*);
using EglInitializeFn = EGLBoolean (*)(EGLDisplay, EGLint*, EGLint*);
using EglTerminateFn = EGLBoolean (*)(EGLDisplay);
using EglQueryStringFn = const char* (*)(EGLDisplay, EGLint);
using EglBindApiFn = EGLBoolean (*)(unsigned);
using EglChooseConfigFn = EGLBoolean (*)(EGLDisplay, const EGLint*, EGLConfig*, EGLint, EGLint*);
using EglCreateContextFn = EGLContext (*)(EGLDisplay, EGLConfig, EGLContext, const EGLint*);
using EglDestroyContextFn = EGLBoolean (*)(EGLDisplay, EGLContext);
using EglMakeCurrentFn = EGLBoolean (*)(EGLDisplay, void*, void*, EGLContext);
using GlGetStringFn = const unsigned char* (*)(unsigned);

// ---- Vulkan ----
using VkInstance = struct VkInstanceT*;
using VkPhysicalDevice = struct VkPhysicalDeviceT*;
using VkResult = std::int32_t;
struct VkApplicationInfo {
  std::int32_t sType = 0;  // VK_STRUCTURE_TYPE_APPLICATION_INFO
  const void* pNext = nullptr;
  const char* pApplicationName = "tavrel doctor";
  std::uint32_t applicationVersion = 1;
  const char* pEngineName = nullptr;
  std::uint32_t engineVersion = 0;
  std::uint32_t apiVersion = (1u << 22);  // 1.0: what any loader and driver takes
};
struct VkInstanceCreateInfo {
  std::int32_t sType = 1;  // VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO
  const void* pNext = nullptr;
  std::uint32_t flags = 0;
  const VkApplicationInfo* pApplicationInfo = nullptr;
  std::uint32_t enabledLayerCount = 0;
  const char* const* ppEnabledLayerNames = nullptr;
  std::uint32_t enabledExtensionCount = 0;
  const char* const* ppEnabledExtensionNames = nullptr;
};
// The leading members of VkPhysicalDeviceProperties, with room for the rest (limits and sparse
// properties, 824 bytes in all).
struct alignas(8) VkPhysicalDeviceProperties {
  std::uint32_t apiVersion, driverVersion, vendorID, deviceID;
  std::int32_t deviceType;
  char deviceName[256];
  unsigned char rest[2048];
};
using PFN_vkVoidFunction = void (*)();
using VkGetInstanceProcAddrFn = PFN_vkVoidFunction (*)(VkInstance, const char*);
using VkEnumerateInstanceVersionFn = VkResult (*)(std::uint32_t*);
using VkCreateInstanceFn = VkResult (*)(const VkInstanceCreateInfo*, const void*, VkInstance*);
using VkDestroyInstanceFn = void (*)(VkInstance, const void*);
using VkEnumeratePhysicalDevicesFn = VkResult (*)(VkInstance, std::uint32_t*, VkPhysicalDevice*);
using VkGetPhysicalDevicePropertiesFn = void (*)(VkPhysicalDevice, VkPhysicalDeviceProperties*);

std::string vulkanVersion(std::uint32_t v) {
  return std::to_string((v >> 22) & 0x7Fu) + "." + std::to_string((v >> 12) & 0x3FFu) + "." + std::to_string(v & 0xFFFu);
}

ProbeResult waylandDisplay(const char* name) {
  std::string path = name;
  if (path.front() != '/') {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime == nullptr) return {false, "WAYLAND_DISPLAY=" + path + " but XDG_RUNTIME_DIR is not set"};
    path = std::string(runtime) + "/" + path;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return {false, "the Wayland socket's path is too long: " + path};
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool connected = fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  const std::string error = std::strerror(errno);
  if (fd >= 0) close(fd);
  if (!connected) return {false, "Wayland display " + path + ": " + error};
  return {true, "Wayland display " + path};
}

}  // namespace

ProbeResult probeDisplay() {
  const char* x11 = std::getenv("DISPLAY");
  if (x11 != nullptr && *x11 != '\0') {
    Loaded lib("libX11.so.6");
    if (!lib) return {false, std::string("DISPLAY=") + x11 + " but libX11.so.6 cannot be loaded (libx11-6)"};
    auto open = lib.get<XOpenDisplayFn>("XOpenDisplay");
    auto closeDisplay = lib.get<XCloseDisplayFn>("XCloseDisplay");
    void* display = open != nullptr ? open(nullptr) : nullptr;
    if (display == nullptr) return {false, std::string("cannot open the X display ") + x11};
    closeDisplay(display);
    return {true, std::string("X display ") + x11};
  }
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  if (wayland != nullptr && *wayland != '\0') return waylandDisplay(wayland);
  return {false, "neither DISPLAY nor WAYLAND_DISPLAY is set"};
}

ProbeResult probeOpenGl() {
  Loaded lib("libEGL.so.1");
  if (!lib) return {false, "libEGL.so.1 cannot be loaded"};
  auto getProc = lib.get<EglGetProcAddressFn>("eglGetProcAddress");
  if (getProc == nullptr) return {false, "libEGL.so.1 has no eglGetProcAddress"};
  auto fn = [&](const char* name) { return getProc(name); };
  auto getPlatformDisplay = reinterpret_cast<EglGetPlatformDisplayFn>(fn("eglGetPlatformDisplayEXT"));
  auto getDisplay = reinterpret_cast<EglGetDisplayFn>(fn("eglGetDisplay"));
  auto initialize = reinterpret_cast<EglInitializeFn>(fn("eglInitialize"));
  auto terminate = reinterpret_cast<EglTerminateFn>(fn("eglTerminate"));
  auto queryString = reinterpret_cast<EglQueryStringFn>(fn("eglQueryString"));
  auto bindApi = reinterpret_cast<EglBindApiFn>(fn("eglBindAPI"));
  auto chooseConfig = reinterpret_cast<EglChooseConfigFn>(fn("eglChooseConfig"));
  auto createContext = reinterpret_cast<EglCreateContextFn>(fn("eglCreateContext"));
  auto destroyContext = reinterpret_cast<EglDestroyContextFn>(fn("eglDestroyContext"));
  auto makeCurrent = reinterpret_cast<EglMakeCurrentFn>(fn("eglMakeCurrent"));
  if (!getDisplay || !initialize || !terminate || !queryString || !bindApi || !chooseConfig || !createContext ||
      !destroyContext || !makeCurrent) {
    return {false, "libEGL.so.1 lacks a core EGL function"};
  }
  EGLDisplay display = getPlatformDisplay ? getPlatformDisplay(kEglPlatformSurfacelessMesa, nullptr, nullptr) : nullptr;
  EGLint major = 0, minor = 0;
  if (display == nullptr || !initialize(display, &major, &minor)) {
    display = getDisplay(nullptr);
    if (display == nullptr || !initialize(display, &major, &minor)) return {false, "EGL cannot be initialised"};
  }
  const std::string egl = std::string("EGL ") + queryString(display, kEglVersion);
  ProbeResult result{false, egl + ": no OpenGL context can be made"};
  const EGLint attributes[] = {kEglRenderableType, kEglOpenGlBit, kEglSurfaceType, 0, kEglNone};
  EGLConfig config = nullptr;
  EGLint count = 0;
  if (bindApi(kEglOpenGlApi) && chooseConfig(display, attributes, &config, 1, &count) && count > 0) {
    EGLContext context = createContext(display, config, nullptr, nullptr);
    if (context != nullptr && makeCurrent(display, nullptr, nullptr, context)) {
      auto getString = reinterpret_cast<GlGetStringFn>(fn("glGetString"));
      const unsigned char* version = getString ? getString(kGlVersion) : nullptr;
      const unsigned char* renderer = getString ? getString(kGlRenderer) : nullptr;
      result = {version != nullptr,
                "OpenGL " + std::string(version ? reinterpret_cast<const char*>(version) : "?") + " (" +
                    (renderer ? reinterpret_cast<const char*>(renderer) : "?") + ") through " + egl};
      makeCurrent(display, nullptr, nullptr, nullptr);
    }
    if (context != nullptr) destroyContext(display, context);
  }
  terminate(display);
  return result;
}

ProbeResult probeVulkan() {
  Loaded lib("libvulkan.so.1");
  if (!lib) return {false, "libvulkan.so.1 (the Vulkan loader) cannot be loaded"};
  auto getProc = lib.get<VkGetInstanceProcAddrFn>("vkGetInstanceProcAddr");
  if (getProc == nullptr) return {false, "libvulkan.so.1 has no vkGetInstanceProcAddr"};
  auto enumerateVersion = reinterpret_cast<VkEnumerateInstanceVersionFn>(getProc(nullptr, "vkEnumerateInstanceVersion"));
  auto createInstance = reinterpret_cast<VkCreateInstanceFn>(getProc(nullptr, "vkCreateInstance"));
  std::uint32_t loaderVersion = 1u << 22;
  if (enumerateVersion != nullptr) enumerateVersion(&loaderVersion);
  const std::string loader = "Vulkan loader " + vulkanVersion(loaderVersion);
  VkApplicationInfo application;
  VkInstanceCreateInfo info;
  info.pApplicationInfo = &application;
  VkInstance instance = nullptr;
  if (createInstance == nullptr || createInstance(&info, nullptr, &instance) != 0) {
    return {false, loader + ": no instance can be made (no driver)"};
  }
  auto destroy = reinterpret_cast<VkDestroyInstanceFn>(getProc(instance, "vkDestroyInstance"));
  auto enumerateDevices = reinterpret_cast<VkEnumeratePhysicalDevicesFn>(getProc(instance, "vkEnumeratePhysicalDevices"));
  auto properties = reinterpret_cast<VkGetPhysicalDevicePropertiesFn>(getProc(instance, "vkGetPhysicalDeviceProperties"));
  std::uint32_t count = 0;
  ProbeResult result{false, loader + ": no Vulkan device"};
  if (enumerateDevices && properties && enumerateDevices(instance, &count, nullptr) == 0 && count > 0) {
    auto devices = std::make_unique<VkPhysicalDevice[]>(count);
    enumerateDevices(instance, &count, devices.get());
    auto first = std::make_unique<VkPhysicalDeviceProperties>();
    properties(devices[0], first.get());
    first->deviceName[sizeof first->deviceName - 1] = '\0';
    result = {true, loader + ", " + std::to_string(count) + (count == 1 ? " device: " : " devices, the first: ") +
                        first->deviceName + " (Vulkan " + vulkanVersion(first->apiVersion) + ")"};
  }
  if (destroy) destroy(instance, nullptr);
  return result;
}

}  // namespace tavrel::cli
