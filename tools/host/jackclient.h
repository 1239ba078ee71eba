#pragma once
// A JACK client for velapo-host live: opens a client on the server that
// JACK_DEFAULT_SERVER names (or the default one; never starts a server),
// registers one input and one output port per channel, and passes the
// server's calls on to a listener. On a PipeWire desktop the same library
// comes from PipeWire's JACK support (pw-jack), unchanged.
//
// The listener's OnProcess runs on the server's real-time thread; the others
// on JACK's notification thread. None of them may call back into the client.

#include <jack/jack.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

class IJackListener {
 public:
  virtual ~IJackListener() = default;
  // One period of `frames` frames; `inputs` and `outputs` hold a port buffer
  // per channel. Real-time thread.
  virtual void OnProcess(const float* const* inputs, float* const* outputs, uint32_t frames) = 0;
  // The server's period or rate is about to change, or changed.
  virtual void OnBufferSize(uint32_t frames) = 0;
  virtual void OnSampleRate(uint32_t rate) = 0;
  virtual void OnXrun() = 0;
  // The server went away (or threw the client out): the client is dead.
  virtual void OnShutdown(const std::string& reason) = 0;
};

class JackClient {
 public:
  JackClient() = default;
  ~JackClient();
  JackClient(const JackClient&) = delete;
  JackClient& operator=(const JackClient&) = delete;

  // Opens the client `name` with `channels` ports each way ("in_1", "out_1",
  // ...). False, with `error`, when no server answers or a port cannot be
  // made. Nothing runs until Activate.
  bool Open(const std::string& name, uint32_t channels, IJackListener& listener, std::string& error);
  bool Activate(std::string& error);
  // Connects the outputs, in order, to the server's physical playback ports
  // (the sound card). False when there are none.
  bool ConnectToPlayback(std::string& error);
  // Stops the callbacks (unless the server is gone) and closes the client.
  void Close();

  uint32_t SampleRate() const;
  uint32_t BufferSize() const;
  std::string Name() const;

 private:
  static int Process(jack_nframes_t frames, void* self);
  static int BufferSize(jack_nframes_t frames, void* self);
  static int SampleRate(jack_nframes_t rate, void* self);
  static int Xrun(void* self);
  static void Shutdown(jack_status_t code, const char* reason, void* self);

  jack_client_t* m_client = nullptr;
  IJackListener* m_listener = nullptr;
  std::vector<jack_port_t*> m_inputs;
  std::vector<jack_port_t*> m_outputs;
  // Port buffers of one period, sized at Open: the callback fills them in
  // place and allocates nothing.
  std::vector<const float*> m_inputBuffers;
  std::vector<float*> m_outputBuffers;
  bool m_bActive = false;
  std::atomic<bool> m_bServerGone{false};
};
