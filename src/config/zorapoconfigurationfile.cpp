#include "config/zorapoconfigurationfile.h"

#include <tinyxml2.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>

#include "core/zorlog.h"
#include "core/zorscopedlock.h"
#include "platform/criticalsection.h"
#include "platform/text.h"

using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;
using tinyxml2::XMLNode;

namespace {

constexpr const char* kRootName = "zor_configuration";
constexpr const char* kProductName = "Product Name";

using DocumentPtr = std::shared_ptr<const XMLDocument>;

// Parsed documents by exact path text. Entries are added after a successful
// parse and never removed or refreshed; the documents are read-only once
// stored, so objects walk them without the lock.
struct DocumentCache {
  zor::os::CriticalSection lock;
  std::map<std::u16string, DocumentPtr> documents;
};

DocumentCache& Cache() {
  static DocumentCache cache;
  return cache;
}

// tinyxml2 decodes a name or text (entities, line ends) on its first read,
// writing into the document. Reading every one once while the document is
// still private turns all later reads into plain reads, so that several
// threads may walk a cached document at once.
void DecodeAllText(const XMLDocument& document) {
  const XMLNode* node = document.FirstChild();
  while (node != nullptr) {
    node->Value();
    if (const XMLElement* element = node->ToElement()) {
      for (const tinyxml2::XMLAttribute* attribute = element->FirstAttribute();
           attribute != nullptr; attribute = attribute->Next()) {
        attribute->Name();
        attribute->Value();
      }
    }
    if (node->FirstChild() != nullptr) {
      node = node->FirstChild();
      continue;
    }
    while (node != nullptr && node->NextSibling() == nullptr) {
      node = node->Parent();
      if (node == &document) node = nullptr;
    }
    if (node != nullptr) node = node->NextSibling();
  }
}

// Entity processing on, whitespace inside text kept as written.
std::shared_ptr<XMLDocument> ParseText(std::string_view text) {
  auto document = std::make_shared<XMLDocument>(true, tinyxml2::PRESERVE_WHITESPACE);
  if (document->Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS) {
    ZOR_LOG("XML error: %s\n", document->ErrorStr());
    return nullptr;
  }
  DecodeAllText(*document);
  return document;
}

DocumentPtr ParseFile(const std::u16string& path) {
  const std::filesystem::path file(path);
  std::error_code error;
  const uintmax_t size = std::filesystem::file_size(file, error);
  if (error) return nullptr;
  if (size > ZORAPOConfigurationFile::kMaxFileBytes) {
    ZOR_LOG("configuration file of %llu bytes is too large\n",
            static_cast<unsigned long long>(size));
    return nullptr;
  }
  std::ifstream in(file, std::ios::binary);
  if (!in) return nullptr;
  // Never more than the size checked above, even if the file grows now.
  std::string text(static_cast<size_t>(size), '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (in.bad()) return nullptr;
  text.resize(static_cast<size_t>(in.gcount()));
  return ParseText(text);
}

// The cached document of `path`, parsed now on a miss; null when the file
// cannot be read or parsed. The lock is held across the parse, so concurrent
// first loads of one path parse it once.
DocumentPtr DocumentFor(const std::u16string& path) {
  DocumentCache& cache = Cache();
  ZORScopedLock lock(cache.lock);
  const auto found = cache.documents.find(path);
  if (found != cache.documents.end()) return found->second;
  DocumentPtr document = ParseFile(path);
  if (document != nullptr) cache.documents.emplace(path, document);
  return document;
}

bool IsNamed(const XMLElement& element, const char* name) {
  return std::strcmp(element.Name(), name) == 0;
}

bool AttributeIs(const XMLElement& element, const char* name, const char* text) {
  const char* value = element.Attribute(name);
  return value != nullptr && std::strcmp(value, text) == 0;
}

// The attribute's text; empty when it is missing.
std::string AttributeText(const XMLElement& element, const char* name) {
  const char* value = element.Attribute(name);
  return value != nullptr ? std::string(value) : std::string();
}

// A `control` element as a text value: the name from `name`, the value from
// the element's last child node, whatever kind of node that is. False for a
// control without a name or without content.
bool ReadControl(const XMLElement& element, ZORUTSValue& out) {
  const char* name = element.Attribute("name");
  const XMLNode* content = element.LastChild();
  if (name == nullptr || name[0] == '\0' || content == nullptr || content->Value() == nullptr) {
    return false;
  }
  out = ZORUTSValue(name, content->Value());
  return true;
}

// Every good `control` child into `list`, a later one of a name replacing an
// earlier one.
void ReadControls(const XMLElement& parent, ZORUTSValueList& list) {
  for (const XMLElement* child = parent.FirstChildElement("control"); child != nullptr;
       child = child->NextSiblingElement("control")) {
    ZORUTSValue value;
    if (ReadControl(*child, value)) list.Insert(value);
  }
}

// A `chain` or `chain_v2` element, appended to `definition` if it names at
// least one process.
void ReadChain(const XMLElement& element, ZORAPOChainDefinition& definition) {
  ZORAPOChainDesc chain;
  chain.isRender = !AttributeIs(element, "type", "capture");
  // An absent or empty list means every layout; a list of unknown tokens
  // means none.
  const std::string input = AttributeText(element, "input");
  if (!input.empty()) chain.inputLayouts = LayoutMaskFromText(input);
  const std::string output = AttributeText(element, "output");
  if (!output.empty()) chain.outputLayouts = LayoutMaskFromText(output);

  for (const XMLElement* child = element.FirstChildElement(); child != nullptr;
       child = child->NextSiblingElement()) {
    if (IsNamed(*child, "process")) {
      ZORAPOProcessDesc process{AttributeText(*child, "tech_id"),
                                AttributeText(*child, "instance_id"),
                                AttributeText(*child, "hook")};
      if (!process.techId.empty()) chain.processes.push_back(std::move(process));
    } else if (IsNamed(*child, "control")) {
      ZORUTSValue value;
      if (ReadControl(*child, value)) chain.controls.Insert(value);
    }
  }
  if (!chain.processes.empty()) definition.chains.push_back(std::move(chain));
}

// An `operating_mode` element with the chains of `location`. Fails for a
// mode without child nodes, and for one whose tuned controls lack the
// identity: a public identity does not count.
bool ReadMode(const XMLElement& element, uint32_t location, ZORAPOOperatingMode& mode) {
  if (element.NoChildren()) return false;
  mode.autoMic = AttributeIs(element, "auto_mic", "true");
  const char* locationName = ZORAPOConfigurationFile::LocationName(location);
  for (const XMLElement* child = element.FirstChildElement(); child != nullptr;
       child = child->NextSiblingElement()) {
    if (IsNamed(*child, "control")) {
      ZORUTSValue value;
      if (!ReadControl(*child, value)) continue;
      if (AttributeIs(*child, "public", "true")) {
        mode.publicControls.Insert(value);
      } else {
        mode.tunedControls.Insert(value);
      }
    } else if (IsNamed(*child, "chain")) {
      if (location == 0) ReadChain(*child, mode.chainDefinition);
    } else if (IsNamed(*child, "chain_v2")) {
      // The position must name this location exactly: "OSFX" holds "SFX" but
      // is another location.
      if (location != 0 && AttributeIs(*child, "position", locationName)) {
        ReadChain(*child, mode.chainDefinition);
      }
    }
  }
  const bool defined = mode.id.FromValueList(mode.tunedControls);
  ZORUTSValueList identity;
  mode.id.ToValueList(identity);
  mode.tunedControls.Merge(identity, MergeRemove);
  // A tuned control beats a public control of the same name.
  mode.allControls.Merge(mode.publicControls, MergeReplace);
  mode.allControls.Merge(mode.tunedControls, MergeOverlay);
  return defined;
}

}  // namespace

const char* ZORAPOConfigurationFile::LocationName(uint32_t location) {
  static constexpr const char* kNames[] = {"PreBlue", "SFX", "MFX", "EFX", "OSFX", "OMFX"};
  return location < std::size(kNames) ? kNames[location] : "Invalid APO location!";
}

void ZORAPOConfigurationFile::Reset(uint32_t selectorValue) {
  selector = selectorValue;
  productName.clear();
  properties.Clear();
  operatingModes.clear();
}

uint32_t ZORAPOConfigurationFile::Load(const std::u16string& path, uint32_t selectorValue,
                                       uint32_t location) {
  Reset(selectorValue);
  const DocumentPtr document = DocumentFor(path);
  return ReadDocument(document.get(), location);
}

uint32_t ZORAPOConfigurationFile::LoadText(std::string_view xml, uint32_t selectorValue,
                                           uint32_t location) {
  Reset(selectorValue);
  const std::shared_ptr<XMLDocument> document = ParseText(xml);
  return ReadDocument(document.get(), location);
}

uint32_t ZORAPOConfigurationFile::ReadDocument(const XMLDocument* document, uint32_t location) {
  ZOR_LOG("pXML->load %d\n", document != nullptr ? 1 : 0);
  if (document == nullptr) return kStatusUnreadable;
  const XMLElement* root = document->FirstChildElement();
  ZOR_LOG("pXML->get_documentElement 0x%s\n", ZORPointerText(root).text);
  if (root == nullptr || root->NoChildren() || !IsNamed(*root, kRootName)) {
    return kStatusUnreadable;
  }
  return ReadRoot(*root, location);
}

bool ZORAPOConfigurationFile::TakesMode(const XMLElement& element) const {
  const char* modeSelector = element.Attribute("selector");
  if (modeSelector != nullptr && modeSelector[0] != '\0') {
    return selector == 1 && std::strcmp(modeSelector, "dsp") == 0;
  }
  return selector == 0;
}

uint32_t ZORAPOConfigurationFile::ReadRoot(const XMLElement& root, uint32_t location) {
  operatingModes.reserve(operatingModes.size() + 20);
  uint32_t status = kStatusUnreadable;
  for (const XMLElement* child = root.FirstChildElement(); child != nullptr;
       child = child->NextSiblingElement()) {
    if (IsNamed(*child, "properties")) {
      // A later `properties` replaces what an earlier one gave.
      properties.Clear();
      if (child->NoChildren()) {
        status = kStatusEmptyProperties;
        continue;
      }
      ReadControls(*child, properties);
      status = kStatusOk;
      // The document is UTF-8 whatever the platform's narrow encoding.
      if (const ZORUTSValue* name = properties.Find(kProductName)) {
        productName = zor::os::Utf8ToUtf16(name->GetText());
      }
    } else if (IsNamed(*child, "operating_mode") && TakesMode(*child)) {
      auto mode = std::make_shared<ZORAPOOperatingMode>();
      if (ReadMode(*child, location, *mode)) {
        operatingModes.push_back(std::move(mode));
      } else {
        status = kStatusModeFailed;
      }
    }
  }
  if (status != kStatusOk) return status;
  SetDefaultMode();
  return kStatusOk;
}

bool ZORAPOConfigurationFile::SetDefaultMode() {
  // The properties' identity stands when defined, whether or not a mode of
  // that identity exists: the mode lookup falls back on its own.
  if (defaultMode.FromValueList(properties)) return true;
  if (!operatingModes.empty()) {
    defaultMode = operatingModes.front()->id;
    return true;
  }
  ZOR_LOG("SetDefaultMode returning false...no modes available.\n");
  return false;
}

bool ZORAPOConfigurationFile::FindMode(const ZORAPOModeId& id, ZORAPOOperatingMode& out) const {
  size_t count = 0;
  for (const auto& mode : operatingModes) {
    if (mode->id == id) {
      out = *mode;
      ++count;
    }
  }
  return count == 1;
}

bool ZORAPOConfigurationFile::FindAutoMicMode(const ZORAPOModeId& id,
                                              ZORAPOOperatingMode& out) const {
  const ZORAPOOperatingMode* exact = nullptr;
  size_t candidates = 0;
  for (const auto& mode : operatingModes) {
    if (mode->id == id) {
      exact = mode.get();
    } else if (mode->autoMic && mode->id.speakerType.GetText() == id.speakerType.GetText()) {
      out = *mode;
      ++candidates;
    }
  }
  if (candidates == 0 && exact != nullptr) {
    out = *exact;
    return true;
  }
  return candidates == 1;
}
