#include "host/routines.h"

#include "host/messages.h"
#include "host/objects.h"
#include "host/strings.h"
#include "host/structs.h"
#include "host/temporaries.h"

#include <algorithm>
#include <exception>
#include <span>
#include <unordered_map>

namespace zel::host {

namespace {

struct Routines {
  std::unordered_map<std::string, Routine> byName;
  std::int64_t leaked = 0;
};

Routines& routines() {
  static Routines all;
  return all;
}

class Frame;
Frame*& topFrame() {
  static Frame* top = nullptr;
  return top;
}

/// A running routine; the innermost is on top.
class Frame {
public:
  Frame(const Routine& routine, std::span<ZEL_Variable* const> arguments, const ZEL_Keywords& keywords)
      : m_routine(&routine),
        m_arguments(arguments),
        m_keywords(keywords.keywords, static_cast<std::size_t>(keywords.count)),
        m_outer(topFrame()),
        m_mark(lastTemporary()),
        m_depth(m_outer != nullptr ? m_outer->m_depth + 1 : 1) {
    topFrame() = this;
  }
  ~Frame() {
    auto& leaked = routines().leaked;
    for (const auto& temporaries : m_kept) leaked += static_cast<std::int64_t>(temporaries.size());
    m_kept.clear();
    leaked += releaseTemporariesAfter(m_mark, m_result);
    topFrame() = m_outer;
    if (m_outer == nullptr) forgetUnusedStructs();
  }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  const Routine& routine() const noexcept { return *m_routine; }
  std::span<ZEL_Variable* const> arguments() const noexcept { return m_arguments; }
  std::span<const ZEL_Keyword> keywords() const noexcept { return m_keywords; }
  int depth() const noexcept { return m_depth; }
  void setResult(const ZEL_Variable* result) noexcept { m_result = result; }
  std::vector<std::vector<Temp>>& kept() noexcept { return m_kept; }

private:
  const Routine* m_routine;
  std::span<ZEL_Variable* const> m_arguments;
  std::span<const ZEL_Keyword> m_keywords;
  Frame* m_outer;
  std::uint64_t m_mark;
  int m_depth;
  const ZEL_Variable* m_result = nullptr;
  std::vector<std::vector<Temp>> m_kept;
};

/// Temporaries of the keywords of the running routine, or of those processed outside of any routine.
std::vector<std::vector<Temp>>& keptHere() {
  static std::vector<std::vector<Temp>> outside;
  return topFrame() != nullptr ? topFrame()->kept() : outside;
}

/// Refuses a wrong number of arguments, counted without the object of a method, and keywords that are not taken.
void checkArguments(const Routine& routine, int argc, const ZEL_Keywords& keywords) {
  if (argc < routine.argMin || argc > routine.argMax) {
    const int object = routine.name.find("::") != std::string::npos ? 1 : 0;
    std::string wanted = std::to_string(routine.argMin - object);
    if (routine.argMax != routine.argMin) wanted += " to " + std::to_string(routine.argMax - object);
    raise("Incorrect number of arguments: " + wanted + " wanted" + (object != 0 ? " besides the object" : "") + ", " +
          std::to_string(argc - object) + " given.");
  }
  if (keywords.count > 0 && !routine.takesKeywords)
    raise("Keyword " + std::string(keywords.keywords[0].name) + " is not allowed: the routine takes no keywords.");
}

ZEL_Variable* invoke(const Routine& routine, int argc, ZEL_Variable** argv, const ZEL_Keywords& keywords) {
  const ZEL_SysRtnPtr& code = routine.code;
  if (routine.isFunction) return routine.takesKeywords ? code.fun_kw(argc, argv, &keywords) : code.fun(argc, argv);
  routine.takesKeywords ? code.pro_kw(argc, argv, &keywords) : code.pro(argc, argv);
  return nullptr;
}

bool usable(const ZEL_SysRtnDef& def) {
  return def.name != nullptr && *def.name != 0 && def.name == upper(def.name) && def.code.fun != nullptr &&
         def.argMin >= 0 && def.argMin <= def.argMax;
}

} // namespace

const Routine* findRoutine(std::string_view name) {
  const auto found = routines().byName.find(std::string(name));
  return found == routines().byName.end() ? nullptr : &found->second;
}

const Routine* findMethod(const ZEL_ObjDef* objdef, std::string_view method) {
  for (const std::string_view owner : classLine(objdef))
    if (const auto* routine = findRoutine(std::string(owner) + "::" + std::string(method))) return routine;
  return nullptr;
}

std::vector<std::string> methodNames(const ZEL_ObjDef* objdef) {
  std::vector<std::string> names;
  for (const std::string_view owner : classLine(objdef)) {
    const std::string prefix = std::string(owner) + "::";
    for (const auto& [name, routine] : routines().byName)
      if (name.starts_with(prefix)) names.push_back(name.substr(prefix.size()));
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

Temp callRoutine(const Routine& routine, int argc, ZEL_Variable** argv, const ZEL_Keywords& keywords) {
  Frame frame(routine, {argv, static_cast<std::size_t>(argc)}, keywords);
  checkArguments(routine, argc, keywords);
  ZEL_Variable* result = nullptr;
  std::string failure;
  try {
    result = invoke(routine, argc, argv, keywords);
  } catch (const ZEL_Unwind&) {
    throw;
  } catch (const std::exception& error) {
    failure = error.what();
  } catch (...) {
    failure = "unknown exception";
  }
  if (!failure.empty()) raise("The module failed: " + failure + '.');
  if (!routine.isFunction) return nullptr;
  if (result == nullptr || (result->flags & ZEL_V_TEMP) == 0) raise("The module failed: the function gave no result.");
  frame.setResult(result);
  return Temp(result);
}

int routineDepth() noexcept { return topFrame() != nullptr ? topFrame()->depth() : 0; }

std::string routinePrefix() { return topFrame() != nullptr ? topFrame()->routine().name + ':' : std::string(); }

std::string argumentLabel(const ZEL_Variable* v) {
  const Frame* frame = topFrame();
  if (frame == nullptr) return "";
  for (const ZEL_Keyword& keyword : frame->keywords())
    if (keyword.value == v) return std::string("keyword ") + keyword.name + ": ";
  const auto found = std::ranges::find(frame->arguments(), v);
  if (found == frame->arguments().end()) return "";
  return "argument " + std::to_string(found - frame->arguments().begin()) + ": ";
}

std::int64_t leakedTemporaries() noexcept { return routines().leaked; }

std::int32_t keepForKeywords(std::vector<Temp> temporaries) {
  auto& kept = keptHere();
  kept.push_back(std::move(temporaries));
  return static_cast<std::int32_t>(kept.size());
}

void releaseKept(std::int32_t number) noexcept {
  auto& kept = keptHere();
  const auto index = static_cast<std::size_t>(number - 1);
  if (index < kept.size()) kept[index].clear();
  while (!kept.empty() && kept.back().empty()) kept.pop_back();
}

} // namespace zel::host

extern "C" int ZEL_SysRtnAdd(const ZEL_SysRtnDef* defs, int isFunction, int n) {
  auto& byName = zel::host::routines().byName;
  std::vector<std::string_view> names;
  for (const ZEL_SysRtnDef* def = defs; def != defs + n; ++def) {
    if (!zel::host::usable(*def) || byName.contains(def->name) || std::ranges::count(names, def->name) != 0) return 0;
    names.emplace_back(def->name);
  }
  for (const ZEL_SysRtnDef* def = defs; def != defs + n; ++def)
    byName.emplace(def->name, zel::host::Routine{def->name, def->code, isFunction != 0, def->argMin, def->argMax,
                                                 (def->flags & ZEL_SYSRTN_KEYWORDS) != 0});
  return 1;
}
