// The configuration file: its status contract, the document cache, which
// chains a location takes, control parsing and the mode lookups.
#include "config/zorapoconfigurationfile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "configfiles.h"
#include "support/zorlogcapture.h"

namespace {

using Status = ZORAPOConfigurationFile::Status;

std::string Root(const std::string& body) {
  return "<?xml version=\"1.0\"?>\n<zor_configuration>" + body + "</zor_configuration>";
}

std::string Control(const std::string& name, const std::string& value,
                    const std::string& attributes = "") {
  return "<control name=\"" + name + "\"" + attributes + ">" + value + "</control>";
}

std::string Identity(const std::string& mode, const std::string& speaker) {
  return Control("APO4-Operating Mode", mode) + Control("APO4-Speaker Type", speaker);
}

std::string Properties(const std::string& body) { return "<properties>" + body + "</properties>"; }

std::string Mode(const std::string& body, const std::string& attributes = "") {
  return "<operating_mode" + attributes + ">" + body + "</operating_mode>";
}

std::string MusicMode(const std::string& extra = "", const std::string& attributes = "") {
  return Mode(Identity("APO4-Music", "APO4-Internal Stereo") + extra, attributes);
}

std::string Text(const ZORUTSValueList& list, const char* name) {
  const ZORUTSValue* value = list.Find(name);
  return value != nullptr ? value->GetText() : "<missing>";
}

const ZORAPOModeId kMusic("APO4-Music", "APO4-Internal Stereo");

class ConfigurationFileTest : public ::testing::Test {
 protected:
  uint32_t LoadXml(const std::string& xml, uint32_t location = 1, uint32_t selector = 0) {
    return config.Load(files.Write(xml), selector, location);
  }

