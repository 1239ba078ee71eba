#pragma once
// ZORAPOProcessWrapper: one tech process as a stage of a chain. As a
// ZORAudioProcessBlock it feeds the process blocks of the size the process
// asks for; as an IZORUTSController it routes tuning values to the process
// by the instance id in front of the colon of each value's name. It owns the
// ZORAPOProcessLibrary that made the process.
//
// Threads: Load, Init and the control operations run on the thread that
// builds the chain (the manager's worker or the configuration thread);
// Process on the audio thread; TransferState on the audio thread between
// two Process calls. The control operations take no lock: they may reach a
// process whose chain is playing, which the tech module allows.

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocessblock.h"
#include "audio/zorapoprocesslibrary.h"
#include "config/izorutscontroller.h"
#include "veltech/veltech_abi.h"

class IZORAPOProcessWrapperHook;

class ZORAPOProcessWrapper : public IZORUTSController, public ZORAudioProcessBlock {
 public:
  ZORAPOProcessWrapper() = default;
  // Gives the process back to the module and unloads it.
  ~ZORAPOProcessWrapper() override;
  ZORAPOProcessWrapper(const ZORAPOProcessWrapper&) = delete;
  ZORAPOProcessWrapper& operator=(const ZORAPOProcessWrapper&) = delete;

  // IZORUTSController. GetControl reads a control of this process by its
  // exact instance id (or a bare name): as a number if the process answers
  // one, else as text. SetControl takes values addressed to this process, to
  // all processes, or, for a process at an OSFX or OMFX position, to the
  // SFX or MFX one; it passes a number where the value reads as one and
  // text otherwise. EnumControls lists the process's control table.
  bool GetControl(ZORUTSValue& value) override;
  bool SetControl(const ZORUTSValue& value) override;
  uint32_t EnumControls(std::vector<ZORUTSControlInfo>& controls) override;
  int32_t PassThroughFirst(uint32_t code, void* data, uint32_t size) override;
  int32_t PassThroughSecond(uint32_t code, void* data, uint32_t size) override;

  // Makes the process of `techId` for the chain position `instanceId`,
  // ending whatever this wrapper held before. `hook` names the side-channel
  // hook of the configuration; no hook is attached from it today. `flags` is
  // unused. False, with no process, when the module can't make it.
  virtual bool Load(const std::string& techId, const std::string& instanceId,
                    const std::string& hook, uint32_t flags);
  // The block adaption's delay plus the process's own latency, in frames.
  virtual uint32_t GetTotalLatency() const;

  // ZORAudioProcessBlock. Init prepares the process for `channels` at
  // `sampleRate`, takes its block size and sizes all that ProcessBlock and
  // the side channel use; false without a process or when the process
  // refuses. Channels of a block beyond Init's pass untouched. The bypass flag is kept for whoever asks; a chain
  // bypasses as a whole, so Process doesn't consult it.
  bool Init(uint32_t channels, uint32_t sampleRate) override;
  void SetBypass(bool bypass) override;
  bool GetBypass() const override;

  // Lets this wrapper's process continue from the state of `other`'s, so
  // that a chain fading in sounds like the one fading out. False unless
  // both have a process and this one takes the other's state. Audio thread.
  bool TransferState(ZORAPOProcessWrapper& other);

  // While dry, Process moves blocks through the block adaption but never
  // calls the process, whose state so stays as it was: a chain runs its
  // wrappers dry to size its stores before it plays. Thread that builds the
  // chain, while the chain isn't playing.
  void SetDry(bool dry) { m_bDry = dry; }

  // Hooks that see the side channel a process hands over during Process:
  // `preHook` a copy of it, `postHook` the block itself, which it may
  // rewrite. The chain attaches none yet; Load clears both. Chain-building
  // thread, while the chain isn't playing.
  void SetHooks(IZORAPOProcessWrapperHook* preHook, IZORAPOProcessWrapperHook* postHook);

  // The instance id, empty until Load succeeded.
  const std::string& GetName() const { return m_name; }
  ZORTechProcess* GetTechProcess() const { return m_tech; }
  uint32_t GetChannels() const { return m_channels; }
  uint32_t GetSampleRate() const { return m_sampleRate; }

 protected:
  // audio thread
  void ProcessBlock(IZORAudioData<float>* data) override;

 private:
  // Whether a value addressed to `target` is meant for this process.
  bool AcceptsTarget(const std::string& target) const;
  // The callback handed to the process in the hook record. Audio thread.
  static void VELTECH_CALL OnSideChannel(ZORChannelNode* nodes, uint32_t frames, void* context);
  void HandleSideChannel(ZORChannelNode& node, uint32_t frames);

  std::string m_name;
  ZORAPOProcessLibrary m_library;
  ZORTechProcess* m_tech = nullptr;
  IZORAPOProcessWrapperHook* m_preHook = nullptr;
  IZORAPOProcessWrapperHook* m_postHook = nullptr;
  std::atomic<uint32_t> m_bypass{0};
  bool m_bDry = false;
  uint32_t m_channels = 0;
  uint32_t m_sampleRate = 0;

  // Per-call scratch, sized by Init so that the audio thread doesn't
  // allocate: the channel list, the hook record and the side-channel block.
  std::vector<ZORChannelNode> m_nodes;
  ZORProcessHook m_hookRecord{};
  ZORAudioDataFloat m_sideChannel;
  uint32_t m_sideChannelFrames = 0;  // the longest part handed to the hooks
};
