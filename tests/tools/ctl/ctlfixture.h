#pragma once
// velapo-ctl run in-process against a private corner of the settings store
// (a temporary root on POSIX, Wine's or Windows' registry otherwise), with
// one endpoint of the laptop example added through the tool itself. Each
// test gets its own endpoint GUID and meter names, so tests running at once
// never share a shared-memory block.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "registrytestarea.h"

struct CtlRun {
  int code = -1;
  std::string out;
  std::string err;
  nlohmann::json Json() const { return nlohmann::json::parse(out); }
};

class CtlFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // velapo-ctl with the store option (POSIX) in front of `args`.
  CtlRun Run(std::vector<std::string> args, const std::string& input = {});
  // The same with "-e <endpoint>" in front as well.
  CtlRun RunOn(std::vector<std::string> args, const std::string& input = {});
  std::vector<std::string> StoreArgs() const;

  std::string m_guid;     // the endpoint added for the test
  std::string m_adapter;  // its adapter name, unique to the test
  std::string m_examples = VELAPO_EXAMPLES_DIR;
  velapo::test::RegistryTestArea m_area;
  std::atomic<bool> m_interrupted{false};
};