  ConfigFiles files;
  ZORAPOConfigurationFile config;
};

TEST_F(ConfigurationFileTest, WorkedExampleAtItsLocationAndAnother) {
  const std::string xml = Root(
      Properties(Control("Product Name", "Grand Tone") + Identity("APO4-Music", "APO4-Internal Stereo")) +
      MusicMode(Control("SFX:Corvo-TK Enable", "1", " public=\"true\"") +
                "<chain_v2 position=\"SFX\" input=\"Any\" output=\"Stereo;5.1 Surround\">"
                "<process tech_id=\"tk\" instance_id=\"SFX\"/>" +
                Control("SFX:Corvo-TK Enable", "0") + "</chain_v2>"));
  const std::u16string path = files.Write(xml);

  ZORLogCapture log;
  ASSERT_EQ(config.Load(path, 0, 1), Status::kStatusOk);
  EXPECT_TRUE(log.Contains("pXML->load 1\n"));
  EXPECT_TRUE(log.Contains("pXML->get_documentElement 0x"));
  EXPECT_EQ(config.GetProductName(), u"Grand Tone");
  EXPECT_EQ(config.GetDefaultMode(), kMusic);
  ASSERT_EQ(config.GetOperatingModes().size(), 1u);
  const ZORAPOOperatingMode& mode = *config.GetOperatingModes()[0];
  EXPECT_EQ(mode.GetModeId(), kMusic);
  EXPECT_EQ(mode.GetPublicControls().Size(), 1u);
  EXPECT_TRUE(mode.GetTunedControls().IsEmpty());  // the identity is taken out
  EXPECT_EQ(Text(mode.GetAllControls(), "SFX:Corvo-TK Enable"), "1");
  ASSERT_EQ(mode.GetChainDefinition().chains.size(), 1u);
  const ZORAPOChainDesc& chain = mode.GetChainDefinition().chains[0];
  EXPECT_EQ(chain.inputLayouts, kZORLayoutAny);
  EXPECT_EQ(chain.outputLayouts, 6u);
  EXPECT_TRUE(chain.isRender);
  ASSERT_EQ(chain.processes.size(), 1u);
  EXPECT_EQ(chain.processes[0].techId, "tk");
  EXPECT_EQ(chain.processes[0].instanceId, "SFX");
  EXPECT_EQ(chain.processes[0].hook, "");
  EXPECT_EQ(Text(chain.controls, "SFX:Corvo-TK Enable"), "0");

  // The same file at MFX: the same mode, with no chain.
  ZORAPOConfigurationFile atMfx;
  ASSERT_EQ(atMfx.Load(path, 0, 2), Status::kStatusOk);
  ASSERT_EQ(atMfx.GetOperatingModes().size(), 1u);
  EXPECT_EQ(atMfx.GetOperatingModes()[0]->GetModeId(), kMusic);
  EXPECT_TRUE(atMfx.GetOperatingModes()[0]->GetChainDefinition().chains.empty());
}

TEST_F(ConfigurationFileTest, UnreadableFilesAnswerSixAndLeaveTheObjectEmpty) {
  const std::string unreadable[] = {
      "",                                                   // empty file
      "<zor_configuration><properties>",                    // cut short
      "not xml at all",                                     //
      "<other>" + Properties(Control("Product Name", "P")) + "</other>",  // wrong root
      "<zor_configuration/>",                               // root without children
      "<zor_configuration></zor_configuration>",            //
      "<!-- comment first --><zor_configuration/>",         //
      "\xEF\xBB\xBF<zor_configuration>\x01</zor_configuration>",  // a BOM and text only
  };
  for (const std::string& xml : unreadable) {
    ZORAPOConfigurationFile fresh;
    EXPECT_EQ(fresh.Load(files.Write(xml), 0, 1), Status::kStatusUnreadable) << xml;
    EXPECT_TRUE(fresh.GetProperties().IsEmpty()) << xml;
    EXPECT_TRUE(fresh.GetProductName().empty()) << xml;
    EXPECT_TRUE(fresh.GetOperatingModes().empty()) << xml;
    EXPECT_FALSE(fresh.GetDefaultMode().IsDefined()) << xml;
  }
  // The file without `properties` kept its mode all the same.
  ZORAPOConfigurationFile withoutProperties;
  EXPECT_EQ(withoutProperties.Load(files.Write(Root(MusicMode())), 0, 1), Status::kStatusUnreadable);
  EXPECT_EQ(withoutProperties.GetOperatingModes().size(), 1u);

  ZORLogCapture log;
  EXPECT_EQ(config.Load(files.FreshPath().u16string(), 0, 1), Status::kStatusUnreadable);
  EXPECT_TRUE(log.Contains("pXML->load 0\n"));
  EXPECT_FALSE(log.Contains("get_documentElement"));
  // A directory is no file.
  EXPECT_EQ(config.Load(std::filesystem::temp_directory_path().u16string(), 0, 1),
            Status::kStatusUnreadable);
}

TEST_F(ConfigurationFileTest, StatusFollowsTheLastPropertiesOrModeInFileOrder) {
  const std::string failedMode = Mode(Control("APO4-Operating Mode", "APO4-Voice"));
  const std::string goodProperties = Properties(Control("Product Name", "P"));

  // Empty properties: 2, with the mode loaded and the default left unset.
  EXPECT_EQ(LoadXml(Root("<properties></properties>" + MusicMode())),
            Status::kStatusEmptyProperties);
  EXPECT_EQ(config.GetOperatingModes().size(), 1u);
  EXPECT_FALSE(config.GetDefaultMode().IsDefined());
  // Whitespace and no element is still empty; a comment is a child node.
  EXPECT_EQ(LoadXml(Root("<properties>\n  </properties>" + MusicMode())),
            Status::kStatusEmptyProperties);
  EXPECT_EQ(LoadXml(Root("<properties><!-- none --></properties>" + MusicMode())),
            Status::kStatusOk);

  // A failed mode is 3 unless a `properties` follows it.
  EXPECT_EQ(LoadXml(Root(goodProperties + MusicMode() + failedMode)), Status::kStatusModeFailed);
  EXPECT_EQ(config.GetOperatingModes().size(), 1u);  // the good one stays
  EXPECT_EQ(LoadXml(Root(failedMode + goodProperties + MusicMode())), Status::kStatusOk);
  EXPECT_EQ(config.GetOperatingModes().size(), 1u);
  // A good mode after a failed one does not clear the failure.
  EXPECT_EQ(LoadXml(Root(goodProperties + failedMode + MusicMode())), Status::kStatusModeFailed);
  // An empty `properties` after a failed mode says 2.
  EXPECT_EQ(LoadXml(Root(failedMode + "<properties/>")), Status::kStatusEmptyProperties);
  // A mode without any child node fails at once.
  EXPECT_EQ(LoadXml(Root(goodProperties + "<operating_mode auto_mic=\"true\"/>")),
            Status::kStatusModeFailed);
}

TEST_F(ConfigurationFileTest, LaterPropertiesReplaceEarlierOnes) {
  ASSERT_EQ(LoadXml(Root(Properties(Control("Product Name", "First") + Control("A", "1")) +
                         MusicMode() + Properties(Control("B", "2")))),
            Status::kStatusOk);
  EXPECT_EQ(Text(config.GetProperties(), "A"), "<missing>");
  EXPECT_EQ(Text(config.GetProperties(), "B"), "2");
  // The product name of the first stays: only a `properties` holding one sets it.
  EXPECT_EQ(config.GetProductName(), u"First");
}

TEST_F(ConfigurationFileTest, DefaultModeFromPropertiesElseFirstModeElseUntouched) {
  // The properties' identity stands even when no mode has it.
  ASSERT_EQ(LoadXml(Root(Properties(Identity("APO4-Movie", "APO4-Headphones")) + MusicMode())),
            Status::kStatusOk);
  EXPECT_EQ(config.GetDefaultMode(), ZORAPOModeId("APO4-Movie", "APO4-Headphones"));
  // Half an identity in the properties gives way to the first mode.
  ASSERT_EQ(LoadXml(Root(Properties(Control("APO4-Operating Mode", "APO4-Movie")) + MusicMode() +
                         Mode(Identity("APO4-Voice", "APO4-Internal Stereo")))),
            Status::kStatusOk);
  EXPECT_EQ(config.GetDefaultMode(), kMusic);
  // A failing load keeps the default of the last good one.
  ASSERT_EQ(LoadXml("<broken"), Status::kStatusUnreadable);
  EXPECT_EQ(config.GetDefaultMode(), kMusic);
  EXPECT_TRUE(config.GetOperatingModes().empty());

  ZORLogCapture log;
  ZORAPOConfigurationFile noModes;
  EXPECT_EQ(noModes.Load(files.Write(Root(Properties(Control("Product Name", "P")))), 0, 1),
            Status::kStatusOk);
  EXPECT_TRUE(log.Contains("SetDefaultMode returning false...no modes available.\n"));
  EXPECT_FALSE(noModes.GetDefaultMode().IsDefined());
}

TEST_F(ConfigurationFileTest, CacheParsesAPathOnceAndNeverRefreshes) {
  const std::filesystem::path path = files.FreshPath();
  ConfigFiles::Overwrite(path, Root(Properties(Control("Product Name", "Before")) + MusicMode()));
  ASSERT_EQ(config.Load(path.u16string(), 0, 1), Status::kStatusOk);

  // Changed on disk: the process keeps the first document.
  ConfigFiles::Overwrite(path, Root(Properties(Control("Product Name", "After"))));
  ZORAPOConfigurationFile second;
  ASSERT_EQ(second.Load(path.u16string(), 0, 1), Status::kStatusOk);
  EXPECT_EQ(second.GetProductName(), u"Before");
  // Deleted: still there.
  std::filesystem::remove(path);
  ASSERT_EQ(config.Load(path.u16string(), 0, 2), Status::kStatusOk);
  EXPECT_EQ(config.GetProductName(), u"Before");
  EXPECT_EQ(config.GetOperatingModes().size(), 1u);

  // A failed parse is not cached: the next load reads the file again.
  const std::filesystem::path later = files.FreshPath();
  ConfigFiles::Overwrite(later, "<zor_configuration>");
  EXPECT_EQ(config.Load(later.u16string(), 0, 1), Status::kStatusUnreadable);
  ConfigFiles::Overwrite(later, Root(Properties(Control("Product Name", "Fixed"))));
  EXPECT_EQ(config.Load(later.u16string(), 0, 1), Status::kStatusOk);
  EXPECT_EQ(config.GetProductName(), u"Fixed");
}

TEST_F(ConfigurationFileTest, ConcurrentFirstLoadsOfOnePathAgree) {
  std::string modes;
  for (int i = 0; i < 8; ++i) {
    modes += Mode(Identity("APO4-Mode" + std::to_string(i), "APO4-Internal Stereo") +
                  "<chain_v2 position=\"SFX\"><process tech_id=\"gain\"/></chain_v2>");
  }
  const std::u16string path = files.Write(Root(Properties(Control("Product Name", "P")) + modes));
  constexpr int kThreads = 4;
  std::vector<ZORAPOConfigurationFile> configs(kThreads);
  std::vector<uint32_t> statuses(kThreads, 99);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] { statuses[t] = configs[t].Load(path, 0, 1); });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(statuses[t], Status::kStatusOk);
    ASSERT_EQ(configs[t].GetOperatingModes().size(), 8u);
    EXPECT_EQ(configs[t].GetOperatingModes()[7]->GetChainDefinition().chains.size(), 1u);
  }
}

