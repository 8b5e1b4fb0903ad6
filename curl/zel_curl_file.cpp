#include "zel_curl_file.h"

#include <sys/stat.h>
#include <unistd.h>

bool CResponseFile::open(const char* path) {
  ::unlink(path);
  CFilePtr file(std::fopen(path, "w+b"));
  struct stat status {};
  if (!file || ::fstat(::fileno(file.get()), &status) != 0) return false;
  m_path = path;
  m_device = status.st_dev;
  m_inode = status.st_ino;
  m_file = std::move(file);
  return true;
}

std::size_t CResponseFile::write(const char* data, std::size_t size) noexcept {
  return std::fwrite(data, 1, size, m_file.get());
}

bool CResponseFile::close() noexcept { return !m_file || std::fclose(m_file.release()) == 0; }

void CResponseFile::remove() noexcept {
  m_file.reset();
  if (wasOpened() && isAt(m_path.c_str())) ::unlink(m_path.c_str());
}

void CResponseFile::forget() noexcept {
  m_file.reset();
  m_path.clear();
}

bool CResponseFile::isAt(const char* path) const noexcept {
  struct stat status {};
  return wasOpened() && path != nullptr && ::stat(path, &status) == 0 && status.st_dev == m_device &&
         status.st_ino == m_inode;
}
