/// \file
/// Files of a request.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

namespace transfer {

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

/// Owns a file descriptor.
class Descriptor {
public:
  explicit Descriptor(int fd = -1) noexcept : m_fd(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }

  void reset() noexcept;
  [[nodiscard]] int get() const noexcept { return m_fd; }

private:
  int m_fd;
};

/// The file that receives a response. It replaces an older file of that name and remembers which file it wrote, so
/// that it notices when another process has put a different one in its place.
class ResponseFile {
public:
  /// \return false when the file could not be opened; `errno` says why.
  bool open(const char* path);
  /// \return the bytes written; `errno` says why some are missing.
  std::size_t write(const char* data, std::size_t size) noexcept { return std::fwrite(data, 1, size, m_file.get()); }
  /// \return false when data did not reach the disk; `errno` says why.
  bool close() noexcept;
  /// Closes and deletes the file, unless another one has replaced it.
  void remove() noexcept;
  /// Prepares for the next request.
  void forget() noexcept;
  /// Forgets which file was written.
  void release() noexcept { m_written.reset(); }

  [[nodiscard]] bool isOpen() const noexcept { return m_file != nullptr; }
  /// True when a file was opened since `forget`.
  [[nodiscard]] bool wasOpened() const noexcept { return !m_path.empty(); }
  [[nodiscard]] const std::string& path() const noexcept { return m_path; }
  /// True when `path` still names the file that was written and not one that replaced it.
  [[nodiscard]] bool isStillThere() const noexcept;

private:
  FilePtr m_file;
  std::string m_path;
  Descriptor m_written; ///< held open so that the inode cannot be reused
};

} // namespace transfer
