#include "core/zorapoutils.h"

#include "core/zorlog.h"

namespace {

const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

void ZORAPOUtils::PrintVersionBanner(const char* name, const char* version, const char* buildDate) {
  ZOR_LOG("*******************************************************************\n");
  ZOR_LOG("  Name       Version     Built \n");
  ZOR_LOG("  VEL APO    %s      %s    \n", "4.0.19.0", "Tue Aug 14 13:17:11 2018");
  ZOR_LOG("  %s     %s      %s    \n", OrEmpty(name), OrEmpty(version), OrEmpty(buildDate));
  ZOR_LOG("*******************************************************************\n");
}
