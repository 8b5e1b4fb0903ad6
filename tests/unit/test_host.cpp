// The host behind the module interface, called as a module calls it.
#include "zel_module.h"

#include "host/directories.h"
#include "host/heap.h"
#include "host/messages.h"
#include "host/modules.h"
#include "host/objects.h"
#include "host/routines.h"
#include "host/session.h"
#include "host/strings.h"
#include "host/structs.h"
#include "host/variables.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using zel::Temp;
using zel::host::Variable;

namespace {

/// What a body raises; empty when it raises nothing.
std::string errorOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const ZEL_Unwind&) {
    return zel::host::takeError().text;
  }
  return "";
}

Temp text(const std::string& value) { return Temp(ZEL_StrToSTRING(value.c_str())); }

std::string textOf(ZEL_Variable* v) { return std::string(zel::host::text(v->value.str)); }

template <class T>
Temp number(ZEL_Type type, T value) {
  Temp v(ZEL_Gettmp());
  ZEL_StoreScalar(v.get(), type, &value);
  return v;
}

/// The value of a variable in another type, as text without blanks.
std::string converted(ZEL_Variable* v, ZEL_Type type) {
  ZEL_Variable* out = ZEL_VarTypeConvert(v, type);
  const Temp owned(out == v ? nullptr : out);
  ZEL_Variable* shown = ZEL_CvtString(out);
  const Temp ownedText(shown == out ? nullptr : shown);
  const std::string padded = textOf(shown);
  return padded.substr(std::min(padded.find_first_not_of(' '), padded.size()));
}

/// Every test leaves the host as it found it.
class Host : public testing::Test {
protected:
  void SetUp() override {
    m_temporaries = ZEL_TempCount();
    m_heap = zel::host::heapCounts().pointers;
  }
  void TearDown() override {
    EXPECT_EQ(ZEL_TempCount(), m_temporaries);
    EXPECT_EQ(zel::host::heapCounts().pointers, m_heap);
  }

private:
  std::int64_t m_temporaries = 0;
  std::int64_t m_heap = 0;
};

/// A directory that goes with the test.
class HostFiles : public Host {
protected:
  void SetUp() override {
    Host::SetUp();
    std::string name = (fs::temp_directory_path() / "zel-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    m_directory = name;
  }
  void TearDown() override {
    fs::remove_all(m_directory);
    Host::TearDown();
  }

  fs::path at(const std::string& name) const { return m_directory / name; }
  std::size_t entries() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(m_directory), fs::directory_iterator()));
  }
  static void write(const fs::path& file, const std::string& content) { std::ofstream(file) << content; }
  static std::string read(const fs::path& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }

private:
  fs::path m_directory;
};

} // namespace

TEST_F(Host, ConvertsNumbersAndTexts) {
  const struct {
    Temp from;
    ZEL_Type type;
    const char* expected;
  } rows[] = {
      {number<std::int64_t>(ZEL_TYP_LONG64, 40000), ZEL_TYP_INT, "-25536"},
      {number<std::int64_t>(ZEL_TYP_LONG64, 65536), ZEL_TYP_INT, "0"},
      {number<std::int64_t>(ZEL_TYP_LONG64, -1), ZEL_TYP_BYTE, "255"},
      {number<std::int64_t>(ZEL_TYP_LONG64, -1), ZEL_TYP_ULONG64, "18446744073709551615"},
      {number(ZEL_TYP_DOUBLE, 1234.9), ZEL_TYP_LONG, "1234"},
      {number(ZEL_TYP_DOUBLE, -1.9), ZEL_TYP_INT, "-1"},
      {number(ZEL_TYP_DOUBLE, 1e300), ZEL_TYP_LONG64, "9223372036854775807"},
      {number(ZEL_TYP_DOUBLE, std::numeric_limits<double>::quiet_NaN()), ZEL_TYP_INT, "0"},
      {number(ZEL_TYP_DOUBLE, 0.1), ZEL_TYP_STRING, "0.1"},
      {text("  8080"), ZEL_TYP_LONG, "8080"},
      {text("+7 "), ZEL_TYP_INT, "7"},
      {text("1e3"), ZEL_TYP_INT, "1000"},
      {text("40000"), ZEL_TYP_INT, "-25536"},
      {text(" 2.5"), ZEL_TYP_DOUBLE, "2.5"},
      {text("18446744073709551615"), ZEL_TYP_ULONG64, "18446744073709551615"},
  };
  for (const auto& row : rows) EXPECT_EQ(converted(row.from.get(), row.type), row.expected);
}

