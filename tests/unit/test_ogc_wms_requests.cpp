// The WMS client's settings, requests and access to its layers.
#include "wms_client.h"
#include "zel_ogcwms_sax.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

/// A server on loopback that gives one answer and ends.
class OneAnswer {
public:
  OneAnswer(const std::string& type, const std::string& body, const std::string& status = "200 OK")
      : m_answer("HTTP/1.1 " + status + "\r\nContent-Type: " + type +
                 "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body),
        m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(m_socket, reinterpret_cast<sockaddr*>(&address), size) == 0 && listen(m_socket, 1) == 0) {
      getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
      m_port = ntohs(address.sin_port);
    }
    m_thread = std::thread([this] { serve(); });
  }
  ~OneAnswer() {
    shutdown(m_socket, SHUT_RDWR);
    m_thread.join();
    close(m_socket);
  }

  [[nodiscard]] std::string port() const { return std::to_string(m_port); }
  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + port() + "/ows?whole=1"; }

private:
  void serve() {
    const int connection = accept(m_socket, nullptr, nullptr);
    if (connection < 0) return;
    std::string request;
    std::array<char, 4096> piece{};
    while (request.find("\r\n\r\n") == request.npos) {
      const ssize_t size = recv(connection, piece.data(), piece.size(), 0);
      if (size <= 0) break;
      request.append(piece.data(), static_cast<std::size_t>(size));
    }
    (void)!write(connection, m_answer.data(), m_answer.size());
    close(connection);
  }

  std::string m_answer;
  int m_socket;
  int m_port = 0;
  std::thread m_thread;
};

class WmsRequest : public Wms {
protected:
  static void SetUpTestSuite() { ASSERT_EQ(CCurl::CurlStartup(), 1); }
  static void TearDownTestSuite() { CCurl::CurlShutdown(); }

  /// Runs a request against a server that gives this answer. \return the message of the failure.
  template <typename Action>
  std::string against(const std::string& type, const std::string& body, Action request,
                      const std::string& status = "200 OK") {
    const OneAnswer server(type, body, status);
    wms.CurlSetHost("127.0.0.1");
    wms.CurlSetPort(server.port().c_str());
    wms.CurlSetPath("/ows");
    fakeBridge() = {};
    return errorOf(request);
  }
  std::string getMap(const std::string& type, const std::string& body) {
    return against(type, body, [&] { wms.OgcWmsGetMap("LAYERS=a"); });
  }
  [[nodiscard]] static bool told(const std::string& line) {
    return std::ranges::find(fakeBridge().status, line) != fakeBridge().status.end();
  }
};

const std::string document =
    "<WMS_Capabilities version='1.3.0'><Layer queryable='1'><Layer/></Layer></WMS_Capabilities>";
const std::string refusal =
    "<ServiceExceptionReport><ServiceException code='LayerNotDefined'>no</ServiceException></ServiceExceptionReport>";

