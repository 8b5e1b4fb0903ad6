#include "routines/user_directory.h"

#include "zel_curl_obj.h"
#include "zel_module.h"

#include <cstring>

void ogc::writeUserDir(const Service& service, char* buffer, unsigned int size) {
  const zel::Temp author(ZEL_StrToSTRING("zel"));
  const zel::Temp authorDescription(ZEL_StrToSTRING("OGC"));
  const zel::Temp application(ZEL_StrToSTRING(service.userDir));
  const zel::Temp description(ZEL_StrToSTRING("ogc file store"));
  const zel::Temp readme(
      ZEL_StrToSTRING("\nThis directory is used to hold ogc related files downloaded by a specific user. \n\n"));
  const zel::Temp readmeVersion(ZEL_StrToSTRING("1.00"));
  const zel::Temp appVersion(ZEL_StrToSTRING("100"));
  const zel::Temp path(ZEL_AppUserDir(author.get(), authorDescription.get(), application.get(), description.get(),
                                      readme.get(), readmeVersion.get(), appVersion.get()));
  std::memset(buffer, 0, size);
  const char* text = path->value.str.s;
  ZEL_StrBase_strlcat(buffer, text != nullptr ? text : "", size);
}

void _ZEL_OgcWcsUserDir(char* buffer, unsigned int size) { ogc::writeUserDir(ogc::wcsService, buffer, size); }
void _ZEL_OgcWmsUserDir(char* buffer, unsigned int size) { ogc::writeUserDir(ogc::wmsService, buffer, size); }

int _ZEL_OgcCountLeadingSpaces(const char* text) noexcept { return CCurl::CurlCountLeadingSpaces(text); }
