// quitting_game BASE_URL CA_FILE DOCUMENTS_DIR WAIT_MS return|exit|exit-thread|terminate

#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>

#include <cstdlib>
#include <string>
#include <thread>

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  const std::string base = argv[1];
  const std::string how = argv[5];
  const double wait = std::atof(argv[4]) / 1000.0;

  auto& platform = tavrel::Platform::current();
  platform.setTrustedCertificatesFile(argv[2]);
  platform.setServiceBaseUrlForTesting(base);
  platform.setDocumentsDirectory(argv[3]);
  platform.setLogToStderr(false);

  auto screen = std::make_shared<tavrel::UIWindow>();
  screen->setRootViewController(std::make_shared<tavrel::UIViewController>());
  screen->makeKeyAndVisible();

  const std::string token = "quitting-game-000000000000player-quit-00000000001";
  auto& sdk = tavrel::TavrelSDK::sharedInstance();
  sdk.initialiseOverlay(screen->rootViewController(), token);
  sdk.showWatermark();
  sdk.showTouches();
  sdk.processUrlRequest("game://validate?launchToken=" + token + "&gameEventUrl=" + base + "/g.evt");
  sdk.emitGameEvent("level-1", "start");
  sdk.validate([](bool) {});

  platform.runMainLoopFor(wait);
  if (how == "return") return 0;
  if (how == "exit") std::exit(0);
  if (how == "terminate") sdk.terminate();
  if (how == "exit-thread") std::thread([] { std::exit(0); }).detach();
  for (;;) platform.runMainLoopFor(1.0);
}