TEST_F(Host, PadsNumbersByTheirType) {
  const struct {
    Temp from;
    const char* expected;
  } rows[] = {{number<std::uint8_t>(ZEL_TYP_BYTE, 7), "   7"},
              {number<std::int16_t>(ZEL_TYP_INT, -32768), "  -32768"},
              {number<std::int32_t>(ZEL_TYP_LONG, 8080), "        8080"},
              {number<std::int64_t>(ZEL_TYP_LONG64, 8080), "                  8080"}};
  for (const auto& row : rows) EXPECT_EQ(textOf(Temp(ZEL_CvtString(row.from.get())).get()), row.expected);
}

TEST_F(Host, RefusesWhatItCannotConvert) {
  const ZEL_StructTagDef tags[] = {{"A", ZEL_TYP_STRING, 0, nullptr, 0}, {}};
  const struct {
    Temp from;
    ZEL_Type type;
    const char* error;
  } rows[] = {
      {text("80a"), ZEL_TYP_INT, "Unable to read the text \"80a\" as a number."},
      {text(""), ZEL_TYP_DOUBLE, "Unable to read the text \"\" as a number."},
      {text("+-5"), ZEL_TYP_INT, "Unable to read the text \"+-5\" as a number."},
      {text("nan"), ZEL_TYP_INT, "Unable to read the text \"nan\" as a number."},
      {Temp(ZEL_Gettmp()), ZEL_TYP_STRING, "Unable to convert an undefined variable to type string."},
      {Temp(ZEL_MakeTempStruct(ZEL_MakeStruct(nullptr, tags), 2, nullptr)), ZEL_TYP_STRING,
       "Unable to convert an array of 2 (structure) to type string."},
      {text("1"), ZEL_TYP_OBJREF, "Unable to convert string \"1\" to type object."},
  };
  for (const auto& row : rows) EXPECT_EQ(errorOf([&] { ZEL_VarTypeConvert(row.from.get(), row.type); }), row.error);
}

TEST_F(Host, ConvertsArraysElementByElement) {
  char* data = nullptr;
  const Temp numbers(ZEL_MakeTempVector(ZEL_TYP_LONG, 3, &data));
  for (int i = 0; i < 3; ++i) reinterpret_cast<std::int32_t*>(data)[i] = 10 * i;
  const Temp texts(ZEL_CvtString(numbers.get()));
  std::int64_t n = 0;
  ZEL_VarGetData(texts.get(), &n, &data);
  ASSERT_EQ(n, 3);
  EXPECT_EQ(zel::host::text(reinterpret_cast<ZEL_STRING*>(data)[2]), "          20");
  EXPECT_EQ(ZEL_CvtString(texts.get()), texts.get());
}

