#pragma once
// ZORAPOConfigurationFile: the parsed XML file that says everything fixed at
// an endpoint's installation: the product name, the operating modes with
// their controls and identities, and which tech processes run at each APO
// location and channel layout.
//
//   <zor_configuration>
//     <properties>
//       <control name="Product Name">Grand Tone</control>
//       <control name="APO4-Operating Mode">APO4-Music</control>
//       <control name="APO4-Speaker Type">APO4-Internal Stereo</control>
//     </properties>
//     <operating_mode auto_mic="false">
//       <control name="APO4-Operating Mode">APO4-Music</control>
//       <control name="APO4-Speaker Type">APO4-Internal Stereo</control>
//       <control name="SFX:Width" public="true">1.2</control>
//       <chain_v2 position="SFX" input="Mono,Stereo" output="Stereo" type="render">
//         <process tech_id="widener" instance_id="SFX" hook=""/>
//         <control name="SFX:Width">1.0</control>
//       </chain_v2>
//     </operating_mode>
//   </zor_configuration>
//
// A process parses each path once: documents are kept in a process-wide cache
// keyed by the exact path text and never refreshed, so a file changed on disk
// after its first load is not seen again in that process.
//
// One owner loads the object and reads it from its own threads; the object has
// no lock. Load may run on several objects at once: the cache is guarded.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "config/zorapomodeid.h"
#include "config/zorapooperatingmode.h"
#include "config/zorutsvaluelist.h"

namespace tinyxml2 {
class XMLDocument;
class XMLElement;
}  // namespace tinyxml2

class ZORAPOConfigurationFile {
 public:
  using ModeList = std::vector<std::shared_ptr<ZORAPOOperatingMode>>;

  // Results of Load. The status is that of the last `properties` or taken
  // `operating_mode` element that set one, so the order in the file counts: a
  // file without `properties` answers kStatusUnreadable even with all its
  // modes read, and a failed mode is forgotten when a `properties` follows.
  enum Status : uint32_t {
    kStatusOk = 0,               // parsed; the default mode set if it could be
    kStatusEmptyProperties = 2,  // the last `properties` element was empty
    kStatusModeFailed = 3,       // the last event was a mode without identity
    kStatusUnreadable = 6,       // missing or unparsable file, wrong or empty
                                 // root, or no `properties`
  };

  // Configuration files beyond this size are refused as unreadable.
  static constexpr uint64_t kMaxFileBytes = 16u * 1024u * 1024u;

  ZORAPOConfigurationFile() = default;
  ZORAPOConfigurationFile(const ZORAPOConfigurationFile&) = default;
  ZORAPOConfigurationFile& operator=(const ZORAPOConfigurationFile&) = default;
  virtual ~ZORAPOConfigurationFile() = default;

  // Reads the file at `path` (through the cache) for the APO at `location`
  // (0 LFX, 1 SFX, 2 MFX, 3 EFX, 4 OSFX, 5 OMFX): modes keep only the chains
  // of that location. `selector` 0 takes the modes without a `selector`
  // attribute, 1 those with selector="dsp", any other none. Empties the
  // properties, product name and modes first; the default mode keeps its old
  // value unless the load succeeds. Whatever was read before a failure stays.
  // Never throws for bad input. Not the audio thread: it reads a file.
  virtual uint32_t Load(const std::u16string& path, uint32_t selectorValue, uint32_t location);
  virtual const ModeList& GetOperatingModes() const { return operatingModes; }
  virtual const ZORAPOModeId& GetDefaultMode() const { return defaultMode; }
  virtual const ZORUTSValueList& GetProperties() const { return properties; }
  virtual const std::u16string& GetProductName() const { return productName; }
  virtual uint32_t GetSelector() const { return selector; }
  // Copies the mode of exactly this identity into `out`. True only if there
  // is exactly one; with duplicates `out` holds the last and the answer is
  // false.
  virtual bool FindMode(const ZORAPOModeId& id, ZORAPOOperatingMode& out) const;
  // Prefers an auto-microphone mode of the same speaker type, whatever its
  // operating mode text, over the exact match, which is the fallback. A mode
  // of exactly this identity never counts as such a candidate. True if there
  // is exactly one candidate, or none and an exact match (the last one);
  // with two or more candidates false, `out` holding the last.
  virtual bool FindAutoMicMode(const ZORAPOModeId& id, ZORAPOOperatingMode& out) const;

  // Load for a text in memory, parsed on its own and never cached: for tools
  // that check a file before installing it, and for fuzzing.
  uint32_t LoadText(std::string_view xml, uint32_t selectorValue, uint32_t location);

  // The APO location's name that a `chain_v2` position must equal: "PreBlue",
  // "SFX", "MFX", "EFX", "OSFX", "OMFX", and "Invalid APO location!" above 5.
  static const char* LocationName(uint32_t location);

 private:
  void Reset(uint32_t selectorValue);
  uint32_t ReadDocument(const tinyxml2::XMLDocument* document, uint32_t location);
  uint32_t ReadRoot(const tinyxml2::XMLElement& root, uint32_t location);
  bool TakesMode(const tinyxml2::XMLElement& element) const;
  // The default mode from the properties, else the first mode's identity.
  bool SetDefaultMode();

  ZORUTSValueList properties;
  std::u16string productName;
  ModeList operatingModes;
  ZORAPOModeId defaultMode;
  uint32_t selector = 0;
};
