#pragma once

// The library's views over a game that draws with OpenGL 3.3 (core or compatibility) or
// OpenGL ES 3.0 and later.
//
// The game keeps its window, its context, its loader and its loop. Each frame, with its context
// current, it draws its own scene, calls OpenGLHost::composite() to lay the library's views
// (overlay, login page, alerts) over the bound draw framebuffer, and swaps. Each view's kept
// drawing is a texture of its own (UIHost::renderLayers()), uploaded when its pixels change
// and deleted when its view leaves; a frame draws one quad a layer, in order, with
// premultiplied blending, so a view that only moved costs a quad. Every piece of GL state
// the compositor touches is put back as it found it. Input comes through the game's own event
// handling (hosts/glfw for GLFW, SdlHost::handleEvent() for SDL2) or the members of UIHost.
// Link tavrel::tavrel_sdk_opengl (find_package(tavrel_sdk CONFIG COMPONENTS opengl)); the
// library links no GL library of its own and takes every function from the game's loader.
//
// Thread safety: main thread only, the thread on which the game's context is current.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/host.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace tavrel {

struct GLFunctions;  // the functions from the game's loader, and the objects made with them

class TAVREL_EXPORT OpenGLHost final : public UIHost {
 public:
  // The game's loader: glfwGetProcAddress or eglGetProcAddress, or SDL_GL_GetProcAddress.
  using GlfwStyleLoader = void (*(*)(const char* name))();
  using SdlStyleLoader = void* (*)(const char* name);

  // With the game's context current: loads the functions, checks the context's version and
  // builds the shaders in the GLSL it speaks. The screen is `windowSize` in points (the size
  // input coordinates come in); frames are drawn at `framebufferWidth` over the window's
  // width, so that one frame pixel is one framebuffer pixel on a HiDPI screen too. Install it
  // with UIHost::install() before any view is made. Throws std::runtime_error when a function
  // is missing, the context is older than OpenGL 3.3 or OpenGL ES 3.0, or a shader fails.
  OpenGLHost(GlfwStyleLoader load, CGSize windowSize, int framebufferWidth, int framebufferHeight);
  OpenGLHost(SdlStyleLoader load, CGSize windowSize, int framebufferWidth, int framebufferHeight);
  // Makes no GL call (the context may be gone by then): see releaseGL().
  ~OpenGLHost() override;
  OpenGLHost(const OpenGLHost&) = delete;
  OpenGLHost& operator=(const OpenGLHost&) = delete;

  CGSize screenSize() const override { return screenSize_; }
  double screenScale() const override { return scale_; }
  bool isES() const;

  // The window or its framebuffer changed size (a resize, a move to a screen of another
  // scale): the toolkit is laid out again for it and the next frame goes up whole. Cheap when
  // nothing changed, so a loop may call it every frame.
  void resize(CGSize windowSize, int framebufferWidth, int framebufferHeight);

  // Lists the toolkit's layers, uploads the stores whose pixels changed, and draws the layers
  // over the bound draw framebuffer, the frame's size stretched over the whole of it. Call with the game's context current, after
  // the game drew its frame and before it swaps. Does nothing after releaseGL().
  void composite();

  // Deletes the textures, the program and the vertex array, with the context current; call before
  // the context goes, when the game no longer composites.
  void releaseGL();

  // What went up into textures since the host was made, in bytes, and in how many uploads;
  // how many stores' textures the host holds now.
  std::uint64_t bytesUploaded() const { return bytesUploaded_; }
  std::uint64_t uploads() const { return uploads_; }
  std::size_t textures() const;

 private:
  void load(const std::function<void*(const char*)>& getProcAddress);
  void bindStore(const UILayer& layer, int filter);
  void prepareDraw();

  std::unique_ptr<GLFunctions> gl_;
  CGSize screenSize_;
  double scale_ = 1.0;
  int framebufferWidth_ = 0;
  int framebufferHeight_ = 0;
  std::uint64_t bytesUploaded_ = 0;
  std::uint64_t uploads_ = 0;
};

}  // namespace tavrel