TEST_F(Host, CopiesAndMovesValues) {
  Variable a, b;
  ZEL_VarCopy(ZEL_StrToSTRING("moved"), a.get()); // the temporary is consumed
  ZEL_VarCopy(a.get(), b.get());
  ZEL_VarCopy(a.get(), a.get());
  ZEL_StrStore(&a->value.str, "changed");
  ZEL_StrStore(&a->value.str, a->value.str.s + 2); // from within itself
  EXPECT_EQ(textOf(a.get()), "anged");
  EXPECT_EQ(textOf(b.get()), "moved");

  const Temp undefined(ZEL_Gettmp());
  Variable c;
  ZEL_VarCopy(a.get(), undefined.get());
  ZEL_VarCopy(c.get(), a.get());
  EXPECT_EQ(a->type, ZEL_TYP_UNDEF);
  EXPECT_EQ(textOf(undefined.get()), "anged");
  EXPECT_NE(errorOf([] { ZEL_MakeTempVector(ZEL_TYP_LONG, 0, nullptr); }), "");
}

TEST_F(Host, AppendsTextsWithinALimit) {
  char buffer[8] = "abc";
  EXPECT_EQ(ZEL_StrBase_strlcat(buffer, "defghij", sizeof buffer), 10U);
  EXPECT_STREQ(buffer, "abcdefg");
}

TEST_F(Host, LaysOutAndSharesStructures) {
  const ZEL_StructTagDef inner[] = {{"X", ZEL_TYP_BYTE, 0, nullptr, 0}, {"S", ZEL_TYP_STRING, 0, nullptr, 0}, {}};
  const ZEL_StructDef* innerDef = ZEL_MakeStruct(nullptr, inner);
  const ZEL_StructTagDef outer[] = {{"b", ZEL_TYP_BYTE, 3, nullptr, 0},
                                    {"LIST", ZEL_TYP_STRUCT, 2, innerDef, 0},
                                    {"TEXTS", ZEL_TYP_STRING, 2, nullptr, 0},
                                    {}};
  const ZEL_StructDef* def = ZEL_MakeStruct(nullptr, outer);
  EXPECT_EQ(def, ZEL_MakeStruct(nullptr, outer));
  EXPECT_EQ(ZEL_StructNumTags(def), 3);
  EXPECT_EQ(ZEL_StructSize(innerDef), 24);
  EXPECT_EQ(ZEL_StructSize(def), 8 + 2 * 24 + 2 * 16);
  const ZEL_StructTagDef padded[] = {inner[1], inner[0], {}};
  EXPECT_EQ(ZEL_StructSize(ZEL_MakeStruct(nullptr, padded)), 24);
  ZEL_StructTagDef tag{};
  EXPECT_EQ(ZEL_StructTagInfoByName(def, "texts", ZEL_MSG_ERROR, &tag), 56);
  EXPECT_EQ(tag.n, 2);
  EXPECT_EQ(ZEL_StructTagInfoByName(def, "NONE", ZEL_MSG_INFO, nullptr), -1);
  EXPECT_EQ(errorOf([&] { ZEL_StructTagInfoByName(def, "NONE", ZEL_MSG_ERROR, nullptr); }),
            "Structure without a name has no tag NONE.");
  EXPECT_NE(errorOf([&] { ZEL_StructTagInfoByIndex(def, 3, nullptr); }), "");

  // A copy owns its texts: changing them leaves the original alone.
  char* data = nullptr;
  const Temp original(ZEL_MakeTempStruct(def, 2, &data));
  auto* last = reinterpret_cast<ZEL_STRING*>(data + ZEL_StructSize(def) + 56) + 1;
  ZEL_StrStore(last, "kept");
  ZEL_StrStore(reinterpret_cast<ZEL_STRING*>(data + 8 + 24 + 8), "nested");
  original->flags &= static_cast<std::uint8_t>(~ZEL_V_TEMP); // as a variable, not consumed
  Variable copy;
  ZEL_VarCopy(original.get(), copy.get());
  original->flags |= ZEL_V_TEMP;
  ZEL_StrStore(reinterpret_cast<ZEL_STRING*>(copy->data + 8 + 24 + 8), "other");
  EXPECT_EQ(zel::host::text(*last), "kept");
  EXPECT_STREQ(reinterpret_cast<ZEL_STRING*>(data + 8 + 24 + 8)->s, "nested");
}

