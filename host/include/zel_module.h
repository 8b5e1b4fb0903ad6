/// \file
/// The ZEL module interface: everything a loadable module may ask of the ZEL host.
///
/// A module is a shared library whose one exported function is `ZEL_Load`. The host opens it with `dlopen`, calls
/// `ZEL_Load` once and refuses the module when it returns 0. The functions below are defined by the host process; a
/// module leaves them undefined and the dynamic linker binds them. Modules are never unloaded.
///
/// Errors. A function that fails does not return, nor does one that issues a message with `ZEL_MSG_ERROR`: it throws
/// `ZEL_Unwind`, which takes control back to the interpreter through the module's frames (destructors run). A module
/// must let `ZEL_Unwind` pass, or rethrow it after cleaning up, and must not let it cross a frame of a C library.
///
/// Ownership. A *temporary* is a variable that the host makes for the module; the functions below that return one say
/// so. The module releases it with `ZEL_Deltmp`, returns it as the result of its function, or passes it to
/// `ZEL_VarCopy` as the source, which consumes it. The host counts temporaries; one left over after a call is a bug in
/// the module. `zel::Temp` releases a temporary automatically.
///
/// Text is UTF-8. Sizes and offsets are in bytes. Everything runs on the interpreter's single thread.
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

/// A host string: `len` bytes, owned, with a terminating NUL that `len` does not count; null for the empty string. A
/// zero-filled ZEL_STRING is empty. Write it only through ZEL_StrStore and ZEL_StrDelete.
struct ZEL_STRING {
  std::int64_t len;
  char* s;
};

/// Identifier of a heap variable; 0 for none.
using ZEL_HVID = std::uint32_t;

/// Definition of a structure: names, types and offsets of its tags. Owned by the host. A named definition lives as long
/// as the process. An anonymous one lives until the outermost running routine returns, and for as long as a variable or
/// another definition uses it.
struct ZEL_StructDef;

/// Definition of an object class: a named structure with its class name and superclasses. Owned by the host.
struct ZEL_ObjDef;

/// Flag bits of ZEL_Variable::flags.
enum ZEL_VarFlag : std::uint8_t {
  ZEL_V_TEMP = 1, ///< a temporary
  ZEL_V_ARR = 2   ///< an array: `n` elements at `data`
};

/// A variable. A scalar (number, string or identifier) is held in `value`. Arrays are held at `data`, element by
/// element, and so is every structure: a single one is an array of one element.
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
  std::int64_t n;            ///< number of elements at `data`
  char* data;                ///< elements of an array or structure; null for a scalar
  const ZEL_StructDef* sdef; ///< structure definition, for ZEL_TYP_STRUCT
};

/// A heap variable: a value with an identity, which pointers and object references refer to by identifier.
struct ZEL_HeapVar {
  ZEL_HVID hvid;
  std::uint8_t flags;       ///< bit 0: set by the INIT of its class; the others belong to the host
  const ZEL_ObjDef* objdef; ///< class of an object, null for a pointer heap variable
  ZEL_Variable var;
};

