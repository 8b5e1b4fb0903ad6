#include "documents.h"

#include "host/heap.h"
#include "host/messages.h"
#include "host/objects.h"
#include "host/routines.h"
#include "host/session.h"
#include "host/strings.h"
#include "host/variables.h"

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>

namespace {

using zel::host::Variable;

/// Where nothing is shown and every status routine says yes.
class Quiet final : public zel::host::FrontEnd {
public:
  void callScript(const std::string&, int, ZEL_Variable** argv, ZEL_Variable* result) override {
    fuzzCheck(argv[0]->value.str.len <= 4095, "a status line is not longer than a query");
    constexpr std::int16_t goOn = 1;
    if (result != nullptr) ZEL_StoreScalar(result, ZEL_TYP_INT, &goOn);
  }

private:
  zel::host::InfoRedirect m_info{[](const std::string&) {}};
};

/// A directory in memory that goes with the process.
class Directory {
public:
  Directory() : m_path("/dev/shm/fuzzXXXXXX") { fuzzCheck(mkdtemp(m_path.data()) != nullptr, "there is a directory"); }
  ~Directory() { std::filesystem::remove_all(m_path); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  [[nodiscard]] const std::string& path() const noexcept { return m_path; }

private:
  std::string m_path;
};

const std::string& directory() {
  static const Directory ours;
  return ours.path();
}

void start() {
  static Quiet frontEnd;
  zel::host::setFrontEnd(&frontEnd);
  ::setenv("ZEL_USER_DIR", directory().c_str(), 1);
  fuzzCheck(ZEL_Load() != 0, "the module is loaded");
}

/// Keywords of a call and the variables behind them.
class Call {
public:
  void add(const char* name, const std::string& text) {
    ZEL_VarCopy(zel::host::makeTempString(text), variable(name, false));
  }
  void add(const char* name, std::int16_t number) { ZEL_StoreScalar(variable(name, false), ZEL_TYP_INT, &number); }
  ZEL_Variable* addOutput(const char* name) { return variable(name, true); }

  zel::Temp run(const char* method, ZEL_HVID object) {
    Variable self;
    self->type = ZEL_TYP_OBJREF;
    self->value.hvid = object;
    ZEL_Variable* argv[] = {self.get()};
    const auto* routine = zel::host::findMethod(ZEL_HeapVarHashFind(object)->objdef, method);
    return zel::host::callRoutine(*routine, 1, argv, {static_cast<int>(m_keywords.size()), m_keywords.data()});
  }

private:
  ZEL_Variable* variable(const char* name, bool output) {
    m_keywords.push_back({name, m_variables.emplace_back().get(), output});
    return m_keywords.back().value;
  }

  std::deque<Variable> m_variables;
  std::vector<ZEL_Keyword> m_keywords;
};

} // namespace

FuzzObject::FuzzObject(const char* className) {
  start();
  m_file = directory() + "/document.xml";
  m_object = zel::host::newObject(zel::host::findClass(className))->hvid;
  Call init;
  init.add("CALLBACK_FUNCTION", "status");
  // The copy that is kept is the document itself.
  init.add("CAPABILITIES_FILENAME", directory() + "/document");
  // Grammars on servers: nothing is ever fetched.
  init.add("PROXY_HOSTNAME", "127.0.0.1");
  init.add("PROXY_PORT", "1");
  fuzzCheck(zel::host::scalarInteger(init.run("INIT", m_object).get()) == 1, "the object is initialised");
}

FuzzObject::~FuzzObject() {
  Call().run("CLEANUP", m_object);
  ZEL_HeapVarDelete(ZEL_HeapVarHashFind(m_object));
}

void FuzzObject::write(const std::string& document) {
  std::ofstream(m_file, std::ios::binary) << document;
  m_hasDtd = document.find("DOCTYPE") != document.npos;
  m_hasSchema = document.find("chemaLocation") != document.npos;
}

std::optional<std::int64_t> FuzzObject::read(const char* method, std::vector<Keyword> keywords) {
  if (m_hasDtd || m_hasSchema) {
    std::vector<Keyword> validated = keywords;
    if (m_hasDtd) validated.push_back({"VALIDATION_MODE", 1});
    if (m_hasSchema) validated.push_back({"SCHEMA_CHECKING", 2});
    call(method, validated, true);
  }
  return call(method, keywords, true);
}

std::optional<std::int64_t> FuzzObject::call(const char* method, const std::vector<Keyword>& keywords) {
  return call(method, keywords, false);
}

std::optional<std::int64_t> FuzzObject::call(const char* method, const std::vector<Keyword>& keywords, bool fromFile) {
  const std::int64_t temporaries = ZEL_TempCount();
  std::optional<std::int64_t> answer;
  m_count = 0;
  try {
    Call call;
    if (fromFile) call.add("FROM_FILE", m_file);
    ZEL_Variable* count = nullptr;
    for (const Keyword& keyword : keywords) {
      if (std::strcmp(keyword.name, "COUNT") == 0)
        count = call.addOutput("COUNT");
      else
        call.add(keyword.name, keyword.value);
    }
    const zel::Temp result = call.run(method, m_object);
    answer = result->type == ZEL_TYP_INT ? result->value.i : result->n;
    if (count != nullptr) m_count = zel::host::scalarInteger(count);
  } catch (const ZEL_Unwind&) {
    fuzzCheck(zel::host::takeError().text.size() <= 1200, "an error is a prefix and at most 1023 characters");
  }
  fuzzCheck(ZEL_TempCount() == temporaries, "no temporary stays");
  fuzzCheck(zel::host::leakedTemporaries() == 0, "no routine leaves a temporary");
  return answer;
}
