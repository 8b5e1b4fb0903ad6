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

/// The object class of that name, in any case; null when there is none.
const ZEL_ObjDef* findClass(std::string_view name);
/// How many classes there are.
std::size_t classCount() noexcept;
/// Forgets the classes that were added when there were `count` already: those of a module that refused to load.
void forgetClassesAfter(std::size_t count);
/// Names of all classes that were defined.
std::vector<std::string> classNames();
/// Name of a class, upper case.
const std::string& className(const ZEL_ObjDef* objdef) noexcept;
/// Names of the class and of all it inherits, in the order in which methods are looked for.
std::vector<std::string_view> classLine(const ZEL_ObjDef* objdef);

} // namespace zel::host
