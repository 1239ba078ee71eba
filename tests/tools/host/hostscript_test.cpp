// The script parser: every action form, every refusal naming its line, and times in any unit reading the same.
#include "hostscript.h"

#include <gtest/gtest.h>


namespace {

struct GoodLine {
  const char* text;
  uint64_t timeUs;
  ScriptActionKind kind;
  const char* describe;
};

class ScriptGoodLines : public ::testing::TestWithParam<GoodLine> {};

TEST_P(ScriptGoodLines, ParseAndDescribeThemselves) {
  const GoodLine& line = GetParam();
  HostScript script;
  std::string error;
  ASSERT_TRUE(script.Parse(std::string("# header\n\n") + line.text + "\n", error)) << error;
  ASSERT_EQ(script.Actions().size(), 1u);
  const ScriptAction& action = script.Actions()[0];
  EXPECT_EQ(action.timeUs, line.timeUs);
  EXPECT_EQ(action.kind, line.kind);
  EXPECT_EQ(action.line, 3u);
  EXPECT_EQ(action.Describe(), line.describe);
  // What Describe prints after the time parses back to the same action.
  ASSERT_TRUE(script.Parse("0 " + action.Describe(), error)) << error;
  EXPECT_EQ(script.Actions()[0].Describe(), line.describe);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, ScriptGoodLines,
    ::testing::Values(
        GoodLine{"1 mode APO4-Movie", 1000000, ScriptActionKind::Mode, "mode APO4-Movie"},
        GoodLine{"1.5s mode Music / APO4-Internal Stereo  # speakers", 1500000, ScriptActionKind::Mode,
                 "mode Music / APO4-Internal Stereo"},
        GoodLine{"250ms public SFX-EQ:PEQ-Band1 Gain = -300", 250000, ScriptActionKind::Public,
                 "public SFX-EQ:PEQ-Band1 Gain = -300"},
        GoodLine{"\t2.000001 global APO4-Process Enable=0", 2000001, ScriptActionKind::Global,
                 "global APO4-Process Enable = 0"},
        GoodLine{"3 tune open", 3000000, ScriptActionKind::TuneOpen, "tune open"},
        GoodLine{"3 tune MFX-Volume:Gain-Level = -1200", 3000000, ScriptActionKind::Tune,
                 "tune MFX-Volume:Gain-Level = -1200"},
        GoodLine{"3 tune-mode -2", 3000000, ScriptActionKind::TuneMode, "tune-mode -2"},
        GoodLine{"4 sysfx off", 4000000, ScriptActionKind::SysFx, "sysfx off"},
        GoodLine{"0.5ms stall 10000", 500, ScriptActionKind::Stall, "stall 10000"}));

struct BadScript {
  const char* text;
  const char* error;
};

class ScriptBadLines : public ::testing::TestWithParam<BadScript> {};

TEST_P(ScriptBadLines, FailNamingTheLineAndKeepNothing) {
  HostScript script;
  std::string error;
  ASSERT_TRUE(script.Parse("1 mode Music\n", error));
  EXPECT_FALSE(script.Parse(GetParam().text, error));
  EXPECT_EQ(error, GetParam().error);
  EXPECT_TRUE(script.Actions().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, ScriptBadLines,
    ::testing::Values(
        BadScript{"1 mode Music\nsoon mode Movie", "line 2: 'soon' is not a time (e.g. 1.5, 1.5s, 1500ms)"},
        BadScript{"-1 stall 5", "line 1: '-1' is not a time (e.g. 1.5, 1.5s, 1500ms)"},
        BadScript{"1. stall 5", "line 1: '1.' is not a time (e.g. 1.5, 1.5s, 1500ms)"},
        BadScript{"86401 stall 5", "line 1: '86401' is not a time (e.g. 1.5, 1.5s, 1500ms)"},
        BadScript{"2 stall 5\n1 stall 5", "line 2: time goes back (actions must be in order)"},
        BadScript{"1", "line 1: a time without an action"},
        BadScript{"1 jump 3", "line 1: unknown action 'jump' (mode, public, global, tune, tune-mode, sysfx, stall)"},
        BadScript{"1 mode", "line 1: expected 'mode <operating mode> [/ <speaker type>]'"},
        BadScript{"1 mode Music /", "line 1: expected 'mode <operating mode> [/ <speaker type>]'"},
        BadScript{"1 public Gain", "line 1: expected '<name> = <value>'"},
        BadScript{"1 global = 0", "line 1: the setting has no name"},
        BadScript{"1 tune Gain =", "line 1: the setting has no value"},
        BadScript{"1 tune-mode 2147483648", "line 1: expected 'tune-mode <number>'"},
        BadScript{"1 sysfx maybe", "line 1: expected 'sysfx on' or 'sysfx off'"},
        BadScript{"1 stall 0", "line 1: expected 'stall <milliseconds>' from 1 to 10000"},
        BadScript{"1 stall 10001", "line 1: expected 'stall <milliseconds>' from 1 to 10000"},
        BadScript{"1 stall 5\x01", "line 1: holds a control character"}));

TEST(HostScript, BoundsLinesNamesAndActions) {
  HostScript script;
  std::string error;
  EXPECT_FALSE(script.Parse("1 public " + std::string(256, 'n') + " = 1", error));
  EXPECT_EQ(error, "line 1: name or value longer than 255 bytes");
  EXPECT_FALSE(script.Parse("# " + std::string(HostScript::kMaxLineBytes, 'x'), error));
  EXPECT_EQ(error, "line 1: longer than 4096 bytes");
  std::string many;
  for (size_t i = 0; i <= HostScript::kMaxActions; ++i) many += "1 stall 1\n";
  EXPECT_FALSE(script.Parse(many, error));
  EXPECT_EQ(error, "line 10001: more than 10000 actions");
}

}  // namespace