extern "C" {

/// New temporary, undefined.
ZEL_Variable* ZEL_Gettmp();
/// New temporary 16-bit integer.
ZEL_Variable* ZEL_GettmpInt(std::int16_t value);
/// Releases a temporary and what it owns. Does nothing for null and for variables that are not temporaries.
void ZEL_Deltmp(ZEL_Variable* v) noexcept;
/// Number of temporaries alive.
std::int64_t ZEL_TempCount() noexcept;

/// New temporary one-dimensional array of `n` (at least 1) zero-filled elements of any type but structure.
/// \param data  receives the address of the first element; may be null.
ZEL_Variable* ZEL_MakeTempVector(ZEL_Type type, std::int64_t n, char** data);
/// New temporary array of `n` (at least 1) zero-filled structures.
/// \param data  receives the address of the first element; may be null.
ZEL_Variable* ZEL_MakeTempStruct(const ZEL_StructDef* sdef, std::int64_t n, char** data);
/// Zero-filled scratch memory of `bytes` bytes, owned by a temporary; release that with ZEL_Deltmp.
/// \param tmp  receives the owning temporary.
char* ZEL_GetScratch(ZEL_Variable** tmp, std::int64_t bytes);

/// Replaces the value of `dst` by a copy of the value of `src`. A temporary `src` is consumed: its value is moved and
/// the temporary released.
void ZEL_VarCopy(ZEL_Variable* src, ZEL_Variable* dst);
/// Replaces the value of `dst` by a scalar of the given type; `value` points to an object of that type.
void ZEL_StoreScalar(ZEL_Variable* dst, ZEL_Type type, const void* value);
/// Gets the number of elements of a variable and the address of the first. A scalar has one element; an undefined
/// variable has none, and null for an address.
void ZEL_VarGetData(ZEL_Variable* v, std::int64_t* n, char** data) noexcept;

/// Converts a variable to a type. \return the variable itself if it already has the type, otherwise a new temporary
/// with every element converted. Integers wrap to the width of the target. Text is read as a number, with leading and
/// trailing spaces ignored; text that is not a number is an error. Numbers become text, padded with leading spaces to
/// the width of their type. Undefined variables and structures are errors.
ZEL_Variable* ZEL_VarTypeConvert(ZEL_Variable* v, ZEL_Type type);
/// ZEL_VarTypeConvert to string.
ZEL_Variable* ZEL_CvtString(ZEL_Variable* v);
/// ZEL_VarTypeConvert to the 16-bit integer.
ZEL_Variable* ZEL_CvtFix(ZEL_Variable* v);
/// @}

/// \name Strings
/// @{

/// Replaces the text of a host string by a copy of `text`; null stores the empty string.
void ZEL_StrStore(ZEL_STRING* dst, const char* text);
/// Releases the texts of `n` consecutive host strings and leaves them empty.
void ZEL_StrDelete(ZEL_STRING* s, std::int64_t n) noexcept;
/// New temporary scalar string.
ZEL_Variable* ZEL_StrToSTRING(const char* text);
/// Appends `src` to the text in `dst`, a buffer of `size` bytes. The result is cut to `size - 1` bytes and always
/// terminated. \return the length that the result would have had without the limit.
std::size_t ZEL_StrBase_strlcat(char* dst, const char* src, std::size_t size) noexcept;
/// @}

/// \name Structures
/// @{

/// Flag bits of ZEL_StructTagDef::flags.
enum ZEL_StructTagFlag : std::uint8_t {
  ZEL_TAG_INHERIT = 1 ///< insert the tags of `sdef` here; the new structure inherits that class
};

/// One tag of a structure to be defined. A table of tags ends with an entry whose name is null.
struct ZEL_StructTagDef {
  const char* name; ///< upper case
  ZEL_Type type;
  std::int64_t n;            ///< 0: a scalar; otherwise an array of `n` elements
  const ZEL_StructDef* sdef; ///< structure of the elements, for ZEL_TYP_STRUCT
  std::uint8_t flags;        ///< ZEL_StructTagFlag bits
};

/// Defines a structure from a table of tags. A null name makes an anonymous structure, and anonymous structures with
/// equal tags share one definition. If a structure of that name is already defined, returns it and ignores `tags`.
const ZEL_StructDef* ZEL_MakeStruct(const char* name, const ZEL_StructTagDef* tags);
/// The same for a structure that is internal to a module. Needs a name.
const ZEL_StructDef* ZEL_MakeStructInternal(const char* name, const ZEL_StructTagDef* tags);
/// Number of tags.
int ZEL_StructNumTags(const ZEL_StructDef* sdef) noexcept;
/// Size of one element in bytes.
std::int64_t ZEL_StructSize(const ZEL_StructDef* sdef) noexcept;
/// Offset in bytes of a tag in an element, by position from 0; `tag` (may be null) receives its definition. A position
/// out of range is an error.
std::int64_t ZEL_StructTagInfoByIndex(const ZEL_StructDef* sdef, int index, ZEL_StructTagDef* tag);
/// Offset in bytes of a tag in an element, by name in any case; `tag` (may be null) receives its definition. For an
/// unknown name an error if `action` is ZEL_MSG_ERROR, otherwise -1.
std::int64_t ZEL_StructTagInfoByName(const ZEL_StructDef* sdef, const char* name, int action, ZEL_StructTagDef* tag);
/// @}

/// \name Objects and heap variables
/// @{

/// The object class of a structure definition; null if it is not one.
const ZEL_ObjDef* ZEL_ObjDefOfStruct(const ZEL_StructDef* sdef) noexcept;
/// Makes a named structure usable as an object class. Methods of class NAME are the system routines `NAME::METHOD`.
const ZEL_ObjDef* ZEL_ObjInsertDef(const ZEL_StructDef* sdef);
/// Heap variable that an object reference refers to. A null reference, or one to a deleted object, is an error.
ZEL_HeapVar* ZEL_ObjReference(ZEL_Variable* v);
/// 1 if the class of the object is the named class (in any case) or inherits it, otherwise 0.
int ZEL_ObjContainsClassByStr(const ZEL_HeapVar* object, const char* className) noexcept;

/// Reports how many bytes native code holds for an object in all. The host collects objects that scripts can no longer
/// reach before these bytes fill the memory. Does nothing if there is no such object.
void ZEL_ObjSetMemory(ZEL_HVID hvid, std::int64_t bytes) noexcept;

/// New pointer heap variable that holds a copy of `value` (a temporary is consumed).
ZEL_HeapVar* ZEL_HeapVarNew(ZEL_Variable* value);
/// Heap variable with an identifier; null if there is none.
ZEL_HeapVar* ZEL_HeapVarHashFind(ZEL_HVID hvid) noexcept;
/// Deletes a heap variable and its value. Does nothing for null.
void ZEL_HeapVarDelete(ZEL_HeapVar* hv) noexcept;
/// @}

/// \name Routines and keywords
/// @{

/// One keyword of a call, as the caller gave it.
struct ZEL_Keyword {
  const char* name;    ///< upper case
  ZEL_Variable* value; ///< the caller's own variable
  bool output = false; ///< the caller asks for a value instead of giving one
};

/// The keywords of a call.
struct ZEL_Keywords {
  int count;
  const ZEL_Keyword* keywords;
};

/// Flag bits of ZEL_SysRtnDef::flags.
enum ZEL_SysRtnFlag { ZEL_SYSRTN_KEYWORDS = 2 /**< the routine accepts keywords */ };

/// Native code of a routine. A function returns its result, a temporary; a procedure returns nothing. Only routines
/// registered with ZEL_SYSRTN_KEYWORDS get `argk`, which is never null.
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

/// One routine. Before any code of the module runs, the host checks the number of positional arguments, and refuses
/// keywords for a routine without ZEL_SYSRTN_KEYWORDS.
struct ZEL_SysRtnDef {
  ZEL_SysRtnPtr code;
  const char* name; ///< upper case; a method is "CLASS::METHOD" and has the object as its first argument
  int argMin;
  int argMax;
  unsigned flags; ///< ZEL_SysRtnFlag bits
};

/// Registers `n` routines. \return nonzero on success; 0 if a name is taken or a definition is unusable, in which case
/// none of them is registered.
int ZEL_SysRtnAdd(const ZEL_SysRtnDef* defs, int isFunction, int n);

/// Flag bits of ZEL_KwDef::flags.
enum ZEL_KwFlag : unsigned {
  ZEL_KW_VIN = 1, ///< input: the routine gets the caller's own variable, unconverted
  ZEL_KW_OUT = 2  ///< output: the host clears the caller's variable and the routine fills it
};

/// One accepted keyword. A table is sorted by name, which the host checks, and ends with an entry whose name is null.
struct ZEL_KwDef {
  const char* name;    ///< upper case
  ZEL_Type type;       ///< ZEL_TYP_UNDEF: no conversion
  unsigned mask;       ///< the keyword is accepted if `mask & enabled` is not 0
  unsigned flags;      ///< ZEL_KwFlag bits
  std::size_t present; ///< offset of the std::int32_t that is set to 1 if the keyword was given
  std::size_t value;   ///< offset of the ZEL_Variable* that receives the variable
};

/// First member of every keyword result record. It belongs to the host.
struct ZEL_KwResult {
  std::int32_t mustFree; ///< nonzero if ZEL_KWFree has something to release
};

/// Sorts the keywords of a call into a result record: a standard-layout struct that begins with a ZEL_KwResult, filled
/// with zeros. It is an error if a keyword is unknown or given twice, if an output keyword has a value or an input
/// keyword none, and if the table is not sorted. \return the number of positional arguments.
int ZEL_KWProcessByOffset(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, const ZEL_KwDef* table,
                          unsigned enabled, ZEL_KwResult* result);
/// Releases what ZEL_KWProcessByOffset allocated for the record.
void ZEL_KWFree(ZEL_KwResult* result) noexcept;
/// @}

/// \name Messages
/// @{

/// What a message does.
enum ZEL_MsgAction {
  ZEL_MSG_ERROR = 2, ///< raise it as an error: throws ZEL_Unwind
  ZEL_MSG_INFO = 4   ///< print it and continue
};

/// One message of a block. In `format`, %N is replaced by the name of the running routine and a colon, and each %s by
/// the next text.
struct ZEL_MsgDef {
  const char* name;
  const char* format;
};

/// Handle of a message block.
using ZEL_MsgBlock = struct ZEL_MsgBlockDef*;

/// Defines a message block of `n` messages; their codes are 0, -1, -2 and so on. \return null on failure.
ZEL_MsgBlock ZEL_MessageDefineBlock(const char* name, int n, const ZEL_MsgDef* defs);
/// Issues a message of a block with the texts (`const char*`) that its format asks for; a null text prints as nothing.
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

/// A call from native code to a script routine.
struct ZEL_CallDesc {
  int isFunction; ///< 1: its result goes to `result`
  ZEL_Ident routine;
  int argc;
  ZEL_Variable** argv;  ///< owned by the caller
  ZEL_Variable* result; ///< receives the value; owned by the caller
};
/// Calls a script routine. It is an error if there is no such routine, and if it raises one. A routine that returns
/// nothing gives 1, and one that returns `false` gives 0.
void ZEL_InterpCallFromSysproc(ZEL_CallDesc* call);
/// 1 if the user has asked for an interrupt (Ctrl-C) that has not yet taken place, otherwise 0. May be called at any
/// time on the interpreter's thread.
int ZEL_InterpInterrupted() noexcept;
/// Registers a function that every session reset calls. It returns 0 if it could not reset.
void ZEL_SessionResetAdd(int (*reset)());
/// @}

/// \name Files and directories
/// @{

/// Path of the per-user directory of an application. Makes it if it is missing, accessible to the user alone, and
/// writes a read-me file if there is none. All arguments are string scalars; `restrictAppVersion` makes the directory
/// specific to a version of the application. It is an error if the directory cannot be made or written. \return a
/// temporary string.
ZEL_Variable* ZEL_AppUserDir(ZEL_Variable* authorDir, ZEL_Variable* authorDesc, ZEL_Variable* appDir,
                             ZEL_Variable* appDesc, ZEL_Variable* readmeText, ZEL_Variable* readmeVersion,
                             ZEL_Variable* restrictAppVersion);
/// Installation root of the interpreter. \return a temporary string, empty if there is none.
ZEL_Variable* ZEL_SysvDirFunc();
/// Joins a root directory, `nDirs` subdirectories, a file name and an extension in `out`, a buffer of `size` bytes. The
/// result is cut to `size - 1` bytes; without a file name it ends in a separator. Null texts are left out.
/// \return `out`.
char* ZEL_FilePathFromRoot(char* out, std::size_t size, const char* root, const char* const* dirs, int nDirs,
                           const char* file, const char* extension);
/// Copies a file. An existing target is replaced if `overwrite`, an integer scalar, is not 0; otherwise it is an error.
/// Failures, including those reported only when the target is closed, are errors and leave no partial target. A file
/// copied onto itself is left unchanged.
void ZEL_FileCopy(ZEL_Variable* source, ZEL_Variable* target, ZEL_Variable* overwrite);
/// Sets the permission bits of a file. A file that belongs to another user is left unchanged.
void ZEL_FileOpChmod(ZEL_Variable* file, unsigned mode);
/// @}

/// The module's one exported function. \return nonzero on success.
int ZEL_Load();

} // extern "C"

/// Thrown by the host to unwind from native code to the interpreter. The host keeps the error itself.
struct ZEL_Unwind {};

namespace zel {

/// Releases a temporary.
struct TempDeleter {
  void operator()(ZEL_Variable* v) const noexcept { ZEL_Deltmp(v); }
};

/// Owns a temporary. Use `release()` to return it as a result or to pass it to ZEL_VarCopy.
using Temp = std::unique_ptr<ZEL_Variable, TempDeleter>;

} // namespace zel
