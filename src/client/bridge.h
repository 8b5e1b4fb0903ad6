/// \file
/// All that the service clients know of the host.
#pragma once

struct xProgressValues;

/// Hands a status line and transfer figures (null: none) to the script routine of that name, with a copy of the heap
/// variable `callbackData` when there is one. \return the routine's answer as a 16-bit integer; 1 when no routine is
/// named. Errors in the routine unwind.
int OgcCallback(char* callbackName, unsigned long callbackData, const char* status, xProgressValues* progress);

/// Prints a text as an informational message of the module.
void OgcInfoMsg(const char* text);

/// Copies a file to `targetBase` with ".xml" appended, replacing an older one; read and write for everybody. A file
/// that already is the target stays as it is. Failures are the host's errors.
void copyXMLFile(const char* source, const char* targetBase);
