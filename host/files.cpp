#include "host/files.h"

#include "host/messages.h"
#include "host/strings.h"
#include "host/variables.h"
#include "zel_module.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace zel::host {

namespace {

std::string quoted(const fs::path& path) { return '"' + path.string() + '"'; }

/// Reads up to `size` bytes. \return how many, 0 at the end of the file, -1 on error.
ssize_t readSome(int fd, char* buffer, std::size_t size) noexcept {
  ssize_t got = 0;
  do got = ::read(fd, buffer, size);
  while (got < 0 && errno == EINTR);
  return got;
}

fs::path resolveLinks(const fs::path& target) {
  std::error_code missing;
  const fs::path real = fs::canonical(target, missing);
  return missing ? target : real;
}

std::string partialName(const fs::path& target) {
  std::error_code missing;
  const auto type = fs::status(target, missing).type();
  const bool direct = type != fs::file_type::regular && type != fs::file_type::not_found;
  return direct ? std::string() : target.string() + ".part-XXXXXX";
}

int openTarget(const fs::path& target, std::string& partial) {
  return partial.empty() ? ::open(target.c_str(), O_WRONLY | O_CLOEXEC) : ::mkostemp(partial.data(), O_CLOEXEC);
}

} // namespace

Descriptor::~Descriptor() { close(); }

int Descriptor::close() noexcept {
  const int fd = std::exchange(m_fd, -1);
  return fd >= 0 && ::close(fd) != 0 ? errno : 0;
}

TargetFile::TargetFile(const fs::path& target, mode_t mode)
    : m_target(resolveLinks(target)), m_partial(partialName(m_target)), m_file(openTarget(m_target, m_partial)) {
  if (!m_file.valid()) {
    const int errnum = errno;
    m_partial.clear();
    fail(errnum);
  }
  if (!m_partial.empty()) ::fchmod(m_file.get(), mode);
}

TargetFile::~TargetFile() {
  if (!m_partial.empty()) ::unlink(m_partial.c_str());
}

void TargetFile::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t done = ::write(m_file.get(), bytes.data(), bytes.size());
    if (done >= 0)
      bytes.remove_prefix(static_cast<std::size_t>(done));
    else if (errno != EINTR)
      fail(errno);
  }
}

void TargetFile::commit() {
  if (const int errnum = m_file.close()) fail(errnum);
  if (m_partial.empty()) return;
  if (::rename(m_partial.c_str(), m_target.c_str()) != 0) fail(errno);
  m_partial.clear();
}

void TargetFile::fail(int errnum) const { raiseErrno("Unable to write the file " + quoted(m_target), errnum); }

void copyFile(const fs::path& source, const fs::path& target, bool overwrite) {
  const Descriptor from(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat sourceStat {};
  struct stat targetStat {};
  if (!from.valid() || ::fstat(from.get(), &sourceStat) != 0)
    raiseErrno("Unable to read the file " + quoted(source), errno);
  if (S_ISDIR(sourceStat.st_mode)) raiseErrno("Unable to read the file " + quoted(source), EISDIR);
  if (::stat(target.c_str(), &targetStat) == 0) {
    if (sourceStat.st_dev == targetStat.st_dev && sourceStat.st_ino == targetStat.st_ino) return;
    if (!overwrite) raiseErrno("Unable to write the file " + quoted(target), EEXIST);
  }

  TargetFile to(target, sourceStat.st_mode & 0777);
  std::array<char, 1 << 16> buffer; // filled by each read
  ssize_t got = 0;
  while ((got = readSome(from.get(), buffer.data(), buffer.size())) > 0)
    to.write({buffer.data(), static_cast<std::size_t>(got)});
  if (got < 0) raiseErrno("Unable to read the file " + quoted(source), errno);
  to.commit();
}

} // namespace zel::host

using namespace zel::host;

char* ZEL_FilePathFromRoot(char* out, std::size_t size, const char* root, const char* const* dirs, int nDirs,
                           const char* file, const char* extension) {
  std::string path = root != nullptr ? root : "";
  const auto separate = [&path] {
    if (!path.empty() && path.back() != '/') path += '/';
  };
  for (int i = 0; i < nDirs; ++i) {
    if (dirs[i] == nullptr) continue;
    separate();
    path += dirs[i];
  }
  separate();
  if (file != nullptr) path += file;
  if (file != nullptr && extension != nullptr) path += extension;
  if (size > 0) {
    *out = '\0';
    ZEL_StrBase_strlcat(out, path.c_str(), size);
  }
  return out;
}

void ZEL_FileCopy(ZEL_Variable* source, ZEL_Variable* target, ZEL_Variable* overwrite) {
  const bool replace = overwrite != nullptr && scalarInteger(overwrite) != 0;
  copyFile(scalarText(source), scalarText(target), replace);
}

void ZEL_FileOpChmod(ZEL_Variable* file, unsigned mode) {
  const std::string path = scalarText(file);
  struct stat now {};
  if (::stat(path.c_str(), &now) == 0 && now.st_uid != ::geteuid()) return;
  if (::chmod(path.c_str(), static_cast<mode_t>(mode & 07777)) != 0)
    raiseErrno("Unable to set the permissions of \"" + path + '"', errno);
}
