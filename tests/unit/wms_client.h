/// \file
/// A WMS client that reads documents given as texts, and its layers as plain values to compare and to print.
#pragma once

#include "curl_test.h"
#include "fake_bridge.h"
#include "zel_ogcwms_obj.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <stdlib.h>
#include <string>
#include <vector>

using Text = std::optional<std::string>;
using Record = std::vector<Text>;

struct PlainList {
  int count = 0;
  std::vector<Record> entries;
};

struct PlainValue {
  int flag = 0;
  Text text;
};

struct PlainLayer {
  int index, parent, level;
  std::map<std::string, PlainList> lists; ///< empty first records left out
  std::map<std::string, PlainValue> values;
};

inline Text textOf(const char* text) { return text != nullptr ? Text(text) : std::nullopt; }

inline bool isEmpty(const Record& record) {
  return std::ranges::none_of(record, [](const Text& text) { return text.has_value(); });
}

template <typename T, typename... Field>
PlainList oneOf(int count, const T* record, Field... fields) {
  PlainList list{count, {{textOf(record->*fields)...}}};
  if (isEmpty(list.entries[0])) list.entries.clear();
  return list;
}

template <typename T, typename... Field>
PlainList listOf(int count, const T* head, Field... fields) {
  PlainList list{count, {}};
  for (; head != nullptr; head = head->pNext) list.entries.push_back({textOf(head->*fields)...});
  if (count == 0 && list.entries.size() == 1 && isEmpty(list.entries[0])) list.entries.clear();
  return list;
}

inline PlainList textsOf(int count, const xNodeStr_t* node) {
  PlainList list{count, {}};
  for (; node != nullptr; node = node->next) list.entries.push_back({textOf(node->str)});
  return list;
}

inline PlainList namesOf(int count, COgcWmsNames::Reader& reader, const xWmsLayer_t& layer) {
  PlainList list{count, {}};
  reader.open(layer);
  while (const xNodeStr_t* node = reader.next()) list.entries.push_back({textOf(node->str)});
  return list;
}

inline std::vector<PlainLayer> layersOf(COgcWms& wms) {
  std::vector<PlainLayer> layers;
  COgcWmsNames::Reader srs(wms.SrsNames());
  COgcWmsNames::Reader crs(wms.CrsNames());
  wms.OgcWmsGetNextLayerSkip(0);
  while (const xWmsLayer_t* l = wms.OgcWmsGetNextLayer()) {
    using Geo = xWmsGeoBox_t;
    using Box = xWmsBBox_t;
    using Ext = xWmsExtent_t;
    using Dim = xWmsDimension_t;
    using Att = xWmsAttribution_t;
    using Sty = xWmsStyle_t;
    layers.push_back(
        {l->iIndex,
         l->iParent,
         l->iLevel,
         {{"map", textsOf(l->nMapFormat, l->pMapFormat)},
          {"feature", textsOf(l->nFeatureFormat, l->pFeatureFormat)},
          {"keyword", textsOf(l->nKeyword, l->pKeyword)},
          {"srs", namesOf(l->nSrs, srs, *l)},
          {"crs", namesOf(l->nCrs, crs, *l)},
          {"latlon", oneOf(l->nLatLonBBox, l->pLatLonBBox, &Geo::szMinX, &Geo::szMinY, &Geo::szMaxX, &Geo::szMaxY)},
          {"geo", oneOf(l->nExGeoBBox, l->pExGeoBBox, &Geo::szMinX, &Geo::szMinY, &Geo::szMaxX, &Geo::szMaxY)},
          {"bbox", listOf(l->nBBox, l->pBBox, &Box::szCrs, &Box::szSrs, &Box::szMinX, &Box::szMinY, &Box::szMaxX,
                          &Box::szMaxY, &Box::szResX, &Box::szResY)},
          {"extent",
           listOf(l->nExtent, l->pExtent, &Ext::szName, &Ext::szDefault, &Ext::szNearestValue, &Ext::szValue)},
          {"dimension",
           listOf(l->nDimension, l->pDimension, &Dim::szName, &Dim::szUnits, &Dim::szUnitSymbol, &Dim::szDefault,
                  &Dim::szMultipleValues, &Dim::szNearestValue, &Dim::szCurrent, &Dim::szValue)},
          {"attribution", oneOf(l->nAttribution, l->pAttribution, &Att::szTitle, &Att::szOnline, &Att::szLogoFormat,
                                &Att::szLogoOnline, &Att::szLogoWidth, &Att::szLogoHeight)},
          {"authority",
           listOf(l->nAuthorityUrl, l->pAuthorityUrl, &xWmsAuthorityUrl_t::szName, &xWmsAuthorityUrl_t::szOnline)},
          {"identifier",
           listOf(l->nIdentifier, l->pIdentifier, &xWmsIdentifier_t::szValue, &xWmsIdentifier_t::szAuthority)},
          {"metadata", listOf(l->nMetadataUrl, l->pMetadataUrl, &xWmsMetadataUrl_t::szType,
                              &xWmsMetadataUrl_t::szFormat, &xWmsMetadataUrl_t::szOnline)},
          {"data", listOf(l->nDataUrl, l->pDataUrl, &xWmsOnlineRes_t::szFormat, &xWmsOnlineRes_t::szOnline)},
          {"features", listOf(l->nFeatureUrl, l->pFeatureUrl, &xWmsOnlineRes_t::szFormat, &xWmsOnlineRes_t::szOnline)},
          {"style", listOf(l->nStyle, l->pStyle, &Sty::szName, &Sty::szTitle, &Sty::szAbstract, &Sty::szLegendFormat,
                           &Sty::szLegendOnline, &Sty::szLegendWidth, &Sty::szLegendHeight, &Sty::szSheetFormat,
                           &Sty::szSheetOnline, &Sty::szStyleFormat, &Sty::szStyleOnline)}},
         {{"version", {0, textOf(l->szVersion)}},
          {"update", {0, textOf(l->szUpdateSequence)}},
          {"name", {0, textOf(l->szName)}},
          {"title", {0, textOf(l->szTitle)}},
          {"abstract", {0, textOf(l->szAbstract)}},
          {"min", {l->bMinScale, textOf(l->szMinScale)}},
          {"max", {l->bMaxScale, textOf(l->szMaxScale)}},
          {"queryable", {l->bQueryable, textOf(l->szQueryable)}},
          {"cascaded", {l->bCascaded, textOf(l->szCascaded)}},
          {"opaque", {l->bOpaque, textOf(l->szOpaque)}},
          {"nosubsets", {l->bNoSubsets, textOf(l->szNoSubsets)}},
          {"fixedwidth", {l->bFixedWidth, textOf(l->szFixedWidth)}},
          {"fixedheight", {l->bFixedHeight, textOf(l->szFixedHeight)}}}});
  }
  return layers;
}

