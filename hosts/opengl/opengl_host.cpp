#include <tavrel_sdk/opengl_host.hpp>

// Types, enumerants and function pointer types only: every function comes from the game's loader.
#include <GL/glcorearb.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <unordered_map>
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
  X(UNIFORM1I, Uniform1i) X(UNIFORM4F, Uniform4f) X(GENVERTEXARRAYS, GenVertexArrays) X(BINDVERTEXARRAY, BindVertexArray) \
  X(DELETEVERTEXARRAYS, DeleteVertexArrays) X(DRAWARRAYS, DrawArrays)

struct GLFunctions {
#define TAVREL_GL_MEMBER(type, name) PFNGL##type##PROC name = nullptr;
  TAVREL_GL_FUNCTIONS(TAVREL_GL_MEMBER)
#undef TAVREL_GL_MEMBER
  PFNGLPOLYGONMODEPROC PolygonMode = nullptr;  // desktop OpenGL only

  bool es = false;
  GLuint program = 0;
  GLint quad = -1, texel = -1, tint = -1;  // the program's uniforms
  GLuint vertexArray = 0;
  GLuint white = 0;  // one texel, under a rectangle of one colour

  // A store's texture, by the store's id.
  struct Texture {
    GLuint name = 0;
    std::uint64_t generation = 0;
    int width = 0, height = 0;
    GLint filter = 0;
    std::uint64_t drawn = 0;  // the last frame that listed it
  };
  std::unordered_map<std::uint64_t, Texture> textures;
  std::uint64_t frames = 0;
};

namespace {

// Each quad is made from the vertex index and two uniforms (its corners in clip space, its
// texture coordinates), so no buffer is bound and none of the game's attribute state is
// touched. A store's row 0 is its top, uploaded first: t runs down the screen.
constexpr const char* kVertexShader = R"(
uniform vec4 quad;
uniform vec4 texel;
out vec2 uv;
void main() {
  vec2 corner = vec2(float(gl_VertexID & 1), float(gl_VertexID >> 1));
  uv = mix(texel.xy, texel.zw, corner);
  gl_Position = vec4(mix(quad.xy, quad.zw, corner), 0.0, 1.0);
})";

