#include "ctl/dumpcommand.h"

#include <fstream>
#include <iterator>
#include <ostream>

#include "control/blobdecoder.h"
#include "control/controlcontext.h"
#include "control/controlpanel.h"
#include "control/sharedblocksnapshot.h"
#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "system/zorapotunedsettings.h"
#include "values/zorpropertysetsharedmem.h"

namespace {

ControlResult ReadValue(const CtlSession& session, const std::string& keyPath,
                        const std::string& valueName, std::vector<uint8_t>& bytes) {
  std::u16string path = zor::os::NarrowToWide(keyPath);
  if (path.empty()) {
    ControlEndpoint endpoint;
    if (ControlResult opened = session.OpenEndpoint(endpoint, false); !opened) return opened;
    path = endpoint.Info().GetSettingsKeyPath();
  }
  zor::os::RegKey key;
  zor::os::RegStatus status = zor::os::RegKey::Open(path, zor::os::kKeyQueryValue, key);
  zor::os::RegType type = zor::os::RegType::None;
  if (status == zor::os::RegStatus::Ok) status = key.ReadValue(zor::os::NarrowToWide(valueName), type, bytes);
  if (status != zor::os::RegStatus::Ok) {
    return ControlResult::Failure("cannot read value '" + valueName + "' under " +
                                  zor::os::Utf16ToUtf8(path) + " in " +
                                  ControlContext::StoreDescription() + " (" +
                                  zor::os::RegStatusName(status) + ")");
  }
  if (type != zor::os::RegType::Binary) {
    return ControlResult::Failure("value '" + valueName + "' is of registry type " +
                                  std::to_string(static_cast<uint32_t>(type)) +
                                  ", not REG_BINARY: no property blob");
  }
  return ControlResult::Success();
}

ControlResult ReadFile(const std::string& file, std::vector<uint8_t>& bytes) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return ControlResult::Failure("cannot open " + file);
  bytes.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  if (stream.bad()) return ControlResult::Failure("cannot read " + file);
  return ControlResult::Success();
}

}  // namespace

DumpCommand::DumpCommand(CLI::App& app) {
  m_command = app.add_subcommand("dump", "Decode a property blob: a registry value, a shared block or a file");
  auto* sources = m_command->add_option_group("source", "Where the blob is")->require_option(1);
  sources->add_option("--value", m_value,
                      "A REG_BINARY value under the endpoint's settings key (or --key), "
                      "e.g. VelApoCurrOpMode");
  sources->add_option("--block", m_block, "A shared settings block by name, e.g. Global\\{GUID}ApoOpMode:...");
  sources->add_option("--tuned", m_tuned, "The tuned block of a mode of the endpoint");
  sources->add_option("--file", m_file, "A file holding a blob (or a block image with --block-layout)");
  m_command->add_option("--key", m_key, "The key of --value under HKEY_LOCAL_MACHINE");
  m_command->add_flag("--block-layout", m_fileIsBlock, "The file starts with the block's 4-byte length");
  m_command->add_option("--size", m_size, "Size of the shared block (default 65536)");
}

int DumpCommand::Run(const CtlSession& session) {
  std::vector<uint8_t> bytes;
  bool isBlock = false;
  std::string source;
  ControlResult read = ControlResult::Success();
  const uint32_t size = m_size != 0 ? m_size : ZORPropertySetSharedMem::kDefaultSize;
  if (!m_value.empty()) {
    source = "value " + m_value;
    read = ReadValue(session, m_key, m_value, bytes);
  } else if (!m_file.empty()) {
    source = "file " + m_file;
    isBlock = m_fileIsBlock;
    read = ReadFile(m_file, bytes);
  } else {
    std::u16string name = zor::os::NarrowToWide(m_block);
    if (!m_tuned.empty()) {
      ControlEndpoint endpoint;
      ZORAPOOperatingMode mode;
      read = session.OpenEndpoint(endpoint, true);
      if (read) read = ControlPanel(endpoint).PickMode(m_tuned, mode);
      if (read) {
        name = ZORAPOTunedSettings::BlockName(endpoint.Info().GetEndpointGuid().Text(), mode.GetModeId());
      }
    }
    source = "block " + zor::os::Utf16ToUtf8(name);
    isBlock = true;
    if (read) read = SharedBlockSnapshot::Take(name, size, ZORPropertySetSharedMem::kMutexSuffix, bytes);
  }
  if (!read) return session.Fail(read, kCtlExitFailed);
  const DecodedBlob blob = isBlock ? BlobDecoder::DecodeBlock(bytes) : BlobDecoder::Decode(bytes);
  if (session.options.json) {
    nlohmann::json records = nlohmann::json::array();
    for (const DecodedRecord& record : blob.records) {
      records.push_back({{"offset", record.offset}, {"name", record.name}, {"kind", record.kind}, {"value", record.text}});
    }
    session.PrintJson({{"source", source}, {"bytes", blob.bytes}, {"complete", blob.complete},
                       {"problem", blob.problem}, {"records", records}});
  } else {
    session.out << source << ": " << blob.bytes << " bytes, " << blob.records.size() << " records\n";
    for (const DecodedRecord& record : blob.records) {
      session.out << "  @" << record.offset << "  " << record.name << " (" << record.kind << ") = "
                  << record.text << "\n";
    }
  }
  if (!blob.complete) return session.Fail(ControlResult::Failure(source + ": " + blob.problem), kCtlExitFailed);
  return kCtlExitOk;
}
