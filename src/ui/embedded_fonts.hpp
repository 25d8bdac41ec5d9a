#pragma once

// The two DejaVu Sans faces the toolkit draws with, carried inside the library, and fontconfig
// sets made of them. Fontconfig, FreeType and HarfBuzz read faces by file name: each face reaches
// them as a sealed memory file named /proc/self/fd/N, so nothing is read from or written to disk
// and no font of the machine can stand in for ours.
//
// Thread safety: EmbeddedFaces may be used from any thread; a config belongs to its caller.

#include <tavrel_sdk/export.hpp>

#include <fontconfig/fontconfig.h>

#include <mutex>
#include <span>
#include <string>

namespace tavrel::text {

// The family our faces go by in our font sets: a name no installed font has, so that a DejaVu
// Sans of another version among the machine's fonts never wins over ours.
inline constexpr const char* kEmbeddedFamily = "tavrel DejaVu Sans";

enum class Face { Regular, Bold };
TAVREL_EXPORT std::span<const unsigned char> faceBytes(Face face);

class TAVREL_EXPORT EmbeddedFaces {
 public:
  EmbeddedFaces() = default;
  ~EmbeddedFaces();
  EmbeddedFaces(const EmbeddedFaces&) = delete;
  EmbeddedFaces& operator=(const EmbeddedFaces&) = delete;

  // The file name fontconfig reads `face` by, its memory file made on first use (most screens
  // draw only the regular face: the bold one costs nothing until an alert's title); empty where
  // the file cannot be made.
  const std::string& file(Face face) const;

  // A new set holding our faces alone (`bold` or the regular one only), or (`systemFonts`) the
  // machine's fonts as its fontconfig configuration finds them, with our faces added: for the
  // characters the faces lack. The caller destroys it (FcConfigDestroy).
  FcConfig* makeConfig(bool systemFonts, bool bold = true) const;
  // Adds `face` to a set made by makeConfig.
  void addFace(FcConfig* config, Face face) const;

 private:
  struct MemoryFile {
    std::once_flag made;
    int fd = -1;
    std::string name;
  };
  mutable MemoryFile files_[2];
};

// The process's faces, made on first use and kept until the end.
TAVREL_EXPORT const EmbeddedFaces& embeddedFaces();

// What `tavrel doctor` reports: faces fontconfig could read from the library, and the fonts the
// machine's configuration offers for characters those lack.
struct FontReport {
  int embeddedFaces = 0;
  int systemFonts = 0;
};
TAVREL_EXPORT FontReport fontReport();

}  // namespace tavrel::text
