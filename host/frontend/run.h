/// \file
/// Running scripts.
#pragma once

#include "frontend/support.h"

#include <string>
#include <vector>

namespace zel::lua {

/// Sets the table `arg`: the script's name at 0, its arguments from 1.
void setArguments(lua_State* L, const std::string& name, const std::vector<std::string>& arguments);

/// Calls the chunk under its arguments on the stack, as lua_pcall does, with Ctrl-C stopping it. On failure
/// it leaves the message with a traceback. \return true on success.
bool callChunk(lua_State* L, int arguments, int results);

enum class Outcome { done, failed, unreadable };

/// Loads and runs a file, standard input for "-", with the arguments of `arg`. Errors are printed.
Outcome runFile(lua_State* L, const std::string& path);
/// The same with a text. \return true on success.
bool runText(lua_State* L, const std::string& code, const char* chunkName);

/// Prints the error on top of the stack and drops it.
void reportError(lua_State* L);
/// Prints an error of the runner.
void printError(const std::string& text);

} // namespace zel::lua
