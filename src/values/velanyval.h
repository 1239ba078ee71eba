#pragma once
// VELAnyVal: one self-describing value, and its ten concrete kinds.
//
// The kind code is persisted in property blobs, registry values and shared
// memory written by other processes, so the numbers below never change.
// Values are immutable once built; stores share them through
// std::shared_ptr<const VELAnyVal>. Every operation may be called from any
// thread on a value that no one changes; none of them belongs on the audio
// thread except GetData, which never allocates.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

enum VELAnyValType : int32_t {
  VEL_ANYVAL_LONG = 0,
  VEL_ANYVAL_INT = 1,
  VEL_ANYVAL_SHORT = 2,
  VEL_ANYVAL_FLOAT = 3,
  VEL_ANYVAL_DOUBLE = 4,
  VEL_ANYVAL_BOOL = 5,
  VEL_ANYVAL_ASTRING = 6,
  VEL_ANYVAL_WSTRING = 7,
  VEL_ANYVAL_BINARYC = 8,
  VEL_ANYVAL_BINARYUC = 9,
  // 10 is never used.
  VEL_ANYVAL_NONE = 11,
};

class VELAnyVal {
 public:
  // "No value": kind 11, size 0, no text.
  VELAnyVal() = default;
  VELAnyVal(const VELAnyVal&) = default;
  VELAnyVal& operator=(const VELAnyVal&) = delete;
  virtual ~VELAnyVal() = default;

  int32_t GetType() const { return m_type; }

  // Payload size in bytes: what GetData needs and the property blob stores.
  virtual uint32_t GetSize() const;
  // A new object of the same class with the same kind and payload.
  virtual std::unique_ptr<VELAnyVal> Clone() const;
  // Copies the payload (little-endian numbers, string code units without a
  // terminator, array elements) if capacity >= GetSize(); returns the bytes
  // written, 0 when the buffer is too small. Allocation-free.
  virtual uint32_t GetData(void* destination, uint32_t capacity) const;
  // Text forms. On failure the result is false; see each kind for the rules.
  virtual bool GetAString(std::string& text) const;
  virtual bool GetWString(std::u16string& text) const;
  // Static names, e.g. "Long", "Wide String"; empty for "no value". The
  // name follows from the kind code, so the kinds share this one.
  virtual const char* GetTypeName() const;
  virtual const char16_t* GetTypeNameW() const;
  // Same dynamic class, same kind code, same payload (kind by kind rules).
  virtual bool IsEqual(const VELAnyVal* other) const;

 protected:
  explicit VELAnyVal(int32_t type) : m_type(type) {}

 private:
  int32_t m_type = VEL_ANYVAL_NONE;
};

using VELAnyValPtr = std::shared_ptr<const VELAnyVal>;

// Numbers and the bool: one fixed-width payload each.
template <typename T, int32_t Code>
class VELAnyValNumber : public VELAnyVal {
 public:
  explicit VELAnyValNumber(T value) : VELAnyVal(Code), m_value(value) {}
  VELAnyValNumber(const VELAnyValNumber&) = default;

  T GetValue() const { return m_value; }

  uint32_t GetSize() const override { return sizeof(T); }
  std::unique_ptr<VELAnyVal> Clone() const override;
  uint32_t GetData(void* destination, uint32_t capacity) const override;
  bool GetAString(std::string& text) const override;
  bool GetWString(std::u16string& text) const override;
  bool IsEqual(const VELAnyVal* other) const override;

 private:
  T m_value;
};

using VELAnyValLong = VELAnyValNumber<int32_t, VEL_ANYVAL_LONG>;
using VELAnyValInt = VELAnyValNumber<int32_t, VEL_ANYVAL_INT>;
using VELAnyValShort = VELAnyValNumber<int16_t, VEL_ANYVAL_SHORT>;
using VELAnyValFloat = VELAnyValNumber<float, VEL_ANYVAL_FLOAT>;
using VELAnyValDouble = VELAnyValNumber<double, VEL_ANYVAL_DOUBLE>;
// The bool keeps its byte as given: 1 and 2 both read as true but differ.
using VELAnyValBool = VELAnyValNumber<uint8_t, VEL_ANYVAL_BOOL>;

extern template class VELAnyValNumber<int32_t, VEL_ANYVAL_LONG>;
extern template class VELAnyValNumber<int32_t, VEL_ANYVAL_INT>;
extern template class VELAnyValNumber<int16_t, VEL_ANYVAL_SHORT>;
extern template class VELAnyValNumber<float, VEL_ANYVAL_FLOAT>;
extern template class VELAnyValNumber<double, VEL_ANYVAL_DOUBLE>;
extern template class VELAnyValNumber<uint8_t, VEL_ANYVAL_BOOL>;

// Text: narrow as UTF-8, or wide as UTF-16 code units, on every platform
// (GetSize is units * 2). Narrow text comes from the configuration file,
// which is UTF-8, so it is never read in the Windows ANSI code page: a mode
// or control name must name the same registry value on every platform. The
// constructor takes the string by move and leaves the source empty.
// The text of the same form is the payload as it is; the other form is
// converted between UTF-8 and UTF-16, reading the payload as a C string, and
// answers false when the conversion leaves nothing, e.g. for empty text.
template <typename CharT, int32_t Code>
class VELAnyValText : public VELAnyVal {
 public:
  explicit VELAnyValText(std::basic_string<CharT>&& text)
      : VELAnyVal(Code), m_value(std::move(text)) {}
  VELAnyValText(const VELAnyValText&) = default;

  const std::basic_string<CharT>& GetValue() const { return m_value; }

  uint32_t GetSize() const override;
  std::unique_ptr<VELAnyVal> Clone() const override;
  uint32_t GetData(void* destination, uint32_t capacity) const override;
  bool GetAString(std::string& text) const override;
  bool GetWString(std::u16string& text) const override;
  // Own full length against the other value read as a C string.
  bool IsEqual(const VELAnyVal* other) const override;

 private:
  std::basic_string<CharT> m_value;
};

using VELAnyValAString = VELAnyValText<char, VEL_ANYVAL_ASTRING>;
using VELAnyValWString = VELAnyValText<char16_t, VEL_ANYVAL_WSTRING>;

extern template class VELAnyValText<char, VEL_ANYVAL_ASTRING>;
extern template class VELAnyValText<char16_t, VEL_ANYVAL_WSTRING>;

// Byte arrays, signed and unsigned; text is "%02X" per byte, no separator.
template <typename Byte, int32_t Code>
class VELAnyValBinary : public VELAnyVal {
 public:
  // Copies count bytes from data; a null data or a count of 0 gives an
  // empty array.
  VELAnyValBinary(const Byte* data, uint32_t count);
  VELAnyValBinary(const VELAnyValBinary&) = default;

  const std::vector<Byte>& GetValue() const { return m_value; }

  uint32_t GetSize() const override;
  std::unique_ptr<VELAnyVal> Clone() const override;
  uint32_t GetData(void* destination, uint32_t capacity) const override;
  bool GetAString(std::string& text) const override;
  bool GetWString(std::u16string& text) const override;
  bool IsEqual(const VELAnyVal* other) const override;

 private:
  std::vector<Byte> m_value;
};

using VELAnyValBinaryC = VELAnyValBinary<char, VEL_ANYVAL_BINARYC>;
using VELAnyValBinaryUC = VELAnyValBinary<unsigned char, VEL_ANYVAL_BINARYUC>;

extern template class VELAnyValBinary<char, VEL_ANYVAL_BINARYC>;
extern template class VELAnyValBinary<unsigned char, VEL_ANYVAL_BINARYUC>;
