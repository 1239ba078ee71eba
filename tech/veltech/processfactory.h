#pragma once
// The processes veltech offers, by tech id. Any thread.

#include <memory>

#include "techprocess.h"

namespace veltech {

// Calls `visit` with each tech id, in a fixed order.
void ForEachTechId(void (*visit)(const char* techId, void* context), void* context);
// A new process of `techId`, or null for an id veltech doesn't offer.
std::unique_ptr<TechProcess> MakeProcess(const char* techId);

}  // namespace veltech