TEST_F(Host, RefusesBadStructures) {
  const ZEL_StructTagDef twice[] = {{"A", ZEL_TYP_INT, 0, nullptr, 0}, {"a", ZEL_TYP_INT, 0, nullptr, 0}, {}};
  const ZEL_StructTagDef empty[] = {{}};
  const ZEL_StructTagDef untyped[] = {{"A", ZEL_TYP_UNDEF, 0, nullptr, 0}, {}};
  const ZEL_StructTagDef undefined[] = {{"A", ZEL_TYP_STRUCT, 0, nullptr, 0}, {}};
  const ZEL_StructTagDef huge[] = {{"A", ZEL_TYP_LONG64, std::numeric_limits<std::int64_t>::max() / 4, nullptr, 0}, {}};
  for (const auto* tags : {&twice[0], &empty[0], &untyped[0], &undefined[0], &huge[0]})
    EXPECT_NE(errorOf([tags] { ZEL_MakeStruct(nullptr, tags); }).find("Unable to define"), std::string::npos);
  EXPECT_NE(errorOf([&] { ZEL_MakeStructInternal(nullptr, twice); }), "");
}

TEST_F(Host, ForgetsStructuresThatNothingHas) {
  const auto define = [](const std::string& name, const ZEL_StructDef* nested) {
    const ZEL_StructTagDef tags[] = {{name.c_str(), nested ? ZEL_TYP_STRUCT : ZEL_TYP_STRING, 3, nested, 0}, {}};
    return ZEL_MakeStruct(nullptr, tags);
  };
  Variable kept;
  ZEL_VarCopy(ZEL_MakeTempStruct(define("OUTER", define("INNER", nullptr)), 2, nullptr), kept.get());
  Variable copy;
  ZEL_VarCopy(kept.get(), copy.get());
  const std::size_t before = zel::host::structCount();
  for (int i = 0; i < 2000; ++i) {
    define("OUTER", define("INNER" + std::to_string(i), nullptr));
    zel::host::forgetUnusedStructs();
  }
  EXPECT_LT(zel::host::structCount(), before + 200);
  zel::host::clear(*kept);
  EXPECT_EQ(copy->sdef, define("OUTER", define("INNER", nullptr)));
}

TEST_F(Host, TellsObjectsAndHeapVariables) {
  const ZEL_StructTagDef base[] = {{"OWN", ZEL_TYP_LONG64, 0, nullptr, 0}, {}};
  const ZEL_StructDef* baseDef = ZEL_MakeStruct("HOSTBASE", base);
  const ZEL_StructTagDef child[] = {
      {"INHERITS", ZEL_TYP_STRUCT, 0, baseDef, ZEL_TAG_INHERIT}, {"MORE", ZEL_TYP_INT, 0, nullptr, 0}, {}};
  const ZEL_StructDef* childDef = ZEL_MakeStruct("HOSTCHILD", child);
  EXPECT_EQ(ZEL_MakeStruct("hostbase", child), baseDef);
  EXPECT_EQ(ZEL_ObjDefOfStruct(childDef), nullptr);
  const ZEL_ObjDef* objdef = ZEL_ObjInsertDef(childDef);
  EXPECT_EQ(ZEL_ObjInsertDef(childDef), objdef);
  EXPECT_EQ(ZEL_StructTagInfoByName(childDef, "OWN", ZEL_MSG_ERROR, nullptr), 0);

  ZEL_HeapVar* object = zel::host::newObject(objdef);
  const Temp reference = number<ZEL_HVID>(ZEL_TYP_OBJREF, object->hvid);
  EXPECT_EQ(ZEL_ObjReference(reference.get()), object);
  for (const auto& [name, expected] : {std::pair{"HostChild", 1}, {"HOSTBASE", 1}, {"HOST", 0}})
    EXPECT_EQ(ZEL_ObjContainsClassByStr(object, name), expected) << name;
  ZEL_ObjSetMemory(object->hvid, 500);
  ZEL_ObjSetMemory(object->hvid, 400);
  ZEL_ObjSetMemory(object->hvid + 1, 1);
  EXPECT_EQ(zel::host::objectMemory(), 400);
  ZEL_HeapVarDelete(object);
  EXPECT_EQ(zel::host::objectMemory(), 0);
  EXPECT_EQ(errorOf([&] { ZEL_ObjReference(reference.get()); }), "The object no longer exists: it was closed.");
  const Temp null = number<ZEL_HVID>(ZEL_TYP_OBJREF, 0);
  EXPECT_EQ(errorOf([&] { ZEL_ObjReference(null.get()); }), "The object reference is null.");
  const Temp five(ZEL_GettmpInt(5));
  EXPECT_EQ(errorOf([&] { ZEL_ObjReference(five.get()); }), "An object is required here, not 16-bit integer 5.");

  ZEL_HeapVar* pointer = ZEL_HeapVarNew(ZEL_StrToSTRING("data"));
  const ZEL_HVID id = pointer->hvid;
  EXPECT_EQ(ZEL_HeapVarHashFind(id), pointer);
  EXPECT_EQ(textOf(&pointer->var), "data");
  ZEL_HeapVarDelete(pointer);
  EXPECT_EQ(ZEL_HeapVarHashFind(id), nullptr);
}

