#include "core/zorwideformat.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "core/zorlog.h"
#include "platform/text.h"

namespace {

// Bigger widths and precisions only ever fill the whole log line, so they are
// clamped to keep the C library's sub-format small.
constexpr int kMaxFieldSize = 4096;
// Room for one number from the C library; longer numbers are cut, as the
// line they go into is no longer.
constexpr size_t kNumberBytes = 2048;
constexpr size_t kNarrowStringUnits = 2048;

enum class Length { None, Char, Short, Long, LongLong, Size, Max, PtrDiff, LongDouble, Int32, Wide };

struct Directive {
  bool leftAlign = false;
  bool plus = false;
  bool space = false;
  bool alternate = false;
  bool zeroPad = false;
  int width = -1;
  int precision = -1;
  Length length = Length::None;
  char16_t conversion = 0;
};

// Writes into a buffer of at least one unit, keeping room for the terminator.
class WideWriter {
 public:
  WideWriter(char16_t* buffer, size_t capacity)
      : m_buffer(buffer), m_limit(capacity - 1) {}

  void Put(char16_t unit) {
    if (m_length < m_limit) {
      m_buffer[m_length++] = unit;
    } else {
      m_cut = true;
    }
  }
  void Put(std::u16string_view units) {
    for (const char16_t unit : units) Put(unit);
  }
  void PutAscii(std::string_view text) {
    for (const char c : text) Put(static_cast<char16_t>(static_cast<unsigned char>(c)));
  }
  void Pad(int count) {
    for (int i = 0; i < count; ++i) Put(u' ');
  }
  size_t Finish() {
    // A cut line does not end in half a surrogate pair.
    if (m_cut && m_length > 0 && m_buffer[m_length - 1] >= 0xD800 && m_buffer[m_length - 1] <= 0xDBFF) {
      --m_length;
    }
    m_buffer[m_length] = u'\0';
    return m_length;
  }

 private:
  char16_t* m_buffer;
  size_t m_limit;  // units before the terminator
  size_t m_length = 0;
  bool m_cut = false;
};

bool IsDigit(char16_t unit) { return unit >= u'0' && unit <= u'9'; }

int ReadNumber(const char16_t*& at) {
  int value = 0;
  while (IsDigit(*at)) {
    if (value < kMaxFieldSize) value = value * 10 + (*at - u'0');
    ++at;
  }
  return value < kMaxFieldSize ? value : kMaxFieldSize;
}

bool StartsWith(const char16_t* at, std::u16string_view prefix) {
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (at[i] != prefix[i]) return false;  // stops at the terminator too
  }
  return true;
}

// Reads flags, width, precision and length; '*' fields come from args.
// Leaves `at` on the conversion character.
Directive ReadDirective(const char16_t*& at, va_list* args) {
  Directive directive;
  for (;; ++at) {
    if (*at == u'-') {
      directive.leftAlign = true;
    } else if (*at == u'+') {
      directive.plus = true;
    } else if (*at == u' ') {
      directive.space = true;
    } else if (*at == u'#') {
      directive.alternate = true;
    } else if (*at == u'0') {
      directive.zeroPad = true;
    } else {
      break;
    }
  }
  if (*at == u'*') {
    ++at;
    const int width = va_arg(*args, int);
    if (width < 0) directive.leftAlign = true;
    const int64_t magnitude = width < 0 ? -static_cast<int64_t>(width) : width;
    directive.width = static_cast<int>(magnitude < kMaxFieldSize ? magnitude : kMaxFieldSize);
  } else if (IsDigit(*at)) {
    directive.width = ReadNumber(at);
  }
  if (*at == u'.') {
    ++at;
    if (*at == u'*') {
      ++at;
      const int precision = va_arg(*args, int);
      directive.precision = precision < 0 ? -1 : (precision < kMaxFieldSize ? precision : kMaxFieldSize);
    } else {
      directive.precision = ReadNumber(at);
    }
  }
  struct Modifier {
    std::u16string_view text;
    Length length;
  };
  static constexpr Modifier kModifiers[] = {
      {u"hh", Length::Char},     {u"h", Length::Short},     {u"ll", Length::LongLong},
      {u"l", Length::Long},      {u"L", Length::LongDouble}, {u"q", Length::LongLong},
      {u"z", Length::Size},      {u"j", Length::Max},       {u"t", Length::PtrDiff},
      {u"I64", Length::LongLong}, {u"I32", Length::Int32},  {u"I", Length::Size},
      {u"w", Length::Wide}};
  for (const Modifier& modifier : kModifiers) {
    if (StartsWith(at, modifier.text)) {
      directive.length = modifier.length;
      at += modifier.text.size();
      break;
    }
  }
  directive.conversion = *at;
  return directive;
}

