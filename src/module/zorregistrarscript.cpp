#include "module/zorregistrarscript.h"


#include "platform/text.h"

namespace {

enum class TokenKind { End, Word, Quoted, OpenBrace, CloseBrace, Equals };

struct Token {
  TokenKind kind = TokenKind::End;
  std::u16string text;  // Word and Quoted, after unquoting and replacement
  size_t offset = 0;
};

char16_t FoldAscii(char16_t unit) { return (unit >= u'a' && unit <= u'z') ? unit - 32 : unit; }

bool SameWord(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
  }
  return true;
}

bool IsSpace(char16_t unit) {
  return unit == u' ' || unit == u'\t' || unit == u'\r' || unit == u'\n' || unit == 0xFEFF;
}

bool IsDelimiter(char16_t unit) {
  return IsSpace(unit) || unit == u'{' || unit == u'}' || unit == u'=' || unit == u'\'';
}

bool IsReplacementNameUnit(char16_t unit) {
  return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z') ||
         (unit >= u'0' && unit <= u'9') || unit == u'_';
}

// Reads the script one token at a time and parses it by recursive descent.
// Every failure sets the message once and unwinds by returning false.
class Parser {
 public:
  Parser(std::u16string_view text, std::span<const ZORRegistrarReplacement> replacements)
      : m_text(text), m_replacements(replacements) {}

  bool Run(std::vector<ZORRegistrarRootBlock>& roots) {
    if (!Next()) return false;
    while (m_token.kind != TokenKind::End) {
      ZORRegistrarRootBlock block;
      if (!ParseRoot(block)) return false;
      roots.push_back(std::move(block));
    }
    return true;
  }

  const std::string& Error() const { return m_error; }
  size_t ErrorOffset() const { return m_errorOffset; }

 private:
  bool Fail(const char* message, size_t offset) {
    m_error = message;
    m_errorOffset = offset;
    return false;
  }
  bool Fail(const char* message) { return Fail(message, m_token.offset); }

  bool IsBareWord(std::u16string_view word) const {
    return m_token.kind == TokenKind::Word && SameWord(m_token.text, word);
  }

  bool ParseRoot(ZORRegistrarRootBlock& block) {
    if (IsBareWord(u"HKCR") || IsBareWord(u"HKEY_CLASSES_ROOT")) {
      block.root = ZORRegistrarRoot::ClassesRoot;
    } else if (IsBareWord(u"HKLM") || IsBareWord(u"HKEY_LOCAL_MACHINE")) {
      block.root = ZORRegistrarRoot::LocalMachine;
    } else if (m_token.kind == TokenKind::Word || m_token.kind == TokenKind::Quoted) {
      return Fail("unsupported root key");
    } else {
      return Fail("a root key was expected");
    }
    if (!Next()) return false;
    if (m_token.kind != TokenKind::OpenBrace) return Fail("'{' was expected after the root key");
    if (!Next()) return false;
    while (m_token.kind != TokenKind::CloseBrace) {
      if (m_token.kind == TokenKind::End) return Fail("the root's '}' is missing");
      if (IsBareWord(u"val")) return Fail("a root key holds no values");
      ZORRegistrarKey key;
      if (!ParseKey(key, 1)) return false;
      block.keys.push_back(std::move(key));
    }
    return Next();
  }

