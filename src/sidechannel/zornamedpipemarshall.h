#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "audio/izoraudiodata.h"
#include "audio/zoraudiodatafloat.h"
#include "audio/zorresamplehandler.h"
#include "sidechannel/zornamedpipeaudio.h"

// The pipe every capture object writes and every render object reads.
inline constexpr char16_t kZORCapturePipeName[] = u"\\\\.\\pipe\\ZORAPOCapturePipe";
// The rate on the wire, chosen by the capture side.
inline constexpr uint32_t kZORCapturePipeRate = 16000;
// The channel role of a block that came from the pipe.
inline constexpr uint32_t kZORPipeChannelRole = 7;

// A fixed-capacity double-ended queue of samples for the reader's frame
// matching: allocated once, so the audio thread never allocates in it.
// What would overflow it is dropped from the oldest end and counted.
class ZORPipeFifo {
 public:
  void Allocate(uint32_t capacity);
  void Clear();
  uint32_t Size() const { return m_size; }
  uint32_t Capacity() const { return m_capacity; }
  // Appends at the back; when full, the oldest samples go. Returns how many
  // were dropped.
  uint32_t PushBack(const float* samples, uint32_t count);
  // Puts `count` zeros at the front, as far as there is room.
  void PushFrontZeros(uint32_t count);
  // Moves up to `count` samples from the front; returns how many.
  uint32_t PopFront(float* target, uint32_t count);

 private:
  std::unique_ptr<float[]> m_samples;
  uint32_t m_capacity = 0;
  uint32_t m_head = 0;  // index of the front sample
  uint32_t m_size = 0;
};

// What the process manager holds of the capture pipe: it fits blocks of any
// rate and channel count to the pipe's mono stream. The capture side folds a
// block to mono and converts it to 16 kHz; the render side converts the
// pipe's rate to its own and hands out exactly the frames it is asked for,
// silence first when the pipe comes up short.
//
// OpenPipe, StartPipe and StopPipe belong to the owner's thread; ReadPipe
// and WritePipe to the audio thread, which alone touches the FIFO and the
// converter. Steady state allocates nothing: blocks grow only when a larger
// one is asked for.
class ZORNamedPipeMarshall {
 public:
  // The render FIFO's capacity in samples of the render rate: over half a
  // second at 48 kHz, far more than the ring can ever deliver in one go.
  static constexpr uint32_t kFifoCapacity = 32768;
  // Zeros the FIFO starts with: the frame matching's headroom.
  static constexpr uint32_t kFifoLeadZeros = 5;

  ZORNamedPipeMarshall();
  // Stops the pipe.
  virtual ~ZORNamedPipeMarshall();
  ZORNamedPipeMarshall(const ZORNamedPipeMarshall&) = delete;
  ZORNamedPipeMarshall& operator=(const ZORNamedPipeMarshall&) = delete;

  // Prepares the pipe: a reader at `sampleRate` (0 to learn it from the
  // first packet) or a writer. Not while running.
  void OpenPipe(uint32_t sampleRate, bool reader);
  // Starts the pipe's thread unless running; IsRunning tells the result.
  void StartPipe();
  // Stops the thread.
  void StopPipe();
  bool IsRunning() const { return m_bRunning; }

  // Render side: fills `data`'s first channel from the pipe, converting to
  // its rate. Returns the samples at hand (0 when not running or no packet
  // came yet, and then `data` is left alone).
  uint32_t ReadPipe(IZORAudioData<float>& data);
  // Capture side: folds `data` to mono in place when it has more channels,
  // and sends it at the pipe's rate.
  void WritePipe(IZORAudioData<float>& data);

  // The pipe's name, kZORCapturePipeName unless an embedder or a test
  // chooses another before OpenPipe.
  void SetPipeName(std::u16string name) { m_pipeName = std::move(name); }
  const std::u16string& GetPipeName() const { return m_pipeName; }

  uint32_t GetUnderruns() const { return m_underruns; }
  // Samples the render FIFO dropped at its cap.
  uint64_t GetFifoDrops() const { return m_fifoDrops; }
  uint32_t GetFifoSize() const { return m_fifo.Size(); }
  ZORNamedPipeAudio& GetPipe() { return m_pipe; }
  const ZORNamedPipeAudio& GetPipe() const { return m_pipe; }

 private:
  bool m_bReader = false;
  bool m_bRunning = false;
  ZORResampleHandler m_handler;
  ZORPipeFifo m_fifo;
  ZORNamedPipeAudio m_pipe;
  uint32_t m_underruns = 0;

  std::u16string m_pipeName{kZORCapturePipeName};
  uint64_t m_fifoDrops = 0;
  // The rates m_handler was set up for; 0 before the first conversion.
  uint32_t m_handlerInputRate = 0;
  uint32_t m_handlerOutputRate = 0;
  // Reused blocks of the conversion paths.
  ZORAudioDataFloat m_mono;       // writer: channel 0 of the folded block
  ZORAudioDataFloat m_converted;  // writer at the pipe's rate; reader at the block's
  ZORAudioDataFloat m_fromRing;   // reader: what the ring gave, at the pipe's rate
};
