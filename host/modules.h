/// \file
/// Loadable modules.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zel::host {

/// Loads a module by name, or by path when the name has a slash. A module that is loaded already stays as it is. One
/// that cannot be found, opened or that refuses is an error.
void loadModule(const std::string& name);
/// Loads the module that brings an object class, when it is known which.
void loadModuleOfClass(std::string_view className);
/// The classes there are: those that were loaded, and those whose module is loaded on first use.
std::vector<std::string> availableClasses();

} // namespace zel::host