TEST_F(ConfigurationFileTest, LocationPicksChainOrExactChainV2Position) {
  const std::string xml = Root(
      Properties(Control("Product Name", "P")) +
      MusicMode("<chain><process tech_id=\"lfx\"/></chain>"
                "<chain_v2 position=\"SFX\"><process tech_id=\"sfx\"/></chain_v2>"
                "<chain_v2 position=\"OSFX\"><process tech_id=\"osfx\"/></chain_v2>"
                "<chain_v2 position=\"sfx\"><process tech_id=\"lower\"/></chain_v2>"
                "<chain_v2 position=\"\"><process tech_id=\"empty\"/></chain_v2>"
                "<chain_v2><process tech_id=\"none\"/></chain_v2>"
                "<chain_v2 position=\"PreBlue\"><process tech_id=\"preblue\"/></chain_v2>"
                "<chain_v2 position=\"Invalid APO location!\"><process tech_id=\"bad\"/></chain_v2>"));
  const std::u16string path = files.Write(xml);
  const auto techIds = [&](uint32_t location) {
    ZORAPOConfigurationFile loaded;
    EXPECT_EQ(loaded.Load(path, 0, location), Status::kStatusOk);
    std::vector<std::string> ids;
    for (const auto& chain : loaded.GetOperatingModes().at(0)->GetChainDefinition().chains) {
      ids.push_back(chain.processes.at(0).techId);
    }
    return ids;
  };
  using Ids = std::vector<std::string>;
  EXPECT_EQ(techIds(0), Ids{"lfx"});  // `chain` only, never a `chain_v2`, not even "PreBlue"
  EXPECT_EQ(techIds(1), Ids{"sfx"});
  EXPECT_EQ(techIds(4), Ids{"osfx"});
  EXPECT_EQ(techIds(2), Ids{});
  EXPECT_EQ(techIds(6), Ids{"bad"});
  EXPECT_EQ(techIds(0xFFFFFFFF), Ids{"bad"});
  EXPECT_STREQ(ZORAPOConfigurationFile::LocationName(5), "OMFX");
  EXPECT_STREQ(ZORAPOConfigurationFile::LocationName(6), "Invalid APO location!");
}

