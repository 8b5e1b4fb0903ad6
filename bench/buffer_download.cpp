/// \file
/// Downloads a URL into memory with the transfer component alone and prints how many bytes came.

#include "zel_curl_obj.h"

#include <cinttypes>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s URL\n", argv[0]);
    return 2;
  }
  if (CCurl::CurlStartup() != 1) return 1;
  int status = 0;
  try {
    CCurl transfer;
    transfer.CurlSetToBuf(1);
    transfer.CurlProcessRequest(argv[1], transfer::httpGet);
    std::printf("%" PRId64 "\n", transfer.bufferLength());
  } catch (const CCurlException& e) {
    std::fprintf(stderr, "%s\n", e.ErrMsg());
    status = 1;
  }
  CCurl::CurlShutdown();
  return status;
}
