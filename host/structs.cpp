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

constexpr std::int64_t maxSize = std::int64_t{1} << 40;

/// This many unused definitions are kept, since results of one shape often follow each other.
constexpr std::size_t spareCount = 64;

struct Definitions {
  std::vector<std::unique_ptr<ZEL_StructDef>> named;
  std::vector<std::unique_ptr<ZEL_StructDef>> anonymous; // nested ones before those that use them
  std::unordered_map<std::string_view, const ZEL_StructDef*> byName;
  std::unordered_multimap<std::size_t, const ZEL_StructDef*> byTags;
  std::size_t sweepAt = spareCount; // number of anonymous ones at which to remove the unused

  ~Definitions() { // later ones use earlier ones
    while (!anonymous.empty()) anonymous.pop_back();
    while (!named.empty()) named.pop_back();
  }
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
  const std::int64_t size = tag.sdef != nullptr ? tag.sdef->size : typeSize(tag.type);
  const std::int64_t alignment =
      tag.sdef != nullptr ? tag.sdef->alignment : std::min(size, static_cast<std::int64_t>(alignof(ZEL_STRING)));
  const std::int64_t n = std::max<std::int64_t>(tag.n, 1);
  if (size == 0) refuse(def, "tag " + tag.name + " has a type that a structure cannot hold.");
  if (tag.n < 0 || n > maxSize / size) refuse(def, "tag " + tag.name + " has an impossible number of elements.");

  tag.offset = (def.size + alignment - 1) / alignment * alignment;
  def.size = tag.offset + n * size;
  if (def.size > maxSize) refuse(def, "it is too large.");
  def.alignment = std::max(def.alignment, alignment);
  if (tag.type == ZEL_TYP_STRING) addTexts(def, {tag.offset, n});
  if (tag.sdef != nullptr)
    for (std::int64_t k = 0; k < n; ++k)
      for (const TextRun& run : tag.sdef->texts) addTexts(def, {tag.offset + k * size + run.offset, run.count});
  hold(tag.sdef);
  def.tags.push_back(std::move(tag));
}

void addTags(ZEL_StructDef& def, const ZEL_StructTagDef* tags) {
  for (; tags != nullptr && tags->name != nullptr; ++tags) {
    if ((tags->type == ZEL_TYP_STRUCT) != (tags->sdef != nullptr))
      refuse(def, std::string("tag ") + tags->name + " must have a definition exactly when it is a structure.");
    if ((tags->flags & ZEL_TAG_INHERIT) != 0) {
      def.parents.push_back(tags->sdef);
      hold(tags->sdef);
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

const ZEL_StructDef* defineNamed(std::string_view name, const ZEL_StructTagDef* tags) {
  auto& known = definitions();
  auto def = std::make_unique<ZEL_StructDef>();
  def->name = upper(name);
  if (const auto* existing = findStruct(def->name)) return existing;
  addTags(*def, tags);
  indexTags(*def);
  known.byName.emplace(def->name, def.get());
  return known.named.emplace_back(std::move(def)).get();
}

const ZEL_StructDef* defineAnonymous(const ZEL_StructTagDef* tags) {
  auto& known = definitions();
  auto def = std::make_unique<ZEL_StructDef>();
  addTags(*def, tags);
  def->hash = hashTags(*def);
  const auto [begin, end] = known.byTags.equal_range(def->hash);
  const auto same = std::find_if(begin, end, [&](const auto& entry) { return equalTags(*entry.second, *def); });
  if (same != end) return same->second;
  indexTags(*def);
  known.byTags.emplace(def->hash, def.get());
  return known.anonymous.emplace_back(std::move(def)).get();
}

/// Removes a definition that nothing uses.
void forget(std::unique_ptr<ZEL_StructDef>& def) noexcept {
  auto& byTags = definitions().byTags;
  const auto [begin, end] = byTags.equal_range(def->hash);
  byTags.erase(std::find_if(begin, end, [&](const auto& entry) { return entry.second == def.get(); }));
  def.reset();
}

std::int64_t tagInfo(const Tag& tag, ZEL_StructTagDef* out) noexcept {
  if (out != nullptr) *out = {tag.name.c_str(), tag.type, tag.n, tag.sdef, 0};
  return tag.offset;
}

} // namespace

const ZEL_StructDef* findStruct(std::string_view name) noexcept {
  const auto& byName = definitions().byName;
  const auto found = byName.find(name);
  return found == byName.end() ? nullptr : found->second;
}

void hold(const ZEL_StructDef* sdef) noexcept {
  if (sdef != nullptr) ++sdef->users;
}

void drop(const ZEL_StructDef* sdef) noexcept {
  if (sdef != nullptr) --sdef->users;
}

void forgetUnusedStructs() noexcept {
  auto& known = definitions();
  if (known.anonymous.size() < known.sweepAt) return;
  std::for_each(known.anonymous.rbegin(), known.anonymous.rend(), [](auto& def) {
    if (def->users == 0) forget(def);
  });
  std::erase(known.anonymous, nullptr);
  known.sweepAt = std::max(spareCount, 2 * known.anonymous.size());
}

std::size_t structCount() noexcept { return definitions().named.size() + definitions().anonymous.size(); }

} // namespace zel::host

ZEL_StructDef::~ZEL_StructDef() {
  for (const zel::host::Tag& tag : tags) zel::host::drop(tag.sdef);
  for (const ZEL_StructDef* parent : parents) zel::host::drop(parent);
}

using namespace zel::host;

const ZEL_StructDef* ZEL_MakeStruct(const char* name, const ZEL_StructTagDef* tags) {
  return name != nullptr ? defineNamed(name, tags) : defineAnonymous(tags);
}

const ZEL_StructDef* ZEL_MakeStructInternal(const char* name, const ZEL_StructTagDef* tags) {
  if (name == nullptr) raise("A structure that belongs to a module needs a name.");
  return defineNamed(name, tags);
}

int ZEL_StructNumTags(const ZEL_StructDef* sdef) noexcept { return static_cast<int>(sdef->tags.size()); }

std::int64_t ZEL_StructSize(const ZEL_StructDef* sdef) noexcept { return sdef->size; }

std::int64_t ZEL_StructTagInfoByIndex(const ZEL_StructDef* sdef, int index, ZEL_StructTagDef* tag) {
  if (index < 0 || index >= ZEL_StructNumTags(sdef))
    raise("A structure of " + std::to_string(sdef->tags.size()) + " tags has no tag " + std::to_string(index) + '.');
  return tagInfo(sdef->tags[static_cast<std::size_t>(index)], tag);
}

std::int64_t ZEL_StructTagInfoByName(const ZEL_StructDef* sdef, const char* name, int action, ZEL_StructTagDef* tag) {
  const auto found = sdef->positions.find(upper(name));
  if (found != sdef->positions.end()) return tagInfo(sdef->tags[static_cast<std::size_t>(found->second)], tag);
  if (action != ZEL_MSG_ERROR) return -1;
  raise("Structure " + (sdef->name.empty() ? std::string("without a name") : sdef->name) + " has no tag " + name + '.');
}
