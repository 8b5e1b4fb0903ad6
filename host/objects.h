/// \file
/// Object classes: named structures with methods.
#pragma once

#include "zel_module.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct ZEL_ObjDef {
  const ZEL_StructDef* sdef;
};

namespace zel::host {

/// The object class with a name, in any case; null if there is none.
const ZEL_ObjDef* findClass(std::string_view name);
std::size_t classCount() noexcept;
/// Removes all classes but the first `count`: those of a module that refused to load.
void forgetClassesAfter(std::size_t count);
std::vector<std::string> classNames();
/// Name of a class, upper case.
const std::string& className(const ZEL_ObjDef* objdef) noexcept;
/// Names of a class and of those that it inherits, in the order in which methods are looked up.
std::vector<std::string_view> classLine(const ZEL_ObjDef* objdef);

} // namespace zel::host
