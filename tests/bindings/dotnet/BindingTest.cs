// Exit status 0 when every check held against the `tavrel serve` named by the TAVREL_* variables.
//   mono binding_test.exe declarations  the binding's declarations, for drift_test.py
using System;
using System.Collections.Generic;
using System.Linq;
using System.Reflection;
using System.Runtime.InteropServices;
using System.Text.RegularExpressions;
using System.Threading;
using Tavrel;

static class BindingTest {
  static int failures;
  static readonly List<string> logged = new List<string>();
  static readonly int mainThread = Thread.CurrentThread.ManagedThreadId;
  static readonly string validLaunchUrl =
      "dotnettest://validate?launchToken=" + Environment.GetEnvironmentVariable("TAVREL_VALID_TOKEN");

  static void Expect(bool condition, string what) {
    if (condition) return;
    ++failures;
    Console.WriteLine("FAILED: " + what);
  }

  static int Main(string[] args) {
    if (args.Length > 0 && args[0] == "declarations") {
      PrintDeclarations();
      return 0;
    }
    TavrelSdk.SetLogToStderr(false);
    TavrelSdk.SetLogHandler(logged.Add);
    TavrelSdk.SetDocumentsDirectory(Environment.GetEnvironmentVariable("TAVREL_DOCUMENTS"));
    TavrelSdk.SetTrustedCertificatesFile(Environment.GetEnvironmentVariable("TAVREL_CA_FILE"));
    TavrelSdk.SetServiceBaseUrlForTesting(Environment.GetEnvironmentVariable("TAVREL_SERVICE_URL"));

    Host host = Host.Create(320, 480, 1.5);
    host.Install();
    Screen screen = Screen.Create();
    TavrelSdk.InitialiseOverlay(screen, null);
    Refusals();
    TextBothWays(host);
    TheFrame(host);
    CompletionOnTheMainThread();
    HandlesReleasedOnce();
    Console.WriteLine(failures == 0 ? "PASSED" : "FAILED");
    return failures == 0 ? 0 : 1;
  }

  // What the call threw, null when nothing; a refusal carries the line the library logged.
  static Exception Thrown(Action call) {
    try {
      call();
      return null;
    } catch (Exception e) {
      var refused = e as TavrelException;
      Expect(refused == null || (e.Message == refused.LogLine && refused.LogLine.StartsWith("tavrel_")),
             "the log line in the exception: " + e.Message);
      return e;
    }
  }

  static Status? StatusOf(Action call) { return (Thrown(call) as TavrelException)?.Status; }

  static bool Until(Func<bool> condition) {
    for (var end = DateTime.UtcNow.AddSeconds(20); !condition() && DateTime.UtcNow < end;) TavrelSdk.RunMainLoopFor(0.02);
    return condition();
  }

  // Refusals as exceptions with the line the library logged, from the loop when it arose on another thread.
  static void Refusals() {
    Expect(StatusOf(() => TavrelSdk.SetDocumentsDirectory(null)) == Status.NullArgument, "null as NULL");
    Expect(StatusOf(() => TavrelSdk.RunMainLoopFor(-1)) == Status.OutOfRange, "the loop's refusal");
    Expect(StatusOf(() => TavrelSdk.EmitInputEvent(new[] { 2, 0 })) == Status.InvalidArgument, "the words counted");
    Expect(StatusOf(() => TavrelSdk.EmitInputEvent(new[] { 1, 7 })) == null, "a record framed right");

    Action visible = () => { var v = TavrelSdk.IsLoginPageVisible; };
    var thread = new Thread(() => Expect(StatusOf(visible) == Status.WrongThread, "a main-thread call from another thread"));
    thread.Start();
    thread.Join();
    logged.Clear();
    TavrelSdk.RunMainLoopFor(0);
    Expect(logged.Any(line => line.StartsWith("tavrel_is_login_page_visible: ")), "that refusal's line, from the loop");

    // A lone surrogate cannot cross as UTF-8: refused before the library is called.
    Expect(Thrown(() => TavrelSdk.EmitGameEvent("\ud800", "broken")) is ArgumentException, "a string with no UTF-8 form");
  }

