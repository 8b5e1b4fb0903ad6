#include "zel_ogcwms_reference_systems.h"

#include "zel_ogcwms_obj.h"

#include <algorithm>
#include <utility>

namespace ogc {

namespace {

constexpr xNodeStr_t absentName{nullptr, nullptr};

constexpr unsigned char lower(char c) noexcept {
  const auto u = static_cast<unsigned char>(c);
  return u >= 'A' && u <= 'Z' ? static_cast<unsigned char>(u + 32) : u;
}

} // namespace

std::size_t ReferenceSystems::FoldedHash::operator()(const char* name) const noexcept {
  std::size_t hash = 14695981039346656037U;
  for (; *name != '\0'; ++name) hash = (hash ^ lower(*name)) * 1099511628211U;
  return hash;
}

bool ReferenceSystems::FoldedEqual::operator()(const char* a, const char* b) const noexcept {
  for (; *a == *b || lower(*a) == lower(*b); ++a, ++b) {
    if (*a == '\0') return true;
  }
  return false;
}

std::uint32_t ReferenceSystems::idOf(const char* name) const {
  if (name == nullptr) return absent;
  if (*name == '\0') return empty;
  const auto entry = m_idOf.find(name);
  return entry != m_idOf.end() ? entry->second : unshared;
}

/// Looks names up in the order in which layers list them: what followed a name the last time is tried first.
class ReferenceSystems::Lookup {
public:
  explicit Lookup(ReferenceSystems& names) : m_names(names) {}
  /// Id of a name. \param make gives it one when it has none
  std::uint32_t id(const char* name, bool make) {
    const std::uint32_t guess = m_known[m_last].follower;
    const bool guessed = guess >= firstReal && name != nullptr &&
                         (m_known[guess].name == name || FoldedEqual{}(m_known[guess].name, name));
    std::uint32_t id = guessed ? guess : m_names.idOf(name);
    if (id == unshared && make) {
      id = static_cast<std::uint32_t>(m_known.size());
      m_names.m_idOf.emplace(name, id);
      m_known.push_back({name});
    }
    m_known[m_last].follower = id;
    m_last = id;
    return id;
  }

private:
  struct Known {
    const char* name = nullptr;
    std::uint32_t follower = absent; ///< id of the name that came next
  };

  ReferenceSystems& m_names;
  std::vector<Known> m_known = std::vector<Known>(firstReal); ///< by id
  std::uint32_t m_last = absent;
};

/// The names of the layers that are open at one point of the document.
class ReferenceSystems::OpenNames {
public:
  /// Different names with text.
  [[nodiscard]] int count() const noexcept { return m_count; }
  /// True when layer `layer` lists for the first time a name that an enclosing layer has.
  bool repeats(std::uint32_t id, int layer) {
    if (id < firstReal) return false;
    if (id >= m_names.size()) m_names.resize(id + 1);
    return m_names[id].uses > 0 && std::exchange(m_names[id].layer, layer) != layer;
  }
  /// Adds a name of a layer, after asking whether it repeats.
  void add(std::uint32_t id, int layer) noexcept {
    if (id < firstReal) return;
    m_names[id].layer = layer;
    if (m_names[id].uses++ == 0) ++m_count;
  }
  void remove(std::uint32_t id) noexcept {
    if (id >= firstReal && --m_names[id].uses == 0) --m_count;
  }

private:
  struct Name {
    int uses = 0;
    int layer = -1; ///< that listed it last
  };