// A store's bytes are Cairo's ARGB32 in memory order B, G, R, A, uploaded as RGBA (which
// OpenGL ES takes without an extension) and put in order here; `tint` is the opacity, or a
// colour over the white texel.
constexpr const char* kFragmentShader = R"(
uniform sampler2D frame;
uniform vec4 tint;
in vec2 uv;
out vec4 colour;
void main() {
  colour = texture(frame, uv).bgra * tint;
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
      gl.PolygonMode(GL_FRONT_AND_BACK, polygonMode[1]);
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

PixelRect intersection(const PixelRect& a, const PixelRect& b) {
  const int left = std::max(a.x, b.x), top = std::max(a.y, b.y);
  return {left, top, std::min(a.x + a.width, b.x + b.width) - left, std::min(a.y + a.height, b.y + b.height) - top};
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
  gl->quad = gl->GetUniformLocation(gl->program, "quad");
  gl->texel = gl->GetUniformLocation(gl->program, "texel");
  gl->tint = gl->GetUniformLocation(gl->program, "tint");
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

void OpenGLHost::composite() {
  if (!gl_ || gl_->program == 0) return;
  const UILayerFrame& frame = renderLayers();
  if (frame.width <= 0 || frame.height <= 0) return;
  GLFunctions& gl = *gl_;
  const bool uploading =
      gl.white == 0 || std::any_of(frame.layers.begin(), frame.layers.end(), [&](const UILayer& layer) {
        const auto found = gl.textures.find(layer.id);
        return layer.pixels && (found == gl.textures.end() || found->second.generation != layer.generation);
      });
  const SavedState saved(gl, uploading);
  if (uploading) {
    gl.BindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    gl.PixelStorei(GL_UNPACK_ALIGNMENT, 4);
    gl.PixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    gl.PixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    if (!gl.es) {
      gl.PixelStorei(GL_UNPACK_SWAP_BYTES, GL_FALSE);
      gl.PixelStorei(GL_UNPACK_LSB_FIRST, GL_FALSE);
    }
  }
  if (gl.white == 0) {
    constexpr std::uint32_t kWhite = 0xffffffff;
    gl.PixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    gl.GenTextures(1, &gl.white);
    gl.BindTexture(GL_TEXTURE_2D, gl.white);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, &kWhite);
  }
  prepareDraw();
  ++gl.frames;
  // One texel a pixel needs no filtering (and a software rasteriser draws a quad at half the
  // cost); a frame of another size than the framebuffer is smoothed.
  const GLint filter = frame.width == framebufferWidth_ && frame.height == framebufferHeight_ ? GL_NEAREST : GL_LINEAR;
  const PixelRect screen{0, 0, frame.width, frame.height};
  for (const UILayer& layer : frame.layers) {
    const PixelRect shown = intersection(intersection(layer.rect, layer.clip), screen);
    if (layer.pixels) {
      bindStore(layer, filter);
    } else {
      gl.BindTexture(GL_TEXTURE_2D, gl.white);
    }
    if (shown.width <= 0 || shown.height <= 0 || layer.rect.width <= 0 || layer.rect.height <= 0) continue;
    const auto x = [&](int pixel) { return static_cast<float>(2.0 * pixel / frame.width - 1.0); };
    const auto y = [&](int pixel) { return static_cast<float>(1.0 - 2.0 * pixel / frame.height); };
    const auto u = [&](int pixel) { return static_cast<float>(static_cast<double>(pixel - layer.rect.x) / layer.rect.width); };
    const auto v = [&](int pixel) { return static_cast<float>(static_cast<double>(pixel - layer.rect.y) / layer.rect.height); };
    const int right = shown.x + shown.width, bottom = shown.y + shown.height;
    gl.Uniform4f(gl.quad, x(shown.x), y(shown.y), x(right), y(bottom));
    gl.Uniform4f(gl.texel, u(shown.x), v(shown.y), u(right), v(bottom));
    const auto opacity = static_cast<float>(layer.opacity);
    if (layer.pixels) {
      gl.Uniform4f(gl.tint, opacity, opacity, opacity, opacity);
    } else {
      const auto level = [&](int shift) { return static_cast<float>((layer.color >> shift) & 0xff) / 255.0f * opacity; };
      gl.Uniform4f(gl.tint, level(16), level(8), level(0), level(24));
    }
    gl.DrawArrays(GL_TRIANGLE_STRIP, 0, 4);
  }
  // The textures of stores that left the frame go with them.
  for (auto it = gl.textures.begin(); it != gl.textures.end();) {
    if (it->second.drawn == gl.frames) {
      ++it;
      continue;
    }
    gl.DeleteTextures(1, &it->second.name);
    it = gl.textures.erase(it);
  }
}

std::size_t OpenGLHost::textures() const { return gl_ ? gl_->textures.size() : 0; }

void OpenGLHost::bindStore(const UILayer& layer, GLint filter) {
  GLFunctions& gl = *gl_;
  GLFunctions::Texture& texture = gl.textures[layer.id];
  texture.drawn = gl.frames;
  const bool made = texture.name == 0;
  if (made) {
    gl.GenTextures(1, &texture.name);
    gl.BindTexture(GL_TEXTURE_2D, texture.name);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  } else {
    gl.BindTexture(GL_TEXTURE_2D, texture.name);
  }
  if (texture.filter != filter) {
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    texture.filter = filter;
  }
  if (!made && texture.generation == layer.generation) return;
  gl.PixelStorei(GL_UNPACK_ROW_LENGTH, layer.stride / 4);
  if (texture.width == layer.rect.width && texture.height == layer.rect.height) {
    gl.TexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, layer.rect.width, layer.rect.height, GL_RGBA, GL_UNSIGNED_BYTE,
                     layer.pixels);
  } else {
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, layer.rect.width, layer.rect.height, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                  layer.pixels);
    texture.width = layer.rect.width;
    texture.height = layer.rect.height;
  }
  texture.generation = layer.generation;
  bytesUploaded_ += static_cast<std::uint64_t>(layer.rect.width) * layer.rect.height * 4;
  ++uploads_;
}

void OpenGLHost::prepareDraw() {
  GLFunctions& gl = *gl_;
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
}

void OpenGLHost::releaseGL() {
  if (!gl_) return;
  GLFunctions& gl = *gl_;
  for (const auto& [id, texture] : gl.textures) gl.DeleteTextures(1, &texture.name);
  gl.textures.clear();
  if (gl.white != 0) gl.DeleteTextures(1, &gl.white);
  if (gl.vertexArray != 0) gl.DeleteVertexArrays(1, &gl.vertexArray);
  if (gl.program != 0) gl.DeleteProgram(gl.program);
  gl.white = gl.vertexArray = gl.program = 0;
}

}  // namespace tavrel