TEST_F(ConfigurationFileTest, ChainAttributesAndChildren) {
  const std::string chains =
      "<chain_v2 position=\"SFX\" input=\"Stereo,Mono\" output=\"Internal Stereo\" type=\"capture\">"
      "<process tech_id=\"a\" instance_id=\"SFX\" hook=\"pre\" unknown=\"x\"/>"
      "<process instance_id=\"no-tech\"/><process tech_id=\"\"/>"
      "<widget tech_id=\"not-a-process\"/>"
      "<process tech_id=\"b\"/>" +
      Control("SFX:Gain dB", "-3") + Control("", "dropped") + "<control name=\"empty\"/>" +
      "</chain_v2>"
      "<chain_v2 position=\"SFX\" input=\"Quad\" output=\"\" type=\"Capture\">"
      "<process tech_id=\"c\"/></chain_v2>"
      "<chain_v2 position=\"SFX\">" + Control("SFX:Only", "controls") + "</chain_v2>"
      "<chain_v2 position=\"SFX\"/>";
  ASSERT_EQ(LoadXml(Root(Properties(Control("Product Name", "P")) + MusicMode(chains))),
            Status::kStatusOk);
  const auto& defined = config.GetOperatingModes().at(0)->GetChainDefinition().chains;
  ASSERT_EQ(defined.size(), 2u);  // chains without a process disappear

  const ZORAPOChainDesc& first = defined[0];
  EXPECT_EQ(first.inputLayouts, 3u);
  EXPECT_EQ(first.outputLayouts, 2u);
  EXPECT_FALSE(first.isRender);
  ASSERT_EQ(first.processes.size(), 2u);
  EXPECT_EQ(first.processes[0].techId, "a");
  EXPECT_EQ(first.processes[0].instanceId, "SFX");
  EXPECT_EQ(first.processes[0].hook, "pre");
  EXPECT_EQ(first.processes[1].techId, "b");
  EXPECT_EQ(first.processes[1].instanceId, "");
  EXPECT_EQ(first.controls.Size(), 1u);
  EXPECT_EQ(Text(first.controls, "SFX:Gain dB"), "-3");

  // Tokens of no layout give 0, which nothing matches; an empty list is
  // every layout; only "capture" exactly makes a capture chain.
  const ZORAPOChainDesc& second = defined[1];
  EXPECT_EQ(second.inputLayouts, 0u);
  EXPECT_EQ(second.outputLayouts, kZORLayoutAny);
  EXPECT_TRUE(second.isRender);
  ZORAPOChainDesc found;
  EXPECT_FALSE(config.GetOperatingModes()[0]->GetChainDefinition().FindChain(
      kZORLayoutStereo, kZORLayoutStereo, found, true));
}

