/// \file
/// Reads a document into a handler.
#pragma once

#include "xml/caller.h"
#include "xml/handler.h"

/// 0 until the XML platform has been initialised in this process.
extern int g_iOgcBaseSaxInitialized;

namespace ogc::xml {

/// What a document is checked against.
struct Validation {
  int schemaChecking = 0; ///< 0 off, 1 on, others with full constraint checking
  int dtdMode = 0;        ///< 0 off, 1 when the document has a DTD, 2 always; others set nothing
};

/// Reads `file`. \throws CCurlException for every failure, including whatever `reporter` and `fetcher` throw.
void parse(Handler& handler, const char* file, const Validation& validation, Reporter& reporter, Fetcher& fetcher);

} // namespace ogc::xml
