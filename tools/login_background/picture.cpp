#include "picture.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace tavrel::background {
namespace {

constexpr int kTopThirdRows = kHeight / 3;
constexpr double kLineSpacing = 9.0;  // in the field's mean steps per pixel: about the pixels between lines

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1.0p-53; }
  double between(double low, double high) { return low + (high - low) * uniform(); }
  // Zero-mean grain of unit variance: the sum of four uniforms (Irwin-Hall) is close enough to a
  // normal and, unlike std::normal_distribution, the same with every standard library.
  double grain() {
    const std::uint64_t bits = engine_();
    double sum = 0;
    for (int i = 0; i < 4; ++i) sum += static_cast<double>((bits >> (16 * i)) & 0xFFFF) / 65536.0;
    return (sum - 2.0) * 1.7320508075688772;  // sqrt(3): the sum's variance is 1/3
  }

 private:
  std::mt19937_64 engine_;
};

// sin(2 pi turns) to within 0.1%, from arithmetic alone: libm's sin may differ between machines.
double wave(double turns) {
  double x = turns - std::floor(turns + 0.5);  // [-0.5, 0.5)
  double y = 8.0 * x * (1.0 - 2.0 * std::abs(x));
  return 0.225 * (y * std::abs(y) - y) + y;
}

double smoothstep(double edge0, double edge1, double x) {
  const double t = std::clamp((x - edge0) / (edge1 - edge0), 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}

// A smooth field whose level sets are the lines: a few slow waves in random directions.
struct Field {
  struct Wave {
    double fx, fy, phase, amplitude;
  };
  std::array<Wave, 4> waves;

  explicit Field(Random& random) {
    for (std::size_t i = 0; i < waves.size(); ++i) {
      const double period = random.between(160.0, 420.0) / static_cast<double>(i + 1);
      const double angle = random.uniform();
      const double cosine = wave(angle + 0.25);
      const double sine = wave(angle);
      waves[i] = {cosine / period, sine / period, random.uniform(), 1.0 / static_cast<double>(i + 1)};
    }
  }
  double operator()(double x, double y) const {
    double value = 0.035 * y;  // a drift downward keeps the lines running mostly across
    for (const auto& w : waves) value += w.amplitude * wave(w.fx * x + w.fy * y + w.phase);
    return value;
  }
};

// The field's mean change from one pixel to the next over the lower two thirds. Spacing the
// levels by it keeps the lines about equally dense whatever the seed.
double meanSlope(const Field& field) {
  double sum = 0;
  int count = 0;
  for (int y = kTopThirdRows; y < kHeight; y += 4) {
    for (int x = 0; x < kWidth; x += 4) {
      sum += std::abs(field(x + 1.0, y) - field(x, y)) + std::abs(field(x, y + 1.0) - field(x, y));
      ++count;
    }
  }
  return sum / count;
}

// How much of a fine line covers pixel (x, y): 1 on a level of the field, falling to 0 a pixel away.
double lineCoverage(const Field& field, double levelSpacing, double x, double y) {
  const double value = field(x, y);
  const double dx = (field(x + 0.5, y) - field(x - 0.5, y));
  const double dy = (field(x, y + 0.5) - field(x, y - 0.5));
  const double slope = std::sqrt(dx * dx + dy * dy) + 1e-9;
  const double level = value / levelSpacing;
  const double distance = std::abs(level - std::floor(level + 0.5)) * levelSpacing / slope;
  return std::clamp(1.0 - distance / 0.9, 0.0, 1.0);
}

}  // namespace

