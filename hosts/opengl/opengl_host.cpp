#include <tavrel_sdk/opengl_host.hpp>

// Types, enumerants and function pointer types only: every function comes from the game's loader.
#include <GL/glcorearb.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrel {

#define TAVREL_GL_FUNCTIONS(X)                                                                 \
  X(GETSTRING, GetString) X(GETINTEGERV, GetIntegerv) X(GETBOOLEANV, GetBooleanv)              \
  X(ISENABLED, IsEnabled) X(ENABLE, Enable) X(DISABLE, Disable) X(BLENDFUNCSEPARATE, BlendFuncSeparate) \
  X(BLENDEQUATIONSEPARATE, BlendEquationSeparate) X(VIEWPORT, Viewport) X(COLORMASK, ColorMask) \
  X(PIXELSTOREI, PixelStorei) X(ACTIVETEXTURE, ActiveTexture) X(BINDTEXTURE, BindTexture)      \
  X(GENTEXTURES, GenTextures) X(DELETETEXTURES, DeleteTextures) X(TEXIMAGE2D, TexImage2D)      \
  X(TEXSUBIMAGE2D, TexSubImage2D) X(TEXPARAMETERI, TexParameteri) X(BINDSAMPLER, BindSampler)  \
  X(BINDBUFFER, BindBuffer) X(USEPROGRAM, UseProgram) X(CREATESHADER, CreateShader)            \
  X(SHADERSOURCE, ShaderSource) X(COMPILESHADER, CompileShader) X(GETSHADERIV, GetShaderiv)    \
  X(GETSHADERINFOLOG, GetShaderInfoLog) X(DELETESHADER, DeleteShader)                          \
  X(CREATEPROGRAM, CreateProgram) X(ATTACHSHADER, AttachShader) X(LINKPROGRAM, LinkProgram)    \
  X(GETPROGRAMIV, GetProgramiv) X(GETPROGRAMINFOLOG, GetProgramInfoLog)                        \
  X(DELETEPROGRAM, DeleteProgram) X(GETUNIFORMLOCATION, GetUniformLocation)                    \
  X(UNIFORM1I, Uniform1i) X(GENVERTEXARRAYS, GenVertexArrays) X(BINDVERTEXARRAY, BindVertexArray) \
  X(DELETEVERTEXARRAYS, DeleteVertexArrays) X(DRAWARRAYS, DrawArrays)

struct GLFunctions {
#define TAVREL_GL_MEMBER(type, name) PFNGL##type##PROC name = nullptr;
  TAVREL_GL_FUNCTIONS(TAVREL_GL_MEMBER)
#undef TAVREL_GL_MEMBER
  PFNGLPOLYGONMODEPROC PolygonMode = nullptr;  // desktop OpenGL only

  bool es = false;
  GLuint program = 0;
  GLuint vertexArray = 0;
  GLuint texture = 0;
  int textureWidth = 0;
  int textureHeight = 0;
};

namespace {

// The quad is made from the vertex index, so no buffer is bound and none of the game's
// attribute state is touched. Frame row 0 is the top of the screen.
constexpr const char* kVertexShader = R"(
out vec2 uv;
void main() {
  vec2 corner = vec2(float(gl_VertexID & 1), float(gl_VertexID >> 1));
  uv = vec2(corner.x, 1.0 - corner.y);
  gl_Position = vec4(corner * 2.0 - 1.0, 0.0, 1.0);
})";

// The frame's bytes are Cairo's ARGB32 in memory order B, G, R, A, uploaded as RGBA (which
// OpenGL ES takes without an extension) and put in order here.
constexpr const char* kFragmentShader = R"(
uniform sampler2D frame;
in vec2 uv;
out vec4 colour;
void main() {
  colour = texture(frame, uv).bgra;
})";

// Enables the draw needs off (blending is on); a game may have left any of them on.
constexpr std::array<GLenum, 6> kCommonSwitches = {GL_CULL_FACE,         GL_DEPTH_TEST,
                                                   GL_STENCIL_TEST,      GL_SCISSOR_TEST,
                                                   GL_RASTERIZER_DISCARD, GL_SAMPLE_ALPHA_TO_COVERAGE};
// Desktop only: sRGB encoding would re-encode colours already in sRGB, a logic op would
// replace blending.
constexpr std::array<GLenum, 2> kDesktopSwitches = {GL_FRAMEBUFFER_SRGB, GL_COLOR_LOGIC_OP};
constexpr std::array<GLenum, 6> kBlendState = {GL_BLEND_SRC_RGB,   GL_BLEND_DST_RGB,      GL_BLEND_SRC_ALPHA,
                                               GL_BLEND_DST_ALPHA, GL_BLEND_EQUATION_RGB, GL_BLEND_EQUATION_ALPHA};