long long ReadSigned(Length length, va_list* args) {
  switch (length) {
    case Length::Char: return static_cast<signed char>(va_arg(*args, int));
    case Length::Short: return static_cast<short>(va_arg(*args, int));
    case Length::Long: return va_arg(*args, long);
    case Length::LongLong: return va_arg(*args, long long);
    case Length::Size:
    case Length::PtrDiff: return va_arg(*args, ptrdiff_t);
    case Length::Max: return va_arg(*args, intmax_t);
    default: return va_arg(*args, int);
  }
}

unsigned long long ReadUnsigned(Length length, va_list* args) {
  switch (length) {
    case Length::Char: return static_cast<unsigned char>(va_arg(*args, unsigned));
    case Length::Short: return static_cast<unsigned short>(va_arg(*args, unsigned));
    case Length::Long: return va_arg(*args, unsigned long);
    case Length::LongLong: return va_arg(*args, unsigned long long);
    case Length::Size:
    case Length::PtrDiff: return va_arg(*args, size_t);
    case Length::Max: return va_arg(*args, uintmax_t);
    default: return va_arg(*args, unsigned);
  }
}

// The narrow C format for one number: the directive's flags, width and
// precision, then `length` and `conversion`.
void BuildNumberFormat(const Directive& directive, const char* length, char conversion,
                       char (&format)[48]) {
  char* out = format;
  *out++ = '%';
  if (directive.leftAlign) *out++ = '-';
  if (directive.plus) *out++ = '+';
  if (directive.space) *out++ = ' ';
  if (directive.alternate) *out++ = '#';
  if (directive.zeroPad) *out++ = '0';
  const auto appendNumber = [&out](int value) {
    char digits[12];
    int count = 0;
    do {
      digits[count++] = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value > 0);
    while (count > 0) *out++ = digits[--count];
  };
  if (directive.width >= 0) appendNumber(directive.width);
  if (directive.precision >= 0) {
    *out++ = '.';
    appendNumber(directive.precision);
  }
  while (*length != '\0') *out++ = *length++;
  *out++ = conversion;
  *out = '\0';
}

// The sub-format is built above from a directive that was checked, so it is
// safe to hand over as a non-literal format.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename Value>
void PutNumber(WideWriter& writer, const Directive& directive, const char* length,
               char conversion, Value value) {
  char format[48];
  BuildNumberFormat(directive, length, conversion, format);
  char text[kNumberBytes];
  const int written = std::snprintf(text, sizeof text, format, value);
  if (written <= 0) return;
  const size_t size = static_cast<size_t>(written) < sizeof text ? static_cast<size_t>(written)
                                                                 : sizeof text - 1;
  writer.PutAscii(std::string_view(text, size));
}
#pragma GCC diagnostic pop

void PutPadded(WideWriter& writer, const Directive& directive, std::u16string_view text) {
  const int padding = directive.width > static_cast<int>(text.size())
                          ? directive.width - static_cast<int>(text.size())
                          : 0;
  if (!directive.leftAlign) writer.Pad(padding);
  writer.Put(text);
  if (directive.leftAlign) writer.Pad(padding);
}

void PutWideString(WideWriter& writer, const Directive& directive, const char16_t* text) {
  if (text == nullptr) text = u"(null)";
  size_t length = 0;
  while ((directive.precision < 0 || length < static_cast<size_t>(directive.precision)) &&
         text[length] != u'\0') {
    ++length;
  }
  PutPadded(writer, directive, std::u16string_view(text, length));
}

void PutNarrowString(WideWriter& writer, const Directive& directive, const char* text) {
  if (text == nullptr) text = "(null)";
  // The precision counts bytes, and nothing past it is read.
  size_t length = 0;
  while ((directive.precision < 0 || length < static_cast<size_t>(directive.precision)) &&
         text[length] != '\0') {
    ++length;
  }
  char16_t wide[kNarrowStringUnits];
  const size_t units = zor::os::NarrowToWideInto(std::string_view(text, length), wide, kNarrowStringUnits);
  PutPadded(writer, directive, std::u16string_view(wide, units));
}

