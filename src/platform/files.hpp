#pragma once

// Files in the NSFileManager / NSFileHandle / NSData shapes the library relies on.
// Files are created readable and writable by their owner only.

#include <tavrel_sdk/export.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tavrel {

// dir + "/" + name (stringByAppendingPathComponent:).
TAVREL_EXPORT std::string appendingPathComponent(std::string_view directory, std::string_view name);

// mkdir -p with mode 0700. True when the directory exists afterwards.
TAVREL_EXPORT bool createDirectories(const std::string& path);

// Writes a new file with these contents, replacing any file at the path (createFileAtPath:).
TAVREL_EXPORT bool createFileAtPath(const std::string& path, std::string_view contents);

// An open file for appending (fileHandleForWritingAtPath:, seekToEndOfFile, writeData:,
// closeFile). Never creates a missing file. Every write goes to the end of the file, also when
// another thread or process appends at the same time.
class TAVREL_EXPORT FileHandle {
 public:
  static std::optional<FileHandle> forWritingAtPath(const std::string& path);
  FileHandle(FileHandle&& other) noexcept;
  FileHandle& operator=(FileHandle&& other) noexcept;
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  ~FileHandle();

  bool seekToEndOfFile();
  // The bytes in one write call where the kernel allows, so a record is never torn.
  bool writeData(std::string_view bytes);
  void closeFile();

 private:
  explicit FileHandle(int fd) : fd_(fd) {}
  int fd_ = -1;
};

struct ReadResult {
  std::string data;
  std::optional<std::string> error;  // present when the file could not be read
};

// The whole file (dataWithContentsOfFile:options:error:).
TAVREL_EXPORT ReadResult readWholeFile(const std::string& path);

}  // namespace tavrel