TEST_F(WmsRequest, CapabilitiesComeFromServersAndFiles) {
  const auto get = [&] { wms.OgcWmsGetCap(nullptr, nullptr, 0, 0, 0); };
  EXPECT_EQ(against("text/xml", document, get), "");
  EXPECT_STREQ(wms.OgcWmsGetLayer(1)->szQueryable, "1");
  EXPECT_EQ(wms.OgcWmsGetNextLayer(), wms.OgcWmsGetLayer(0));
  const Lines& lines = fakeBridge().status;
  ASSERT_GE(lines.size(), 4U);
  EXPECT_EQ(lines[0], "Sending Http Get Request: ");
  EXPECT_NE(lines[1].find("/ows?Version=1.1.1&Service=WMS&Request=GetCapabilities"), std::string::npos) << lines[1];
  EXPECT_TRUE(told("Get Capabilites response written to: ") && told(path("cap.xml")) &&
              told("Parsing GetCapabilities XML doc...") && told("Number of layers found: 2."));
  EXPECT_EQ(lines.back(), "Get Capabilites request completed.");

  EXPECT_EQ(against("text/html", "<html><body>wrong map</body></html>", get).find("Error: Http Get did not"), 0U);
  EXPECT_EQ(wms.NumLayers(), 0) << "nothing stays of the last document";
  EXPECT_NE(against("text/xml", "", get), "");
  EXPECT_NE(against("text/xml", refusal, get), "");
  EXPECT_EQ(against("text/xml", document, get), "") << "one refusal does not poison the next request";

  // A whole URL is written only; the file written is then read, and stays as it is.
  std::string file;
  {
    fakeBridge() = {};
    const OneAnswer server("text/xml", document);
    EXPECT_EQ(errorOf([&] { wms.OgcWmsGetCap(nullptr, server.url().c_str(), 0, 0, 0); }), "");
    EXPECT_TRUE(told("url response written to: "));
    EXPECT_EQ(wms.NumLayers(), 0);
    file = wms.ResponseFile();
  }
  EXPECT_EQ(errorOf([&] { wms.OgcWmsGetCap(file.c_str(), nullptr, 0, 0, 1); }), "");
  EXPECT_EQ(wms.OgcWmsGetLayer(1)->szQueryable, nullptr) << "inheritance is off";
  EXPECT_EQ(std::filesystem::file_size(file), document.size());
  {
    const OneAnswer server("text/xml", refusal);
    EXPECT_EQ(errorOf([&] { wms.OgcWmsGetCap(write(document).c_str(), server.url().c_str(), 0, 0, 0); }), "");
  }
  EXPECT_EQ(wms.NumLayers(), 2) << "the file was read, the URL's answer was not";
  EXPECT_EQ(wms.OgcWmsGetNextLayer(), nullptr);
  EXPECT_EQ(std::filesystem::file_size(file), refusal.size());
  EXPECT_EQ(errorOf([&] { wms.OgcWmsGetCap(path("none").c_str(), nullptr, 0, 0, 0); }),
            "Error: File does not exist.  file: (" + path("none") + ").");
}

TEST_F(WmsRequest, MapsAreRefusedWhenTheyAreWords) {
  const std::string instead = "Error: Recieved an XML file instead of a Map. ";
  EXPECT_EQ(readDocument(document), "");
  EXPECT_EQ(getMap("image/png", "picture"), "");
  EXPECT_EQ(fakeBridge().status.back(), "Get Map request completed.");
  EXPECT_EQ(std::filesystem::file_size(wms.ResponseFile()), 7U);

  EXPECT_EQ(getMap("application/vnd.ogc.se_xml", refusal).substr(0, instead.size()), instead);
  EXPECT_NE(wms.ServiceExceptionText().str().find("LayerNotDefined"), std::string::npos);
  EXPECT_TRUE(
      told("Error: Remote OGC server returned a service exception: (" + wms.ServiceExceptionText().str() + ")"));
  EXPECT_EQ(getMap("text/xml", "<a/>").substr(0, instead.size()), instead);
  EXPECT_FALSE(wms.ServiceExceptionText().present());
  EXPECT_EQ(getMap("text/xml", "<WMS_Capabilities version='9'><Layer/></WMS_Capabilities>").substr(0, instead.size()),
            instead);
  EXPECT_EQ(getMap("text/xml", refusal.substr(0, refusal.size() - 4)).substr(0, 24), "Fatal Error: SAX Parser:");
  EXPECT_EQ(getMap("text/html", "<html><body>no map</body></html>").find("Error: Http Get did not succeed. "), 0U);
  EXPECT_EQ(wms.NumLayers(), 2) << "maps do not touch the capabilities";

  EXPECT_EQ(against("text/xml", refusal, [&] { wms.OgcWmsGetFeature("I=1&J=2"); }), "");
  EXPECT_EQ(fakeBridge().status.back(), "Get Feature Info request completed.");
  EXPECT_EQ(wms.Settings().query.str(), "Version=1.1.1&Service=WMS&Request=GetFeatureInfo&I=1&J=2");
  EXPECT_TRUE(told("Feature Info file written to: "));
}

