// One record into one site element behind the writer's cursor, as its table
// says (SiteTables.h). Attribute and child orders are those of the document
// format; macro formatting and the exclusion list's tokenising happen in
// place on the record.
#include <cwchar>
#include <new>

#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Allocation.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteTables.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

using AdvXMLParser::Element;

// The first site goes first into SiteList (the cursor); every later one right
// behind the previous site. An element that cannot be allocated fails the
// document being built.
Element NewSiteElement(AdvXMLParser::ElementRef cursorRef, const wchar_t* name, int index) {
  if (AllocationFails(AllocationUse::Document)) throw std::bad_alloc();
  Element cursor(cursorRef);
  Element site = index == 0 ? cursor.PrependElement(name) : cursor.GetParent().InsertElementAfter(name, cursor);
  if (!site) throw std::bad_alloc();
  return site;
}

const wchar_t* TypeText(const tag_Site* site) {
  return site->szType[0] ? site->szType : STR_SITE_TYPE_REPOSITORY;
}

bool IsMirror(const tag_Site* site) { return wcsicmp(site->szType, STR_SITE_TYPE_MIRROR) == 0; }

// Decimal text of a number, as ConvertToStr writes it, in a small buffer:
// the stream-based conversion cost more than the rest of an attribute.
class Decimal {
 public:
  explicit Decimal(long long value) {
    wchar_t* end = m_text + sizeof m_text / sizeof m_text[0] - 1;
    *end = L'\0';
    m_begin = end;
    const bool negative = value < 0;
    unsigned long long v = negative ? 0ull - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
    do {
      *--m_begin = static_cast<wchar_t>(L'0' + v % 10);
      v /= 10;
    } while (v);
    if (negative) *--m_begin = L'-';
  }
  const wchar_t* c_str() const { return m_begin; }

 private:
  wchar_t m_text[24];
  wchar_t* m_begin;
};

// "host:port" with the port unsigned, built in place (a host fits a field of
// at most 261 characters).
class HostPort {
 public:
  HostPort(const wchar_t* host, int32_t port) {
    const std::size_t n = std::wcslen(host);
    const Decimal digits(static_cast<unsigned int>(port));
    if (n + 16 > sizeof m_fixed / sizeof m_fixed[0]) {
      m_long = std::wstring(host) + L":" + digits.c_str();
      m_p = m_long.c_str();
      return;
    }
    std::wmemcpy(m_fixed, host, n);
    m_fixed[n] = L':';
    std::wcscpy(m_fixed + n + 1, digits.c_str());
    m_p = m_fixed;
  }
  const wchar_t* c_str() const { return m_p; }

 private:
  wchar_t m_fixed[300];
  std::wstring m_long;
  const wchar_t* m_p;
};

// Site elements are new: their attributes are appended, not searched for.
inline void Attr(Element& e, const wchar_t* name, const wchar_t* value) { e.AppendAttribute(name, value); }
inline void Attr(Element& e, const wchar_t* name, long long value) { e.AppendAttribute(name, Decimal(value).c_str()); }
inline void Child(Element& e, const wchar_t* name, const wchar_t* text) { e.AppendElement(name).SetValue(text); }

