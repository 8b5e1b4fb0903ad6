#include "curl_test.h"
#include "zel_curl_obj.h"

#include <gtest/gtest.h>

namespace {

TEST(CurlException, EndsInAPointAndIsCut) {
  EXPECT_STREQ(CCurlException("Error: text.").ErrMsg(), "Error: text..");
  EXPECT_STREQ(CCurlException("Error: text", "detail").ErrMsg(), "Error: text detail.");
  EXPECT_STREQ(CCurlException("Error: text", nullptr).ErrMsg(), "Error: text .");
  const std::string large(3000, 'x');
  EXPECT_EQ(CCurlException(large.c_str()).ErrMsg(), large.substr(0, 1023));
  EXPECT_EQ(CCurlException(large.c_str(), large.c_str()).ErrMsg(), large.substr(0, 1023));
}

struct Range {
  void (CCurl::*set)(int);
  int CurlSettings::*field;
  int most;
  const char* error;
};

TEST(CurlSettings, NumbersOutOfRangeAreRefusedAndChangeNothing) {
  const Range ranges[] = {
      {&CCurl::CurlSetAuthent, &CurlSettings::authent, 3, "Error: Failed to set Authentictation. Value is not valid.."},
      {&CCurl::CurlSetProxyAuthent, &CurlSettings::proxyAuthent, 3,
       "Error: Failed to set ProxyAuthentictation. Value is not valid.."},
      {&CCurl::CurlSetEncode, &CurlSettings::encode, 3, "Error: Failed to set Encode. Value is not valid.."},
      {&CCurl::CurlSetFtpDirListType, &CurlSettings::ftpDirListType, 1,
       "Error: Failed to set FtpDirListType. Value is not valid.."},
      {&CCurl::CurlSetFtpAscii, &CurlSettings::ftpAscii, 1, "Error: Failed to set FtpAscii. Value is not valid.."},
      {&CCurl::CurlSetSslVersion, &CurlSettings::sslVersion, 3,
       "Error: Failed to set SSL Version. Value is not valid.."},
      {&CCurl::CurlSetExtVers, &CurlSettings::extVers, 1,
       "Error: Failed to set filename extension version. Value is not valid.."}};
  CCurl curl;
  for (const Range& range : ranges) {
    for (int value = 0; value <= range.most; ++value) {
      EXPECT_EQ(errorOf([&] { (curl.*range.set)(value); }), "");
      EXPECT_EQ(curl.Settings().*range.field, value) << range.error;
    }
    for (const int value : {-1, range.most + 1}) {
      EXPECT_EQ(errorOf([&] { (curl.*range.set)(value); }), range.error);
      EXPECT_EQ(curl.Settings().*range.field, range.most);
    }
  }
}

TEST(CurlSettings, OtherNumbersAreBroughtIntoRange) {
  const struct {
    void (CCurl::*set)(int) noexcept;
    int CurlSettings::*field;
    int value, stored;
  } rows[] = {{&CCurl::CurlSetSslVerifyPeer, &CurlSettings::sslVerifyPeer, 0, 0},
              {&CCurl::CurlSetSslVerifyPeer, &CurlSettings::sslVerifyPeer, -5, 1},
              {&CCurl::CurlSetSslVerifyHost, &CurlSettings::sslVerifyHost, 0, 0},
              {&CCurl::CurlSetSslVerifyHost, &CurlSettings::sslVerifyHost, 2, 1},
              {&CCurl::CurlSetFtpExplicitSSL, &CurlSettings::ftpExplicitSsl, 7, 1},
              {&CCurl::CurlSetFtpConnMode, &CurlSettings::ftpConnMode, 0, 0},
              {&CCurl::CurlSetRxTxTo, &CurlSettings::rxTxTimeout, 0, 1},
              {&CCurl::CurlSetRxTxTo, &CurlSettings::rxTxTimeout, 7, 7},
              {&CCurl::CurlSetConnectTo, &CurlSettings::connectTimeout, -9, 1},
              {&CCurl::CurlSetVerbose, &CurlSettings::verbose, 7, 1},
              {&CCurl::CurlSetVerbose, &CurlSettings::verbose, -3, -3}};
  CCurl curl;
  for (const auto& row : rows) {
    (curl.*row.set)(row.value);
    EXPECT_EQ(curl.Settings().*row.field, row.stored) << &row - rows;
  }
}

TEST(CurlSettings, Ports) {
  CCurl curl;
  EXPECT_EQ(curl.CurlSetPort("8080"), 8080);
  for (const char* empty : {"", static_cast<const char*>(nullptr)})
    EXPECT_EQ(errorOf([&] { curl.CurlSetPort(empty); }),
              "Error: CurlSetPort failed. Port Number can not be set to a null string..");
  EXPECT_EQ(curl.Settings().port.str(), "8080");
  EXPECT_EQ(curl.CurlSetProxyPort("x"), 8080) << "only the server's port is looked at";
  for (const std::string text : {"abc", "0", "-1"}) {
    EXPECT_EQ(errorOf([&] { curl.CurlSetPort(text.c_str()); }),
              "Error: CurlSetPort failed to convert port value from string to integer:  " + text + '.');
    EXPECT_EQ(curl.Settings().port.str(), text);
  }
  EXPECT_EQ(errorOf([&] { curl.CurlSetProxyPort("3128"); }),
            "Error: CurlSetProxyPort failed to convert port value from string to integer:  3128.");
  EXPECT_STREQ(curl.Settings().proxyPort.get(), "3128");
}

TEST(CurlSettings, Credentials) {
  CCurl curl;
  const auto& set = curl.Settings();
  curl.CurlSetUser("u");
  EXPECT_STREQ(set.usrPwd.get(), "u:");
  curl.CurlSetPasswd("p");
  EXPECT_STREQ(set.usrPwd.get(), "u:p");
  curl.CurlSetUser(nullptr);
  EXPECT_STREQ(set.usrPwd.get(), ":p");
  curl.CurlSetPasswd("");
  EXPECT_EQ(set.usrPwd.get(), nullptr);
  curl.CurlSetProxyPasswd("q");
  curl.CurlSetProxyUser("v");
  EXPECT_STREQ(set.proxyUsrPwd.get(), "v:q");
}

TEST(CurlSettings, CleanupLeavesTextsAbsentAndNumbersAlone) {
  CCurl curl;
  EXPECT_STREQ(curl.Settings().scheme.get(), "http");
  EXPECT_STREQ(curl.Settings().port.get(), "80");
  EXPECT_STREQ(curl.Settings().proxyPort.get(), "80");
  const std::pair<void (CCurl::*)(const char*), CText CurlSettings::*> texts[] = {
      {&CCurl::CurlSetScheme, &CurlSettings::scheme},
      {&CCurl::CurlSetHost, &CurlSettings::host},
      {&CCurl::CurlSetPath, &CurlSettings::path},
      {&CCurl::CurlSetQueryPrefix, &CurlSettings::queryPrefix},
      {&CCurl::CurlSetQuery, &CurlSettings::query},
      {&CCurl::CurlSetQuerySuffix, &CurlSettings::querySuffix},
      {&CCurl::CurlSetProxy, &CurlSettings::proxy},
      {&CCurl::CurlSetUser, &CurlSettings::user},
      {&CCurl::CurlSetPasswd, &CurlSettings::passwd},
      {&CCurl::CurlSetProxyUser, &CurlSettings::proxyUser},
      {&CCurl::CurlSetProxyPasswd, &CurlSettings::proxyPasswd},
      {&CCurl::CurlSetFileNameHttpGetRsp, &CurlSettings::fileHttpGetRsp},
      {&CCurl::CurlSetFileNameHttpPutPostRsp, &CurlSettings::fileHttpPutPostRsp},
      {&CCurl::CurlSetFileNameFtpGetRsp, &CurlSettings::fileFtpGetRsp},
      {&CCurl::CurlSetFileNameFtpRsp, &CurlSettings::fileFtpRsp},
      {&CCurl::CurlSetFileToSend, &CurlSettings::fileToSend},
      {&CCurl::CurlSetCallback, &CurlSettings::callback},
      {&CCurl::CurlSetSslCAInfo, &CurlSettings::sslCaInfo}};
  for (const auto& [set, field] : texts) {
    std::string value = "value" + std::to_string(&set - &texts[0].first);
    (curl.*set)(value.c_str());
    EXPECT_EQ((curl.Settings().*field).str(), value);
    value = "changed";
  }
  curl.CurlSetRxTxTo(7);
  curl.CurlCleanup();
  for (const auto& [set, field] : texts) EXPECT_EQ((curl.Settings().*field).get(), nullptr);
  EXPECT_EQ(curl.Settings().port.get(), nullptr);
  EXPECT_EQ(curl.Settings().usrPwd.get(), nullptr);
  EXPECT_EQ(curl.Settings().rxTxTimeout, 7);
}

TEST(CurlLists, NodesAreFoundByIndex) {
  CCurl curl;
  for (const char* line : {"A: 1", "", "B: 2"}) curl.CurlAddHeader(line);
  const auto* head = curl.HeaderList().head();
  EXPECT_EQ(CCurl::CurlGetStrNodeCount(head), 3);
  EXPECT_EQ(CCurl::CurlGetStrNode(head, -5), head);
  EXPECT_EQ(CCurl::CurlGetStrNode(head, 0), head);
  EXPECT_EQ(CCurl::CurlGetStrNode(head, 1)->str, nullptr);
  EXPECT_STREQ(CCurl::CurlGetStrNode(head, 2)->str, "B: 2");
  EXPECT_EQ(CCurl::CurlGetStrNode(head, 3), nullptr);
  CCurl::CurlCleanUpStrNodes(&curl.HeaderList());
  EXPECT_EQ(CCurl::CurlGetStrNodeCount(curl.HeaderList().head()), 0);
}

TEST(CurlLibrary, RestartsAndServesAgain) {
  CCurl curl;
  CCurl::CurlShutdown();
  CCurl::CurlShutdown();
  CCurl::CurlCloseConnections();
  EXPECT_EQ(CCurl::CurlStartup(), 1);
  EXPECT_EQ(CCurl::CurlStartup(), 1);
  EXPECT_EQ(CCurl::CurlTransferRunning(), 0);
}

struct Refused {
  const char* url;
  int type;
  bool toBuffer;
  const char* text;
};

TEST(CurlRequest, IsCheckedBeforeAnythingIsSent) {
  static std::string told;
  const Refused rows[] = {
      {nullptr, CURL_RQ_HTTP_GET, false, "Error: Url request ptr is null."},
      {"", CURL_RQ_HTTP_GET, false, "Error: Url request is empty."},
      {"x", CURL_RQ_HTTP_GET, false, "Error: Http Filename for Get Response is not set."},
      {"x", CURL_RQ_HTTP_PUT, false, "Error: Http Filename for Put Response is not set."},
      {"x", CURL_RQ_HTTP_POST, false, "Error: Http Filename for Put Post Response is not set."},
      {"x", CURL_RQ_FTP_GET, false, "Error: Ftp Filename for Get Response is not set."},
      {"x", CURL_RQ_FTP_PUT, false, "Error: Ftp Filename for Put/Cmd Response is not set."},
      {"x", CURL_RQ_FTP_CMD, false, "Error: Ftp Filename for Put/Cmd Response is not set."},
      {"x", CURL_RQ_FTP_CMD, true, "Error: Ftp Filename for Put/Cmd Response is not set."},
      {"x", CURL_RQ_FTP_PUT, true, "Error: Writing to a buffer is not supported for this operation."},
      {"x", 0x45, true, "Error: Writing to a buffer is not supported for this operation."},
      {"x", 0x45, false, "Error: The request type 69 is not known."}};
  for (const Refused& row : rows) {
    CCurl curl;
    curl.CurlSetCallback("routine");
    curl.CurlSetCallbackFunc([](char*, unsigned long, const char* text, xProgressValues*) {
      told = text;
      return 1;
    });
    curl.CurlSetToBuf(row.toBuffer ? 1 : 0);
    EXPECT_EQ(errorOf([&] { curl.CurlProcessRequest(row.url, row.type); }), row.text + std::string("."));
    EXPECT_EQ(told, row.text);
    EXPECT_EQ(CCurl::CurlTransferRunning(), 0);
  }
}

} // namespace
