#include <errno.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/AString.h"
#include "port/xml/AdvXMLParser.h"

// Only to make the parser's allocations fail.
#include <pugixml.hpp>

namespace {

using AdvXMLParser::Document;
using AdvXMLParser::Element;
using AdvXMLParser::ParsingException;
using AdvXMLParser::Parser;
using AdvXMLParser::ReadWriteException;

const std::wstring kDecl = L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

std::unique_ptr<Document> ParseWide(const std::wstring& text) {
  Parser parser;
  return std::unique_ptr<Document>(parser.Parse(text.data(), text.size()));
}

std::unique_ptr<Document> ParseNarrow(const std::string& text) {
  Parser parser;
  return std::unique_ptr<Document>(parser.ParseUtf8(text.data(), text.size()));
}

std::string Utf8(const std::wstring& s) { return platform_detail::WideToUtf8(s.data(), s.size()); }

// What the ParsingException of parse() carries; offset -1 when none was
// thrown.
struct Fault {
  int offset = -1;
  unsigned long line = 0;
  unsigned long column = 0;
  std::string description;
  std::string what;
};

template <typename Parse>
Fault FaultOf(Parse parse) {
  Fault fault;
  try {
    parse();
  } catch (const ParsingException& e) {
    fault.offset = e.GetErrorCode();
    fault.line = e.GetLine();
    fault.column = e.GetColumn();
    fault.description = e.GetDescription();
    fault.what = e.what();
  }
  return fault;
}

Fault WideFault(const std::wstring& text) {
  return FaultOf([&] { ParseWide(text); });
}

Fault NarrowFault(const std::string& text) {
  return FaultOf([&] { ParseNarrow(text); });
}

int ParseErrorOffset(const std::wstring& text) { return WideFault(text).offset; }

// "line:column: description" of the fault of a wide text.
std::string Place(const std::wstring& text) {
  const Fault f = WideFault(text);
  return std::to_string(f.line) + ":" + std::to_string(f.column) + ": " + f.description;
}

std::vector<std::wstring> ChildNames(const Element& parent) {
  std::vector<std::wstring> names;
  for (Element e = parent.FirstChildElement(); e; e = e.NextSiblingElement()) names.push_back(e.GetName());
  return names;
}

const wchar_t kSiteList[] =
    L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    L"<!-- leading comment -->\n"
    L"<SiteLists version=\"3\" empty=\"\">\n"
    L"  <!-- inside -->\n"
    L"  <?app instruction?>\n"
    L"  <Site name=\"first\" type=\"repo\">one</Site>\n"
    L"  text between\n"
    L"  <Site name=\"second\">two &amp; &lt;three&gt; &#x20AC;&#65;</Site>\n"
    L"  <Other><![CDATA[a <raw> & value]]></Other>\n"
    L"  <Site name=\"third\"/>\n"
    L"</SiteLists>\n";

TEST(XmlParse, WalksNamesAttributesAndValues) {
  auto doc = ParseWide(kSiteList);
  Element root = doc->GetRoot();
  ASSERT_FALSE(root.IsNull());
  EXPECT_EQ(L"SiteLists", root.GetName());
  EXPECT_TRUE(root.HasName(L"SiteLists"));
  EXPECT_FALSE(root.HasName(L"SiteList"));
  EXPECT_FALSE(root.HasName(L"SiteListsX"));
  EXPECT_FALSE(root.HasName(L"sitelists"));
  EXPECT_FALSE(root.HasName(L""));

  EXPECT_EQ(L"3", root.GetAttribute(L"version"));
  EXPECT_EQ(L"", root.GetAttribute(L"missing"));
  EXPECT_TRUE(root.HasAttribute(L"version"));
  EXPECT_TRUE(root.HasAttribute(L"empty"));
  EXPECT_FALSE(root.HasAttribute(L"missing"));
  EXPECT_FALSE(root.HasAttribute(L"versio"));
  AString value = L"keep";
  EXPECT_TRUE(root.GetAttribute(L"empty", value));
  EXPECT_EQ(L"", value);
  value = L"keep";
  EXPECT_FALSE(root.GetAttribute(L"missing", value));
  EXPECT_EQ(L"keep", value);
  EXPECT_TRUE(root.GetAttribute(L"version", value));
  EXPECT_EQ(L"3", value);

  // Comments and the processing instruction are not elements; neither is the
  // text between the children, which stays the root's own value.
  EXPECT_EQ((std::vector<std::wstring>{L"Site", L"Site", L"Other", L"Site"}), ChildNames(root));
  std::vector<std::wstring> viaRange;
  for (Element e : root.Children()) viaRange.push_back(e.GetAttribute(L"name"));
  EXPECT_EQ((std::vector<std::wstring>{L"first", L"second", L"", L"third"}), viaRange);
  EXPECT_EQ(L"\n  text between\n  ", root.GetValue());

  Element first = root.GetElement(L"Site");
  EXPECT_EQ(L"first", first.GetAttribute(L"name"));
  EXPECT_EQ(L"repo", first.GetAttribute(L"type"));
  EXPECT_EQ(L"one", first.GetValue());
  EXPECT_EQ(L"second", root.GetElement(L"Site", 1).GetAttribute(L"name"));
  EXPECT_EQ(L"two & <three> \u20AC" L"A", root.GetElement(L"Site", 1).GetValue());
  Element third = root.GetElement(L"Site", 2);
  EXPECT_EQ(L"third", third.GetAttribute(L"name"));
  EXPECT_EQ(L"", third.GetValue());
  EXPECT_TRUE(third.FirstChildElement().IsNull());
  EXPECT_TRUE(third.NextSiblingElement().IsNull());
  EXPECT_TRUE(root.GetElement(L"Site", 3).IsNull());
  EXPECT_TRUE(root.GetElement(L"Site", -1).IsNull());
  EXPECT_TRUE(root.GetElement(L"Nothing").IsNull());
  EXPECT_EQ(L"a <raw> & value", root.GetElement(L"Other").GetValue());
  EXPECT_EQ(root.GetElement(L"Other").GetRef(), root.GetElement(L"Site", 1).NextSiblingElement().GetRef());
  EXPECT_EQ(first.GetRef(), root.FirstChildElement().GetRef());
}

TEST(XmlParse, NullElementIsHarmless) {
  Element none;
  EXPECT_TRUE(none.IsNull());
  EXPECT_FALSE(static_cast<bool>(none));
  EXPECT_EQ(L"", none.GetName());
  EXPECT_FALSE(none.HasName(L""));
  EXPECT_EQ(L"", none.GetAttribute(L"a"));
  EXPECT_FALSE(none.HasAttribute(L"a"));
  EXPECT_EQ(L"", none.GetValue());
  EXPECT_TRUE(none.FirstChildElement().IsNull());
  EXPECT_TRUE(none.GetElement(L"a").IsNull());
  EXPECT_TRUE(none.AppendElement(L"a").IsNull());
  EXPECT_FALSE(none.SetAttribute(L"a", L"b"));
  EXPECT_FALSE(none.SetValue(L"b"));
  int count = 0;
  for (Element e : none.Children()) {
    (void)e;
    ++count;
  }
  EXPECT_EQ(0, count);
}

TEST(XmlParse, NonAsciiNamesAndValues) {
  const std::wstring text =
      L"<Gr\u00F6\u00DFe \u540D\u524D=\"\u5024 \U0001F600\"><\u00E9l\u00E9ment>\u00DCn\u00EFc\u00F6d\u00E9 \u20AC</\u00E9l\u00E9ment></Gr\u00F6\u00DFe>";
  auto doc = ParseWide(text);
  Element root = doc->GetRoot();
  EXPECT_EQ(L"Gr\u00F6\u00DFe", root.GetName());
  EXPECT_TRUE(root.HasName(L"Gr\u00F6\u00DFe"));
  EXPECT_FALSE(root.HasName(L"Gr\u00F6\u00DF"));
  EXPECT_FALSE(root.HasName(L"Gr\u00F6sse"));
  EXPECT_FALSE(root.HasName(L"Gr\u00F6\u00DFen"));
  EXPECT_EQ(L"\u5024 \U0001F600", root.GetAttribute(L"\u540D\u524D"));
  EXPECT_FALSE(root.HasAttribute(L"\u540D"));
  Element child = root.GetElement(L"\u00E9l\u00E9ment");
  ASSERT_FALSE(child.IsNull());
  EXPECT_EQ(L"\u00DCn\u00EFc\u00F6d\u00E9 \u20AC", child.GetValue());

  // Written out and read back unchanged, as wide text and as UTF-8.
  EXPECT_EQ(kDecl + text, doc->GenerateXML(false));
  EXPECT_EQ(Utf8(kDecl + text), doc->GenerateUtf8(false));
  auto again = ParseNarrow(doc->GenerateUtf8(true));
  EXPECT_EQ(L"\u5024 \U0001F600", again->GetRoot().GetAttribute(L"\u540D\u524D"));
  EXPECT_EQ(L"\u00DCn\u00EFc\u00F6d\u00E9 \u20AC", again->GetRoot().GetElement(L"\u00E9l\u00E9ment").GetValue());
}

TEST(XmlParse, MostlyNonAsciiTextOfEveryLength) {
  // Two-, three- and four-byte characters in any amount and mix.
  const wchar_t kinds[] = {L'\u00E9', L'\u4E2D', L'\U0001F600'};
  for (wchar_t kind : kinds) {
    for (std::size_t count = 0; count < 400; ++count) {
      std::wstring value(count, kind);
      if (count % 2) value += L"tail";
      auto doc = ParseWide(L"<r>" + value + L"</r>");
      ASSERT_EQ(value, doc->GetRoot().GetValue()) << count;
    }
  }
}

TEST(XmlParse, OneNonAsciiCharacterAnywhereInAsciiText) {
  // Around the blocks of sixteen the encoder copies at once.
  const wchar_t odd[] = {L'\u00E9', L'\u20AC', L'\U0001F600', static_cast<wchar_t>(-1), static_cast<wchar_t>(0x110000)};
  for (std::size_t length = 1; length < 50; ++length) {
    for (std::size_t at = 0; at < length; ++at) {
      std::wstring value;
      for (std::size_t i = 0; i < length; ++i) value.push_back(static_cast<wchar_t>(L'a' + i % 26));
      const wchar_t c = odd[(length + at) % 5];
      value[at] = c;
      std::wstring expected = value;
      if (c == static_cast<wchar_t>(-1) || c == static_cast<wchar_t>(0x110000)) expected[at] = L'\uFFFD';
      auto doc = ParseWide(L"<r>" + value + L"</r>");
      ASSERT_EQ(expected, doc->GetRoot().GetValue()) << length << " " << at;
    }
  }
}

TEST(XmlParse, WideValuesThatAreNoCharactersBecomeReplacementCharacters) {
  std::wstring text = L"<a>x";
  text.push_back(static_cast<wchar_t>(0xD800));
  text.push_back(static_cast<wchar_t>(0x110000));
  text.push_back(static_cast<wchar_t>(-1));
  text += L"y</a>";
  auto doc = ParseWide(text);
  EXPECT_EQ(L"x\uFFFD\uFFFD\uFFFDy", doc->GetRoot().GetValue());
}

TEST(XmlParse, Utf8InputWithBadBytesIsRefusedWhereTheyStart) {
  // Bytes that are no UTF-8 are no characters: the text is not well formed.
  const char* const bad[] = {"\xC3(", "\xE0\x80\x80", "\xF4\x90\x80\x80", "\xED\xA0\x80", "\x80", "\xF0\x9F\x98|"};
  for (const char* b : bad) {
    SCOPED_TRACE(b);
    const Fault inValue = NarrowFault(std::string("<r a=\"x") + b + "\"/>");
    EXPECT_EQ(7, inValue.offset);
    EXPECT_EQ("not well-formed (invalid token)", inValue.description);
    const Fault inName = NarrowFault(std::string("<r><n") + b + "/></r>");
    EXPECT_EQ(5, inName.offset);
    EXPECT_EQ("not well-formed (invalid token)", inName.description);
  }
}

TEST(XmlParse, ParseUtf8SkipsAByteOrderMark) {
  auto doc = ParseNarrow("\xEF\xBB\xBF<r>\xE2\x82\xAC</r>");
  EXPECT_EQ(L"r", doc->GetRoot().GetName());
  EXPECT_EQ(L"\u20AC", doc->GetRoot().GetValue());
}

TEST(XmlParse, TextThatIsNotWellFormedThrowsWithItsPlace) {
  const Fault f = WideFault(L"<a></b>");
  EXPECT_EQ(5, f.offset);
  EXPECT_EQ(1u, f.line);
  EXPECT_EQ(6u, f.column);
  EXPECT_EQ("mismatched tag", f.description);
  EXPECT_EQ("XML not well formed at line 1, column 6: mismatched tag", f.what);
  EXPECT_EQ("1:4: no element found", Place(L"<a>"));
  EXPECT_EQ("1:1: unclosed token", Place(L"<a"));
  EXPECT_EQ("1:1: unclosed token", Place(L"<a x=\"1\""));
  EXPECT_EQ("1:1: unclosed token", Place(L"<"));
  EXPECT_EQ("1:9: mismatched tag", Place(L"<a><b></a>"));
  // The column counts characters, the offset UTF-8 bytes.
  const Fault wide = WideFault(L"<\u00E4></b>");
  EXPECT_EQ(6, wide.offset);
  EXPECT_EQ(6u, wide.column);
  EXPECT_EQ("2:3: not well-formed (invalid token)", Place(L"<r>\n<\u00E4\u20AC/></r>"));  // no name character
  EXPECT_EQ("3:4: mismatched tag", Place(L"<r>\n<\u00E4>\n\u00E4</b></r>"));  // at the end tag's name

  // No element at all.
  EXPECT_EQ("1:1: syntax error", Place(L"invalid"));
  EXPECT_EQ("1:1: no element found", Place(L""));
  EXPECT_EQ("1:4: no element found", Place(L"   "));
  EXPECT_EQ("2:1: no element found", Place(L"<!--c-->\n"));

  // A second document element.
  EXPECT_EQ("1:5: junk after document element", Place(L"<a/><b/>"));
  EXPECT_EQ("1:9: junk after document element", Place(L"<a></a> <b/>"));

  Parser parser;
  EXPECT_THROW(parser.Parse(nullptr, 10), ParsingException);
  EXPECT_THROW(parser.ParseUtf8("<a></b>", 7), ParsingException);
  EXPECT_THROW(parser.ParseUtf8("invalid", 7), ParsingException);
}

TEST(XmlParse, EveryTruncationOfADocumentIsRefused) {
  const std::wstring full = kSiteList;
  const std::size_t end = full.find(L"</SiteLists>");
  // Cutting anywhere before the last closing tag ends leaves an open element
  // (or nothing at all).
  for (std::size_t cut = 0; cut < end + 11; ++cut) {
    SCOPED_TRACE(cut);
    EXPECT_NE(-1, ParseErrorOffset(full.substr(0, cut)));
  }
  EXPECT_EQ(-1, ParseErrorOffset(full.substr(0, end + 12)));
  // Cut inside the closing tag, the fault is where the tag starts.
  EXPECT_EQ(static_cast<int>(Utf8(full.substr(0, end)).size()), ParseErrorOffset(full.substr(0, end + 5)));
}

TEST(XmlParse, TextAfterTheDocumentElementIsRefusedWhereItStarts) {
  EXPECT_EQ("1:5: junk after document element", Place(L"<a/>junk"));
  EXPECT_EQ("2:2: junk after document element", Place(L"<a></a>\n tail \n"));
  EXPECT_EQ("1:13: junk after document element", Place(L"<a/><!--c-->x"));
  const Fault narrow = NarrowFault("<a/>junk");
  EXPECT_EQ(4, narrow.offset);
  EXPECT_EQ("junk after document element", narrow.description);
}

TEST(XmlParse, TextBeforeTheDocumentElementIsRefused) {
  EXPECT_EQ("1:5: not well-formed (invalid token)", Place(L"junk<a/>"));
  EXPECT_EQ("2:3: not well-formed (invalid token)", Place(L" \n x<a/>"));
  // Behind a byte order mark, which the offset counts.
  const Fault marked = NarrowFault("\xEF\xBB\xBFx<a/>");
  EXPECT_EQ(4, marked.offset);
  EXPECT_EQ("not well-formed (invalid token)", marked.description);
}

TEST(XmlParse, NulCharacterIsRefused) {
  EXPECT_EQ("1:5: not well-formed (invalid token)", Place(std::wstring(L"<a/>\0junk", 9)));
  // NUL padding, as a file system may leave after a crash.
  EXPECT_EQ(4, NarrowFault(std::string("<a/>\0\0\0", 7)).offset);
  EXPECT_EQ("1:5: not well-formed (invalid token)", Place(std::wstring(L"<a>x\0y</a>", 10)));
}

TEST(XmlParse, CdataOutsideTheDocumentElementIsRefused) {
  EXPECT_EQ("1:5: junk after document element", Place(L"<a/><![CDATA[x]]>"));
  // Inside the element it is text like any other.
  EXPECT_EQ(L"x<y", ParseWide(L"<a><![CDATA[x<y]]></a>")->GetRoot().GetValue());
}

TEST(XmlParse, RepeatedAttributeIsRefused) {
  EXPECT_EQ("1:19: duplicate attribute", Place(L"<a><b x=\"1\" y=\"2\" x=\"3\"/></a>"));
  // The same attribute once the prefixes are expanded: the element is the place.
  EXPECT_EQ("1:4: duplicate attribute", Place(L"<r><a xmlns:p=\"u\" xmlns:q=\"u\" p:x=\"1\" q:x=\"2\"/></r>"));
  // Names differing in case are different names.
  EXPECT_EQ(L"2", ParseWide(L"<a X=\"1\" x=\"2\"/>")->GetRoot().GetAttribute(L"x"));
}

TEST(XmlParse, MarkupAroundTheDocumentElementStillParses) {
  const std::wstring text =
      L"\uFEFF<?xml version=\"1.0\"?>\n<!-- before -->\n<?pi data?>\n"
      L"<r X=\"1\" x=\"2\" xmlns:p=\"urn:p\" p:x=\"3\"><s/></r>\n<!-- after -->\n<?pi more?>\r\n\t ";
  auto doc = ParseWide(text);
  EXPECT_EQ(L"r", doc->GetRoot().GetName());
  EXPECT_EQ(L"2", doc->GetRoot().GetAttribute(L"x"));
  EXPECT_EQ(L"3", doc->GetRoot().GetAttribute(L"p:x"));
  EXPECT_EQ(L"r", ParseNarrow(Utf8(text))->GetRoot().GetName());
}

TEST(XmlParse, DocumentTypeDeclarationIsRefusedWhereItStands) {
  EXPECT_EQ("1:1: document type declaration not allowed",
            Place(L"<!DOCTYPE a [<!ENTITY xxe SYSTEM \"file:///etc/passwd\">]><a>&xxe;</a>"));
  EXPECT_EQ("2:1: document type declaration not allowed", Place(L"<?xml version=\"1.0\"?>\n<!DOCTYPE r>\n<r/>"));
  // Line ends CR LF and CR; the column in characters; a "<!DOCTYPE" in a comment is no declaration.
  EXPECT_EQ("3:8: document type declaration not allowed",
            Place(L"<!-- <!DOCTYPE -->\r\n\r<?p \u00E4?><!DOCTYPE\n r\n>\n<r/>"));
}

TEST(XmlParse, EntityReferencesOtherThanThePredefinedOnesAreRefused) {
  EXPECT_EQ("1:4: undefined entity", Place(L"<a>&xxe;</a>"));
  EXPECT_EQ("1:4: undefined entity", Place(L"<r><a v=\"&big;\"/></r>"));  // in a value: the element
  // The five and character references are read.
  auto doc = ParseWide(L"<a v=\"&lt;&#65;&#x42;\">&amp;&gt;&apos;&quot;&#233;</a>");
  EXPECT_EQ(L"<AB", doc->GetRoot().GetAttribute(L"v"));
  EXPECT_EQ(L"&>'\"\u00E9", doc->GetRoot().GetValue());
  // A reference to a character XML forbids.
  EXPECT_EQ("1:4: reference to invalid character number", Place(L"<a>&#1;</a>"));
  EXPECT_EQ("1:4: reference to invalid character number", Place(L"<a>&#xFFFE;</a>"));
}

TEST(XmlParse, EncodingDeclarationOfWideTextNamesNothing) {
  // Wide text is characters already: whatever encoding it once was in is gone.
  EXPECT_EQ(L"a", ParseWide(L"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>")->GetRoot().GetName());
  // But its form is still checked.
  EXPECT_EQ("1:34: XML declaration not well-formed", Place(L"<?xml version=\"1.0\" encoding=\"UTF 8\"?><a/>"));
}

TEST(XmlParse, EncodingDeclarationOfUtf8BytesMustNameUtf8) {
  EXPECT_EQ(L"a", ParseNarrow("<?xml version=\"1.0\" encoding=\"utf-8\"?><a/>")->GetRoot().GetName());
  const Fault utf16 = NarrowFault("<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>");
  EXPECT_EQ("encoding declaration does not name the encoding of the text", utf16.description);
  EXPECT_EQ(1u, utf16.line);
  EXPECT_EQ(1u, utf16.column);
  // ASCII text means the same in US-ASCII and ISO-8859-1 ...
  EXPECT_EQ(L"a", ParseNarrow("<?xml version=\"1.0\" encoding=\"US-ASCII\"?><a/>")->GetRoot().GetName());
  EXPECT_EQ(L"a", ParseNarrow("<?xml version=\"1.0\" encoding=\"iso-8859-1\"?><a/>")->GetRoot().GetName());
  // ... other text does not.
  EXPECT_EQ(0, NarrowFault("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xC3\xA9</a>").offset);
  // After a byte order mark only UTF-8 is right.
  EXPECT_EQ(3, NarrowFault("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><x/>").offset);
  // An encoding the library does not read.
  EXPECT_EQ(0, NarrowFault("<?xml version=\"1.0\" encoding=\"Shift_JIS\"?><a/>").offset);
}

TEST(XmlParse, DeepNestingParsesAndWalks) {
  const std::size_t depth = 100000;
  std::wstring text;
  text.reserve(depth * 7);
  for (std::size_t i = 0; i < depth; ++i) text += L"<d>";
  for (std::size_t i = 0; i < depth; ++i) text += L"</d>";
  auto doc = ParseWide(text);

  std::size_t levels = 0;
  Element deepest;
  for (Element e = doc->GetRoot(); e; e = e.FirstChildElement()) {
    ++levels;
    deepest = e;
  }
  EXPECT_EQ(depth, levels);
  EXPECT_TRUE(deepest.HasName(L"d"));

  std::string expected = Utf8(kDecl);
  for (std::size_t i = 1; i < depth; ++i) expected += "<d>";
  expected += "<d/>";
  for (std::size_t i = 1; i < depth; ++i) expected += "</d>";
  EXPECT_EQ(expected, doc->GenerateUtf8(false));
}

TEST(XmlParse, TenMegabyteAttributeValueReadsBackExactly) {
  const wchar_t pattern[] = L"abcdefghijklmnopqrstuvwxyz 0123456789 \u00E9\u20AC\U0001F600";
  const std::size_t patternLength = sizeof pattern / sizeof pattern[0] - 1;
  std::wstring value;
  value.reserve(10 * 1024 * 1024);
  for (std::size_t i = 0; value.size() < 10 * 1024 * 1024; ++i) value.push_back(pattern[i % patternLength]);

  auto doc = ParseWide(L"<r big=\"" + value + L"\" after=\"1\"/>");
  EXPECT_TRUE(doc->GetRoot().GetAttribute(L"big") == value);
  EXPECT_EQ(L"1", doc->GetRoot().GetAttribute(L"after"));

  auto viaUtf8 = ParseNarrow("<r big=\"" + Utf8(value) + "\"/>");
  EXPECT_TRUE(viaUtf8->GetRoot().GetAttribute(L"big") == value);

  // With characters that must be escaped, through a full write and read.
  value[17] = L'&';
  value[1000] = L'<';
  value[5000000] = L'"';
  value[value.size() - 1] = L'>';
  Document built;
  ASSERT_TRUE(built.CreateRoot(L"r").SetAttribute(L"big", value));
  const std::wstring xml = built.GenerateXML(false);
  auto reread = ParseWide(xml);
  EXPECT_TRUE(reread->GetRoot().GetAttribute(L"big") == value);
}

TEST(XmlBuild, ChildOrderAttributeOrderValuesAndExactText) {
  Document doc;
  EXPECT_TRUE(doc.GetRoot().IsNull());
  EXPECT_EQ(kDecl, doc.GenerateXML(false));
  EXPECT_EQ(kDecl + L"\n", doc.GenerateXML(true));

  Element root = doc.CreateRoot(L"SiteLists");
  ASSERT_FALSE(root.IsNull());
  EXPECT_EQ(root.GetRef(), doc.GetRoot().GetRef());
  EXPECT_TRUE(root.SetAttribute(L"b", L"2"));
  EXPECT_TRUE(root.SetAttribute(L"a", L"1"));
  EXPECT_TRUE(root.SetAttribute(L"c", std::wstring(L"3")));
  // Replacing keeps the attribute where it was.
  EXPECT_TRUE(root.SetAttribute(L"a", L"one"));
  EXPECT_FALSE(root.SetAttribute(L"", L"x"));
  EXPECT_FALSE(root.SetAttribute(nullptr, L"x"));

  Element middle = root.AppendElement(L"Middle");
  Element first = root.PrependElement(L"First");
  Element last = root.AppendElement(L"Last");
  Element afterMiddle = root.InsertElementAfter(L"AfterMiddle", middle);
  Element afterLast = root.InsertElementAfter(L"AfterLast", last);
  ASSERT_FALSE(middle.IsNull() || first.IsNull() || last.IsNull() || afterMiddle.IsNull() || afterLast.IsNull());
  EXPECT_TRUE(root.AppendElement(L"").IsNull());
  // Only a child of the element can be the anchor.
  Element grandchild = middle.AppendElement(L"Inner");
  EXPECT_TRUE(root.InsertElementAfter(L"Nowhere", grandchild).IsNull());
  EXPECT_TRUE(root.InsertElementAfter(L"Nowhere", Element()).IsNull());
  EXPECT_EQ((std::vector<std::wstring>{L"First", L"Middle", L"AfterMiddle", L"Last", L"AfterLast"}), ChildNames(root));
  EXPECT_EQ(root.GetRef(), afterMiddle.GetParent().GetRef());
  EXPECT_EQ(middle.GetRef(), grandchild.GetParent().GetRef());
  EXPECT_TRUE(root.GetParent().IsNull());
  EXPECT_TRUE(Element().GetParent().IsNull());

  EXPECT_TRUE(first.SetAttribute(L"q", L"say \"hi\" & <bye>"));
  EXPECT_TRUE(middle.SetValue(L"x < y & z"));
  EXPECT_EQ(L"x < y & z", middle.GetValue());
  EXPECT_TRUE(middle.SetValue(std::wstring(L"replaced \u20AC")));
  EXPECT_EQ(L"replaced \u20AC", middle.GetValue());
  EXPECT_TRUE(last.SetValue(L"a<b"));
  EXPECT_TRUE(afterLast.SetValue(L""));

  EXPECT_EQ(kDecl +
                L"<SiteLists b=\"2\" a=\"one\" c=\"3\">"
                L"<First q=\"say &quot;hi&quot; &amp; &lt;bye>\"/>"
                L"<Middle><Inner/>replaced \u20AC</Middle>"
                L"<AfterMiddle/>"
                L"<Last>a&lt;b</Last>"
                L"<AfterLast></AfterLast>"
                L"</SiteLists>",
            doc.GenerateXML(false));
  EXPECT_EQ(kDecl +
                L"\n"
                L"<SiteLists b=\"2\" a=\"one\" c=\"3\">\n"
                L"\t<First q=\"say &quot;hi&quot; &amp; &lt;bye>\" />\n"
                L"\t<Middle>\n"
                L"\t\t<Inner />replaced \u20AC</Middle>\n"
                L"\t<AfterMiddle />\n"
                L"\t<Last>a&lt;b</Last>\n"
                L"\t<AfterLast></AfterLast>\n"
                L"</SiteLists>\n",
            doc.GenerateXML(true));

  for (bool indent : {false, true}) {
    const std::string utf8 = doc.GenerateUtf8(indent);
    EXPECT_EQ(Utf8(doc.GenerateXML(indent)), utf8);
    EXPECT_EQ(0u, utf8.rfind("<?xml", 0));  // no byte order mark
    EXPECT_NE(std::string::npos, utf8.find("replaced \xE2\x82\xAC"));
  }

  // The written text reads back to the same tree.
  auto again = ParseWide(doc.GenerateXML(true));
  EXPECT_EQ(L"one", again->GetRoot().GetAttribute(L"a"));
  EXPECT_EQ(L"say \"hi\" & <bye>", again->GetRoot().GetElement(L"First").GetAttribute(L"q"));
  EXPECT_EQ(L"a<b", again->GetRoot().GetElement(L"Last").GetValue());
}

TEST(XmlBuild, SmallDocumentExactText) {
  Document doc;
  Element root = doc.CreateRoot(L"SiteList");
  root.SetAttribute(L"Type", L"repository");
  Element site = root.AppendElement(L"Site");
  site.SetAttribute(L"Name", L"Main");
  site.AppendElement(L"Server").SetValue(L"update.example:443");
  EXPECT_EQ(L"<?xml version=\"1.0\" encoding=\"UTF-8\"?><SiteList Type=\"repository\"><Site Name=\"Main\">"
            L"<Server>update.example:443</Server></Site></SiteList>",
            doc.GenerateXML(false));
  EXPECT_EQ(L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<SiteList Type=\"repository\">\n\t<Site Name=\"Main\">\n"
            L"\t\t<Server>update.example:443</Server>\n\t</Site>\n</SiteList>\n",
            doc.GenerateXML(true));
}

TEST(XmlBuild, CreateRootReplacesAParsedTree) {
  auto doc = ParseWide(L"<old a=\"1\"><child/></old>");
  Element root = doc->CreateRoot(L"new");
  EXPECT_TRUE(root.HasName(L"new"));
  EXPECT_EQ(root.GetRef(), doc->GetRoot().GetRef());
  EXPECT_EQ(kDecl + L"<new/>", doc->GenerateXML(false));
  EXPECT_TRUE(doc->CreateRoot(L"").IsNull());
}

TEST(XmlBuild, EditsAParsedDocument) {
  auto doc = ParseNarrow("<r x=\"1\" y=\"2\"><a>t</a><b/></r>");
  Element root = doc->GetRoot();
  EXPECT_TRUE(root.SetAttribute(L"x", L"10"));
  EXPECT_TRUE(root.SetAttribute(L"z", L"3"));
  EXPECT_TRUE(root.GetElement(L"a").SetValue(L"u"));
  EXPECT_FALSE(root.InsertElementAfter(L"c", root.GetElement(L"a")).IsNull());
  EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?><r x=\"10\" y=\"2\" z=\"3\"><a>u</a><c/><b/></r>",
            doc->GenerateUtf8(false));
}

