// Sorts the keywords of a call into the result record of a routine.
#include "host/messages.h"
#include "host/routines.h"
#include "host/strings.h"
#include "host/variables.h"
#include "zel_module.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace zel::host {

namespace {

/// The keywords that a routine accepts.
class KeywordTable {
public:
  KeywordTable(const ZEL_KwDef* table, unsigned enabled) : m_begin(table), m_end(table), m_enabled(enabled) {
    for (; m_end->name != nullptr; ++m_end)
      if (m_end != m_begin && std::strcmp((m_end - 1)->name, m_end->name) >= 0)
        raise(std::string("The routine's keyword table is not sorted at ") + m_end->name + '.');
  }

  const ZEL_KwDef& find(const char* name) const {
    const auto* found = std::lower_bound(m_begin, m_end, name, [](const ZEL_KwDef& def, const char* wanted) {
      return std::strcmp(def.name, wanted) < 0;
    });
    if (found == m_end || std::strcmp(found->name, name) != 0 || !accepted(*found))
      raise(std::string("Keyword ") + name + " is not allowed. Accepted keywords: " + names() + '.');
    return *found;
  }

private:
  bool accepted(const ZEL_KwDef& def) const noexcept { return (def.mask & m_enabled) != 0; }

  std::string names() const {
    std::vector<std::string> list;
    for (const auto* def = m_begin; def != m_end; ++def)
      if (accepted(*def)) list.emplace_back(def->name);
    return list.empty() ? "none" : join(list, ", ");
  }

  const ZEL_KwDef* m_begin;
  const ZEL_KwDef* m_end;
  unsigned m_enabled;
};

template <typename T>
T& memberAt(ZEL_KwResult* result, std::size_t offset) noexcept {
  return *reinterpret_cast<T*>(reinterpret_cast<char*>(result) + offset);
}

void checkDirection(const ZEL_KwDef& def, const ZEL_Keyword& given) {
  const bool output = (def.flags & ZEL_KW_OUT) != 0;
  if (output && !given.output)
    raise(std::string("Keyword ") + def.name + " is an output: give its name without a value.");
  if (!output && given.output) raise(std::string("Keyword ") + def.name + " is an input: give it a value.");
}

} // namespace

} // namespace zel::host

using namespace zel::host;

extern "C" {

int ZEL_KWProcessByOffset(int argc, ZEL_Variable**, const ZEL_Keywords* argk, const ZEL_KwDef* table, unsigned enabled,
                          ZEL_KwResult* result) {
  const KeywordTable accepted(table, enabled);
  std::vector<zel::Temp> converted;
  for (const ZEL_Keyword* given = argk->keywords; given != argk->keywords + argk->count; ++given) {
    const ZEL_KwDef& def = accepted.find(given->name);
    auto& present = memberAt<std::int32_t>(result, def.present);
    if (present != 0) raise(std::string("Keyword ") + def.name + " is given twice.");
    checkDirection(def, *given);
    present = 1;

    ZEL_Variable* value = given->value;
    if ((def.flags & ZEL_KW_OUT) != 0u) {
      clear(*value);
    } else if (def.type != ZEL_TYP_UNDEF && ((def.flags & ZEL_KW_VIN) == 0u)) {
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

} // extern "C"
