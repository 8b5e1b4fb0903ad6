#include "routines/keywords.h"

#include <algorithm>
#include <cassert>

std::pair<const ZEL_STRING*, std::int64_t> OgcConverted::texts() const noexcept {
  std::int64_t n = 0;
  char* data = nullptr;
  ZEL_VarGetData(m_value, &n, &data);
  return {reinterpret_cast<const ZEL_STRING*>(data), n};
}

void ogcRequireScalar(const ZEL_Variable* v) {
  if ((v->flags & ZEL_V_ARR) != 0) ZEL_MessageVE_NOTSCALAR(v);
}

std::string ogcTextOf(ZEL_Variable* v) {
  if (v->type != ZEL_TYP_STRING) ZEL_MessageVE_REQSTR(v);
  ogcRequireScalar(v);
  return ogcCString(v->value.str);
}

std::int16_t ogcFixOf(ZEL_Variable* v) {
  ogcRequireScalar(v);
  return OgcConverted(v, ZEL_TYP_INT)->value.i;
}

std::int32_t ogcLongOf(ZEL_Variable* v) {
  ogcRequireScalar(v);
  return OgcConverted(v, ZEL_TYP_LONG)->value.l;
}

std::vector<std::string> ogcTextsOf(ZEL_Variable* v) {
  if (v->type != ZEL_TYP_STRING) ZEL_MessageVE_REQSTR(v);
  const auto [first, n] = OgcConverted(v, ZEL_TYP_STRING).texts();
  std::vector<std::string> texts;
  std::transform(first, first + n, std::back_inserter(texts), ogcCString);
  return texts;
}

OgcKeywordTable::OgcKeywordTable(std::vector<Entry> entries) {
  assert(entries.size() <= maxEntries);
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return std::string_view(a.name) < b.name; });
  std::size_t slot = offsetof(OgcKeywords::Record, slots);
  for (const Entry& entry : entries) {
    m_defs.push_back({entry.name, ZEL_TYP_UNDEF, 1, entry.kind, slot + offsetof(OgcKeywords::Slot, present),
                      slot + offsetof(OgcKeywords::Slot, value)});
    slot += sizeof(OgcKeywords::Slot);
  }
  m_defs.push_back({});
}

std::size_t OgcKeywordTable::find(std::string_view name) const noexcept {
  const auto found = std::lower_bound(m_defs.begin(), m_defs.end() - 1, name,
                                      [](const ZEL_KwDef& def, std::string_view wanted) { return def.name < wanted; });
  assert(found->name == name);
  return static_cast<std::size_t>(found - m_defs.begin());
}

OgcKeywords::OgcKeywords(const OgcKeywordTable& table, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk)
    : m_table(table) {
  ZEL_KWProcessByOffset(argc, argv, argk, table.defs(), 1, &m_record.host);
}

ZEL_Variable* OgcKeywords::operator[](std::string_view name) const noexcept {
  const Slot& slot = m_record.slots[m_table.find(name)];
  return slot.present != 0 ? slot.value : nullptr;
}

void OgcKeywords::store(std::string_view name, std::int32_t value) const {
  if (ZEL_Variable* v = (*this)[name]) ZEL_StoreScalar(v, ZEL_TYP_LONG, &value);
}