// Lets the next `count` allocations of pugixml succeed and fails the rest,
// while it lives. The functions are malloc and free as pugixml's defaults
// are, so memory allocated on either side of the switch is freed correctly.
class PugiAllocationLimit {
 public:
  explicit PugiAllocationLimit(std::size_t count)
      : m_allocate(pugi::get_memory_allocation_function()), m_deallocate(pugi::get_memory_deallocation_function()) {
    s_left = count;
    pugi::set_memory_management_functions(&Allocate, &std::free);
  }
  ~PugiAllocationLimit() { pugi::set_memory_management_functions(m_allocate, m_deallocate); }

 private:
  static void* Allocate(std::size_t size) {
    if (s_left == 0) return nullptr;
    --s_left;
    return std::malloc(size);
  }
  static std::size_t s_left;
  pugi::allocation_function m_allocate;
  pugi::deallocation_function m_deallocate;
};
std::size_t PugiAllocationLimit::s_left = 0;

template <typename F>
int ReadWriteCode(F body) {
  try {
    body();
  } catch (const ReadWriteException& e) {
    return e.GetErrorCode();
  }
  return 0;
}

TEST(XmlMemory, ParsingWithoutMemoryThrowsENOMEM) {
  std::wstring big = L"<r>";
  for (int i = 0; i < 20000; ++i) big += L"<site name=\"n" + std::to_wstring(i) + L"\"/>";
  big += L"</r>";
  const std::string bigUtf8 = Utf8(big);
  {
    PugiAllocationLimit limit(0);
    EXPECT_EQ(ENOMEM, ReadWriteCode([] { ParseWide(L"<a/>"); }));
    EXPECT_EQ(ENOMEM, ReadWriteCode([] { ParseNarrow("<a/>"); }));
  }
  {
    // The text fits; the tree does not.
    PugiAllocationLimit limit(1);
    EXPECT_EQ(ENOMEM, ReadWriteCode([&] { ParseWide(big); }));
  }
  {
    PugiAllocationLimit limit(1);
    EXPECT_EQ(ENOMEM, ReadWriteCode([&] { ParseNarrow(bigUtf8); }));
  }
  // With memory back, the same text parses.
  EXPECT_EQ(20000u, ChildNames(ParseWide(big)->GetRoot()).size());
}

TEST(XmlMemory, BuildingWithoutMemoryReturnsNullAndKeepsTheTree) {
  Document doc;
  Element root = doc.CreateRoot(L"r");
  std::size_t added = 0;
  bool refused = false;
  {
    PugiAllocationLimit limit(0);
    const std::wstring name(40, L'n');
    for (int i = 0; i < 100000 && !refused; ++i) {
      if (root.AppendElement(name.c_str()).IsNull())
        refused = true;
      else
        ++added;
    }
    EXPECT_FALSE(root.SetAttribute(L"big", std::wstring(100000, L'v')));
    EXPECT_FALSE(root.FirstChildElement().SetValue(std::wstring(100000, L't')));
    EXPECT_TRUE(doc.CreateRoot(L"other").IsNull());
  }
  EXPECT_TRUE(refused);
  EXPECT_TRUE(doc.GetRoot().HasName(L"r"));
  // What was added before is intact, and nothing half-made was left behind.
  EXPECT_EQ(added, ChildNames(doc.GetRoot()).size());
  EXPECT_FALSE(doc.GetRoot().HasAttribute(L"big"));
  EXPECT_EQ(L"", doc.GetRoot().GetValue());
}

}  // namespace
