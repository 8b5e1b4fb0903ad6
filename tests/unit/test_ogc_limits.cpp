// How service URLs are split, and every limit of a text or buffer: one character below it, at it, above it, far above.
#include "ogc_client.h"
#include "zel_ogcwcs_obj.h"

#include <cstring>

namespace {

std::string letters(std::size_t count) {
  std::string text(count, 'a');
  for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char>('a' + i % 23); // a shift would show
  return text;
}

std::string accented(std::size_t bytes) {
  std::string text(bytes % 2, 'a');
  while (text.size() < bytes) text += "é";
  return text;
}

/// A transfer object in a request, with the lines that it tells.
class Transfer : public COgcBase {
public:
  Transfer() : COgcBase("1.1.1") {
    EXPECT_NE(errorOf([&] { CurlProcessRequest("", transfer::httpGet); }), "");
    CurlSetHost("h");
    CurlSetCallback("on_status");
    fakeBridge() = {};
  }
  void header(std::string data) { CurlHttpWriteHeaderCallback(data.data(), 1, data.size(), this); }
  std::string composed() {
    char url[4096] = "";
    CurlBuildUrlRq(url, sizeof url);
    return url;
  }
  using COgcBase::fetchUrl;
  using COgcBase::setQuery;
};

struct Limit {
  const char* name;
  std::size_t most; ///< characters that are kept
  std::string lead; ///< before the text
  std::function<std::string(const std::string&)> kept;
};

std::string shown(const transfer::Text& text) { return text.present() ? text.str() : "-"; }

TEST_F(Ogc, UrlIsSplitAroundTheControlParameters) {
  const struct {
    std::string query;
    std::string prefix;
    std::string suffix;
  } cases[] = {
      {"map=a.map&SERVICE=WMS&VERSION=1.1.1&REQUEST=GetCapabilities&token=x", "map=a.map", "token=x"},
      {"Service=WMS&a=1&b=2&request=GetMap&c=3&Version=1.1.1&d=4&e=5", "a=1&b=2&c=3", "d=4&e=5"},
      {"a=1&b=2", "-", "a=1&b=2"},
      {"service=WMS", "-", "-"},
      {"x=1&service=WMS&service=WCS&y=2", "x=1", "service=WCS&y=2"},
      {"", "-", "-"},
  };
  for (const auto& c : cases) {
    client.OgcBaseParseURL(("http://h:81/p?" + c.query).c_str());
    EXPECT_EQ(shown(client.Settings().queryPrefix), c.prefix) << c.query;
    EXPECT_EQ(shown(client.Settings().querySuffix), c.suffix) << c.query;
  }
  EXPECT_EQ(errorOf([&] { client.OgcBaseParseURL("http://other/p"); }),
            "Error: url does not contain a ? cannot locate a path in url.");
  EXPECT_EQ(client.Settings().host.str(), "other");
}

class OgcLimits : public Ogc {
protected:
  Transfer transfer;
};

TEST_F(OgcLimits, TextsAreCutBehindTheLastCharacterThatFits) {
  const auto value = [this](const char* name, transfer::Text transfer::Response::*field) {
    return [this, name, field](const std::string& text) {
      transfer.CurlResponseReset();
      transfer.CurlHttpParseRspHdr(("HTTP/1.1 200 OK\r\n" + std::string(name) + text + "\r\n\r\n").c_str());
      return (transfer.Response().*field).str();
    };
  };
  const auto told = [] { return fakeBridge().status.empty() ? std::string() : fakeBridge().status.back(); };
  const Limit limits[] = {
      {"exception", 1023, "",
       [](const std::string& text) { return std::string(CCurlException(text.c_str()).ErrMsg()); }},
      {"exception of two", 1023, " ",
       [](const std::string& text) { return std::string(CCurlException("", text.c_str()).ErrMsg()); }},
      {"service exception", 1023,
       "Error: Remote OGC server returned a service exception: ( Code=  Locator= Service Exception Text= ",
       [&](const std::string& text) {
         const std::string file = write("report.xml", "<ServiceExceptionReport><ServiceException>" + text +
                                                          "</ServiceException></ServiceExceptionReport>");
         TextHandler report(client);
         EXPECT_THROW(client.OgcBaseParse(&report, file.c_str(), 0, 0), CCurlException);
         return told();
       }},
      {"missing file", 1023, "x  file: (/",
       [&](const std::string& text) {
         EXPECT_THROW(client.OgcBaseFileExistsCheck(("/" + text).c_str(), "x"), CCurlException);
         return told();
       }},
      {"base of a URL", 1023, "http://h/",
       [&](const std::string& text) {
         transfer.CurlSetPath(text.c_str());
         transfer.CurlSetQuery("q");
         const std::string url = transfer.composed();
         return url.substr(0, url.size() - 2);
       }},
      {"URL", 4095, "http://h/p?",
       [&](const std::string& text) {
         transfer.CurlSetPath("p");
         transfer.CurlSetQuery(text.c_str());
         return transfer.composed();
       }},
      {"query", 4095, "Version=1.1.1&Service=WMS&Request=GetMap&",
       [&](const std::string& text) {
         transfer.setQuery("WMS", "GetMap", "&" + text);
         return transfer.Settings().query.str();
       }},
      {"URL given whole", 4095, "",
       [&](const std::string& text) {
         EXPECT_THROW(transfer.fetchUrl(text.c_str(), path("answer").c_str()), CCurlException);
         return transfer.Settings().query.str();
       }},
      {"prefix", 1023, "",
       [&](const std::string& text) {
         transfer.OgcBaseParseURL(("http://h/p?" + text + "&service=WMS").c_str());
         return transfer.Settings().queryPrefix.str();
       }},
      {"suffix", 1023, "",
       [&](const std::string& text) {
         transfer.OgcBaseParseURL(("http://h/p?service=WMS&" + text).c_str());
         return transfer.Settings().querySuffix.str();
       }},
      {"status text", 255, "",
       [&](const std::string& text) {
         transfer.CurlHttpParseRspHdr(("HTTP/1.1 200 " + text + "\r\n\r\n").c_str());
         return transfer.Response().statusText.str();
       }},
      {"server", 255, "", value("Server: ", &transfer::Response::server)},
      {"content type text", 255, "", value("Content-Type: ", &transfer::Response::contentTypeText)},
      {"content type", 15, "", value("Content-Type: image/", &transfer::Response::parsedContentType)},
      {"HTML of an answer", 511, "",
       [&](const std::string& text) {
         char html[512];
         CCurl::CurlHttpParseError(("<html>" + text).append("</html>").c_str(), html, sizeof html);
         return std::string(html);
       }},
      {"FTP reply", 127, "220 ",
       [&](const std::string& text) {
         transfer.CurlFtpGetReponseCode(("220 " + text).c_str(), static_cast<int>(4 + text.size()));
         return std::string(transfer.Response().lastFtpResponse.data());
       }},
      {"trace", 511, "",
       [&](const std::string& text) {
         std::string data = text;
         CCurl::CurlHttpDebugCallback(nullptr, CURLINFO_TEXT, data.data(), data.size(), &transfer);
         EXPECT_EQ(told().size(), 22 + std::min<std::size_t>(text.size(), 511) +
                                      (text.size() > 511 ? std::strlen("..., message was truncated.") : 0));
         return told().substr(22, 511);
       }},
      {"message of the parser", 1023, "Fatal Error: SAX Parser: Message (expected end of tag '",
       [&](const std::string& text) {
         parse("<" + text + "></a>");
         return told();
       }},
      {"version", 511, "Error: OGC WCS version number (",
       [&](const std::string& text) {
         COgcWcs wcs;
         wcs.CurlSetCallback("on_status");
         const std::string file = write("version.xml", "<WCS_Capabilities version='" + text + "'/>");
         EXPECT_THROW(wcs.OgcWcsGetCap(file.c_str(), nullptr, 0, 0), CCurlException);
         return told();
       }},
      {"name of a CRS", 1023, "",
       [&](const std::string& text) {
         COgcWcs wcs;
         wcs.OgcWcsSetDesCovFN(path("crs").c_str());
         const std::string file = write(
             "crs.xml", "<CoverageDescription version='1.0.0'><CoverageOffering><supportedCRSs><requestCRSs>" + text +
                            " " + text + "</requestCRSs></supportedCRSs></CoverageOffering></CoverageDescription>");
         wcs.OgcWcsDescribeCoverage(nullptr, 0, file.c_str(), 0, 0);
         const xNodeStr_t* first = wcs.OgcWcsGetCO(0)->crs.requestCRSs.head;
         EXPECT_EQ(first->str, text) << "the first one is whole";
         return std::string(first->next->str);
       }},
      {"names of coverages", 2047, ",",
       [&](const std::string& text) {
         COgcWcs wcs;
         const char* names[] = {"a", text.c_str()};
         EXPECT_THROW(wcs.OgcWcsDescribeCoverage(names, 2, nullptr, 0, 0), CCurlException);
         const std::string& query = wcs.Settings().query.str();
         return query.substr(query.find(','));
       }},
  };
  for (const Limit& limit : limits) {
    const std::size_t most = limit.most - limit.lead.size();
    for (const std::size_t size : {most - 1, most, most + 1, 3 * most, std::size_t{6000}}) {
      const std::string text = letters(size);
      const std::string kept = limit.kept(text);
      const std::string fits = (limit.lead + text).substr(0, limit.most);
      EXPECT_EQ(kept.substr(0, fits.size()), fits) << limit.name << size;
      EXPECT_TRUE(size <= most || kept.size() == limit.most) << limit.name << size << kept;
    }
  }
}

TEST_F(OgcLimits, AHostOf255CharactersIsTheLongest) {
  for (const std::size_t size : {254, 255, 256, 3000}) {
    CCurl curl;
    const std::string host = letters(size);
    for (const auto split : {&CCurl::CurlParseURL, &CCurl::CurlParseURLSimple}) {
      const std::string error = errorOf([&] { (curl.*split)(("http://" + host + ":81/p?q").c_str()); });
      EXPECT_EQ(error, size > 255 ? "Error: url contains a host of more than 255 characters." : "");
      EXPECT_EQ(curl.Settings().host.str(), size > 255 ? "" : host);
    }
  }
}

TEST_F(OgcLimits, AHeaderOf8191BytesIsTheLongest) {
  for (const std::size_t size : {8190, 8191, 8192, 100'000, 100'001})
    for (const std::size_t piece : {std::size_t{1}, std::size_t{700}, size}) {
      transfer.CurlResponseReset();
      fakeBridge() = {};
      const std::string end = "\r\nServer: s\r\n\r\n";
      const std::string header = "HTTP/1.1 200 OK\r\nA: " + accented(size - 20 - end.size()) + end;
      ASSERT_EQ(header.size(), size);
      for (std::size_t at = 0; at < size; at += piece) transfer.header(header.substr(at, piece));
      const bool fits = size <= 8191;
      EXPECT_EQ(fakeBridge().status, fits ? Lines{} : Lines{"http: Response Header truncated."});
      EXPECT_EQ(transfer.Response().header.data(), transfer::cutAt(header, 8191));
      EXPECT_EQ(transfer.Response().headerComplete, fits ? 1 : 0);
      transfer.CurlHttpParseRspHdr(transfer.Response().header.data());
      EXPECT_EQ(transfer.Response().server.present(), fits);
      EXPECT_EQ(transfer.Response().statusCode, 200);
    }
}

} // namespace
