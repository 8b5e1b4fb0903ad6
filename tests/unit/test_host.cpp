// The host behind the module interface, called as a module calls it.
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
#include "rows.h"
#include "zel_module.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <pwd.h>
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

/// A temporary directory and its files. Every test leaves the host as it found it.
class Host : public testing::Test {
protected:
  Host() {
    std::string name = (fs::temp_directory_path() / "zel-test-XXXXXX").string();
    m_directory = mkdtemp(name.data());
  }
  ~Host() override {
    fs::remove_all(m_directory);
    EXPECT_EQ(ZEL_TempCount(), m_temporaries);
    EXPECT_EQ(zel::host::heapCounts().pointers, m_heap);
  }

  fs::path at(const std::string& name) const { return m_directory / name; }
  static void write(const fs::path& file, const std::string& content) { std::ofstream(file) << content; }
  static std::string read(const fs::path& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }

private:
  fs::path m_directory;
  std::int64_t m_temporaries = ZEL_TempCount();
  std::int64_t m_heap = zel::host::heapCounts().pointers;
};

} // namespace

TEST_F(Host, ConvertsNumbersAndTexts) {
  const std::map<std::string, ZEL_Type> types{
      {"BYTE", ZEL_TYP_BYTE},     {"INT", ZEL_TYP_INT},         {"LONG", ZEL_TYP_LONG},     {"LONG64", ZEL_TYP_LONG64},
      {"DOUBLE", ZEL_TYP_DOUBLE}, {"ULONG64", ZEL_TYP_ULONG64}, {"STRING", ZEL_TYP_STRING}, {"OBJREF", ZEL_TYP_OBJREF}};
  const auto converted = [&](const std::string& row) { // "TYPE|text|TYPE": the text in one type, then in the other
    Variable v;
    ZEL_VarCopy(ZEL_StrToSTRING(row.substr(0, row.rfind('|')).substr(row.find('|') + 1).c_str()), v.get());
    const std::string error = errorOf([&] {
      for (const auto type : {types.at(row.substr(0, row.find('|'))), types.at(row.substr(row.rfind('|') + 1))})
        ZEL_VarCopy(ZEL_VarTypeConvert(v.get(), type), v.get());
      ZEL_VarCopy(ZEL_CvtString(v.get()), v.get());
    });
    return error.empty() ? textOf(v.get()) : error;
  };
  expectRows(converted,
             {"LONG64|-1|BYTE ->  255", "LONG64|-1|ULONG64 ->   18446744073709551615", "DOUBLE|-1.9|INT ->       -1",
              "DOUBLE|1e300|LONG64 ->    9223372036854775807", "DOUBLE|0.1|STRING ->                       0.1",
              "STRING|+7 |INT ->        7", "STRING|1e3|LONG ->         1000", "STRING|40000|INT ->   -25536",
              "STRING|18446744073709551615|ULONG64 ->   18446744073709551615",
              "STRING|80a|INT -> Unable to read the text \"80a\" as a number.",
              "STRING||DOUBLE -> Unable to read the text \"\" as a number.",
              "STRING|+-5|INT -> Unable to read the text \"+-5\" as a number.",
              "STRING|nan|INT -> Unable to read the text \"nan\" as a number.",
              "STRING|1|OBJREF -> Unable to convert string \"1\" to type object."});
  const Temp nan = number(ZEL_TYP_DOUBLE, std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(Temp(ZEL_CvtFix(nan.get()))->value.i, 0);
  const ZEL_StructTagDef tags[] = {{"A", ZEL_TYP_STRING, 0, nullptr, 0}, {}};
  const Temp undefined(ZEL_Gettmp()), structures(ZEL_MakeTempStruct(ZEL_MakeStruct(nullptr, tags), 2, nullptr));
  for (const auto& [v, name] : {std::pair{undefined.get(), "undefined"}, {structures.get(), "array of 2 (structure)"}})
    EXPECT_NE(errorOf([&, v = v] { ZEL_CvtString(v); }).find(name), std::string::npos);
}

TEST_F(Host, CopiesAndMovesValues) {
  Variable a, b, c;
  ZEL_VarCopy(ZEL_StrToSTRING("moved"), a.get()); // the temporary is consumed
  ZEL_VarCopy(a.get(), b.get());
  ZEL_VarCopy(a.get(), a.get());
  ZEL_StrStore(&a->value.str, "changed");
  ZEL_StrStore(&a->value.str, a->value.str.s + 2); // from within itself
  EXPECT_EQ(textOf(a.get()) + textOf(b.get()), "angedmoved");
  ZEL_VarCopy(c.get(), a.get());
  EXPECT_EQ(a->type, ZEL_TYP_UNDEF);
  EXPECT_NE(errorOf([] { ZEL_MakeTempVector(ZEL_TYP_LONG, 0, nullptr); }), "");
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
  EXPECT_TRUE(def == ZEL_MakeStruct(nullptr, outer) && ZEL_StructNumTags(def) == 3);
  EXPECT_EQ(ZEL_StructSize(innerDef), 24);
  EXPECT_EQ(ZEL_StructSize(def), 8 + 2 * 24 + 2 * 16);
  ZEL_StructTagDef tag{};
  EXPECT_TRUE(ZEL_StructTagInfoByName(def, "texts", ZEL_MSG_ERROR, &tag) == 56 && tag.n == 2);
  EXPECT_EQ(ZEL_StructTagInfoByName(def, "NONE", ZEL_MSG_INFO, nullptr), -1);
  EXPECT_EQ(errorOf([&] { ZEL_StructTagInfoByName(def, "NONE", ZEL_MSG_ERROR, nullptr); }),
            "Structure without a name has no tag NONE.");
  EXPECT_NE(errorOf([&] { ZEL_StructTagInfoByIndex(def, 3, nullptr); }), "");

  // A copy owns its texts: changing them leaves the original alone.
  Variable original, copy;
  ZEL_VarCopy(ZEL_MakeTempStruct(def, 2, nullptr), original.get());
  const auto nested = [](Variable& v) { return reinterpret_cast<ZEL_STRING*>(v->data + 8 + 24 + 8); };
  const auto last = [&](Variable& v) { return reinterpret_cast<ZEL_STRING*>(v->data + ZEL_StructSize(def) + 56) + 1; };
  for (const auto text : {nested(original), last(original)}) ZEL_StrStore(text, "kept");
  ZEL_VarCopy(original.get(), copy.get());
  for (const auto text : {nested(copy), last(copy)}) ZEL_StrStore(text, "other");
  for (const auto text : {nested(original), last(original)}) EXPECT_STREQ(text->s, "kept");
}

TEST_F(Host, RefusesBadStructures) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  const ZEL_StructTagDef bad[][3] = {{{"A", ZEL_TYP_INT, 0, nullptr, 0}, {"a", ZEL_TYP_INT, 0, nullptr, 0}, {}},
                                     {{}},
                                     {{"A", ZEL_TYP_UNDEF, 0, nullptr, 0}, {}},
                                     {{"A", ZEL_TYP_STRUCT, 0, nullptr, 0}, {}},
                                     {{"A", ZEL_TYP_LONG64, most / 4, nullptr, 0}, {}}};
  for (const auto& tags : bad)
    EXPECT_NE(errorOf([&tags] { ZEL_MakeStruct(nullptr, tags); }).find("Unable to define"), std::string::npos);
}

