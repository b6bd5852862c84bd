// The UTF-8 paths of the XML facade (reading a file for the parser, parsing
// in place, reading values without wide strings, appending attributes)
// give exactly what the wide paths give.
#include <errno.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/AString.h"
#include "port/xml/AdvXMLParser.h"
#include "support/TestSupport.h"

namespace {

using namespace AdvXMLParser;
using testsupport::TempDir;
using testsupport::WriteFile;

std::string Utf8(const std::wstring& s) { return platform_detail::WideToUtf8(s.data(), s.size()); }

// errno of the ReadWriteException a read throws; 0 when it succeeds.
int WideReadError(const std::string& path, AString& text) {
  try {
    UTF_ENCODINGS encoding = UTF_8;
    ReadBufferFromFile(AString(path), text, encoding);
  } catch (const ReadWriteException& e) {
    return e.GetErrorCode();
  }
  return 0;
}

int Utf8ReadError(const std::string& path, Utf8Text& text) {
  try {
    ReadUtf8FromFile(AString(path), text);
  } catch (const ReadWriteException& e) {
    return e.GetErrorCode();
  }
  return 0;
}

struct FileCase {
  const char* name;
  std::string bytes;
};

std::vector<FileCase> FileCases() {
  const std::string doc = "<a x=\"Z\xC3\xBCrich \xE2\x82\xAC\">\xF0\x9F\x98\x80</a>";
  return {
      {"utf8", doc},
      {"utf8 with mark", "\xEF\xBB\xBF" + doc},
      {"empty", ""},
      {"only a mark", "\xEF\xBB\xBF"},
      {"nul byte", std::string("<a>\0</a>", 8)},
      {"utf16 le", std::string("\xFF\xFE<\0a\0/\0>\0", 10)},
      {"utf16 be", std::string("\xFE\xFF\0<\0a\0/\0>", 10)},
      {"utf32 le", std::string("\xFF\xFE\0\0<\0\0\0/\0\0\0", 12)},
      {"utf32 be", std::string("\0\0\xFE\xFF\0\0\0<", 8)},
      {"lone continuation byte", "<a>\x80</a>"},
      {"overlong slash", "<a>\xC0\xAF</a>"},
      {"surrogate", "<a>\xED\xA0\x80</a>"},
      {"beyond unicode", "<a>\xF4\x90\x80\x80</a>"},
      {"cut at the end", "<a/>\xE2\x82"},
      {"bad byte after 40 ascii", std::string(40, 'a') + "\xFF"},
      {"odd utf16", std::string("\xFF\xFE<\0a", 5)},
  };
}

TEST(XmlUtf8, FileReadGivesTheWideReadsTextAndErrors) {
  TempDir dir;
  for (const FileCase& c : FileCases()) {
    SCOPED_TRACE(c.name);
    const std::string path = dir.file("case.xml");
    WriteFile(path, c.bytes);
    AString wide;
    Utf8Text utf8;
    const int wideError = WideReadError(path, wide);
    EXPECT_EQ(Utf8ReadError(path, utf8), wideError);
    if (wideError == 0) {
      EXPECT_EQ(std::string(utf8.data(), utf8.size()), Utf8(wide));
      EXPECT_EQ(utf8.data()[utf8.size()], '\0');
    }
  }
}

TEST(XmlUtf8, MissingFileAndDirectoryFailAsTheWideRead) {
  TempDir dir;
  AString wide;
  Utf8Text utf8;
  EXPECT_EQ(Utf8ReadError(dir.file("missing.xml"), utf8), ENOENT);
  EXPECT_EQ(WideReadError(dir.file("missing.xml"), wide), ENOENT);
  EXPECT_EQ(Utf8ReadError(dir.path(), utf8), EISDIR);
}

// Root attributes and the fault offset of a parse, in wide and in UTF-8 form.
struct Outcome {
  int offset = -1;
  std::wstring x;
  std::wstring value;
  bool operator==(const Outcome& o) const { return offset == o.offset && x == o.x && value == o.value; }
};

Outcome FromWide(const std::wstring& text) {
  Outcome out;
  try {
    Parser parser;
    std::unique_ptr<Document> doc(parser.Parse(text.data(), text.size()));
    out.x = doc->GetRoot().GetAttribute(L"x");
    out.value = doc->GetRoot().GetValue();
  } catch (const ParsingException& e) {
    out.offset = e.GetErrorCode();
  }
  return out;
}

Outcome FromUtf8File(const std::string& path, Parser::Use use) {
  Outcome out;
  Utf8Text text;
  ReadUtf8FromFile(AString(path), text);
  try {
    Parser parser;
    std::unique_ptr<Document> doc(parser.Parse(text, use));
    EXPECT_EQ(text.size(), 0u);  // taken over
    out.x = doc->GetRoot().GetAttribute(L"x");
    out.value = doc->GetRoot().GetValue();
  } catch (const ParsingException& e) {
    EXPECT_EQ(text.size(), 0u);
    out.offset = e.GetErrorCode();
  }
  return out;
}

TEST(XmlUtf8, InPlaceParseGivesTheWideParsesResultsAndOffsets) {
  TempDir dir;
  const std::vector<std::wstring> texts = {
      L"<a x=\"1 &amp; 2&#x20AC;\">t&lt;\u00FC</a>",
      L"<?xml version=\"1.0\"?>\n<a x='q'>\r\nline</a>",
      L"<a x=\"1\"><b></a>",
      L"<a/><b/>",
      L"",
      L"   ",
      L"<a x=\"unterminated></a>",
  };
  for (const std::wstring& text : texts) {
    SCOPED_TRACE(Utf8(text));
    const std::string path = dir.file("parse.xml");
    WriteFile(path, Utf8(text));
    const Outcome wide = FromWide(text);
    EXPECT_TRUE(FromUtf8File(path, Parser::Editing) == wide);
    EXPECT_TRUE(FromUtf8File(path, Parser::ReadingOnly) == wide);
  }
}

// Every element's name, text and attributes, depth first.
void Describe(const Element& e, std::vector<std::wstring>& out) {
  out.push_back(e.GetName() + L"=" + e.GetValue() + L"|" + e.GetAttribute(L"k"));
  for (Element c : e.Children()) Describe(c, out);
}

TEST(XmlUtf8, ReadingOnlyTreeReadsLikeAnEditableOne) {
  TempDir dir;
  const std::string path = dir.file("mixed.xml");
  WriteFile(path,
            "<r k=\"1\">lead<a>one</a>mid<b><![CDATA[cd]]>after</b><c> </c><d>x<e/>y</d>"
            "<f><!-- note -->text</f><g></g><h><i>deep</i></h>tail</r>");
  std::vector<std::wstring> editable, readOnly;
  {
    Utf8Text text;
    ReadUtf8FromFile(AString(path), text);
    std::unique_ptr<Document> doc(Parser().Parse(text, Parser::Editing));
    Describe(doc->GetRoot(), editable);
  }
  {
    Utf8Text text;
    ReadUtf8FromFile(AString(path), text);
    std::unique_ptr<Document> doc(Parser().Parse(text, Parser::ReadingOnly));
    Describe(doc->GetRoot(), readOnly);
  }
  EXPECT_EQ(readOnly, editable);
  EXPECT_EQ(editable.front(), L"r=lead|1");
  EXPECT_EQ(editable.size(), 10u);
}

TEST(XmlUtf8, Utf8AccessorsAndDecodingMatchTheWideOnes) {
  Parser parser;
  const std::string text = "<r a=\"Z\xC3\xBC\" e=\"\"><v>\xE2\x82\xAC x</v><n/></r>";
  std::unique_ptr<Document> doc(parser.ParseUtf8(text.data(), text.size()));
  const Element root = doc->GetRoot();
  EXPECT_STREQ(root.GetNameUtf8(), "r");
  EXPECT_STREQ(root.GetAttributeUtf8(L"a"), "Z\xC3\xBC");
  EXPECT_STREQ(root.GetAttributeUtf8(L"e"), "");
  EXPECT_EQ(root.GetAttributeUtf8(L"missing"), nullptr);
  EXPECT_STREQ(root.GetElement(L"v").GetValueUtf8(), "\xE2\x82\xAC x");
  EXPECT_STREQ(root.GetElement(L"n").GetValueUtf8(), "");

  wchar_t field[4];
  std::size_t length = 99;
  ASSERT_TRUE(DecodeUtf8Into("Z\xC3\xBC", field, 4, length));
  EXPECT_EQ(length, 2u);
  EXPECT_EQ(std::wstring(field), root.GetAttribute(L"a"));
  ASSERT_TRUE(DecodeUtf8Into("abc", field, 4, length));  // exactly capacity - 1
  EXPECT_EQ(std::wstring(field), L"abc");
  EXPECT_FALSE(DecodeUtf8Into("abcd", field, 4, length));
  ASSERT_TRUE(DecodeUtf8Into("", field, 4, length));
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(field[0], L'\0');
  // Malformed bytes decode as the wide accessors decode them.
  wchar_t wider[8];
  ASSERT_TRUE(DecodeUtf8Into("\xC3(\xE2\x82", wider, 8, length));
  EXPECT_EQ(std::wstring(wider, length), std::wstring(L"\uFFFD(\uFFFD\uFFFD"));
  EXPECT_FALSE(DecodeUtf8Into("\xC3(\xE2\x82", field, 4, length));
}

TEST(XmlUtf8, AppendedAttributesWriteLikeSetOnes) {
  Document appended, set;
  Element a = appended.CreateRoot(L"r");
  Element s = set.CreateRoot(L"r");
  const wchar_t* names[] = {L"Type", L"Name", L"Order", L"Server"};
  const wchar_t* values[] = {L"repository", L"Z\u00FCrich \u20AC", L"-1", L"host&<>\":80"};
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(a.AppendAttribute(names[i], values[i]));
    EXPECT_TRUE(s.SetAttribute(names[i], values[i]));
  }
  EXPECT_EQ(appended.GenerateUtf8(false), set.GenerateUtf8(false));
  EXPECT_FALSE(a.AppendAttribute(L"", L"x"));
  EXPECT_FALSE(Element().AppendAttribute(L"n", L"x"));
  // A long value takes the heap path and still comes out whole.
  const std::wstring longValue(3000, L'\u00E9');
  EXPECT_TRUE(a.AppendAttribute(L"Long", longValue.c_str()));
  EXPECT_EQ(a.GetAttribute(L"Long"), longValue);
}

}  // namespace
