// A small module that exercises the host: class SAMPLE, and SAMPLEDERIVED that inherits it.
#include "zel_module.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

ZEL_MsgBlock g_messages = nullptr;

struct Keywords {
  ZEL_KwResult result;
  struct Slot {
    std::int32_t present;
    ZEL_Variable* value;
  };
  Slot count, fail, number, text, watch;
};

constexpr ZEL_KwDef keyword(const char* name, ZEL_Type type, unsigned flags, std::size_t slot) {
  return {name, type, 1, flags, slot + offsetof(Keywords::Slot, present), slot + offsetof(Keywords::Slot, value)};
}

constexpr ZEL_KwDef kTable[] = {keyword("COUNT", ZEL_TYP_UNDEF, ZEL_KW_OUT, offsetof(Keywords, count)),
                                keyword("FAIL", ZEL_TYP_UNDEF, ZEL_KW_VIN, offsetof(Keywords, fail)),
                                keyword("NUMBER", ZEL_TYP_LONG, 0, offsetof(Keywords, number)),
                                keyword("TEXT", ZEL_TYP_STRING, 0, offsetof(Keywords, text)),
                                keyword("WATCH_FUNCTION", ZEL_TYP_UNDEF, ZEL_KW_VIN, offsetof(Keywords, watch)),
                                {nullptr, ZEL_TYP_UNDEF, 0, 0, 0, 0}};

/// The keywords of a call, released at the end.
struct Processed : Keywords {
  Processed(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) : Keywords{} {
    ZEL_KWProcessByOffset(argc, argv, argk, kTable, 1, &result);
  }
  ~Processed() { ZEL_KWFree(&result); }
};

const char* textOf(const ZEL_Variable* v) { return v->value.str.s ? v->value.str.s : ""; }

/// FAIL=text: an informational message and 0.
ZEL_Variable* init(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  const Processed given(argc, argv, argk);
  ZEL_MessageFromBlock(g_messages, 0, ZEL_MSG_INFO, given.fail.present ? textOf(given.fail.value) : "hello");
  return ZEL_GettmpInt(given.fail.present ? 0 : 1);
}

void cleanup(int, ZEL_Variable**) {}

/// The argument, or what a converting keyword became; COUNT: how many elements the argument has.
ZEL_Variable* echo(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  const Processed given(argc, argv, argk);
  std::int64_t n = 0;
  char* data = nullptr;
  ZEL_VarGetData(argv[1], &n, &data);
  if (given.count.present) ZEL_StoreScalar(given.count.value, ZEL_TYP_LONG64, &n);
  zel::Temp out(ZEL_Gettmp());
  ZEL_Variable* source = given.text.present ? given.text.value : given.number.present ? given.number.value : argv[1];
  ZEL_Variable unchanged = *source; // a converted temporary stays the keyword's
  unchanged.flags &= static_cast<std::uint8_t>(~ZEL_V_TEMP);
  ZEL_VarCopy(&unchanged, out.get());
  return out.release();
}

/// Calls the routine of that name with a text, a progress array and the further arguments; gives its 16-bit answer.
ZEL_Variable* call(int argc, ZEL_Variable** argv) {
  const zel::Temp text(ZEL_StrToSTRING("working"));
  char* data = nullptr;
  const zel::Temp progress(ZEL_MakeTempVector(ZEL_TYP_LONG64, 5, &data));
  for (int i = 0; i < 5; ++i) reinterpret_cast<std::int64_t*>(data)[i] = i;
  std::vector<ZEL_Variable*> arguments{text.get(), progress.get()};
  arguments.insert(arguments.end(), argv + 2, argv + argc);
  const zel::Temp result(ZEL_Gettmp());
  ZEL_CallDesc desc{1, ZEL_IdentHash(textOf(argv[1])), static_cast<int>(arguments.size()), arguments.data(),
                    result.get()};
  ZEL_InterpCallFromSysproc(&desc);
  const zel::Temp answer(ZEL_CvtFix(result.get()));
  return ZEL_GettmpInt(answer->value.i);
}

