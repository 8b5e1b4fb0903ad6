#include "host/directories.h"

#include "host/strings.h"

#include "zel_module.h"

#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace zel::host {

namespace {

fs::path homeDirectory() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  const passwd* user = ::getpwuid(::getuid());
  return user && user->pw_dir ? user->pw_dir : "";
}

} // namespace

fs::path executableDirectory() {
  std::error_code unreadable;
  return fs::read_symlink("/proc/self/exe", unreadable).parent_path();
}

fs::path installationRoot() {
  if (const char* root = std::getenv("ZEL_DIR")) return root;
  fs::path here = executableDirectory();
  if (here.empty()) return here;
  const fs::path installed = here.parent_path() / "lib" / "zel";
  std::error_code missing;
  return fs::is_directory(installed, missing) ? installed : here;
}

fs::path sharedDirectory() {
  fs::path here = executableDirectory();
  const fs::path installed = here.parent_path() / "share" / "zel";
  std::error_code missing;
  return fs::is_directory(installed, missing) ? installed : here / "share" / "zel";
}

fs::path userRoot() {
  if (const char* root = std::getenv("ZEL_USER_DIR"); root && *root) return fs::absolute(root);
  // A relative XDG directory is invalid and must be ignored.
  if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data == '/') return fs::path(data) / "zel";
  const fs::path home = homeDirectory();
  return home.empty() ? home : home / ".local" / "share" / "zel";
}

} // namespace zel::host

extern "C" ZEL_Variable* ZEL_SysvDirFunc() { return zel::host::makeTempString(zel::host::installationRoot().string()); }
