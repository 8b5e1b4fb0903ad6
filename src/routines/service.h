/// \file
/// What differs between the two services, for the code that serves both.
#pragma once

namespace ogc {

struct Service {
  const char* className;
  const char* pointerTag;  ///< tag of the instance structure that holds the client's address, 0 when there is none
  const char* wrongObject; ///< error for an object of another class
  const char* noMemory;    ///< error when there is no memory for a client
  const char* noClient;    ///< error for an object that was not initialised
  const char* userDir;     ///< directory of the user file store
};

inline constexpr Service wcsService{
    .className = "ZELnetOGCWCS",
    .pointerTag = "COGCWCSPTR",
    .wrongObject = "Unable to acquire OGC WCS object",
    .noMemory = "Error: new memory allocation on COgcWcs failed",
    .noClient = "Error: The object has no OGC WCS client. Call INIT first.",
    .userDir = "ogc_user_files_wcs",
};

inline constexpr Service wmsService{
    .className = "ZELnetOGCWMS",
    .pointerTag = "COGCWMSPTR",
    .wrongObject = "Unable to acquire OGC WMS object",
    .noMemory = "Error: new memory allocation on COgcWms failed",
    .noClient = "Error: The object has no OGC WMS client. Call INIT first.",
    .userDir = "ogc_user_files_wms",
};

} // namespace ogc