TEST_F(ConfigurationFileTest, ControlsLastValueWinsAndBadOnesAreDropped) {
  const std::string controls =
      Control("Twice", "first") + Control("Twice", "second") +
      "<control name=\"Mixed\">text<!-- note --></control>"
      "<control name=\"Element\">1<inner>2</inner></control>"
      "<control name=\"Spaced\">  padded value </control>"
      "<control name=\"Entity\">a &amp; b &lt;c&gt;</control>"
      "<control name=\"Cdata\"><![CDATA[<raw>]]></control>"
      "<control name=\"Empty\"></control>"
      "<control>nameless</control>" +
      Control("Case", "lower") + Control("CASE", "upper");
  ASSERT_EQ(LoadXml(Root(Properties(Control("Product Name", "P")) + MusicMode(controls))),
            Status::kStatusOk);
  const ZORUTSValueList& tuned = config.GetOperatingModes().at(0)->GetTunedControls();
  EXPECT_EQ(Text(tuned, "Twice"), "second");
  EXPECT_EQ(Text(tuned, "Mixed"), " note ");  // the last child node, a comment
  EXPECT_EQ(Text(tuned, "Element"), "inner");  // an element's value is its name
  EXPECT_EQ(Text(tuned, "Spaced"), "  padded value ");
  EXPECT_EQ(Text(tuned, "Entity"), "a & b <c>");
  EXPECT_EQ(Text(tuned, "Cdata"), "<raw>");
  EXPECT_EQ(Text(tuned, "Case"), "lower");
  EXPECT_EQ(Text(tuned, "CASE"), "upper");
  EXPECT_EQ(tuned.Find("Empty"), nullptr);
  EXPECT_EQ(tuned.Size(), 8u);
}

