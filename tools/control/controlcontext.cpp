#include "control/controlcontext.h"

#include "platform/com.h"
#include "platform/debugoutput.h"
#include "platform/registry.h"

namespace {

void DropLine(void* /*context*/, const char* /*utf8Line*/, bool /*wasWide*/) {}

}  // namespace

ControlContext::ControlContext(const std::string& storeRoot, bool quiet) : m_quiet(quiet) {
  m_comInitialised = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  if (!storeRoot.empty()) zor::os::SetRegistryRoot(storeRoot);
  if (quiet) zor::os::SetDebugSink(&DropLine, nullptr);
}

ControlContext::~ControlContext() {
  if (m_quiet) zor::os::SetDebugSink(nullptr, nullptr);
  if (m_comInitialised) CoUninitialize();
}

std::string ControlContext::StoreDescription() {
#ifdef _WIN32
  return "the registry";
#else
  return "the settings store at " + zor::os::RegistryRoot();
#endif
}

bool ControlContext::StoreRootSelectable() {
#ifdef _WIN32
  return false;
#else
  return true;
#endif
}
