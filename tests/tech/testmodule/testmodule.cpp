// A tech module for the loader and wrapper tests. Its process is a C++ class
// whose virtual operations are the border's 19 slots in order, as a third
// party may write one. Every call is logged, one line each, read back through
// the extra export VelTestTakeLog. Tech ids:
//   probe        block size 0, latency 7; logs every call and answers controls
//   probe-256    the same with block size 256
//   refuse       create answers false
//   null         create answers true but hands out no process
//   fail-init    Init answers false
//   sidechannel  Process offers the hook a lone role-7 node, two role-7 nodes, a lone role-0 node
//   quietside    Process offers its first channel as a lone role-7 node; neither logs nor allocates

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "veltech/veltech_abi.h"

namespace {

std::mutex g_logLock;
std::string g_log;

void Log(const std::string& line) {
  std::lock_guard<std::mutex> lock(g_logLock);
  g_log += line;
  g_log += '\n';
}

std::string Text(const char* text) { return text != nullptr ? text : "(null)"; }

const char* const kModeNames[] = {"Quiet", "Loud"};
const ZORTechControl kControls[] = {
    {"Probe-Level", -2400, 1200, 0, 0, 0, 0, nullptr, VELTECH_UNIT_HUNDREDTHS, 0},
    {"Probe-Mode", 0, 1, 0, 0, 2, 0, kModeNames, VELTECH_UNIT_PLAIN, 0},
};

class TestProcess final {
 public:
  TestProcess(std::string techId, std::string instanceId)
      : m_techId(std::move(techId)), m_instanceId(std::move(instanceId)) {}

  static void Destroy(TestProcess* process) { delete process; }
  std::string Describe() const { return m_techId + " " + m_instanceId; }

  // Slots 0 to 3, 6, 14 and 15: never called by the host.
  virtual void Unused0() {}
  virtual void Unused1() {}
  virtual void Unused2() {}
  virtual void Unused3() {}
  virtual uint32_t GetBlockSize() {
    Log("blocksize");
    return m_techId == "probe-256" ? 256 : 0;
  }
  virtual uint32_t GetLatency() {
    Log("latency");
    return 7;
  }
  virtual void Unused6() {}
  virtual int32_t GetControls(const ZORTechControl** first) {
    Log("controls");
    *first = kControls;
    return 2;
  }
  virtual bool SetControlLong(const char* name, int32_t value) {
    Log("setlong " + Text(name) + " " + std::to_string(value));
    if (Text(name) == "Refused") return false;
    m_longs[Text(name)] = value;
    return true;
  }
  virtual bool SetControlString(const char* name, const char* value) {
    Log("settext " + Text(name) + " " + Text(value));
    if (Text(name) == "Refused") return false;
    m_texts[Text(name)] = Text(value);
    return true;
  }
  virtual bool GetControlLong(const char* name, int32_t* value) {
    Log("getlong " + Text(name));
    const auto found = m_longs.find(Text(name));
    if (found == m_longs.end()) return false;
    *value = found->second;
    return true;
  }
  virtual bool GetControlString(const char* name, const char** value) {
    Log("gettext " + Text(name));
    const auto found = m_texts.find(Text(name));
    if (found == m_texts.end()) return false;
    *value = found->second.c_str();
    return true;
  }
  virtual int32_t PassThroughFirst(uint32_t code, void* data, uint32_t size) {
    Log("pass1 " + std::to_string(code) + " " + std::to_string(size) + " " + (data != nullptr ? "data" : "null"));
    return static_cast<int32_t>(code * 1000 + size);
  }
  virtual int32_t PassThroughSecond(uint32_t code, void* data, uint32_t size) {
    Log("pass2 " + std::to_string(code) + " " + std::to_string(size) + " " + (data != nullptr ? "data" : "null"));
    return -static_cast<int32_t>(code * 1000 + size);
  }
  virtual void Unused14() {}
  virtual void Unused15() {}
  virtual bool CopyState(TestProcess* other) {
    Log("copystate " + Describe() + " <- " + other->Describe());
    return m_techId == other->m_techId;
  }
  virtual bool Init(uint32_t channels, uint32_t sampleRate) {
    Log("init " + std::to_string(channels) + " " + std::to_string(sampleRate));
    return m_techId != "fail-init";
  }
  virtual void Process(ZORChannelNode* in, ZORChannelNode* out, uint32_t frames, ZORProcessHook* hook) {
    if (m_techId == "quietside") {
      ZORChannelNode lone{out != nullptr ? out->samples : nullptr, 7, 0, nullptr};
      if (hook != nullptr) hook->callback(&lone, frames, hook->context);
      return;
    }
    std::string line = "process " + std::to_string(frames) + (in == out ? " inplace" : " apart") +
                       (hook != nullptr ? " hook" : " nohook") + " roles";
    // Channel c is multiplied by c + 1: each node must point at its own channel.
    float factor = 1.0f;
    for (ZORChannelNode* node = out; node != nullptr; node = node->next, factor += 1.0f) {
      // Two steps: GCC 12 at -O3 reports a false -Wrestrict on " " + std::to_string(...).
      line += ' ';
      line += std::to_string(node->role);
      for (uint32_t i = 0; i < frames; ++i) node->samples[i] *= factor;
    }
    Log(line);
    if (m_techId == "sidechannel" && hook != nullptr) OfferSideChannel(*hook, frames);
  }

