// OpenGLHost on Mesa's llvmpipe through EGL, OpenGL 3.3 core and ES 3.0.

#include <tavrel_sdk/opengl_host.hpp>
#include <tavrel_sdk/tavrel_opengl.h>

#include "support/blend_check.hpp"
#include "support/egl_context.hpp"
#include "support/game_screen.hpp"

#include <array>
#include <map>
#include <set>
#include <sstream>
#include <vector>

namespace tavrel {
namespace {

using testing::EglContext;

class OpenGLHostTest : public testing::SimulatedGame, public ::testing::WithParamInterface<EglContext::Kind> {
 protected:
  void SetUp() override {
    SimulatedGame::SetUp();
    setenv("MESA_GL_VERSION_OVERRIDE", "3.3", 1);  // the oldest OpenGL the host takes, not llvmpipe's newest
    std::string why;
    context_ = EglContext::make(GetParam(), 200, 100, &why);
    if (!context_) GTEST_SKIP() << "no OpenGL here: " << why;
    host_ = std::make_shared<OpenGLHost>(eglGetProcAddress, CGSizeMake(200, 100), 200, 100);
    useHost(host_);
  }
  void TearDown() override {
    UIHost::install(std::make_shared<HeadlessHost>(CGSizeMake(200, 100), 1.0));
    if (host_) host_->releaseGL();
    host_.reset(), context_.reset();
    SimulatedGame::TearDown();
  }

