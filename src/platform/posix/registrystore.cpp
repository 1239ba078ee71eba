#include "platform/posix/registrystore.h"

#include <array>
#include <cstring>

#include "platform/littleendian.h"

namespace zor::os::regstore {
namespace {

constexpr uint8_t kMagic[4] = {'V', 'R', 'E', 'G'};

constexpr std::array<uint32_t, 256> MakeCrcTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c = i;
    for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    table[i] = c;
  }
  return table;
}
constexpr std::array<uint32_t, 256> kCrcTable = MakeCrcTable();

struct Header {
  uint32_t type;
  uint32_t nameSize;
  uint32_t dataSize;
};

// Checks what the first kRecordHeaderSize bytes and the file size say; the
// sizes are compared in 64 bits so that no sum can wrap.
RegStatus CheckHeader(std::span<const uint8_t> head, uint64_t fileSize, Header& header) {
  if (head.size() < kRecordHeaderSize || fileSize > kMaxRecordSize) return RegStatus::InvalidData;
  if (std::memcmp(head.data(), kMagic, sizeof(kMagic)) != 0) return RegStatus::InvalidData;
  if (LoadLe32(head.data() + 4) != kRecordVersion) return RegStatus::InvalidData;
  header.type = LoadLe32(head.data() + 8);
  header.nameSize = LoadLe32(head.data() + 12);
  header.dataSize = LoadLe32(head.data() + 16);
  if (header.nameSize % 2 != 0 || header.nameSize > kMaxValueNameUnits * 2 ||
      header.dataSize > kMaxValueBytes) {
    return RegStatus::InvalidData;
  }
  const uint64_t expected = uint64_t{kRecordHeaderSize} + header.nameSize + header.dataSize +
                            kRecordTrailerSize;
  return expected == fileSize ? RegStatus::Ok : RegStatus::InvalidData;
}

std::u16string NameFrom(const uint8_t* bytes, uint32_t size) {
  std::u16string name(size / 2, u'\0');
  for (size_t i = 0; i < name.size(); ++i) {
    name[i] = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  }
  return name;
}

bool KeptAsIs(char16_t unit) {
  return (unit >= u'a' && unit <= u'z') || (unit >= u'0' && unit <= u'9') || unit == u'-' ||
         unit == u'_' || unit == u'.' || unit == u' ' || unit == u'{' || unit == u'}';
}

void AppendHex(std::string& out, uint32_t value, int digits) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) out.push_back(kDigits[(value >> shift) & 0xF]);
}

bool ParseHex(std::string_view text, uint32_t& value) {
  value = 0;
  for (const char c : text) {
    uint32_t digit = 0;
    if (c >= '0' && c <= '9') {
      digit = static_cast<uint32_t>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      digit = static_cast<uint32_t>(c - 'a' + 10);
    } else {
      return false;  // upper-case hex is not a form EscapeName writes
    }
    value = value * 16 + digit;
  }
  return true;
}

uint64_t Fnv1a64(std::u16string_view units) {
  uint64_t hash = 0xCBF29CE484222325ull;
  for (const char16_t unit : units) {
    for (const uint8_t byte : {static_cast<uint8_t>(unit), static_cast<uint8_t>(unit >> 8)}) {
      hash ^= byte;
      hash *= 0x100000001B3ull;
    }
  }
  return hash;
}

}  // namespace

uint32_t Crc32(std::span<const uint8_t> bytes) {
  uint32_t crc = 0xFFFFFFFFu;
  for (const uint8_t byte : bytes) crc = kCrcTable[(crc ^ byte) & 0xFF] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

std::vector<uint8_t> EncodeRecord(uint32_t type, std::u16string_view name,
                                  std::span<const uint8_t> data) {
  const uint32_t nameSize = static_cast<uint32_t>(name.size() * 2);
  const uint32_t dataSize = static_cast<uint32_t>(data.size());
  std::vector<uint8_t> out(kRecordHeaderSize + nameSize + dataSize + kRecordTrailerSize);
  std::memcpy(out.data(), kMagic, sizeof(kMagic));
  StoreLe32(out.data() + 4, kRecordVersion);
  StoreLe32(out.data() + 8, type);
  StoreLe32(out.data() + 12, nameSize);
  StoreLe32(out.data() + 16, dataSize);
  uint8_t* at = out.data() + kRecordHeaderSize;
  for (const char16_t unit : name) {
    *at++ = static_cast<uint8_t>(unit);
    *at++ = static_cast<uint8_t>(unit >> 8);
  }
  if (dataSize != 0) std::memcpy(at, data.data(), dataSize);
  const size_t checked = out.size() - kRecordTrailerSize;
  StoreLe32(out.data() + checked, Crc32(std::span<const uint8_t>(out).first(checked)));
  return out;
}

RegStatus DecodeRecord(std::span<const uint8_t> file, Record& record) {
  Header header{};
  if (const RegStatus status = CheckHeader(file, file.size(), header); status != RegStatus::Ok) {
    return status;
  }
  const size_t checked = file.size() - kRecordTrailerSize;
  if (Crc32(file.first(checked)) != LoadLe32(file.data() + checked)) return RegStatus::InvalidData;
  record.type = header.type;
  record.name = NameFrom(file.data() + kRecordHeaderSize, header.nameSize);
  const uint8_t* data = file.data() + kRecordHeaderSize + header.nameSize;
  record.data.assign(data, data + header.dataSize);
  return RegStatus::Ok;
}

RegStatus DecodeRecordName(std::span<const uint8_t> head, uint64_t fileSize, std::u16string& name) {
  Header header{};
  if (const RegStatus status = CheckHeader(head, fileSize, header); status != RegStatus::Ok) {
    return status;
  }
  if (head.size() < kRecordHeaderSize + header.nameSize) return RegStatus::InvalidData;
  name = NameFrom(head.data() + kRecordHeaderSize, header.nameSize);
  return RegStatus::Ok;
}

std::u16string FoldName(std::u16string_view name) {
  const size_t nul = name.find(u'\0');
  std::u16string folded(nul == std::u16string_view::npos ? name : name.substr(0, nul));
  for (char16_t& unit : folded) {
    if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit + (u'a' - u'A'));
  }
  return folded;
}

