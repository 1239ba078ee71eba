// velapo-ctl: see docs/velapo-ctl.md.
#include <atomic>
#include <csignal>
#include <filesystem>
#include <iostream>

#include "audio/zorapoprocesslibrary.h"
#include "config/zorapomodulepaths.h"
#include "ctl/ctlapp.h"

namespace {

std::atomic<bool> g_interrupted{false};

extern "C" void OnInterrupt(int) { g_interrupted = true; }

// An installed velapo-ctl finds the tech module where the install put it,
// not beside itself.
void FindInstalledTechModule() {
  std::u16string beside;
  if (ZORAPOProcessLibrary::FindModulePath(beside)) return;
  const std::filesystem::path installed =
      std::filesystem::path(GetModuleDirectory(kZORModuleHost)) / VELAPO_CTL_TECH_DIR / "velapo-ctl";
  ZORAPOProcessLibrary::SetModulePath(installed.lexically_normal().u16string().c_str());
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);
  FindInstalledTechModule();
  const std::vector<std::string> args(argv + 1, argv + argc);
  return CtlApp::Run(args, std::cout, std::cerr, std::cin, g_interrupted);
}