TEST_F(ConfigurationFileTest, PublicAndTunedSplitWithTunedWinningTheOverlay) {
  const std::string controls =
      Control("Shared", "public", " public=\"true\"") + Control("Shared", "tuned") +
      Control("UserOnly", "u", " public=\"true\"") + Control("TunedOnly", "t") +
      Control("NotPublic", "n", " public=\"TRUE\"") + Control("AlsoNot", "n", " public=\"yes\"");
  ASSERT_EQ(LoadXml(Root(Properties(Control("Product Name", "P")) + MusicMode(controls))),
            Status::kStatusOk);
  const ZORAPOOperatingMode& mode = *config.GetOperatingModes().at(0);
  EXPECT_EQ(mode.GetPublicControls().Size(), 2u);
  EXPECT_EQ(Text(mode.GetPublicControls(), "Shared"), "public");
  EXPECT_EQ(mode.GetTunedControls().Size(), 4u);
  EXPECT_EQ(mode.GetTunedControls().Find("APO4-Operating Mode"), nullptr);
  EXPECT_EQ(mode.GetTunedControls().Find("APO4-Speaker Type"), nullptr);
  const ZORUTSValueList& all = mode.GetAllControls();
  EXPECT_EQ(all.Size(), 5u);
  EXPECT_EQ(Text(all, "Shared"), "tuned");
  EXPECT_EQ(Text(all, "UserOnly"), "u");
  EXPECT_EQ(Text(all, "NotPublic"), "n");

  // The identity counts only among the tuned controls.
  EXPECT_EQ(LoadXml(Root(Properties(Control("Product Name", "P")) +
                         Mode(Control("APO4-Operating Mode", "APO4-Music") +
                              Control("APO4-Speaker Type", "APO4-Internal Stereo",
                                      " public=\"true\"")))),
            Status::kStatusModeFailed);
  EXPECT_TRUE(config.GetOperatingModes().empty());
  // The unset texts are no identity.
  EXPECT_EQ(LoadXml(Root(Properties(Control("Product Name", "P")) +
                         Mode(Identity("APO4-Undefined", "APO4-Internal Stereo")))),
            Status::kStatusModeFailed);
}

TEST_F(ConfigurationFileTest, AutoMicIsExactlyTrue) {
  ASSERT_EQ(LoadXml(Root(Properties(Control("Product Name", "P")) +
                         MusicMode("", " auto_mic=\"true\"") + MusicMode("", " auto_mic=\"TRUE\"") +
                         MusicMode("", " auto_mic=\"1\"") + MusicMode())),
            Status::kStatusOk);
  const auto& modes = config.GetOperatingModes();
  ASSERT_EQ(modes.size(), 4u);
  EXPECT_TRUE(modes[0]->GetAutoMic());
  EXPECT_FALSE(modes[1]->GetAutoMic());
  EXPECT_FALSE(modes[2]->GetAutoMic());
  EXPECT_FALSE(modes[3]->GetAutoMic());
}

