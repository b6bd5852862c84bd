// One site element into a record body, as its table says (SiteTables.h).
//
// Every text field is filled straight from the tree's UTF-8 (FieldFill.h):
// no wide string is made per value, and numbers are parsed from the UTF-8.
// Each element's attributes are fetched in one pass and its known children
// found in one walk over them (each child's name read once and compared as
// bytes; a later child of the same name wins).
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "port/log/Log.h"
#include "port/text/Unicode.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Allocation.h"
#include "sitehlp/Component.h"
#include "sitehlp/FieldFill.h"
#include "sitehlp/Numbers.h"
#include "sitehlp/PasswordField.h"
#include "sitehlp/SchemaNames.h"
#include "sitehlp/SiteTables.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

namespace {

using AdvXMLParser::Element;

// The most attributes or children one element's fields read.
constexpr std::size_t kMaxValues = 16;

bool IsRead(const SiteField& field) { return !field.header && field.type != FieldType::Constant; }

// Where each field of one spec finds its value: a slot among the attributes
// fetched in one pass, or among the children found in one walk.
class ReadPlan {
 public:
  explicit ReadPlan(const SiteElementSpec& spec) {
    std::vector<const wchar_t*> children;
    for (std::size_t i = 0; i < spec.fieldCount; ++i) {
      const SiteField& field = spec.fields[i];
      m_slot.push_back(-1);
      m_partner.push_back(-1);
      if (!IsRead(field)) continue;
      std::vector<const wchar_t*>& names = field.place == FieldPlace::Child ? children : m_attributes;
      m_slot.back() = static_cast<int>(names.size());
      names.push_back(field.name);
      if (field.partner) {
        m_partner.back() = static_cast<int>(m_attributes.size());
        m_attributes.push_back(field.partner);
      }
    }
    if (children.size() > kMaxValues || m_attributes.size() > kMaxValues)
      throw std::logic_error("a site element reads more values than the reader holds");
    m_children.reset(new NarrowNames(children.data(), children.size()));
    for (const wchar_t* name : m_attributes) m_attributesUtf8.push_back(ACharString(name));
    for (const std::string& name : m_attributesUtf8) m_attributeNames.push_back(name.c_str());
  }

  int Slot(std::size_t field) const { return m_slot[field]; }
  int Partner(std::size_t field) const { return m_partner[field]; }

  void FetchAttributes(const Element& element, const char** values) const {
    element.GetAttributesUtf8(m_attributeNames.data(), m_attributeNames.size(), values);
  }
  void FindChildren(const Element& element, Element* children) const {
    for (Element child : element.Children()) {
      const std::size_t i = m_children->Find(child.GetNameUtf8());
      if (i < m_children->size()) children[i] = child;
    }
  }

