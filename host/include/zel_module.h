/// \file
/// The ZEL module interface: everything a loadable module may ask of the ZEL host.
///
/// A module is a shared library whose one exported function is `ZEL_Load`. The host opens it with `dlopen`, calls
/// `ZEL_Load` once and refuses the module when it answers 0. The functions below are defined by the host process; a
/// module leaves them undefined and the dynamic linker binds them. Modules are never unloaded.
///
/// Errors. A function that fails, and every message issued with `ZEL_MSG_ERROR`, does not return: it throws
/// `ZEL_Unwind`, which carries control back to the interpreter through the module's frames (destructors run). A module
/// must let `ZEL_Unwind` pass: catch it only to clean up and throw it again, and never let it cross a frame of a C
/// library.
///
/// Ownership. A *temporary* is a variable made by the host for the module (every function below whose comment says
/// "temporary"). The module releases it with `ZEL_Deltmp`, returns it as its function's result, or hands it to
/// `ZEL_VarCopy` with a temporary as source, which consumes it. The host counts temporaries; one that is left over
/// after a call is a fault of the module. `zel::Temp` releases one automatically.
///
/// Text is UTF-8. Everything runs on the interpreter's one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

/// \name Types and variables
/// @{

/// Type codes of variables and structure tags.
enum ZEL_Type : std::uint8_t {
  ZEL_TYP_UNDEF = 0,
  ZEL_TYP_BYTE = 1,    ///< 8-bit unsigned
  ZEL_TYP_INT = 2,     ///< 16-bit signed, the host's plain integer
  ZEL_TYP_UINT = 3,    ///< 16-bit unsigned
  ZEL_TYP_LONG = 4,    ///< 32-bit signed
  ZEL_TYP_ULONG = 5,   ///< 32-bit unsigned
  ZEL_TYP_FLOAT = 6,   ///< IEEE single
  ZEL_TYP_DOUBLE = 7,  ///< IEEE double
  ZEL_TYP_STRING = 8,  ///< ZEL_STRING
  ZEL_TYP_STRUCT = 9,  ///< structure, see ZEL_StructDef
  ZEL_TYP_PTR = 10,    ///< pointer heap variable identifier
  ZEL_TYP_OBJREF = 11, ///< object heap variable identifier
  ZEL_TYP_ULONG64 = 13,
  ZEL_TYP_LONG64 = 14
};

/// A host string: owned bytes of length `len` with a terminating NUL, or null for the empty string. All zero bytes are
/// an empty string. Written only through ZEL_StrStore and ZEL_StrDelete.
struct ZEL_STRING {
  std::int64_t len;
  char* s;
};

/// Identifier of a heap variable; 0 is none.
using ZEL_HVID = std::uint32_t;

/// Definition of a structure: names, types and offsets of its tags. Owned by the host. A named one lives as long as the
/// process; an anonymous one until the outermost running routine returns, and as long as a variable or another
/// definition has it.
struct ZEL_StructDef;

/// Definition of an object class: a named structure with its class name and superclasses. Owned by the host.
struct ZEL_ObjDef;

/// Flag bits of ZEL_Variable::flags.
enum ZEL_VarFlag : std::uint8_t {
  ZEL_V_TEMP = 1, ///< a temporary
  ZEL_V_ARR = 2   ///< an array: `n` elements behind `data`
};

/// A variable. A scalar of a number type, a string or an identifier stands in `value`; an array, and every structure (a
/// structure "scalar" is an array of one element), stands behind `data`, element by element.
struct ZEL_Variable {
  ZEL_Type type;
  std::uint8_t flags; ///< ZEL_VarFlag bits
  union {
    std::uint8_t byte;
    std::int16_t i;
    std::uint16_t ui;
    std::int32_t l;
    std::uint32_t ul;
    float f;
    double d;
    ZEL_STRING str{}; // the largest member: a new variable is zero throughout
    ZEL_HVID hvid;
    std::uint64_t ul64;
    std::int64_t l64;
  } value;
  std::int64_t n;            ///< number of elements of an array or structure array
  char* data;                ///< elements of an array or structure array
  const ZEL_StructDef* sdef; ///< structure definition, for ZEL_TYP_STRUCT
};

