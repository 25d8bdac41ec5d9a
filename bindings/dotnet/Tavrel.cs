// Tavrel.cs: the tavrel_sdk library for C# games (Unity, Godot C#, Mono) over its C interface,
// tavrel.h, in one file of C# 7.3.
//
// Two layers: Native mirrors tavrel.h one to one (a test holds it against the header); TavrelSdk,
// Screen, Host and Frame are the game's interface. A refusal throws TavrelException; completions
// and log lines reach the game on its main thread, inside TavrelSdk.RunMainLoopFor, which the
// game calls once per frame of its own loop.
using System;
using System.Collections.Generic;
using System.Runtime.ExceptionServices;
using System.Runtime.InteropServices;
using System.Text;
using System.Threading;

#if !UNITY_5_3_OR_NEWER
namespace AOT {
  // Unity declares it; IL2CPP recognises it by name and accepts reverse P/Invoke only into
  // static methods that carry it.
  [AttributeUsage(AttributeTargets.Method)]
  internal sealed class MonoPInvokeCallbackAttribute : Attribute {
    public MonoPInvokeCallbackAttribute(Type type) { Type = type; }
    public Type Type { get; private set; }
  }
}
#endif

namespace Tavrel {
  using AOT;

  public enum Status {
    Ok = 0,
    NullArgument = -1,
    InvalidUtf8 = -2,
    OutOfRange = -3,
    InvalidArgument = -4,
    WrongThread = -5,
    NotReady = -6,
    TooLate = -7,
    Failed = -8,
  }

  public enum PixelFormat {
    // Unity's TextureFormat.BGRA32.
    BgraPremultiplied = 0,
    RgbaPremultiplied = 1,
    RgbaStraight = 2,
  }

  internal enum CallbackDelivery {
    WhereTheyArise = 0,
    OnMainLoop = 1,
  }

  // A call the library refused or could not do: its status, and the line it logged.
  public sealed class TavrelException : Exception {
    public TavrelException(Status status, string logLine)
        : base(logLine.Length > 0 ? logLine : TavrelSdk.StatusText(status)) {
      Status = status;
      LogLine = logLine;
    }
    public Status Status { get; private set; }
    public string LogLine { get; private set; }
  }

  [StructLayout(LayoutKind.Sequential)]
  public struct Rect {
    public int X, Y, Width, Height;
  }

  // A finger at a point of the screen, in points; Id stays the same from down to up.
  [StructLayout(LayoutKind.Sequential)]
  public struct Finger {
    public int Id;
    public double X, Y;
    public Finger(int id, double x, double y) { Id = id; X = x; Y = y; }
  }

  // A rendered frame: Pixels are the host's own premultiplied B, G, R, A bytes (no copy), valid
  // until the host renders again, as are the damaged rectangles.
  [StructLayout(LayoutKind.Sequential)]
  public struct Frame {
    public IntPtr Pixels;
    public int Width, Height;
    public int Stride;  // bytes from one row to the next
    public double Scale;
    private IntPtr damage;
    private UIntPtr damageCount;

    public int DamageCount { get { return (int)damageCount; } }

    public Rect Damage(int index) {
      if (index < 0 || index >= DamageCount) throw new ArgumentOutOfRangeException("index");
      return Marshal.PtrToStructure<Rect>(damage + index * Marshal.SizeOf(typeof(Rect)));
    }

    // Copies the damaged rectangles (all of the frame when whole) into a buffer of Width x Height
    // pixels kept from frame to frame, converted in the library (no loop over pixels here).
    public void CopyPixels(PixelFormat format, bool whole, byte[] buffer, int stride) {
      if (buffer == null) throw new ArgumentNullException("buffer");
      if ((long)stride * Height > buffer.Length) throw new ArgumentException("buffer is smaller than stride x Height");
      TavrelSdk.Check(Native.tavrel_frame_copy_pixels(ref this, format, whole, buffer, stride));
    }

    // The same into native memory the caller sized (a Unity NativeArray's pointer, say).
    public void CopyPixels(PixelFormat format, bool whole, IntPtr buffer, int stride) {
      TavrelSdk.Check(Native.tavrel_frame_copy_pixels(ref this, format, whole, buffer, stride));
    }
  }

