#pragma once
// Configuration files for tests: each text goes to a fresh path in the
// temporary directory, since the process never reads a path twice. The files
// are removed when the object goes.

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

class ConfigFiles {
 public:
  ConfigFiles() = default;
  ConfigFiles(const ConfigFiles&) = delete;
  ConfigFiles& operator=(const ConfigFiles&) = delete;
  ~ConfigFiles() {
    std::error_code ignored;
    for (const auto& path : m_paths) std::filesystem::remove(path, ignored);
  }

  // A path that no file and no earlier load has used.
  std::filesystem::path FreshPath() {
    static std::atomic<unsigned> counter{0};
    static const unsigned run = std::random_device{}();
    const std::string name = "velapo_config_" + std::to_string(run) + "_" +
                             std::to_string(counter.fetch_add(1)) + ".xml";
    m_paths.push_back(std::filesystem::temp_directory_path() / name);
    return m_paths.back();
  }

  std::u16string Write(std::string_view text) {
    const std::filesystem::path path = FreshPath();
    Overwrite(path, text);
    return path.u16string();
  }

  static void Overwrite(const std::filesystem::path& path, std::string_view text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
  }

 private:
  std::vector<std::filesystem::path> m_paths;
};
