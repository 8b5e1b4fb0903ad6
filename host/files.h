/// \file
/// Files written so that nobody ever sees half of one.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace zel::host {

/// An open file descriptor, closed at the end.
class Descriptor {
public:
  explicit Descriptor(int fd) noexcept : m_fd(fd) {}
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool valid() const noexcept { return m_fd >= 0; }
  int get() const noexcept { return m_fd; }
  /// Closes now. \return 0, or the error number of what did not reach the disk.
  int close() noexcept;

private:
  int m_fd;
};

/// A file that is being written. It appears under its name, complete, with commit(); otherwise nothing of it stays. A
/// target that is no regular file (a device, a pipe) is written directly. Errors name the target.
class TargetFile {
public:
  TargetFile(const std::filesystem::path& target, mode_t mode);
  ~TargetFile();
  TargetFile(const TargetFile&) = delete;
  TargetFile& operator=(const TargetFile&) = delete;

  void write(std::string_view bytes);
  void commit();

private:
  [[noreturn]] void fail(int errnum) const;

  std::filesystem::path m_target; ///< behind symbolic links
  std::string m_partial;          ///< what is written beside the target; empty when written directly
  Descriptor m_file;
};

/// Copies the source over the target unless both are one file.
void copyFile(const std::filesystem::path& source, const std::filesystem::path& target, bool overwrite);

} // namespace zel::host