GLuint compile(const GLFunctions& gl, GLenum kind, const std::string& source) {
  const GLuint shader = gl.CreateShader(kind);
  const char* text = source.c_str();
  gl.ShaderSource(shader, 1, &text, nullptr);
  gl.CompileShader(shader);
  GLint ok = GL_FALSE;
  gl.GetShaderiv(shader, GL_COMPILE_STATUS, &ok);
  if (ok == GL_TRUE) return shader;
  std::array<char, 1024> log{};
  gl.GetShaderInfoLog(shader, log.size(), nullptr, log.data());
  gl.DeleteShader(shader);
  throw std::runtime_error(std::string("OpenGLHost: shader does not compile: ") + log.data());
}

int integer(const GLFunctions& gl, GLenum name) {
  GLint value = 0;
  gl.GetIntegerv(name, &value);
  return value;
}

// The state composite() changes, as the game left it.
struct SavedState {
  explicit SavedState(const GLFunctions& gl, bool uploading) : gl(gl), uploading(uploading) {
    activeTexture = integer(gl, GL_ACTIVE_TEXTURE);
    gl.ActiveTexture(GL_TEXTURE0);
    texture = integer(gl, GL_TEXTURE_BINDING_2D);
    sampler = integer(gl, GL_SAMPLER_BINDING);
    program = integer(gl, GL_CURRENT_PROGRAM);
    vertexArray = integer(gl, GL_VERTEX_ARRAY_BINDING);
    gl.GetIntegerv(GL_VIEWPORT, viewport.data());
    gl.GetBooleanv(GL_COLOR_WRITEMASK, colourMask.data());
    blend = gl.IsEnabled(GL_BLEND);
    for (std::size_t i = 0; i < kBlendState.size(); ++i) blendState[i] = integer(gl, kBlendState[i]);
    for (std::size_t i = 0; i < kCommonSwitches.size(); ++i) common[i] = gl.IsEnabled(kCommonSwitches[i]);
    if (!gl.es) {
      for (std::size_t i = 0; i < kDesktopSwitches.size(); ++i) desktop[i] = gl.IsEnabled(kDesktopSwitches[i]);
      gl.GetIntegerv(GL_POLYGON_MODE, polygonMode.data());
    }
    if (uploading) {
      unpackBuffer = integer(gl, GL_PIXEL_UNPACK_BUFFER_BINDING);
      for (std::size_t i = 0; i < unpackNames().size(); ++i) unpack[i] = integer(gl, unpackNames()[i]);
    }
  }

  ~SavedState() {
    if (uploading) {
      for (std::size_t i = 0; i < unpackNames().size(); ++i) gl.PixelStorei(unpackNames()[i], unpack[i]);
      gl.BindBuffer(GL_PIXEL_UNPACK_BUFFER, unpackBuffer);
    }
    if (!gl.es) {
      for (std::size_t i = 0; i < kDesktopSwitches.size(); ++i) set(kDesktopSwitches[i], desktop[i]);
      // The front and back modes have been one since OpenGL 3.2 core.
      gl.PolygonMode(GL_FRONT_AND_BACK, polygonMode[0]);
    }
    for (std::size_t i = 0; i < kCommonSwitches.size(); ++i) set(kCommonSwitches[i], common[i]);
    set(GL_BLEND, blend);
    gl.BlendFuncSeparate(blendState[0], blendState[1], blendState[2], blendState[3]);
    gl.BlendEquationSeparate(blendState[4], blendState[5]);
    gl.ColorMask(colourMask[0], colourMask[1], colourMask[2], colourMask[3]);
    gl.Viewport(viewport[0], viewport[1], viewport[2], viewport[3]);
    gl.BindVertexArray(vertexArray);
    gl.UseProgram(program);
    gl.BindSampler(0, sampler);
    gl.BindTexture(GL_TEXTURE_2D, texture);
    gl.ActiveTexture(activeTexture);
  }
  SavedState(const SavedState&) = delete;
  SavedState& operator=(const SavedState&) = delete;

  void set(GLenum name, GLboolean on) const { on ? gl.Enable(name) : gl.Disable(name); }

  // Desktop OpenGL also has byte swapping and bit order: a game that set them would make
  // glTexSubImage2D read our rows wrongly.
  const std::vector<GLenum>& unpackNames() const {
    static const std::vector<GLenum> es{GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS,
                                        GL_UNPACK_ALIGNMENT};
    static const std::vector<GLenum> desktop{GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS,
                                             GL_UNPACK_ALIGNMENT,  GL_UNPACK_SWAP_BYTES, GL_UNPACK_LSB_FIRST};
    return gl.es ? es : desktop;
  }

