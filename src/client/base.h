/// \file
/// What both service clients share: a transfer object with OGC request handling on top.
#pragma once

#include "xml/parse.h"
#include "zel_curl_obj.h"

#include <exception>
#include <string>

namespace ogc {
/// Longest composed query or URL that a request uses.
constexpr std::size_t queryLimit = 4095;
} // namespace ogc

class COgcBase : public CCurl, public ogc::xml::Reporter, private ogc::xml::Fetcher {
public:
  /// Takes scheme, host, port and path from a service URL. The parameters before the last of service=, request= and
  /// version= become the query prefix, those after it the query suffix; these three are left out.
  /// \throws CCurlException for a URL without scheme, host, path or "?".
  void OgcBaseParseURL(const char* url);

  /// \return 0 when `path` exists. \throws CCurlException "message  file: (path)" otherwise, after a status line.
  int OgcBaseFileExistsCheck(const char* path, const char* message);

  /// \throws CCurlException when the last parsed document was an exception report, after a status line.
  void OgcBaseServerErrorCheck();

  /// Parses `file` into `handler`. \param schemaChecking 0 off, 1 on, otherwise with full constraint checking.
  /// \param validationMode 0 off, 1 when the document has a DTD, 2 always; others set nothing.
  /// \throws CCurlException for every failure, also for an exception report.
  void OgcBaseParse(ogc::xml::Handler* handler, const char* file, int schemaChecking, int validationMode);

  /// Shortens a content type that contains "xml" or "html" to just that.
  void CurlHttpParseContentType() override;

  static void OgcBaseStringHandler(transfer::Text* slot, const char* text) { slot->set(text); }
  static void OgcBaseCleanUpCharArray(transfer::Text* slot) noexcept { slot->clear(); }

  [[nodiscard]] const transfer::Text& version() const noexcept { return m_version; }

  /// Passes a line to the status callback and ignores the answer.
  void reportStatus(const char* text) override { callStatusRoutine(text, nullptr); }
  /// The same, and prints an informational message.
  void reportWarning(const char* text) override;

  /// Throws a CCurlException that names `what` if a request of this client is running or being parsed.
  void requireIdle(const char* what) const;

protected:
  using ogc::xml::Reporter::fail;

  /// Marks the client as busy during one request. \throws CCurlException if it already is.
  class Request {
  public:
    explicit Request(COgcBase& client);
    ~Request() noexcept {
      m_client.m_busy = m_client.m_quiet = false;
      m_client.holdResponseFile(false);
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

  private:
    COgcBase& m_client;
  };

  explicit COgcBase(const char* version);
  ~COgcBase() override = default;

  /// Runs a request that replaces records. If it fails, what it has read is forgotten: half a document must not pass
  /// for a complete one.
  template <typename Forget, typename Read>
  void refill(Forget forget, Read read) {
    const Request request(*this);
    forget();
    try {
      read();
    } catch (...) {
      forget();
      throw;
    }
  }

  /// Where a document comes from, and what it is checked against.
  struct ReadOptions {
    const char* fromFile; ///< an existing document, or null
    const char* fromUrl;  ///< a complete request URL, or null
    ogc::xml::Validation validation;
  };

  /// How a request is announced and what its failures say.
  struct RequestTexts {
    const char* noFile;      ///< thrown when no response file was written
    const char* fileMissing; ///< thrown when the file is not there
    const char* written;     ///< status line before the file's name
  };

  /// How a document is fetched or read, and what is said on the way.
  struct DocumentTexts {
    RequestTexts request;
    const char* parsing;     ///< status line before an answer is parsed
    const char* parsingFile; ///< status line before the name of an existing file
  };

  /// Formats "Version=...&Service=...&Request=...rest" and makes it the query.
  void setQuery(const char* service, const char* request, std::string_view rest);
  /// Composes the URL, performs the HTTP GET into `file` and checks that there is a file. \return its name.
  std::string fetchFile(const char* file, const RequestTexts& texts);
  /// Performs an HTTP GET of a complete URL into `file`, without parsing the answer.
  void fetchUrl(const char* url, const char* file);
  /// \throws CCurlException with the server's error text when the answer is HTML.
  void throwIfHtml();
  [[nodiscard]] bool answerIsXml() const noexcept;
  /// Parses the answer just written. Refuses it if another process has replaced the file.
  void parseAnswer(ogc::xml::Handler& handler, const char* file, const ogc::xml::Validation& validation = {});
  /// Reads a document into `handler`: the answer to the query, or an existing file, which is then kept as `keptAs`.
  void readDocument(ogc::xml::Handler& handler, const ReadOptions& options, const transfer::Text& keptAs,
                    const DocumentTexts& texts);
  /// Reads capabilities. The answer to a URL is fetched, not parsed.
  void readCapabilities(ogc::xml::Handler& handler, const char* service, const ReadOptions& options,
                        const transfer::Text& keptAs);
  /// Stores the name of a response file. \throws CCurlException with `refusal` for an empty one.
  static void setFileName(transfer::Text& slot, const char* name, const char* refusal);
  /// Reports "what", the count and a full stop.
  void reportCount(const char* what, std::int64_t count);
  void clearExceptions() noexcept { m_exceptions = {}; }

  transfer::Text m_version;

private:
  class GrammarTransfer;

  int callStatusRoutine(const char* text, xProgressValues* figures) override;
  std::string fetchGrammar(const std::string& url, std::size_t limit) override;
  void requireOwnAnswer(const char* file) const;
  template <typename Call>
  auto callOut(Call call);
  void sendGet(const char* url);
  /// Reports the exception texts, if any, in the answer to a failed request.
  void reportRefusal(const char* file);

  ogc::xml::ExceptionTexts m_exceptions; ///< of the last document parsed
  std::exception_ptr m_hostError;        ///< last error of the host, which a parser may have replaced with its own
  bool m_busy = false;
  bool m_quiet = false; ///< nothing is reported
};
