// Reading the worked example launch URL, from its text to the dictionary of items.
// Baseline: building the same four-item dictionary from ready strings, the floor of any reader.

#include "platform/url.hpp"
#include "session/launch_url.hpp"

#include <benchmark/benchmark.h>

#include <map>
#include <string>

namespace {

const std::string kUrl =
    "mygame://validate?launchToken=TOKENPREFIX-0123456789abUSERID-0123456789abcdefg"
    "&gameEventUrl=%252Fg.evt%253Fsig%253Da%252Bb%2526exp%253D9"
    "&inputEventUrl=%2Fi.evt%3Fsig%3Dc%26exp%3D9&recordingStartedAt=500";

void BM_BaselineBuildDictionary(benchmark::State& state) {
  for (auto _ : state) {
    std::map<std::string, std::string> items;
    items.insert_or_assign("launchToken", "TOKENPREFIX-0123456789abUSERID-0123456789abcdefg");
    items.insert_or_assign("gameEventUrl", "/g.evt?sig=a%2Bb&exp=9");
    items.insert_or_assign("inputEventUrl", "/i.evt?sig=c&exp=9");
    items.insert_or_assign("recordingStartedAt", "500");
    benchmark::DoNotOptimize(items);
  }
}
BENCHMARK(BM_BaselineBuildDictionary);

void BM_ReadLaunchUrl(benchmark::State& state) {
  for (auto _ : state) {
    auto reading = tavrel::readLaunchUrl(kUrl);
    benchmark::DoNotOptimize(reading);
  }
}
BENCHMARK(BM_ReadLaunchUrl);

}  // namespace

namespace {
void BM_UrlWithStringOnly(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(tavrel::Url::URLWithString(kUrl));
}
BENCHMARK(BM_UrlWithStringOnly);
}  // namespace