TEST_F(Host, RegistersRoutinesOnceAndCountsWhatTheyLeave) {
  static ZEL_MsgBlock block = nullptr;
  const auto say = +[](int, ZEL_Variable**) -> ZEL_Variable* {
    ZEL_Gettmp();
    ZEL_MakeTempVector(ZEL_TYP_STRING, 5, nullptr);
    ZEL_MessageFromBlock(block, -1, ZEL_MSG_ERROR, "text", nullptr);
    return nullptr;
  };
  const ZEL_MsgDef messages[] = {{"ONE", "%N %s"}, {"TWO", "%N %s [%s] 100%%"}};
  block = ZEL_MessageDefineBlock("HOST", 2, messages);
  const ZEL_SysRtnDef defs[] = {{say, "SAY", 0, 0, 0}};
  ASSERT_TRUE(ZEL_SysRtnAdd(defs, 1, 1));
  const ZEL_SysRtnDef taken[] = {{say, "NEW", 0, 0, 0}, {say, "SAY", 0, 0, 0}, {say, "NEW", 0, 0, 0}};
  EXPECT_FALSE(ZEL_SysRtnAdd(taken, 1, 2) || ZEL_SysRtnAdd(taken, 1, 3));
  EXPECT_EQ(zel::host::findRoutine("NEW"), nullptr);
  const auto leaked = zel::host::leakedTemporaries();
  EXPECT_EQ(errorOf([&] { zel::host::callRoutine(*zel::host::findRoutine("SAY"), 0, nullptr, {}); }),
            "SAY: text [] 100%");
  EXPECT_EQ(zel::host::leakedTemporaries(), leaked + 2);
  EXPECT_EQ(zel::host::routineDepth(), 0);
  EXPECT_NE(errorOf([] { ZEL_MessageFromBlock(block, 1, ZEL_MSG_INFO); }), "");
}

