#include "zel_ogcwms_obj.h"

#include <span>
#include <strings.h>
#include <vector>

namespace {

using Layer = xWmsLayer_t;

/// A value that children inherit from a layer that gives it; their flag stays as it is.
struct ValueRow {
  int Layer::*flag;
  const char* Layer::*text;
};

constexpr ValueRow values[] = {
    {&Layer::bMinScale, &Layer::szMinScale},     {&Layer::bMaxScale, &Layer::szMaxScale},
    {&Layer::bQueryable, &Layer::szQueryable},   {&Layer::bCascaded, &Layer::szCascaded},
    {&Layer::bOpaque, &Layer::szOpaque},         {&Layer::bNoSubsets, &Layer::szNoSubsets},
    {&Layer::bFixedWidth, &Layer::szFixedWidth}, {&Layer::bFixedHeight, &Layer::szFixedHeight}};

/// Lets the child's list go on with `inherited`, a list of `inheritedCount` entries that both layers share from then
/// on.
template <typename T>
void merge(T*& head, int& count, T* inherited, int inheritedCount) noexcept {
  if (inheritedCount == 0) return;
  (count > 0 ? transfer::itemAt(head, count - 1)->next : head) = inherited;
  count += inheritedCount;
}

template <typename T>
void mergeLists(Layer& child, const Layer& parent, T* Layer::*list, int Layer::*count) noexcept {
  merge(child.*list, child.*count, parent.*list, parent.*count);
}

/// Gives the child the parent's record when it has none of its own.
template <typename T>
void shareWhenMissing(Layer& child, const Layer& parent, T* Layer::*record, int Layer::*count) noexcept {
  if (child.*count > 0 || parent.*count == 0) return;
  child.*record = parent.*record;
  child.*count = 1;
}

/// Gives the child a copy of the parent's first record when it has none of its own.
template <typename T>
void copyWhenMissing(ogc::xml::Arena& arena, Layer& child, const Layer& parent, T* Layer::*list, int Layer::*count) {
  if (child.*count > 0 || parent.*count == 0) return;
  child.*list = arena.make<T>();
  *(child.*list) = *(parent.*list);
  (child.*list)->next = nullptr;
  child.*count = 1;
}

void shareValues(Layer& child, const Layer& parent) noexcept {
  if (child.nAttribution < 1 && parent.nAttribution != 0) child.pAttribution = parent.pAttribution;
  for (const ValueRow& value : values) {
    if (child.*value.flag < 1 && parent.*value.flag != 0) child.*value.text = parent.*value.text;
  }
}

/// The dimensions that each layer hands down: name, units and unit symbol of its own, then what it inherited.
class DimensionHeritage {
public:
  DimensionHeritage(ogc::xml::Arena& arena, std::size_t layers) : m_arena(arena), m_handedDown(layers, nullptr) {}

  /// Makes the list for the children of `layer`, whose first `own` dimensions are its own.
  void keep(const Layer& layer, int own) {
    xWmsDimension_t*& head = m_handedDown[static_cast<std::size_t>(layer.iIndex)];
    xWmsDimension_t** link = &head;
    const xWmsDimension_t* dimension = layer.pDimension;
    for (; own > 0; --own, dimension = dimension->next) {
      auto* copy = m_arena.make<xWmsDimension_t>();
      copy->name = dimension->name;
      copy->units = dimension->units;
      copy->unitSymbol = dimension->unitSymbol;
      *link = copy;
      link = &copy->next;
    }
    *link = const_cast<xWmsDimension_t*>(dimension);
  }

  void mergeInto(Layer& child, const Layer& parent) noexcept {
    merge(child.pDimension, child.nDimension, m_handedDown[static_cast<std::size_t>(parent.iIndex)], parent.nDimension);
  }

private:
  ogc::xml::Arena& m_arena;
  std::vector<xWmsDimension_t*> m_handedDown; ///< by layer
};

bool hasVersion(const Layer& layer, const char* version) noexcept {
  return layer.szVersion != nullptr && strcasecmp(layer.szVersion, version) == 0;
}

} // namespace

void COgcWms::OgcWmsApplyInheritance() {
  if (layerCount() < 2 || m_inherited) return;
  const std::span layers(m_document.ppLayerCache.data(), static_cast<std::size_t>(layerCount()));
  for (int i = 0; i < layerCount(); ++i) {
    if (const int parent = layerAt(i).iParent; parent != -1) (void)layerAt(parent);
  }
  m_inherited = true;
  m_crsNames.inherit(layers);
  m_srsNames.inherit(layers);

  DimensionHeritage dimensions(m_document.arena, layers.size());
  bool is111 = hasVersion(*layers[1], "1.1.1"); // both up to the first layer of another version
  bool is130 = hasVersion(*layers[1], "1.3.0");
  for (std::size_t i = 0; i < layers.size(); ++i) {
    Layer& layer = *layers[i];
    is111 = is111 && (i == 0 || hasVersion(layer, "1.1.1"));
    is130 = is130 && (i == 0 || hasVersion(layer, "1.3.0"));
    const int ownDimensions = layer.nDimension;
    if (layer.iParent != -1) {
      const Layer& parent = layerAt(layer.iParent);
      mergeLists(layer, parent, &Layer::pStyle, &Layer::nStyle);
      shareWhenMissing(layer, parent, &Layer::pExGeoBBox, &Layer::nExGeoBBox);
      shareWhenMissing(layer, parent, &Layer::pLatLonBBox, &Layer::nLatLonBBox);
      if (is130) copyWhenMissing(m_document.arena, layer, parent, &Layer::pDimension, &Layer::nDimension);
      if (is111) dimensions.mergeInto(layer, parent);
      if (is111) copyWhenMissing(m_document.arena, layer, parent, &Layer::pExtent, &Layer::nExtent);
      copyWhenMissing(m_document.arena, layer, parent, &Layer::pBBox, &Layer::nBBox);
      mergeLists(layer, parent, &Layer::pAuthorityUrl, &Layer::nAuthorityUrl);
      shareValues(layer, parent);
    }
    const bool hasChildren = i + 1 < layers.size() && layers[i + 1]->iParent == layer.iIndex;
    if (is111 && hasChildren) dimensions.keep(layer, ownDimensions);
  }
}
