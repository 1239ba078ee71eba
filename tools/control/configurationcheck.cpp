#include "control/configurationcheck.h"

#include <map>
#include <set>

#include "audio/zorapoprocesslibrary.h"
#include "config/zorapoconfigurationfile.h"
#include "config/zorutscontrolinfo.h"
#include "control/controlendpoint.h"
#include "platform/text.h"

namespace {

// The control names of each tech id, read from processes of the module.
class ModuleControls {
 public:
  // Null when the module makes no such process.
  const std::set<std::string>* Of(const std::string& techId) {
    auto found = m_controls.find(techId);
    if (found == m_controls.end()) found = m_controls.emplace(techId, Read(techId)).first;
    return found->second.made ? &found->second.names : nullptr;
  }

 private:
  struct Entry {
    bool made = false;
    std::set<std::string> names;
  };
  Entry Read(const std::string& techId) {
    Entry entry;
    ZORAPOProcessLibrary library;
    if (!library.CreateProcess(techId, "check")) return entry;
    ZORTechProcess* process = library.GetProcess();
    entry.made = true;
    const ZORTechControl* first = nullptr;
    const int32_t count = process->table->GetControls(process, &first);
    for (int32_t index = 0; first != nullptr && index < count; ++index) {
      ZORUTSControlInfo info;
      info.SetFromDescriptor(&first[index]);
      entry.names.insert(info.name);
    }
    return entry;
  }
  std::map<std::string, Entry> m_controls;
};

bool IsSystemControl(const std::string& name) { return name.starts_with("APO4-"); }

}  // namespace

std::string ConfigurationCheck::LayoutText(uint32_t mask) {
  if (mask == kZORLayoutAny) return "Any";
  static constexpr std::pair<uint32_t, const char*> kNames[] = {
      {kZORLayoutMono, "Mono"},         {kZORLayoutStereo, "Stereo"},
      {kZORLayout51, "5.1 Surround"},   {kZORLayout71, "7.1 Surround"},
      {kZORLayout111, "11.1 Surround"},
  };
  std::string text;
  for (const auto& [bit, name] : kNames) {
    if (mask & bit) text += (text.empty() ? "" : ",") + std::string(name);
  }
  return text.empty() ? "none" : text;
}

ControlResult ConfigurationCheck::Run(const std::string& path, ConfigurationReport& report) {
  report = ConfigurationReport{};
  report.path = path;
  const std::u16string widePath = zor::os::NarrowToWide(path);
  std::vector<ZORAPOConfigurationFile> files(kLocationCount);
  for (uint32_t location = 0; location < kLocationCount; ++location) {
    const uint32_t status = files[location].Load(widePath, 0, location);
    if (location == ControlEndpoint::kStreamLocation) report.status = status;
  }
  const ZORAPOConfigurationFile& stream = files[ControlEndpoint::kStreamLocation];
  report.product = zor::os::Utf16ToUtf8(stream.GetProductName());
  if (report.status != ZORAPOConfigurationFile::kStatusOk) {
    return ControlResult::Failure("configuration " + path + " does not load (status " +
                                  std::to_string(report.status) + ")");
  }
  report.defaultMode = ControlEndpoint::ModeText(stream.GetDefaultMode());

  std::u16string modulePath;
  report.moduleLoaded = ZORAPOProcessLibrary::FindModulePath(modulePath);
  report.modulePath = zor::os::Utf16ToUtf8(modulePath);
  report.techIds = ZORAPOProcessLibrary::EnumProcesses();
  ModuleControls moduleControls;

  for (const auto& mode : stream.GetOperatingModes()) {
    const std::string modeText = ControlEndpoint::ModeText(mode->GetModeId());
    report.modes.push_back(modeText);
    // Processes by instance id, and the controls to check, over every location.
    std::map<std::string, std::set<std::string>> techIdsByInstance;
    std::vector<std::string> controls;
    for (const auto& [name, value] : mode->GetAllControls()) controls.push_back(name);
    for (uint32_t location = 0; location < kLocationCount; ++location) {
      ZORAPOOperatingMode here;
      if (!files[location].FindMode(mode->GetModeId(), here)) continue;
      for (const ZORAPOChainDesc& chain : here.GetChainDefinition().chains) {
        CheckedChain checked{location, modeText, chain.inputLayouts, chain.outputLayouts,
                             chain.isRender, {}};
        for (const ZORAPOProcessDesc& process : chain.processes) {
          checked.processes.push_back(process.techId + ":" + process.instanceId);
          techIdsByInstance[process.instanceId].insert(process.techId);
        }
        for (const auto& [name, value] : chain.controls) controls.push_back(name);
        report.chains.push_back(std::move(checked));
      }
    }
    std::set<std::string> reported;
    for (const std::string& name : controls) {
      if (IsSystemControl(name) || !reported.insert(name).second) continue;
      const ZORUTSValue value(name, std::string());
      const std::string instance = value.GetInstanceId();
      const std::string control = value.GetControlName();
      std::vector<std::string> candidates;
      if (instance.empty()) {
        for (const auto& [id, techIds] : techIdsByInstance) {
          candidates.insert(candidates.end(), techIds.begin(), techIds.end());
        }
      } else if (auto found = techIdsByInstance.find(instance); found != techIdsByInstance.end()) {
        candidates.assign(found->second.begin(), found->second.end());
      } else {
        report.problems.push_back(
            {modeText, name, "no process of the mode has the instance id '" + instance + "'"});
        continue;
      }
      bool known = false;
      std::string unmade;
      for (const std::string& techId : candidates) {
        const std::set<std::string>* names = moduleControls.Of(techId);
        if (!names) {
          unmade += (unmade.empty() ? "" : ", ") + techId;
        } else if (names->contains(control)) {
          known = true;
        }
      }
      if (known) continue;
      std::string reason = candidates.empty() ? "the mode has no processes"
                                              : "no process it reaches has a control '" + control + "'";
      if (!unmade.empty()) reason += " (the tech module makes no " + unmade + ")";
      report.problems.push_back({modeText, name, reason});
    }
  }
  return ControlResult::Success();
}
