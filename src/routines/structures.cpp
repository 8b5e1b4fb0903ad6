#include "routines/structures.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <vector>

namespace ogc {

namespace {

/// The structure that holds certain records: measure() all of them, define() it, then fill() its elements.
class Shape {
public:
  explicit Shape(std::span<const Tag> tags);
  /// Makes the lists as long as a record needs.
  void measure(const void* record, void* context);
  const ZEL_StructDef* define();
  void fill(const void* record, char* element, void* context) const;

private:
  struct Part {
    const Tag* tag;
    std::int64_t length = 0; ///< of a list
    std::unique_ptr<Shape> nested{};
    [[nodiscard]] bool isList() const noexcept { return tag->next != nullptr; }
  };

  /// Calls `f(entry, k)` for each entry of a list, or for a nested record.
  template <typename F>
  static void forEntries(const Part& part, const void* record, void* context, F&& f);

  std::vector<Part> m_parts;
  bool m_hasLists = false;
  std::vector<std::int64_t> m_offsets;
  std::int64_t m_size = 0;
};

Shape::Shape(std::span<const Tag> tags) {
  for (const Tag& tag : tags) {
    Part& part = m_parts.emplace_back(Part{.tag = &tag});
    if (!tag.nested.empty()) part.nested = std::make_unique<Shape>(tag.nested);
    m_hasLists = m_hasLists || part.isList() || (part.nested && part.nested->m_hasLists);
  }
}

template <typename F>
void Shape::forEntries(const Part& part, const void* record, void* context, F&& f) {
  const std::int64_t n = part.isList() ? part.tag->count(record) : 1;
  if (n == 0) return;
  const void* entry = part.tag->first(record, context);
  for (std::int64_t k = 0; entry != nullptr; entry = part.tag->next(entry, context)) {
    f(entry, k);
    if (++k >= n) break;
  }
}

void Shape::measure(const void* record, void* context) {
  if (!m_hasLists) return;
  for (Part& part : m_parts) {
    if (part.isList()) part.length = std::max(part.length, part.tag->count(record));
    if (part.nested && part.nested->m_hasLists)
      forEntries(part, record, context, [&](const void* entry, std::int64_t) { part.nested->measure(entry, context); });
  }
}

const ZEL_StructDef* Shape::define() {
  const auto n = static_cast<std::int64_t>(m_parts.size());
  char* data = nullptr;
  const zel::Temp names(ZEL_MakeTempVector(ZEL_TYP_STRING, n, &data));
  std::vector<ZEL_StructTagDef> defs(m_parts.size() + 1);
  for (int i = 0; i < n; ++i) {
    const Part& part = m_parts[i];
    _ZEL_OgcWcsAddStrucTag(i, part.tag->name, reinterpret_cast<ZEL_STRING*>(data), &defs[i],
                           part.nested ? ZEL_TYP_STRUCT : ZEL_TYP_STRING, part.length, 0);
    if (part.nested) defs[i].sdef = part.nested->define();
  }
  const ZEL_StructDef* def = ZEL_MakeStruct(nullptr, defs.data());
  for (int i = 0; i < n; ++i) m_offsets.push_back(ZEL_StructTagInfoByIndex(def, i, nullptr));
  m_size = ZEL_StructSize(def);
  return def;
}

void Shape::fill(const void* record, char* element, void* context) const {
  for (int i = 0; const Part& part : m_parts) {
    const Tag& tag = *part.tag;
    if (tag.first != nullptr) {
      forEntries(part, record, context, [&](const void* entry, std::int64_t k) {
        if (part.nested)
          part.nested->fill(entry, element + m_offsets[i] + k * part.nested->m_size, context);
        else
          _ZEL_OgcWcsSetTagDataStrArray(i, k, element, m_offsets.data(), tag.text(entry));
      });
    } else if (tag.text != nullptr) {
      _ZEL_OgcWcsSetTagDataStr(i, element, m_offsets.data(), tag.text(record));
    } else {
      std::array<char, 24> digits{};
      std::to_chars(digits.data(), digits.data() + digits.size() - 1, tag.count(record));
      _ZEL_OgcWcsSetTagDataStr(i, element, m_offsets.data(), digits.data());
    }
    ++i;
  }
}

} // namespace

zel::Temp structsOf(std::span<const Tag> tags, std::span<const void* const> records, void* context) {
  Shape shape(tags);
  for (const void* record : records) shape.measure(record, context);
  const ZEL_StructDef* def = shape.define();
  char* element = nullptr;
  zel::Temp array(ZEL_MakeTempStruct(def, static_cast<std::int64_t>(records.size()), &element));
  for (const void* record : records) {
    shape.fill(record, element, context);
    element += ZEL_StructSize(def);
  }
  return array;
}

} // namespace ogc

void _ZEL_OgcWcsAddStrucTag(int index, const char* name, ZEL_STRING* names, ZEL_StructTagDef* tag, ZEL_Type type,
                            std::int64_t n, std::uint8_t flags) {
  ZEL_StrStore(&names[index], name);
  *tag = {names[index].s, type, n, nullptr, flags};
}

void _ZEL_OgcWcsSetTagDataStr(int tag, char* element, const std::int64_t* offsets, const char* text) {
  _ZEL_OgcWcsSetTagDataStrArray(tag, 0, element, offsets, text);
}

void _ZEL_OgcWcsSetTagDataStrArray(int tag, std::int64_t i, char* element, const std::int64_t* offsets,
                                   const char* text) {
  if (text != nullptr && *text != '\0') ZEL_StrStore(reinterpret_cast<ZEL_STRING*>(element + offsets[tag]) + i, text);
}

void _ZEL_OgcWcsSetTagDataInt(int tag, char* element, const std::int64_t* offsets, std::int32_t value) {
  *reinterpret_cast<std::int32_t*>(element + offsets[tag]) = value;
}
