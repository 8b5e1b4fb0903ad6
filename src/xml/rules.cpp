#include "xml/rules.h"

namespace ogc::xml {

namespace {

constexpr VersionRule anyVersion{{}, "", ""};

const Grammar<ExceptionHandler>& noRules() {
  static const Grammar<ExceptionHandler> grammar({});
  return grammar;
}

} // namespace

ExceptionHandler::ExceptionHandler(Reporter& reporter, Arena& arena)
    : RuleHandler(reporter, arena, anyVersion, noRules()) {}

} // namespace ogc::xml
