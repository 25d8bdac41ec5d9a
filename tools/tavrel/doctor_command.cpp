// tavrel doctor [--url URL] [--ca-file FILE] [--check NAME]... [--json]: what the library needs on
// this machine, one line per check. Needed by every game: the Documents directory, the CA bundle,
// the service (with --url) and the faces carried in the library. Wanted only by some games: a
// display (a window host), OpenGL and Vulkan (the compositors), fallback fonts (scripts beyond
// DejaVu Sans). Exit status 0 when every needed check passed, 1 otherwise.

#include "commands.hpp"
#include "doctor_probes.hpp"

#include <tavrel_sdk/platform.hpp>

#include "platform/files.hpp"
#include "ui/embedded_fonts.hpp"

#include <curl/curl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <iostream>
#include <memory>
#include <optional>

namespace tavrel::cli {
namespace {

struct Check {
  explicit Check(std::string checkName, bool neededByEveryGame = true)
      : name(std::move(checkName)), needed(neededByEveryGame) {}
  std::string name;
  bool needed;
  bool ok = false;
  std::string detail;
  std::string fix;  // empty when ok
};

struct Options {
  std::string url;
  std::string caFile;
  std::vector<std::string> only;
  bool json = false;
};

Check documentsCheck() {
  Check check("documents");
  const std::string directory = Platform::current().documentsDirectory();
  check.fix = "set TAVREL_DOCUMENTS to a directory this user can write, or make " + directory + " writable by it";
  struct stat st {};
  if (::stat(directory.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    check.detail = directory + ": cannot be made";
    return check;
  }
  const std::string probe = appendingPathComponent(directory, ".tavrel-doctor-" + std::to_string(getpid()));
  if (!createFileAtPath(probe, "probe")) {
    check.detail = directory + ": files cannot be created there";
    return check;
  }
  const bool readBack = readWholeFile(probe).data == "probe";
  const bool ownerOnly = ::stat(probe.c_str(), &st) == 0 && (st.st_mode & 0777) == 0600;
  ::unlink(probe.c_str());
  if (!readBack || !ownerOnly) {
    check.detail = directory + ": a file made there " + (readBack ? "is not readable and writable by its owner only" : "does not read back");
    return check;
  }
  check.ok = true;
  check.detail = directory + ": files are made there readable and writable by their owner only";
  check.fix.clear();
  return check;
}

// The bundle libcurl is built to trust, unless the game names its own (`caFile`).
Check caBundleCheck(const std::string& caFile) {
  Check check("ca-bundle");
  std::string bundle = caFile;
  if (bundle.empty()) {
    CURL* easy = curl_easy_init();
    char* builtIn = nullptr;
    if (easy != nullptr && curl_easy_getinfo(easy, CURLINFO_CAINFO, &builtIn) == CURLE_OK && builtIn != nullptr) {
      bundle = builtIn;
    }
    if (easy != nullptr) curl_easy_cleanup(easy);
  }
  check.fix = caFile.empty() ? "install the distribution's CA certificates (ca-certificates on Debian, Ubuntu, Fedora "
                               "and Arch), or have the game pass its bundle to Platform::setTrustedCertificatesFile"
                             : "give the game a PEM file of the certificates its service presents";
  if (bundle.empty()) {
    check.detail = "libcurl names no CA bundle";
    return check;
  }
  const ReadResult pem = readWholeFile(bundle);
  if (pem.error) {
    check.detail = bundle + ": " + *pem.error;
    return check;
  }
  std::size_t certificates = 0;
  for (auto at = pem.data.find("-----BEGIN CERTIFICATE-----"); at != std::string::npos;
       at = pem.data.find("-----BEGIN CERTIFICATE-----", at + 1)) {
    ++certificates;
  }
  if (certificates == 0) {
    check.detail = bundle + ": holds no PEM certificate";
    return check;
  }
  check.ok = true;
  check.detail = bundle + ": " + std::to_string(certificates) + " certificates";
  check.fix.clear();
  return check;
}

Check serviceCheck(const std::string& url) {
  Check check("service");
  if (url.rfind("https://", 0) != 0) {
    check.detail = url + ": not an https URL";
    check.fix = "give the service's https URL";
    return check;
  }
  // The library's own URL session: TLS verified against the bundle it would trust.
  auto reply = std::make_shared<std::promise<UrlResponse>>();
  std::future<UrlResponse> replied = reply->get_future();
  UrlRequest request;
  request.url = url;
  Platform::current().dataTask(std::move(request), [reply](UrlResponse response) { reply->set_value(std::move(response)); });
  if (replied.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
    check.detail = url + ": no reply within 20 s";
    check.fix = "check the URL, the network and any proxy or firewall between";
    return check;
  }
  const UrlResponse response = replied.get();
  if (response.error) {
    check.detail = url + ": " + *response.error;
    const bool tls = response.error->find("certificate") != std::string::npos ||
                     response.error->find("SSL") != std::string::npos;
    check.fix = tls ? "the server's certificate is not trusted by the CA bundle above: check the URL, the clock, and "
                      "that the bundle holds the CA that signed the certificate"
                    : "check the URL, the network and any proxy or firewall between";
    return check;
  }
  check.ok = true;
  check.detail = url + ": HTTP " + std::to_string(response.statusCode) + " over TLS, certificate verified";
  return check;
}

Check probeCheck(const std::string& name, ProbeResult (*probe)(), const std::string& fix) {
  const ProbeResult result = probe();
  Check check(name, false);
  check.ok = result.ok;
  check.detail = result.detail;
  if (!result.ok) check.fix = fix;
  return check;
}

Check fontsCheck() {
  const text::FontReport report = text::fontReport();
  Check check("fonts");
  check.ok = report.embeddedFaces == 2;
  check.detail = std::to_string(report.embeddedFaces) + " of the 2 DejaVu Sans faces carried in the library load";
  if (!check.ok) check.fix = "the library's faces reach fontconfig as memory files (/proc/self/fd): mount /proc";
  return check;
}

Check fallbackFontsCheck() {
  const text::FontReport report = text::fontReport();
  Check check("fallback-fonts", false);
  check.ok = report.systemFonts > 0;
  check.detail = std::to_string(report.systemFonts) + " of the machine's fonts for characters DejaVu Sans lacks";
  if (!check.ok) {
    check.detail += ": such characters draw as boxes";
    check.fix = "install fonts for the scripts the players' names use (fonts-noto-core on Debian and Ubuntu)";
  }
  return check;
}

int run(const Options& options) {
  if (!options.caFile.empty()) Platform::current().setTrustedCertificatesFile(options.caFile);
  const auto wanted = [&](const std::string& name) {
    return options.only.empty() || std::find(options.only.begin(), options.only.end(), name) != options.only.end();
  };
  std::vector<Check> checks;
  if (wanted("documents")) checks.push_back(documentsCheck());
  if (wanted("ca-bundle")) checks.push_back(caBundleCheck(options.caFile));
  if (!options.url.empty() && wanted("service")) checks.push_back(serviceCheck(options.url));
  if (wanted("display")) {
    checks.push_back(probeCheck("display", probeDisplay,
                                "a window host needs a display: set DISPLAY or WAYLAND_DISPLAY, or run under Xvfb"));
  }
  if (wanted("opengl")) {
    checks.push_back(probeCheck("opengl", probeOpenGl,
                                "the OpenGL compositor needs EGL and an OpenGL driver (libegl1 and libgl1-mesa-dri "
                                "on Debian and Ubuntu, mesa on Fedora and Arch)"));
  }
  if (wanted("vulkan")) {
    checks.push_back(probeCheck("vulkan", probeVulkan,
                                "the Vulkan compositor needs the loader and a driver (libvulkan1 and "
                                "mesa-vulkan-drivers on Debian and Ubuntu, vulkan-icd-loader and a vulkan driver "
                                "on Fedora and Arch)"));
  }
  if (wanted("fonts")) checks.push_back(fontsCheck());
  if (wanted("fallback-fonts")) checks.push_back(fallbackFontsCheck());

  bool allNeeded = true;
  for (const Check& check : checks) allNeeded = allNeeded && (check.ok || !check.needed);
  if (options.json) {
    nlohmann::json out = {{"ok", allNeeded}, {"checks", nlohmann::json::array()}};
    for (const Check& c : checks) {
      out["checks"].push_back({{"check", c.name},
                               {"ok", c.ok},
                               {"needed", c.needed},
                               {"detail", c.detail},
                               {"fix", c.ok ? nlohmann::json(nullptr) : nlohmann::json(c.fix)}});
    }
    std::cout << out.dump(2) << "\n";
  } else {
    for (const Check& c : checks) {
      const char* status = c.ok ? "OK  " : c.needed ? "FAIL" : "WARN";
      std::cout << status << "  " << c.name << std::string(16 - std::min<std::size_t>(15, c.name.size()), ' ')
                << c.detail << (c.ok ? "" : ". Fix: " + c.fix) << "\n";
    }
    std::cout << (allNeeded ? "Everything a game needs is here (WARN: only some games need it)."
                            : "Something a game needs is missing (FAIL).")
              << "\n";
  }
  return allNeeded ? 0 : 1;
}

}  // namespace

void addDoctorCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<Options>();
  auto* doctor = app.add_subcommand("doctor", "Check what the library needs on this machine, one line each");
  doctor->add_option("--url", options->url, "also reach this service URL over TLS, verified");
  doctor->add_option("--ca-file", options->caFile,
                     "the PEM bundle the game passes to setTrustedCertificatesFile (default: libcurl's)");
  doctor->add_option("--check", options->only, "run only this check (repeatable)")
      ->check(CLI::IsMember({"documents", "ca-bundle", "service", "display", "opengl", "vulkan", "fonts",
                             "fallback-fonts"}));
  doctor->add_flag("--json", options->json, "one JSON document");
  doctor->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
