/// \file
/// Where things are on disk: the executable, the installation root, the user's data.
#pragma once

#include <filesystem>

namespace zel::host {

/// Directory of the running executable; empty when it cannot be told.
std::filesystem::path executableDirectory();
/// Installation root: ZEL_DIR when it is set, else lib/zel beside the `bin` that the executable is in, else the
/// executable's own directory (a build tree). May be empty.
std::filesystem::path installationRoot();
/// What comes with the runner and is the same on every machine: share/zel below the executable's directory or beside
/// it. The latter is preferred when the executable is in a `bin`.
std::filesystem::path sharedDirectory();
/// Root of the per-user directories: ZEL_USER_DIR, else $XDG_DATA_HOME/zel, else .local/share/zel of the home
/// directory. Empty when there is no home.
std::filesystem::path userRoot();
/// Makes a directory of the user's, and those above it that are missing, each accessible to the user alone whatever
/// the umask. \return 0 when the directory is there and can be written, else the error number.
int makeUserDirectory(const std::filesystem::path& directory);

} // namespace zel::host