std::string EscapeName(std::u16string_view folded) {
  std::string out;
  // Where each unit's escape ends, so a long name is cut between units.
  std::vector<size_t> ends;
  ends.reserve(folded.size());
  for (size_t i = 0; i < folded.size(); ++i) {
    const char16_t unit = folded[i];
    if (KeptAsIs(unit) && !(i == 0 && unit == u'.')) {
      out.push_back(static_cast<char>(unit));
    } else if (unit < 0x100) {
      out.push_back('%');
      AppendHex(out, unit, 2);
    } else {
      out.push_back('^');
      AppendHex(out, unit, 4);
    }
    ends.push_back(out.size());
  }
  if (out.size() <= kMaxEscapedBytes) return out;
  // Keep a readable start; the hash tells long names apart.
  constexpr size_t kKeptBytes = kMaxEscapedBytes - 17;
  size_t cut = 0;
  for (const size_t end : ends) {
    if (end > kKeptBytes) break;
    cut = end;
  }
  out.resize(cut);
  out.push_back('~');
  AppendHex(out, static_cast<uint32_t>(Fnv1a64(folded) >> 32), 8);
  AppendHex(out, static_cast<uint32_t>(Fnv1a64(folded)), 8);
  return out;
}

bool UnescapeName(std::string_view escaped, std::u16string& folded) {
  folded.clear();
  for (size_t i = 0; i < escaped.size();) {
    const char c = escaped[i];
    uint32_t unit = 0;
    if (c == '%' || c == '^') {
      const size_t digits = c == '%' ? 2 : 4;
      if (escaped.size() - i - 1 < digits || !ParseHex(escaped.substr(i + 1, digits), unit)) {
        return false;
      }
      i += 1 + digits;
    } else {
      unit = static_cast<unsigned char>(c);
      ++i;
    }
    folded.push_back(static_cast<char16_t>(unit));
  }
  // Only the one canonical spelling counts, so "%61" never stands for "a"
  // and a hashed or damaged file name never passes for a name.
  return !folded.empty() && EscapeName(folded) == escaped;
}

namespace {

// The SIDs that stand for every local user: Everyone, Authenticated Users,
// Users, Interactive, as aliases or in numeric form.
// The accounts that have a counterpart in file permissions: everyone is
// the key's group and all others; the users who log on (authenticated,
// interactive, the Users group) are the key's group, the store's users.
enum class Account { Everyone, Users, None };
Account AccountOf(std::u16string_view sid) {
  for (const std::u16string_view known : {u"WD", u"S-1-1-0"}) {
    if (sid == known) return Account::Everyone;
  }
  for (const std::u16string_view known : {u"AU", u"BU", u"IU", u"S-1-5-11", u"S-1-5-32-545", u"S-1-5-4"}) {
    if (sid == known) return Account::Users;
  }
  return Account::None;
}

struct Rights {
  bool read = false;
  bool write = false;
};

bool ParseRights(std::u16string_view text, Rights& rights) {
  if (text.starts_with(u"0x") || text.starts_with(u"0X")) {
    uint64_t mask = 0;
    if (text.size() == 2 || text.size() > 10) return false;
    for (const char16_t c : text.substr(2)) {
      uint32_t digit = 0;
      if (c >= u'0' && c <= u'9') {
        digit = c - u'0';
      } else if (c >= u'a' && c <= u'f') {
        digit = c - u'a' + 10;
      } else if (c >= u'A' && c <= u'F') {
        digit = c - u'A' + 10;
      } else {
        return false;
      }
      mask = mask * 16 + digit;
    }
    constexpr uint64_t kGenericAll = 0x10000000, kGenericWrite = 0x40000000,
                       kGenericRead = 0x80000000;
    rights.read = (mask & (kGenericAll | kGenericRead | kKeyQueryValue)) != 0;
    rights.write = (mask & (kGenericAll | kGenericWrite | kKeySetValue)) != 0;
    return true;
  }
  if (text.size() % 2 != 0) return false;
  for (size_t i = 0; i < text.size(); i += 2) {
    const std::u16string_view code = text.substr(i, 2);
    if (code == u"GA" || code == u"KA" || code == u"FA") {
      rights.read = rights.write = true;
    } else if (code == u"GR" || code == u"KR" || code == u"FR") {
      rights.read = true;
    } else if (code == u"GW" || code == u"KW" || code == u"FW") {
      rights.write = true;
    } else {
      // Rights with no read or write meaning for a key's files.
      static constexpr std::u16string_view kOthers[] = {
          u"GX", u"KX", u"FX", u"RC", u"SD", u"WD", u"WO", u"RP", u"WP", u"CC",
          u"DC", u"LC", u"SW", u"LO", u"DT", u"CR", u"NR", u"NW", u"NX"};
      bool known = false;
      for (const std::u16string_view other : kOthers) known = known || code == other;
      if (!known) return false;
    }
  }
  return true;
}

}  // namespace

