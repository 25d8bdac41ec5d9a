#include "png_file.hpp"

#include "picture.hpp"

#include <png.h>

#include <cmath>
#include <csetjmp>
#include <stdexcept>
#include <string_view>

namespace tavrel::background {
namespace {

class Bytes {
 public:
  void u8(std::uint8_t v) { data.push_back(v); }
  void u16(std::uint16_t v) { u8(v >> 8), u8(v & 0xFF); }
  void u32(std::uint32_t v) { u16(v >> 16), u16(v & 0xFFFF); }
  void tag(std::string_view signature) { data.insert(data.end(), signature.begin(), signature.end()); }
  void s15Fixed16(double v) { u32(static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(v * 65536.0)))); }
  void zeros(std::size_t n) { data.insert(data.end(), n, 0); }
  void alignTo4() { zeros((4 - data.size() % 4) % 4); }
  void putU32At(std::size_t offset, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) data[offset + i] = static_cast<std::uint8_t>(v >> (24 - 8 * i));
  }
  std::vector<std::uint8_t> data;
};

// sRGB's tone curve. std::pow may differ in the last bit between C libraries; that changes a
// 16-bit curve value only if it lands exactly on a half.
double srgbToLinear(double v) {
  return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

void writeToString(png_structp png, png_bytep data, png_size_t length) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), length);
}
void flushNothing(png_structp) {}
void failWithMessage(png_structp png, png_const_charp message) {
  *static_cast<std::string*>(png_get_error_ptr(png)) = message;
  png_longjmp(png, 1);
}
void ignoreWarning(png_structp, png_const_charp) {}

// libpng reports errors by longjmp: nothing with a destructor may live between setjmp and the
// libpng calls, so the caller's objects come in by pointer.
bool writeWithLibpng(std::string* out, std::string* error, const std::uint8_t* rgba, int width, int height,
                     const std::vector<std::uint8_t>* profile, const FileLayout* layout) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, error, failWithMessage, ignoreWarning);
  if (png == nullptr) return false;
  png_infop info = png_create_info_struct(png);
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_set_write_fn(png, out, writeToString, flushNothing);
  png_set_compression_level(png, 9);
  png_set_compression_buffer_size(png, layout->imageDataChunkSize);
  png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE,
               PNG_FILTER_TYPE_BASE);
  png_set_iCCP(png, info, layout->profileName.c_str(), PNG_COMPRESSION_TYPE_BASE, profile->data(),
               static_cast<png_uint_32>(profile->size()));
  png_color_16 background{};
  background.red = 38, background.green = 38, background.blue = 37;  // the top third's charcoal
  png_set_bKGD(png, info, &background);
  png_set_oFFs(png, info, 0, 0, PNG_OFFSET_PIXEL);
  png_set_pHYs(png, info, 2835, 2835, PNG_RESOLUTION_METER);  // 72 dpi
  png_write_info(png, info);
  for (int y = 0; y < height; ++y) png_write_row(png, rgba + static_cast<std::size_t>(y) * width * 4);
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return true;
}

// What the iCCP chunk's compressed profile takes, found by letting libpng write it into a one-pixel file.
std::size_t compressedProfileSize(const std::vector<std::uint8_t>& profile) {
  const std::uint8_t pixel[4] = {0, 0, 0, 255};
  FileLayout layout{"p", 0, 8192};
  std::string png, error;
  if (!writeWithLibpng(&png, &error, pixel, 1, 1, &profile, &layout)) throw std::runtime_error("libpng: " + error);
  for (const auto& chunk : chunksOf(png)) {
    if (chunk.type == "iCCP") return chunk.length - layout.profileName.size() - 2;
  }
  throw std::runtime_error("libpng wrote no iCCP chunk");
}

// Profile names the search may pick, one per length: the words of a description, cut after a word.
std::vector<std::string> profileNames() {
  constexpr std::string_view kDescription = "Tavrel backdrop RGB display profile with sRGB primaries and tone curve";
  std::vector<std::string> names;
  for (std::size_t end = kDescription.find(' '); end != std::string_view::npos; end = kDescription.find(' ', end + 1)) {
    names.emplace_back(kDescription.substr(0, end));
  }
  names.emplace_back(kDescription);
  return names;
}

}  // namespace

