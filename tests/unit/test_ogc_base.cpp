// What both service clients share around their requests.
#include "ogc_client.h"

namespace {

std::string shown(const CText& text) { return text.present() ? text.str() : "-"; }

TEST_F(Ogc, UrlIsSplitAroundTheControlParameters) {
  const std::string longPart = "p=" + std::string(1100, 'x');
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
      {longPart + "&service=WMS&" + longPart, longPart.substr(0, 1023), longPart.substr(0, 1023)},
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

TEST_F(Ogc, ContentTypesOfXmlAndHtmlReadJustSo) {
  const struct {
    const char* type;
    const char* extension;
    bool xml;
  } cases[] = {{"text/xml", "xml", true},
               {"application/vnd.ogc.se_XML", "xml", true},
               {"application/XML; charset=utf-8", "xml", true},
               {"text/html; charset=utf-8", "html", false},
               {"image/png", "png", false}};
  for (const auto& c : cases) {
    client.CurlResponseReset();
    client.CurlHttpParseRspHdr((std::string("HTTP/1.1 200 OK\r\nContent-Type: ") + c.type + "\r\n\r\n").c_str());
    EXPECT_STRCASEEQ(client.Response().parsedContentType.c_str(), c.extension) << c.type;
    EXPECT_EQ(client.OgcBaseAnswerIsXml(), c.xml) << c.type;
    EXPECT_EQ(errorOf([&] { client.OgcBaseRefuseHtml(); }).empty(), std::string(c.extension) != "html") << c.type;
  }
}

TEST_F(Ogc, ServerExceptionsAreToldAndThrown) {
  client.OgcBaseServerErrorCheck();
  client.AddExceptionReport("report");
  EXPECT_EQ(errorOf([&] { client.OgcBaseServerErrorCheck(); }),
            "Error: Remote OGC server returned a exception report: (report).");
  client.AddServiceException("service");
  EXPECT_EQ(errorOf([&] { client.OgcBaseServerErrorCheck(); }),
            "Error: Remote OGC server returned a service exception: (service).");
  EXPECT_EQ(fakeBridge().status, (Lines{"Error: Remote OGC server returned a exception report: (report)",
                                        "Error: Remote OGC server returned a service exception: (service)"}));
  client.AddServiceException(std::string(2000, 'x'));
  EXPECT_THROW(client.OgcBaseServerErrorCheck(), CCurlException);
  EXPECT_EQ(fakeBridge().status.back().size(), 1023U);
}

TEST_F(Ogc, OneRequestAtATime) {
  client.AddServiceException("of the last request");
  client.AddExceptionReport("of the last request");
  {
    const Client::Request request(client);
    EXPECT_FALSE(client.ServiceExceptionText().present() || client.ExceptionReportText().present());
    EXPECT_EQ(errorOf([&] { const Client::Request second(client); }),
              "Error: a request of this object is still running. A new request has to wait until it has ended.");
    EXPECT_NE(errorOf([&] { client.OgcBaseRequireIdle("CLEANUP"); }).find("CLEANUP"), std::string::npos);
  }
  client.OgcBaseRequireIdle("CLEANUP");
}

TEST_F(Ogc, QueriesAreCut) {
  client.OgcBaseSetQuery("WMS", "GetMap", "&LAYERS=a b");
  EXPECT_EQ(client.Settings().query.str(), "Version=1.1.1&Service=WMS&Request=GetMap&LAYERS=a b");
  client.OgcBaseSetQuery("WMS", "GetMap", std::string(5000, 'x'));
  EXPECT_EQ(client.Settings().query.str().size(), 4095U);
}

TEST_F(Ogc, FilesAreCopiedAfterAGoodParse) {
  const std::string good = write("good.xml", "<a>text</a>");
  const std::string bad = write("bad.xml", "<a>");
  const auto read = [&](const std::string& file, const std::string& base) {
    return errorOf([&] { client.OgcBaseParseFile(&handler, file.c_str(), "Parsing:", base.c_str(), 0, 0); });
  };
  EXPECT_EQ(read(good, path("copy")), "");
  EXPECT_EQ(fakeBridge().status,
            (Lines{"Parsing:", good, "XML DTD validation is off. ", "XML Schema validation is off. "}));
  EXPECT_EQ(read(good, path("good")), "");
  EXPECT_EQ(std::filesystem::file_size(good), std::filesystem::file_size(path("copy.xml")));
  EXPECT_NE(read(bad, path("bad_copy")), "");
  EXPECT_FALSE(std::filesystem::exists(path("bad_copy.xml")));
  EXPECT_EQ(read(path("none.xml"), path("copy")), "Error: File does not exist.  file: (" + path("none.xml") + ").");
  EXPECT_EQ(fakeBridge().status.back(), "Error: File does not exist.  file: (" + path("none.xml") + ")");
}

TEST_F(Ogc, AnAnswerThatWasNotWrittenByThisClientIsNotParsed) {
  const std::string file = write("answer.xml", "<a/>");
  EXPECT_NE(errorOf([&] { client.OgcBaseParseAnswer(&handler, file.c_str(), 0, 0); }).find("replaced"),
            std::string::npos);
  EXPECT_EQ(handler.elements, 0);
}

} // namespace
