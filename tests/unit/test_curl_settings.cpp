#include "curl_test.h"
#include "zel_curl_obj.h"

namespace {

using transfer::Settings;
using transfer::Text;

TEST(CurlSettings, NumbersAreRefusedOrBroughtIntoRange) {
  constexpr int refused = -99;
  using Values = std::vector<std::pair<int, int>>; // given and stored
  const Values upTo3{{0, 0}, {3, 3}, {4, refused}, {-1, refused}}, upTo1{{0, 0}, {1, 1}, {2, refused}, {-1, refused}};
  const Values flag{{0, 0}, {-5, 1}, {0, 0}, {2, 1}};
  const struct {
    void (CCurl::*set)(int);
    int Settings::*field;
    Values values;
  } rows[] = {{&CCurl::CurlSetSslVersion, &Settings::sslVersion, upTo3},
              {&CCurl::CurlSetFtpDirListType, &Settings::ftpDirListType, upTo1},
              {&CCurl::CurlSetFtpAscii, &Settings::ftpAscii, upTo1},
              {&CCurl::CurlSetExtVers, &Settings::extVers, upTo1},
              {&CCurl::CurlSetFtpExplicitSSL, &Settings::ftpExplicitSsl, flag},
              {&CCurl::CurlSetFtpConnMode, &Settings::ftpConnMode, flag}};
  CCurl curl;
  for (const auto& row : rows)
    for (const auto& [given, stored] : row.values) {
      const int before = curl.settings().*row.field;
      const std::string error = errorOf([&, given = given] { (curl.*row.set)(given); });
      EXPECT_EQ(error.empty(), stored != refused) << &row - rows << ": " << given;
      EXPECT_EQ(curl.settings().*row.field, stored != refused ? stored : before) << &row - rows << ": " << given;
    }
}

TEST(CurlSettings, CleanupLeavesTextsAbsentAndNumbersAsTheyAre) {
  CCurl curl;
  const Settings& set = curl.settings();
  for (const auto setter : {&CCurl::CurlSetHost, &CCurl::CurlSetUser, &CCurl::CurlSetPasswd, &CCurl::CurlSetProxyUser,
                            &CCurl::CurlSetProxyPasswd, &CCurl::CurlSetCallback, &CCurl::CurlSetFileToSend})
    (curl.*setter)("x");
  for (const char* line : {"A: 1", "", "B: 2"}) curl.CurlAddHeader(line);
  const auto* head = curl.headerList().head();
  const std::pair<int, const char*> lines[] = {{-5, "A: 1"}, {0, "A: 1"}, {1, nullptr}, {2, "B: 2"}};
  for (const auto& [index, text] : lines) EXPECT_STREQ(CCurl::CurlGetStrNode(head, index)->str, text);
  EXPECT_EQ(CCurl::CurlGetStrNode(head, 3), nullptr);
  EXPECT_EQ(CCurl::CurlGetStrNodeCount(head), 3);
  curl.CurlSetRxTxTo(7);
  curl.CurlCleanup();
  for (const Text* text : {&set.scheme, &set.port, &set.proxyPort, &set.host, &set.user, &set.passwd, &set.proxyUser,
                           &set.proxyPasswd, &set.callback, &set.fileToSend})
    EXPECT_FALSE(text->present()) << text->str();
  EXPECT_TRUE(curl.headerList().head() == nullptr && curl.settings().rxTxTimeout == 7);
}

TEST(CurlLibrary, RestartsAndServesAgain) {
  CCurl curl;
  for (int i = 0; i < 2; ++i) CCurl::CurlShutdown();
  CCurl::CurlCloseConnections();
  EXPECT_TRUE(CCurl::CurlStartup() == 1 && CCurl::CurlStartup() == 1 && CCurl::transferRunning() == 0);
}

TEST(CurlRequest, IsCheckedBeforeAnythingIsSent) {
  static std::string told;
  const std::string noFile = "Filename for ", noBuffer = "Writing to a buffer is not supported";
  const std::tuple<int, int, const char*, std::string> rows[] = {
      // type, whether to a buffer, URL, what is wrong
      {transfer::httpGet, 0, nullptr, "Url request ptr is null."},
      {transfer::httpGet, 0, "", "Url request is empty."},
      {transfer::httpGet, 0, "x", noFile + "Get Response"},
      {transfer::httpPut, 0, "x", noFile + "Put Response"},
      {transfer::httpPost, 0, "x", noFile + "Put Post Response"},
      {transfer::ftpGet, 0, "x", noFile + "Get Response"},
      {transfer::ftpPut, 0, "x", noFile + "Put/Cmd Response"},
      {transfer::ftpCommand, 1, "x", noFile + "Put/Cmd Response"},
      {transfer::ftpPut, 1, "x", noBuffer},
      {0x45, 0, "x", "The request type 69 is not known."}};
  for (const auto& [type, toBuffer, url, problem] : rows) {
    CCurl curl;
    curl.CurlSetCallback("routine");
    curl.CurlSetCallbackFunc([](char*, unsigned long, const char* text, xProgressValues*) {
      told = text;
      return 1;
    });
    curl.CurlSetToBuf(toBuffer);
    const std::string error = errorOf([&, url = url, type = type] { curl.CurlProcessRequest(url, type); });
    EXPECT_NE(error.find(problem), error.npos) << error;
    EXPECT_EQ(error, told + ".");
    EXPECT_EQ(CCurl::transferRunning(), 0);
  }
}

} // namespace
