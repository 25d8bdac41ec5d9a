#pragma once

// The two DejaVu Sans faces the toolkit draws with, carried inside the library, and fontconfig
// sets made of them. Fontconfig, FreeType and HarfBuzz read faces by file name: each face reaches
// them as a sealed memory file named /proc/self/fd/N, so nothing is read from or written to disk
// and no font of the machine can stand in for ours.
//
// Thread safety: an EmbeddedFaces is immutable once made; a config belongs to its caller.

#include <tavrel_sdk/export.hpp>

#include <fontconfig/fontconfig.h>

#include <span>
#include <string>
#include <vector>

namespace tavrel::text {

// The family our faces go by in our font sets: a name no installed font has, so that a DejaVu
// Sans of another version among the machine's fonts never wins over ours.
inline constexpr const char* kEmbeddedFamily = "tavrel DejaVu Sans";

enum class Face { Regular, Bold };
TAVREL_EXPORT std::span<const unsigned char> faceBytes(Face face);

class TAVREL_EXPORT EmbeddedFaces {
 public:
  // Makes the memory files; a face whose file cannot be made is left out.
  EmbeddedFaces();
  ~EmbeddedFaces();
  EmbeddedFaces(const EmbeddedFaces&) = delete;
  EmbeddedFaces& operator=(const EmbeddedFaces&) = delete;

  // The file names fontconfig reads the faces by.
  const std::vector<std::string>& files() const { return files_; }

  // A new set holding our faces alone, or (`systemFonts`) the machine's fonts as its fontconfig
  // configuration finds them, with our faces added: for the characters the faces lack. The
  // caller destroys it (FcConfigDestroy).
  FcConfig* makeConfig(bool systemFonts) const;

 private:
  std::vector<int> fds_;
  std::vector<std::string> files_;
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
