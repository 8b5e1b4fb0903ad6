#include "test_ogc_wcs.h"

#include <vector>

namespace {

TEST_F(Wcs, StartsWithDefaultsAndRefusesEmptyFileNames) {
  COgcWcs wcs;
  EXPECT_EQ(wcs.Version().str() + ' ' + wcs.CapFN().str() + ' ' + wcs.DesCovFN().str() + ' ' + wcs.CovFN().str(),
            "1.0.0 cap descov cov");
  EXPECT_EQ(wcs.Service(), nullptr);
  EXPECT_EQ(failure([&] { wcs.OgcWcsSetCapFN(""); }), "Error: Capabilities Filename can not be null..");
  EXPECT_EQ(failure([&] { wcs.OgcWcsSetDesCovFN(nullptr); }), "Error: Describe Coverage Filename can not be null..");
  EXPECT_EQ(failure([&] { wcs.OgcWcsSetCovFN(""); }), "Error: Coverage Filename can not be null..");
  EXPECT_STREQ(wcs.CapFN().get(), "cap");
  wcs.OgcWcsSetVer("1.0.7");
  wcs.OgcWcsSetCovFN("other");
  EXPECT_EQ(wcs.Version().str() + wcs.CovFN().str(), "1.0.7other");
  EXPECT_EQ(wcs.OgcWcsCleanup(), 1);
  EXPECT_FALSE(wcs.CapFN().present() || wcs.DesCovFN().present() || wcs.CovFN().present());
}

/// Without a host a request ends once its query is composed.
TEST_F(Wcs, JoinsNamesIntoOneValue) {
  const std::string head = "Version=1.0.0&Service=WCS&Request=DescribeCoverage&Coverage=";
  const std::string kib(1024, 'k');
  const struct {
    std::vector<const char*> names;
    int count;
    std::string query;
  } cases[] = {
      {{"a"}, 0, head + "a"},
      {{"a"}, 1, head + "a"},
      {{"a", "b c", "d,e"}, 3, head + "a,b c,d,e"},
      {{"", nullptr, "c"}, 3, head + ",,c"},
      {{"a", kib.c_str(), kib.c_str(), "z"}, 4, head + "a," + kib + ',' + kib.substr(0, 1021)},
  };
  for (const auto& c : cases) {
    EXPECT_NE(failure([&] { wcs.OgcWcsDescribeCoverage(c.names.data(), c.count, nullptr, 0, 0); }), "");
    EXPECT_EQ(wcs.Settings().query.str(), c.query);
  }
  EXPECT_NE(failure([&] { wcs.OgcWcsDescribeCoverage(nullptr, 0, nullptr, 0, 0); }), "");
  EXPECT_EQ(wcs.Settings().query.str(), cases[4].query) << "without names the query is used again";
  const std::string longest(5000, 'n');
  const char* name = longest.c_str();
  EXPECT_NE(failure([&] { wcs.OgcWcsDescribeCoverage(&name, 1, nullptr, 0, 0); }), "");
  EXPECT_EQ(wcs.Settings().query.str(), (head + longest).substr(0, 4095));

  EXPECT_NE(failure([&] { wcs.OgcWcsGetCoverage("COVERAGE=a b&CRS=EPSG:4326"); }), "");
  EXPECT_EQ(wcs.Settings().query.str(), "Version=1.0.0&Service=WCS&Request=GetCoverage&COVERAGE=a b&CRS=EPSG:4326");
  EXPECT_NE(failure([&] { wcs.OgcWcsGetCap(nullptr, nullptr, 0, 0); }), "");
  EXPECT_EQ(wcs.Settings().query.str(), "Version=1.0.0&Service=WCS&Request=GetCapabilities");
}

std::string repeat(const char* text, int times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

TEST_F(Wcs, CursorWalksTheBriefs) {
  const std::string refusal = "Error: unable to skip over the desired number of coverage briefs..";
  EXPECT_EQ(wcs.OgcWcsGetNextCOB(), nullptr);
  for (int round = 0; round < 2; ++round) { // each request counts from 0 again
    EXPECT_EQ(readCapabilities(
                  capabilities("<ContentMetadata>" + repeat("<CoverageOfferingBrief/>", 5) + "</ContentMetadata>")),
              "");
    const struct {
      int skip;
      std::string failure;
      const char* next;
    } cases[] = {{3, "", "3"}, {0, "", "0"}, {5, "", nullptr}, {6, refusal, nullptr}, {-1, refusal, "0"}};
    ASSERT_NE(wcs.OgcWcsGetNextCOB(), nullptr);
    EXPECT_STREQ(wcs.OgcWcsGetNextCOB()->index, "1");
    for (const auto& c : cases) {
      EXPECT_EQ(failure([&] { wcs.OgcWcsGetNextCOBSkip(c.skip); }), c.failure) << c.skip;
      const WcsBrief* next = wcs.OgcWcsGetNextCOB();
      EXPECT_STREQ(next != nullptr ? next->index : nullptr, c.next) << c.skip;
    }
  }
  wcs.OgcWcsCleanupNewCap();
  EXPECT_EQ(wcs.OgcWcsGetNextCOB(), nullptr);
  EXPECT_EQ(wcs.BriefCount(), 0);
}

TEST_F(Wcs, AccessorsKnowTheirLimits) {
  const std::string invalid = "Error: Invalid index in OgcWcsGetCO call..";
  for (const int index : {0, -1}) {
    EXPECT_EQ(failure([&] { (void)wcs.OgcWcsGetCO(index); }), invalid) << index;
    EXPECT_EQ(failure([&] { (void)wcs.OgcWcsGetCORngNullIntervalCount(index); }), invalid) << index;
  }

  const std::string times = repeat("<timePeriod><beginPosition>b</beginPosition></timePeriod>", 2) +
                            repeat("<timePosition>p</timePosition>", 3);
  const std::string grids = "<Grid><axisName/><axisName/><offsetVector/></Grid><Grid/><RectifiedGrid><axisName/>" +
                            repeat("<offsetVector/>", 4) + "</RectifiedGrid>";
  const std::string axes = "<AxisDescription><singleValue/><interval><min>1</min></interval></AxisDescription>"
                           "<AxisDescription>" +
                           repeat("<interval><min>2</min></interval>", 6) + "</AxisDescription>";
  EXPECT_EQ(readDescription(description("<CoverageOffering/><CoverageOffering><spatialDomain><Envelope/>" + grids +
                                        "</spatialDomain><temporalDomain>" + times + "</temporalDomain><RangeSet>" +
                                        axes + "<nullValues>" + repeat("<interval/>", 5) +
                                        "</nullValues></RangeSet></CoverageOffering>")),
            "");
  const struct {
    const char* what;
    int got;
    int expected;
  } counts[] = {
      {"envelopes", wcs.OgcWcsGetCOSDLLECount(1), 1},
      {"grids", wcs.OgcWcsGetCOSDGridCount(1), 3},
      {"grids of the first offering", wcs.OgcWcsGetCOSDGridCount(-1), 0},
      {"axis names of a grid", wcs.OgcWcsGetCOSDGridAxisNameCount(1, 0), 2},
      {"axis names of an empty grid", wcs.OgcWcsGetCOSDGridAxisNameCount(1, 1), 0},
      {"axis names of no grid", wcs.OgcWcsGetCOSDGridAxisNameCount(1, 3), 0},
      {"axis names of all grids", wcs.OgcWcsGetCOSDGridAxisNameCount(1, -1), 2},
      {"axis names without grids", wcs.OgcWcsGetCOSDGridAxisNameCount(0, -1), 0},
      {"offset vectors of all grids", wcs.OgcWcsGetCOSDGridOffsetVectorCount(1, -1), 4},
      {"offset vectors of the first grid", wcs.OgcWcsGetCOSDGridOffsetVectorCount(1, -2), 1},
      {"time positions", wcs.OgcWcsGetCOTempTimePosCount(1), 3},
      {"time periods", wcs.OgcWcsGetCOTempTimePeriodCount(1), 2},
      {"null intervals", wcs.OgcWcsGetCORngNullIntervalCount(1), 5},
      {"axes", wcs.OgcWcsGetCORngAxisCount(1), 2},
      {"single values of all axes", wcs.OgcWcsGetCORngAxisSingleCount(1, -1), 1},
      {"intervals of all axes", wcs.OgcWcsGetCORngAxisIntCount(1, -1), 6},
      {"intervals of an axis", wcs.OgcWcsGetCORngAxisIntCount(1, 0), 1},
  };
  for (const auto& count : counts) EXPECT_EQ(count.got, count.expected) << count.what;

  EXPECT_EQ(failure([&] { (void)wcs.OgcWcsGetCORngAxisInt(2, 0, 0); }), invalid);
  EXPECT_EQ(wcs.OgcWcsGetCO(-1), wcs.Offerings());
  EXPECT_STREQ(wcs.OgcWcsGetCORngAxisInt(1, 1, 5)->min, "2");
  EXPECT_STREQ(wcs.OgcWcsGetCOSDGrid(1, 2)->rectified, "Yes");
  EXPECT_STREQ(wcs.OgcWcsGetCOTempTimePos(1, -3)->position, "p");
  EXPECT_STREQ(wcs.OgcWcsGetCOTempTimePeriod(1, 1)->begin, "b");
  EXPECT_EQ(wcs.OgcWcsGetCOSDLLE(1, 1), nullptr);
  EXPECT_EQ(wcs.OgcWcsGetCORngNullInterval(1, 5), nullptr);
  EXPECT_EQ(wcs.OgcWcsGetCORngAxisInt(1, 2, 0), nullptr);
}

TEST_F(Wcs, TellsItsStepsAndCopiesAfterTheParse) {
  wcs.CurlSetCallback("on_status");
  EXPECT_NE(readCapabilities("<no"), "");
  EXPECT_TRUE(fakeBridge().copies.empty());

  std::vector<std::string> refusals;
  fakeBridge() = {};
  const std::string kept = path("cap");
  fakeBridge().onStatus = [&](const std::string&) {
    wcs.OgcWcsSetCapFN(path("the name for the next request").c_str());
    refusals = {failure([&] { wcs.OgcWcsCleanup(); }), failure([&] { wcs.OgcWcsCleanupNewCap(); }),
                failure([&] { wcs.OgcWcsGetCap("x", nullptr, 0, 0); }), failure([&] { wcs.OgcWcsGetCoverage("x"); })};
    return 0;
  };
  EXPECT_EQ(readCapabilities(capabilities("<ContentMetadata><CoverageOfferingBrief/></ContentMetadata>")), "");
  const std::string file = path("document.xml");
  EXPECT_EQ(
      fakeBridge().status,
      (std::vector<std::string>{"Parsing capabilities from an existing XML file:", file, "XML DTD validation is off. ",
                                "XML Schema validation is off. ", "Number of brief coverage decriptions found: 1.",
                                "Get Capabilites request completed."}));
  EXPECT_EQ(fakeBridge().copies, (std::vector{std::pair(file, kept)}));
  ASSERT_EQ(refusals.size(), 4U);
  for (const std::string& refusal : refusals) EXPECT_NE(refusal.find("is still running"), refusal.npos) << refusal;
  EXPECT_EQ(wcs.BriefCount(), 1);
}

} // namespace
