#pragma once
// ZORRegistrarScript: the registration scripts the module keeps as
// resources, read into a tree of keys and values. The language is the small
// one COM servers use for their entries:
//
//   HKCR
//   {
//     NoRemove CLSID
//     {
//       ForceRemove {GUID} = s 'Name'
//       {
//         InprocServer32 = s '%MODULE%'
//         {
//           val ThreadingModel = s 'Both'
//         }
//         val Flags = d '12'
//       }
//     }
//   }
//
// Roots: HKCR (HKEY_CLASSES_ROOT) and HKLM (HKEY_LOCAL_MACHINE); a script
// needs no other. A key is a bare word or a quoted name, optionally with a
// default value (`= s '...'` or `= d '...'`) and a body of subkeys and named
// values (`val Name = ...`). Modifiers before a key: NoRemove (removal enters
// the key but never deletes it), ForceRemove (registration deletes the key
// with everything below before making it anew), Delete (registration deletes
// the key and makes nothing). Keywords are matched regardless of case; a
// quoted word is always a name. Inside quotes, '' stands for one quote.
// Braces open and close bodies, except that a '{' closed by '}' before any
// space, quote or '=' is a name, as class ids are written: {GUID}.
// DWORDs are decimal or 0x-hexadecimal.
//
// %NAME% in any word is replaced by the caller's value for NAME once the
// word is read, so a replacement holding quotes or braces can't change the
// script's shape; %% is one percent sign. An unknown name is an error.
//
// Bad text of any kind is answered by false and a message with the offset,
// never by a partial tree: the parser is bounded in depth, length and names.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

enum class ZORRegistrarRoot { ClassesRoot, LocalMachine };

enum class ZORRegistrarValueKind { String, Dword };

struct ZORRegistrarValue {
  std::u16string name;  // empty for a key's default value
  ZORRegistrarValueKind kind = ZORRegistrarValueKind::String;
  std::u16string text;  // String
  uint32_t number = 0;  // Dword
};

struct ZORRegistrarKey {
  std::u16string name;
  bool noRemove = false;
  bool forceRemove = false;
  bool deleteOnRegister = false;
  bool hasDefault = false;
  ZORRegistrarValue defaultValue;
  std::vector<ZORRegistrarValue> values;
  std::vector<ZORRegistrarKey> subkeys;
};

struct ZORRegistrarRootBlock {
  ZORRegistrarRoot root = ZORRegistrarRoot::ClassesRoot;
  std::vector<ZORRegistrarKey> keys;
};

// One %NAME% and what it stands for.
struct ZORRegistrarReplacement {
  std::u16string_view name;
  std::u16string_view value;
};

class ZORRegistrarScript {
 public:
  // Bounds on what a script may hold; anything beyond them is refused.
  static constexpr size_t kMaxScriptUnits = 64 * 1024;
  static constexpr size_t kMaxDepth = 16;
  static constexpr size_t kMaxKeyNameUnits = 255;
  static constexpr size_t kMaxValueNameUnits = 16383;
  static constexpr size_t kMaxTextUnits = 32767;

  // Reads the script, replacing %NAME% as `replacements` say. On failure the
  // tree is empty and Error() says what and where.
  bool Parse(std::u16string_view text, std::span<const ZORRegistrarReplacement> replacements);
  // The same for script bytes in UTF-8, as resources keep them; bytes that
  // are not well-formed UTF-8 are refused.
  bool ParseUtf8(std::string_view bytes, std::span<const ZORRegistrarReplacement> replacements);

  const std::vector<ZORRegistrarRootBlock>& Roots() const { return m_roots; }
  const std::string& Error() const { return m_error; }
  // Offset in UTF-16 units of the text near where reading stopped.
  size_t ErrorOffset() const { return m_errorOffset; }

 private:
  std::vector<ZORRegistrarRootBlock> m_roots;
  std::string m_error;
  size_t m_errorOffset = 0;
};
