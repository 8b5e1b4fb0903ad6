#include "fake_bridge.h"

#include "client/bridge.h"

#include <filesystem>

FakeBridge& fakeBridge() {
  static FakeBridge bridge;
  return bridge;
}

int OgcCallback(char* callbackName, unsigned long, const char* status, xProgressValues*) {
  if (callbackName == nullptr || *callbackName == '\0') return 1;
  fakeBridge().status.emplace_back(status);
  return fakeBridge().onStatus(fakeBridge().status.back());
}

void OgcInfoMsg(const char* text) {
  fakeBridge().info.emplace_back(text);
  fakeBridge().onInfo(fakeBridge().info.back());
}

void copyXMLFile(const char* source, const char* targetBase) {
  fakeBridge().copies.emplace_back(source, targetBase);
  const std::string target = std::string(targetBase) + ".xml";
  std::error_code none;
  if (std::filesystem::equivalent(source, target, none)) return;
  std::filesystem::copy_file(source, target, std::filesystem::copy_options::overwrite_existing);
}
