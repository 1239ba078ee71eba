// The configuration file: its status contract, the document cache, which
// chains a location takes, control parsing and the mode lookups.
#include "config/zorapoconfigurationfile.h"

#include <gtest/gtest.h>

#include <thread>

#include "configfiles.h"
#include "support/zorlogcapture.h"
#include "values/zorpropertyset.h"

namespace {

using S = ZORAPOConfigurationFile::Status;
using Strings = std::vector<std::string>;

std::string Root(const std::string& body) {
  return "<zor_configuration>" + body + "</zor_configuration>";
}
std::string Control(const std::string& name, const std::string& value,
                    const std::string& attributes = "") {
  return "<control name=\"" + name + "\"" + attributes + ">" + value + "</control>";
}
std::string Mode(const std::string& op, const std::string& speaker, const std::string& body = "",
                 const std::string& attributes = "") {
  return "<operating_mode" + attributes + ">" + Control("APO4-Operating Mode", op) +
         Control("APO4-Speaker Type", speaker) + body + "</operating_mode>";
}
std::string Music(const std::string& body = "", const std::string& attributes = "") {
  return Mode("APO4-Music", "APO4-Internal Stereo", body, attributes);
}
const std::string kProperties = "<properties>" + Control("Product Name", "P") + "</properties>";
const std::string kFailedMode =
    "<operating_mode>" + Control("APO4-Operating Mode", "X") + "</operating_mode>";
const ZORAPOModeId kMusicId("APO4-Music", "APO4-Internal Stereo");

std::string Text(const ZORUTSValueList& list, const char* name) {
  const ZORUTSValue* value = list.Find(name);
  return value != nullptr ? value->GetText() : "<missing>";
}

class ConfigurationFileTest : public ::testing::Test {
 protected:
  uint32_t LoadXml(const std::string& xml, uint32_t location = 1, uint32_t selector = 0) {
    return config.Load(files.Write(xml), selector, location);
  }
  const ZORAPOOperatingMode& First() const { return *config.GetOperatingModes().at(0); }
  // Tech id of the first process of each chain of the first mode.
  Strings ChainTechIds() const {
    Strings ids;
    for (const auto& chain : First().GetChainDefinition().chains)
      ids.push_back(chain.processes.at(0).techId);
    return ids;
  }

