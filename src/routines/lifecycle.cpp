#include "routines/lifecycle.h"

#include "routines/user_directory.h"

#include <array>
#include <string>

namespace ogc {

void setDefaults(const Service& service, COgcBase& client) {
  setDefaultFiles(service, client);
  const zel::Temp root(ZEL_SysvDirFunc());
  constexpr std::array directories{"bin", "bin.linux.x86_64"};
  std::array<char, pathSize> directory{};
  ZEL_FilePathFromRoot(directory.data(), directory.size(), root->value.str.s, directories.data(), directories.size(),
                       nullptr, nullptr);
  client.CurlSetSslCAInfo(transfer::formatLimited(pathSize - 1, "%sca-bundle.crt", directory.data()).c_str());
}

} // namespace ogc
