#include "zel_curl_file.h"

#include <cerrno>
#include <unistd.h>

namespace {

bool sameFile(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

bool CResponseFile::open(const char* path) {
  ::unlink(path);
  CFilePtr file(std::fopen(path, "w+b"));
  if (!file || ::fstat(::fileno(file.get()), &m_status) != 0) return false;
  m_path = path;
  m_file = std::move(file);
  return true;
}

std::size_t CResponseFile::write(const char* data, std::size_t size) noexcept {
  return std::fwrite(data, 1, size, m_file.get());
}

bool CResponseFile::close() noexcept {
  if (!m_file) return true;
  const bool flushed = std::fflush(m_file.get()) == 0 && ::fstat(::fileno(m_file.get()), &m_status) == 0;
  const int reason = errno;
  const bool closed = std::fclose(m_file.release()) == 0;
  if (!flushed) errno = reason;
  return flushed && closed;
}

void CResponseFile::remove() noexcept {
  m_file.reset();
  struct stat now {};
  if (wasOpened() && ::stat(m_path.c_str(), &now) == 0 && sameFile(now, m_status)) ::unlink(m_path.c_str());
}

void CResponseFile::forget() noexcept {
  m_file.reset();
  m_path.clear();
}

// A file system may give the number of a deleted file to the next one at once.
bool CResponseFile::isAt(const char* path) const noexcept {
  struct stat now {};
  return wasOpened() && path != nullptr && ::stat(path, &now) == 0 && sameFile(now, m_status) &&
         now.st_size == m_status.st_size && now.st_mtim.tv_sec == m_status.st_mtim.tv_sec &&
         now.st_mtim.tv_nsec == m_status.st_mtim.tv_nsec;
}