  bool ParseKey(ZORRegistrarKey& key, size_t depth) {
    if (depth > ZORRegistrarScript::kMaxDepth) return Fail("keys are nested too deeply");
    for (;;) {
      bool* flag = nullptr;
      if (IsBareWord(u"NoRemove")) flag = &key.noRemove;
      else if (IsBareWord(u"ForceRemove")) flag = &key.forceRemove;
      else if (IsBareWord(u"Delete")) flag = &key.deleteOnRegister;
      if (flag == nullptr) break;
      if (*flag) return Fail("a modifier is repeated");
      *flag = true;
      if (!Next()) return false;
    }
    if (key.noRemove && (key.forceRemove || key.deleteOnRegister)) {
      return Fail("NoRemove contradicts ForceRemove and Delete");
    }
    if (m_token.kind != TokenKind::Word && m_token.kind != TokenKind::Quoted) {
      return Fail("a key name was expected");
    }
    if (m_token.text.empty() || m_token.text.size() > ZORRegistrarScript::kMaxKeyNameUnits) {
      return Fail("a key name is empty or too long");
    }
    // One name is one key: a separator would reach keys the script doesn't name.
    if (m_token.text.find(u'\\') != std::u16string::npos || m_token.text.find(u'\0') != std::u16string::npos) {
      return Fail("a key name holds '\\' or NUL");
    }
    key.name = std::move(m_token.text);
    if (!Next()) return false;
    if (m_token.kind == TokenKind::Equals) {
      if (!Next()) return false;
      key.hasDefault = true;
      if (!ParseValueData(key.defaultValue)) return false;
    }
    if (m_token.kind != TokenKind::OpenBrace) return true;
    if (!Next()) return false;
    while (m_token.kind != TokenKind::CloseBrace) {
      if (m_token.kind == TokenKind::End) return Fail("a key's '}' is missing");
      if (IsBareWord(u"val")) {
        if (!Next()) return false;
        ZORRegistrarValue value;
        if (!ParseNamedValue(value)) return false;
        key.values.push_back(std::move(value));
      } else {
        ZORRegistrarKey subkey;
        if (!ParseKey(subkey, depth + 1)) return false;
        key.subkeys.push_back(std::move(subkey));
      }
    }
    return Next();
  }

  bool ParseNamedValue(ZORRegistrarValue& value) {
    if (m_token.kind != TokenKind::Word && m_token.kind != TokenKind::Quoted) {
      return Fail("a value name was expected after 'val'");
    }
    if (m_token.text.empty() || m_token.text.size() > ZORRegistrarScript::kMaxValueNameUnits ||
        m_token.text.find(u'\0') != std::u16string::npos) {
      return Fail("a value name is empty, too long or holds NUL");
    }
    value.name = std::move(m_token.text);
    if (!Next()) return false;
    if (m_token.kind != TokenKind::Equals) return Fail("'=' was expected after a value name");
    if (!Next()) return false;
    return ParseValueData(value);
  }

  // `s 'text'` or `d 'number'`, leaving the token after it current.
  bool ParseValueData(ZORRegistrarValue& value) {
    if (IsBareWord(u"s")) {
      value.kind = ZORRegistrarValueKind::String;
    } else if (IsBareWord(u"d")) {
      value.kind = ZORRegistrarValueKind::Dword;
    } else {
      return Fail("a value type 's' or 'd' was expected");
    }
    if (!Next()) return false;
    if (m_token.kind != TokenKind::Quoted) return Fail("a value's data must be quoted");
    if (value.kind == ZORRegistrarValueKind::String) {
      value.text = std::move(m_token.text);
    } else if (!ParseDword(m_token.text, value.number)) {
      return Fail("a DWORD must be a decimal or 0x number below 2^32");
    }
    return Next();
  }

  static bool ParseDword(std::u16string_view text, uint32_t& number) {
    uint32_t base = 10;
    if (text.size() > 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X')) {
      base = 16;
      text.remove_prefix(2);
    }
    if (text.empty()) return false;
    uint64_t total = 0;
    for (const char16_t unit : text) {
      uint32_t digit = 0;
      if (unit >= u'0' && unit <= u'9') digit = unit - u'0';
      else if (base == 16 && unit >= u'a' && unit <= u'f') digit = unit - u'a' + 10;
      else if (base == 16 && unit >= u'A' && unit <= u'F') digit = unit - u'A' + 10;
      else return false;
      total = total * base + digit;
      if (total > 0xFFFFFFFFull) return false;
    }
    number = static_cast<uint32_t>(total);
    return true;
  }