/// A layer in one line: index, parent, level, then what it has: "style 2[a|-|b][c]", "queryable!1" for a set flag.
inline std::string shown(const PlainLayer& layer) {
  std::string line =
      std::to_string(layer.index) + ' ' + std::to_string(layer.parent) + ' ' + std::to_string(layer.level);
  for (const auto& [name, value] : layer.values) {
    if (name == "version" || (value.flag == 0 && !value.text)) continue;
    line += ' ' + name + (value.flag != 0 ? "!" : "=") + value.text.value_or("-");
  }
  for (const auto& [name, list] : layer.lists) {
    if (list.count == 0 && list.entries.empty()) continue;
    line += ' ' + name + ' ' + std::to_string(list.count);
    for (const Record& entry : list.entries) {
      std::string fields;
      std::string gap;
      for (const Text& text : entry) {
        if (text) fields += std::exchange(gap, "") + *text;
        gap += text ? "|" : "-|";
      }
      line += '[' + (fields.empty() ? "-" : fields) + ']';
    }
  }
  return line;
}

inline std::string shown(const std::vector<PlainLayer>& layers) {
  std::string lines;
  for (const PlainLayer& layer : layers) lines += (lines.empty() ? "" : " / ") + shown(layer);
  return lines;
}

class Wms : public ::testing::Test {
protected:
  Wms() {
    std::string name = (std::filesystem::temp_directory_path() / "wmsXXXXXX").string();
    m_directory = mkdtemp(name.data());
    wms.OgcWmsInit();
    wms.OgcWmsSetCapFN(path("cap").c_str());
    wms.OgcWmsSetMapFN(path("map").c_str());
    wms.OgcWmsSetFeatFN(path("feature").c_str());
    wms.CurlSetCallback("on_status");
    fakeBridge() = {};
  }
  ~Wms() override { std::filesystem::remove_all(m_directory); }

  [[nodiscard]] std::string path(const char* name) const { return (m_directory / name).string(); }
  std::string write(const std::string& document) {
    std::ofstream(path("document.xml")) << document;
    return path("document.xml");
  }
  /// Reads a document from a file. \return the message of the failure, "" for none.
  std::string readDocument(const std::string& document, int disableInheritance = 0) {
    return errorOf([&] { wms.OgcWmsGetCap(write(document).c_str(), nullptr, 0, 0, disableInheritance); });
  }
  std::string read(const std::string& body, int disableInheritance = 0, const std::string& version = "1.1.1") {
    return readDocument("<WMT_MS_Capabilities version='" + version + "' xmlns:x='urn:x'>" + body +
                            "</WMT_MS_Capabilities>",
                        disableInheritance);
  }

  COgcWms wms;

private:
  std::filesystem::path m_directory;
};
