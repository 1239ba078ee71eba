#pragma once
// ZORAPOTunedSettings: the live channel from a tuning tool to the chains
// that play one operating mode of one endpoint. The tool creates a shared
// settings block (ZORPropertySetSharedMem) named
//   "Global\" + endpoint GUID text + the mode's registry name
// e.g. Global\{GUID}ApoOpMode:APO4-Music/APO4-Internal Stereo, so each mode
// of each endpoint has a block of its own. The block holds the mode's public
// and tuned controls as text and the long "APO4-Tuning Mode", which says how
// tuning and a user's settings stack:
//   0      public settings only; the block's other contents are ignored
//   1      block first, public settings on top (a user's setting wins)
//   2      public settings first, block on top (tuning wins)
//   other  neither is applied
// Without a tool there is no block and a chain runs untuned.
//
// Not synchronised: each chain owns one and uses it on the worker thread or
// while building; the block's mutex orders the processes. Never on the
// audio thread.
//
// It lives with the endpoint services rather than the configuration because
// it is named from the endpoint's identity.

#include <cstdint>
#include <string>
#include <string_view>

#include "config/zorapooperatingmode.h"
#include "config/zorutsvalue.h"
#include "config/zorutsvaluelist.h"
#include "values/zorpropertyset.h"
#include "values/zorpropertysetsharedmem.h"

class ZORAPOEndpointInfo;

class ZORAPOTunedSettings {
 public:
  static constexpr std::u16string_view kTuningModeName = u"APO4-Tuning Mode";

  ZORAPOTunedSettings();
  ZORAPOTunedSettings(const ZORAPOTunedSettings&) = delete;
  ZORAPOTunedSettings& operator=(const ZORAPOTunedSettings&) = delete;
  virtual ~ZORAPOTunedSettings();

  // Fills the in-process image with the mode's public controls overlaid by
  // its tuned ones and "APO4-Tuning Mode" 0, then creates or joins the
  // block. With `existingOnly`, false without touching anything when no
  // block exists (no tool is tuning this mode). A block a tool filled keeps
  // its content; the first ReadAll brings it in.
  virtual bool Open(const ZORAPOEndpointInfo& endpoint, const ZORAPOOperatingMode& mode,
                    bool existingOnly);
  // Lets go of the block; true.
  virtual bool Close();
  virtual bool IsOpen() const;
  // Stores one control the image already has, as text, and writes the
  // block; false for an unknown name or a failed write.
  virtual bool WriteControl(const ZORUTSValue& value);
  // Stores the list as text and writes the block; true if the write did.
  virtual bool WriteAll(const ZORUTSValueList& list);
  // Merges the block into the image (overwriting, adding) and then fills
  // `list` from the image: an empty list takes every property, one with
  // entries is refreshed. True if the block was read.
  virtual bool ReadAll(ZORUTSValueList& list, bool clearFirst);
  // Empties the image and writes the block, which leaves it empty; the
  // status of the write.
  virtual uint32_t ClearAll();

  // "APO4-Tuning Mode" from the image, with `reload` after merging the
  // block in; 0 when absent. A failed read answers from the image.
  int32_t GetTuningMode(bool reload);

  // How a chain stacks the block's values (`tuned`) and the public settings
  // on its controls, by the tuning mode of the table above. Every merge is
  // an update, so neither source adds a control the mode does not know.
  static void StackOnto(int32_t tuningMode, const ZORUTSValueList& tuned,
                        const ZORUTSValueList& publicSettings, ZORUTSValueList& controls);

  static std::u16string BlockName(std::u16string_view endpointGuidText,
                                  const ZORAPOModeId& modeId);
  // Open on a block name built already.
  bool OpenNamed(std::u16string_view blockName, const ZORAPOOperatingMode& mode, bool existingOnly);

 private:
  ZORPropertySetSharedMem block;
  ZORPropertySet settings;
};
