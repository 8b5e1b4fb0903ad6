// Sorts the keywords of a call into the result record of a routine.
#include "host/messages.h"
#include "host/routines.h"
#include "host/strings.h"
#include "host/variables.h"
#include "zel_module.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <vector>

namespace zel::host {

namespace {

/// The rows of a table. Raises an error unless they are sorted.
std::span<const ZEL_KwDef> rowsOf(const ZEL_KwDef* table) {
  const auto* end = table;
  for (; end->name != nullptr; ++end)
    if (end != table && std::strcmp((end - 1)->name, end->name) >= 0)
      raise(std::string("The routine's keyword table is not sorted at ") + end->name + '.');
  return {table, end};
}

/// The row of a keyword. Raises an error unless it is accepted.
const ZEL_KwDef& find(std::span<const ZEL_KwDef> table, unsigned enabled, std::string_view name) {
  const auto accepted = [enabled](const ZEL_KwDef& def) { return (def.mask & enabled) != 0; };
  const auto found = std::ranges::lower_bound(table, name, {}, &ZEL_KwDef::name);
  if (found != table.end() && found->name == name && accepted(*found)) return *found;
  std::vector<std::string_view> names;
  for (const ZEL_KwDef& def : table)
    if (accepted(def)) names.emplace_back(def.name);
  raise("Keyword " + std::string(name) +
        " is not allowed. Accepted keywords: " + (names.empty() ? "none" : join(names, ", ")) + '.');
}

template <typename T>
T& memberAt(ZEL_KwResult* result, std::size_t offset) noexcept {
  return *reinterpret_cast<T*>(reinterpret_cast<char*>(result) + offset);
}

} // namespace

} // namespace zel::host

using namespace zel::host;

int ZEL_KWProcessByOffset(int argc, ZEL_Variable**, const ZEL_Keywords* argk, const ZEL_KwDef* table, unsigned enabled,
                          ZEL_KwResult* result) {
  const auto rows = rowsOf(table);
  std::vector<zel::Temp> converted;
  for (const ZEL_Keyword* given = argk->keywords; given != argk->keywords + argk->count; ++given) {
    const ZEL_KwDef& def = find(rows, enabled, given->name);
    auto& present = memberAt<std::int32_t>(result, def.present);
    if (present != 0) raise(std::string("Keyword ") + def.name + " is given twice.");
    const bool output = (def.flags & ZEL_KW_OUT) != 0;
    if (output != given->output)
      raise(std::string("Keyword ") + def.name +
            (output ? " is an output: give its name without a value." : " is an input: give it a value."));
    present = 1;

    ZEL_Variable* value = given->value;
    if (output) {
      clear(*value);
    } else if (def.type != ZEL_TYP_UNDEF && (def.flags & ZEL_KW_VIN) == 0) {
      value = ZEL_VarTypeConvert(value, def.type);
      if (value != given->value) converted.emplace_back(value);
    }
    memberAt<ZEL_Variable*>(result, def.value) = value;
  }
  if (!converted.empty()) result->mustFree = keepForKeywords(std::move(converted));
  return argc;
}

void ZEL_KWFree(ZEL_KwResult* result) noexcept {
  if (result->mustFree == 0) return;
  releaseKept(result->mustFree);
  result->mustFree = 0;
}