TEST_F(HostFiles, CopiesFiles) {
  write(at("source"), "new");
  write(at("target"), "old");
  chmod(at("source").c_str(), 0640);
  fs::create_symlink(at("target"), at("link"));
  fs::create_hard_link(at("source"), at("same"));
  const auto copy = [&](const fs::path& from, const fs::path& to, std::int16_t overwrite) {
    return errorOf([&] {
      const Temp source = text(from), target = text(to), flag(ZEL_GettmpInt(overwrite));
      ZEL_FileCopy(source.get(), target.get(), flag.get());
    });
  };
  const auto before = entries();
  EXPECT_EQ(copy(at("source"), at("same"), 1), "");
  EXPECT_EQ(read(at("same")), "new");
  EXPECT_EQ(copy(at("source"), at("link"), 0),
            "Unable to write the file \"" + at("link").string() + "\": File exists.");
  EXPECT_EQ(copy(at("source"), "/dev/full", 1), "Unable to write the file \"/dev/full\": No space left on device.");
  EXPECT_NE(copy(at("none"), at("x"), 1).find("No such file"), std::string::npos);
  EXPECT_NE(copy(at("source"), at("none/x"), 1).find("No such file"), std::string::npos);
  EXPECT_NE(copy(at(""), at("x"), 1).find("Is a directory"), std::string::npos);
  EXPECT_NE(copy(at("source"), at(""), 1), "");
  EXPECT_EQ(entries(), before);
  EXPECT_EQ(copy(at("source"), at("link"), 1), "");
  EXPECT_TRUE(fs::is_symlink(at("link")));
  EXPECT_EQ(read(at("target")), "new");
  EXPECT_EQ(fs::status(at("target")).permissions(), fs::perms(0640));
}

TEST_F(HostFiles, SetsPermissionsAndJoinsPaths) {
  write(at("file"), "");
  const Temp file = text(at("file"));
  ZEL_FileOpChmod(file.get(), 0600);
  EXPECT_EQ(fs::status(at("file")).permissions(), fs::perms(0600));

  const char* dirs[] = {"bin", nullptr, "bin.linux.x86_64"};
  const struct {
    const char* root;
    const char* file;
    const char* extension;
    std::size_t size;
    const char* expected;
  } rows[] = {{"/opt/zel", nullptr, nullptr, 99, "/opt/zel/bin/bin.linux.x86_64/"},
              {"", nullptr, nullptr, 99, "bin/bin.linux.x86_64/"},
              {"/", "ca", ".crt", 99, "/bin/bin.linux.x86_64/ca.crt"},
              {"/opt/zel", "ca", ".crt", 8, "/opt/ze"}};
  for (const auto& row : rows) {
    char out[100];
    EXPECT_STREQ(ZEL_FilePathFromRoot(out, row.size, row.root, dirs, 3, row.file, row.extension), row.expected);
  }
}

TEST_F(HostFiles, MakesUserDirectories) {
  const auto make = [](const char* application, const char* version) {
    const Temp arguments[] = {text("zel"),      text("Author"), text(application), text("A store"),
                              text("\nText\n"), text("1.00"),   text(version)};
    std::string path;
    const std::string error = errorOf([&] {
      path = textOf(Temp(ZEL_AppUserDir(arguments[0].get(), arguments[1].get(), arguments[2].get(), arguments[3].get(),
                                        arguments[4].get(), arguments[5].get(), arguments[6].get()))
                        .get());
    });
    return error.empty() ? path : error;
  };
  setenv("ZEL_USER_DIR", at("made/deep").c_str(), 1);
  const mode_t umaskBefore = umask(0477);
  EXPECT_EQ(make("store_a", "100"), at("made/deep/zel/store_a-100"));
  umask(umaskBefore);
  EXPECT_EQ(fs::status(at("made/deep")).permissions(), fs::perms(0700));
  EXPECT_EQ(make("store_b", "100"), at("made/deep/zel/store_b-100"));
  EXPECT_EQ(read(at("made/deep/zel/store_a-100/README.txt")), "A store\n\nText\nVersion 1.00\n");
  EXPECT_EQ(read(at("made/deep/zel/README.txt")), "Author\n");

  // What is there already stays: a user's additions, and what a link leads to.
  write(at("made/deep/zel/store_a-100/README.txt"), "mine");
  fs::remove(at("made/deep/zel/README.txt"));
  fs::create_symlink(at("elsewhere"), at("made/deep/zel/README.txt"));
  make("store_a", "100");
  EXPECT_EQ(read(at("made/deep/zel/store_a-100/README.txt")), "mine");
  EXPECT_FALSE(fs::exists(at("elsewhere")));
  EXPECT_EQ(make("../x", "100"), "A directory cannot have the name \"../x\".");

  write(at("file"), "");
  setenv("ZEL_USER_DIR", at("file").c_str(), 1);
  EXPECT_EQ(make("a", "1"), "Unable to use the user directory \"" + at("file/zel/a-1").string() +
                                "\": Not a directory. Set ZEL_USER_DIR to a directory that can be written.");
  setenv("ZEL_USER_DIR", "", 1);
  setenv("XDG_DATA_HOME", at("data").c_str(), 1);
  EXPECT_EQ(make("a", "1"), at("data/zel/zel/a-1"));
  setenv("XDG_DATA_HOME", "relative", 1);
  setenv("HOME", at("home").c_str(), 1);
  EXPECT_EQ(zel::host::userRoot(), at("home/.local/share/zel"));

  for (const char* root : {"/some/where", ""}) {
    setenv("ZEL_DIR", root, 1);
    EXPECT_EQ(textOf(Temp(ZEL_SysvDirFunc()).get()), root);
  }
  unsetenv("ZEL_DIR");
  EXPECT_EQ(zel::host::installationRoot(), zel::host::executableDirectory());
}

