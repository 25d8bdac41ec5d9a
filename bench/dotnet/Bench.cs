// The binding's cost against C, both measured in this run on the same library and state
// (bench_native.c holds the C loops): best of alternating rounds, CPU time of the thread.
//   LD_LIBRARY_PATH=build:build/bench/dotnet [MONO_THREADS_SUSPEND=preemptive] mono build/bench/dotnet/dotnet_bench.exe
// Goals: a dropped tavrel_emit_input_event at most 1.5x C; a frame rendered and its damage
// copied at most 1.1x C.
using System;
using System.IO;
using System.Runtime.InteropServices;
using Tavrel;

static class DotnetBench {
  [DllImport("tavrel_dotnet_bench")] static extern double bench_thread_cpu_ns();
  [DllImport("tavrel_dotnet_bench")] static extern double bench_emit_input_events(int calls);
  [DllImport("tavrel_dotnet_bench")] static extern double bench_frames(IntPtr host, int frames, byte[] buffer, int stride);

  static int Main() {
    string documents = Path.Combine(Path.GetTempPath(), "tavrel-dotnet-bench-" + Guid.NewGuid().ToString("N"));
    TavrelSdk.SetLogToStderr(false);
    TavrelSdk.SetDocumentsDirectory(documents);
    Host host = Host.Create(390, 844, 2);
    host.Install();
    Screen screen = Screen.Create();
    TavrelSdk.InitialiseOverlay(screen, null);
    TavrelSdk.ShowTouches();
    // Recording on (its uploads go nowhere): events reach the rate limit, which drops them.
    TavrelSdk.ProcessUrlRequest("benchgame://validate?gameEventUrl=https%253A%252F%252F127.0.0.1%253A1%252Fg.evt" +
                                "&inputEventUrl=https%253A%252F%252F127.0.0.1%253A1%252Fi.evt&recordingStartedAt=" +
                                DateTimeOffset.UtcNow.ToUnixTimeMilliseconds());

    var touch = new[] { 6, 0, 6, 3, 16887, 15549, 0 };
    double cEmit = double.MaxValue, csEmit = double.MaxValue;
    const int calls = 20000;
    for (int round = 0; round < 15; ++round) {
      bench_emit_input_events(5);  // a full run: what follows within 1 s is dropped
      cEmit = Math.Min(cEmit, bench_emit_input_events(calls));
      bench_emit_input_events(5);
      double start = bench_thread_cpu_ns();
      for (int i = 0; i < calls; ++i) TavrelSdk.EmitInputEvent(touch);
      csEmit = Math.Min(csEmit, (bench_thread_cpu_ns() - start) / calls);
    }

    var finger = new[] { new Finger(1, 100, 300) };
    host.FingersDown(finger);
    Frame frame = host.RenderFrame();
    int stride = frame.Width * 4;
    var cBuffer = new byte[stride * frame.Height];
    var csBuffer = new byte[stride * frame.Height];
    double cFrame = double.MaxValue, csFrame = double.MaxValue;
    const int frames = 200;
    for (int round = 0; round < 10; ++round) {
      cFrame = Math.Min(cFrame, bench_frames(host.DangerousGetHandle(), frames, cBuffer, stride));
      double start = bench_thread_cpu_ns();
      for (int i = 0; i < frames; ++i) {
        finger[0].X = 100 + (i % 2) * 40;
        host.FingersMoved(finger);
        frame = host.RenderFrame();
        frame.CopyPixels(PixelFormat.BgraPremultiplied, false, csBuffer, stride);
      }
      csFrame = Math.Min(csFrame, (bench_thread_cpu_ns() - start) / frames);
    }
    Directory.Delete(documents, true);

    // Mono 6.8 suspends threads "hybrid" by default: each P/Invoke then enters and leaves a
    // GC-safe region. MONO_THREADS_SUSPEND=preemptive is the classic mode without that step.
    Console.WriteLine("Mono thread suspend: " + (Environment.GetEnvironmentVariable("MONO_THREADS_SUSPEND") ?? "default (hybrid)"));
    Report("tavrel_emit_input_event, dropped", "ns", cEmit, csEmit, 1.5);
    Report(string.Format("frame {0}x{1} rendered, damage copied", frame.Width, frame.Height), "us", cFrame / 1000, csFrame / 1000, 1.1);
    return 0;
  }

  static void Report(string what, string unit, double c, double cs, double goal) {
    Console.WriteLine("{0,-44} C {1,8:0.00} {2}   C# {3,8:0.00} {2}   C#/C {4:0.000}  (goal <= {5}) {6}",
                      what, c, unit, cs, cs / c, goal, cs / c <= goal ? "met" : "MISSED");
  }
}