TEST_F(Host, ForgetsStructuresThatNothingHas) {
  static int length = 0;
  const auto make = +[](int, ZEL_Variable**) {
    const ZEL_StructTagDef inner[] = {{"X", ZEL_TYP_STRING, ++length, nullptr, 0}, {}};
    const ZEL_StructTagDef outer[] = {{"OUTER", ZEL_TYP_STRUCT, 3, ZEL_MakeStruct(nullptr, inner), 0}, {}};
    return ZEL_MakeTempStruct(ZEL_MakeStruct(nullptr, outer), 1, nullptr);
  };
  const ZEL_SysRtnDef def{make, "MAKE", 0, 0, 0};
  ASSERT_TRUE(ZEL_SysRtnAdd(&def, 1, 1));
  const std::size_t before = zel::host::structCount();
  for (int i = 0; i < 1000; ++i) zel::host::callRoutine(*zel::host::findRoutine("MAKE"), 0, nullptr, {});
  EXPECT_LT(zel::host::structCount(), before + 200);
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
  ZEL_HeapVarDelete(object);
  const Temp null = number<ZEL_HVID>(ZEL_TYP_OBJREF, 0), five(ZEL_GettmpInt(5));
  for (const Temp* v : {&reference, &null, &five}) EXPECT_NE(errorOf([v] { ZEL_ObjReference(v->get()); }), "");
  EXPECT_EQ(ZEL_HeapVarHashFind(reference->value.hvid), nullptr);
}

