/// \file
/// Files that appear complete or not at all.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace zel::host {

/// Owns an open file descriptor.
class Descriptor {
public:
  explicit Descriptor(int fd) noexcept : m_fd(fd) {}
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool valid() const noexcept { return m_fd >= 0; }
  int get() const noexcept { return m_fd; }
  /// Closes the file. \return 0, or the error number if something did not reach the disk.
  int close() noexcept;

private:
  int m_fd;
};

/// A file that is being written. commit() gives it its name; without it, nothing is left. A target that is not a
/// regular file (a device, a pipe) is written directly. Errors name the target.
class TargetFile {
public:
  TargetFile(const std::filesystem::path& target, mode_t mode);
  ~TargetFile();

  void write(std::string_view bytes);
  void commit();

private:
  [[noreturn]] void fail(int errnum) const;

  std::filesystem::path m_target; ///< with symbolic links resolved
  std::string m_partial;          ///< the file written beside the target; empty if the target is written directly
  Descriptor m_file;
};

/// Copies a file, unless both names refer to the same file.
void copyFile(const std::filesystem::path& source, const std::filesystem::path& target, bool overwrite);

} // namespace zel::host