  // Makes the next token current; false (with the message set) on bad text.
  bool Next() {
    while (m_pos < m_text.size() && IsSpace(m_text[m_pos])) ++m_pos;
    m_token = Token{};
    m_token.offset = m_pos;
    if (m_pos == m_text.size()) return true;
    const char16_t unit = m_text[m_pos];
    if (unit == u'{' && BracedNameEnd() != 0) {
      // "{GUID}": a name, written bare as class ids are.
      m_token.kind = TokenKind::Word;
      const size_t end = BracedNameEnd();
      const std::u16string raw(m_text.substr(m_pos, end - m_pos));
      m_pos = end;
      return Replace(raw, m_token.text);
    }
    if (unit == u'{' || unit == u'}' || unit == u'=') {
      m_token.kind = unit == u'{' ? TokenKind::OpenBrace : unit == u'}' ? TokenKind::CloseBrace : TokenKind::Equals;
      ++m_pos;
      return true;
    }
    std::u16string raw;
    if (unit == u'\'') {
      m_token.kind = TokenKind::Quoted;
      for (++m_pos;; ++m_pos) {
        if (m_pos == m_text.size()) return Fail("a quote is not closed", m_token.offset);
        if (m_text[m_pos] == u'\'') {
          if (m_pos + 1 < m_text.size() && m_text[m_pos + 1] == u'\'') {
            ++m_pos;
          } else {
            ++m_pos;
            break;
          }
        }
        raw.push_back(m_text[m_pos]);
      }
    } else {
      m_token.kind = TokenKind::Word;
      while (m_pos < m_text.size() && !IsDelimiter(m_text[m_pos])) raw.push_back(m_text[m_pos++]);
    }
    return Replace(raw, m_token.text);
  }

  // The end of a name that starts with the '{' at the current position and
  // closes with '}' before any space or other delimiter; 0 when the '{'
  // opens a body instead.
  size_t BracedNameEnd() const {
    for (size_t end = m_pos + 1; end < m_text.size(); ++end) {
      if (m_text[end] == u'}') return end > m_pos + 1 ? end + 1 : 0;
      if (IsDelimiter(m_text[end])) return 0;
    }
    return 0;
  }

  bool Replace(std::u16string_view raw, std::u16string& out) {
    for (size_t i = 0; i < raw.size(); ++i) {
      if (raw[i] != u'%') {
        out.push_back(raw[i]);
      } else {
        size_t end = i + 1;
        while (end < raw.size() && IsReplacementNameUnit(raw[end])) ++end;
        if (end == raw.size() || raw[end] != u'%') return Fail("a '%' starts no replacement", m_token.offset);
        const std::u16string_view name = raw.substr(i + 1, end - i - 1);
        if (name.empty()) {
          out.push_back(u'%');
        } else {
          const ZORRegistrarReplacement* found = nullptr;
          for (const ZORRegistrarReplacement& replacement : m_replacements) {
            if (SameWord(replacement.name, name)) found = &replacement;
          }
          if (found == nullptr) return Fail("an unknown replacement name", m_token.offset);
          out.append(found->value);
        }
        i = end;
      }
      if (out.size() > ZORRegistrarScript::kMaxTextUnits) return Fail("a word is too long", m_token.offset);
    }
    return true;
  }

  std::u16string_view m_text;
  std::span<const ZORRegistrarReplacement> m_replacements;
  size_t m_pos = 0;
  Token m_token;
  std::string m_error;
  size_t m_errorOffset = 0;
};

}  // namespace

bool ZORRegistrarScript::Parse(std::u16string_view text,
                               std::span<const ZORRegistrarReplacement> replacements) {
  m_roots.clear();
  m_error.clear();
  m_errorOffset = 0;
  if (text.size() > kMaxScriptUnits) {
    m_error = "the script is too long";
    return false;
  }
  Parser parser(text, replacements);
  if (parser.Run(m_roots)) return true;
  m_roots.clear();
  m_error = parser.Error();
  m_errorOffset = parser.ErrorOffset();
  return false;
}

bool ZORRegistrarScript::ParseUtf8(std::string_view bytes,
                                   std::span<const ZORRegistrarReplacement> replacements) {
  m_roots.clear();
  m_errorOffset = 0;
  if (bytes.size() > kMaxScriptUnits * 3) {
    m_error = "the script is too long";
    return false;
  }
  const std::u16string text = zor::os::Utf8ToUtf16(bytes);
  // The converter marks ill-formed bytes instead of refusing them; a text
  // that doesn't convert back to the same bytes held some.
  if (zor::os::Utf16ToUtf8(text) != bytes) {
    m_error = "the script is not well-formed UTF-8";
    return false;
  }
  return Parse(text, replacements);
}
