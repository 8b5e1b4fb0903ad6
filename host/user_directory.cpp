// Per-user directories of applications, each with a read-me file.
#include "host/directories.h"
#include "host/files.h"
#include "host/messages.h"
#include "host/strings.h"
#include "zel_module.h"

#include <sys/stat.h>
#include <system_error>

namespace fs = std::filesystem;

namespace zel::host {

namespace {

void makeDirectory(const fs::path& directory) {
  if (const int errnum = makeUserDirectory(directory))
    raise("Unable to use the user directory \"" + directory.string() +
          "\": " + std::generic_category().message(errnum) + ". Set ZEL_USER_DIR to a directory that can be written.");
}

/// Writes the read-me file if there is none. A user's changes to it are kept, and a symbolic link is not followed.
void writeReadme(const fs::path& directory, const std::string& text) {
  const fs::path file = directory / "README.txt";
  if (fs::symlink_status(file).type() != fs::file_type::not_found) return;
  TargetFile readme(file, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
  readme.write(text);
  readme.commit();
}

/// A text that must be a single component of a path.
std::string component(ZEL_Variable* v) {
  std::string name = scalarText(v);
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
    raise("A directory cannot have the name \"" + name + "\".");
  return name;
}

} // namespace

} // namespace zel::host

using namespace zel::host;

ZEL_Variable* ZEL_AppUserDir(ZEL_Variable* authorDir, ZEL_Variable* authorDesc, ZEL_Variable* appDir,
                             ZEL_Variable* appDesc, ZEL_Variable* readmeText, ZEL_Variable* readmeVersion,
                             ZEL_Variable* restrictAppVersion) {
  const fs::path root = userRoot();
  if (root.empty()) raise("There is no home directory. Set ZEL_USER_DIR to a directory that can be written.");
  const fs::path author = root / component(authorDir);
  const std::string version = scalarText(restrictAppVersion);
  const fs::path application = author / (component(appDir) + (version.empty() ? "" : '-' + version));

  makeDirectory(application);
  writeReadme(author, scalarText(authorDesc) + '\n');
  writeReadme(application,
              scalarText(appDesc) + '\n' + scalarText(readmeText) + "Version " + scalarText(readmeVersion) + '\n');
  return makeTempString(application.string());
}
