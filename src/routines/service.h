/// \file
/// What tells the two services apart, for the code that serves both.
#pragma once

#include "zel_module.h"

#include <cstdint>
#include <memory>
#include <new>

class COgcBase;

struct OgcService {
  const char* className;
  const char* pointerTag;  ///< tag of the instance structure that holds the client's address, 0 when there is none
  const char* wrongObject; ///< error for an object of another class
  const char* noMemory;    ///< error when no client can be made
  const char* noClient;    ///< error for an object that was not initialised
  const char* userDir;     ///< directory of the user file store

  COgcBase* (*make)();        ///< a new client with its defaults, null when there is no memory for it
  void (*init)(COgcBase&);    ///< prepares a client for its first request
  void (*destroy)(COgcBase*); ///< cleans a client up and destroys it

  void (*setProperties)(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, int initialise,
                        const std::int64_t* clientSlot);
  void (*getProperties)(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, const std::int64_t* clientSlot);
};

extern const OgcService ogcWcsService;
extern const OgcService ogcWmsService;

/// The functions of OgcService that create and destroy a client of class `Client`.
template <typename Client>
COgcBase* ogcMakeClient() {
  try {
    return std::make_unique<Client>().release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
template <typename Client, auto CleanUp>
void ogcDestroyClient(COgcBase* client) {
  const std::unique_ptr<Client> owned(static_cast<Client*>(client));
  (owned.get()->*CleanUp)();
}