  // The struct as C lays it out (the login page is up): damage, and a copy of the frame's pixels.
  static void TheFrame(Host host) {
    host.Resize(300, 480, 1.5);  // a new size draws the whole frame
    Frame frame = host.RenderFrame();
    Expect(frame.Width == 450 && frame.Height == 720 && frame.Stride >= 450 * 4 && frame.Scale == 1.5,
           string.Format("a frame of 450 x 720 at 1.5, got {0} x {1} at {2}", frame.Width, frame.Height, frame.Scale));
    Rect whole = frame.Damage(frame.DamageCount - 1);
    Expect(frame.DamageCount == 1 && whole.X == 0 && whole.Y == 0 && whole.Width == 450 && whole.Height == 720,
           "the whole frame damaged after a resize");

    var copy = new byte[frame.Stride * 720];
    var pixels = new byte[copy.Length];
    frame.CopyPixels(PixelFormat.BgraPremultiplied, true, copy, frame.Stride);
    Marshal.Copy(frame.Pixels, pixels, 0, pixels.Length);
    Expect(copy.SequenceEqual(pixels) && copy.Any(b => b != 0), "the copy holds the frame's own pixels");
    var tooShort = new byte[copy.Length - 1];
    Action copyShort = () => frame.CopyPixels(PixelFormat.BgraPremultiplied, true, tooShort, frame.Stride);
    Expect(Thrown(copyShort) is ArgumentException, "a buffer short of a frame is refused");
    Expect(Thrown(() => frame.Damage(1)) is ArgumentOutOfRangeException, "no damage beyond the count");

    byte[] png = host.RenderPng();
    Expect(png[1] == 'P' && png[19] == 450 % 256 && png[23] == 720 % 256 && png[png.Length - 7] == 'E', "the whole PNG");
  }

  // Non-ASCII text in (a token, typed keys) and out (the user id, the view tree, a log line).
  static void TextBothWays(Host host) {
    const string userId = "joueur-Ünïcødé-玩家-ßø-ÆŒ!";
    TavrelSdk.SetAuthToken(new string('t', 24) + userId);
    Expect(TavrelSdk.UserId == userId, "the user id back: " + TavrelSdk.UserId);

    TavrelSdk.ShowLoginPage(null);
    // At rest once its view's frame starts at the top of the screen.
    var arrived = new Regex("\"LoginViewController\"[^\\]]*?\"frame\": \\[\\s*0\\.0,\\s*0\\.0,");
    Expect(Until(() => arrived.IsMatch(TavrelSdk.DumpViewTree())), "the login page slid in");
    Expect(host.TapElement("Tavrel username") && host.TypeText("Zoë-ゲーマー"), "keys to the page's field");
    Expect(TavrelSdk.DumpViewTree().Contains("\"Zoë-ゲーマー\""), "the typed text in the view tree");
    var error = Thrown(() => host.WritePng("/nonexistent-dir/é.png")) as TavrelException;
    Expect(error != null && error.LogLine.EndsWith("/nonexistent-dir/é.png"), "the path in the log line");
  }

