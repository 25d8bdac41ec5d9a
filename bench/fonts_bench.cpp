// The first text drawn after start-up, with the faces the library carries (memory files; the
// bold one waits until a bold font is asked for) against the same two faces read from font files
// on disk at start-up, as the toolkit once loaded the machine's. Each
// round starts from nothing: new memory files or new file names, so that no cache of Cairo or
// fontconfig keyed by file name serves a later round.

#include "bare_pango.hpp"
#include "bench_support.hpp"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

namespace tavrel {
namespace {

const std::string kWatermark = "2026:03:09T14:05:33+01:00-no-user-id";

// The overlay's first frame on a phone: the watermark, three times.
void firstFrame(bench::BarePango& pango) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 390, 844);
  cairo_t* cr = cairo_create(surface);
  for (double y : {200.0, 400.0, 600.0}) pango.draw(cr, kWatermark, 10.0, y);
  cairo_surface_flush(surface);
  benchmark::DoNotOptimize(cairo_image_surface_get_data(surface));
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void writeFile(const std::string& path, std::span<const unsigned char> bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                             static_cast<std::streamsize>(bytes.size()));
}

void BM_FirstTextAfterStartUp(benchmark::State& state) {
  const auto directory = std::filesystem::temp_directory_path() / ("tavrel-fonts-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(directory);
  std::vector<std::unique_ptr<text::EmbeddedFaces>> kept;  // fds stay unique across rounds
  std::vector<double> embedded, files;
  int round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string regular = (directory / ("DejaVuSans-" + std::to_string(round) + ".ttf")).string();
    const std::string bold = (directory / ("DejaVuSans-Bold-" + std::to_string(round) + ".ttf")).string();
    writeFile(regular, text::faceBytes(text::Face::Regular));
    writeFile(bold, text::faceBytes(text::Face::Bold));
    ++round;
    state.ResumeTiming();

    // Alternate which goes first, so that neither always pays for what the other left warm.
    const auto fromMemory = [&] {
      const double start = bench::threadCpuNanoseconds();
      kept.push_back(std::make_unique<text::EmbeddedFaces>());
      bench::BarePango pango(10.0, kept.back()->makeConfig(false, false));
      firstFrame(pango);
      embedded.push_back(bench::threadCpuNanoseconds() - start);
    };
    const auto fromFiles = [&] {
      const double start = bench::threadCpuNanoseconds();
      FcConfig* config = FcConfigCreate();
      FcConfigAppFontAddFile(config, reinterpret_cast<const FcChar8*>(regular.c_str()));
      FcConfigAppFontAddFile(config, reinterpret_cast<const FcChar8*>(bold.c_str()));
      bench::BarePango pango(10.0, config, "DejaVu Sans");
      firstFrame(pango);
      files.push_back(bench::threadCpuNanoseconds() - start);
    };
    if (round % 2 == 0) {
      fromMemory();
      fromFiles();
    } else {
      fromFiles();
      fromMemory();
    }
  }
  std::filesystem::remove_all(directory);
  // CPU time of this thread, medians: a shared machine's load spreads wall times widely.
  const double fromMemory = median(embedded), fromFiles = median(files);
  state.counters["embedded_ms"] = fromMemory / 1e6;
  state.counters["files_ms"] = fromFiles / 1e6;
  state.counters["x_files"] = fromMemory / fromFiles;
}
BENCHMARK(BM_FirstTextAfterStartUp)->Iterations(60)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel
