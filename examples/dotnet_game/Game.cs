// A console game in C# that runs its session under tavrel_sdk through bindings/dotnet/Tavrel.cs,
// headless, and plays the gate itself: the token it was given is refused, the login page comes,
// it types and logs in, plays with two fingers under the overlay, reports a game event, and ends
// the session through the exit alert (the process then exits with status 255).
//
//   mono dotnet_game.exe TOKEN LAUNCH_URL
//
// It writes dotnet_game_page.png (the page, typed) and dotnet_game_play.png (the play, fingers
// down) in the current directory. Environment, for tests and local integration only (a mock
// service, `tavrel serve`): TAVREL_CA_FILE, TAVREL_SERVICE_URL, TAVREL_TREE_FILE (the view tree,
// written each second); TAVREL_PLAYER (NAME:PASSWORD, ann:secret-pw when unset).
using System;
using System.Diagnostics;
using System.IO;
using System.Threading;
using Tavrel;

static class DotnetGame {
  const double Frame = 1.0 / 60;
  static string treeFile = Environment.GetEnvironmentVariable("TAVREL_TREE_FILE");
  static readonly Stopwatch clock = Stopwatch.StartNew();
  static double lastTree = -1;

  static int Main(string[] args) {
    string token = args.Length > 0 ? args[0] : "";
    string launchUrl = args.Length > 1 ? args[1] : "";
    string[] player = (Environment.GetEnvironmentVariable("TAVREL_PLAYER") ?? "ann:secret-pw").Split(new[] { ':' }, 2);

    // The host before any view: the game takes the frames (a Unity game would copy their damage
    // into its texture).
    Host host = Host.Create(390, 844, 1);
    host.Install();
    TavrelSdk.SetInfoDictionaryJson("{\"CFBundleURLTypes\": [{\"CFBundleURLSchemes\": [\"dotnetgame\"]}]}");
    string caFile = Environment.GetEnvironmentVariable("TAVREL_CA_FILE");
    string serviceUrl = Environment.GetEnvironmentVariable("TAVREL_SERVICE_URL");
    if (caFile != null) TavrelSdk.SetTrustedCertificatesFile(caFile);
    if (serviceUrl != null) TavrelSdk.SetServiceBaseUrlForTesting(serviceUrl);

    Screen screen = Screen.Create();  // kept while the game runs
    TavrelSdk.InitialiseOverlay(screen, token);
    TavrelSdk.ShowWatermark();
    TavrelSdk.ShowTouches();
    TavrelSdk.ProcessUrlRequest(launchUrl);  // the URL the game was opened with: its token
    int mainThread = Thread.CurrentThread.ManagedThreadId;
    bool validated = false;
    TavrelSdk.Validate(ok => {
      validated = ok;
      Console.WriteLine("dotnet_game: the session may go on (on the main thread: {0})",
                        Thread.CurrentThread.ManagedThreadId == mainThread);
    });

    if (!RunUntil(() => TavrelSdk.IsLoginPageVisible || validated, 20)) return Fail("neither a login page nor a yes");
    if (!validated) {
      Console.WriteLine("dotnet_game: the token was refused, the login page is up");
      RunFor(0.6);  // the page slides in
      if (!host.TapElement("Tavrel username") || !host.TypeText(player[0]) || !host.TapElement("Password") ||
          !host.TypeText(player[1])) {
        return Fail("the page's fields did not take the keys");
      }
      RunFor(0.1);
      host.WritePng("dotnet_game_page.png");
      host.TapElement("Login");
      if (!RunUntil(() => validated && !TavrelSdk.IsLoginPageVisible, 20)) return Fail("the login did not go through");
    }

    // Play: two fingers under the overlay, then a game event.
    RunFor(0.4);  // the page slides away
    var fingers = new[] { new Finger(1, 100, 300), new Finger(2, 280, 560) };
    if (host.FingersDown(fingers)) return Fail("the library took fingers meant for the game");
    for (int step = 1; step <= 10; ++step) {
      fingers[0].X += 4;
      fingers[1].Y -= 6;
      host.FingersMoved(fingers);
      RunFor(Frame);
    }
    host.WritePng("dotnet_game_play.png");
    host.FingersUp(fingers);
    TavrelSdk.EmitGameEvent("level-1", "start");
    Console.WriteLine("dotnet_game: played; fingers ended at {0:0},{1:0} and {2:0},{3:0}",
                      fingers[0].X, fingers[0].Y, fingers[1].X, fingers[1].Y);

    // The end of the session: the exit alert's OK ends the process with status 255.
    TavrelSdk.TerminateWithPopup();
    RunUntil(() => host.TapElement("OK"), 10);
    RunFor(5);
    return Fail("the exit alert did not end the session");
  }

  static int Fail(string why) {
    Console.Error.WriteLine("dotnet_game: " + why);
    return 1;
  }

  // The game's loop: a frame, then the library's main loop (completions arrive in it).
  static bool RunUntil(Func<bool> done, double seconds) {
    double end = clock.Elapsed.TotalSeconds + seconds;
    while (!done()) {
      if (clock.Elapsed.TotalSeconds > end) return false;
      RunFor(Frame);
    }
    return true;
  }

  static void RunFor(double seconds) {
    double end = clock.Elapsed.TotalSeconds + seconds;
    do {
      TavrelSdk.RunMainLoopFor(Math.Min(Frame, seconds));
      double now = clock.Elapsed.TotalSeconds;
      if (treeFile != null && now - lastTree >= 1) {
        lastTree = now;
        // Written whole, then renamed: a reader never sees half a tree.
        File.WriteAllText(treeFile + ".tmp", TavrelSdk.DumpViewTree());
        if (File.Exists(treeFile)) File.Replace(treeFile + ".tmp", treeFile, null);
        else File.Move(treeFile + ".tmp", treeFile);
      }
    } while (clock.Elapsed.TotalSeconds < end);
  }
}
