#include "zel_curl_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace transfer {

namespace {

constexpr int attempts = 16;

// A new file, never one that another process has open.
FilePtr openFresh(const char* path) {
  for (int i = 0; i < attempts; ++i) {
    ::unlink(path);
    FilePtr file(std::fopen(path, "w+bxe"));
    if (file || errno != EEXIST) return file;
  }
  return FilePtr(std::fopen(path, "w+be")); // may be written though not deleted, like a device
}

} // namespace

void Descriptor::reset() noexcept {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
}

bool ResponseFile::open(const char* path) {
  // The older file is deleted only when there are descriptors for the new one.
  Descriptor written(::open("/", O_PATH | O_CLOEXEC));
  if (written.get() < 0 || Descriptor(::open("/", O_PATH | O_CLOEXEC)).get() < 0) return false;
  FilePtr file = openFresh(path);
  if (!file || ::dup3(::fileno(file.get()), written.get(), O_CLOEXEC) < 0) return false;
  m_written = std::move(written);
  m_path = path;
  m_file = std::move(file);
  return true;
}

bool ResponseFile::close() noexcept {
  if (!m_file) return true;
  const bool flushed = std::fflush(m_file.get()) == 0;
  const int reason = errno;
  const bool closed = std::fclose(m_file.release()) == 0;
  if (!flushed) errno = reason;
  return flushed && closed;
}

void ResponseFile::remove() noexcept {
  m_file.reset();
  if (isStillThere()) ::unlink(m_path.c_str());
}

void ResponseFile::forget() noexcept {
  m_file.reset();
  m_path.clear();
  release();
}

bool ResponseFile::isStillThere() const noexcept {
  struct stat written {};
  struct stat now {};
  return m_written.get() >= 0 && ::fstat(m_written.get(), &written) == 0 && ::stat(m_path.c_str(), &now) == 0 &&
         written.st_dev == now.st_dev && written.st_ino == now.st_ino;
}

} // namespace transfer
