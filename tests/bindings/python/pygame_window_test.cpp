#include "support/window_session.hpp"

#include <filesystem>

namespace tavrel::testing {
namespace {

TEST_F(ExampleWindowTest, pygameGameLogsInAndRecordsThePlay) {
  // Alone on its X server; xdotool does not read the title SDL sets, but reads the class.
  if (!launch("pygame_game", {"/usr/bin/python3", sourcePath("examples/pygame_game/main.py")}, false,
               "--classname '^main.py$'")) {
    return;
  }
  EXPECT_TRUE(shows("page.png", [&] { return loginButtonShown() && count(isGround) == 0; }));
  ASSERT_NO_FATAL_FAILURE(logIn());
  ASSERT_TRUE(fingerDown({280, 510}, {300, 520}));
  EXPECT_TRUE(shows("played.png", [&] { return isMarked(shot_.at(300, 520)) && count(isWhite) > 10 && count(isGround) > 80000; }));
  fingerUp();

  // The game's events (its own "jump" for the press) and the finger's records, in their files.
  const auto recorded = [&] {
    std::string events;
    bool touches = false;
    for (const auto& file : std::filesystem::directory_iterator(work_.path() + "/documents")) {
      const std::string content = readFile(file.path());
      touches = touches || (content.starts_with("INP\x02") && content.size() > 4);
      events += content;
    }
    return touches && events.find("start") != std::string::npos && events.find("jump") != std::string::npos;
  };
  EXPECT_TRUE(waitUntil(recorded)) << logs();
}

}  // namespace
}  // namespace tavrel::testing