bool DescriptorToMode(std::u16string_view descriptor, uint32_t& mode) {
  // The DACL section is "D:" at the top level, up to the next section ("O:",
  // "G:" or "S:") or the end; inside parentheses letters mean other things.
  auto sectionAt = [descriptor](size_t i, int depth) {
    return depth == 0 && i + 1 < descriptor.size() && descriptor[i + 1] == u':';
  };
  size_t at = std::u16string_view::npos;
  int depth = 0;
  for (size_t i = 0; i < descriptor.size() && at == std::u16string_view::npos; ++i) {
    if (sectionAt(i, depth) && descriptor[i] == u'D') at = i + 2;
    depth += descriptor[i] == u'(' ? 1 : descriptor[i] == u')' ? -1 : 0;
  }
  if (at == std::u16string_view::npos) return false;
  size_t end = at;
  for (depth = 0; end < descriptor.size(); ++end) {
    const char16_t c = descriptor[end];
    if (sectionAt(end, depth) && (c == u'O' || c == u'G' || c == u'S')) break;
    depth += c == u'(' ? 1 : c == u')' ? -1 : 0;
  }
  std::u16string_view dacl = descriptor.substr(at, end - at);
  const size_t firstAce = dacl.find(u'(');
  const std::u16string_view flags = dacl.substr(0, firstAce);
  if (flags.find(u"NO_ACCESS_CONTROL") != std::u16string_view::npos) {
    mode = 0777;
    return true;
  }
  Rights allowedEveryone;
  Rights allowedUsers;
  Rights denied;
  dacl.remove_prefix(firstAce == std::u16string_view::npos ? dacl.size() : firstAce);
  while (!dacl.empty()) {
    if (dacl.front() != u'(') return false;
    const size_t close = dacl.find(u')');
    if (close == std::u16string_view::npos) return false;
    const std::u16string_view ace = dacl.substr(1, close - 1);
    dacl.remove_prefix(close + 1);
    // type;flags;rights;object;inherited object;account
    std::vector<std::u16string_view> fields;
    for (size_t start = 0;;) {
      const size_t semicolon = ace.find(u';', start);
      fields.push_back(ace.substr(start, semicolon - start));
      if (semicolon == std::u16string_view::npos) break;
      start = semicolon + 1;
    }
    if (fields.size() != 6) return false;
    Rights rights;
    if (!ParseRights(fields[2], rights)) return false;
    const bool allow = fields[0] == u"A";
    if (!allow && fields[0] != u"D") return false;
    const Account account = AccountOf(fields[5]);
    if (account == Account::None) continue;
    // A deny for either class holds for both: everyone includes the users.
    Rights& target = !allow ? denied : account == Account::Everyone ? allowedEveryone : allowedUsers;
    target.read = target.read || rights.read;
    target.write = target.write || rights.write;
  }
  const auto bits = [&denied](bool read, bool write) {
    return ((read && !denied.read) ? 05u : 0u) | ((write && !denied.write) ? 03u : 0u);
  };
  const uint32_t group = bits(allowedEveryone.read || allowedUsers.read, allowedEveryone.write || allowedUsers.write);
  const uint32_t others = bits(allowedEveryone.read, allowedEveryone.write);
  // Set-group-ID on a key the group may use, so that every key and value
  // made below it, by whichever member, belongs to the same group.
  mode = 0700u | (group << 3) | others | (group != 0 ? 02000u : 0u);
  return true;
}

}  // namespace zor::os::regstore
