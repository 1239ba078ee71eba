// velapo-ctl devices and input-level: the list of capture devices, a level
// read from an ALSA file-plugin device this test defines, and clear failures
// for names that match nothing and devices that cannot be opened.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <tuple>
#include <fstream>
#include <vector>

#include "ctlfixture.h"
#include "platform/com.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

class CtlDevices : public CtlFixture {
 protected:
  void SetUp() override {
    CtlFixture::SetUp();
#if !defined(_WIN32)
    // Named by the GUID's random part: its prefix is the same in every test,
    // and a neighbour's tear-down must not take this test's files.
    m_dir = std::filesystem::temp_directory_path() / ("velapo-ctl-alsa-" + m_guid.substr(25, 12));
    std::filesystem::create_directories(m_dir);
    // A steady quarter of full scale, long enough to outlast the tool's wait
    // for a first reading: the meter's capture runs from the device's opening
    // and drops what a slow start leaves behind, as a device would.
    std::vector<float> level(2 * 48000 * 8, 0.25f);
    std::ofstream(m_dir / "level.raw", std::ios::binary)
        .write(reinterpret_cast<const char*>(level.data()), static_cast<std::streamsize>(level.size() * 4));
    std::ofstream(m_dir / "asound.conf")
        << "pcm.velapo_level {\n type file\n slave.pcm { type null }\n file \"/dev/null\"\n infile \""
        << (m_dir / "level.raw").string() << "\"\n format \"raw\"\n}\n";
    ::setenv("ALSA_CONFIG_PATH", (m_dir / "asound.conf").c_str(), 1);
    m_capture = zor::os::Utf8ToUtf16(m_guid);
    AddCapture(m_capture, u"Level Microphone", u"velapo_level");
    AddCapture(m_other, u"Broken Microphone", u"velapo_missing");
#endif
  }
  void TearDown() override {
    for (const std::u16string& guid : {m_capture, m_other}) {
      zor::os::RegKey flow;
      if (zor::os::RegKey::Open(kCapture, zor::os::kKeyAllAccess, flow) == zor::os::RegStatus::Ok) {
        flow.DeleteSubKeyTree(guid);
      }
    }
    std::filesystem::remove_all(m_dir);
    CtlFixture::TearDown();
  }
  static void AddCapture(const std::u16string& guid, std::u16string_view name, std::u16string_view device) {
    zor::os::RegKey key;
    ASSERT_EQ(zor::os::RegKey::Create(kCapture + u"\\" + guid, zor::os::kKeyAllAccess, key), zor::os::RegStatus::Ok);
    key.WriteDword(u"DeviceState", DEVICE_STATE_ACTIVE);
    zor::os::RegKey properties;
    ASSERT_EQ(key.CreateSubKey(u"Properties", zor::os::kKeyAllAccess, properties), zor::os::RegStatus::Ok);
    properties.WriteValue(zor::com::PropertyKeyText(PKEY_Device_FriendlyName), zor::os::RegType::Sz,
                          velapo::test::Utf16Bytes(name));
    properties.WriteValue(u"{7a8b74c8-fa66-4460-8542-d6119c59e9d4},16", zor::os::RegType::Sz,
                          velapo::test::Utf16Bytes(device));
  }

  static inline const std::u16string kCapture =
      u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture";
  std::u16string m_capture;
  std::u16string m_other = u"{5E1A0C71-C11C-4000-8000-0000000DE71C}";
  std::filesystem::path m_dir;
};

TEST_F(CtlDevices, HelpAndBadCommandLinesHaveTheirExitCodesAndSayWhy) {
  const std::tuple<std::vector<std::string>, int, const char*> table[] = {
      {{"devices", "--help"}, 0, ""},
      {{"input-level", "--help"}, 0, ""},
      {{"input-level"}, 2, "device is required"},
      {{"devices", "--seconds", "x"}, 2, "--seconds"},
      {{"input-level", "Nobody's Microphone", "--once"}, 1,
       "no active capture device is named 'Nobody's Microphone'"},
  };
  for (const auto& [args, code, message] : table) {
    const CtlRun run = Run(args);
    EXPECT_EQ(run.code, code) << args[0] << " " << args.back();
    EXPECT_THAT(run.err, ::testing::HasSubstr(message));
  }
}

#if !defined(_WIN32)
TEST_F(CtlDevices, DevicesListsCaptureEndpointsAndInputLevelReadsThePeakOrSaysWhyNot) {
  const CtlRun list = Run({"--json", "devices"});
  ASSERT_EQ(list.code, 0) << list.err;
  const nlohmann::json devices = list.Json();
  const auto ours = std::find_if(devices.begin(), devices.end(),
                                 [&](const nlohmann::json& d) { return d["id"] == "{0.0.1.00000000}." + m_guid; });
  ASSERT_NE(ours, devices.end()) << list.out;
  EXPECT_EQ((*ours)["name"], "Level Microphone");
  EXPECT_EQ((*ours)["state"], "active");
  EXPECT_EQ((*ours)["code"], 3);
  const CtlRun run = Run({"--json", "input-level", "level microphone", "--once"});
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_NEAR(run.Json()["peak"].get<double>(), 0.25, 1e-6);
  EXPECT_NEAR(run.Json()["db"].get<double>(), -12.04, 0.01);
  const CtlRun broken = Run({"input-level", "Broken Microphone", "--once"});
  EXPECT_EQ(broken.code, 1);
  EXPECT_THAT(broken.err, ::testing::HasSubstr("capture device 'Broken Microphone' cannot be opened"));
}
#endif

}  // namespace