  const GLFunctions& gl;
  const bool uploading;
  GLint activeTexture = 0, texture = 0, sampler = 0, program = 0, vertexArray = 0, unpackBuffer = 0;
  std::array<GLint, 4> viewport{};
  std::array<GLboolean, 4> colourMask{};
  std::array<GLint, 2> polygonMode{};
  std::array<GLint, 6> blendState{};
  std::array<GLint, 6> unpack{};
  GLboolean blend = GL_FALSE;
  std::array<GLboolean, kCommonSwitches.size()> common{};
  std::array<GLboolean, kDesktopSwitches.size()> desktop{};
};

PixelRect clipped(PixelRect rect, int width, int height) {
  const int right = std::min(rect.x + rect.width, width);
  const int bottom = std::min(rect.y + rect.height, height);
  rect.x = std::max(rect.x, 0);
  rect.y = std::max(rect.y, 0);
  rect.width = std::max(right - rect.x, 0);
  rect.height = std::max(bottom - rect.y, 0);
  return rect;
}

}  // namespace

OpenGLHost::OpenGLHost(GlfwStyleLoader load, CGSize windowSize, int framebufferWidth, int framebufferHeight) {
  this->load([load](const char* name) { return reinterpret_cast<void*>(load(name)); });
  resize(windowSize, framebufferWidth, framebufferHeight);
}

OpenGLHost::OpenGLHost(SdlStyleLoader load, CGSize windowSize, int framebufferWidth, int framebufferHeight) {
  this->load(load);
  resize(windowSize, framebufferWidth, framebufferHeight);
}

OpenGLHost::~OpenGLHost() = default;

void OpenGLHost::load(const std::function<void*(const char*)>& getProcAddress) {
  auto gl = std::make_unique<GLFunctions>();
  const auto need = [&](const char* name) {
    void* function = getProcAddress(name);
    if (function == nullptr) throw std::runtime_error(std::string("OpenGLHost: the loader has no ") + name);
    return function;
  };
#define TAVREL_GL_LOAD(type, name) gl->name = reinterpret_cast<PFNGL##type##PROC>(need("gl" #name));
  TAVREL_GL_FUNCTIONS(TAVREL_GL_LOAD)
#undef TAVREL_GL_LOAD

  const auto* version = reinterpret_cast<const char*>(gl->GetString(GL_VERSION));
  if (version == nullptr) throw std::runtime_error("OpenGLHost: no current OpenGL context");
  const std::string text = version;
  gl->es = text.starts_with("OpenGL ES");
  const int major = integer(*gl, GL_MAJOR_VERSION);
  const int minor = integer(*gl, GL_MINOR_VERSION);
  if (gl->es ? major < 3 : major * 10 + minor < 33) {
    throw std::runtime_error("OpenGLHost: needs OpenGL 3.3 or OpenGL ES 3.0, the context has " + text);
  }
  if (!gl->es) gl->PolygonMode = reinterpret_cast<PFNGLPOLYGONMODEPROC>(need("glPolygonMode"));

  const std::string header = gl->es ? "#version 300 es\nprecision mediump float;\n" : "#version 330 core\n";
  const GLuint vertex = compile(*gl, GL_VERTEX_SHADER, header + kVertexShader);
  GLuint fragment = 0;
  try {
    fragment = compile(*gl, GL_FRAGMENT_SHADER, header + kFragmentShader);
  } catch (...) {
    gl->DeleteShader(vertex);
    throw;
  }
  gl->program = gl->CreateProgram();
  gl->AttachShader(gl->program, vertex);
  gl->AttachShader(gl->program, fragment);
  gl->LinkProgram(gl->program);
  gl->DeleteShader(vertex);
  gl->DeleteShader(fragment);
  GLint linked = GL_FALSE;
  gl->GetProgramiv(gl->program, GL_LINK_STATUS, &linked);
  if (linked != GL_TRUE) {
    std::array<char, 1024> log{};
    gl->GetProgramInfoLog(gl->program, log.size(), nullptr, log.data());
    gl->DeleteProgram(gl->program);
    throw std::runtime_error(std::string("OpenGLHost: the program does not link: ") + log.data());
  }
  const GLint previousProgram = integer(*gl, GL_CURRENT_PROGRAM);
  gl->UseProgram(gl->program);
  gl->Uniform1i(gl->GetUniformLocation(gl->program, "frame"), 0);
  gl->UseProgram(previousProgram);
  gl->GenVertexArrays(1, &gl->vertexArray);
  gl_ = std::move(gl);
}

bool OpenGLHost::isES() const { return gl_ && gl_->es; }

