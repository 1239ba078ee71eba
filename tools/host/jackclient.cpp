#include "jackclient.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string OpenFailure(jack_status_t status) {
  if (status & JackServerFailed) {
    const char* server = std::getenv("JACK_DEFAULT_SERVER");
    return std::string("no JACK server is running") + (server ? std::string(" under the name '") + server + "'" : "") +
           " (start one with jackd, or run through pw-jack on PipeWire)";
  }
  if (status & JackVersionError) return "the JACK server speaks another protocol version than this library";
  if (status & JackNameNotUnique) return "the client name is taken";
  return "the JACK server refused the client (status 0x" + [&] {
    char text[16];
    std::snprintf(text, sizeof text, "%X", static_cast<unsigned>(status));
    return std::string(text);
  }() + ")";
}

}  // namespace

JackClient::~JackClient() { Close(); }

bool JackClient::Open(const std::string& name, uint32_t channels, IJackListener& listener, std::string& error) {
  jack_status_t status{};
  // JackNoStartServer: a missing server is reported, not started behind the
  // user's back with settings nobody chose.
  m_client = jack_client_open(name.c_str(), JackNoStartServer, &status);
  if (m_client == nullptr) {
    error = OpenFailure(status);
    return false;
  }
  m_listener = &listener;
  for (uint32_t c = 1; c <= channels; ++c) {
    const std::string in = "in_" + std::to_string(c), out = "out_" + std::to_string(c);
    jack_port_t* input = jack_port_register(m_client, in.c_str(), JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    jack_port_t* output = jack_port_register(m_client, out.c_str(), JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    if (input == nullptr || output == nullptr) {
      error = "the JACK server refused the port " + (input == nullptr ? in : out);
      Close();
      return false;
    }
    m_inputs.push_back(input);
    m_outputs.push_back(output);
  }
  m_inputBuffers.assign(channels, nullptr);
  m_outputBuffers.assign(channels, nullptr);
  jack_set_process_callback(m_client, &JackClient::Process, this);
  jack_set_buffer_size_callback(m_client, &JackClient::BufferSize, this);
  jack_set_sample_rate_callback(m_client, &JackClient::SampleRate, this);
  jack_set_xrun_callback(m_client, &JackClient::Xrun, this);
  jack_on_info_shutdown(m_client, &JackClient::Shutdown, this);
  return true;
}

bool JackClient::Activate(std::string& error) {
  if (jack_activate(m_client) != 0) {
    error = "the JACK server would not start the client's callbacks";
    return false;
  }
  m_bActive = true;
  return true;
}

bool JackClient::ConnectToPlayback(std::string& error) {
  const char** playback = jack_get_ports(m_client, nullptr, JACK_DEFAULT_AUDIO_TYPE, JackPortIsPhysical | JackPortIsInput);
  if (playback == nullptr) {
    error = "the JACK server has no playback ports to connect to";
    return false;
  }
  bool connected = true;
  for (size_t c = 0; c < m_outputs.size() && playback[c] != nullptr; ++c) {
    const int result = jack_connect(m_client, jack_port_name(m_outputs[c]), playback[c]);
    if (result != 0 && result != EEXIST) {
      error = std::string("cannot connect ") + jack_port_name(m_outputs[c]) + " to " + playback[c];
      connected = false;
    }
  }
  jack_free(playback);
  return connected;
}

void JackClient::Close() {
  if (m_client == nullptr) return;
  // A server that is gone cannot stop what it no longer runs; closing frees
  // what the library holds either way.
  if (m_bActive && !m_bServerGone.load()) jack_deactivate(m_client);
  jack_client_close(m_client);
  m_client = nullptr;
  m_bActive = false;
  m_inputs.clear();
  m_outputs.clear();
}

uint32_t JackClient::SampleRate() const { return m_client ? jack_get_sample_rate(m_client) : 0; }

uint32_t JackClient::BufferSize() const { return m_client ? jack_get_buffer_size(m_client) : 0; }

std::string JackClient::Name() const { return m_client ? jack_get_client_name(m_client) : ""; }

int JackClient::Process(jack_nframes_t frames, void* self) {
  JackClient& client = *static_cast<JackClient*>(self);
  const size_t channels = client.m_inputs.size();
  for (size_t c = 0; c < channels; ++c) {
    client.m_inputBuffers[c] = static_cast<const float*>(jack_port_get_buffer(client.m_inputs[c], frames));
    client.m_outputBuffers[c] = static_cast<float*>(jack_port_get_buffer(client.m_outputs[c], frames));
  }
  client.m_listener->OnProcess(client.m_inputBuffers.data(), client.m_outputBuffers.data(), frames);
  return 0;
}

int JackClient::BufferSize(jack_nframes_t frames, void* self) {
  static_cast<JackClient*>(self)->m_listener->OnBufferSize(frames);
  return 0;
}

int JackClient::SampleRate(jack_nframes_t rate, void* self) {
  static_cast<JackClient*>(self)->m_listener->OnSampleRate(rate);
  return 0;
}

int JackClient::Xrun(void* self) {
  static_cast<JackClient*>(self)->m_listener->OnXrun();
  return 0;
}

void JackClient::Shutdown(jack_status_t, const char* reason, void* self) {
  JackClient& client = *static_cast<JackClient*>(self);
  client.m_bServerGone.store(true);
  client.m_listener->OnShutdown(reason != nullptr && *reason != '\0' ? reason : "no reason given");
}
