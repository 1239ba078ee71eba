#include "childprocess.h"

#include "platform/dynamiclibrary.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;
#endif

namespace velapo::test {

#if defined(_WIN32)

struct ChildProcess::State {
  PROCESS_INFORMATION info{};
};

namespace {

// Quotes one argument by the rules CommandLineToArgvW reads back.
std::wstring Quoted(const std::wstring& argument) {
  std::wstring out = L"\"";
  size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    out.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
    backslashes = 0;
    out.push_back(c);
  }
  out.append(backslashes * 2, L'\\');
  out.push_back(L'"');
  return out;
}

}  // namespace

ChildProcess::ChildProcess() = default;

ChildProcess::~ChildProcess() {
  if (!m_state) return;
  if (Wait(0) == kStillRunning) {
    Kill();
    Wait(INFINITE);
  }
  ::CloseHandle(m_state->info.hProcess);
  ::CloseHandle(m_state->info.hThread);
}

bool ChildProcess::Start(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments) {
  if (m_state) return false;
  std::wstring commandLine = Quoted(program.wstring());
  for (const std::string& argument : arguments) {
    commandLine += L" " + Quoted(std::filesystem::path(argument).wstring());
  }
  auto state = std::make_unique<State>();
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  if (!::CreateProcessW(program.wstring().c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0,
                        nullptr, nullptr, &startup, &state->info)) {
    return false;
  }
  m_state = std::move(state);
  return true;
}

int ChildProcess::Wait(uint32_t timeoutMs) {
  if (!m_state) return kStillRunning;
  if (::WaitForSingleObject(m_state->info.hProcess, timeoutMs) != WAIT_OBJECT_0) return kStillRunning;
  DWORD code = 0;
  ::GetExitCodeProcess(m_state->info.hProcess, &code);
  return static_cast<int>(code);
}

void ChildProcess::Kill() {
  if (m_state) ::TerminateProcess(m_state->info.hProcess, 128 + 9);
}

#else

struct ChildProcess::State {
  pid_t pid = -1;
  int pidfd = -1;
  bool reaped = false;
  int exitCode = kStillRunning;
};

ChildProcess::ChildProcess() = default;

ChildProcess::~ChildProcess() {
  if (!m_state) return;
  if (!m_state->reaped) {
    Kill();
    Wait(0xFFFFFFFFu);
  }
  if (m_state->pidfd >= 0) ::close(m_state->pidfd);
}

bool ChildProcess::Start(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments) {
  if (m_state) return false;
  std::vector<std::string> all{program.string()};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& argument : all) argv.push_back(argument.data());
  argv.push_back(nullptr);
  auto state = std::make_unique<State>();
  if (::posix_spawn(&state->pid, all[0].c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
    return false;
  }
  // glibc's pidfd_open wrapper lacks C linkage in some releases; the system call is the same.
  state->pidfd = static_cast<int>(::syscall(SYS_pidfd_open, state->pid, 0));
  m_state = std::move(state);
  return true;
}

int ChildProcess::Wait(uint32_t timeoutMs) {
  if (!m_state) return kStillRunning;
  if (m_state->reaped) return m_state->exitCode;
  if (timeoutMs != 0xFFFFFFFFu && m_state->pidfd >= 0) {
    pollfd ended{m_state->pidfd, POLLIN, 0};
    if (::poll(&ended, 1, static_cast<int>(timeoutMs)) <= 0) return kStillRunning;
  }
  int status = 0;
  if (::waitpid(m_state->pid, &status, 0) != m_state->pid) return kStillRunning;
  m_state->reaped = true;
  m_state->exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return m_state->exitCode;
}

void ChildProcess::Kill() {
  if (m_state && !m_state->reaped) ::kill(m_state->pid, SIGKILL);
}

#endif

std::filesystem::path HelperBesideTest(const std::string& baseName) {
#if defined(_WIN32)
  const char* suffix = ".exe";
#else
  const char* suffix = "";
#endif
  return zor::os::ExecutablePath().parent_path() / (baseName + suffix);
}

}  // namespace velapo::test