/// A heap variable: a value with an identity, reached by identifier through pointers and object references.
struct ZEL_HeapVar {
  ZEL_HVID hvid;
  std::uint8_t flags;       ///< bit 0: initialised by its class's INIT; the rest is the host's
  const ZEL_ObjDef* objdef; ///< class of an object, null for a pointer heap variable
  ZEL_Variable var;
};

extern "C" {

/// New temporary, undefined.
ZEL_Variable* ZEL_Gettmp();
/// New temporary 16-bit integer.
ZEL_Variable* ZEL_GettmpInt(std::int16_t value);
/// Releases a temporary and what it owns. Null and variables that are no temporaries are left alone.
void ZEL_Deltmp(ZEL_Variable* v) noexcept;
/// Number of temporaries alive.
std::int64_t ZEL_TempCount() noexcept;

/// New temporary one-dimensional array of `n` (at least 1) zeroed elements of a type that is not a structure.
/// \param data  receives the address of the first element; may be null.
ZEL_Variable* ZEL_MakeTempVector(ZEL_Type type, std::int64_t n, char** data);
/// New temporary array of `n` (at least 1) zero-filled structures.
/// \param data  receives the address of the first element; may be null.
ZEL_Variable* ZEL_MakeTempStruct(const ZEL_StructDef* sdef, std::int64_t n, char** data);
/// Zero-filled scratch memory of `bytes` bytes that a temporary owns; released with ZEL_Deltmp.
/// \param tmp  receives the owning temporary.
char* ZEL_GetScratch(ZEL_Variable** tmp, std::int64_t bytes);

/// Replaces the value of `dst` by a copy of `src`'s. A temporary `src` is consumed: its value moves, and it is
/// released.
void ZEL_VarCopy(ZEL_Variable* src, ZEL_Variable* dst);
/// Replaces the value of `dst` by a scalar of the given type, read from `value` (an object of that type).
void ZEL_StoreScalar(ZEL_Variable* dst, ZEL_Type type, const void* value);
/// The elements of a variable: their number, and the address of the first (a scalar is one element; undefined gives 0
/// and null).
void ZEL_VarGetData(ZEL_Variable* v, std::int64_t* n, char** data) noexcept;

/// The variable itself when it already has the type, else a new temporary with every element converted. Numbers wrap to
/// the width of the target; texts are read as numbers, leading blanks skipped (unreadable text is an error); numbers
/// become text padded with leading blanks to the width of their type. Undefined variables and structures are errors.
ZEL_Variable* ZEL_VarTypeConvert(ZEL_Variable* v, ZEL_Type type);
/// ZEL_VarTypeConvert to string.
ZEL_Variable* ZEL_CvtString(ZEL_Variable* v);
/// ZEL_VarTypeConvert to the 16-bit integer.
ZEL_Variable* ZEL_CvtFix(ZEL_Variable* v);
/// @}

/// \name Strings
/// @{

/// Releases the old text of a host string and stores a copy of `text`; null stores the empty string.
void ZEL_StrStore(ZEL_STRING* dst, const char* text);
/// Releases the texts of `n` consecutive host strings and leaves them empty.
void ZEL_StrDelete(ZEL_STRING* s, std::int64_t n) noexcept;
/// New temporary scalar string.
ZEL_Variable* ZEL_StrToSTRING(const char* text);
/// Appends `src` to the text in `dst`, a buffer of `size` bytes: at most `size - 1` characters stand there afterwards,
/// always terminated. \return length the result would have without the limit.
std::size_t ZEL_StrBase_strlcat(char* dst, const char* src, std::size_t size) noexcept;
/// @}

/// \name Structures
/// @{

/// Flag bits of ZEL_StructTagDef::flags.
enum ZEL_StructTagFlag : std::uint8_t {
  ZEL_TAG_INHERIT = 1 ///< the tags of `sdef` are taken over here, and the new structure inherits that class
};

/// One tag of a structure that is being defined. A table of tags is closed by an entry with a null name.
struct ZEL_StructTagDef {
  const char* name; ///< upper case
  ZEL_Type type;
  std::int64_t n;            ///< 0: a scalar; otherwise an array of `n` elements
  const ZEL_StructDef* sdef; ///< structure of the elements, for ZEL_TYP_STRUCT
  std::uint8_t flags;        ///< ZEL_StructTagFlag bits
};

/// Defines a structure from a table of tags. A null name makes an anonymous structure; a named one that is already
/// defined is returned as it is. Anonymous definitions with equal tags share one definition.
const ZEL_StructDef* ZEL_MakeStruct(const char* name, const ZEL_StructTagDef* tags);
/// The same for a structure that belongs to a module and is not to be listed to users. Needs a name.
const ZEL_StructDef* ZEL_MakeStructInternal(const char* name, const ZEL_StructTagDef* tags);
/// Number of tags.
int ZEL_StructNumTags(const ZEL_StructDef* sdef) noexcept;
/// Size of one element in bytes.
std::int64_t ZEL_StructSize(const ZEL_StructDef* sdef) noexcept;
/// Offset of a tag in an element, by position; `tag` (may be null) receives its definition. Errors for a bad position.
std::int64_t ZEL_StructTagInfoByIndex(const ZEL_StructDef* sdef, int index, ZEL_StructTagDef* tag);
/// Offset of a tag in an element, by name in any case; `tag` (may be null) receives its definition.
/// An unknown name: with `action` ZEL_MSG_ERROR an error, otherwise -1.
std::int64_t ZEL_StructTagInfoByName(const ZEL_StructDef* sdef, const char* name, int action, ZEL_StructTagDef* tag);
/// @}

/// \name Objects and heap variables
/// @{

/// The object class attached to a structure definition; null when there is none.
const ZEL_ObjDef* ZEL_ObjDefOfStruct(const ZEL_StructDef* sdef) noexcept;
/// Makes a named structure usable as an object class. Methods of class NAME are the system routines `NAME::METHOD`.
const ZEL_ObjDef* ZEL_ObjInsertDef(const ZEL_StructDef* sdef);
/// Heap variable of an object reference; errors for a null reference or one whose object is gone.
ZEL_HeapVar* ZEL_ObjReference(ZEL_Variable* v);
/// 1 when the object's class equals or inherits the named class (any case), else 0.
int ZEL_ObjContainsClassByStr(const ZEL_HeapVar* object, const char* className) noexcept;

/// Says how many bytes native code holds for an object, so that objects that no script can reach any more are cleaned
/// up before they fill the memory. An identifier without object is left alone.
void ZEL_ObjSetMemory(ZEL_HVID hvid, std::int64_t bytes) noexcept;

/// New pointer heap variable that holds a copy of `value` (a temporary is consumed).
ZEL_HeapVar* ZEL_HeapVarNew(ZEL_Variable* value);
/// Heap variable of an identifier; null when there is none.
ZEL_HeapVar* ZEL_HeapVarHashFind(ZEL_HVID hvid) noexcept;
/// Deletes a heap variable and its value. Null is left alone.
void ZEL_HeapVarDelete(ZEL_HeapVar* hv) noexcept;
/// @}

/// \name Routines and keywords
/// @{

/// One keyword of a call, as the caller wrote it.
struct ZEL_Keyword {
  const char* name;    ///< upper case
  ZEL_Variable* value; ///< the caller's own variable
  bool output = false; ///< the caller gave no value, but asks for one
};

/// The keywords of a call.
struct ZEL_Keywords {
  int count;
  const ZEL_Keyword* keywords;
};

/// Flag bits of ZEL_SysRtnDef::flags.
enum ZEL_SysRtnFlag { ZEL_SYSRTN_KEYWORDS = 2 /**< the routine accepts keywords */ };

/// Native code of a routine. A function returns its result, a temporary; a procedure returns nothing. `argk` is given
/// to routines registered with ZEL_SYSRTN_KEYWORDS only, and is never null there.
union ZEL_SysRtnPtr {
  ZEL_Variable* (*fun_kw)(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
  ZEL_Variable* (*fun)(int argc, ZEL_Variable** argv);
  void (*pro_kw)(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
  void (*pro)(int argc, ZEL_Variable** argv);

  constexpr ZEL_SysRtnPtr(ZEL_Variable* (*f)(int, ZEL_Variable**, const ZEL_Keywords*)) noexcept : fun_kw(f) {}
  constexpr ZEL_SysRtnPtr(ZEL_Variable* (*f)(int, ZEL_Variable**)) noexcept : fun(f) {}
  constexpr ZEL_SysRtnPtr(void (*f)(int, ZEL_Variable**, const ZEL_Keywords*)) noexcept : pro_kw(f) {}
  constexpr ZEL_SysRtnPtr(void (*f)(int, ZEL_Variable**)) noexcept : pro(f) {}
};

/// One routine. The host enforces the counts of positional arguments, and refuses keywords for a routine without
/// ZEL_SYSRTN_KEYWORDS, before any code of the module runs.
struct ZEL_SysRtnDef {
  ZEL_SysRtnPtr code;
  const char* name; ///< upper case; a method is "CLASS::METHOD" and has the object as its first argument
  int argMin;
  int argMax;
  unsigned flags; ///< ZEL_SysRtnFlag bits
};

/// Registers a batch of `n` routines. \return nonzero on success; 0 when a name is taken or a definition is unusable,
/// in which case nothing of the batch is registered.
int ZEL_SysRtnAdd(const ZEL_SysRtnDef* defs, int isFunction, int n);

/// Flag bits of ZEL_KwDef::flags.
enum ZEL_KwFlag : unsigned {
  ZEL_KW_VIN = 1, ///< input: the routine gets the caller's variable itself, unconverted
  ZEL_KW_OUT = 2  ///< output: the host clears the caller's variable, the routine fills it
};

/// One accepted keyword. A table is sorted by name (the host checks that) and closed by an entry with a null name.
struct ZEL_KwDef {
  const char* name;    ///< upper case
  ZEL_Type type;       ///< ZEL_TYP_UNDEF: no conversion
  unsigned mask;       ///< the entry is accepted when `mask & enabled` is not 0
  unsigned flags;      ///< ZEL_KwFlag bits
  std::size_t present; ///< offset of the std::int32_t that tells whether the keyword was given
  std::size_t value;   ///< offset of the ZEL_Variable* that receives the variable
};

/// First member of every keyword result record; the host's own.
struct ZEL_KwResult {
  std::int32_t mustFree; ///< nonzero: ZEL_KWFree has something to release
};

/// Sorts the keywords of a call into a result record (a standard-layout struct that begins with a ZEL_KwResult, all
/// zero). Unknown keywords, keywords given twice, a value for an output keyword, an input keyword without one and an
/// unsorted table are errors. \return number of positional arguments.
int ZEL_KWProcessByOffset(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, const ZEL_KwDef* table,
                          unsigned enabled, ZEL_KwResult* result);
/// Releases what processing the keywords allocated, when the record's marker says so.
void ZEL_KWFree(ZEL_KwResult* result) noexcept;
/// @}

/// \name Messages
/// @{

/// What a message does.
enum ZEL_MsgAction {
  ZEL_MSG_ERROR = 2, ///< raise it: throws ZEL_Unwind
  ZEL_MSG_INFO = 4   ///< print it and go on
};

/// One message of a block. In `format`, %N is the prefix made of the running routine's name, and each %s takes the next
/// text.
struct ZEL_MsgDef {
  const char* name;
  const char* format;
};

/// Handle of a message block.
using ZEL_MsgBlock = struct ZEL_MsgBlockDef*;

/// Defines a message block of `n` messages; their codes are 0, -1, -2 and so on. \return null on failure.
ZEL_MsgBlock ZEL_MessageDefineBlock(const char* name, int n, const ZEL_MsgDef* defs);
/// Issues a message of a block with the texts that its format asks for; a null text prints as nothing.
void ZEL_MessageFromBlock(ZEL_MsgBlock block, int code, int action, ...);
/// Error: the variable must be an object reference.
[[noreturn]] void ZEL_MessageVE_REQOBJREF(const ZEL_Variable* v);
/// Error: the variable must be a string.
[[noreturn]] void ZEL_MessageVE_REQSTR(const ZEL_Variable* v);
/// Error: the variable must be a scalar.
[[noreturn]] void ZEL_MessageVE_NOTSCALAR(const ZEL_Variable* v);
/// @}

/// \name Calling scripts, session
/// @{

/// Identifier of a routine name.
using ZEL_Ident = const struct ZEL_IdentDef*;
/// The identifier of a name.
ZEL_Ident ZEL_IdentHash(const char* name);

/// A call of a script routine from native code.
struct ZEL_CallDesc {
  int isFunction; ///< 1: its result goes to `result`
  ZEL_Ident routine;
  int argc;
  ZEL_Variable** argv;  ///< stay the caller's
  ZEL_Variable* result; ///< receives the value (a variable of the caller's, for example of ZEL_Gettmp)
};
/// Calls a script routine. A routine that does not exist, and an error raised in it, are errors here. A routine that
/// returns nothing gives 1, `false` gives 0.
void ZEL_InterpCallFromSysproc(ZEL_CallDesc* call);
/// 1 when the user asked to interrupt (Ctrl-C) and the interpreter has not yet acted on it, else 0. Safe to call at any
/// time from the interpreter's thread.
int ZEL_InterpInterrupted() noexcept;
/// Registers a routine that every session reset calls; it returns 0 to report that it could not reset.
void ZEL_SessionResetAdd(int (*reset)());
/// @}

/// \name Files and directories
/// @{

/// Path of the per-user directory of an application, made with a read-me file when it is missing.
/// All arguments are string scalars; `restrictAppVersion` makes the directory specific to a version of the application.
/// A place where it cannot be made or written is an error that names it. \return temporary string.
ZEL_Variable* ZEL_AppUserDir(ZEL_Variable* authorDir, ZEL_Variable* authorDesc, ZEL_Variable* appDir,
                             ZEL_Variable* appDesc, ZEL_Variable* readmeText, ZEL_Variable* readmeVersion,
                             ZEL_Variable* restrictAppVersion);
/// Installation root of the interpreter. \return temporary string, empty when it has none.
ZEL_Variable* ZEL_SysvDirFunc();
/// Joins a root directory, `nDirs` sub-directories, a file name and an extension into `out`, a buffer of `size` bytes.
/// Without file name the result ends in a separator. Null texts are left out. \return `out`.
char* ZEL_FilePathFromRoot(char* out, std::size_t size, const char* root, const char* const* dirs, int nDirs,
                           const char* file, const char* extension);
/// Copies a file; `overwrite` (an integer scalar) other than 0 replaces an existing target. Failures, also those that
/// show only when the target is closed, are errors and leave no partial target. A file copied onto itself stays as it
/// is.
void ZEL_FileCopy(ZEL_Variable* source, ZEL_Variable* target, ZEL_Variable* overwrite);
/// Sets the permission bits of a file. A file of another owner is left as it is.
void ZEL_FileOpChmod(ZEL_Variable* file, unsigned mode);
/// @}

/// The module's one exported function. \return nonzero on success.
int ZEL_Load();

} // extern "C"

/// Thrown by the host to unwind from native code to the interpreter. Only the host makes and consumes it; the error
/// itself is kept by the host.
struct ZEL_Unwind {};

namespace zel {

/// Releases a temporary.
struct TempDeleter {
  void operator()(ZEL_Variable* v) const noexcept { ZEL_Deltmp(v); }
};

/// Owns a temporary. `release()` hands it on, as a result or to ZEL_VarCopy.
using Temp = std::unique_ptr<ZEL_Variable, TempDeleter>;

} // namespace zel