  // The game's frame: a corner of another colour, so a picture upside down or mirrored shows.
  void drawGame() {
    glDisable(GL_SCISSOR_TEST);
    glClearColor(0.0f, 0.0f, 0.8f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_SCISSOR_TEST);
    glScissor(context_->width() / 2, context_->height() / 2, context_->width(), context_->height());  // top right
    glClearColor(0.2f, 0.7f, 0.3f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
  }

  // Draws the game, composites, and says where the picture differs from what it should be.
  std::string compositeAndCompare() {
    drawGame();
    const std::vector<std::uint32_t> game = context_->read();
    host_->composite();
    const std::vector<std::uint32_t> shown = context_->read();
    const UIFrame& frame = host_->renderFrame();  // nothing changed: the frame just composited
    if (frame.width != context_->width() || frame.height != context_->height()) return "the frame has another size";
    return testing::blendMismatches(frame.pixels, frame.stride / 4, game.data(), shown.data(), frame.width,
                                    frame.width, frame.height);
  }

  std::unique_ptr<EglContext> context_;
  std::shared_ptr<OpenGLHost> host_;
};

// A border and a group at a fraction of alpha are each laid as one flattened layer.
TEST_P(OpenGLHostTest, keepsEachStoreAsATextureAndMovesIt) {
  EXPECT_EQ(host_->isES(), GetParam() == EglContext::Kind::ES30);
  addColouredView(CGRectMake(0, 0, 60, 100), UIColor::colorWithRed(1, 1, 1, 0.5));
  addColouredView(CGRectMake(60, 10, 30, 30), UIColor::colorWithRed(1, 0, 0, 1))->layer().setCornerRadius(8);
  auto framed = addColouredView(CGRectMake(10, 60, 40, 30), UIColor::colorWithRed(0, 1, 0, 0.6));
  framed->layer().setBorderWidth(3);
  framed->layer().setBorderColor(UIColor::colorWithRed(1, 1, 0, 1)->CGColor());
  auto faded = addColouredView(CGRectMake(150, 70, 40, 25), UIColor::colorWithRed(1, 0, 1, 1));
  faded->setAlpha(0.5);
  addColouredView(CGRectMake(5, 5, 20, 10), UIColor::colorWithRed(0, 0, 0, 1), faded.get());
  auto label = std::make_shared<UILabel>(CGRectMake(100, 40, 100, 30));
  label->setText("Tavrel 12:34");
  label->setTextColor(UIColor::colorWithRed(1, 1, 1, 0.8));
  game()->view()->addSubview(label);

  EXPECT_EQ(compositeAndCompare(), "");
  // One texture a store; the plain backgrounds are quads of one colour.
  EXPECT_EQ(host_->textures(), 4u);
  EXPECT_EQ(host_->uploads(), 4u);

  // The label moves, partly off the screen: nothing goes up.
  label->setFrame(CGRectMake(-30, 80, 100, 30));
  EXPECT_EQ(compositeAndCompare(), "");
  EXPECT_EQ(host_->uploads(), 4u);

  // Its text changes: its store alone goes up, once.
  label->setText("Tavrel 12:35");
  const std::uint64_t bytes = host_->bytesUploaded();
  EXPECT_EQ(compositeAndCompare() + compositeAndCompare(), "");
  EXPECT_EQ(host_->uploads(), 5u);
  EXPECT_EQ(host_->bytesUploaded() - bytes, 100u * 30 * 4);

  // A flattened subtree that changes, wider now, is drawn and goes up again.
  framed->setBackgroundColor(UIColor::colorWithRed(0, 0, 1, 0.6));
  framed->setFrame(CGRectMake(10, 60, 50, 30));
  EXPECT_EQ(compositeAndCompare(), "");
  framed->setFrame(CGRectMake(10, 60, 50, 36));  // and taller
  EXPECT_EQ(compositeAndCompare(), "");
  // A removed view's texture goes.
  label->removeFromSuperview();
  EXPECT_EQ(compositeAndCompare(), "");
  EXPECT_EQ(host_->textures(), 3u);
}

// `others`: the programs and vertex arrays alive; the game here has none of its own.
std::multiset<GLint> liveTextureFilters(int* others) {
  std::multiset<GLint> filters;
  *others = 0;
  for (GLuint name = 1; name < 64; ++name) {
    *others += glIsProgram(name) + glIsVertexArray(name);
    if (!glIsTexture(name)) continue;
    GLint filter = 0;
    glBindTexture(GL_TEXTURE_2D, name);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filter);
    filters.insert(filter);
  }
  return filters;
}

TEST_P(OpenGLHostTest, smoothsAFrameOfAnotherHeightAndReleasesAllItMade) {
  auto label = std::make_shared<UILabel>(CGRectMake(0, 0, 100, 30));
  label->setText("squeezed");
  game()->view()->addSubview(label);
  host_->resize(CGSizeMake(100, 100), 200, 100);  // a frame 200 high in a framebuffer 100 high
  host_->composite();
  int others = 0;
  EXPECT_EQ(liveTextureFilters(&others), (std::multiset<GLint>{GL_NEAREST, GL_LINEAR})) << "the white texel, the label";
  host_->releaseGL();
  host_->composite();  // nothing, once released
  EXPECT_TRUE(liveTextureFilters(&others).empty());
  EXPECT_EQ(others, 0);
}

TEST_P(OpenGLHostTest, laysTheToolkitOutAgainForANewWindowOrScale) {
  testing::ResizingHost resizing{[&](testing::ScreenChange to) {
                                   const auto width = static_cast<int>(to.size.width * to.scale);
                                   const auto height = static_cast<int>(to.size.height * to.scale);
                                   context_->resize(width, height);
                                   host_->resize(to.size, width, height);
                                 },
                                 [&] { EXPECT_EQ(compositeAndCompare(), ""); }};
  testing::resizeThroughLoginAndPlay(sim(), resizing, {{320, 480}, 2}, {{480, 320}});
}

// Everything a game may have set that the compositor touches, read back the way a game would.
using GLState = std::map<GLenum, std::vector<GLint>>;

GLState readState(bool es) {
  GLState state;
  std::vector<std::pair<GLenum, int>> integers = {
      {GL_ACTIVE_TEXTURE, 1}, {GL_CURRENT_PROGRAM, 1}, {GL_VERTEX_ARRAY_BINDING, 1}, {GL_ARRAY_BUFFER_BINDING, 1},
      {GL_ELEMENT_ARRAY_BUFFER_BINDING, 1}, {GL_PIXEL_UNPACK_BUFFER_BINDING, 1}, {GL_DRAW_FRAMEBUFFER_BINDING, 1},
      {GL_READ_FRAMEBUFFER_BINDING, 1}, {GL_VIEWPORT, 4}, {GL_SCISSOR_BOX, 4}, {GL_COLOR_WRITEMASK, 4},
      {GL_BLEND_SRC_RGB, 1}, {GL_BLEND_DST_RGB, 1}, {GL_BLEND_SRC_ALPHA, 1}, {GL_BLEND_DST_ALPHA, 1},
      {GL_BLEND_EQUATION_RGB, 1}, {GL_BLEND_EQUATION_ALPHA, 1}, {GL_UNPACK_ROW_LENGTH, 1}, {GL_UNPACK_SKIP_ROWS, 1},
      {GL_UNPACK_SKIP_PIXELS, 1}, {GL_UNPACK_ALIGNMENT, 1}, {GL_UNPACK_IMAGE_HEIGHT, 1}, {GL_UNPACK_SKIP_IMAGES, 1}};
  if (!es) integers.insert(integers.end(), {{GL_POLYGON_MODE, 2}, {GL_UNPACK_SWAP_BYTES, 1}, {GL_UNPACK_LSB_FIRST, 1}});
  for (const auto& [name, count] : integers) {
    state[name].resize(static_cast<std::size_t>(count));
    glGetIntegerv(name, state[name].data());
  }
  for (GLenum unit : {GL_TEXTURE3, GL_TEXTURE0}) {
    glActiveTexture(unit);
    state[unit] = {0, 0};
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &state[unit][0]);
    glGetIntegerv(GL_SAMPLER_BINDING, &state[unit][1]);
  }
  glActiveTexture(static_cast<GLenum>(state[GL_ACTIVE_TEXTURE][0]));
  std::vector<GLenum> enables = {GL_BLEND, GL_CULL_FACE, GL_DEPTH_TEST, GL_STENCIL_TEST, GL_SCISSOR_TEST,
                                 GL_RASTERIZER_DISCARD, GL_SAMPLE_ALPHA_TO_COVERAGE, GL_POLYGON_OFFSET_FILL};
  if (!es) enables.insert(enables.end(), {GL_FRAMEBUFFER_SRGB, GL_COLOR_LOGIC_OP});
  for (GLenum name : enables) state[name] = {glIsEnabled(name)};
  return state;
}

// The enumerants whose values differ, in hex; empty when none does.
std::string changed(const GLState& before, const GLState& after) {
  std::ostringstream names;
  for (const auto& [name, value] : before) {
    if (after.at(name) != value) names << std::hex << "0x" << name << " ";
  }
  return names.str();
}

TEST_P(OpenGLHostTest, leavesEveryPieceOfTheGamesStateAsItFoundIt) {
  const bool es = GetParam() == EglContext::Kind::ES30;
  auto block = addColouredView(CGRectMake(20, 20, 40, 40), UIColor::colorWithRed(1, 0, 1, 0.7));
  auto label = std::make_shared<UILabel>(CGRectMake(100, 10, 90, 20));
  label->setText("before");
  block->addSubview(label);
  // A game mid-frame: its own objects bound and odd settings everywhere (freed with the context).
  std::array<GLuint, 3> names{};
  glGenTextures(2, names.data());
  glActiveTexture(GL_TEXTURE3);
  glBindTexture(GL_TEXTURE_2D, names[1]);
  glActiveTexture(GL_TEXTURE0);
  glBindTexture(GL_TEXTURE_2D, names[0]);
  glGenSamplers(1, names.data());
  glSamplerParameteri(names[0], GL_TEXTURE_MIN_FILTER, GL_NEAREST_MIPMAP_NEAREST);  // would leave our textures black
  glBindSampler(0, names[0]);
  glGenVertexArrays(1, names.data());
  glBindVertexArray(names[0]);
  glGenBuffers(3, names.data());
  for (int i = 0; i < 3; ++i) glBindBuffer(std::array{GL_ARRAY_BUFFER, GL_ELEMENT_ARRAY_BUFFER, GL_PIXEL_UNPACK_BUFFER}[i], names[i]);
  glBufferData(GL_PIXEL_UNPACK_BUFFER, 64, nullptr, GL_STREAM_DRAW);
  const std::string version = es ? "#version 300 es\nprecision mediump float;\n" : "#version 330 core\n";
  const GLuint program = glCreateProgram();
  for (auto [kind, body] : {std::pair{GL_VERTEX_SHADER, "void main() { gl_Position = vec4(0.0); }"},
                            std::pair{GL_FRAGMENT_SHADER, "out vec4 c;\nvoid main() { c = vec4(1.0); }"}}) {
    const GLuint shader = glCreateShader(kind);
    const std::string text = version + body;
    const char* source = text.c_str();
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    glAttachShader(program, shader);
  }
  glLinkProgram(program);
  glUseProgram(program);
  for (auto [name, value] : {std::pair{GL_UNPACK_ROW_LENGTH, 7}, {GL_UNPACK_SKIP_ROWS, 3}, {GL_UNPACK_SKIP_PIXELS, 2},
                             {GL_UNPACK_ALIGNMENT, 1}, {GL_UNPACK_IMAGE_HEIGHT, 5}, {GL_UNPACK_SKIP_IMAGES, 1}}) glPixelStorei(name, value);
  if (!es) {
    glPixelStorei(GL_UNPACK_SWAP_BYTES, GL_TRUE);
    glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
    glEnable(GL_FRAMEBUFFER_SRGB);
    glEnable(GL_COLOR_LOGIC_OP);
  }
  glViewport(5, 6, 70, 80);
  glScissor(1, 2, 3, 4);
  glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_FALSE);
  glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE, GL_ZERO, GL_DST_COLOR);
  glBlendEquationSeparate(GL_FUNC_SUBTRACT, GL_MAX);
  for (GLenum name : {GL_CULL_FACE, GL_DEPTH_TEST, GL_STENCIL_TEST, GL_POLYGON_OFFSET_FILL, GL_SAMPLE_ALPHA_TO_COVERAGE}) glEnable(name);
  const GLState before = readState(es);

  // Every store up, then one again and a move, then nothing: three ways through.
  for (int frame = 0; frame < 3; ++frame) {
    if (frame == 1) block->setFrame(CGRectMake(100, 30, 40, 40)), label->setText("after");
    host_->composite();
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR)) << "frame " << frame;
    EXPECT_EQ(changed(before, readState(es)), "") << "frame " << frame;
  }
  // And the picture comes out right under all of it, once the game's clears work again.
  glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
  if (!es) glDisable(GL_COLOR_LOGIC_OP);
  EXPECT_EQ(compositeAndCompare(), "");
}