TEST_F(Host, RegistersRoutinesOnceAndCountsWhatTheyLeave) {
  static ZEL_MsgBlock block = nullptr;
  const auto say = +[](int, ZEL_Variable**) -> ZEL_Variable* {
    ZEL_Gettmp();
    ZEL_MessageFromBlock(block, -1, ZEL_MSG_ERROR, "text", nullptr);
    return nullptr;
  };
  const ZEL_MsgDef messages[] = {{"ONE", "%N %s"}, {"TWO", "%N %s [%s] 100%%"}};
  block = ZEL_MessageDefineBlock("HOST", 2, messages);
  const ZEL_SysRtnDef defs[] = {{say, "SAY", 0, 0, 0}, {say, "NEW", 0, 0, 0}, {say, "SAY", 0, 0, 0}};
  ASSERT_TRUE(ZEL_SysRtnAdd(defs, 1, 1));
  EXPECT_FALSE(ZEL_SysRtnAdd(defs, 1, 2) || ZEL_SysRtnAdd(defs + 1, 1, 2));
  EXPECT_EQ(zel::host::findRoutine("NEW"), nullptr);
  const auto leaked = zel::host::leakedTemporaries();
  EXPECT_EQ(errorOf([&] { zel::host::callRoutine(*zel::host::findRoutine("SAY"), 0, nullptr, {}); }),
            "SAY: text [] 100%");
  EXPECT_TRUE(zel::host::leakedTemporaries() == leaked + 1 && zel::host::routineDepth() == 0);
  EXPECT_EQ(errorOf([] { ZEL_MessageFromBlock(block, 0, ZEL_MSG_ERROR, "of none"); }), "of none");
  EXPECT_NE(errorOf([] { ZEL_MessageFromBlock(block, 1, ZEL_MSG_INFO); }), "");
}

TEST_F(Host, CopiesFiles) {
  write(at("source"), "new");
  write(at("target"), "old");
  chmod(at("source").c_str(), 0640);
  fs::create_symlink(at("target"), at("link"));
  fs::create_hard_link(at("source"), at("same"));
  fs::create_directory(at("directory"));
  const auto entries = [&] { return std::distance(fs::recursive_directory_iterator(at("")), {}); };
  const auto before = entries();
  const struct {
    std::string from, to;
    bool overwrite;
    const char* error;
  } rows[] = {{"source", "same", false, ""},
              {"source", "source", true, ""},
              {"source", "link", false, "File exists"},
              {"source", "/dev/full", true, "Unable to write the file \"/dev/full\": No space left on device."},
              {"none", "x", true, "No such file"},
              {"source", "none/x", true, "No such file"},
              {"directory", "x", true, "Is a directory"},
              {"source", "directory", true, "Is a directory"},
              {"source", "link", true, ""}};
  for (const auto& row : rows) {
    const std::string error = errorOf([&] {
      const Temp source = text(at(row.from)), target = text(at(row.to)), flag(ZEL_GettmpInt(row.overwrite ? 1 : 0));
      ZEL_FileCopy(source.get(), target.get(), flag.get());
    });
    EXPECT_TRUE(error.find(row.error) != error.npos && error.empty() == (*row.error == '\0')) << row.to << error;
    EXPECT_EQ(read(at("same")) + read(at("target")), row.to == "link" && row.overwrite ? "newnew" : "newold");
    EXPECT_EQ(entries(), before);
  }
  EXPECT_TRUE(fs::is_symlink(at("link")));
  EXPECT_EQ(fs::status(at("target")).permissions(), fs::perms(0640));
}

TEST_F(Host, JoinsPaths) {
  const char* dirs[] = {"bin", nullptr, "sub"};
  const auto path = [&](const std::string& root) {
    char out[20];
    ZEL_FilePathFromRoot(out, sizeof out, root.c_str(), dirs, 3, root.empty() ? nullptr : "ca", ".crt");
    return std::string(out);
  };
  expectRows(path, {" -> bin/sub/", "/ -> /bin/sub/ca.crt", "/opt/zel -> /opt/zel/bin/sub/ca"});
  write(at("file"), "");
  const uid_t user = geteuid();
  EXPECT_TRUE(user != 0 || seteuid(65534) == 0);
  EXPECT_EQ(errorOf([] { ZEL_FileOpChmod(text("/dev/null").get(), 0666); }), "") << "it is somebody else's";
  EXPECT_EQ(seteuid(user), 0);
  ZEL_FileOpChmod(text(at("file")).get(), 0600);
  EXPECT_EQ(fs::status(at("file")).permissions(), fs::perms(0600));
}

