#include <io.h>

#include "hostendpoint.h"
#include "hostplatform.h"

// The registry is the one store on Windows: a private endpoint lives under a
// GUID of its own there, and there is no root to make or remove.
bool MakePrivateStoreRoot(std::string& root) {
  root.clear();
  return true;
}
void RemovePrivateStoreRoot(const std::string&) {}
bool UseStoreRoot(const std::string& directory) { return directory.empty(); }

bool IsTerminal(FILE* stream) { return _isatty(_fileno(stream)) != 0; }

const char* NullDevice() { return "NUL"; }
