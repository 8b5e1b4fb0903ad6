#include "host/modules.h"

#include "host/directories.h"
#include "host/messages.h"
#include "host/objects.h"
#include "host/strings.h"
#include "zel_module.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <filesystem>
#include <map>
#include <sstream>

namespace fs = std::filesystem;

namespace zel::host {

namespace {

struct ClassRow {
  std::string_view className;
  const char* module;
};

/// Modules that are loaded when one of their classes is first used.
constexpr ClassRow providers[] = {{"ZELnetOGCWCS", "zel_ogc"}, {"ZELnetOGCWMS", "zel_ogc"}};

/// Outcome of loading each module, by its real path: empty if it is loaded, otherwise the reason why not.
std::map<fs::path, std::string> g_outcomes;

std::vector<fs::path> searchDirectories() {
  std::vector<fs::path> directories;
  if (const char* listed = std::getenv("ZEL_MODULE_PATH")) {
    std::istringstream list(listed);
    for (std::string directory; std::getline(list, directory, ':');)
      if (!directory.empty()) directories.emplace_back(directory);
  }
  if (const fs::path here = executableDirectory(); !here.empty()) {
    directories.push_back(here);
    directories.push_back(here.parent_path() / "lib" / "zel");
  }
  return directories;
}

fs::path findModule(const std::string& name) {
  std::error_code missing;
  if (name.find('/') != std::string::npos) {
    if (!fs::is_regular_file(name, missing)) raise("There is no module \"" + name + "\".");
    return fs::canonical(name);
  }
  const std::string file = name.ends_with(".so") ? name : name + ".so";
  std::vector<std::string> tried;
  for (const fs::path& directory : searchDirectories()) {
    if (fs::is_regular_file(directory / file, missing)) return fs::canonical(directory / file);
    tried.push_back(directory.string());
  }
  raise("Module \"" + name + "\" was not found in " + join(tried, ", ") +
        ". Set ZEL_MODULE_PATH to its directory, or give its path.");
}

/// Lets a module register itself. \return empty, or the reason why it cannot be used.
std::string start(int (*load)()) {
  try {
    return load() != 0 ? "" : "it could not start (ZEL_Load returned 0)";
  } catch (const ZEL_Unwind&) {
    return takeError().text;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "unknown exception";
  }
}

/// Opens a module and starts it. \return empty, or the reason why it cannot be used; its classes are removed then.
std::string open(const fs::path& path) {
  void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) return ::dlerror();
  auto* load = reinterpret_cast<int (*)()>(::dlsym(module, "ZEL_Load"));
  if (load == nullptr) return "it is not a ZEL module: it has no ZEL_Load";
  const std::size_t classes = classCount();
  std::string why = start(load);
  if (!why.empty()) forgetClassesAfter(classes);
  return why;
}

} // namespace

void loadModule(const std::string& name) {
  const fs::path path = findModule(name);
  auto outcome = g_outcomes.find(path);
  if (outcome == g_outcomes.end()) outcome = g_outcomes.emplace(path, open(path)).first;
  if (!outcome->second.empty()) raise("Unable to load module \"" + path.string() + "\": " + outcome->second + '.');
}

void loadModuleOfClass(std::string_view className) {
  for (const ClassRow& row : providers)
    if (upper(row.className) == upper(className)) loadModule(row.module);
}

std::vector<std::string> availableClasses() {
  std::vector<std::string> names;
  for (const ClassRow& row : providers) names.emplace_back(row.className);
  for (const std::string& loaded : classNames())
    if (std::ranges::none_of(providers, [&loaded](const ClassRow& row) { return upper(row.className) == loaded; }))
      names.push_back(loaded);
  return names;
}

} // namespace zel::host
