/// \file
/// All that the clients know about the host.
#pragma once

struct xProgressValues;

/// Calls a script routine with a status line, transfer figures (null for none), and a copy of the heap variable
/// `callbackData` if there is one. \return the routine's answer as a 16-bit integer; 1 if `callbackName` is empty. An
/// error in the routine throws ZEL_Unwind.
int OgcCallback(char* callbackName, unsigned long callbackData, const char* status, xProgressValues* progress);

/// Prints a text as an informational message of the module.
void OgcInfoMsg(const char* text);

/// Copies a file to `targetBase` with ".xml" appended, replacing an older one; read and write for everybody. A file
/// that already is the target stays as it is. Failures are the host's errors.
void copyXMLFile(const char* source, const char* targetBase);
