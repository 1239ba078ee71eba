#pragma once
// EndpointCatalog: the endpoints in the settings store, and the changes a
// control panel makes to that list: add one (the keys a driver's install
// would write: DeviceState, Properties, FxProperties), remove one, pick the
// default. On Linux the engine's device enumerator reads exactly these keys;
// on Windows they are the system's own, which only an administrator may
// change, and Wine keeps them in its registry without listing them as
// devices.
//
// Static operations, one thread at a time; all touch the store.
#include <cstdint>
#include <string>
#include <vector>

#include "control/controlresult.h"

struct EndpointEntry {
  std::string guid;
  bool isRender = true;
  uint32_t state = 0;  // 1 active, 2 disabled, 4 not present, 8 unplugged
  bool isDefault = false;
  std::string displayName;
  std::string settingsKey;
  std::string configPath;
  bool systemEffects = true;
};

struct EndpointSpec {
  std::string guid;
  bool isRender = true;
  std::string configPath;   // empty: the file beside the modules
  std::string settingsKey;  // empty: Software\VEL\APO\{GUID}
  std::string adapterName;  // the meter names are built from these two
  std::string description;
  bool systemEffects = true;
};

class EndpointCatalog {
 public:
  // Every endpoint key under Render and Capture whose name is a GUID.
  static ControlResult List(std::vector<EndpointEntry>& entries);
  // Fails for a GUID already in the store.
  static ControlResult Add(const EndpointSpec& spec);
  // Deletes the endpoint's keys, and with `withSettings` its settings key.
  static ControlResult Remove(const std::string& guid, bool isRender, bool withSettings);
  // Through the system's policy client (on Linux, the store's default).
  static ControlResult SetDefault(const std::string& guid);
  // The default render endpoint's GUID text; fails when there is none.
  static ControlResult GetDefault(std::string& guid);
  // "1 active" style names of DeviceState values.
  static const char* StateName(uint32_t state);
};
