#include "platform/files.hpp"

#include <tavrel_sdk/platform.hpp>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace tavrel {
namespace {

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace

std::string appendingPathComponent(std::string_view directory, std::string_view name) {
  std::string path;
  path.reserve(directory.size() + 1 + name.size());
  path.append(directory);
  if (!path.empty() && path.back() != '/') path.push_back('/');
  path.append(name);
  return path;
}

bool createDirectories(const std::string& path) {
  if (path.empty()) return false;
  for (std::size_t slash = path.find('/', 1); ; slash = path.find('/', slash + 1)) {
    const std::string prefix = path.substr(0, slash);
    if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) break;
  }
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool createFileAtPath(const std::string& path, std::string_view contents) {
  // Written beside the target and renamed over it, so a reader never sees a half-made file.
  std::string temporary = path + ".XXXXXX";
  const int fd = ::mkstemp(temporary.data());  // mode 0600
  if (fd < 0) return false;
  const bool written = writeAll(fd, contents);
  const bool closed = ::close(fd) == 0;
  if (!written || !closed || ::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

std::optional<FileHandle> FileHandle::forWritingAtPath(const std::string& path) {
  // O_APPEND: writers on several threads each land their bytes whole at the end, where a seek
  // followed by a write could let two of them write at the same offset.
  const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  return FileHandle(fd);
}

FileHandle::FileHandle(FileHandle&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
  if (this != &other) {
    closeFile();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

FileHandle::~FileHandle() { closeFile(); }

bool FileHandle::seekToEndOfFile() { return fd_ >= 0 && ::lseek(fd_, 0, SEEK_END) >= 0; }

bool FileHandle::writeData(std::string_view bytes) { return fd_ >= 0 && writeAll(fd_, bytes); }

void FileHandle::closeFile() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

ReadResult readWholeFile(const std::string& path) {
  ReadResult result;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    result.error = std::strerror(errno);
    return result;
  }
  struct stat st {};
  if (::fstat(fd, &st) == 0 && st.st_size > 0) {
    result.data.reserve(static_cast<std::size_t>(st.st_size));
  }
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      result.error = std::strerror(errno);
      result.data.clear();
      break;
    }
    if (n == 0) break;
    result.data.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return result;
}

struct UrlBody::Pages {
  char* data = nullptr;
  std::size_t size = 0;
  std::size_t mapped = 0;
  Pages() = default;
  Pages(const Pages&) = delete;
  Pages& operator=(const Pages&) = delete;
  ~Pages() {
    if (mapped > 0) ::munmap(data, mapped);
  }
};

std::string_view UrlBody::bytes() const { return pages_ ? std::string_view(pages_->data, pages_->size) : text_; }

std::optional<UrlBody> UrlBody::contentsOfFile(const std::string& path, std::string& error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = std::strerror(errno);
    return std::nullopt;
  }
  auto pages = std::make_shared<Pages>();
  struct stat st {};
  bool failed = ::fstat(fd, &st) != 0;
  if (!failed && st.st_size > 0) {
    const auto size = static_cast<std::size_t>(st.st_size);
    void* mapped = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    failed = mapped == MAP_FAILED;
    if (!failed) {
      pages->data = static_cast<char*>(mapped);
      pages->mapped = size;
    }
    while (!failed && pages->size < size) {
      const ssize_t n = ::read(fd, pages->data + pages->size, size - pages->size);
      if (n < 0 && errno == EINTR) continue;
      failed = n < 0;
      if (n <= 0) break;
      pages->size += static_cast<std::size_t>(n);
    }
  }
  if (failed) error = std::strerror(errno);
  ::close(fd);
  if (failed) return std::nullopt;
  UrlBody body;
  body.pages_ = std::move(pages);
  return body;
}

}  // namespace tavrel
