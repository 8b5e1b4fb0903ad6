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
  /// Takes scheme, host, port and path from a service URL; its parameters before the last of service=, request= and
  /// version= become the query prefix, those after it the query suffix, the three themselves are dropped.
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

  /// Content types that contain "xml" or "html" read just so.
  void CurlHttpParseContentType() override;

  static void OgcBaseStringHandler(transfer::Text* slot, const char* text) { slot->set(text); }
  static void OgcBaseCleanUpCharArray(transfer::Text* slot) noexcept { slot->clear(); }

  [[nodiscard]] const transfer::Text& version() const noexcept { return m_version; }

  /// Hands a line to the status callback, whose answer cancels nothing.
  void reportStatus(const char* text) override { callStatusRoutine(text, nullptr); }
  /// The same as a warning: also an informational message.
  void reportWarning(const char* text) override;

  /// Refuses to go on while a request of this client runs, its parse included. \throws CCurlException naming `what`.
  void requireIdle(const char* what) const;

protected:
  using ogc::xml::Reporter::fail;

  /// Marks the client busy for the time of one request. \throws CCurlException when it already is.
  class Request {
  public:
    explicit Request(COgcBase& client);
    ~Request() noexcept {
      m_client.m_busy = false;
      m_client.holdResponseFile(false);
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

  private:
    COgcBase& m_client;
  };

  /// Reports nothing for the time of a scope.
  class Quiet {
  public:
    explicit Quiet(COgcBase& client) noexcept : m_client(client) { client.m_quiet = true; }
    ~Quiet() { m_client.m_quiet = false; }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

  private:
    COgcBase& m_client;
  };

  explicit COgcBase(const char* version);
  ~COgcBase() = default;

  /// Runs a request that fills records anew: whatever it had read by then is forgotten when it fails, since half a
  /// document must not pass for a whole one.
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
    const char* fromFile; ///< an existing document; null: none
    const char* fromUrl;  ///< a whole request; null: none
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
  /// Composes the URL, performs the HTTP GET into `file`, checks that a file came. \return its name.
  std::string fetchFile(const char* file, const RequestTexts& texts);
  /// Performs an HTTP GET of a URL given whole into `file`; nothing is parsed.
  void fetchUrl(const char* url, const char* file);
  /// \throws CCurlException with the server's error text when the answer is HTML.
  void throwIfHtml();
  [[nodiscard]] bool answerIsXml() const noexcept;
  /// Parses the answer just written; refuses it when another process replaced the file meanwhile.
  void parseAnswer(ogc::xml::Handler& handler, const char* file, const ogc::xml::Validation& validation = {});
  /// Reads a document into `handler`: the answer to the query, or an existing file, which is then kept as `keptAs`.
  void readDocument(ogc::xml::Handler& handler, const ReadOptions& options, const transfer::Text& keptAs,
                    const DocumentTexts& texts);
  /// Reads capabilities. Of a URL the answer is only fetched.
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
  /// Reports the exception texts in the answer to a failed request, when there are any.
  void reportRefusal(const char* file);

  ogc::xml::ExceptionTexts m_exceptions; ///< of the last document parsed
  std::exception_ptr m_hostError;        ///< what left the host last, whatever a parser made of it
  bool m_busy = false;
  bool m_quiet = false;
};
