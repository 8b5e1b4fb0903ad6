/// \file
/// Directories of the runner: the executable's, the installation root, the user's data.
#pragma once

#include <filesystem>

namespace zel::host {

/// Directory of the running executable; empty if it is unknown.
std::filesystem::path executableDirectory();
/// Installation root: ZEL_DIR if it is set, else lib/zel beside the `bin` that the executable is in, else the
/// executable's own directory (a build tree). May be empty.
std::filesystem::path installationRoot();
/// Directory of the architecture-independent files that come with the runner: share/zel in the executable's directory
/// or beside it. The latter is preferred if the executable is in a `bin`.
std::filesystem::path sharedDirectory();
/// Root of the per-user directories: ZEL_USER_DIR, else $XDG_DATA_HOME/zel, else .local/share/zel of the home
/// directory. Empty if there is no home directory.
std::filesystem::path userRoot();
/// Makes a directory and its missing parents, accessible only to the user whatever the umask is.
/// \return 0 if the directory exists and can be written, otherwise an error number.
int makeUserDirectory(const std::filesystem::path& directory);

} // namespace zel::host
