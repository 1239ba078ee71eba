#pragma once
// The exit codes of velapo-ctl, which scripts rely on (docs/velapo-ctl.md).
enum CtlExitCode : int {
  kCtlExitOk = 0,
  kCtlExitFailed = 1,         // the operation failed; the message says why
  kCtlExitUsage = 2,          // the command line is wrong
  kCtlExitCheckFindings = 3,  // check: the file loads, but controls reach nothing
  kCtlExitNotLoaded = 4,      // check: the configuration does not load
};
