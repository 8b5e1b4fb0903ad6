// The clients of both services beside what a script sees of them: cursors, indexes, steps.
#include "ogc_client.h"
#include "zel_ogcwcs_obj.h"
#include "zel_ogcwms_obj.h"

namespace {

class Clients : public Ogc {
protected:
  Clients() {
    wms.OgcWmsSetCapFN(path("kept").c_str());
    wcs.OgcWcsSetCapFN(path("kept").c_str());
    wcs.OgcWcsSetDesCovFN(path("kept").c_str());
  }
  std::string readLayers(const std::string& body) {
    const std::string file = write("layers.xml", "<WMS_Capabilities version='1.3.0'>" + body + "</WMS_Capabilities>");
    return errorOf([&] { wms.OgcWmsGetCap(file.c_str(), nullptr, 0, 0, 0); });
  }
  std::string readBriefs(const std::string& body) {
    const std::string file = write("briefs.xml", "<WCS_Capabilities version='1.0.0'><ContentMetadata>" + body +
                                                     "</ContentMetadata></WCS_Capabilities>");
    return errorOf([&] { wcs.OgcWcsGetCap(file.c_str(), nullptr, 0, 0); });
  }
  std::string readOfferings(const std::string& body) {
    const std::string file =
        write("offerings.xml", "<CoverageDescription version='1.0.0'>" + body + "</CoverageDescription>");
    return errorOf([&] { wcs.OgcWcsDescribeCoverage(nullptr, 0, file.c_str(), 0, 0); });
  }