void PutNarrowChar(WideWriter& writer, const Directive& directive, char c) {
  char16_t wide[2];
  const size_t units = zor::os::NarrowToWideInto(std::string_view(&c, 1), wide, 2);
  PutPadded(writer, directive, std::u16string_view(wide, units));
}

bool IsNarrow(const Directive& directive) {
  return directive.length == Length::Short || directive.length == Length::Char;
}

bool IsWide(const Directive& directive) {
  return directive.length == Length::Long || directive.length == Length::Wide;
}

// Formats one directive. False when the conversion is unknown.
bool PutDirective(WideWriter& writer, const Directive& directive, va_list* args) {
  switch (directive.conversion) {
    case u'%':
      writer.Put(u'%');
      return true;
    case u'd':
    case u'i':
      PutNumber(writer, directive, "ll", 'd', ReadSigned(directive.length, args));
      return true;
    case u'u':
    case u'x':
    case u'X':
    case u'o':
      PutNumber(writer, directive, "ll", static_cast<char>(directive.conversion),
                ReadUnsigned(directive.length, args));
      return true;
    case u'f':
    case u'F':
    case u'e':
    case u'E':
    case u'g':
    case u'G':
    case u'a':
    case u'A':
      if (directive.length == Length::LongDouble) {
        PutNumber(writer, directive, "L", static_cast<char>(directive.conversion),
                  va_arg(*args, long double));
      } else {
        PutNumber(writer, directive, "", static_cast<char>(directive.conversion),
                  va_arg(*args, double));
      }
      return true;
    case u'p': {
      const ZORPointerText pointer(va_arg(*args, void*));
      char16_t wide[sizeof pointer.text];
      std::copy(std::begin(pointer.text), std::end(pointer.text), wide);
      PutPadded(writer, directive, std::u16string_view(wide, sizeof pointer.text - 1));
      return true;
    }
    case u'c':
    case u'C': {
      const int value = va_arg(*args, int);
      const bool narrow = IsNarrow(directive) || (directive.conversion == u'C' && !IsWide(directive));
      if (narrow) {
        PutNarrowChar(writer, directive, static_cast<char>(value));
      } else {
        const char16_t unit = static_cast<char16_t>(value);
        PutPadded(writer, directive, std::u16string_view(&unit, 1));
      }
      return true;
    }
    case u's':
    case u'S': {
      // Windows wide conventions: s is wide unless h; S is narrow unless l/w.
      const bool narrow = IsNarrow(directive) || (directive.conversion == u'S' && !IsWide(directive));
      if (narrow) {
        PutNarrowString(writer, directive, va_arg(*args, const char*));
      } else {
        PutWideString(writer, directive, va_arg(*args, const char16_t*));
      }
      return true;
    }
    case u'n':
      (void)va_arg(*args, void*);  // never written through
      return true;
    default:
      return false;
  }
}

}  // namespace

size_t ZORFormatWideV(char16_t* buffer, size_t capacity, const char16_t* format, va_list args) {
  if (buffer == nullptr || capacity == 0) return 0;
  WideWriter writer(buffer, capacity);
  if (format == nullptr) return writer.Finish();
  va_list pending;
  va_copy(pending, args);
  for (const char16_t* at = format; *at != u'\0'; ++at) {
    if (*at != u'%') {
      writer.Put(*at);
      continue;
    }
    const char16_t* directiveStart = at;
    ++at;
    const Directive directive = ReadDirective(at, &pending);
    if (directive.conversion == u'\0') {
      writer.Put(std::u16string_view(directiveStart, static_cast<size_t>(at - directiveStart)));
      break;
    }
    if (!PutDirective(writer, directive, &pending)) {
      writer.Put(std::u16string_view(directiveStart, static_cast<size_t>(at + 1 - directiveStart)));
    }
  }
  va_end(pending);
  return writer.Finish();
}

size_t ZORFormatWide(char16_t* buffer, size_t capacity, const char16_t* format, ...) {
  va_list args;
  va_start(args, format);
  const size_t written = ZORFormatWideV(buffer, capacity, format, args);
  va_end(args);
  return written;
}
