// One table per site element: what the document holds for each kind of site
// and where each value lives in the record. The reader, the writer, the choice
// of a body's size and the copy of a body into a record all walk these
// tables; what one kind alone does stays as small, named code beside them
// (SiteTables.cpp). Internal to the library.
#ifndef VLM_SITEHLP_SITETABLES_H
#define VLM_SITEHLP_SITETABLES_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "port/xml/AdvXMLParser.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

// Where a value stands in the document.
enum class FieldPlace : std::uint8_t { Attribute, Child };

// What a value is, in the record and in the document.
enum class FieldType : std::uint8_t {
  SiteType,   // header szType: written as "repository" when empty
  SiteOrder,  // header nOrder: not written for a mirror
  Text,       // wide text of `capacity`
  Number,     // int32: atoi on reading, signed decimal on writing
  Flag,       // int32: atoi != 0 on reading, signed decimal on writing
  Unsigned,   // uint32: a stream's extraction on reading, unsigned decimal
  HostPort,   // text and the int32 at `number`: "host:port", split at the last colon (port 80 without one)
  ProxyHost,  // text and the int32 at `number`, written as two attributes (`partner` the port's) when the text is set
  Password,   // clear text in the record, encrypted in the document (Encrypted="1")
  TextFormPassword,  // a password always decrypted in the text form, even in a list being re-encrypted
  Exclusions,  // the ";"-joined host list, one ExclusionHost child per host; its count at `number`
  Constant,    // no field: `constant` is written, nothing is read
};

// When the writer emits a value.
enum class WriteWhen : std::uint8_t {
  Always,
  NonZero,   // the number is not 0
  NonEmpty,  // the text is not empty (after macro formatting)
  Never,     // read only
};

struct SiteField {
  const wchar_t* name;
  FieldPlace place;
  FieldType type;
  bool header;            // the value lives in the record's header, not in its body
  std::size_t offset;     // of the value in the header or the body
  unsigned int capacity;  // texts: in wchar_t, terminator included
  std::size_t number;     // HostPort, ProxyHost: the port's offset; Exclusions: the count's
  const wchar_t* partner;  // ProxyHost: the port's attribute; HostPort: read in its place when present
  const wchar_t* constant;  // written in place of the value (when `when` holds)
  WriteWhen when;
  bool macros;  // put into the stored macro form, in the record, before writing

  constexpr SiteField When(WriteWhen w) const {
    SiteField f = *this;
    f.when = w;
    return f;
  }
  constexpr SiteField Macros() const {
    SiteField f = *this;
    f.macros = true;
    return f;
  }
  constexpr SiteField Partner(const wchar_t* name) const {
    SiteField f = *this;
    f.partner = name;
    return f;
  }
  constexpr SiteField Writes(const wchar_t* text) const {
    SiteField f = *this;
    f.constant = text;
    return f;
  }
};

// One element that becomes a site record.
struct SiteElementSpec {
  const wchar_t* element;
  const wchar_t* list;  // the element of SiteList holding it (ProxyConfigList), or NULL
  int32_t kind;
  bool spipeOrSuperAgent;
  std::size_t bodySize;
  const SiteField* fields;  // in document order
  std::size_t fieldCount;
  // What this element alone does on reading, after its fields; or NULL.
  void (*readRule)(CSitesHelper& helper, const AdvXMLParser::Element& element, void* body);
};

// Every site element, HttpSite first.
const SiteElementSpec* SiteElementSpecs();
std::size_t SiteElementSpecCount();

// The spec of the element of that name (any spec, also one held in a list);
// NULL when it is no site element.
const SiteElementSpec* FindSiteElementSpec(const AdvXMLParser::Element& element);

// What a child of SiteList is: a site element (spec set), a list of
// proxy configurations (kind SITE_TYPE_PROXY, spec NULL), or neither (kind -1).
struct SiteListChild {
  int32_t kind = -1;
  const SiteElementSpec* spec = nullptr;
};
SiteListChild ClassifySiteListChild(const AdvXMLParser::Element& element);

// The spec the writer follows for site written as a record of kind, NULL for
// an unknown kind. An HTTP-family record follows its szSiteElement:
// "SpipeSite" compared without regard to case, "SuperAgentSite" exactly,
// anything else is written by the HttpSite rules under its own name.
const SiteElementSpec* WriterSpecOf(int32_t kind, const tag_Site& site);

// sizeof the body the element fills; 0 for an element that is no site.
std::size_t SiteBodySize(const AdvXMLParser::Element& element);

// The most characters a proxy configuration's exclusion list holds.
constexpr std::size_t c_exclusionListLimit = c_exclusionListCapacity - 2;

// The Exclusions field, both ways. Reading appends the hosts of an
// ExclusionList element to joined with ";" while the list stays within
// c_exclusionListLimit characters; a host that does not fit is left out with a
// detail line, and a later, shorter one may still fit. Writing appends the
// element name to parent with one ExclusionHost per non-empty host, after the
// macros are put into their stored form; the list is cut apart in place, so
// afterwards the record holds its first host alone.
void ReadExclusionList(const AdvXMLParser::Element& list, wchar_t* joined, int32_t& count);
void WriteExclusionList(CSitesHelper& helper, AdvXMLParser::Element& parent, const wchar_t* name, wchar_t* joined);

// A field's value in a header or a body.
inline wchar_t* TextAt(void* base, std::size_t offset) {
  return reinterpret_cast<wchar_t*>(static_cast<char*>(base) + offset);
}
inline int32_t& NumberAt(void* base, std::size_t offset) {
  return *reinterpret_cast<int32_t*>(static_cast<char*>(base) + offset);
}
inline uint32_t& UnsignedAt(void* base, std::size_t offset) {
  return *reinterpret_cast<uint32_t*>(static_cast<char*>(base) + offset);
}

// The capacity of a text member, checked to be a wchar_t array.
template <typename Member>
constexpr unsigned int TextCapacity() {
  static_assert(std::is_same<typename std::remove_extent<Member>::type, wchar_t>::value &&
                    std::extent<Member>::value > 0,
                "a text field is a wchar_t array");
  return std::extent<Member>::value;
}

// The offset of a number member, checked to be 32 bits.
template <typename Member>
constexpr std::size_t NumberOffset(std::size_t offset) {
  static_assert(std::is_integral<Member>::value && sizeof(Member) == 4, "a number field is 32 bits");
  return offset;
}

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SITETABLES_H
