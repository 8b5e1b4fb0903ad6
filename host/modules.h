/// \file
/// Loadable modules.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zel::host {

/// Loads a module by name, or by path if the name contains a slash. Does nothing if it is loaded already. Raises an
/// error if the module cannot be found or opened, or refuses to load.
void loadModule(const std::string& name);
/// Loads the module that provides an object class, if it is known.
void loadModuleOfClass(std::string_view className);
/// The classes there are: those that were loaded, and those whose module is loaded on first use.
std::vector<std::string> availableClasses();

} // namespace zel::host
