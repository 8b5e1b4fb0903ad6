/// \file
/// Reference system names of layers: their own and those inherited from the layers around them.
#pragma once

#include "zel_curl_text.h"

#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

struct xWmsLayer_t;

namespace ogc {

/// The names of one kind (SRS or CRS) of all layers of a document. A layer's names are its own, in document order, then
/// those of the enclosing layers from the inside out, less the ones that are already there in any letter case; a name
/// without text is never a repetition. Inherited names are not copied: memory and time are linear in the names that
/// the document holds.
class ReferenceSystems {
public:
  /// Walks the names of one layer after the other without allocating for each. Valid until the document is released.
  class Reader {
  public:
    explicit Reader(const ReferenceSystems& names) : m_names(&names), m_seen(names.m_idOf.size() + firstReal) {}
    /// Starts with the first name of `layer`.
    void open(const xWmsLayer_t& layer) noexcept;
    /// The next name, null when there is none left. A node's text is null when it is absent.
    [[nodiscard]] const xNodeStr_t* next() noexcept;

  private:
    /// The name as inherited from the layer being read, null when it is a repetition.
    const xNodeStr_t* take(const xNodeStr_t& node, std::uint32_t id) noexcept;

    const ReferenceSystems* m_names;
    std::vector<std::uint32_t> m_seen; ///< by name id: the round in which the name was last met
    std::uint32_t m_round = 0;
    int m_owner = -1;        ///< layer whose own names are being read
    int m_receiver = -1;     ///< layer that was read before it, -1 none
    int m_inheritedLeft = 0; ///< names of enclosing layers that are still to come
    std::size_t m_next = 0;  ///< place of the node's id
    const xNodeStr_t* m_node = nullptr;
  };

  ReferenceSystems(xNodeStr_t* xWmsLayer_t::*list, int xWmsLayer_t::*count) noexcept : m_list(list), m_count(count) {}

  /// Lets every layer but the first inherit the names of its parent, and adds their number to the layer's count.
  /// `layers` are in document order, each after its parent.
  void inherit(std::span<xWmsLayer_t* const> layers);
  void clear() noexcept;

private:
  /// Ids of names; equal names have equal ones.
  enum Id : std::uint32_t {
    absent,   ///< a name without text
    empty,    ///< an empty text, which is inherited as an absent one
    unshared, ///< a name of an innermost layer that no enclosing layer has
    firstReal
  };

  struct Own {
    const xNodeStr_t* names = nullptr;
    std::size_t firstId = 0; ///< place of the first name's id
    std::size_t idCount = 0;
    int parent = -1;
    int nearestNamedAncestor = -1; ///< enclosing layer, -1 none
    int inheritedCount = 0;        ///< number of names from enclosing layers
    int absentCount = 0;           ///< absent ones among all names, inherited or not
    int emptyCount = 0;            ///< empty ones among the own names
  };

  struct FoldedHash { // FNV-1a over the lower-case bytes, http://www.isthe.com/chongo/tech/comp/fnv/
    std::size_t operator()(const char* name) const noexcept;
  };
  struct FoldedEqual {
    bool operator()(const char* a, const char* b) const noexcept;
  };
  class Lookup;
  class OpenNames;

  [[nodiscard]] std::uint32_t idOf(const char* name) const;

  [[nodiscard]] std::span<const std::uint32_t> idsOf(int layer) const noexcept;

  xNodeStr_t* xWmsLayer_t::*m_list;
  int xWmsLayer_t::*m_count;
  std::vector<Own> m_own;           ///< by layer; empty when nothing is inherited
  std::vector<std::uint32_t> m_ids; ///< of the own names of layers that others are in, layer by layer
  std::unordered_map<const char*, std::uint32_t, FoldedHash, FoldedEqual> m_idOf; ///< of these layers' names
};

} // namespace ogc
