// Content types as the services read them, and the file names that they make.
#include "fuzz_check.h"
#include "zel_ogcwms_obj.h"

#include <filesystem>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string header = "HTTP/1.1 200 OK\r\nContent-Type: " + fuzzText(data, size) + "\r\n\r\n";
  static CCurl plain;
  static COgcWms service;
  for (CCurl* curl : {&plain, static_cast<CCurl*>(&service)}) {
    curl->CurlResponseReset();
    curl->CurlHttpParseRspHdr(header.c_str());
    fuzzCheck(curl->Response().parsedContentType.str().size() <= 15, "a content type has at most 15 characters");
    const std::filesystem::path directory = "/nowhere/at/all";
    for (const char* name : {"map", "map.", "map.png"}) {
      CText file((directory / name).string());
      curl->CurlBuildFileName(&file);
      fuzzCheck(std::filesystem::path(file.str()).parent_path() == directory, "a file stays in its directory");
    }
  }
  return 0;
}
