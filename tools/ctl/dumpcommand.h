#pragma once
// velapo-ctl dump: decode a property blob from a registry value, a shared
// block or a file.
#include <string>

#include <CLI/CLI.hpp>

#include "ctl/ctlcommand.h"

class DumpCommand : public CtlCommand {
 public:
  explicit DumpCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  std::string m_value;
  std::string m_key;
  std::string m_block;
  std::string m_tuned;
  std::string m_file;
  bool m_fileIsBlock = false;
  uint32_t m_size = 0;
};