  std::vector<Name> m_names; ///< by id
  int m_count = 0;
};

void ReferenceSystems::clear() noexcept {
  m_own.clear();
  m_ids.clear();
  m_idOf.clear();
}

void ReferenceSystems::inherit(std::span<xWmsLayer_t* const> layers) {
  clear();
  if (std::ranges::none_of(layers, [this](const xWmsLayer_t* layer) { return layer->*m_list != nullptr; })) return;
  m_own.reserve(layers.size());
  Lookup lookup(*this);
  OpenNames open;
  std::vector<int> openLayers;
  for (std::size_t i = 0; i < layers.size(); ++i) {
    xWmsLayer_t& layer = *layers[i];
    for (; !openLayers.empty() && openLayers.back() != layer.iParent; openLayers.pop_back()) {
      for (const std::uint32_t id : idsOf(openLayers.back())) open.remove(id);
    }
    const bool handsDown = i + 1 < layers.size() && layers[i + 1]->iParent == layer.iIndex;
    const int inherited = open.count();
    const Own* parent = layer.iParent >= 0 ? &m_own[static_cast<std::size_t>(layer.iParent)] : nullptr;
    Own own;
    own.names = layer.*m_list;
    own.firstId = m_ids.size();
    own.parent = layer.iParent;
    for (const xNodeStr_t* node = own.names; node != nullptr; node = node->next) {
      const std::uint32_t id = lookup.id(node->str, handsDown);
      if (id == absent) ++own.absentCount;
      if (id == empty) ++own.emptyCount;
      if (open.repeats(id, layer.iIndex)) --own.inheritedCount;
      if (!handsDown) continue;
      m_ids.push_back(id);
      open.add(id, layer.iIndex);
    }
    own.idCount = m_ids.size() - own.firstId;
    if (parent != nullptr) {
      const int absentOnes = parent->absentCount + (own.emptyCount == 0 ? parent->emptyCount : 0);
      own.nearestNamedAncestor = parent->idCount > 0 ? layer.iParent : parent->nearestNamedAncestor;
      own.absentCount += absentOnes;
      own.inheritedCount += inherited + absentOnes;
      layer.*m_count += own.inheritedCount;
    }
    m_own.push_back(own);
    openLayers.push_back(layer.iIndex);
  }
}

std::span<const std::uint32_t> ReferenceSystems::idsOf(int layer) const noexcept {
  const Own& own = m_own[static_cast<std::size_t>(layer)];
  return {m_ids.data() + own.firstId, own.idCount};
}

void ReferenceSystems::Reader::open(const xWmsLayer_t& layer) noexcept {
  ++m_round;
  m_owner = layer.iIndex;
  m_receiver = -1;
  m_node = layer.*m_names->m_list;
  m_inheritedLeft = 0;
  if (!m_names->m_own.empty()) m_inheritedLeft = m_names->m_own[static_cast<std::size_t>(m_owner)].inheritedCount;
}

const xNodeStr_t* ReferenceSystems::Reader::next() noexcept {
  while (m_node != nullptr || m_inheritedLeft > 0) {
    if (m_node == nullptr) {
      m_receiver = m_owner;
      m_owner = m_names->m_own[static_cast<std::size_t>(m_owner)].nearestNamedAncestor;
      const Own& own = m_names->m_own[static_cast<std::size_t>(m_owner)];
      m_node = own.names;
      m_next = own.firstId;
      continue;
    }
    const xNodeStr_t& node = *m_node;
    m_node = m_node->next;
    if (m_receiver < 0) {
      if (m_inheritedLeft > 0) m_seen[m_names->idOf(node.str)] = m_round;
      return &node;
    }
    const xNodeStr_t* taken = take(node, m_names->m_ids[m_next++]);
    if (taken == nullptr) continue;
    if (--m_inheritedLeft == 0) m_node = nullptr;
    return taken;
  }
  return nullptr;
}

const xNodeStr_t* ReferenceSystems::Reader::take(const xNodeStr_t& node, std::uint32_t id) noexcept {
  if (id == absent) return &node;
  if (id == empty) {
    const Own& receiver = m_names->m_own[static_cast<std::size_t>(m_receiver)];
    return receiver.parent == m_owner && receiver.emptyCount > 0 ? nullptr : &absentName;
  }
  if (m_seen[id] == m_round) return nullptr;
  m_seen[id] = m_round;
  return &node;
}

} // namespace ogc