  // The game's screen, made once a host is installed; keep it while the game runs.
  public sealed class Screen : SafeHandle {
    private Screen() : base(IntPtr.Zero, true) {}
    public override bool IsInvalid { get { return handle == IntPtr.Zero; } }
    protected override bool ReleaseHandle() { return TavrelSdk.Release(handle, Native.tavrel_screen_free); }

    public static Screen Create() {
      Screen screen;
      TavrelSdk.Check(Native.tavrel_screen_new(out screen));
      TavrelSdk.NoteMainThread();
      return screen;
    }
  }

  // The screen's size and scale, frames out, the player's input in. Every call: main thread.
  public sealed class Host : SafeHandle {
    private Host() : base(IntPtr.Zero, true) {}
    public override bool IsInvalid { get { return handle == IntPtr.Zero; } }
    protected override bool ReleaseHandle() { return TavrelSdk.Release(handle, Native.tavrel_host_free); }

    // Frames are taken with RenderFrame, so the host needs no frame callback.
    public static Host Create(double width, double height, double scale) {
      Host host;
      TavrelSdk.Check(Native.tavrel_host_new(width, height, scale, IntPtr.Zero, IntPtr.Zero, out host));
      TavrelSdk.NoteMainThread();
      return host;
    }

    public static Host Current() {
      Host host;
      TavrelSdk.Check(Native.tavrel_host_current(out host));
      TavrelSdk.NoteMainThread();
      return host;
    }

    // Before Screen.Create.
    public void Install() { TavrelSdk.Check(Native.tavrel_install_host(this)); }

    public void GetScreenSize(out double width, out double height, out double scale) {
      TavrelSdk.Check(Native.tavrel_host_screen_size(this, out width, out height, out scale));
    }

    public void Resize(double width, double height, double scale) {
      TavrelSdk.Check(Native.tavrel_host_resize(this, width, height, scale));
    }

    public Frame RenderFrame() {
      Frame frame;
      TavrelSdk.Check(Native.tavrel_host_render_frame(this, out frame));
      return frame;
    }

    // The whole frame as a PNG (RGBA, straight alpha).
    public byte[] RenderPng() {
      IntPtr data;
      UIntPtr size;
      TavrelSdk.Check(Native.tavrel_host_render_png(this, out data, out size));
      try {
        var png = new byte[(long)size];
        Marshal.Copy(data, png, 0, png.Length);
        return png;
      } finally {
        Native.tavrel_free(data);
      }
    }

    public void WritePng(string path) { TavrelSdk.Check(Native.tavrel_host_write_png(this, TavrelSdk.Utf8(path))); }

    // Each returns whether the library took the input (a page or alert covers the game): the
    // game then ignores it.
    public bool FingersDown(params Finger[] fingers) { return Fingers(Native.tavrel_host_fingers_down, fingers); }
    public bool FingersMoved(params Finger[] fingers) { return Fingers(Native.tavrel_host_fingers_moved, fingers); }
    public bool FingersUp(params Finger[] fingers) { return Fingers(Native.tavrel_host_fingers_up, fingers); }
    public bool FingersCancelled(params Finger[] fingers) { return Fingers(Native.tavrel_host_fingers_cancelled, fingers); }

    public bool TypeText(string text) {
      bool taken;
      TavrelSdk.Check(Native.tavrel_host_type_text(this, TavrelSdk.Utf8(text), out taken));
      return taken;
    }

    public bool PressReturn() {
      bool taken;
      TavrelSdk.Check(Native.tavrel_host_press_return(this, out taken));
      return taken;
    }

    public bool PressBackspace() {
      bool taken;
      TavrelSdk.Check(Native.tavrel_host_press_backspace(this, out taken));
      return taken;
    }

    // For scripts and tests: taps the frontmost element showing this text; false when none does.
    public bool TapElement(string text) {
      bool tapped;
      TavrelSdk.Check(Native.tavrel_host_tap_element(this, TavrelSdk.Utf8(text), out tapped));
      return tapped;
    }

    public bool IsCovered {
      get {
        bool covered;
        TavrelSdk.Check(Native.tavrel_host_is_covered(this, out covered));
        return covered;
      }
    }

