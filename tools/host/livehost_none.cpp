// Builds without JACK (Windows, or no JACK development files): no live host.
#include <ostream>

#include "livehost.h"

bool LiveHostBuilt() { return false; }

int RunLive(const LiveOptions&, std::ostream&, std::ostream& err) {
  err << "velapo-host: this build has no live host (it needs JACK, on Linux)\n";
  return 1;
}