  ConfigFiles files;
  ZORAPOConfigurationFile config;
};

TEST_F(ConfigurationFileTest, UnreadableFilesAnswerSix) {
  for (const std::string& xml :
       {std::string(), std::string("<zor_configuration><properties>"),
        "<other>" + kProperties + "</other>", std::string("<zor_configuration/>"),
        std::string("<!-- first --><zor_configuration></zor_configuration>")}) {
    ZORAPOConfigurationFile fresh;
    EXPECT_EQ(fresh.Load(files.Write(xml), 0, 1), S::kStatusUnreadable) << xml;
    EXPECT_TRUE(fresh.GetProperties().IsEmpty() && fresh.GetOperatingModes().empty()) << xml;
  }
  ZORLogCapture log;
  EXPECT_EQ(config.Load(files.FreshPath().u16string(), 0, 1), S::kStatusUnreadable);  // missing
  EXPECT_TRUE(log.Contains("pXML->load 0\n"));
  EXPECT_EQ(config.Load(std::filesystem::temp_directory_path().u16string(), 0, 1),
            S::kStatusUnreadable);
  std::string oversized = Root(kProperties);
  oversized.append(ZORAPOConfigurationFile::kMaxFileBytes, ' ');
  EXPECT_EQ(LoadXml(oversized), S::kStatusUnreadable);
  EXPECT_TRUE(log.Contains("too large"));
  std::string deep;
  for (int i = 0; i < 5000; ++i) deep += "<a>";
  EXPECT_EQ(LoadXml(Root(kProperties + deep)), S::kStatusUnreadable);
  EXPECT_EQ(config.LoadText("", 0, 2), S::kStatusUnreadable);
}

// XML snippets and what a load gives: status, a location's chains, a selector's modes.
TEST_F(ConfigurationFileTest, SnippetsGiveTheirStatusModesAndChains) {
  std::string chains = "<chain><process tech_id=\"lfx\"/></chain><chain_v2><process tech_id=\"none\"/></chain_v2>";
  for (const char* position : {"SFX", "OSFX", "sfx", "", "PreBlue", "Invalid APO location!"}) {
    chains += std::string("<chain_v2 position=\"") + position + "\"><process tech_id=\"" + position + "\"/></chain_v2>";
  }
  const std::string selectors = Mode("Plain", "S", "", " auto_mic=\"true\"") + Mode("Upper", "S", "", " auto_mic=\"TRUE\"") +
                                Mode("Dsp", "S", "", " selector=\"dsp\"") + Mode("Other", "S", "", " selector=\"DSP\"") +
                                Mode("EmptySelector", "S", "", " selector=\"\"");
  const std::string twoSpeakers = "<operating_mode>" + Control("APO4-Operating Mode", "M") +
                                  Control("APO4-Speaker Type", "S", " public=\"true\"") + "</operating_mode>";
  struct Row {
    std::string body;
    uint32_t status;
    Strings modes;  // operating modes read, "+mic" for auto_mic
    uint32_t location = 1, selector = 0;
    Strings chainTechIds = {};  // of the first mode's chains
  };
  const Row rows[] = {
      {Music(), S::kStatusUnreadable, {"APO4-Music"}},  // no properties: modes read, still 6
      {"<properties></properties>" + Music(), S::kStatusEmptyProperties, {"APO4-Music"}},
      {"<properties>\n </properties>" + Music(), S::kStatusEmptyProperties, {"APO4-Music"}},
      {"<properties><!-- a child node --></properties>" + Music(), S::kStatusOk, {"APO4-Music"}},
      {kProperties + Music() + kFailedMode, S::kStatusModeFailed, {"APO4-Music"}},
      {kFailedMode + kProperties + Music(), S::kStatusOk, {"APO4-Music"}},  // forgotten by a later properties
      {kProperties + kFailedMode + Music(), S::kStatusModeFailed, {"APO4-Music"}},
      {kFailedMode + "<properties/>", S::kStatusEmptyProperties, {}},
      {kProperties + "<operating_mode auto_mic=\"true\"/>", S::kStatusModeFailed, {}},
      {kProperties + Mode("APO4-Undefined", "S"), S::kStatusModeFailed, {}},
      {kProperties + twoSpeakers, S::kStatusModeFailed, {}},
      {kProperties + selectors, S::kStatusOk, {"Plain+mic", "Upper", "EmptySelector"}},
      {kProperties + selectors, S::kStatusOk, {"Dsp"}, 1, 1},
      {kProperties + selectors, S::kStatusOk, {}, 1, 2},
      {kProperties + Music(chains), S::kStatusOk, {"APO4-Music"}, 0, 0, {"lfx"}},  // never a chain_v2
      {kProperties + Music(chains), S::kStatusOk, {"APO4-Music"}, 1, 0, {"SFX"}},  // "OSFX" holds "SFX" but isn't it
      {kProperties + Music(chains), S::kStatusOk, {"APO4-Music"}, 4, 0, {"OSFX"}},
      {kProperties + Music(chains), S::kStatusOk, {"APO4-Music"}, 2, 0, {}},
      {kProperties + Music(chains), S::kStatusOk, {"APO4-Music"}, 6, 0, {"Invalid APO location!"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.body.substr(0, 200));
    ZORAPOConfigurationFile fresh;
    EXPECT_EQ(fresh.Load(files.Write(Root(row.body)), row.selector, row.location), row.status);
    EXPECT_EQ(fresh.GetSelector(), row.selector);
    Strings modes, techIds;
    for (const auto& mode : fresh.GetOperatingModes()) {
      modes.push_back(mode->GetModeId().operatingMode.GetText() + (mode->GetAutoMic() ? "+mic" : ""));
    }
    EXPECT_EQ(modes, row.modes);
    if (row.status == S::kStatusEmptyProperties) {
      EXPECT_FALSE(fresh.GetDefaultMode().IsDefined());  // unset, though a mode was read
    }
    if (fresh.GetOperatingModes().empty()) continue;
    for (const auto& chain : fresh.GetOperatingModes()[0]->GetChainDefinition().chains) {
      techIds.push_back(chain.processes.at(0).techId);
    }
    if (row.body.find("<chain") != std::string::npos) {
      EXPECT_EQ(techIds, row.chainTechIds);
    }
  }
}

TEST_F(ConfigurationFileTest, ConcurrentFirstLoadsOfOnePathAgree) {
  std::string modes;
  for (int i = 0; i < 8; ++i) {
    modes += Mode(std::string("M").append(std::to_string(i)), "S",  // not "M" + ...: GCC 12 -Wrestrict
                  "<chain_v2 position=\"SFX\"><process tech_id=\"g\"/></chain_v2>");
  }
  const std::u16string path = files.Write(Root(kProperties + modes));
  std::vector<ZORAPOConfigurationFile> configs(4);
  std::vector<uint32_t> statuses(configs.size(), 99);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < configs.size(); ++t) {
    threads.emplace_back([&, t] { statuses[t] = configs[t].Load(path, 0, 1); });
  }
  for (auto& thread : threads) thread.join();
  for (size_t t = 0; t < configs.size(); ++t) {
    EXPECT_EQ(statuses[t], S::kStatusOk);
    ASSERT_EQ(configs[t].GetOperatingModes().size(), 8u);
    EXPECT_EQ(configs[t].GetOperatingModes()[7]->GetChainDefinition().chains.size(), 1u);
  }
}

TEST_F(ConfigurationFileTest, ChainAttributesAndChildren) {
  const std::string chains =
      "<chain_v2 position=\"SFX\" input=\"Stereo,Mono\" output=\"Internal Stereo\" "
      "type=\"capture\">"
      "<process tech_id=\"a\" instance_id=\"I\" hook=\"h\"/><process instance_id=\"no-tech\"/><process "
      "tech_id=\"\"/>"
      "<widget tech_id=\"w\"/><process tech_id=\"b\"/>" +
      Control("I:Gain", "-3") + Control("", "dropped") +
      "</chain_v2>"
      "<chain_v2 position=\"SFX\" input=\"Quad\" output=\"\" type=\"Capture\"><process "
      "tech_id=\"c\"/></chain_v2>"
      "<chain_v2 position=\"SFX\">" +
      Control("I:Only", "controls") + "</chain_v2><chain_v2 position=\"SFX\"/>";
  ASSERT_EQ(LoadXml(Root(kProperties + Music(chains))), S::kStatusOk);
  EXPECT_EQ(ChainTechIds(), (Strings{"a", "c"}));  // chains without a process disappear
  const ZORAPOChainDesc& first = First().GetChainDefinition().chains[0];
  EXPECT_EQ(first.inputLayouts, 3u);
  EXPECT_EQ(first.outputLayouts, 2u);
  EXPECT_FALSE(first.isRender);
  ASSERT_EQ(first.processes.size(), 2u);
  EXPECT_EQ(first.processes[1].techId, "b");
  EXPECT_EQ(first.processes[0].hook, "h");
  EXPECT_EQ(first.controls.Size(), 1u);
  // Tokens of no layout give 0, which nothing matches; an empty list is any
  // layout; only "capture" exactly makes a capture chain.
  const ZORAPOChainDesc& second = First().GetChainDefinition().chains[1];
  EXPECT_EQ(second.inputLayouts, 0u);
  EXPECT_EQ(second.outputLayouts, kZORLayoutAny);
  EXPECT_TRUE(second.isRender);
}

TEST_F(ConfigurationFileTest, ControlsLastChildNodeWinsAndPublicLosesTheOverlay) {
  const std::string controls =
      Control("Twice", "first") + Control("Twice", "second") +
      Control("Mixed", "text<!-- note -->") + Control("Element", "1<inner>2</inner>") +
      Control("Spaced", " padded ") + Control("Entity", "a &amp; &lt;b&gt;") +
      Control("Cdata", "<![CDATA[<raw>]]>") + Control("Empty", "") + "<control>nameless</control>" +
      Control("Case", "lower") + Control("CASE", "upper") +
      Control("Shared", "public", " public=\"true\"") + Control("Shared", "tuned") +
      Control("UserOnly", "u", " public=\"true\"") + Control("NotPublic", "n", " public=\"TRUE\"");
  ASSERT_EQ(LoadXml(Root(kProperties + Music(controls))), S::kStatusOk);
  const ZORUTSValueList& tuned = First().GetTunedControls();
  EXPECT_EQ(Text(tuned, "Twice"), "second");
  EXPECT_EQ(Text(tuned, "Mixed"), " note ");   // a comment is the last child
  EXPECT_EQ(Text(tuned, "Element"), "inner");  // an element's value is its name
  EXPECT_EQ(Text(tuned, "Spaced"), " padded ");
  EXPECT_EQ(Text(tuned, "Entity"), "a & <b>");
  EXPECT_EQ(Text(tuned, "Cdata"), "<raw>");
  EXPECT_EQ(Text(tuned, "CASE"), "upper");
  EXPECT_EQ(tuned.Find("Empty"), nullptr);
  EXPECT_EQ(tuned.Size(), 10u);
  EXPECT_EQ(First().GetPublicControls().Size(), 2u);
  EXPECT_EQ(Text(First().GetPublicControls(), "Shared"), "public");
  EXPECT_EQ(Text(First().GetAllControls(), "Shared"), "tuned");
  EXPECT_EQ(Text(First().GetAllControls(), "UserOnly"), "u");
  EXPECT_EQ(First().GetAllControls().Size(), 11u);
}

TEST_F(ConfigurationFileTest, FindModeWantsExactlyOneMatchAndCopiesDeeply) {
  const auto tagged = [](const char* op, const char* speaker, const char* tag, bool mic = false) {
    return Mode(op, speaker, Control("Tag", tag), mic ? " auto_mic=\"true\"" : "");
  };
  ASSERT_EQ(
      LoadXml(Root(kProperties + tagged("APO4-Music", "APO4-Internal Stereo", "speakers") +
                   tagged("Movie", "Phones", "movie-1") + tagged("Movie", "Phones", "movie-2"))),
      S::kStatusOk);
  ZORAPOOperatingMode found;
  EXPECT_FALSE(config.FindMode(ZORAPOModeId("Movie", "Phones"), found));
  EXPECT_EQ(Text(found.GetAllControls(), "Tag"), "movie-2");  // duplicates: the last, and false
  EXPECT_FALSE(config.FindMode(ZORAPOModeId("Voice", "Phones"), found));
  EXPECT_EQ(Text(found.GetAllControls(), "Tag"), "movie-2");  // untouched
  ASSERT_TRUE(config.FindMode(kMusicId, found));
  config = ZORAPOConfigurationFile();
  EXPECT_EQ(Text(found.GetAllControls(), "Tag"), "speakers");

  // Auto-microphone: a candidate of the speaker type beats the exact match;
  // an exact match with auto_mic set is no candidate; two candidates fail.
  const auto autoMic = [&](const std::string& modes, const ZORAPOModeId& id) {
    EXPECT_EQ(LoadXml(Root(kProperties + modes)), S::kStatusOk);
    ZORAPOOperatingMode out;
    const bool ok = config.FindAutoMicMode(id, out);
    return (ok ? "" : "false:") + Text(out.GetAllControls(), "Tag");
  };
  const ZORAPOModeId music("Music", "Phones");
  const std::string exact = tagged("Music", "Phones", "exact");
  EXPECT_EQ(autoMic(exact + tagged("Voice", "Speakers", "other", true) +
                        tagged("Voice", "Phones", "mic", true),
                    music),
            "mic");
  EXPECT_EQ(autoMic(exact + tagged("Voice", "Speakers", "other", true), music), "exact");
  EXPECT_EQ(autoMic(tagged("Music", "Phones", "exact-mic", true) +
                        tagged("Music", "Phones", "exact-later"),
                    music),
            "exact-later");
  EXPECT_EQ(
      autoMic(exact + tagged("Voice", "Phones", "a", true) + tagged("Call", "Phones", "b", true),
              music),
      "false:b");
  EXPECT_EQ(autoMic(tagged("Voice", "Speakers", "other", true), music), "false:<missing>");
}

}  // namespace
