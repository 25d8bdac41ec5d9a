#pragma once

// The background's PNG file: RGBA with an ICC profile, a background colour, an offset and a
// resolution, written by libpng, and brought to an exact byte count without changing a pixel.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavrel::background {

constexpr std::size_t kFileSize = 217'841;
constexpr int kImageDataChunks = 7;

// A small display profile (ICC v2.4): sRGB primaries adapted to D50 and the sRGB tone curve
// sampled at curvePoints points.
std::vector<std::uint8_t> displayProfile(std::uint64_t seed, std::uint32_t curvePoints);

struct FileLayout {
  std::string profileName;
  std::uint32_t curvePoints = 0;
  std::size_t imageDataChunkSize = 8192;  // libpng writes an IDAT each time this much is compressed
};

// The PNG of straight RGBA pixels (kWidth x kHeight); throws std::runtime_error if libpng fails.
std::string encodePng(const std::vector<std::uint8_t>& rgba, std::uint64_t seed, const FileLayout& layout);

struct LayoutSearch {
  std::optional<FileLayout> layout;
  // Without a layout: how many bytes the compressed pixels are over (or, negative, under) what
  // suits the usual profile, for the caller to change the grain by.
  std::ptrdiff_t surplus = 0;
};
// The layout that makes the file exactly kFileSize bytes with kImageDataChunks IDAT chunks, if a
// profile name and a tone curve length within reason can absorb the difference.
LayoutSearch exactLayout(const std::vector<std::uint8_t>& rgba, std::uint64_t seed);

struct Chunk {
  std::string type;
  std::size_t length;
};
// The chunks of a PNG file, read from their length fields.
std::vector<Chunk> chunksOf(const std::string& png);

}  // namespace tavrel::background