TEST_P(OpenGLHostTest, fromCTakesOpenGLHostsOnlyAndComposites) {
  tavrel_host* host = nullptr;
  ASSERT_EQ(tavrel_opengl_host_new(eglGetProcAddress, 200, 100, 200, 100, &host), TAVREL_OK);
  EXPECT_EQ(tavrel_opengl_resize(host, 1, 1, 1, 1), TAVREL_OK);  // the smallest window
  EXPECT_EQ(tavrel_opengl_resize(host, 100, 50, 200, 100), TAVREL_OK);
  EXPECT_EQ(tavrel_opengl_composite(host), TAVREL_OK);
  EXPECT_EQ(tavrel_opengl_release_gl(host), TAVREL_OK);
  EXPECT_EQ(tavrel_opengl_resize(host, 0, 50, 200, 100), TAVREL_ERROR_OUT_OF_RANGE);
  tavrel_host_free(host);
  tavrel_host* other = nullptr;
  ASSERT_EQ(tavrel_host_new(200, 100, 1, nullptr, nullptr, &other), TAVREL_OK);
  EXPECT_EQ(tavrel_opengl_composite(other), TAVREL_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(tavrel_opengl_composite(nullptr), TAVREL_ERROR_NULL_ARGUMENT);
  tavrel_host_free(other);
}

INSTANTIATE_TEST_SUITE_P(Contexts, OpenGLHostTest, ::testing::Values(EglContext::Kind::Core33, EglContext::Kind::ES30),
                         [](const auto& info) { return info.param == EglContext::Kind::ES30 ? "ES30" : "Core33"; });

}  // namespace
}  // namespace tavrel
