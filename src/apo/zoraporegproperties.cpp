#include "apo/zoraporegproperties.h"

#include <array>
#include <string_view>

namespace {

// One class's record: everything but the identity is the same for all seven.
// Flags 12: rate and bits must match across a connection, channel counts
// needn't, since chains adapt them.
class RegProperties {
 public:
  RegProperties(const CLSID& clsid, std::u16string_view friendlyName, const IID& apoInterface) {
    m_record = APO_REG_PROPERTIES{};
    m_record.clsid = clsid;
    m_record.Flags = static_cast<APO_FLAG>(APO_FLAG_FRAMESPERSECOND_MUST_MATCH |
                                           APO_FLAG_BITSPERSAMPLE_MUST_MATCH);
    CopyText(friendlyName, m_record.szFriendlyName);
    CopyText(u"Copyright (c) 2026 VEL. All rights reserved.", m_record.szCopyrightInfo);
    m_record.u32MajorVersion = 1;
    m_record.u32MinorVersion = 0;
    m_record.u32MinInputConnections = 1;
    m_record.u32MaxInputConnections = 1;
    m_record.u32MinOutputConnections = 1;
    m_record.u32MaxOutputConnections = 1;
    m_record.u32MaxInstances = 0xFFFFFFFF;
    m_record.u32NumAPOInterfaces = 1;
    m_record.iidAPOInterfaceList[0] = apoInterface;
  }
  const APO_REG_PROPERTIES* Get() const { return &m_record; }

 private:
  // Texts are short literals; the cut keeps the terminator whatever they are.
  static void CopyText(std::u16string_view text, WCHAR (&target)[256]) {
    const std::size_t length = text.size() < 255 ? text.size() : 255;
    for (std::size_t i = 0; i < length; ++i) target[i] = static_cast<WCHAR>(text[i]);
    target[length] = 0;
  }

  APO_REG_PROPERTIES m_record;
};

// Made on first use, so that class factories running at load time find
// them built whatever the order of static construction.
const std::array<ZORAPOClassInfo, 7>& Classes() {
  static const RegProperties kPreBlue(
      {0x031392C9, 0x4725, 0x4F53, {0x9A, 0x62, 0xE7, 0x5D, 0x90, 0x2B, 0xA5, 0x53}}, u"VEL LFX APO",
      {0x509B8007, 0x7DCD, 0x4FA4, {0xA2, 0xDC, 0xE5, 0x62, 0x2F, 0xA2, 0x44, 0x15}});
  static const RegProperties kSFX(
      {0x07531B73, 0xE4CA, 0x4B94, {0x9D, 0x0E, 0xD3, 0xC9, 0xA7, 0x82, 0x5F, 0xE5}}, u"VEL SFX APO",
      {0x726F3A72, 0x58D3, 0x41DA, {0xBF, 0xC3, 0x01, 0xD9, 0xA1, 0xBB, 0x56, 0xD3}});
  static const RegProperties kMFX(
      {0xFCDD3010, 0xBB3F, 0x4B24, {0x80, 0x74, 0xA1, 0x8F, 0xC7, 0xD5, 0x58, 0xF7}}, u"VEL MFX APO",
      {0xF9250628, 0x912C, 0x4BA7, {0xAC, 0x51, 0xEA, 0x5F, 0xB3, 0xDC, 0xAB, 0x36}});
  static const RegProperties kEFX(
      {0x599C2638, 0xCC15, 0x4FFE, {0xB1, 0x6A, 0x92, 0x46, 0x26, 0x0D, 0x2D, 0xF7}}, u"VEL EFX APO",
      {0x19FD8331, 0x9776, 0x464D, {0xAE, 0x5B, 0x31, 0x4B, 0x5D, 0x85, 0x35, 0x0F}});
  static const RegProperties kOSFX(
      {0x3B909255, 0x8E8D, 0x4997, {0x8F, 0x8B, 0x4C, 0x55, 0x7F, 0x77, 0x4D, 0x5F}}, u"VEL OSFX APO",
      {0xFD556A4E, 0x7FA4, 0x4F95, {0x98, 0xA6, 0xCF, 0x08, 0x86, 0x46, 0x38, 0xAD}});
  static const RegProperties kOMFX(
      {0x27AFD1DB, 0x3891, 0x43EF, {0x98, 0x88, 0xCD, 0x55, 0x81, 0x27, 0xFD, 0x42}}, u"VEL OMFX APO",
      {0x6F4B2ADA, 0x43D2, 0x46CA, {0xAC, 0xD0, 0x0B, 0xFB, 0x8D, 0xC2, 0xC6, 0x75}});
  static const RegProperties kCapture(
      {0x8B247353, 0x92B7, 0x4588, {0x86, 0x0C, 0x6B, 0xB0, 0x7B, 0xD7, 0x45, 0x67}},
      u"ZOR LFX Capture APO",
      {0xCD5050A8, 0x734C, 0x4389, {0xBA, 0xF9, 0x0D, 0x29, 0xF6, 0x8A, 0x7E, 0xB3}});

  static const std::array<ZORAPOClassInfo, 7> classes = {{
      {kZORLocationPreBlue, "PreBlue", kPreBlue.Get()},
      {kZORLocationSFX, "SFX", kSFX.Get()},
      {kZORLocationMFX, "MFX", kMFX.Get()},
      {kZORLocationEFX, "EFX", kEFX.Get()},
      {kZORLocationOSFX, "OSFX", kOSFX.Get()},
      {kZORLocationOMFX, "OMFX", kOMFX.Get()},
      {kZORLocationCapture, "Capture", kCapture.Get()},
  }};
  return classes;
}

}  // namespace

std::span<const ZORAPOClassInfo> ZORAPOClasses() { return Classes(); }

const ZORAPOClassInfo& ZORAPOCaptureClass() { return Classes()[6]; }

const ZORAPOClassInfo* ZORAPORenderClass(uint32_t location) {
  return location < kZORRenderLocationCount ? &Classes()[location] : nullptr;
}

const char* ZORAPOLocationName(uint32_t location) {
  const ZORAPOClassInfo* info = ZORAPORenderClass(location);
  return info ? info->logName : nullptr;
}
