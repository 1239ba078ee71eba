// Fuzzes the configuration file reader: any bytes, as found in a file that an
// installer or a user may have got wrong. Beyond "no crash, no over-read" it
// checks what the reader promises of whatever it accepts: a known status,
// modes with a defined identity, chains with processes, controls with names
// and values, and a tuned control beating a public one. Now and then the
// same bytes go through a real file too, and must give the same result.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include "config/zorapoconfigurationfile.h"
#include "platform/debugoutput.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

void CheckList(const ZORUTSValueList& list) {
  for (const auto& [name, value] : list) {
    Require(!name.empty() && name == value.name && value.value != nullptr);
    value.GetLong();
  }
}

void CheckConfiguration(const ZORAPOConfigurationFile& config, uint32_t status) {
  Require(status == 0 || status == 2 || status == 3 || status == 6);
  CheckList(config.GetProperties());
  for (const auto& mode : config.GetOperatingModes()) {
    Require(mode->GetModeId().IsDefined());
    Require(mode->GetTunedControls().Find(ZORAPOModeId::kOperatingModeName) == nullptr);
    Require(mode->GetTunedControls().Find(ZORAPOModeId::kSpeakerTypeName) == nullptr);
    CheckList(mode->GetPublicControls());
    CheckList(mode->GetTunedControls());
    CheckList(mode->GetAllControls());
    for (const auto& [name, value] : mode->GetTunedControls()) {
      const ZORUTSValue* all = mode->GetAllControls().Find(name);
      Require(all != nullptr && *all == value);
    }
    for (const ZORAPOChainDesc& chain : mode->GetChainDefinition().chains) {
      Require(!chain.processes.empty());
      for (const ZORAPOProcessDesc& process : chain.processes) Require(!process.techId.empty());
      CheckList(chain.controls);
      ZORAPOChainDesc found;
      mode->GetChainDefinition().FindChain(kZORLayoutStereo, kZORLayout51, found, chain.isRender);
    }
    ZORAPOOperatingMode copy;
    config.FindMode(mode->GetModeId(), copy);
    config.FindAutoMicMode(mode->GetModeId(), copy);
  }
  if (status == 0 && !config.GetOperatingModes().empty()) {
    Require(config.GetDefaultMode().IsDefined());
  }
}

// Unique per run as well, since parallel jobs share the directory.
std::filesystem::path ScratchPath(unsigned serial) {
  static const unsigned run = std::random_device{}();
  const std::string name = "velapo_configfile_fuzzer_" + std::to_string(run) + "_" +
                           std::to_string(serial) + ".xml";
  return std::filesystem::temp_directory_path() / name;
}

}  // namespace

// Every bad input logs its parse error; at thousands of inputs a second that
// would be all the fuzzer does.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  zor::os::SetDebugSink([](void*, const char*, bool) {}, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  // Always the stream location with the usual selector; then a selector and
  // a location picked by the size, so the other mode and chain rules are
  // reached without spending bytes of the document on them.
  ZORAPOConfigurationFile config;
  const uint32_t status = config.LoadText(text, 0, 1);
  CheckConfiguration(config, status);
  const uint32_t selector = static_cast<uint32_t>(size % 3);
  const uint32_t location = static_cast<uint32_t>((size / 3) % 7);
  ZORAPOConfigurationFile other;
  CheckConfiguration(other, other.LoadText(text, selector, location));

  // The cache keeps every path it parsed for good, so only a few inputs go
  // through a file, each under a path of its own.
  static unsigned serial = 0;
  if (serial++ % 4096 == 0) {
    const std::filesystem::path path = ScratchPath(serial);
    {
      std::ofstream out(path, std::ios::binary | std::ios::trunc);
      out.write(text.data(), static_cast<std::streamsize>(text.size()));
    }
    ZORAPOConfigurationFile fromFile;
    const uint32_t fileStatus = fromFile.Load(path.u16string(), 0, 1);
    std::filesystem::remove(path);
    Require(fileStatus == status);
    Require(fromFile.GetOperatingModes().size() == config.GetOperatingModes().size());
    Require(fromFile.GetProperties().Size() == config.GetProperties().Size());
  }
  return 0;
}
