#include <tavrel_sdk/ui/image.hpp>

#include "login/login_background.hpp"
#include "platform/base64.hpp"

#include <cairo.h>
#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
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
      {"TWFu", false, "Man"}, {"TWE=", false, "Ma"}, {"TQ==", false, "M"}, {"", false, ""},
      {"+/+/", false, "\xFB\xFF\xBF"},
      {"AAECAwQF/v8=", false, std::string("\x00\x01\x02\x03\x04\x05\xFE\xFF", 8)},
      {"TW\nFu", false, std::nullopt},  // a line break is an unknown character like any other
      {"TW\nFu", true, "Man"}, {" T*W\r\nF-u\xC3\xA9", true, "Man"}, {"TQ=\n=", true, "M"},
      {"TWF", true, std::nullopt},  // three characters, four needed
      {"TWFu=", false, std::nullopt}, {"TQ=A", false, std::nullopt}, {"TQ==TWFu", true, std::nullopt},
      {"T===", false, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(dataWithBase64EncodedString(c.text, c.ignoreUnknown), c.expected) << c.text << " " << c.ignoreUnknown;
  }
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

TEST(LoginBackground, IsTheDescribedPicture) {
  const std::string_view text = loginBackgroundBase64();
  ASSERT_EQ(text.size(), 290'456u);
  const auto png = dataWithBase64EncodedString(text, /*ignoreUnknownCharacters=*/false);
  ASSERT_TRUE(png) << "one line of pure base64, nothing to ignore";
  ASSERT_EQ(png->size(), 217'841u);
  std::vector<std::string> expectedChunks = {"IHDR", "iCCP", "bKGD", "oFFs", "pHYs"};
  expectedChunks.insert(expectedChunks.end(), 7, "IDAT");
  expectedChunks.push_back("IEND");
  EXPECT_EQ(chunkTypes(*png), expectedChunks);
  EXPECT_EQ(png->substr(24, 5), std::string("\x08\x06\x00\x00\x00", 5)) << "8 bits, RGBA, not interlaced";

  const auto image = UIImage::imageWithData(*png);
  ASSERT_TRUE(image);
  constexpr int kWidth = 320, kHeight = 480, kTopThird = kHeight / 3;
  ASSERT_EQ(image->size(), CGSizeMake(kWidth, kHeight));
  cairo_surface_flush(image->surface());
  const auto* data = cairo_image_surface_get_data(image->surface());
  const int stride = cairo_image_surface_get_stride(image->surface());
  // Means per region, and the lines: pixels well above their row's mean, which grain alone
  // never is. The charcoal is plain above the soft seam between the two.
  using Mean = std::array<double, 3>;
  Mean all{}, top{}, lower{};
  int lineCharcoal = 0, lineLower = 0;
  for (int y = 0; y < kHeight; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(data + y * stride);
    Mean mean{};
    for (int x = 0; x < kWidth; ++x) {
      ASSERT_EQ(row[x] >> 24, y == 0 ? 182u : 255u) << "alpha at " << x << ", " << y;
      for (int c = 0; c < 3; ++c) mean[c] += (row[x] >> (16 - 8 * c) & 0xFF) / double(kWidth);
    }
    for (int x = 0; y > 0 && x < kWidth; ++x) {
      if ((row[x] >> 16 & 0xFF) <= mean[0] + 8) continue;
      lineCharcoal += y < kTopThird * 3 / 4;
      lineLower += y >= kTopThird;
    }
    for (int c = 0; c < 3; ++c) {
      all[c] += mean[c] / kHeight;
      (y < kTopThird ? top : lower)[c] += mean[c] / (y < kTopThird ? kTopThird : kHeight - kTopThird);
    }
  }
  for (int c = 0; c < 3; ++c) {
    EXPECT_NEAR(all[c], (Mean{73, 52, 42}[c]), 1.0) << "whole picture, channel " << c;
    EXPECT_NEAR(top[c], (Mean{38, 38, 37}[c]), 1.5) << "top third, charcoal, channel " << c;
    EXPECT_NEAR(lower[c], (Mean{95, 60, 45}[c]), 5.0) << "lower two thirds, brown, channel " << c;
  }
  EXPECT_EQ(lineCharcoal, 0);
  const double lineShare = lineLower / double(kWidth * (kHeight - kTopThird));
  EXPECT_GT(lineShare, 0.02);
  EXPECT_LT(lineShare, 0.25) << "fine lines, not bands";
}

}  // namespace
}  // namespace tavrel
