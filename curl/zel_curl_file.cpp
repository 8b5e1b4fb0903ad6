#include "zel_curl_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int attempts = 16;

// A new file, never one that another process has open.
CFilePtr openFresh(const char* path) {
  for (int i = 0; i < attempts; ++i) {
    ::unlink(path);
    CFilePtr file(std::fopen(path, "w+bxe"));
    if (file || errno != EEXIST) return file;
  }
  return CFilePtr(std::fopen(path, "w+be")); // may be written though not deleted, like a device
}

} // namespace

void CDescriptor::reset() noexcept {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
}

bool CResponseFile::open(const char* path) {
  // The older file is deleted only when there are descriptors for the new one.
  CDescriptor written(::open("/", O_PATH | O_CLOEXEC));
  if (written.get() < 0 || CDescriptor(::open("/", O_PATH | O_CLOEXEC)).get() < 0) return false;
  CFilePtr file = openFresh(path);
  if (!file || ::dup3(::fileno(file.get()), written.get(), O_CLOEXEC) < 0) return false;
  m_written = std::move(written);
  m_path = path;
  m_file = std::move(file);
  return true;
}

std::size_t CResponseFile::write(const char* data, std::size_t size) noexcept {
  return std::fwrite(data, 1, size, m_file.get());
}

bool CResponseFile::close() noexcept {
  if (!m_file) return true;
  const bool flushed = std::fflush(m_file.get()) == 0;
  const int reason = errno;
  const bool closed = std::fclose(m_file.release()) == 0;
  if (!flushed) errno = reason;
  return flushed && closed;
}

void CResponseFile::remove() noexcept {
  m_file.reset();
  if (isStillThere()) ::unlink(m_path.c_str());
}

void CResponseFile::forget() noexcept {
  m_file.reset();
  m_path.clear();
  release();
}

bool CResponseFile::isStillThere() const noexcept {
  struct stat written {};
  struct stat now {};
  return m_written.get() >= 0 && ::fstat(m_written.get(), &written) == 0 && ::stat(m_path.c_str(), &now) == 0 &&
         written.st_dev == now.st_dev && written.st_ino == now.st_ino;
}