TEST_F(HostFiles, LoadsModules) {
  setenv("ZEL_MODULE_PATH", (at("empty").string() + ':' + fs::path(SAMPLE_MODULE).parent_path().string()).c_str(), 1);
  const auto load = [](const std::string& name) { return errorOf([&] { zel::host::loadModule(name); }); };
  write(at("text.so"), "no library");
  EXPECT_NE(load("nosuch").find("Module \"nosuch\" was not found in " + at("empty").string()), std::string::npos);
  EXPECT_NE(load(at("text.so")).find("Unable to load module \"" + at("text.so").string()), std::string::npos);
  EXPECT_NE(load("./nosuch.so").find("There is no module"), std::string::npos);

  // A module that refused does so again, and leaves no class without methods.
  fs::copy_file(SAMPLE_MODULE, at("refusing.so"));
  setenv("SAMPLE_REFUSE", "1", 1);
  EXPECT_NE(load(at("refusing.so")).find("ZEL_Load returned 0"), std::string::npos);
  unsetenv("SAMPLE_REFUSE");
  EXPECT_NE(load(at("refusing.so")).find("ZEL_Load returned 0"), std::string::npos);
  EXPECT_EQ(zel::host::findClass("Sample"), nullptr);

  EXPECT_EQ(load("sample_module"), "");
  EXPECT_EQ(load(SAMPLE_MODULE), "");
  ASSERT_NE(zel::host::findClass("SampleDerived"), nullptr);
  EXPECT_EQ(zel::host::findMethod(zel::host::findClass("SampleDerived"), "ECHO")->name, "SAMPLE::ECHO");
  EXPECT_EQ(errorOf([] { zel::host::resetSession(); }), "");
  ZEL_SessionResetAdd([] { return 1; });
  setenv("SAMPLE_NO_RESET", "1", 1);
  EXPECT_EQ(errorOf([] { zel::host::resetSession(); }), "The session could not be reset.");
  unsetenv("SAMPLE_NO_RESET");
}

TEST_F(Host, CallsNobodyWithoutAnInterpreter) {
  ZEL_CallDesc call{1, ZEL_IdentHash("status"), 0, nullptr, nullptr};
  EXPECT_EQ(ZEL_IdentHash("status"), call.routine);
  EXPECT_EQ(errorOf([&] { ZEL_InterpCallFromSysproc(&call); }), "There is no interpreter to call routine status.");
  zel::host::requestInterrupt();
  EXPECT_TRUE(ZEL_InterpInterrupted() == 1 && zel::host::takeInterrupt() && !zel::host::takeInterrupt());
}
