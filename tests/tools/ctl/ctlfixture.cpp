#include "ctlfixture.h"

#include <cstdio>
#include <functional>
#include <random>

#include "control/controlcontext.h"
#include "ctl/ctlapp.h"

void CtlFixture::SetUp() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  // Random as well as named, so two builds' runs of one test never meet.
  const size_t hash = std::hash<std::string>{}(std::string(info->test_suite_name()) + info->name() +
                                               std::to_string(std::random_device{}()));
  char guid[64];
  std::snprintf(guid, sizeof guid, "{5E1A0C71-0000-4000-8000-%012llX}",
                static_cast<unsigned long long>(hash & 0xFFFFFFFFFFFFull));
  m_guid = guid;
  m_adapter = "ctl-test-" + m_guid.substr(25, 12);
  Run({"endpoints", "remove", m_guid, "--purge"});  // what an aborted run left
  const CtlRun added = Run({"endpoints", "add", m_guid, "--config", m_examples + "/laptop.xml",
                            "--adapter", m_adapter, "--description", "Speakers"});
  ASSERT_EQ(added.code, 0) << added.err;
}

void CtlFixture::TearDown() { Run({"endpoints", "remove", m_guid, "--purge"}); }

std::vector<std::string> CtlFixture::StoreArgs() const {
  if (!ControlContext::StoreRootSelectable()) return {};
  return {"--store", m_area.Root()};
}

CtlRun CtlFixture::Run(std::vector<std::string> args, const std::string& input) {
  std::vector<std::string> all = StoreArgs();
  all.insert(all.end(), args.begin(), args.end());
  std::ostringstream out;
  std::ostringstream err;
  std::istringstream in(input);
  CtlRun run;
  run.code = CtlApp::Run(all, out, err, in, m_interrupted);
  run.out = out.str();
  run.err = err.str();
  return run;
}

CtlRun CtlFixture::RunOn(std::vector<std::string> args, const std::string& input) {
  args.insert(args.begin(), {"-e", m_guid});
  return Run(std::move(args), input);
}