    private delegate Status FingersCall(Host host, Finger[] fingers, UIntPtr count, out bool taken);

    private bool Fingers(FingersCall call, Finger[] fingers) {
      bool taken;
      TavrelSdk.Check(call(this, fingers, (UIntPtr)(fingers == null ? 0 : fingers.Length), out taken));
      return taken;
    }
  }

  public static class TavrelSdk {
    // Completions and log lines from other threads wait for the game's loop: a thread the
    // runtime does not know never enters it.
    static TavrelSdk() { Check(Native.tavrel_set_callback_delivery(CallbackDelivery.OnMainLoop)); }

    public static string StatusText(Status status) { return FromUtf8(Native.tavrel_status_text(status)); }

    // The line the last refused call on this thread logged; "" when none.
    public static string LastError() { return TextOut(Native.tavrel_last_error); }

    // --- Set-up -------------------------------------------------------------------------------

    public static void SetDocumentsDirectory(string path) { Check(Native.tavrel_set_documents_directory(Utf8(path))); }
    public static void SetInfoDictionaryJson(string json) { Check(Native.tavrel_set_info_dictionary_json(Utf8(json))); }
    // Tests and local integration only (a mock service on 127.0.0.1).
    public static void SetTrustedCertificatesFile(string pemPath) {
      Check(Native.tavrel_set_trusted_certificates_file(Utf8(pemPath)));
    }
    public static void SetServiceBaseUrlForTesting(string baseUrl) {
      Check(Native.tavrel_set_service_base_url_for_testing(Utf8(baseUrl)));
    }

    // Every line the library logs, on the main thread; null stops them.
    public static void SetLogHandler(Action<string> handler) {
      logHandler = handler;
      Native.tavrel_set_log_callback(handler == null ? null : logEntry, IntPtr.Zero);
    }
    public static void SetLogToStderr(bool enabled) { Native.tavrel_set_log_to_stderr(enabled); }

    // The game's loop, once per frame: the library's timers and main-queue work, and the
    // completions and log lines that arose elsewhere. An exception one of them threw comes out here.
    public static void RunMainLoopFor(double seconds) {
      NoteMainThread();
      ReleaseQueued();
      Check(Native.tavrel_run_main_loop_for(seconds));
      RethrowFromCallback();
    }

    // --- The session --------------------------------------------------------------------------

    public static void SetAuthToken(string token) { Check(Native.tavrel_set_auth_token(Utf8(token))); }
    public static string Timestamp { get { return TextOut(Native.tavrel_get_timestamp); } }
    public static string UserId { get { return TextOut(Native.tavrel_get_user_id); } }
    public static void ProcessUrlRequest(string url) { Check(Native.tavrel_process_url_request(Utf8(url))); }

    // A null screen stands for the last screen made.
    public static void SetViewController(Screen screen) { WithScreen(screen, Native.tavrel_set_view_controller); }
    public static void ShowOverlay(Screen screen) { WithScreen(screen, Native.tavrel_show_overlay); }
    public static void InitialiseOverlay(Screen screen, string token) {
      var bytes = Utf8(token);
      WithScreen(screen, handle => Native.tavrel_initialise_overlay(handle, bytes));
    }
    public static void ShowTouches() { Check(Native.tavrel_show_touches()); }
    public static void ShowWatermark() { Check(Native.tavrel_show_watermark()); }

    // completion(true) when the session may go on, on the main thread; again for each later
    // launch URL whose token is valid, so it is kept for the life of the process.
    public static void Validate(Action<bool> completion) {
      Check(Native.tavrel_validate(completion == null ? null : completionEntry, Keep(completion, true)));
    }
    // completion(true) once, after a login through the page.
    public static void ShowLoginPage(Action<bool> completion) {
      Check(Native.tavrel_show_login_page(completion == null ? null : completionEntry, Keep(completion, false)));
    }
    public static void DismissLoginPage() { Check(Native.tavrel_dismiss_login_page()); }
    public static bool IsLoginPageVisible {
      get {
        bool visible;
        Check(Native.tavrel_is_login_page_visible(out visible));
        return visible;
      }
    }

