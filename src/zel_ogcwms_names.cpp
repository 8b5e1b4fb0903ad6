#include "zel_ogcwms_names.h"

#include "zel_ogcwms_obj.h"

#include <algorithm>
#include <unordered_map>

namespace {

constexpr xNodeStr_t absentName{nullptr, nullptr};

constexpr unsigned char lower(char c) noexcept {
  const auto u = static_cast<unsigned char>(c);
  return u >= 'A' && u <= 'Z' ? static_cast<unsigned char>(u + 32) : u;
}

/// FNV-1a over the lower-case bytes, http://www.isthe.com/chongo/tech/comp/fnv/.
struct FoldedHash {
  std::size_t operator()(const char* name) const noexcept {
    std::size_t hash = 14695981039346656037U;
    for (; *name != '\0'; ++name) hash = (hash ^ lower(*name)) * 1099511628211U;
    return hash;
  }
};

struct FoldedEqual {
  bool operator()(const char* a, const char* b) const noexcept {
    for (; lower(*a) == lower(*b); ++a, ++b) {
      if (*a == '\0') return true;
    }
    return false;
  }
};

} // namespace

/// Gives equal names equal ids.
class COgcWmsNames::Ids {
public:
  std::uint32_t of(const char* name) {
    if (name == nullptr) return absent;
    if (*name == '\0') return blank;
    return m_ids.try_emplace(name, static_cast<std::uint32_t>(count())).first->second;
  }
  [[nodiscard]] std::size_t count() const noexcept { return m_ids.size() + blank + 1; }

private:
  std::unordered_map<const char*, std::uint32_t, FoldedHash, FoldedEqual> m_ids;
};

/// The names of the layers that are open at one point of the document.
class COgcWmsNames::OpenNames {
public:
  /// Different names with text.
  [[nodiscard]] int count() const noexcept { return m_count; }
  /// Adds a name of layer `layer`. \return whether it repeats one of an enclosing layer, for the first time there.
  bool add(std::uint32_t id, int layer) {
    if (id >= m_names.size()) m_names.resize(id + 1);
    Name& name = m_names[id];
    const bool repeats = name.uses > 0 && name.layer != layer;
    if (name.uses++ == 0) ++m_count;
    name.layer = layer;
    return repeats;
  }
  void remove(std::uint32_t id) noexcept {
    if (--m_names[id].uses == 0) --m_count;
  }

private:
  struct Name {
    int uses = 0;
    int layer = -1; ///< that added it last
  };

  std::vector<Name> m_names; ///< by id
  int m_count = 0;
};

void COgcWmsNames::clear() noexcept {
  m_own.clear();
  m_ids.clear();
  m_idCount = 0;
}

void COgcWmsNames::inherit(std::span<xWmsLayer_t* const> layers) {
  clear();
  if (std::ranges::none_of(layers, [this](const xWmsLayer_t* layer) { return layer->*m_list != nullptr; })) return;
  m_own.reserve(layers.size());
  Ids ids;
  OpenNames open;
  std::vector<int> openLayers;
  for (xWmsLayer_t* layer : layers) {
    for (; !openLayers.empty() && openLayers.back() != layer->iParent; openLayers.pop_back()) {
      for (const std::uint32_t id : idsOf(openLayers.back())) {
        if (id > blank) open.remove(id);
      }
    }
    openLayers.push_back(layer->iIndex);

    const Own* parent = layer->iParent >= 0 ? &m_own[static_cast<std::size_t>(layer->iParent)] : nullptr;
    Own own;
    own.names = layer->*m_list;
    own.firstId = m_ids.size();
    own.parent = layer->iParent;
    int takenOver = open.count();
    for (const xNodeStr_t* node = own.names; node != nullptr; node = node->next) {
      const std::uint32_t id = m_ids.emplace_back(ids.of(node->str));
      if (id == absent) {
        ++own.absent;
      } else if (id == blank) {
        ++own.blank;
      } else if (open.add(id, layer->iIndex)) {
        --takenOver;
      }
    }
    own.size = m_ids.size() - own.firstId;
    if (parent != nullptr) {
      const int absentOnes = parent->absent + (own.blank == 0 ? parent->blank : 0);
      own.outer = parent->size > 0 ? layer->iParent : parent->outer;
      own.absent += absentOnes;
      own.takenOver = takenOver + absentOnes;
      layer->*m_count += own.takenOver;
    }
    m_own.push_back(own);
  }
  m_idCount = ids.count();
}

std::span<const std::uint32_t> COgcWmsNames::idsOf(int layer) const noexcept {
  const Own& own = m_own[static_cast<std::size_t>(layer)];
  return {m_ids.data() + own.firstId, own.size};
}

void COgcWmsNames::Reader::open(const xWmsLayer_t& layer) noexcept {
  ++m_round;
  m_owner = layer.iIndex;
  m_receiver = -1;
  m_node = layer.*m_names->m_list;
  m_toTakeOver = 0;
  if (m_names->m_own.empty()) return;
  const Own& own = m_names->m_own[static_cast<std::size_t>(m_owner)];
  m_toTakeOver = own.takenOver;
  m_next = own.firstId;
}

const xNodeStr_t* COgcWmsNames::Reader::next() noexcept {
  while (m_node != nullptr || m_toTakeOver > 0) {
    if (m_node == nullptr) {
      m_receiver = m_owner;
      m_owner = m_names->m_own[static_cast<std::size_t>(m_owner)].outer;
      const Own& own = m_names->m_own[static_cast<std::size_t>(m_owner)];
      m_node = own.names;
      m_next = own.firstId;
      continue;
    }
    const xNodeStr_t& node = *m_node;
    m_node = m_node->next;
    if (m_receiver < 0) {
      if (m_toTakeOver > 0) m_seen[m_names->m_ids[m_next++]] = m_round;
      return &node;
    }
    const xNodeStr_t* taken = take(node, m_names->m_ids[m_next++]);
    if (taken == nullptr) continue;
    if (--m_toTakeOver == 0) m_node = nullptr;
    return taken;
  }
  return nullptr;
}

const xNodeStr_t* COgcWmsNames::Reader::take(const xNodeStr_t& node, std::uint32_t id) noexcept {
  if (id == absent) return &node;
  if (id == blank) {
    const Own& receiver = m_names->m_own[static_cast<std::size_t>(m_receiver)];
    return receiver.parent == m_owner && receiver.blank > 0 ? nullptr : &absentName;
  }
  if (m_seen[id] == m_round) return nullptr;
  m_seen[id] = m_round;
  return &node;
}
