// How service URLs are split, and every limit of a text or buffer: one character below it, at it, above it, far above.
#include "ogc_client.h"
#include "xml/url.h"
#include "zel_ogcwcs_obj.h"
#include "zel_ogcwms_obj.h"

#include <cstring>

namespace {

std::string letters(std::size_t count) {
  std::string text(count, 'a');
  for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char>('a' + i % 23); // a shift would show
  return text;
}

std::string accented(std::size_t bytes) { return std::string(bytes % 2, 'a') + times(bytes / 2, "é"); }

TEST_F(Ogc, UrlIsSplitAroundTheControlParameters) {
  const auto parts = [this](const std::string& query) {
    client.OgcBaseParseURL(("http://h:81/p?" + query).c_str());
    return shown(client.settings().queryPrefix.get()) + " " + shown(client.settings().querySuffix.get());
  };
  expectEach(parts, {{"map=a.map&SERVICE=WMS&VERSION=1.1.1&REQUEST=GetCapabilities&token=x", "map=a.map token=x"},
                     {"Service=WMS&a=1&b=2&request=GetMap&c=3&Version=1.1.1&d=4&e=5", "a=1&b=2&c=3 d=4&e=5"},
                     {"a=1&b=2", "- a=1&b=2"},
                     {"service=WMS", "- -"},
                     {"x=1&service=WMS&service=WCS&y=2", "x=1 service=WCS&y=2"},
                     {"", "- -"}});
  EXPECT_EQ(errorOf([&] { client.OgcBaseParseURL("http://other/p"); }),
            "Error: url does not contain a ? cannot locate a path in url.");
  EXPECT_EQ(client.settings().host.str(), "other");
}

TEST(OgcUrl, OneServerHasOneSchemeHostAndPort) {
  using ogc::xml::Url;
  const auto same = [](const std::string& two) {
    const auto space = two.find(' ');
    return std::to_string(Url(two.substr(0, space)).sameServer(Url(two.substr(space + 1))));
  };
  expectRows(same,
             {"http://h/p?q http://u@H:80 -> 1", "https://h:443 https://h -> 1", "http://[::1] http://[::1]:80 -> 1",
              "http://h:81 https://h:81 -> 0", "http://h http://h:81 -> 0", "http://h http://g -> 0"});
}

/// The client in a request.
class OgcLimits : public Ogc {
protected:
  OgcLimits() {
    EXPECT_NE(errorOf([&] { client.CurlProcessRequest("", transfer::httpGet); }), "");
    client.CurlSetHost("h");
    fakeBridge() = {};
  }
  void header(std::string data) { CCurl::CurlHttpWriteHeaderCallback(data.data(), 1, data.size(), &client); }
  /// The last line told in an action, which fails.
  template <class Action>
  static std::string lineOf(Action action) {
    EXPECT_THROW(action(), CCurlException);
    return fakeBridge().status.empty() ? "" : fakeBridge().status.back();
  }
};

TEST_F(OgcLimits, TextsAreCutBehindTheLastCharacterThatFits) {
  const struct {
    const char* name;
    std::size_t most; ///< characters that are kept
    std::string lead; ///< before the text
    TextFunction kept;
  } limits[] = {
      {"exception", 1023, " ", [](auto& text) { return std::string(CCurlException("", text.c_str()).ErrMsg()); }},
      {"service exception", 1023,
       "Error: Remote OGC server returned a service exception: ( Code=  Locator= Service Exception Text= ",
       [&](auto& text) {
         const std::string file = write("report.xml", "<ServiceExceptionReport><ServiceException>" + text +
                                                          "</ServiceException></ServiceExceptionReport>");
         TextHandler report(client);
         return lineOf([&] { client.OgcBaseParse(&report, file.c_str(), 0, 0); });
       }},
      {"base of a URL", 1023, "http://h/",
       [&](auto& text) {
         char url[4096] = "";
         client.CurlSetPath(text.c_str());
         client.CurlBuildUrlRqSimple(url, sizeof url);
         return std::string(url);
       }},
      {"query", 4095, "Version=1.1.1&Service=WMS&Request=GetMap&",
       [&](auto& text) {
         client.setQuery("WMS", "GetMap", "&" + text);
         return client.settings().query.str();
       }},
      {"URL given whole", 4095, "",
       [&](auto& text) {
         lineOf([&] { client.fetchUrl(text.c_str(), path("answer").c_str()); });
         return client.settings().query.str();
       }},
      {"prefix and suffix", 1023, "",
       [&](auto& text) {
         client.OgcBaseParseURL(("http://h/p?" + text + "&service=WMS&" + text).c_str());
         EXPECT_EQ(client.settings().queryPrefix.str(), client.settings().querySuffix.str());
         return client.settings().querySuffix.str();
       }},
      {"header value", 255, "",
       [&](auto& text) {
         client.CurlHttpParseRspHdr(("HTTP/1.1 200 " + text + "\r\nServer: " + text + "\r\n\r\n").c_str());
         EXPECT_EQ(client.response().server.str(), client.response().statusText.str());
         return client.response().server.str();
       }},
      {"content type", 15, "",
       [&](auto& text) {
         client.CurlHttpParseRspHdr(("HTTP/1.1 200 OK\r\nContent-Type: a/" + text + "\r\n\r\n").c_str());
         return client.response().parsedContentType.str();
       }},
      {"HTML of an answer", 511, "",
       [&](auto& text) {
         client.CurlResponseReset();
         header("HTTP/1.1 500 X\r\nX: <html>" + text + "</html>\r\n\r\n");
         client.CurlHttpExamineHeaderMsg();
         return client.message().substr(client.message().find("ErrMsg(") + 7, 511);
       }},
      {"message of the parser", 1023, "Fatal Error: SAX Parser: Message (expected end of tag '",
       [&](auto& text) {
         parse("<" + text + "></a>");
         return fakeBridge().status.back();
       }},
      {"version", 511, "Error: OGC WCS version number (",
       [&](auto& text) {
         COgcWcs wcs;
         wcs.CurlSetCallback("on_status");
         const std::string file = write("version.xml", "<WCS_Capabilities version='" + text + "'/>");
         return lineOf([&] { wcs.OgcWcsGetCap(file.c_str(), nullptr, 0, 0); });
       }},
      {"name in a list", 1023, "",
       [&](auto& text) {
         COgcWms wms;
         wms.OgcWmsSetCapFN(path("names").c_str());
         const std::string file = write("names.xml", "<WMT_MS_Capabilities version='1.1.1'><Layer><SRS>a " + text +
                                                         "</SRS></Layer></WMT_MS_Capabilities>");
         wms.OgcWmsGetCap(file.c_str(), nullptr, 0, 0, 1);
         return shown(wms.OgcWmsGetLayer(0)->pSrs->next->str);
       }},
      {"names of coverages", 2047, ",",
       [&](auto& text) {
         COgcWcs wcs;
         const char* names[] = {"a", text.c_str()};
         lineOf([&] { wcs.OgcWcsDescribeCoverage(names, 2, nullptr, 0, 0); });
         return wcs.settings().query.str().substr(wcs.settings().query.str().find(','));
       }},
  };
  for (const auto& limit : limits) {
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

TEST_F(OgcLimits, AHeaderOf8191BytesIsTheLongest) {
  for (const std::size_t size : {8190, 8191, 8192, 100'000, 100'001})
    for (const std::size_t piece : {std::size_t{1}, std::size_t{700}, size}) {
      client.CurlResponseReset();
      fakeBridge() = {};
      const std::string end = "\r\nServer: s\r\n\r\n";
      const std::string block = "HTTP/1.1 200 OK\r\nA: " + accented(size - 20 - end.size()) + end;
      ASSERT_EQ(block.size(), size);
      for (std::size_t at = 0; at < size; at += piece) header(block.substr(at, piece));
      const bool fits = size <= 8191;
      EXPECT_EQ(fakeBridge().status, fits ? Lines{} : Lines{"http: Response Header truncated."});
      EXPECT_EQ(client.response().header.data(), transfer::cutAt(block, 8191));
      EXPECT_EQ(client.response().headerComplete, fits ? 1 : 0);
      client.CurlHttpParseRspHdr(client.response().header.data());
      EXPECT_EQ(client.response().server.present(), fits);
      EXPECT_EQ(client.response().statusCode, 200);
    }
}

} // namespace
