// Fuzzes veltech's processes from the host's side of the border: control
// names, numbers and texts as a configuration file or a control panel may
// write them, interleaved with audio of any level and state hand-overs,
// all through the operation table. Beyond "no crash, no over-read": every
// accepted value lies in its control's range, a refused one changes
// nothing, output stays finite, and the limiter never passes full scale.
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "processfactory.h"
#include "techprocess.h"

namespace {

// Stops the run at a broken invariant, naming its line for the report.
#define Require(condition) \
  do {                                                                      \
    if (!(condition)) {                                                     \
      std::fprintf(stderr, "invariant broken at line %d: %s\n", __LINE__, #condition); \
      std::abort();                                                         \
    }                                                                       \
  } while (false)

class Input {
 public:
  Input(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
  bool Empty() const { return m_position >= m_size; }
  uint8_t Byte() { return m_position < m_size ? m_data[m_position++] : 0; }
  uint32_t Word() {
    uint32_t word = 0;
    for (int i = 0; i < 4; ++i) word = word << 8 | Byte();
    return word;
  }
  std::string Text() {
    const size_t length = Byte() % 24;
    std::string text;
    for (size_t i = 0; i < length && !Empty(); ++i) text.push_back(static_cast<char>(Byte()));
    return text;
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_position = 0;
};

const char* const kTechIds[] = {"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"};
const uint32_t kRates[] = {8000, 11025, 16000, 44100, 48000, 96000, 192000};

struct Process {
  std::unique_ptr<veltech::TechProcess> owner;
  ZORTechProcess* abi = nullptr;
};

int32_t ValueOf(const ZORTechProcessTable& table, ZORTechProcess* process, const char* name) {
  int32_t value = 0;
  Require(table.GetControlLong(process, name, &value) != 0);
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const char* techId = kTechIds[input.Byte() % std::size(kTechIds)];
  const uint32_t channels = 1 + input.Byte() % 8;
  const uint32_t rate = kRates[input.Byte() % std::size(kRates)];
  const bool limiter = std::strcmp(techId, "limiter") == 0;

  const ZORTechProcessTable& table = veltech::ProcessTable();
  Process processes[2];
  for (Process& process : processes) {
    process.owner = veltech::MakeProcess(techId);
    Require(process.owner != nullptr);
    process.abi = process.owner->Abi();
    Require(table.Init(process.abi, channels, rate) != 0);
  }
  const ZORTechControl* controls = nullptr;
  const int32_t count = table.GetControls(processes[0].abi, &controls);

  std::vector<std::vector<float>> audio(channels + 1, std::vector<float>(1024));
  std::vector<ZORChannelNode> nodes(audio.size());
  size_t active = 0;
  while (!input.Empty()) {
    ZORTechProcess* process = processes[active].abi;
    switch (input.Byte() % 5) {
      case 0: {  // a number for a known control
        if (count == 0) break;
        const ZORTechControl& control = controls[input.Byte() % count];
        Require(table.SetControlLong(process, control.name, static_cast<int32_t>(input.Word())) != 0);
        const int32_t value = ValueOf(table, process, control.name);
        Require(value >= control.first && value <= control.second);
        break;
      }
      case 1: {  // text for a known control
        if (count == 0) break;
        const ZORTechControl& control = controls[input.Byte() % count];
        const int32_t before = ValueOf(table, process, control.name);
        const std::string text = input.Text();
        const bool taken = table.SetControlString(process, control.name, text.c_str()) != 0;
        const int32_t after = ValueOf(table, process, control.name);
        Require(after >= control.first && after <= control.second);
        Require(taken || after == before);
        const char* name = nullptr;
        if (table.GetControlString(process, control.name, &name) != 0) {
          Require(control.enumCount > 0 && name != nullptr && name == control.enumNames[after]);
        }
        break;
      }
      case 2: {  // any name at all
        // The module sees a C string: the name ends at its first NUL.
        const std::string name = input.Text();
        bool known = false;
        for (int32_t i = 0; i < count; ++i) known = known || std::strcmp(name.c_str(), controls[i].name) == 0;
        Require((table.SetControlLong(process, name.c_str(), 0) != 0) == known);
        int32_t value = 0;
        Require((table.GetControlLong(process, name.c_str(), &value) != 0) == known);
        break;
      }
      case 3: {  // audio, loud or quiet, into however many nodes
        const uint32_t frames = (input.Byte() << 2 | input.Byte() >> 6) % 1025;
        const size_t listed = input.Byte() % (audio.size() + 1);
        const float scale = std::ldexp(1.0f, static_cast<int>(input.Byte() % 24) - 16);
        for (size_t c = 0; c < audio.size(); ++c) {
          for (uint32_t i = 0; i < frames; ++i) {
            audio[c][i] = static_cast<float>(static_cast<int8_t>(input.Byte())) * scale;
          }
          nodes[c] = {audio[c].data(), static_cast<uint32_t>(c), 0, c + 1 < listed ? &nodes[c + 1] : nullptr};
        }
        ZORChannelNode* list = listed > 0 ? nodes.data() : nullptr;
        table.Process(process, list, list, frames, nullptr);
        for (size_t c = 0; c < std::min<size_t>(listed, channels); ++c) {
          for (uint32_t i = 0; i < frames; ++i) {
            Require(std::isfinite(audio[c][i]));
            // The threshold is at most 0 dB, whatever the input gain.
            if (limiter) Require(std::fabs(audio[c][i]) <= 1.0f + 1e-6f);
          }
        }
        break;
      }
      case 4:  // hand the state over and carry on with the other process
        Require(table.CopyState(processes[1 - active].abi, process) != 0);
        active = 1 - active;
        break;
    }
  }
  return 0;
}
