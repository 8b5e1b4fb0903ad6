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

std::unordered_map<std::string, Routine> g_routines;
std::int64_t g_leaked = 0; // temporaries that routines left over

/// A running routine; the innermost is on top.
struct Frame {
  Frame(const Routine& running, std::span<ZEL_Variable* const> given, const ZEL_Keywords& named)
      : routine(running), arguments(given), keywords(named.keywords, static_cast<std::size_t>(named.count)) {
    top = this;
  }
  ~Frame() {
    for (const auto& temporaries : kept) g_leaked += std::ssize(temporaries);
    kept.clear();
    g_leaked += releaseTemporariesAfter(mark, result);
    top = outer;
    if (outer == nullptr) forgetUnusedStructs();
  }
  static inline Frame* top = nullptr;

  const Routine& routine;
  std::span<ZEL_Variable* const> arguments;
  std::span<const ZEL_Keyword> keywords;
  Frame* outer = top;
  std::uint64_t mark = lastTemporary();
  int depth = outer != nullptr ? outer->depth + 1 : 1;
  const ZEL_Variable* result = nullptr;
  std::vector<std::vector<Temp>> kept; ///< for its keywords
};

/// Temporaries of the keywords of the running routine, or of those processed outside of any routine.
std::vector<std::vector<Temp>>& keptHere() {
  static std::vector<std::vector<Temp>> outside;
  return Frame::top != nullptr ? Frame::top->kept : outside;
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
  const auto found = g_routines.find(std::string(name));
  return found == g_routines.end() ? nullptr : &found->second;
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
    for (const auto& [name, routine] : g_routines)
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
  frame.result = result;
  return Temp(result);
}

int routineDepth() noexcept { return Frame::top != nullptr ? Frame::top->depth : 0; }

std::string routinePrefix() { return Frame::top != nullptr ? Frame::top->routine.name + ':' : std::string(); }

std::string argumentLabel(const ZEL_Variable* v) {
  const Frame* frame = Frame::top;
  if (frame == nullptr) return "";
  for (const ZEL_Keyword& keyword : frame->keywords)
    if (keyword.value == v) return std::string("keyword ") + keyword.name + ": ";
  const auto found = std::ranges::find(frame->arguments, v);
  if (found == frame->arguments.end()) return "";
  return "argument " + std::to_string(found - frame->arguments.begin()) + ": ";
}

std::int64_t leakedTemporaries() noexcept { return g_leaked; }

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

int ZEL_SysRtnAdd(const ZEL_SysRtnDef* defs, int isFunction, int n) {
  auto& byName = zel::host::g_routines;
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
