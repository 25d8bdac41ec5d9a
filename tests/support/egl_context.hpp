#pragma once

// Header only: tests and benchmarks link OpenGL::EGL and OpenGL::OpenGL themselves.

#include <EGL/egl.h>
#include <EGL/eglext.h>
#define GL_GLEXT_PROTOTYPES 1
#include <GL/glcorearb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace tavrel::testing {

class EglContext {
 public:
  enum class Kind { Core33, ES30 };

  // Null, with the reason in `why`, where no such context can be made.
  static std::unique_ptr<EglContext> make(Kind kind, int width, int height, std::string* why) {
    if (std::getenv("XDG_RUNTIME_DIR") == nullptr) setenv("XDG_RUNTIME_DIR", "/tmp", 0);  // else Mesa complains
    auto context = std::unique_ptr<EglContext>(new EglContext);
    context->display_ = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (context->display_ == EGL_NO_DISPLAY || eglInitialize(context->display_, nullptr, nullptr) != EGL_TRUE) {
      *why = "no EGL surfaceless display (Mesa's libegl-mesa0, from scripts/setup)";
      return nullptr;
    }
    const bool es = kind == Kind::ES30;
    eglBindAPI(es ? EGL_OPENGL_ES_API : EGL_OPENGL_API);
    const EGLint configAttributes[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, es ? EGL_OPENGL_ES3_BIT : EGL_OPENGL_BIT,
                                       EGL_NONE};
    EGLConfig config = nullptr;
    EGLint configs = 0;
    if (eglChooseConfig(context->display_, configAttributes, &config, 1, &configs) != EGL_TRUE || configs == 0) {
      *why = "no EGL config for this API";
      return nullptr;
    }
    const EGLint core[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 3,
                           EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
    const EGLint es30[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 0, EGL_NONE};
    context->context_ = eglCreateContext(context->display_, config, EGL_NO_CONTEXT, es ? es30 : core);
    if (context->context_ == EGL_NO_CONTEXT ||
        eglMakeCurrent(context->display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context->context_) != EGL_TRUE) {
      *why = "no such context from EGL";
      return nullptr;
    }
    context->resize(width, height);
    return context;
  }

  ~EglContext() {
    if (context_ != EGL_NO_CONTEXT) {
      if (framebuffer_ != 0) {
        glDeleteFramebuffers(1, &framebuffer_);
        glDeleteRenderbuffers(1, &colour_);
      }
      eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
      eglDestroyContext(display_, context_);
    }
    if (display_ != EGL_NO_DISPLAY) eglTerminate(display_);
  }
  EglContext(const EglContext&) = delete;
  EglContext& operator=(const EglContext&) = delete;

  // The game's framebuffer at a new size, bound for drawing and reading.
  void resize(int width, int height) {
    if (framebuffer_ == 0) {
      glGenFramebuffers(1, &framebuffer_);
      glGenRenderbuffers(1, &colour_);
    }
    glBindRenderbuffer(GL_RENDERBUFFER, colour_);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, colour_);
    width_ = width;
    height_ = height;
  }

  // The framebuffer's pixels as 0xAARRGGBB, top row first (OpenGL's first row is the bottom).
  std::vector<std::uint32_t> read() const {
    std::vector<std::uint32_t> rgba(static_cast<std::size_t>(width_) * height_);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, width_, height_, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
    std::vector<std::uint32_t> argb(rgba.size());
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        const std::uint32_t p = rgba[static_cast<std::size_t>(height_ - 1 - y) * width_ + x];  // bytes R, G, B, A
        argb[static_cast<std::size_t>(y) * width_ + x] =
            (p & 0xff00ff00u) | ((p & 0xffu) << 16) | ((p >> 16) & 0xffu);
      }
    }
    return argb;
  }

  int width() const { return width_; }
  int height() const { return height_; }

 private:
  EglContext() = default;
  EGLDisplay display_ = EGL_NO_DISPLAY;
  EGLContext context_ = EGL_NO_CONTEXT;
  GLuint framebuffer_ = 0;
  GLuint colour_ = 0;
  int width_ = 0;
  int height_ = 0;
};

}  // namespace tavrel::testing
