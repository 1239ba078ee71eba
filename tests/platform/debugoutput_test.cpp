// Debug output: sinks, sink exchange racing writers, and whole lines on standard error.
#include "platform/debugoutput.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>


namespace {

struct Recorder {
  std::mutex mutex;
  std::vector<std::pair<std::string, bool>> lines;

  static void Receive(void* context, const char* utf8Line, bool wasWide) {
    auto* self = static_cast<Recorder*>(context);
    const std::lock_guard<std::mutex> lock(self->mutex);
    self->lines.emplace_back(utf8Line, wasWide);
  }
};

}  // namespace

TEST(DebugOutput, ReplacedSinkIsNeverEnteredOnceTheExchangeReturns) {
  // Contexts are kept (never freed) and marked retired, so a late call is
  // seen in every build, not only under the sanitizers.
  struct Context {
    std::atomic<bool> retired{false};
    std::atomic<bool> calledWhileRetired{false};
    std::atomic<int> lines{0};
  };
  const auto receive = [](void* context, const char*, bool) {
    auto* self = static_cast<Context*>(context);
    if (self->retired) self->calledWhileRetired = true;
    self->lines.fetch_add(1);
  };
  Context idle;  // takes the lines between rounds
  const zor::os::DebugSinkBinding original = zor::os::ExchangeDebugSink(receive, &idle);
  std::atomic<bool> stop{false};
  std::vector<std::thread> writers;
  for (int i = 0; i < 2; ++i) {
    writers.emplace_back([&stop, i] {
      while (!stop) {
        if (i == 0) {
          zor::os::DebugOutputNarrow("x");
        } else {
          zor::os::DebugOutputWide(u"y");
        }
      }
    });
  }
  std::deque<Context> contexts;
  int totalLines = 0;
  for (int round = 0; round < 300; ++round) {
    Context& context = contexts.emplace_back();
    zor::os::ExchangeDebugSink(receive, &context);
    // On a loaded machine the writers may not run for a while: give each
    // round a bounded chance to see a line before the sink is taken away.
    for (int spin = 0; spin < 10000 && context.lines.load() == 0; ++spin) std::this_thread::yield();
    zor::os::ExchangeDebugSink(receive, &idle);
    context.retired = true;
    totalLines += context.lines.load();
  }
  // Swallow the writers' remaining lines in a sink that ignores them.
  zor::os::ExchangeDebugSink([](void*, const char*, bool) {}, nullptr);
  stop = true;
  for (std::thread& writer : writers) writer.join();
  zor::os::ExchangeDebugSink(original.sink, original.context);
  for (const Context& context : contexts) EXPECT_FALSE(context.calledWhileRetired);
  EXPECT_GT(totalLines, 0);
}

#if !defined(_WIN32)
TEST(DebugOutput, DefaultWritesWholeLinesToStandardError) {
  testing::internal::CaptureStderr();
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([t] {
      const std::string line = std::string(200, static_cast<char>('a' + t)) + "\n";
      for (int i = 0; i < 50; ++i) {
        if (i % 2 == 0) {
          zor::os::DebugOutputNarrow(line.c_str());
        } else {
          const std::u16string wide(line.begin(), line.end());
          zor::os::DebugOutputWide(wide.c_str());
        }
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string output = testing::internal::GetCapturedStderr();
  std::istringstream lines(output);
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    ++count;
    ASSERT_EQ(line.size(), 200u);
    EXPECT_EQ(line, std::string(200, line[0]));
  }
  EXPECT_EQ(count, 200);
}
#endif
