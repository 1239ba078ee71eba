#pragma once

// Small services of the APO family that need nothing but the log.
class ZORAPOUtils {
 public:
  // Writes the five-line banner with the system's own version and the given
  // name, version and build date to the log. Any thread.
  static void PrintVersionBanner(const char* name, const char* version, const char* buildDate);
};