TEST_F(ConfigurationFileTest, SelectorPicksWhichModesLoad) {
  const std::u16string path = files.Write(Root(
      Properties(Control("Product Name", "P")) +
      Mode(Identity("APO4-Plain", "APO4-S")) + Mode(Identity("APO4-Dsp", "APO4-S"), " selector=\"dsp\"") +
      Mode(Identity("APO4-Other", "APO4-S"), " selector=\"DSP\"") +
      Mode(Identity("APO4-EmptySelector", "APO4-S"), " selector=\"\"")));
  const auto names = [&](uint32_t selector) {
    std::vector<std::string> loaded;
    EXPECT_EQ(config.Load(path, selector, 1), Status::kStatusOk);
    EXPECT_EQ(config.GetSelector(), selector);
    for (const auto& mode : config.GetOperatingModes()) {
      loaded.push_back(mode->GetModeId().operatingMode.GetText());
    }
    return loaded;
  };
  using Names = std::vector<std::string>;
  EXPECT_EQ(names(0), (Names{"APO4-Plain", "APO4-EmptySelector"}));
  EXPECT_EQ(names(1), Names{"APO4-Dsp"});
  EXPECT_EQ(names(2), Names{});
}

TEST_F(ConfigurationFileTest, ProductNameIsWidenedFromUtf8AndTextLoadsLikeAFile) {
  const std::string xml = Root(Properties(Control("Product Name", "Gr\xC3\xA4nd \xE2\x99\xAA")) +
                               MusicMode("<chain_v2 position=\"MFX\"><process tech_id=\"x\"/></chain_v2>"));
  ASSERT_EQ(config.LoadText(xml, 0, 2), Status::kStatusOk);
  EXPECT_EQ(config.GetProductName(), u"Gr\u00E4nd \u266A");
  ZORAPOConfigurationFile fromFile;
  ASSERT_EQ(fromFile.Load(files.Write(xml), 0, 2), Status::kStatusOk);
  EXPECT_EQ(fromFile.GetProductName(), config.GetProductName());
  EXPECT_EQ(fromFile.GetOperatingModes().size(), config.GetOperatingModes().size());
  EXPECT_EQ(config.LoadText("", 0, 2), Status::kStatusUnreadable);
  EXPECT_TRUE(config.GetOperatingModes().empty());
}

TEST_F(ConfigurationFileTest, OversizedFileIsRefused) {
  std::string xml = Root(Properties(Control("Product Name", "P")) + MusicMode());
  xml.append(ZORAPOConfigurationFile::kMaxFileBytes, ' ');
  ZORLogCapture log;
  EXPECT_EQ(LoadXml(xml), Status::kStatusUnreadable);
  EXPECT_TRUE(log.Contains("too large"));
}

TEST_F(ConfigurationFileTest, DeepNestingIsAParseErrorNotACrash) {
  std::string deep;
  for (int i = 0; i < 5000; ++i) deep += "<a>";
  EXPECT_EQ(LoadXml(Root(Properties(Control("Product Name", "P")) + deep)),
            Status::kStatusUnreadable);
}

class ModeLookupTest : public ConfigurationFileTest {
 protected:
  // Modes in order, each marked by a tuned control "Tag".
  void LoadModes(const std::vector<std::string>& modes) {
    std::string body = Properties(Control("Product Name", "P"));
    for (const std::string& mode : modes) body += mode;
    ASSERT_EQ(LoadXml(Root(body)), Status::kStatusOk);
  }
  static std::string Tagged(const std::string& mode, const std::string& speaker,
                            const std::string& tag, bool autoMic = false) {
    return Mode(Identity(mode, speaker) + Control("Tag", tag), autoMic ? " auto_mic=\"true\"" : "");
  }
  static std::string TagOf(const ZORAPOOperatingMode& mode) {
    return Text(mode.GetAllControls(), "Tag");
  }
};

