#pragma once
// ConfigurationCheck: what an installer or a tuning engineer wants to know of
// a configuration file before an endpoint uses it: whether it loads and with
// what status, its product and modes, the chains of each mode at every APO
// location with their layouts, and every control that would reach nothing
// because no process of its mode, as the tech module actually loaded makes
// it, has a control of that name.
//
// Loads the tech module and makes one process per tech id to read its
// control table; one thread, not while a chain is built in this process.
#include <cstdint>
#include <string>
#include <vector>

#include "control/controlresult.h"

struct CheckedChain {
  uint32_t location = 0;
  std::string mode;
  uint32_t inputLayouts = 0;
  uint32_t outputLayouts = 0;
  bool isRender = true;
  std::vector<std::string> processes;  // "techId:instanceId", in running order
};

struct ControlProblem {
  std::string mode;
  std::string control;
  std::string reason;
};

struct ConfigurationReport {
  std::string path;
  uint32_t status = 0;
  std::string product;
  std::string defaultMode;
  std::vector<std::string> modes;
  std::vector<CheckedChain> chains;
  bool moduleLoaded = false;
  std::string modulePath;
  std::vector<std::string> techIds;  // what the module offers
  std::vector<ControlProblem> problems;
};

class ConfigurationCheck {
 public:
  static constexpr uint32_t kLocationCount = 6;  // PreBlue (LFX) .. OMFX

  // Fills `report`. Fails only when the file does not load (the report then
  // holds the status); problems with controls are findings, not failures.
  static ControlResult Run(const std::string& path, ConfigurationReport& report);
  // "Mono,Stereo" for a mask, "Any" for every layout, "none" for 0.
  static std::string LayoutText(uint32_t mask);
};