    public static void EmitGameEvent(string data, string name) {
      Check(Native.tavrel_emit_game_event(Utf8(data), Utf8(name)));
    }
    // words[0] is the number of words after it. Any thread.
    public static void EmitInputEvent(int[] words) {
      if (words == null) throw new ArgumentNullException("words");
      // By reference to the first word: Mono passes it as a pointer, with no array marshalling.
      int none = 0;
      if (words.Length == 0) Check(Native.tavrel_emit_input_event(ref none, UIntPtr.Zero));
      else Check(Native.tavrel_emit_input_event(ref words[0], (UIntPtr)words.Length));
    }

    public static void Terminate() { Native.tavrel_terminate(); }
    public static void TerminateWithPopup() { Check(Native.tavrel_terminate_with_popup()); }

    // The key window's view tree as JSON.
    public static string DumpViewTree() {
      IntPtr json;
      Check(Native.tavrel_dump_view_tree(out json));
      try {
        return FromUtf8(json);
      } finally {
        Native.tavrel_free(json);
      }
    }

    // --- Between C# and C ---------------------------------------------------------------------

    internal static void Check(Status status) {
      if (status != Status.Ok) throw new TavrelException(status, LastError());
    }

    // Strict: a string with a lone surrogate is refused here rather than sent altered.
    private static readonly UTF8Encoding utf8 = new UTF8Encoding(false, true);

    internal static byte[] Utf8(string text) {
      if (text == null) return null;
      var bytes = new byte[utf8.GetByteCount(text) + 1];
      utf8.GetBytes(text, 0, text.Length, bytes, 0);
      return bytes;
    }

    internal static string FromUtf8(IntPtr text) {
      if (text == IntPtr.Zero) return null;
      int length = 0;
      while (Marshal.ReadByte(text, length) != 0) ++length;
      var bytes = new byte[length];
      Marshal.Copy(text, bytes, 0, length);
      return utf8.GetString(bytes);
    }

    private delegate int TextInto(byte[] buffer, UIntPtr size);

    // snprintf's convention: ask for the length, then fill a buffer of that size.
    private static string TextOut(TextInto call) {
      int length = call(null, UIntPtr.Zero);
      var bytes = new byte[length + 1];
      length = Math.Min(call(bytes, (UIntPtr)bytes.Length), length);
      return utf8.GetString(bytes, 0, length);
    }

    private static void WithScreen(Screen screen, Func<IntPtr, Status> call) {
      if (screen == null) {
        Check(call(IntPtr.Zero));
        return;
      }
      bool added = false;
      try {
        screen.DangerousAddRef(ref added);
        Check(call(screen.DangerousGetHandle()));
      } finally {
        if (added) screen.DangerousRelease();
      }
    }

    // --- Handles: released on the main thread -------------------------------------------------

    private static int mainThread = -1;
    private static readonly List<KeyValuePair<IntPtr, Action<IntPtr>>> released =
        new List<KeyValuePair<IntPtr, Action<IntPtr>>>();

    internal static void NoteMainThread() {
      Interlocked.CompareExchange(ref mainThread, Thread.CurrentThread.ManagedThreadId, -1);
    }

    // A handle the finaliser collects is released from the game's next loop: the library frees
    // views on the main thread only.
    internal static bool Release(IntPtr handle, Action<IntPtr> free) {
      if (Thread.CurrentThread.ManagedThreadId == mainThread) {
        free(handle);
      } else {
        lock (released) released.Add(new KeyValuePair<IntPtr, Action<IntPtr>>(handle, free));
      }
      return true;
    }

    private static void ReleaseQueued() {
      KeyValuePair<IntPtr, Action<IntPtr>>[] due;
      lock (released) {
        if (released.Count == 0) return;
        due = released.ToArray();
        released.Clear();
      }
      foreach (var entry in due) entry.Value(entry.Key);
    }

    // --- Callbacks ----------------------------------------------------------------------------

    // Held in static fields, so the delegates native code holds are never collected.
    private static readonly Native.tavrel_completion completionEntry = OnCompletion;
    private static readonly Native.tavrel_log_callback logEntry = OnLog;
    private static Action<string> logHandler;

