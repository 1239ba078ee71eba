#pragma once
// Counts operator new on each thread, so that velapo-host reports how often
// the audio thread allocated instead of assuming it never does. The program
// replaces the plain and nothrow forms (over-aligned ones go uncounted; the
// audio path makes none).

#include <cstdint>

uint64_t AllocationsOnThisThread();
