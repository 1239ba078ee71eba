#include "ctl/ctlsession.h"

#include <ostream>

#include "control/endpointcatalog.h"
#include "ctl/ctlexitcode.h"

ControlResult CtlSession::OpenEndpoint(ControlEndpoint& endpoint, bool withConfiguration) const {
  std::string guid = options.endpoint;
  if (guid.empty()) {
    if (!EndpointCatalog::GetDefault(guid)) {
      return ControlResult::Failure(
          "no endpoint given (--endpoint GUID) and there is no default render endpoint");
    }
  }
  if (ControlResult opened = endpoint.Open(guid, !options.capture); !opened) return opened;
  if (!withConfiguration) return ControlResult::Success();
  return endpoint.LoadConfiguration(options.configPath);
}

int CtlSession::Fail(const ControlResult& result, int code) const {
  err << "velapo-ctl: " << result.message << "\n";
  return code;
}

int CtlSession::Done(const ControlResult& result) const {
  if (!result) return Fail(result, kCtlExitFailed);
  if (options.json) {
    PrintJson({{"ok", true}, {"message", result.message}});
  } else if (!result.message.empty()) {
    out << result.message << "\n";
  }
  return kCtlExitOk;
}

void CtlSession::PrintJson(const nlohmann::json& value) const { out << value.dump(2) << "\n"; }