    private sealed class Kept {
      public Action<bool> Completion;
      public bool Repeats;
    }
    private static readonly Dictionary<long, Kept> kept = new Dictionary<long, Kept>();
    private static long nextKey;

    // The key native code gives back as user data: the delegate stays reachable through it.
    private static IntPtr Keep(Action<bool> completion, bool repeats) {
      if (completion == null) return IntPtr.Zero;
      lock (kept) {
        kept[++nextKey] = new Kept { Completion = completion, Repeats = repeats };
        return new IntPtr(nextKey);
      }
    }

    [ThreadStatic] private static ExceptionDispatchInfo thrownInCallback;

    [MonoPInvokeCallback(typeof(Native.tavrel_completion))]
    private static void OnCompletion(bool ok, IntPtr key) {
      Kept entry;
      lock (kept) {
        if (!kept.TryGetValue((long)key, out entry)) return;
        if (!entry.Repeats) kept.Remove((long)key);
      }
      Guard(() => entry.Completion(ok));
    }

    [MonoPInvokeCallback(typeof(Native.tavrel_log_callback))]
    private static void OnLog(IntPtr line, IntPtr unused) {
      var handler = logHandler;
      if (handler != null) Guard(() => handler(FromUtf8(line)));
    }

    // An exception must not unwind through the library's frames: it is kept for the game's call.
    private static void Guard(Action call) {
      try {
        call();
      } catch (Exception e) {
        if (thrownInCallback == null) thrownInCallback = ExceptionDispatchInfo.Capture(e);
      }
    }

    private static void RethrowFromCallback() {
      var thrown = thrownInCallback;
      thrownInCallback = null;
      if (thrown != null) thrown.Throw();
    }
  }

  // tavrel.h one to one. Strings are NUL-terminated UTF-8 byte arrays, bools one byte.
  internal static class Native {
    private const string Library = "tavrel_sdk";

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    internal delegate void tavrel_completion([MarshalAs(UnmanagedType.I1)] bool ok, IntPtr userData);
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    internal delegate void tavrel_log_callback(IntPtr line, IntPtr userData);