 private:
  ~TestProcess() { Log("destroy " + Describe()); }

  void OfferSideChannel(ZORProcessHook& hook, uint32_t frames) {
    std::vector<float> first(frames, 0.5f);
    std::vector<float> second(frames, 0.5f);
    ZORChannelNode lone{first.data(), 7, 0, nullptr};
    hook.callback(&lone, frames, hook.context);
    Log("side lone7 " + std::to_string(first[0]));
    first.assign(frames, 0.5f);
    ZORChannelNode tail{second.data(), 7, 0, nullptr};
    ZORChannelNode head{first.data(), 7, 0, &tail};
    hook.callback(&head, frames, hook.context);
    Log("side pair7 " + std::to_string(first[0]));
    ZORChannelNode role0{first.data(), 0, 0, nullptr};
    hook.callback(&role0, frames, hook.context);
    Log("side lone0 " + std::to_string(first[0]));
  }

  std::string m_techId;
  std::string m_instanceId;
  std::map<std::string, int32_t> m_longs;
  std::map<std::string, std::string> m_texts;
};

const char* const kTechIds[] = {"probe", "probe-256", "refuse", "null", "fail-init", "sidechannel", "quietside"};

}  // namespace

extern "C" {

VELTECH_EXPORT void VELTECH_CALL ZORTechEnumProcesses(ZORTechEnumCallback callback, void* context) {
  Log("enum");
  for (const char* techId : kTechIds) callback(techId, context);
}

VELTECH_EXPORT ZORTechBool VELTECH_CALL ZORTechCreateProcess(const char* techId, ZORTechProcess** process,
                                                             const char* instanceId) {
  Log("create " + Text(techId) + " " + Text(instanceId));
  const std::string id = Text(techId);
  if (id == "refuse") return 0;
  if (id == "null") {
    *process = nullptr;
    return 1;
  }
  *process = reinterpret_cast<ZORTechProcess*>(new TestProcess(id, Text(instanceId)));
  return 1;
}

VELTECH_EXPORT void VELTECH_CALL ZORTechDestroyProcess(ZORTechProcess* process) {
  TestProcess::Destroy(reinterpret_cast<TestProcess*>(process));
}

// Hands the log to the test and empties it; returns the log's full length.
VELTECH_EXPORT uint32_t VelTestTakeLog(char* buffer, uint32_t capacity) {
  std::lock_guard<std::mutex> lock(g_logLock);
  const auto length = static_cast<uint32_t>(g_log.size());
  if (buffer != nullptr && capacity > 0) {
    const uint32_t copied = length < capacity - 1 ? length : capacity - 1;
    std::memcpy(buffer, g_log.data(), copied);
    buffer[copied] = '\0';
  }
  g_log.clear();
  return length;
}

}  // extern "C"