  // A valid token's completion (which also takes the page away) arises on the URL session's
  // thread; it must reach the game once per yes, on its main thread, even when a collection ran
  // while it waited. The second time it throws, out of the game's loop.
  static void CompletionOnTheMainThread() {
    var calls = new List<int>();
    Validate(calls);
    for (int yes = 1; yes <= 2; ++yes) {
      // The service has answered this yes: the reply waits for the loop meanwhile.
      var log = Environment.GetEnvironmentVariable("TAVREL_SERVE_LOG");
      for (var end = DateTime.UtcNow.AddSeconds(20); DateTime.UtcNow < end && Regex.Matches(
               System.IO.File.ReadAllText(log), "GET /m/launch/project/validate 200").Count < yes;) Thread.Sleep(20);
      GC.Collect();
      GC.WaitForPendingFinalizers();
      bool thrown = Thrown(() => Until(() => calls.Count >= yes)) is InvalidOperationException;
      TavrelSdk.RunMainLoopFor(0.3);
      Expect(calls.Count == yes && calls.All(thread => thread == mainThread), "one call on the main thread a yes");
      Expect(thrown == (yes == 2), "the completion's exception from the loop");
      if (yes == 1) TavrelSdk.ProcessUrlRequest(validLaunchUrl);
    }
  }

  // The delegate made here is referenced by the binding alone once this returns.
  static void Validate(List<int> calls) {
    TavrelSdk.ProcessUrlRequest(validLaunchUrl);
    TavrelSdk.Validate(ok => {
      calls.Add(ok ? Thread.CurrentThread.ManagedThreadId : -1);
      if (calls.Count == 2) throw new InvalidOperationException("thrown by the game");
    });
  }

  static void HandlesReleasedOnce() {
    Host current = Host.Current();
    current.Dispose();
    current.Dispose();
    Abandon();
    GC.Collect();
    GC.WaitForPendingFinalizers();
    logged.Clear();
    TavrelSdk.RunMainLoopFor(0.05);
    Expect(logged.Count == 0, "a collected handle released on the main thread: " + string.Join("; ", logged));
  }

  static void Abandon() { Host.Current(); }

  // The binding's declarations for the drift check, one a line: kind, name, then its types (result
  // and parameters, or the fields in their order) or an enum's constants as Name=value.
  static void PrintDeclarations() {
    var tavrel = typeof(TavrelSdk).Assembly;
    var native = tavrel.GetType("Tavrel.Native", true);
    foreach (var m in native.GetMethods(BindingFlags.Static | BindingFlags.NonPublic)) {
      var import = (DllImportAttribute)m.GetCustomAttributes(typeof(DllImportAttribute), false).FirstOrDefault();
      if (import != null) Print("functions", import.EntryPoint ?? m.Name, Signature(m));
    }
    foreach (var t in native.GetNestedTypes(BindingFlags.NonPublic).Where(t => t.IsSubclassOf(typeof(Delegate))))
      Print("callbacks", t.Name, Signature(t.GetMethod("Invoke")));
    foreach (var t in new[] { typeof(Status), typeof(PixelFormat), tavrel.GetType("Tavrel.CallbackDelivery", true) })
      Print("enums", t.Name, Enum.GetNames(t).Select(n => n + "=" + Convert.ToInt64(Enum.Parse(t, n))));
    foreach (var t in new[] { typeof(Rect), typeof(Finger), typeof(Frame) }) {
      var fields = t.GetFields(BindingFlags.Instance | BindingFlags.Public | BindingFlags.NonPublic);
      var inOrder = fields.OrderBy(f => Marshal.OffsetOf(t, f.Name).ToInt64());
      Print("structs", t.Name, inOrder.Select(f => f.FieldType.Name));
    }
  }

  static void Print(string kind, string name, IEnumerable<string> items) {
    Console.WriteLine(kind + " " + name + " " + string.Join(" ", items));
  }

  static IEnumerable<string> Signature(MethodInfo method) {
    return new[] { method.ReturnParameter }.Concat(method.GetParameters()).Select(TypeName);
  }

  // The type as marshalled: "Boolean:I1" for a bool that crosses as one byte.
  static string TypeName(ParameterInfo parameter) {
    var marshal = parameter.GetCustomAttributes(typeof(MarshalAsAttribute), false).Cast<MarshalAsAttribute>().FirstOrDefault();
    return parameter.ParameterType.Name + (marshal != null ? ":" + marshal.Value : "");
  }
}
