#include "host/directories.h"

#include "host/strings.h"
#include "zel_module.h"

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace zel::host {

namespace {

fs::path homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != 0) return home;
  const passwd* user = ::getpwuid(::getuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

/// The first when it is a directory, else the second.
fs::path either(const fs::path& first, const fs::path& second) {
  std::error_code missing;
  return fs::is_directory(first, missing) ? first : second;
}

/// Is the executable where an installation puts it?
bool isInstalled() { return executableDirectory().filename() == "bin"; }

} // namespace

fs::path executableDirectory() {
  std::error_code unreadable;
  return fs::read_symlink("/proc/self/exe", unreadable).parent_path();
}

fs::path installationRoot() {
  if (const char* root = std::getenv("ZEL_DIR")) return root;
  const fs::path here = executableDirectory();
  return isInstalled() ? either(here.parent_path() / "lib" / "zel", here) : here;
}

fs::path sharedDirectory() {
  const fs::path here = executableDirectory();
  const fs::path own = here / "share" / "zel";
  const fs::path prefix = here.parent_path() / "share" / "zel";
  return isInstalled() ? either(prefix, own) : either(own, prefix);
}

fs::path userRoot() {
  if (const char* root = std::getenv("ZEL_USER_DIR"); root != nullptr && *root != 0) return fs::absolute(root);
  // A relative XDG directory is invalid and must be ignored.
  if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data == '/') return fs::path(data) / "zel";
  const fs::path home = homeDirectory();
  return home.empty() ? home : home / ".local" / "share" / "zel";
}

int makeUserDirectory(const fs::path& directory) {
  for (fs::path made; const auto& part : directory) {
    made /= part;
    if (::mkdir(made.c_str(), S_IRWXU) == 0) {
      if (::chmod(made.c_str(), S_IRWXU) != 0) return errno;
    } else if (const int errnum = errno; errnum != EEXIST && ::access(made.c_str(), F_OK) != 0) {
      return errnum;
    }
  }
  struct stat found {};
  if (::stat(directory.c_str(), &found) != 0) return errno;
  if (!S_ISDIR(found.st_mode)) return ENOTDIR;
  return ::access(directory.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
}

} // namespace zel::host

ZEL_Variable* ZEL_SysvDirFunc() { return zel::host::makeTempString(zel::host::installationRoot().string()); }
