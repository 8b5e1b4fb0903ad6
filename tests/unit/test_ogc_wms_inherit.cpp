// What layers take over from the layers around them.
#include "wms_client.h"

#include <random>
#include <strings.h>

namespace {

TEST_F(Wms, LayersInheritByTheRulesOfTheirVersion) {
  const std::string time = "<Dimension name='t' units='u' unitSymbol='s' default='d'>v</Dimension>";
  const std::string extent = "<Extent name='t' default='d'>e</Extent><Extent name='z'/>";
  const auto twoBelow = [](const std::string& root, const std::string& child) {
    return "<Layer>" + root + "<Layer>" + child + "<Layer/></Layer></Layer>";
  };
  const struct {
    std::string body;
    std::string version;
    std::string below; ///< the child and the grandchild
  } cases[] = {
      {"<Layer queryable='1' fixedWidth='3'><ScaleHint max='9'/><Layer><Layer/></Layer></Layer>", "1.1.1",
       "1 0 2 fixedwidth=3 max=9 queryable=1 / 2 1 3"},
      {twoBelow("<Attribution><Title>t</Title></Attribution>", ""), "1.3.0", "1 0 2 attribution 0[t] / 2 1 3"},
      {twoBelow("<BoundingBox SRS='a'/><BoundingBox SRS='b'/>", ""), "1.1.0", "1 0 2 bbox 1[-|a] / 2 1 3 bbox 1[-|a]"},
      {twoBelow("<CRS>EPSG:1</CRS><CRS>EPSG:2</CRS>", "<CRS>epsg:1</CRS>"), "1.3.0",
       "1 0 2 crs 2[epsg:1][EPSG:2] / 2 1 3 crs 2[epsg:1][EPSG:2]"},
      {twoBelow("<SRS>A B</SRS><SRS>a</SRS><SRS/><SRS/>", "<SRS>b C</SRS>"), "1.1.1",
       "1 0 2 srs 4[b][C][A][-][-] / 2 1 3 srs 5[b][C][A][-][-]"},
      {twoBelow("<Style><Name>s</Name></Style>", "<Style><Name>s</Name></Style>"), "1.1.1",
       "1 0 2 style 2[s][s] / 2 1 3 style 2[s][s]"},
      {twoBelow("<AuthorityURL name='a'/>", ""), "1.1.1", "1 0 2 authority 1[a] / 2 1 3 authority 1[a]"},
      {twoBelow("<LatLonBoundingBox minx='1'/>", "<EX_GeographicBoundingBox/>"), "1.1.1",
       "1 0 2 geo 1 latlon 1[1] / 2 1 3 geo 1 latlon 1[1]"},
      {twoBelow(time + time, ""), "1.3.0", "1 0 2 dimension 1[t|u|s|d|-|-|-|v] / 2 1 3 dimension 1[t|u|s|d|-|-|-|v]"},
      {twoBelow(time, "<Dimension name='z'/>"), "1.3.0", "1 0 2 dimension 1[z] / 2 1 3 dimension 1[z]"},
      {twoBelow(time, "<Dimension name='z' default='0'/>"), "1.1.1",
       "1 0 2 dimension 2[z|-|-|0][t|u|s] / 2 1 3 dimension 2[z][t|u|s]"},
      {twoBelow(time + extent, ""), "1.1.1",
       "1 0 2 dimension 1[t|u|s] extent 1[t|d|-|e] / "
       "2 1 3 dimension 1[t|u|s] extent 1[t|d|-|e]"},
      {twoBelow(time + extent, ""), "1.1.0", "1 0 2 / 2 1 3"},
      {twoBelow(extent, ""), "1.3.0", "1 0 2 / 2 1 3"},
      {twoBelow(
           "<Name>n</Name><Title>t</Title><KeywordList><Keyword>k</Keyword></KeywordList><Identifier>i</Identifier>"
           "<MetadataURL type='m'/><DataURL><Format>f</Format></DataURL>",
           ""),
       "1.1.1", "1 0 2 / 2 1 3"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(read(c.body, 0, c.version), "") << c.body;
    std::vector<PlainLayer> layers = layersOf(wms);
    layers.erase(layers.begin());
    EXPECT_EQ(shown(layers), c.below) << c.version << c.body;
  }
}

/// The rules by plain copying, one property after the other.
class PlainInheritance {
public:
  explicit PlainInheritance(std::vector<PlainLayer>& layers) : m_layers(layers) {
    const std::string version = layers[0].values.at("version").text.value_or("");
    merge("style", 11);
    mergeNames("crs");
    mergeNames("srs");
    copyWhenMissing("geo");
    copyWhenMissing("latlon");
    if (version == "1.3.0") copyWhenMissing("dimension");
    if (version == "1.1.1") merge("dimension", 3);
    if (version == "1.1.1") copyWhenMissing("extent");
    copyWhenMissing("bbox");
    each([](PlainLayer& child, const PlainLayer& parent) {
      PlainList& mine = child.lists.at("attribution");
      if (mine.count < 1 && parent.lists.at("attribution").count != 0) {
        mine.entries = parent.lists.at("attribution").entries;
      }
    });
    merge("authority", 2);
    for (const char* name :
         {"min", "max", "queryable", "cascaded", "opaque", "nosubsets", "fixedwidth", "fixedheight"}) {
      each([name](PlainLayer& child, const PlainLayer& parent) {
        if (child.values.at(name).flag < 1 && parent.values.at(name).flag != 0) {
          child.values.at(name).text = parent.values.at(name).text;
        }
      });
    }
  }

private:
  template <typename Rule>
  void each(Rule rule) {
    for (std::size_t i = 1; i < m_layers.size(); ++i) {
      if (m_layers[i].parent != -1) rule(m_layers[i], m_layers[static_cast<std::size_t>(m_layers[i].parent)]);
    }
  }

  void merge(const char* list, std::size_t fields) {
    each([&](PlainLayer& child, const PlainLayer& parent) {
      PlainList& mine = child.lists.at(list);
      for (Record entry : parent.lists.at(list).entries) {
        std::fill(entry.begin() + static_cast<std::ptrdiff_t>(fields), entry.end(), std::nullopt);
        mine.entries.push_back(entry);
        ++mine.count;
      }
    });
  }

  void mergeNames(const char* list) {
    each([&](PlainLayer& child, const PlainLayer& parent) {
      PlainList& mine = child.lists.at(list);
      for (const Record& entry : parent.lists.at(list).entries) {
        const Text& name = entry[0];
        if (name && std::ranges::any_of(mine.entries, [&](const Record& own) {
              return own[0] && strcasecmp(own[0]->c_str(), name->c_str()) == 0;
            })) {
          continue;
        }
        mine.entries.push_back({name && !name->empty() ? name : std::nullopt});
        ++mine.count;
      }
    });
  }

  void copyWhenMissing(const char* list) {
    each([&](PlainLayer& child, const PlainLayer& parent) {
      PlainList& mine = child.lists.at(list);
      const PlainList& theirs = parent.lists.at(list);
      if (mine.count > 0 || theirs.count == 0) return;
      mine.count = 1;
      mine.entries.assign(theirs.entries.begin(), theirs.entries.begin() + (theirs.entries.empty() ? 0 : 1));
    });
  }

  std::vector<PlainLayer>& m_layers;
};

/// Documents of layers nested and filled at random.
class RandomDocument {
public:
  explicit RandomDocument(unsigned seed) : m_random(seed) {}

  std::string layers() {
    std::string body;
    for (int n = 1 + below(2); n > 0; --n) body += layer(1);
    return body;
  }

private:
  int below(int n) { return static_cast<int>(m_random() % static_cast<unsigned>(n)); }

  std::string layer(int level) {
    static constexpr const char* contents[] = {
        "<SRS>EPSG:1</SRS>",
        "<SRS>epsg:1 EPSG:2</SRS>",
        "<SRS>Epsg:2,EPSG:3 epsg:3</SRS>",
        "<SRS/>",
        "<SRS> </SRS>",
        "<CRS>CRS:84</CRS>",
        "<CRS>crs:84</CRS>",
        "<CRS>EPSG:4 x</CRS>",
        "<CRS/>",
        "<Style><Name>a</Name><LegendURL width='1'><Format>f</Format></LegendURL></Style>",
        "<Style><Name>b</Name><StyleURL><OnlineResource href='u'/></StyleURL></Style>",
        "<Style/>",
        "<EX_GeographicBoundingBox><westBoundLongitude>1</westBoundLongitude></EX_GeographicBoundingBox>",
        "<EX_GeographicBoundingBox/>",
        "<LatLonBoundingBox minx='1' maxy='4'/>",
        "<Dimension name='t' units='u' unitSymbol='s' default='d' multipleValues='1' current='1'>v</Dimension>",
        "<Dimension name='z' units='m'/>",
        "<Dimension/>",
        "<Extent name='t' default='d'>e</Extent>",
        "<Extent nearestValue='1'/>",
        "<BoundingBox SRS='s' minx='1' resx='2'/>",
        "<BoundingBox CRS='c'/>",
        "<Attribution><Title>t</Title><LogoURL width='1'/></Attribution>",
        "<Attribution/>",
        "<AuthorityURL name='a'><OnlineResource href='u'/></AuthorityURL>",
        "<AuthorityURL/>",
        "<ScaleHint min='1' max='2'/>",
        "<MinScaleDenominator>3</MinScaleDenominator>",
        "<MaxScaleDenominator/>",
        "<Name>n</Name><Identifier>i</Identifier><KeywordList><Keyword>k</Keyword></KeywordList>",
    };
    static constexpr const char* attributes[] = {"queryable", "cascaded",   "opaque",
                                                 "noSubsets", "fixedWidth", "fixedHeight"};
    std::string text = "<Layer";
    for (const char* attribute : attributes) {
      if (below(4) == 0)
        text += std::string(" ") + attribute + "='" + (below(4) == 0 ? "" : std::to_string(level)) + "'";
    }
    text += '>';
    for (int n = below(12); n > 0; --n) text += contents[below(static_cast<int>(std::size(contents)))];
    for (int n = level < 6 ? below(4) : 0; n > 0; --n) text += layer(level + 1);
    return text + "</Layer>";
  }

  std::mt19937 m_random;
};

TEST_F(Wms, SharingShowsWhatCopyingWould) {
  static constexpr const char* versions[] = {"1.1.0", "1.1.1", "1.3.0"};
  std::size_t compared = 0;
  for (unsigned seed = 0; seed < 60; ++seed) {
    const std::string body = RandomDocument(seed).layers();
    const char* version = versions[seed % 3];
    ASSERT_EQ(read(body, 1, version), "");
    std::vector<PlainLayer> expected = layersOf(wms);
    PlainInheritance{expected};
    ASSERT_EQ(read(body, 0, version), "");
    const std::vector<PlainLayer> actual = layersOf(wms);
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) ASSERT_EQ(shown(actual[i]), shown(expected[i])) << seed << body;
    compared += actual.size();
  }
  EXPECT_GT(compared, 1000U);
}

} // namespace