 private:
  std::vector<const wchar_t*> m_attributes;
  // Their UTF-8, as the tree holds names: compared byte for byte.
  std::vector<std::string> m_attributesUtf8;
  std::vector<const char*> m_attributeNames;
  std::unique_ptr<NarrowNames> m_children;
  std::vector<int> m_slot;
  std::vector<int> m_partner;
};

// The plans of every spec, made once.
const ReadPlan& PlanOf(const SiteElementSpec& spec) {
  static const std::vector<ReadPlan> plans = [] {
    std::vector<ReadPlan> all;
    for (std::size_t i = 0; i < SiteElementSpecCount(); ++i) all.emplace_back(SiteElementSpecs()[i]);
    return all;
  }();
  return plans[static_cast<std::size_t>(&spec - SiteElementSpecs())];
}

// SecurePort: the stream's unsigned extraction of the value's wide form.
void ExtractUnsignedUtf8(const char* utf8, uint32_t& value) {
  wchar_t wide[64];
  std::size_t length = 0;
  unsigned int v = value;
  if (AdvXMLParser::DecodeUtf8Into(utf8, wide, 64, length)) {
    StreamExtractUnsigned(wide, wide + length, v);
  } else {
    StreamExtractUnsigned(port::text::DecodeUtf8(utf8, std::strlen(utf8)), v);
  }
  value = v;
}

// A present value of a text, number, flag or unsigned field.
void ReadValue(CSitesHelper& helper, const SiteField& field, const char* utf8, void* body) {
  switch (field.type) {
    case FieldType::Text: FillField(helper, TextAt(body, field.offset), utf8, field.capacity); break;
    case FieldType::Number: NumberAt(body, field.offset) = AtoiUtf8(utf8); break;
    case FieldType::Flag: NumberAt(body, field.offset) = AtoiUtf8(utf8) != 0; break;
    case FieldType::Unsigned: ExtractUnsignedUtf8(utf8, UnsignedAt(body, field.offset)); break;
    default: break;
  }
}

// A host:port attribute (absent: an empty host with port 80). port is the
// element's one port variable, as the stream leaves it when a text after the
// colon holds no number. preferred, when present, is read in place of the
// attribute (a SuperAgent's ServerDNS); the attribute's split still runs
// first, and its port stays when the preferred text after its colon holds
// no number.
void ReadHostPort(CSitesHelper& helper, const SiteField& field, const char* utf8, const char* preferred,
                  void* body, unsigned int& port) {
  if (preferred) {
    if (utf8 && std::strchr(utf8, ':')) {
      std::wstring ignoredHost;
      split_host_and_port(port::text::DecodeUtf8(utf8, std::strlen(utf8)), ignoredHost, port);
    } else {
      port = c_defaultHttpPort;
    }
    utf8 = preferred;
  }
  FillHostPort(helper, TextAt(body, field.offset), field.capacity, utf8, port);
  NumberAt(body, field.number) = static_cast<int32_t>(port);
}

// An attribute value (NULL when absent) into its field.
void ReadAttribute(CSitesHelper& helper, const SiteField& field, const char* utf8, const char* partner, void* body,
                   unsigned int& port) {
  if (field.type == FieldType::HostPort) {
    ReadHostPort(helper, field, utf8, partner, body, port);
  } else if (field.type == FieldType::ProxyHost) {
    // A proxy's host and port are taken only when the host is set.
    if (!utf8 || !*utf8) return;
    FillField(helper, TextAt(body, field.offset), utf8, field.capacity);
    NumberAt(body, field.number) = AtoiUtf8(partner);
  } else if (utf8) {
    ReadValue(helper, field, utf8, body);
  }
}

}  // namespace

void CSitesHelper::ReadPassword(const std::wstring& value, wchar_t* field, bool bAlwaysTextForm,
                                const wchar_t* name) {
  std::wstring clear;
  // An empty value cannot decrypt to anything: skip the cipher.
  if (!value.empty()) {
    if (m_bReencrypting && !bAlwaysTextForm)
      decrypt_data(value, clear);
    else
      EncryptDecryptPassword(value, clear, false);
  }
  CopyPasswordField(field, clear, c_nameCapacity, name);
}

int CSitesHelper::FillSiteBody(const Element& element, const SiteElementSpec& spec, void* pBody) {
  const ReadPlan& plan = PlanOf(spec);
  const char* attributes[kMaxValues];
  plan.FetchAttributes(element, attributes);
  Element children[kMaxValues];
  plan.FindChildren(element, children);
  unsigned int port = 0;
  for (std::size_t i = 0; i < spec.fieldCount; ++i) {
    const SiteField& field = spec.fields[i];
    const int slot = plan.Slot(i);
    if (slot < 0) continue;
    if (field.place == FieldPlace::Attribute) {
      const int partner = plan.Partner(i);
      ReadAttribute(*this, field, attributes[slot], partner < 0 ? nullptr : attributes[partner], pBody, port);
      continue;
    }
    const Element& child = children[slot];
    if (!child) continue;  // an absent child leaves its field as it is
    if (field.type == FieldType::Password || field.type == FieldType::TextFormPassword)
      ReadPassword(child.GetValue(), TextAt(pBody, field.offset), field.type == FieldType::TextFormPassword,
                   field.name);
    else if (field.type == FieldType::Exclusions)
      ReadExclusionList(child, TextAt(pBody, field.offset), NumberAt(pBody, field.number));
    else
      ReadValue(*this, field, child.GetValueUtf8(), pBody);
  }
  if (spec.readRule) spec.readRule(*this, element, pBody);
  return c_success;
}

int CSitesHelper::ReadSiteFromSiteList(AdvXMLParser::Element* pElement, void** ppBody) {
  ADetailTrace trace(c_component, L"Reading site from SiteList");
  if (!ppBody) return c_missingArgument;
  *ppBody = nullptr;
  if (!pElement || !*pElement) return c_generalFailure;
  const SiteElementSpec* spec = FindSiteElementSpec(*pElement);
  if (!spec) return c_generalFailure;
  void* body = AllocateZeroed(AllocationUse::SiteBody, spec->bodySize);
  if (!body) return c_outOfMemory;
  FillSiteBody(*pElement, *spec, body);
  *ppBody = body;
  return c_success;
}

}  // namespace sitehlp
