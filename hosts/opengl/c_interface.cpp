// The C functions of tavrel_opengl.h: each forwards to OpenGLHost.

#include <tavrel_sdk/opengl_host.hpp>
#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/tavrel_opengl.h>

#include <exception>
#include <memory>
#include <new>
#include <string>

namespace {

tavrel_status refuse(const char* function, tavrel_status status, const std::string& why) {
  tavrel::Platform::current().log(std::string(function) + ": " + why);
  return status;
}

bool validSizes(double windowWidth, double windowHeight, int framebufferWidth, int framebufferHeight) {
  return windowWidth >= 1.0 && windowHeight >= 1.0 && framebufferWidth >= 1 && framebufferHeight >= 1;
}

// The OpenGL host behind a handle, or a status to return.
std::shared_ptr<tavrel::OpenGLHost> openGLHost(const char* function, tavrel_host* handle, tavrel_status* status) {
  if (handle == nullptr) {
    *status = refuse(function, TAVREL_ERROR_NULL_ARGUMENT, "host is NULL");
    return nullptr;
  }
  auto host = std::dynamic_pointer_cast<tavrel::OpenGLHost>(tavrel::hostFromC(handle));
  if (!host) *status = refuse(function, TAVREL_ERROR_INVALID_ARGUMENT, "host is not an OpenGL host");
  return host;
}

}  // namespace

tavrel_status tavrel_opengl_host_new(tavrel_gl_get_proc_address getProcAddress, double windowWidth,
                                     double windowHeight, int framebufferWidth, int framebufferHeight,
                                     tavrel_host** out) {
  if (getProcAddress == nullptr || out == nullptr) {
    return refuse(__func__, TAVREL_ERROR_NULL_ARGUMENT, "get_proc_address or out is NULL");
  }
  if (!validSizes(windowWidth, windowHeight, framebufferWidth, framebufferHeight)) {
    return refuse(__func__, TAVREL_ERROR_OUT_OF_RANGE, "a size below 1");
  }
  try {
    auto host = std::make_shared<tavrel::OpenGLHost>(getProcAddress, tavrel::CGSizeMake(windowWidth, windowHeight),
                                                     framebufferWidth, framebufferHeight);
    *out = tavrel::hostForC(std::move(host));
    return *out != nullptr ? TAVREL_OK : refuse(__func__, TAVREL_ERROR_FAILED, "out of memory");
  } catch (const std::bad_alloc&) {
    return refuse(__func__, TAVREL_ERROR_FAILED, "out of memory");
  } catch (const std::exception& e) {
    return refuse(__func__, TAVREL_ERROR_FAILED, e.what());
  }
}

tavrel_status tavrel_opengl_resize(tavrel_host* handle, double windowWidth, double windowHeight, int framebufferWidth,
                                   int framebufferHeight) {
  tavrel_status status = TAVREL_OK;
  const auto host = openGLHost(__func__, handle, &status);
  if (!host) return status;
  if (!validSizes(windowWidth, windowHeight, framebufferWidth, framebufferHeight)) {
    return refuse(__func__, TAVREL_ERROR_OUT_OF_RANGE, "a size below 1");
  }
  host->resize(tavrel::CGSizeMake(windowWidth, windowHeight), framebufferWidth, framebufferHeight);
  return TAVREL_OK;
}

tavrel_status tavrel_opengl_composite(tavrel_host* handle) {
  tavrel_status status = TAVREL_OK;
  const auto host = openGLHost(__func__, handle, &status);
  if (!host) return status;
  try {
    host->composite();
    return TAVREL_OK;
  } catch (const std::exception& e) {
    return refuse(__func__, TAVREL_ERROR_FAILED, e.what());
  }
}

tavrel_status tavrel_opengl_release_gl(tavrel_host* handle) {
  tavrel_status status = TAVREL_OK;
  const auto host = openGLHost(__func__, handle, &status);
  if (!host) return status;
  host->releaseGL();
  return TAVREL_OK;
}