void OpenGLHost::resize(CGSize windowSize, int framebufferWidth, int framebufferHeight) {
  if (windowSize.width == screenSize_.width && windowSize.height == screenSize_.height &&
      framebufferWidth == framebufferWidth_ && framebufferHeight == framebufferHeight_) {
    return;
  }
  screenSize_ = windowSize;
  framebufferWidth_ = framebufferWidth;
  framebufferHeight_ = framebufferHeight;
  scale_ = windowSize.width > 0 && framebufferWidth > 0 ? framebufferWidth / windowSize.width : 1.0;
  screenChanged();
}

void OpenGLHost::presentFrame(const UIFrame& frame) {
  if (frame.width != gl_->textureWidth || frame.height != gl_->textureHeight) {
    uploadWholeFrame_ = true;
    pending_.clear();
    return;
  }
  for (const PixelRect& rect : frame.damage) {
    const PixelRect inside = clipped(rect, frame.width, frame.height);
    if (inside.width > 0 && inside.height > 0) pending_.push_back(inside);
  }
}

void OpenGLHost::composite() {
  if (!gl_ || gl_->program == 0) return;
  const UIFrame& frame = renderFrame();
  if (frame.width <= 0 || frame.height <= 0) return;
  const SavedState saved(*gl_, uploadWholeFrame_ || !pending_.empty());
  upload(frame);
  draw();
}

void OpenGLHost::upload(const UIFrame& frame) {
  if (!uploadWholeFrame_ && pending_.empty()) return;
  GLFunctions& gl = *gl_;
  gl.BindTexture(GL_TEXTURE_2D, gl.texture);
  gl.BindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
  gl.PixelStorei(GL_UNPACK_ALIGNMENT, 4);
  gl.PixelStorei(GL_UNPACK_ROW_LENGTH, frame.stride / 4);
  if (!gl.es) {
    gl.PixelStorei(GL_UNPACK_SWAP_BYTES, GL_FALSE);
    gl.PixelStorei(GL_UNPACK_LSB_FIRST, GL_FALSE);
  }
  if (uploadWholeFrame_) {
    if (gl.texture == 0) {
      gl.GenTextures(1, &gl.texture);
      gl.BindTexture(GL_TEXTURE_2D, gl.texture);
      gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
      gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    // One texel a pixel needs no filtering (and a software rasteriser draws the quad at half
    // the cost); a frame of another size than the framebuffer is smoothed.
    const GLint filter = frame.width == framebufferWidth_ && frame.height == framebufferHeight_ ? GL_NEAREST : GL_LINEAR;
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    gl.PixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    gl.PixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, frame.width, frame.height, 0, GL_RGBA, GL_UNSIGNED_BYTE, frame.pixels);
    gl.textureWidth = frame.width;
    gl.textureHeight = frame.height;
    bytesUploaded_ += static_cast<std::uint64_t>(frame.width) * frame.height * 4;
    ++uploads_;
    uploadWholeFrame_ = false;
    pending_.clear();
    return;
  }
  for (const PixelRect& rect : pending_) {
    gl.PixelStorei(GL_UNPACK_SKIP_PIXELS, rect.x);
    gl.PixelStorei(GL_UNPACK_SKIP_ROWS, rect.y);
    gl.TexSubImage2D(GL_TEXTURE_2D, 0, rect.x, rect.y, rect.width, rect.height, GL_RGBA, GL_UNSIGNED_BYTE,
                     frame.pixels);
    bytesUploaded_ += static_cast<std::uint64_t>(rect.width) * rect.height * 4;
    ++uploads_;
  }
  pending_.clear();
}

void OpenGLHost::draw() {
  GLFunctions& gl = *gl_;
  gl.BindTexture(GL_TEXTURE_2D, gl.texture);
  gl.BindSampler(0, 0);
  gl.UseProgram(gl.program);
  gl.BindVertexArray(gl.vertexArray);
  gl.Viewport(0, 0, framebufferWidth_, framebufferHeight_);
  gl.ColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
  for (GLenum name : kCommonSwitches) gl.Disable(name);
  if (!gl.es) {
    for (GLenum name : kDesktopSwitches) gl.Disable(name);
    gl.PolygonMode(GL_FRONT_AND_BACK, GL_FILL);
  }
  gl.Enable(GL_BLEND);
  gl.BlendEquationSeparate(GL_FUNC_ADD, GL_FUNC_ADD);
  gl.BlendFuncSeparate(GL_ONE, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
  gl.DrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

void OpenGLHost::releaseGL() {
  if (!gl_) return;
  GLFunctions& gl = *gl_;
  if (gl.texture != 0) gl.DeleteTextures(1, &gl.texture);
  if (gl.vertexArray != 0) gl.DeleteVertexArrays(1, &gl.vertexArray);
  if (gl.program != 0) gl.DeleteProgram(gl.program);
  gl.texture = gl.vertexArray = gl.program = 0;
  gl.textureWidth = gl.textureHeight = 0;
  uploadWholeFrame_ = true;
}

}  // namespace tavrel
