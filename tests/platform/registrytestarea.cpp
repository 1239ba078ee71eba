#include "registrytestarea.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/registry.h"
#include "platform/text.h"

#if defined(_WIN32)
#include <process.h>
#else
#include <unistd.h>
#endif

namespace velapo::test {
namespace {

#if defined(_WIN32)
constexpr char16_t kWindowsParent[] = u"Software\\velapo-tests";
#endif

}  // namespace

RegistryTestArea::RegistryTestArea() {
#if defined(_WIN32)
  static std::atomic<int> counter{0};
  m_root = "-";
  m_base = std::u16string(kWindowsParent) + u"\\" +
           zor::os::NarrowToWide(std::to_string(_getpid()) + "-" + std::to_string(counter++));
#else
  std::string pattern = (std::filesystem::temp_directory_path() / "velapo-registry-XXXXXX").string();
  if (::mkdtemp(pattern.data()) != nullptr) m_root = pattern;
  zor::os::SetRegistryRoot(m_root);
  m_base = u"Software\\VelapoTest";
#endif
}

RegistryTestArea::~RegistryTestArea() {
#if defined(_WIN32)
  zor::os::RegKey parent;
  if (zor::os::RegKey::Open(kWindowsParent, zor::os::kKeyAllAccess, parent) == zor::os::RegStatus::Ok) {
    parent.DeleteSubKeyTree(m_base.substr(std::u16string_view(kWindowsParent).size() + 1));
  }
#else
  std::error_code ignored;
  if (!m_root.empty()) std::filesystem::remove_all(m_root, ignored);
#endif
}

std::u16string RegistryTestArea::Path(std::u16string_view relative) const {
  return relative.empty() ? m_base : m_base + u"\\" + std::u16string(relative);
}

std::string RegistryTestArea::NarrowPath(std::u16string_view relative) const {
  return zor::os::Utf16ToUtf8(Path(relative));
}

void UseRegistryRoot(const std::string& root) {
  if (root != "-") zor::os::SetRegistryRoot(root);
}

}  // namespace velapo::test