TEST_F(Host, MakesUserDirectories) {
  const auto make = [](const char* application) {
    const Temp a[] = {text("zel"),      text("Author"), text(application), text("A store"),
                      text("\nText\n"), text("1.00"),   text("100")};
    Temp path;
    const std::string error = errorOf([&] {
      path.reset(ZEL_AppUserDir(a[0].get(), a[1].get(), a[2].get(), a[3].get(), a[4].get(), a[5].get(), a[6].get()));
    });
    return error.empty() ? textOf(path.get()) : error;
  };
  setenv("ZEL_USER_DIR", at("made/deep").c_str(), 1);
  const fs::path zel = at("made/deep/zel");
  const mode_t umaskBefore = umask(0477);
  EXPECT_EQ(make("a"), zel / "a-100");
  umask(umaskBefore);
  EXPECT_EQ(make("b"), zel / "b-100");
  EXPECT_EQ(fs::status(at("made/deep")).permissions(), fs::perms(0700));
  EXPECT_EQ(read(zel / "a-100/README.txt") + read(zel / "README.txt"), "A store\n\nText\nVersion 1.00\nAuthor\n");

  // What is there already stays: a user's additions, and what a link leads to.
  write(zel / "a-100/README.txt", "mine");
  fs::remove(zel / "README.txt");
  fs::create_symlink(at("elsewhere"), zel / "README.txt");
  make("a");
  EXPECT_TRUE(read(zel / "a-100/README.txt") == "mine" && fs::is_symlink(zel / "README.txt"));
  EXPECT_EQ(make("../x"), "A directory cannot have the name \"../x\".");

  // Without a directory given, the user's data directory.
  setenv("ZEL_USER_DIR", "", 1);
  const fs::path own = getpwuid(getuid())->pw_dir;
  for (const auto& [data, home, root] : {std::tuple{at("data"), at("home"), at("data/zel")},
                                         {"relative", at("home"), at("home/.local/share/zel")},
                                         {"", "", own / ".local/share/zel"}}) {
    setenv("XDG_DATA_HOME", data.c_str(), 1);
    setenv("HOME", home.c_str(), 1);
    EXPECT_EQ(zel::host::userRoot(), root);
  }
  for (const char* root : {"/some/where", ""}) {
    setenv("ZEL_DIR", root, 1);
    EXPECT_EQ(textOf(Temp(ZEL_SysvDirFunc()).get()), root);
  }
  unsetenv("ZEL_DIR");
  EXPECT_EQ(zel::host::installationRoot(), zel::host::executableDirectory());
}

TEST_F(Host, LoadsModules) {
  const auto load = [](const std::string& name) { return errorOf([&] { zel::host::loadModule(name); }); };
  const fs::path module = SAMPLE_MODULE;
  setenv("ZEL_MODULE_PATH", (':' + at("empty").string() + "::" + module.parent_path().string()).c_str(), 1);
  fs::copy_file(module, at("refusing.so"));
  write(at("text.so"), "no library");
  setenv("SAMPLE_REFUSE", "1", 1);
  const std::pair<std::string, std::string> rows[] = {
      {"nosuch", "Module \"nosuch\" was not found in " + at("empty").string() + ", " + module.parent_path().string()},
      {at("text.so"), "Unable to load module \"" + at("text.so").string()},
      {"./nosuch.so", "There is no module"},
      {at("refusing.so"), "ZEL_Load returned 0"}};
  for (const auto& [name, why] : rows) EXPECT_NE(load(name).find(why), std::string::npos) << load(name);
  // A module that refused does so again, and leaves no class without methods.
  unsetenv("SAMPLE_REFUSE");
  EXPECT_NE(load(at("refusing.so")).find("ZEL_Load returned 0"), std::string::npos);
  EXPECT_EQ(zel::host::findClass("Sample"), nullptr);

  EXPECT_EQ(load("sample_module") + load(module), "");
  ASSERT_NE(zel::host::findClass("SampleDerived"), nullptr);
  EXPECT_EQ(zel::host::findMethod(zel::host::findClass("SampleDerived"), "ECHO")->name, "SAMPLE::ECHO");
  std::string told;
  const zel::host::InfoRedirect redirect([&told](const std::string& line) { told += line; });
  EXPECT_EQ(errorOf([] { zel::host::resetSession(); }), "");
  ZEL_SessionResetAdd([] {
    zel::host::inform("said");
    return 1;
  });
  setenv("SAMPLE_NO_RESET", "1", 1);
  EXPECT_EQ(errorOf([] { zel::host::resetSession(); }) + told, "The session could not be reset: said");
  unsetenv("SAMPLE_NO_RESET");
  EXPECT_EQ(errorOf([] { zel::host::resetSession(); }) + told, "said");
}