  COgcWms wms;
  COgcWcs wcs;
};

constexpr char brief[] = "<CoverageOfferingBrief/>";

TEST_F(Clients, ForgetTheirDocumentsAndWorkAgain) {
  const auto read = [this] {
    EXPECT_EQ(readOfferings(times(300, "<CoverageOffering/>")) + readBriefs(times(2, brief)) + readLayers("<Layer/>"),
              "");
    EXPECT_TRUE(wcs.briefCount() == 2 && wcs.offeringCount() == 300 && wms.layerCount() == 1);
    return std::pair(wcs.recordSize(), wms.recordSize());
  };
  const auto sizes = read();
  EXPECT_EQ(read(), sizes);
  EXPECT_TRUE(wms.OgcWmsCleanup() == 1 && wcs.OgcWcsCleanup() == 1);
  EXPECT_EQ(wcs.recordSize() + wms.recordSize(), 0U);
  EXPECT_EQ(wcs.briefCount() + wcs.offeringCount() + wms.layerCount() + wms.layerCacheCapacity(), 0);
  wms.OgcWmsSetCapFN(path("kept").c_str());
  EXPECT_EQ(readLayers("<Layer/>"), "");
}

TEST_F(Clients, CursorsAndIndexesKnowTheirLimits) {
  EXPECT_TRUE(wms.OgcWmsGetNextLayer() == nullptr && wcs.OgcWcsGetNextCOB() == nullptr);
  EXPECT_EQ(readBriefs(times(3, brief)) +
                readLayers("<Layer><Style/><Style/><BoundingBox/><BoundingBox/><Layer/></Layer><Layer/>"),
            "");
  const struct {
    int skip, next;      ///< index of the next one, -1 none
    bool layers, briefs; ///< whether that may be skipped
  } skips[] = {
      {2, 2, true, true}, {0, 0, true, true}, {3, -1, true, true}, {4, -1, false, false}, {-1, 0, true, false}};
  for (const auto& c : skips) {
    EXPECT_EQ(errorOf([&] { wms.OgcWmsGetNextLayerSkip(c.skip); }).empty(), c.layers) << c.skip;
    EXPECT_EQ(errorOf([&] { wcs.OgcWcsGetNextCOBSkip(c.skip); }).empty(), c.briefs) << c.skip;
    const xWmsLayer_t* layer = wms.OgcWmsGetNextLayer();
    const ogc::WcsBrief* brief = wcs.OgcWcsGetNextCOB();
    EXPECT_EQ(layer != nullptr ? layer->iIndex : -1, c.next);
    EXPECT_EQ(brief != nullptr ? std::stoi(brief->index) : -1, c.next);
  }
  for (const int i : {3, -1})
    EXPECT_EQ(errorOf([&] { (void)wms.OgcWmsGetLayer(i); }), "Error: Invalid index in OgcWcsGetLayer call..");
  EXPECT_EQ(wms.OgcWmsGetLyrStyle(0, 1), wms.OgcWmsGetLyrStyle(0, 0)->next);
  EXPECT_EQ(wms.OgcWmsGetLyrStyle(0, -1), wms.OgcWmsGetLyrStyle(0, 0));
  EXPECT_EQ(wms.OgcWmsGetLyrStyle(0, 5), nullptr);
  EXPECT_TRUE(wms.OgcWmsGetLyrBBox(0, 1) != nullptr && wms.OgcWmsGetLyrBBox(1, 1) == nullptr) << "one is inherited";
  EXPECT_TRUE(wms.OgcWmsGetLyrStyle(1, 0) && wms.OgcWmsGetLyrDim(1, 0) && wms.OgcWmsGetLyrFeat(1, 0))
      << "empty records";
  wms.OgcWmsAllocateLayerPtrCache(10, 0);
  wms.OgcWmsGetNextLayerSkip(2);
  EXPECT_EQ(wms.OgcWmsGetNextLayer()->iIndex, 2) << "the list is there without the cache";
  EXPECT_NE(errorOf([&] { (void)wms.OgcWmsGetLayer(2); }), "");
}

TEST_F(Clients, CountsOfListsAreThoseOfOneRecordOrTheLargest) {
  const std::string axes = "<axisName/><axisName/><axisName/>", vectors = "<offsetVector/><offsetVector/>";
  const std::string range =
      "<AxisDescription><singleValue/><singleValue/><interval/><interval/><interval/></AxisDescription>";
  EXPECT_EQ(readOfferings("<CoverageOffering><spatialDomain><Grid>" + axes + "</Grid><RectifiedGrid><axisName/>" +
                          vectors + "</RectifiedGrid><Grid/></spatialDomain><RangeSet>" + range +
                          "<AxisDescription/></RangeSet></CoverageOffering>"),
            "");
  const struct {
    int (COgcWcs::*count)(int, int) const;
    int largest, first, second;
  } rows[] = {{&COgcWcs::OgcWcsGetCOSDGridAxisNameCount, 3, 3, 1},
              {&COgcWcs::OgcWcsGetCOSDGridOffsetVectorCount, 2, 0, 2},
              {&COgcWcs::OgcWcsGetCORngAxisSingleCount, 2, 2, 0},
              {&COgcWcs::OgcWcsGetCORngAxisIntCount, 3, 3, 0}};
  for (const auto& row : rows)
    for (const auto& [n, expected] : {std::pair{-1, row.largest}, {0, row.first}, {1, row.second}, {9, 0}})
      EXPECT_EQ((wcs.*row.count)(0, n), expected) << &row - rows << ": " << n;
}

/// Every end tag ends a report's text, whatever section has opened inside.
TEST_F(Clients, ReportsHoldTheirOwnTexts) {
  const std::string file =
      write("report.xml", "<o:ExceptionReport xmlns:o='u'><o:Exception "
                          "exceptionCode='c'/><o:ExceptionText>t<WCS_Capabilities version='1.0.0'>"
                          "<Service><fees>f</fees>lost<label>l</label></Service></WCS_Capabilities>"
                          "</o:ExceptionText></o:ExceptionReport>");
  EXPECT_EQ(errorOf([&] { wcs.OgcWcsGetCap(file.c_str(), nullptr, 0, 0); }),
            "Error: Remote OGC server returned a exception report: ( Code= c Exception Text= t).");
  EXPECT_EQ(errorOf([&] { wcs.OgcWcsGetCap("nosuch", nullptr, 0, 0); }),
            "Error: File does not exist.  file: (nosuch).");
}

TEST_F(Clients, CacheOfLayersGrowsBeforeItIsFull) {
  for (const auto& [layers, capacity] : {std::pair{1999, 2000}, {2000, 6000}, {6000, 10000}}) {
    EXPECT_EQ(readLayers(times(layers, "<Layer/>")), "");
    EXPECT_EQ(wms.layerCacheCapacity(), capacity);
    EXPECT_EQ(wms.OgcWmsGetLayer(layers - 1)->iIndex, layers - 1);
  }
}

} // namespace
