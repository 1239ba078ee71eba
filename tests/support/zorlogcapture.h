#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/debugoutput.h"

// Takes every debug output line (and so every log line) while it lives, as
// UTF-8, from any thread; restores the sink it replaced when destroyed.
// Captures nest: the innermost one gets the lines.
class ZORLogCapture {
 public:
  ZORLogCapture();
  ~ZORLogCapture();
  ZORLogCapture(const ZORLogCapture&) = delete;
  ZORLogCapture& operator=(const ZORLogCapture&) = delete;

  std::vector<std::string> Lines() const;
  bool Contains(std::string_view fragment) const;
  // Lines that contain the fragment.
  size_t Count(std::string_view fragment) const;
  void Clear();

 private:
  static void Receive(void* context, const char* utf8Line, bool wasWide);

  mutable std::mutex m_mutex;
  std::vector<std::string> m_lines;  // guarded by m_mutex
  zor::os::DebugSinkBinding m_previous;
};
