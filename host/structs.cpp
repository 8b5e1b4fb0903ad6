#include "host/structs.h"

#include "host/messages.h"
#include "host/strings.h"
#include "host/variables.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

namespace zel::host {

namespace {

constexpr std::int64_t kMaxSize = std::int64_t{1} << 40;

struct Definitions {
  std::vector<std::unique_ptr<ZEL_StructDef>> all;
  std::unordered_map<std::string_view, const ZEL_StructDef*> named;
  std::unordered_multimap<std::size_t, const ZEL_StructDef*> anonymous; // by the hash of their tags
};

Definitions& definitions() {
  static Definitions defined;
  return defined;
}

[[noreturn]] void refuse(const ZEL_StructDef& def, const std::string& why) {
  raise("Unable to define " + (def.name.empty() ? "an anonymous structure" : "structure " + def.name) + ": " + why);
}

void addTexts(ZEL_StructDef& def, TextRun run) {
  if (!def.texts.empty()) {
    TextRun& last = def.texts.back();
    if (last.offset + last.count * static_cast<std::int64_t>(sizeof(ZEL_STRING)) == run.offset) {
      last.count += run.count;
      return;
    }
  }
  def.texts.push_back(run);
}

void addTag(ZEL_StructDef& def, Tag tag) {
  const std::int64_t size = tag.sdef ? tag.sdef->size : typeSize(tag.type);
  const std::int64_t alignment =
      tag.sdef ? tag.sdef->alignment : std::min(size, static_cast<std::int64_t>(alignof(ZEL_STRING)));
  const std::int64_t n = std::max<std::int64_t>(tag.n, 1);
  if (size == 0) refuse(def, "tag " + tag.name + " has no type that can stand in a structure.");
  if (tag.n < 0 || n > kMaxSize / size) refuse(def, "tag " + tag.name + " has an impossible number of elements.");

  tag.offset = (def.size + alignment - 1) / alignment * alignment;
  def.size = tag.offset + n * size;
  if (def.size > kMaxSize) refuse(def, "it is too large.");
  def.alignment = std::max(def.alignment, alignment);
  if (tag.type == ZEL_TYP_STRING) addTexts(def, {tag.offset, n});
  if (tag.sdef)
    for (std::int64_t k = 0; k < n; ++k)
      for (const TextRun& run : tag.sdef->texts) addTexts(def, {tag.offset + k * size + run.offset, run.count});
  def.tags.push_back(std::move(tag));
}

void addTags(ZEL_StructDef& def, const ZEL_StructTagDef* tags) {
  for (; tags && tags->name; ++tags) {
    if ((tags->type == ZEL_TYP_STRUCT) != (tags->sdef != nullptr))
      refuse(def, std::string("tag ") + tags->name + " must have a definition exactly when it is a structure.");
    if (tags->flags & ZEL_TAG_INHERIT) {
      def.parents.push_back(tags->sdef);
      for (const Tag& tag : tags->sdef->tags) addTag(def, tag);
    } else {
      addTag(def, {upper(tags->name), tags->type, tags->n, tags->sdef, 0});
    }
  }
  if (def.tags.empty()) refuse(def, "it has no tags.");
  def.size = (def.size + def.alignment - 1) / def.alignment * def.alignment;
}

void indexTags(ZEL_StructDef& def) {
  for (std::size_t i = 0; i < def.tags.size(); ++i)
    if (!def.positions.emplace(def.tags[i].name, static_cast<int>(i)).second)
      refuse(def, "tag " + def.tags[i].name + " appears twice.");
}

std::size_t hashTags(const ZEL_StructDef& def) {
  std::size_t hash = 0;
  const auto mix = [&hash](std::size_t h) { hash = (hash ^ h) * 0x9E3779B97F4A7C15U + (hash >> 29); };
  for (const Tag& tag : def.tags) {
    mix(std::hash<std::string>{}(tag.name));
    mix(tag.type);
    mix(static_cast<std::size_t>(tag.n));
    mix(std::hash<const void*>{}(tag.sdef));
  }
  return hash;
}

bool equalTags(const ZEL_StructDef& a, const ZEL_StructDef& b) {
  return std::equal(a.tags.begin(), a.tags.end(), b.tags.begin(), b.tags.end(), [](const Tag& x, const Tag& y) {
    return x.name == y.name && x.type == y.type && x.n == y.n && x.sdef == y.sdef;
  });
}

const ZEL_StructDef* define(const char* name, const ZEL_StructTagDef* tags, bool internal) {
  auto& known = definitions();
  auto def = std::make_unique<ZEL_StructDef>();
  if (name) {
    def->name = upper(name);
    if (const auto* existing = findStruct(def->name)) return existing;
  }
  def->internal = internal;
  addTags(*def, tags);
  if (name) {
    indexTags(*def);
    known.named.emplace(def->name, def.get());
  } else {
    const std::size_t hash = hashTags(*def);
    const auto [begin, end] = known.anonymous.equal_range(hash);
    const auto same = std::find_if(begin, end, [&](const auto& entry) { return equalTags(*entry.second, *def); });
    if (same != end) return same->second;
    indexTags(*def);
    known.anonymous.emplace(hash, def.get());
  }
  return known.all.emplace_back(std::move(def)).get();
}

std::int64_t tagInfo(const Tag& tag, ZEL_StructTagDef* out) noexcept {
  if (out) *out = {tag.name.c_str(), tag.type, tag.n, tag.sdef, 0};
  return tag.offset;
}

} // namespace

const ZEL_StructDef* findStruct(std::string_view name) noexcept {
  const auto& named = definitions().named;
  const auto found = named.find(name);
  return found == named.end() ? nullptr : found->second;
}

} // namespace zel::host

using zel::host::raise;

extern "C" {

const ZEL_StructDef* ZEL_MakeStruct(const char* name, const ZEL_StructTagDef* tags) {
  return zel::host::define(name, tags, false);
}

const ZEL_StructDef* ZEL_MakeStructInternal(const char* name, const ZEL_StructTagDef* tags) {
  if (!name) raise("A structure that belongs to a module needs a name.");
  return zel::host::define(name, tags, true);
}

int ZEL_StructNumTags(const ZEL_StructDef* sdef) noexcept { return static_cast<int>(sdef->tags.size()); }

std::int64_t ZEL_StructSize(const ZEL_StructDef* sdef) noexcept { return sdef->size; }

std::int64_t ZEL_StructTagInfoByIndex(const ZEL_StructDef* sdef, int index, ZEL_StructTagDef* tag) {
  if (index < 0 || index >= ZEL_StructNumTags(sdef))
    raise("A structure of " + std::to_string(sdef->tags.size()) + " tags has no tag " + std::to_string(index) + '.');
  return zel::host::tagInfo(sdef->tags[static_cast<std::size_t>(index)], tag);
}

std::int64_t ZEL_StructTagInfoByName(const ZEL_StructDef* sdef, const char* name, int action, ZEL_StructTagDef* tag) {
  const auto found = sdef->positions.find(zel::host::upper(name));
  if (found != sdef->positions.end())
    return zel::host::tagInfo(sdef->tags[static_cast<std::size_t>(found->second)], tag);
  if (action != ZEL_MSG_ERROR) return -1;
  raise("Structure " + (sdef->name.empty() ? std::string("without a name") : sdef->name) + " has no tag " + name + '.');
}

} // extern "C"
