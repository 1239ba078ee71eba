#pragma once

namespace zor::os {

// The debugger output stream: Windows' OutputDebugString, standard error on
// POSIX (each line in one write, so lines of threads never mix). The text is
// passed as it is; no line end is added. Any thread.
void DebugOutputNarrow(const char* text);   // platform multibyte text
void DebugOutputWide(const char16_t* text); // UTF-16

// A host or a test may take the lines instead of the default destination.
// The sink receives each line as UTF-8 and whether it came in wide. It may be
// called from any thread at once, and must neither block for long nor change
// the sink itself.
using DebugSink = void (*)(void* context, const char* utf8Line, bool wasWide);

struct DebugSinkBinding {
  DebugSink sink = nullptr;  // null: the default destination
  void* context = nullptr;
};

// Installs a sink (null restores the default) and returns the one it
// replaces. When it returns, no thread is inside the replaced sink any more
// and none will enter it, so its context may be destroyed. Any thread but one
// inside a sink.
DebugSinkBinding ExchangeDebugSink(DebugSink sink, void* context);
void SetDebugSink(DebugSink sink, void* context);

}  // namespace zor::os
