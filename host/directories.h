/// \file
/// Where things are on disk: the executable, the installation root, the user's data.
#pragma once

#include <filesystem>

namespace zel::host {

/// Directory of the running executable; empty when it cannot be told.
std::filesystem::path executableDirectory();
/// Installation root: ZEL_DIR when it is set, else lib/zel of the prefix that the executable is installed in, else the
/// executable's own directory (a build tree). May be empty.
std::filesystem::path installationRoot();
/// What comes with the runner and is the same on every machine: share/zel of the prefix that the executable is
/// installed in, else of its own directory (a build tree).
std::filesystem::path sharedDirectory();
/// Root of the per-user directories: ZEL_USER_DIR, else $XDG_DATA_HOME/zel, else .local/share/zel of the home
/// directory. Empty when there is no home.
std::filesystem::path userRoot();

} // namespace zel::host