// One field of a record written into element, unless its table entry says
// it is not written now. Passwords and exclusion lists are not written here.
void WriteField(CSitesHelper& helper, Element& element, const SiteField& field, tag_Site& site) {
  void* base = field.header ? static_cast<void*>(&site) : static_cast<void*>(&site.httpSite);
  const auto put = [&](const wchar_t* text) {
    if (field.place == FieldPlace::Attribute)
      Attr(element, field.name, text);
    else
      Child(element, field.name, text);
  };
  if (field.when == WriteWhen::Never) return;
  if (field.when == WriteWhen::NonZero && NumberAt(base, field.offset) == 0) return;
  if (field.constant) return put(field.constant);
  wchar_t* text = field.capacity ? TextAt(base, field.offset) : nullptr;
  if (text && field.type != FieldType::ProxyHost) {
    if (field.macros) helper.FormatEnvSymbols(text, field.capacity);
    if (field.when == WriteWhen::NonEmpty && !text[0]) return;
  }
  switch (field.type) {
    case FieldType::SiteType: return put(TypeText(&site));
    case FieldType::SiteOrder:
      if (!IsMirror(&site)) put(Decimal(NumberAt(base, field.offset)).c_str());
      return;
    case FieldType::Number:
    case FieldType::Flag: return put(Decimal(NumberAt(base, field.offset)).c_str());
    case FieldType::Unsigned: return put(Decimal(UnsignedAt(base, field.offset)).c_str());
    case FieldType::HostPort: return put(HostPort(text, NumberAt(base, field.number)).c_str());
    case FieldType::ProxyHost:
      // The host and its port, both only when the host is set.
      if (!text[0]) return;
      if (field.macros) helper.FormatEnvSymbols(text, field.capacity);
      put(text);
      Attr(element, field.partner, static_cast<unsigned int>(NumberAt(base, field.number)));
      return;
    default: return put(text);
  }
}

// The element a record is written as: an HTTP-family record names its own
// (HttpSite when it names none); every other kind its table's.
const wchar_t* ElementNameOf(const tag_Site& site, const SiteElementSpec& spec) {
  if (spec.kind == SITE_TYPE_HTTP && site.httpSite.szSiteElement[0]) return site.httpSite.szSiteElement;
  return spec.element;
}

}  // namespace

void CSitesHelper::WritePassword(Element& parent, const wchar_t* name, const wchar_t* clear) {
  Element element = parent.AppendElement(name);
  std::wstring encrypted;
  EncryptDecryptPassword(clear, encrypted, true);
  element.SetValue(encrypted);
  element.AppendAttribute(L"Encrypted", L"1");
}

int CSitesHelper::AddSite(tag_Site* pSite, int index, int32_t kind, const wchar_t* traceMessage) {
  ADetailTrace trace(c_component, traceMessage);
  const SiteElementSpec& spec = *WriterSpecOf(kind, *pSite);
  const wchar_t* name = ElementNameOf(*pSite, spec);
  Element outer = NewSiteElement(m_pLastSiteElement, spec.list ? spec.list : name, index);
  Element site = spec.list ? outer.AppendElement(name) : outer;
  void* body = &pSite->httpSite;
  for (std::size_t i = 0; i < spec.fieldCount; ++i) {
    const SiteField& field = spec.fields[i];
    if (field.type == FieldType::Password || field.type == FieldType::TextFormPassword)
      WritePassword(site, field.name, TextAt(body, field.offset));
    else if (field.type == FieldType::Exclusions)
      WriteExclusionList(*this, site, field.name, TextAt(body, field.offset));
    else
      WriteField(*this, site, field, *pSite);
  }
  m_pLastSiteElement = outer.GetRef();
  return c_success;
}

// The Add operations write numbers with Decimal (ConvertToStr's text without
// a stream) and append attributes to their new element (AppendAttribute):
// the same document, built without a temporary string per value.
int CSitesHelper::AddHTTPSite(tag_Site* pSite, int index) {
  return AddSite(pSite, index, SITE_TYPE_HTTP, L"Adding HTTP site");
}
int CSitesHelper::AddFTPSite(tag_Site* pSite, int index) {
  return AddSite(pSite, index, SITE_TYPE_FTP, L"Adding FTP site");
}
int CSitesHelper::AddUNCSite(tag_Site* pSite, int index) {
  return AddSite(pSite, index, SITE_TYPE_UNC, L"Adding UNC site");
}
int CSitesHelper::AddLocalSite(tag_Site* pSite, int index) {
  return AddSite(pSite, index, SITE_TYPE_LOCAL, L"Adding local site");
}
int CSitesHelper::AddProxySite(tag_Site* pSite, int index) {
  return AddSite(pSite, index, SITE_TYPE_PROXY, L"Adding Proxy site");
}

}  // namespace sitehlp
