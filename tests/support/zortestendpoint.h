#pragma once
// The engine emulator's endpoint objects moved to tools/engine; tests that
// still include them from here get them from there.
#include "engine/zortestendpoint.h"