std::vector<std::uint8_t> drawPicture(std::uint64_t seed, double grainScale) {
  Random random(seed);
  const Field field(random);
  const double levelSpacing = meanSlope(field) * kLineSpacing;

  // First the smooth picture as two layers per pixel, charcoal and brown, with the brown's weight;
  // then each layer is shifted so the means come out as promised, then grain is added.
  constexpr int kPixels = kWidth * kHeight;
  std::vector<Rgb> charcoal(kPixels), brown(kPixels);
  std::vector<double> brownWeight(kPixels);
  for (int y = 0; y < kHeight; ++y) {
    const double fy = (y + 0.5) / kHeight;
    const double weight = smoothstep(kTopThirdRows - 24.0, kTopThirdRows + 24.0, y + 0.5);
    const double depth = smoothstep(kTopThirdRows, kHeight, y + 0.5);  // 0 at the seam, 1 at the bottom
    for (int x = 0; x < kWidth; ++x) {
      const double fx = (x + 0.5) / kWidth - 0.5;
      const double vignette = 1.0 - 0.22 * fx * fx - 0.10 * (fy - 0.55) * (fy - 0.55);
      const double line = lineCoverage(field, levelSpacing, x + 0.5, y + 0.5) * (0.55 + 0.45 * (1.0 - depth));
      const int i = y * kWidth + x;
      charcoal[i] = {38.0 * vignette, 38.0 * vignette, 37.0 * vignette};
      brown[i] = {(99.0 - 16.0 * depth) * vignette + 26.0 * line, (63.0 - 8.0 * depth) * vignette + 17.0 * line,
                  (47.0 - 5.0 * depth) * vignette + 11.0 * line};
      brownWeight[i] = weight;
    }
  }

  // Per channel, solve for the two shifts (a for charcoal, b for brown) that make the top third's
  // mean and the whole picture's mean exact: both means are linear in a and b.
  const auto solveShifts = [&](double Rgb::*channel, double topTarget, double allTarget) {
    double topSum = 0, topBrown = 0, allSum = 0, allBrown = 0;
    for (int i = 0; i < kPixels; ++i) {
      const double w = brownWeight[i];
      const double value = (1.0 - w) * charcoal[i].*channel + w * brown[i].*channel;
      allSum += value;
      allBrown += w;
      if (i < kTopThirdRows * kWidth) {
        topSum += value;
        topBrown += w;
      }
    }
    const double topCount = kTopThirdRows * kWidth;
    const double allCount = kPixels;
    // topCount * topTarget = topSum + (topCount - topBrown) * a + topBrown * b, likewise for all.
    const double a1 = topCount - topBrown, b1 = topBrown, c1 = topCount * topTarget - topSum;
    const double a2 = allCount - allBrown, b2 = allBrown, c2 = allCount * allTarget - allSum;
    const double determinant = a1 * b2 - a2 * b1;
    return std::array<double, 2>{(c1 * b2 - c2 * b1) / determinant, (a1 * c2 - a2 * c1) / determinant};
  };
  const auto red = solveShifts(&Rgb::red, kTopThirdMean.red, kPictureMean.red);
  const auto green = solveShifts(&Rgb::green, kTopThirdMean.green, kPictureMean.green);
  const auto blue = solveShifts(&Rgb::blue, kTopThirdMean.blue, kPictureMean.blue);

  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(kPixels) * 4);
  const auto toByte = [](double value) {
    return static_cast<std::uint8_t>(std::clamp(std::floor(value + 0.5), 0.0, 255.0));
  };
  for (int i = 0; i < kPixels; ++i) {
    const double w = brownWeight[i];
    // Mostly luminance grain, as film has, with a little colour noise so flat areas do not band.
    const double grain = 1.3 * grainScale * random.grain();
    const auto channel = [&](double Rgb::*c, const std::array<double, 2>& shifts) {
      const double smooth = (1.0 - w) * (charcoal[i].*c + shifts[0]) + w * (brown[i].*c + shifts[1]);
      return toByte(smooth + grain + 0.5 * grainScale * random.grain());
    };
    rgba[4 * i + 0] = channel(&Rgb::red, red);
    rgba[4 * i + 1] = channel(&Rgb::green, green);
    rgba[4 * i + 2] = channel(&Rgb::blue, blue);
    rgba[4 * i + 3] = i < kWidth ? kFirstRowAlpha : 255;
  }
  return rgba;
}

}  // namespace tavrel::background