/// A structure with every type of integer, all bits set.
ZEL_Variable* allBits() {
  const ZEL_StructTagDef tags[] = {
      {"BYTE", ZEL_TYP_BYTE, 0, nullptr, 0},       {"INT", ZEL_TYP_INT, 0, nullptr, 0},
      {"UINT", ZEL_TYP_UINT, 0, nullptr, 0},       {"LONG", ZEL_TYP_LONG, 0, nullptr, 0},
      {"ULONG", ZEL_TYP_ULONG, 0, nullptr, 0},     {"LONG64", ZEL_TYP_LONG64, 0, nullptr, 0},
      {"ULONG64", ZEL_TYP_ULONG64, 0, nullptr, 0}, {}};
  const ZEL_StructDef* def = ZEL_MakeStruct(nullptr, tags);
  char* data = nullptr;
  ZEL_Variable* all = ZEL_MakeTempStruct(def, 1, &data);
  std::memset(data, 0xff, static_cast<std::size_t>(ZEL_StructSize(def)));
  return all;
}

/// WATCH_FUNCTION=name: kept for the next call with TEXT, which calls it; COUNT: integers.
void configure(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static std::string watch;
  const Processed given(argc, argv, argk);
  if (given.watch.present) watch = textOf(given.watch.value);
  if (given.count.present) ZEL_VarCopy(allBits(), given.count.value);
  if (given.text.present) {
    const zel::Temp name(ZEL_StrToSTRING(watch.c_str()));
    ZEL_Variable* arguments[] = {argv[0], name.get()};
    ZEL_Deltmp(call(2, arguments));
  }
}

ZEL_Variable* leak(int, ZEL_Variable**) {
  ZEL_StrToSTRING("left behind");
  return ZEL_GettmpInt(1);
}

ZEL_Variable* fault(int, ZEL_Variable** argv) {
  if (argv[1]->value.l64 == 1) throw std::runtime_error("out of luck");
  if (argv[1]->value.l64 == 2) throw 2;
  ZEL_MessageFromBlock(g_messages, -1, ZEL_MSG_ERROR, "Sample: ", nullptr);
  return nullptr;
}

int reset() { return std::getenv("SAMPLE_NO_RESET") ? 0 : 1; }

} // namespace

extern "C" int ZEL_Load() {
  const ZEL_StructTagDef base[] = {{"RUNNING", ZEL_TYP_LONG64, 0, nullptr, 0}, {}};
  const ZEL_StructDef* sample = ZEL_MakeStructInternal("SAMPLE", base);
  const ZEL_StructTagDef derived[] = {
      {"INHERITS", ZEL_TYP_STRUCT, 0, sample, ZEL_TAG_INHERIT}, {"OWN", ZEL_TYP_INT, 0, nullptr, 0}, {}};
  ZEL_ObjInsertDef(sample);
  ZEL_ObjInsertDef(ZEL_MakeStructInternal("SAMPLEDERIVED", derived));
  if (std::getenv("SAMPLE_REFUSE")) return 0;
  ZEL_SessionResetAdd(reset);
  const ZEL_MsgDef messages[] = {{"SAMPLE_1", "%N %s"}, {"SAMPLE_2", "%N %s %s"}};
  g_messages = ZEL_MessageDefineBlock("SAMPLE", 2, messages);
  const ZEL_SysRtnDef functions[] = {{init, "SAMPLE::INIT", 1, 1, ZEL_SYSRTN_KEYWORDS},
                                     {echo, "SAMPLE::ECHO", 2, 2, ZEL_SYSRTN_KEYWORDS},
                                     {call, "SAMPLE::CALL", 2, 3, 0},
                                     {leak, "SAMPLE::LEAK", 1, 1, 0},
                                     {fault, "SAMPLE::FAULT", 2, 2, 0},
                                     {init, "SAMPLEDERIVED::FAULT", 1, 1, ZEL_SYSRTN_KEYWORDS}};
  const ZEL_SysRtnDef procedures[] = {{cleanup, "SAMPLE::CLEANUP", 1, 1, 0},
                                      {configure, "SAMPLE::CONFIGURE", 1, 1, ZEL_SYSRTN_KEYWORDS}};
  return g_messages && ZEL_SysRtnAdd(functions, 1, 6) && ZEL_SysRtnAdd(procedures, 0, 2);
}
