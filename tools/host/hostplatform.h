#pragma once
// The little velapo-host needs of the platform besides the store root
// (hostendpoint.h): whether a stream is a terminal, for the progress bar,
// and the null device, to silence a child program.

#include <cstdio>

bool IsTerminal(FILE* stream);
const char* NullDevice();
