#include "ui/embedded_fonts.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

// The font files are assembled into the library's read-only data, as symbols hidden from its
// users (TAVREL_FONT_DIR comes from the build).
#define TAVREL_EMBED(symbol, file)                                   \
  __asm__(".section .rodata." #symbol ",\"a\",@progbits\n"           \
          ".globl " #symbol "\n.hidden " #symbol "\n"                \
          ".globl " #symbol "_end\n.hidden " #symbol "_end\n"        \
          ".balign 16\n" #symbol ":\n.incbin \"" TAVREL_FONT_DIR "/" file "\"\n" \
          #symbol "_end:\n.previous\n")

TAVREL_EMBED(tavrel_dejavu_sans, "DejaVuSans.ttf");
TAVREL_EMBED(tavrel_dejavu_sans_bold, "DejaVuSans-Bold.ttf");

extern "C" {
__attribute__((visibility("hidden"))) extern const unsigned char tavrel_dejavu_sans[], tavrel_dejavu_sans_end[];
__attribute__((visibility("hidden"))) extern const unsigned char tavrel_dejavu_sans_bold[],
    tavrel_dejavu_sans_bold_end[];
}

namespace tavrel::text {

namespace {

// A sealed memory file holding `bytes`, or -1.
int memoryFile(const char* name, std::span<const unsigned char> bytes) {
  const int fd = memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (fd < 0) return -1;
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + written, bytes.size() - written);
    if (n <= 0) {
      close(fd);
      return -1;
    }
    written += static_cast<std::size_t>(n);
  }
  fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
  return fd;
}

}  // namespace

std::span<const unsigned char> faceBytes(Face face) {
  if (face == Face::Bold) return {tavrel_dejavu_sans_bold, tavrel_dejavu_sans_bold_end};
  return {tavrel_dejavu_sans, tavrel_dejavu_sans_end};
}

EmbeddedFaces::~EmbeddedFaces() {
  for (const MemoryFile& file : files_) {
    if (file.fd >= 0) close(file.fd);
  }
}

const std::string& EmbeddedFaces::file(Face face) const {
  MemoryFile& file = files_[face == Face::Bold ? 1 : 0];
  std::call_once(file.made, [&] {
    file.fd = memoryFile(face == Face::Bold ? "DejaVuSans-Bold.ttf" : "DejaVuSans.ttf", faceBytes(face));
    if (file.fd >= 0) file.name = "/proc/self/fd/" + std::to_string(file.fd);
  });
  return file.name;
}

FcConfig* EmbeddedFaces::makeConfig(bool systemFonts, bool bold) const {
  FcConfig* config = systemFonts ? FcInitLoadConfigAndFonts() : nullptr;
  if (config == nullptr) config = FcConfigCreate();
  addFace(config, Face::Regular);
  if (bold) addFace(config, Face::Bold);
  return config;
}

void EmbeddedFaces::addFace(FcConfig* config, Face face) const {
  const std::string& name = file(face);
  if (name.empty()) return;
  FcConfigAppFontAddFile(config, reinterpret_cast<const FcChar8*>(name.c_str()));
  // Only our faces are in the application set: rename them there.
  if (FcFontSet* ours = FcConfigGetFonts(config, FcSetApplication)) {
    for (int i = 0; i < ours->nfont; ++i) {
      FcPatternDel(ours->fonts[i], FC_FAMILY);
      FcPatternDel(ours->fonts[i], FC_FAMILYLANG);
      FcPatternAddString(ours->fonts[i], FC_FAMILY, reinterpret_cast<const FcChar8*>(kEmbeddedFamily));
    }
  }
}

const EmbeddedFaces& embeddedFaces() {
  // Never destroyed: the font maps made of it live as long.
  static const EmbeddedFaces* faces = new EmbeddedFaces();
  return *faces;
}

FontReport fontReport() {
  FontReport report;
  FcConfig* config = embeddedFaces().makeConfig(true);
  if (FcFontSet* ours = FcConfigGetFonts(config, FcSetApplication)) report.embeddedFaces = ours->nfont;
  if (FcFontSet* system = FcConfigGetFonts(config, FcSetSystem)) report.systemFonts = system->nfont;
  FcConfigDestroy(config);
  return report;
}

}  // namespace tavrel::text
