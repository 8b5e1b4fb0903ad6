#include "zel_ogc_rtn_tbl.h"

#include "zel_module.h"
#include "zel_ogcwcs.h"
#include "zel_ogcwms.h"

#include <iterator>

int _ZEL_zel_ogc_rtn_init() {
  constexpr unsigned kw = ZEL_SYSRTN_KEYWORDS;
  static constexpr ZEL_SysRtnDef functions[] = {
      {ZEL_OgcWcsDescribeCoverage, "ZELNETOGCWCS::DESCRIBECOVERAGE", 1, 1, kw},
      {ZEL_OgcWcsGetCapabilities, "ZELNETOGCWCS::GETCAPABILITIES", 1, 1, kw},
      {ZEL_OgcWcsGetCoverage, "ZELNETOGCWCS::GETCOVERAGE", 2, 2, kw},
      {ZEL_OgcWcsGetCoverageOffering, "ZELNETOGCWCS::GETCOVERAGEOFFERING", 1, 1, kw},
      {ZEL_OgcWcsGetCoverageOfferingBriefs, "ZELNETOGCWCS::GETCOVERAGEOFFERINGBRIEFS", 1, 1, kw},
      {ZEL_OgcWcsGetServiceSection, "ZELNETOGCWCS::GETSERVICESECTION", 1, 1, kw},
      {ZEL_OgcWcsInit, "ZELNETOGCWCS::INIT", 1, 1, kw},
      {ZEL_OgcWmsGetCapabilities, "ZELNETOGCWMS::GETCAPABILITIES", 1, 1, kw},
      {ZEL_OgcWmsGetFeatureInfo, "ZELNETOGCWMS::GETFEATUREINFO", 2, 2, kw},
      {ZEL_OgcWmsGetLayers, "ZELNETOGCWMS::GETLAYERS", 1, 1, kw},
      {ZEL_OgcWmsGetMap, "ZELNETOGCWMS::GETMAP", 2, 2, kw},
      {ZEL_OgcWmsGetServiceSection, "ZELNETOGCWMS::GETSERVICESECTION", 1, 1, kw},
      {ZEL_OgcWmsInit, "ZELNETOGCWMS::INIT", 1, 1, kw},
  };
  static constexpr ZEL_SysRtnDef procedures[] = {
      {ZEL_OgcWcsCleanup, "ZELNETOGCWCS::CLEANUP", 1, 1, 0},
      {ZEL_OgcWcsGetProperty, "ZELNETOGCWCS::GETPROPERTY", 1, 1, kw},
      {ZEL_OgcWcsParseURL, "ZELNETOGCWCS::PARSEURL", 2, 2, 0},
      {ZEL_OgcWcsSetProperty, "ZELNETOGCWCS::SETPROPERTY", 1, 1, kw},
      {ZEL_OgcWmsCleanup, "ZELNETOGCWMS::CLEANUP", 1, 1, 0},
      {ZEL_OgcWmsGetProperty, "ZELNETOGCWMS::GETPROPERTY", 1, 1, kw},
      {ZEL_OgcWmsParseURL, "ZELNETOGCWMS::PARSEURL", 2, 2, 0},
      {ZEL_OgcWmsSetProperty, "ZELNETOGCWMS::SETPROPERTY", 1, 1, kw},
  };
  const bool added = ZEL_SysRtnAdd(functions, 1, std::size(functions)) != 0 &&
                     ZEL_SysRtnAdd(procedures, 0, std::size(procedures)) != 0;
  return added ? 1 : 0;
}