std::vector<std::uint8_t> displayProfile(std::uint64_t seed, std::uint32_t curvePoints) {
  const std::string description = "Tavrel login backdrop, seed " + std::to_string(seed);
  const std::string copyright = "No copyright, use freely";
  Bytes p;
  p.zeros(4);  // size, filled in last
  p.zeros(4);  // preferred CMM: none
  p.u32(0x02400000);
  p.tag("mntr"), p.tag("RGB "), p.tag("XYZ ");
  for (std::uint16_t field : {2024, 1, 1, 0, 0, 0}) p.u16(field);
  p.tag("acsp");
  p.zeros(4 + 4 + 4 + 4 + 8);  // platform, flags, manufacturer, model, attributes
  p.u32(0);                    // perceptual intent
  p.s15Fixed16(0.9642), p.s15Fixed16(1.0), p.s15Fixed16(0.8249);
  p.zeros(4 + 16 + 28);  // creator, profile ID, reserved

  // Tag table first, offsets patched as the data is laid out; the three tone curves share their data.
  const std::string_view signatures[] = {"desc", "cprt", "wtpt", "rXYZ", "gXYZ", "bXYZ", "rTRC", "gTRC", "bTRC"};
  p.u32(std::size(signatures));
  const std::size_t table = p.data.size();
  for (auto signature : signatures) p.tag(signature), p.zeros(8);

  const auto place = [&](std::initializer_list<int> entries, auto&& writeData) {
    const std::size_t start = p.data.size();
    writeData();
    for (int entry : entries) {
      p.putU32At(table + 12 * entry + 4, static_cast<std::uint32_t>(start));
      p.putU32At(table + 12 * entry + 8, static_cast<std::uint32_t>(p.data.size() - start));
    }
    p.alignTo4();
  };
  place({0}, [&] {
    p.tag("desc"), p.zeros(4);
    p.u32(static_cast<std::uint32_t>(description.size() + 1));
    p.tag(description), p.u8(0);
    p.zeros(4 + 4 + 2 + 1 + 67);  // no Unicode, no ScriptCode description
  });
  place({1}, [&] { p.tag("text"), p.zeros(4), p.tag(copyright), p.u8(0); });
  const auto xyz = [&](double x, double y, double z) {
    return [&p, x, y, z] { p.tag("XYZ "), p.zeros(4), p.s15Fixed16(x), p.s15Fixed16(y), p.s15Fixed16(z); };
  };
  place({2}, xyz(0.9642, 1.0, 0.8249));
  place({3}, xyz(0.4361, 0.2225, 0.0139));
  place({4}, xyz(0.3851, 0.7169, 0.0971));
  place({5}, xyz(0.1431, 0.0606, 0.7141));
  place({6, 7, 8}, [&] {
    p.tag("curv"), p.zeros(4), p.u32(curvePoints);
    for (std::uint32_t i = 0; i < curvePoints; ++i) {
      p.u16(static_cast<std::uint16_t>(std::lround(65535.0 * srgbToLinear(i / (curvePoints - 1.0)))));
    }
  });
  p.putU32At(0, static_cast<std::uint32_t>(p.data.size()));
  return p.data;
}

std::string encodePng(const std::vector<std::uint8_t>& rgba, std::uint64_t seed, const FileLayout& layout) {
  const auto profile = displayProfile(seed, layout.curvePoints);
  std::string png, error;
  if (!writeWithLibpng(&png, &error, rgba.data(), kWidth, kHeight, &profile, &layout)) {
    throw std::runtime_error("libpng: " + error);
  }
  return png;
}

LayoutSearch exactLayout(const std::vector<std::uint8_t>& rgba, std::uint64_t seed) {
  // The pixels' compressed size does not depend on the profile, nor on where IDAT chunks split,
  // so one full encoding tells what the rest of the file must make up.
  constexpr int kUsualCurvePoints = 1024;
  const auto names = profileNames();
  FileLayout layout{names.front(), static_cast<std::uint32_t>(kUsualCurvePoints), 8192};
  const std::string first = encodePng(rgba, seed, layout);
  std::size_t imageData = 0, imageDataChunks = 0, iccp = 0;
  for (const auto& chunk : chunksOf(first)) {
    if (chunk.type == "IDAT") imageData += chunk.length, ++imageDataChunks;
    if (chunk.type == "iCCP") iccp = chunk.length;
  }
  // Everything but the iCCP chunk's data, counting seven IDAT chunk headers.
  const std::size_t rest = first.size() - iccp - 12 * imageDataChunks + 12 * kImageDataChunks;
  layout.imageDataChunkSize = (imageData + kImageDataChunks - 1) / kImageDataChunks;

  // Try curve lengths outward from the usual one until one leaves room for a profile name exactly.
  for (int step = 0; step <= 3072; ++step) {
    for (int points : {kUsualCurvePoints + step, kUsualCurvePoints - step}) {
      if (points < 256) continue;  // step 0 tries 1024 twice, harmlessly
      const std::size_t profile = compressedProfileSize(displayProfile(seed, static_cast<std::uint32_t>(points)));
      if (rest + profile + 2 >= kFileSize) continue;
      const std::size_t nameLength = kFileSize - rest - profile - 2;
      for (const auto& name : names) {
        if (name.size() == nameLength) {
          return {FileLayout{name, static_cast<std::uint32_t>(points), layout.imageDataChunkSize}, 0};
        }
      }
    }
  }
  const std::size_t usualProfile = iccp - layout.profileName.size() - 2;
  const std::size_t middleName = names[names.size() / 2].size();
  return {std::nullopt,
          static_cast<std::ptrdiff_t>(rest + usualProfile + middleName + 2) - static_cast<std::ptrdiff_t>(kFileSize)};
}

std::vector<Chunk> chunksOf(const std::string& png) {
  std::vector<Chunk> chunks;
  for (std::size_t at = 8; at + 12 <= png.size();) {
    const auto byte = [&](std::size_t i) { return static_cast<std::size_t>(static_cast<unsigned char>(png[at + i])); };
    const std::size_t length = byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
    chunks.push_back({png.substr(at + 4, 4), length});
    at += 12 + length;
  }
  return chunks;
}

}  // namespace tavrel::background