TEST_F(ModeLookupTest, FindModeWantsExactlyOneMatch) {
  LoadModes({Tagged("APO4-Music", "APO4-Internal Stereo", "speakers"),
             Tagged("APO4-Music", "APO4-Headphones", "headphones"),
             Tagged("APO4-Movie", "APO4-Headphones", "movie-1"),
             Tagged("APO4-Movie", "APO4-Headphones", "movie-2")});
  ZORAPOOperatingMode found;
  ASSERT_TRUE(config.FindMode(ZORAPOModeId("APO4-Music", "APO4-Headphones"), found));
  EXPECT_EQ(TagOf(found), "headphones");
  // Duplicates: false, and the out mode holds the last.
  EXPECT_FALSE(config.FindMode(ZORAPOModeId("APO4-Movie", "APO4-Headphones"), found));
  EXPECT_EQ(TagOf(found), "movie-2");
  EXPECT_FALSE(config.FindMode(ZORAPOModeId("APO4-Voice", "APO4-Headphones"), found));
  EXPECT_EQ(TagOf(found), "movie-2");  // untouched

  // The copy is deep: it does not hang on the configuration.
  ASSERT_TRUE(config.FindMode(kMusic, found));
  config = ZORAPOConfigurationFile();
  EXPECT_EQ(TagOf(found), "speakers");
  EXPECT_EQ(found.GetModeId(), kMusic);
}

TEST_F(ModeLookupTest, AutoMicCandidateOfTheSpeakerTypeOutranksTheExactMatch) {
  const ZORAPOModeId music("APO4-Music", "APO4-Headphones");
  LoadModes({Tagged("APO4-Music", "APO4-Headphones", "exact"),
             Tagged("APO4-Voice", "APO4-Internal Stereo", "other-speaker", true),
             Tagged("APO4-Voice", "APO4-Headphones", "candidate", true)});
  ZORAPOOperatingMode found;
  ASSERT_TRUE(config.FindAutoMicMode(music, found));
  EXPECT_EQ(TagOf(found), "candidate");
  // With no candidate of that speaker type, and no exact match, nothing.
  EXPECT_FALSE(config.FindAutoMicMode(ZORAPOModeId("APO4-Music", "APO4-Speakers"), found));
  ASSERT_TRUE(config.FindAutoMicMode(ZORAPOModeId("APO4-Voice", "APO4-Internal Stereo"), found));
  // An exact match with no other candidate of its speaker type: the fallback.
  EXPECT_EQ(TagOf(found), "other-speaker");
  ASSERT_TRUE(config.FindAutoMicMode(ZORAPOModeId("APO4-Movie", "APO4-Internal Stereo"), found));
  EXPECT_EQ(TagOf(found), "other-speaker");  // a candidate of the speaker type
}

TEST_F(ModeLookupTest, AutoMicExactMatchIsNoCandidateAndTwoCandidatesFail) {
  const ZORAPOModeId voice("APO4-Voice", "APO4-Headphones");
  LoadModes({Tagged("APO4-Voice", "APO4-Headphones", "exact-auto", true),
             Tagged("APO4-Music", "APO4-Headphones", "plain"),
             Tagged("APO4-Voice", "APO4-Headphones", "exact-later")});
  ZORAPOOperatingMode found;
  // Both exact matches are remembered, the later one wins; the auto_mic flag
  // of an exact match does not make it a candidate.
  ASSERT_TRUE(config.FindAutoMicMode(voice, found));
  EXPECT_EQ(TagOf(found), "exact-later");

  LoadModes({Tagged("APO4-Music", "APO4-Headphones", "exact"),
             Tagged("APO4-Voice", "APO4-Headphones", "first", true),
             Tagged("APO4-Call", "APO4-Headphones", "second", true)});
  EXPECT_FALSE(config.FindAutoMicMode(ZORAPOModeId("APO4-Music", "APO4-Headphones"), found));
  EXPECT_EQ(TagOf(found), "second");
  // Nothing of that speaker type and no exact match.
  EXPECT_FALSE(config.FindAutoMicMode(ZORAPOModeId("APO4-Music", "APO4-Internal Stereo"), found));
}

}  // namespace
