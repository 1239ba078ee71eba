#pragma once
// The command line of `velapo-host live` (docs/velapo-host.md).

#include <CLI/CLI.hpp>

#include "livehost.h"

// Adds the subcommand, whose options land in `options`.
CLI::App* AddLiveCommand(CLI::App& app, LiveOptions& options);
// After parsing: the location's code, and the example configuration of this
// build when none was given and the default is not at hand.
void ResolveLiveOptions(const CLI::App& command, LiveOptions& options);