TEST_F(WmsRequest, RefusalsWithAnErrorStatusAreReportedBeforeTheError) {
  const std::string report = "<ExceptionReport><Exception exceptionCode='No'/></ExceptionReport>";
  const std::string failed =
      "Error: Http Get Request Failed. Error =  http: Client Error. Remote Host(127.0.0.1), Http "
      "ErrCode(400), Http Err(Bad) Http ErrMsg(No HTML found).";
  const struct {
    const char* type;
    std::string body;
    const char* words; ///< in the line that is added, "" for none
  } rows[] = {{"text/xml", refusal, "a service exception: ( Code= LayerNotDefined"},
              {"application/vnd.ogc.se_xml", report, "a exception report: ( Code= No)"},
              {"text/html", refusal, "a service exception: ( Code= LayerNotDefined"},
              {"text/xml", refusal.substr(0, refusal.size() - 9), "a service exception: ( Code= LayerNotDefined"},
              {"text/xml", refusal.substr(0, 9), ""},
              {"text/xml", document, ""},
              {"image/png", "picture", ""},
              {"text/html", "", ""}};
  for (const auto& row : rows) {
    for (const auto get : {+[](COgcWms& wms) { wms.OgcWmsGetMap("a=b"); },
                           +[](COgcWms& wms) { wms.OgcWmsGetCap(nullptr, nullptr, 0, 0, 0); },
                           +[](COgcWms& wms) { wms.OgcWmsGetFeature("a=b"); }}) {
      EXPECT_EQ(against(
                    row.type, row.body, [&] { get(wms); }, "400 Bad"),
                failed)
          << row.body;
      Lines lines = fakeBridge().status;
      if (*row.words != '\0') {
        EXPECT_NE(lines.back().find(std::string("Error: Remote OGC server returned ") + row.words), std::string::npos)
            << lines.back();
        lines.pop_back();
      }
      const bool answered = !row.body.empty();
      EXPECT_EQ(lines.back().find(answered ? "http: Error: Http Get Request Failed. see file: (" : "http: Client"), 0U)
          << lines.back();
      EXPECT_EQ(answered, wms.ResponseFile() != nullptr && std::filesystem::file_size(wms.ResponseFile()) != 0);
    }
  }
}

TEST_F(Wms, RunsOneRequestAtATime) {
  std::string failures;
  fakeBridge().onStatus = [&](const std::string&) {
    failures = errorOf([&] { wms.OgcWmsGetMap("LAYERS=a"); }).substr(0, 6) +
               errorOf([&] { wms.OgcWmsCleanupCap(); }).substr(0, 6) +
               errorOf([&] { wms.OgcWmsCleanup(); }).substr(0, 6);
    wms.OgcWmsSetCapFN(path("other name").c_str());
    return 1;
  };
  EXPECT_EQ(readDocument(document), "");
  EXPECT_EQ(failures, "Error:Error:Error:");
  EXPECT_EQ(wms.NumLayers(), 2);
  EXPECT_EQ(fakeBridge().copies.at(0).second, path("cap"));
}

TEST_F(Wms, StartsWithDefaultsAndRefusesEmptyFileNames) {
  COgcWms client;
  EXPECT_EQ(client.Version().str() + ' ' + client.CapFile().str() + ' ' + client.MapFile().str() + ' ' +
                client.FeatFile().str(),
            "1.1.1 cap map map");
  EXPECT_EQ(errorOf([&] { client.OgcWmsSetCapFN(""); }), "Error: Capabilities Filename can not be null..");
  EXPECT_EQ(errorOf([&] { client.OgcWmsSetMapFN(nullptr); }), "Error: Map Filename can not be null..");
  EXPECT_EQ(errorOf([&] { client.OgcWmsSetFeatFN(""); }), "Error: Feature Info Filename can not be null..");
  client.OgcWmsSetVer("1.3.0");
  client.OgcWmsSetFeatFN("other");
  EXPECT_EQ(client.Version().str() + client.FeatFile().str(), "1.3.0other");
  EXPECT_EQ(client.OgcWmsInit(), 1);
  EXPECT_EQ(client.OgcWmsCleanup(), 1);
  EXPECT_EQ(client.LayerCacheCapacity(), 0);
  EXPECT_FALSE(client.Version().present() || client.CapFile().present() || client.FeatFile().present());
  client.OgcWmsSetCapFN(path("cap").c_str());
  client.OgcWmsGetCap(write(document).c_str(), nullptr, 0, 0, 0);
  EXPECT_EQ(client.NumLayers(), 2) << "a client that was cleaned up works again";
}

