#include "support/zorlogcapture.h"

ZORLogCapture::ZORLogCapture() { m_previous = zor::os::ExchangeDebugSink(&ZORLogCapture::Receive, this); }

ZORLogCapture::~ZORLogCapture() { zor::os::SetDebugSink(m_previous.sink, m_previous.context); }

void ZORLogCapture::Receive(void* context, const char* utf8Line, bool /*wasWide*/) {
  auto* self = static_cast<ZORLogCapture*>(context);
  const std::lock_guard<std::mutex> lock(self->m_mutex);
  self->m_lines.emplace_back(utf8Line);
}

std::vector<std::string> ZORLogCapture::Lines() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_lines;
}

bool ZORLogCapture::Contains(std::string_view fragment) const { return Count(fragment) > 0; }

size_t ZORLogCapture::Count(std::string_view fragment) const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  size_t count = 0;
  for (const std::string& line : m_lines) {
    if (line.find(fragment) != std::string::npos) ++count;
  }
  return count;
}

void ZORLogCapture::Clear() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.clear();
}
