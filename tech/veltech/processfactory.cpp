#include "processfactory.h"

#include <cstring>

#include "crossfeedprocess.h"
#include "gainprocess.h"
#include "limiterprocess.h"
#include "passthroughprocess.h"
#include "peqprocess.h"
#include "widenerprocess.h"

namespace veltech {
namespace {

struct Kind {
  const char* techId;
  std::unique_ptr<TechProcess> (*make)();
};

template <typename P>
std::unique_ptr<TechProcess> Make() {
  return std::make_unique<P>();
}

constexpr Kind kKinds[] = {
    {"gain", Make<GainProcess>},
    {"peq", Make<PeqProcess>},
    {"limiter", Make<LimiterProcess>},
    {"widener", Make<WidenerProcess>},
    {"crossfeed", Make<CrossfeedProcess>},
    {"passthrough", Make<PassthroughProcess>},
};

}  // namespace

void ForEachTechId(void (*visit)(const char* techId, void* context), void* context) {
  for (const Kind& kind : kKinds) visit(kind.techId, context);
}

std::unique_ptr<TechProcess> MakeProcess(const char* techId) {
  if (techId == nullptr) return nullptr;
  for (const Kind& kind : kKinds) {
    if (std::strcmp(kind.techId, techId) == 0) return kind.make();
  }
  return nullptr;
}

}  // namespace veltech