TEST_F(Wms, LayersAreReachedByCursorAndIndex) {
  const std::string tooFar = "Error: unable to skip over the desired number of layers..";
  const std::string wrongIndex = "Error: Invalid index in OgcWcsGetLayer call..";
  EXPECT_EQ(wms.OgcWmsGetNextLayer(), nullptr);
  EXPECT_EQ(read("<Layer><Style/><Style/><Extent name='e'/></Layer><Layer/><Layer/>"), "");
  const struct {
    int skip;
    std::string failure;
    int next;
  } skips[] = {{2, "", 2}, {0, "", 0}, {3, "", -1}, {4, tooFar, -1}, {-1, "", 0}};
  for (const auto& c : skips) {
    EXPECT_EQ(errorOf([&] { wms.OgcWmsGetNextLayerSkip(c.skip); }), c.failure) << c.skip;
    const xWmsLayer_t* next = wms.OgcWmsGetNextLayer();
    EXPECT_EQ(next != nullptr ? next->iIndex : -1, c.next) << c.skip;
  }
  for (const int i : {3, -1}) {
    EXPECT_EQ(errorOf([&] { (void)wms.OgcWmsGetLayer(i); }), wrongIndex) << i;
    EXPECT_EQ(errorOf([&] { (void)wms.OgcWmsGetLyrFeat(i, 0); }), wrongIndex) << i;
  }
  EXPECT_EQ(wms.OgcWmsGetLyrStyle(0, 1), wms.OgcWmsGetLyrStyle(0, 0)->pNext);
  EXPECT_EQ(wms.OgcWmsGetLyrStyle(0, -1), wms.OgcWmsGetLyrStyle(0, 0));
  EXPECT_EQ(wms.OgcWmsGetLyrStyle(0, 5), nullptr);
  EXPECT_STREQ(wms.OgcWmsGetLyrExt(0, 0)->szName, "e");
  const bool emptyFirstRecords = wms.OgcWmsGetLyrStyle(1, 0) && wms.OgcWmsGetLyrDim(1, 0) &&
                                 wms.OgcWmsGetLyrAuth(1, 0) && wms.OgcWmsGetLyrBBox(1, 0) &&
                                 wms.OgcWmsGetLyrExt(1, 0) && wms.OgcWmsGetLyrId(1, 0) && wms.OgcWmsGetLyrMeta(1, 0) &&
                                 wms.OgcWmsGetLyrData(1, 0) && wms.OgcWmsGetLyrFeat(1, 0);
  EXPECT_TRUE(emptyFirstRecords);
  EXPECT_EQ(wms.OgcWmsGetLyrStyle(1, 1), nullptr);

  wms.OgcWmsAllocateLayerPtrCache(10, 1);
  EXPECT_EQ(wms.OgcWmsGetLayer(2)->iIndex, 2);
  EXPECT_EQ(wms.LayerCacheCapacity(), 10);
  wms.OgcWmsAllocateLayerPtrCache(10, 0);
  EXPECT_EQ(errorOf([&] { (void)wms.OgcWmsGetLyrStyle(0, 0); }), wrongIndex) << "the cache holds no layer any more";
}

TEST(WmsSaxHelper, FindsNamesInAnyCase) {
  xNodeStr_t second{"EPSG:4326", nullptr};
  const xNodeStr_t first{nullptr, &second};
  EXPECT_EQ(COgcWmsSaxHelper::CheckStringNode(&first, "epsg:4326"), 1);
  EXPECT_EQ(COgcWmsSaxHelper::CheckStringNode(&first, "epsg:432"), 0);
  EXPECT_EQ(COgcWmsSaxHelper::CheckStringNode(&first, nullptr), 0);
  EXPECT_EQ(COgcWmsSaxHelper::CheckStringNode(nullptr, "a"), 0);
}

} // namespace
