#include "curl_test.h"
#include "zel_curl_obj.h"

#include <gtest/gtest.h>

namespace {

TEST(CurlSettings, NumbersOutOfRangeAreRefusedAndChangeNothing) {
  const struct {
    void (CCurl::*set)(int);
    int transfer::Settings::*field;
    int most;
    const char* name;
  } ranges[] = {{&CCurl::CurlSetAuthent, &transfer::Settings::authent, 3, "Authentictation"},
                {&CCurl::CurlSetProxyAuthent, &transfer::Settings::proxyAuthent, 3, "ProxyAuthentictation"},
                {&CCurl::CurlSetEncode, &transfer::Settings::encode, 3, "Encode"},
                {&CCurl::CurlSetFtpDirListType, &transfer::Settings::ftpDirListType, 1, "FtpDirListType"},
                {&CCurl::CurlSetFtpAscii, &transfer::Settings::ftpAscii, 1, "FtpAscii"},
                {&CCurl::CurlSetSslVersion, &transfer::Settings::sslVersion, 3, "SSL Version"},
                {&CCurl::CurlSetExtVers, &transfer::Settings::extVers, 1, "filename extension version"}};
  CCurl curl;
  for (const auto& range : ranges)
    for (const int value : {0, 1, range.most, -1, range.most + 1}) {
      const bool fits = value >= 0 && value <= range.most;
      EXPECT_EQ(errorOf([&] { (curl.*range.set)(value); }),
                fits ? "" : std::string("Error: Failed to set ") + range.name + ". Value is not valid..");
      EXPECT_EQ(curl.Settings().*range.field, fits ? value : range.most) << range.name;
    }
}

TEST(CurlSettings, OtherNumbersAreBroughtIntoRange) {
  const struct {
    void (CCurl::*set)(int) noexcept;
    int transfer::Settings::*field;
    int value, stored;
  } rows[] = {{&CCurl::CurlSetSslVerifyPeer, &transfer::Settings::sslVerifyPeer, 0, 0},
              {&CCurl::CurlSetSslVerifyPeer, &transfer::Settings::sslVerifyPeer, -5, 1},
              {&CCurl::CurlSetSslVerifyHost, &transfer::Settings::sslVerifyHost, 2, 1},
              {&CCurl::CurlSetFtpExplicitSSL, &transfer::Settings::ftpExplicitSsl, 7, 1},
              {&CCurl::CurlSetFtpConnMode, &transfer::Settings::ftpConnMode, 0, 0},
              {&CCurl::CurlSetRxTxTo, &transfer::Settings::rxTxTimeout, 0, 1},
              {&CCurl::CurlSetRxTxTo, &transfer::Settings::rxTxTimeout, 7, 7},
              {&CCurl::CurlSetConnectTo, &transfer::Settings::connectTimeout, -9, 1},
              {&CCurl::CurlSetVerbose, &transfer::Settings::verbose, 7, 1},
              {&CCurl::CurlSetVerbose, &transfer::Settings::verbose, -3, -3}};
  CCurl curl;
  for (const auto& row : rows) {
    (curl.*row.set)(row.value);
    EXPECT_EQ(curl.Settings().*row.field, row.stored) << &row - rows;
  }
}

TEST(CurlSettings, Ports) {
  const std::string server = "Error: CurlSetPort failed to convert port value from string to integer:  ";
  CCurl curl;
  EXPECT_EQ(curl.CurlSetPort("8080"), 8080);
  for (const char* empty : {"", static_cast<const char*>(nullptr)})
    EXPECT_EQ(errorOf([&] { curl.CurlSetPort(empty); }),
              "Error: CurlSetPort failed. Port Number can not be set to a null string..");
  EXPECT_EQ(curl.Settings().port.str(), "8080");
  EXPECT_EQ(curl.CurlSetProxyPort("x"), 8080) << "only the server's port is looked at";
  for (const std::string text : {"abc", "0", "-1"}) {
    EXPECT_EQ(errorOf([&] { curl.CurlSetPort(text.c_str()); }), server + text + '.');
    EXPECT_EQ(curl.Settings().port.str(), text);
  }
  EXPECT_NE(errorOf([&] { curl.CurlSetProxyPort("3128"); }), "");
  EXPECT_EQ(curl.Settings().proxyPort.str(), "3128");
}

TEST(CurlSettings, TextsAreCopiedAndCleanupLeavesThemAbsent) {
  CCurl curl;
  const auto& set = curl.Settings();
  EXPECT_EQ(set.scheme.str() + set.port.str() + set.proxyPort.str(), "http8080");
  const std::pair<void (CCurl::*)(const char*), transfer::Text transfer::Settings::*> texts[] = {
      {&CCurl::CurlSetScheme, &transfer::Settings::scheme},
      {&CCurl::CurlSetHost, &transfer::Settings::host},
      {&CCurl::CurlSetPath, &transfer::Settings::path},
      {&CCurl::CurlSetQueryPrefix, &transfer::Settings::queryPrefix},
      {&CCurl::CurlSetQuery, &transfer::Settings::query},
      {&CCurl::CurlSetQuerySuffix, &transfer::Settings::querySuffix},
      {&CCurl::CurlSetProxy, &transfer::Settings::proxy},
      {&CCurl::CurlSetUser, &transfer::Settings::user},
      {&CCurl::CurlSetPasswd, &transfer::Settings::passwd},
      {&CCurl::CurlSetProxyUser, &transfer::Settings::proxyUser},
      {&CCurl::CurlSetProxyPasswd, &transfer::Settings::proxyPasswd},
      {&CCurl::CurlSetFileNameHttpGetRsp, &transfer::Settings::fileHttpGetRsp},
      {&CCurl::CurlSetFileNameHttpPutPostRsp, &transfer::Settings::fileHttpPutPostRsp},
      {&CCurl::CurlSetFileNameFtpGetRsp, &transfer::Settings::fileFtpGetRsp},
      {&CCurl::CurlSetFileNameFtpRsp, &transfer::Settings::fileFtpRsp},
      {&CCurl::CurlSetFileToSend, &transfer::Settings::fileToSend},
      {&CCurl::CurlSetCallback, &transfer::Settings::callback},
      {&CCurl::CurlSetSslCAInfo, &transfer::Settings::sslCaInfo}};
  const auto value = [&](const auto& row) { return "value" + std::to_string(&row - texts); };
  for (const auto& row : texts) (curl.*row.first)(value(row).c_str());
  for (const auto& row : texts) EXPECT_EQ((set.*row.second).str(), value(row));
  const std::tuple<const char*, const char*, const char*> logins[] = {
      {"u", "p", "u:p"}, {"u", nullptr, "u:"}, {"", "p", ":p"}, {"", "", ""}};
  for (const auto& [user, password, login] : logins) {
    transfer::Text text;
    CCurl::CurlCreateUsrPwd(&text, user, password);
    EXPECT_EQ(text.str(), login);
  }
  for (const char* line : {"A: 1", "", "B: 2"}) curl.CurlAddHeader(line);
  const auto* head = curl.HeaderList().head();
  EXPECT_EQ(CCurl::CurlGetStrNodeCount(head), 3);
  for (const auto& [index, text] :
       {std::pair{-5, "A: 1"}, {0, "A: 1"}, {1, static_cast<const char*>(nullptr)}, {2, "B: 2"}})
    EXPECT_STREQ(CCurl::CurlGetStrNode(head, index)->str, text);
  EXPECT_EQ(CCurl::CurlGetStrNode(head, 3), nullptr);
  curl.CurlSetRxTxTo(7);
  curl.CurlCleanup();
  for (const auto& row : texts) EXPECT_FALSE((set.*row.second).present());
  EXPECT_FALSE(set.port.present() || set.proxyPort.present());
  EXPECT_EQ(CCurl::CurlGetStrNodeCount(curl.HeaderList().head()), 0);
  EXPECT_EQ(set.rxTxTimeout, 7);
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

TEST(CurlRequest, IsCheckedBeforeAnythingIsSent) {
  static std::string told;
  const struct {
    const char* url;
    int type;
    bool toBuffer;
    const char* text;
  } rows[] = {{nullptr, transfer::httpGet, false, "Error: Url request ptr is null."},
              {"", transfer::httpGet, false, "Error: Url request is empty."},
              {"x", transfer::httpGet, false, "Error: Http Filename for Get Response is not set."},
              {"x", transfer::httpPut, false, "Error: Http Filename for Put Response is not set."},
              {"x", transfer::httpPost, false, "Error: Http Filename for Put Post Response is not set."},
              {"x", transfer::ftpGet, false, "Error: Ftp Filename for Get Response is not set."},
              {"x", transfer::ftpPut, false, "Error: Ftp Filename for Put/Cmd Response is not set."},
              {"x", transfer::ftpCommand, true, "Error: Ftp Filename for Put/Cmd Response is not set."},
              {"x", transfer::ftpPut, true, "Error: Writing to a buffer is not supported for this operation."},
              {"x", 0x45, true, "Error: Writing to a buffer is not supported for this operation."},
              {"x", 0x45, false, "Error: The request type 69 is not known."}};
  for (const auto& row : rows) {
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
