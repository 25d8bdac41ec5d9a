#include "login/login_background.hpp"
#include "platform/base64.hpp"

#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavrel {
namespace {

TEST(Base64Decoding, SkipsUnknownCharactersOnlyWhenAskedAndRejectsBadPadding) {
  struct Case {
    const char* text;
    bool ignoreUnknown;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"TWFu", false, "Man"},
      {"TWE=", false, "Ma"},
      {"TQ==", false, "M"},
      {"", false, ""},
      {"AAECAwQF/v8=", false, std::string("\x00\x01\x02\x03\x04\x05\xFE\xFF", 8)},
      {"+/+/", false, "\xFB\xFF\xBF"},
      {"TW\nFu", false, std::nullopt},  // a line break is an unknown character like any other
      {"TW\nFu", true, "Man"},
      {" T*W\r\nF-u\xC3\xA9", true, "Man"},
      {"TQ=\n=", true, "M"},
      {"TWF", true, std::nullopt},  // three characters, four needed
      {"TWFu=", false, std::nullopt},
      {"TQ=A", false, std::nullopt},  // a character after padding
      {"TQ==TWFu", true, std::nullopt},
      {"T===", false, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(dataWithBase64EncodedString(c.text, c.ignoreUnknown), c.expected) << c.text << " " << c.ignoreUnknown;
  }
}

struct Picture {
  png_uint_32 width = 0, height = 0;
  int bitDepth = 0, colorType = 0, interlace = 0;
  png_uint_32 profileLength = 0;
  std::string profileStart;  // the ICC header's first 40 bytes
  std::vector<std::uint8_t> rgba;
};

void readFromString(png_structp png, png_bytep out, png_size_t length) {
  auto* in = static_cast<std::string_view*>(png_get_io_ptr(png));
  if (in->size() < length) png_error(png, "cut short");
  std::copy_n(in->data(), length, out);
  in->remove_prefix(length);
}

// libpng reports errors by longjmp: no object with a destructor lives in this frame.
bool readPng(std::string_view* data, Picture* out) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    return false;
  }
  png_set_read_fn(png, data, readFromString);
  png_read_info(png, info);
  png_get_IHDR(png, info, &out->width, &out->height, &out->bitDepth, &out->colorType, &out->interlace, nullptr,
               nullptr);
  png_charp name = nullptr;
  png_bytep profile = nullptr;
  int compression = 0;
  if (png_get_iCCP(png, info, &name, &compression, &profile, &out->profileLength) != 0) {
    out->profileStart.assign(reinterpret_cast<const char*>(profile), std::min<png_uint_32>(out->profileLength, 40));
  }
  out->rgba.resize(static_cast<std::size_t>(out->width) * out->height * 4);
  for (png_uint_32 y = 0; y < out->height; ++y) png_read_row(png, &out->rgba[y * out->width * 4], nullptr);
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return true;
}

std::vector<std::string> chunkTypes(const std::string& png) {
  std::vector<std::string> types;
  std::size_t at = 8;
  while (at + 12 <= png.size()) {
    const auto byte = [&](std::size_t i) { return static_cast<std::size_t>(static_cast<unsigned char>(png[at + i])); };
    types.push_back(png.substr(at + 4, 4));
    at += 12 + (byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3));
  }
  EXPECT_EQ(at, png.size()) << "the last chunk ends the file";
  return types;
}

using Mean = std::array<double, 3>;

void expectNear(const Mean& actual, const Mean& expected, double tolerance, const char* what) {
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(actual[c], expected[c], tolerance) << what << ", channel " << c;
}

TEST(LoginBackground, IsTheDescribedPicture) {
  const std::string_view text = loginBackgroundBase64();
  ASSERT_EQ(text.size(), 290'456u);
  const auto png = dataWithBase64EncodedString(text, /*ignoreUnknownCharacters=*/true);
  ASSERT_TRUE(png);
  EXPECT_EQ(dataWithBase64EncodedString(text, false), png) << "one line of pure base64, nothing to ignore";

  ASSERT_EQ(png->size(), 217'841u);
  ASSERT_EQ(png->substr(0, 8), "\x89PNG\r\n\x1A\n");
  std::vector<std::string> expectedChunks = {"IHDR", "iCCP", "bKGD", "oFFs", "pHYs"};
  expectedChunks.insert(expectedChunks.end(), 7, "IDAT");
  expectedChunks.push_back("IEND");
  EXPECT_EQ(chunkTypes(*png), expectedChunks);

  std::string_view data = *png;
  Picture picture;
  ASSERT_TRUE(readPng(&data, &picture));
  EXPECT_EQ(picture.width, 320u);
  EXPECT_EQ(picture.height, 480u);
  EXPECT_EQ(picture.bitDepth, 8);
  EXPECT_EQ(picture.colorType, PNG_COLOR_TYPE_RGBA);
  EXPECT_EQ(picture.interlace, PNG_INTERLACE_NONE);
  ASSERT_EQ(picture.profileStart.size(), 40u) << "an ICC profile that libpng accepts";
  EXPECT_EQ(picture.profileStart.substr(12, 12), "mntrRGB XYZ ");
  EXPECT_EQ(picture.profileStart.substr(36, 4), "acsp");

  // Means per region, alpha per row, and the lines: pixels well above their row's mean, which
  // grain alone never is. The charcoal is plain above the soft seam between the two.
  constexpr int kWidth = 320, kHeight = 480, kTopThird = kHeight / 3;
  Mean all{}, top{}, lower{};
  int lineCharcoal = 0, lineLower = 0;
  for (int y = 0; y < kHeight; ++y) {
    Mean row{};
    for (int x = 0; x < kWidth; ++x) {
      const std::uint8_t* pixel = &picture.rgba[(y * kWidth + x) * 4];
      ASSERT_EQ(pixel[3], y == 0 ? 182 : 255) << "alpha at " << x << ", " << y;
      for (int c = 0; c < 3; ++c) row[c] += pixel[c] / double(kWidth);
    }
    for (int x = 0; x < kWidth; ++x) {
      if (picture.rgba[(y * kWidth + x) * 4] <= row[0] + 8) continue;
      if (y < kTopThird * 3 / 4) ++lineCharcoal;
      if (y >= kTopThird) ++lineLower;
    }
    for (int c = 0; c < 3; ++c) {
      all[c] += row[c] / kHeight;
      (y < kTopThird ? top : lower)[c] += row[c] / (y < kTopThird ? kTopThird : kHeight - kTopThird);
    }
  }
  expectNear(all, {73, 52, 42}, 1.0, "whole picture");
  expectNear(top, {38, 38, 37}, 1.5, "top third, charcoal");
  expectNear(lower, {95, 60, 45}, 5.0, "lower two thirds, brown");
  EXPECT_EQ(lineCharcoal, 0);
  const double lineShare = lineLower / double(kWidth * (kHeight - kTopThird));
  EXPECT_GT(lineShare, 0.02);
  EXPECT_LT(lineShare, 0.25) << "fine lines, not bands";
}

}  // namespace
}  // namespace tavrel