    [DllImport(Library)] internal static extern IntPtr tavrel_status_text(Status status);
    [DllImport(Library)] internal static extern void tavrel_free(IntPtr memory);
    [DllImport(Library)] internal static extern Status tavrel_set_documents_directory(byte[] path);
    [DllImport(Library)] internal static extern Status tavrel_set_info_dictionary_json(byte[] json);
    [DllImport(Library)] internal static extern Status tavrel_set_trusted_certificates_file(byte[] pemPath);
    [DllImport(Library)] internal static extern Status tavrel_set_service_base_url_for_testing(byte[] baseUrl);
    [DllImport(Library)] internal static extern void tavrel_set_log_callback(tavrel_log_callback callback, IntPtr userData);
    [DllImport(Library)] internal static extern void tavrel_set_log_to_stderr([MarshalAs(UnmanagedType.I1)] bool enabled);
    [DllImport(Library)] internal static extern int tavrel_last_error(byte[] buffer, UIntPtr size);
    [DllImport(Library)] internal static extern Status tavrel_set_callback_delivery(CallbackDelivery delivery);
    [DllImport(Library)] internal static extern Status tavrel_run_main_loop_for(double seconds);
    [DllImport(Library)] internal static extern Status tavrel_screen_new(out Screen screen);
    [DllImport(Library)] internal static extern void tavrel_screen_free(IntPtr screen);
    [DllImport(Library)] internal static extern Status tavrel_set_auth_token(byte[] token);
    [DllImport(Library)] internal static extern int tavrel_get_timestamp(byte[] buffer, UIntPtr size);
    [DllImport(Library)] internal static extern int tavrel_get_user_id(byte[] buffer, UIntPtr size);
    [DllImport(Library)] internal static extern Status tavrel_process_url_request(byte[] url);
    [DllImport(Library)] internal static extern Status tavrel_set_view_controller(IntPtr screen);
    [DllImport(Library)] internal static extern Status tavrel_show_overlay(IntPtr screen);
    [DllImport(Library)] internal static extern Status tavrel_initialise_overlay(IntPtr screen, byte[] token);
    [DllImport(Library)] internal static extern Status tavrel_show_touches();
    [DllImport(Library)] internal static extern Status tavrel_show_watermark();
    [DllImport(Library)] internal static extern Status tavrel_validate(tavrel_completion completion, IntPtr userData);
    [DllImport(Library)] internal static extern Status tavrel_show_login_page(tavrel_completion completion, IntPtr userData);
    [DllImport(Library)] internal static extern Status tavrel_dismiss_login_page();
    [DllImport(Library)] internal static extern Status tavrel_is_login_page_visible([MarshalAs(UnmanagedType.I1)] out bool visible);
    [DllImport(Library)] internal static extern Status tavrel_emit_game_event(byte[] data, byte[] name);
    [DllImport(Library)] internal static extern Status tavrel_emit_input_event(ref int words, UIntPtr count);
    [DllImport(Library)] internal static extern void tavrel_terminate();
    [DllImport(Library)] internal static extern Status tavrel_terminate_with_popup();
    [DllImport(Library)]
    internal static extern Status tavrel_frame_copy_pixels(ref Frame frame, PixelFormat format,
        [MarshalAs(UnmanagedType.I1)] bool whole, byte[] pixels, int stride);
    [DllImport(Library, EntryPoint = "tavrel_frame_copy_pixels")]
    internal static extern Status tavrel_frame_copy_pixels(ref Frame frame, PixelFormat format,
        [MarshalAs(UnmanagedType.I1)] bool whole, IntPtr pixels, int stride);
    [DllImport(Library)]
    internal static extern Status tavrel_host_new(double width, double height, double scale, IntPtr onFrame,
        IntPtr userData, out Host host);
    [DllImport(Library)] internal static extern Status tavrel_host_current(out Host host);
    [DllImport(Library)] internal static extern void tavrel_host_free(IntPtr host);
    [DllImport(Library)] internal static extern Status tavrel_install_host(Host host);
    [DllImport(Library)]
    internal static extern Status tavrel_host_screen_size(Host host, out double width, out double height, out double scale);
    [DllImport(Library)] internal static extern Status tavrel_host_resize(Host host, double width, double height, double scale);
    [DllImport(Library)] internal static extern Status tavrel_host_render_frame(Host host, out Frame frame);
    [DllImport(Library)] internal static extern Status tavrel_host_render_png(Host host, out IntPtr data, out UIntPtr size);
    [DllImport(Library)] internal static extern Status tavrel_host_write_png(Host host, byte[] path);
    [DllImport(Library)]
    internal static extern Status tavrel_host_fingers_down(Host host, Finger[] fingers, UIntPtr count,
        [MarshalAs(UnmanagedType.I1)] out bool taken);
    [DllImport(Library)]
    internal static extern Status tavrel_host_fingers_moved(Host host, Finger[] fingers, UIntPtr count,
        [MarshalAs(UnmanagedType.I1)] out bool taken);
    [DllImport(Library)]
    internal static extern Status tavrel_host_fingers_up(Host host, Finger[] fingers, UIntPtr count,
        [MarshalAs(UnmanagedType.I1)] out bool taken);
    [DllImport(Library)]
    internal static extern Status tavrel_host_fingers_cancelled(Host host, Finger[] fingers, UIntPtr count,
        [MarshalAs(UnmanagedType.I1)] out bool taken);
    [DllImport(Library)]
    internal static extern Status tavrel_host_type_text(Host host, byte[] utf8, [MarshalAs(UnmanagedType.I1)] out bool taken);
    [DllImport(Library)]
    internal static extern Status tavrel_host_press_return(Host host, [MarshalAs(UnmanagedType.I1)] out bool taken);
    [DllImport(Library)]
    internal static extern Status tavrel_host_press_backspace(Host host, [MarshalAs(UnmanagedType.I1)] out bool taken);
    [DllImport(Library)]
    internal static extern Status tavrel_host_tap_element(Host host, byte[] text, [MarshalAs(UnmanagedType.I1)] out bool tapped);
    [DllImport(Library)]
    internal static extern Status tavrel_host_is_covered(Host host, [MarshalAs(UnmanagedType.I1)] out bool covered);
    [DllImport(Library)] internal static extern Status tavrel_dump_view_tree(out IntPtr json);
  }
}
