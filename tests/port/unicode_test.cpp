// The text codec: strict refusals with their offsets, replacing output, the
// byte order marks of UTF-16 and UTF-32 in both byte orders, and the UTF-8
// encoder, to the exact character and byte.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/AString.h"
#include "port/text/Unicode.h"

namespace {

using port::text::Decode;
using port::text::DecodeUtf8;
using port::text::DetectByteOrderMark;
using port::text::EncodeUtf8;
using port::text::EncodeUtf8Into;
using port::text::Encoding;
using port::text::Errors;
using port::text::FindMalformedUtf8;

const unsigned char* Bytes(const std::string& s) { return reinterpret_cast<const unsigned char*>(s.data()); }

// The offset strict decoding refuses bytes at; -1 when it accepts them.
long RefusedAt(Encoding encoding, const std::string& bytes) {
  std::wstring text;
  std::size_t bad = 0;
  return Decode(encoding, Bytes(bytes), bytes.size(), Errors::Refuse, text, bad) ? -1 : static_cast<long>(bad);
}

std::wstring Strict(Encoding encoding, const std::string& bytes) {
  std::wstring text = L"old";
  std::size_t bad = 0;
  EXPECT_TRUE(Decode(encoding, Bytes(bytes), bytes.size(), Errors::Refuse, text, bad));
  return text;
}

std::wstring Replacing(Encoding encoding, const std::string& bytes) {
  std::wstring text = L"old";
  std::size_t bad = 0;
  EXPECT_TRUE(Decode(encoding, Bytes(bytes), bytes.size(), Errors::Replace, text, bad));
  return text;
}

TEST(Utf8Strict, OverlongFormsAreRefusedAtTheirFirstByte) {
  EXPECT_EQ(1, RefusedAt(Encoding::Utf8, std::string("a\xC0\x80", 3)));
  EXPECT_EQ(0, RefusedAt(Encoding::Utf8, "\xC1\xBF"));
  EXPECT_EQ(2, RefusedAt(Encoding::Utf8, "ab\xE0\x80\x80"));
  EXPECT_EQ(0, RefusedAt(Encoding::Utf8, "\xE0\x9F\xBF"));
  EXPECT_EQ(0, RefusedAt(Encoding::Utf8, "\xF0\x8F\xBF\xBF"));
  EXPECT_EQ(FindMalformedUtf8(Bytes("ab\xE0\x80\x80"), 5), 2u);
}

TEST(Utf8Strict, SurrogatesAreRefused) {
  EXPECT_EQ(0, RefusedAt(Encoding::Utf8, "\xED\xA0\x80"));  // U+D800
  EXPECT_EQ(3, RefusedAt(Encoding::Utf8, "xyz\xED\xBF\xBF"));  // U+DFFF
  EXPECT_EQ(-1, RefusedAt(Encoding::Utf8, "\xED\x9F\xBF"));  // U+D7FF
  EXPECT_EQ(FindMalformedUtf8(Bytes("xyz\xED\xBF\xBF"), 6), 3u);
}

TEST(Utf8Strict, ValuesBeyondUnicodeAreRefused) {
  EXPECT_EQ(0, RefusedAt(Encoding::Utf8, "\xF4\x90\x80\x80"));  // U+110000
  EXPECT_EQ(1, RefusedAt(Encoding::Utf8, "a\xF5\x80\x80\x80"));  // no lead byte at all
  EXPECT_EQ(0, RefusedAt(Encoding::Utf8, "\xFF"));
  EXPECT_EQ(L"\U0010FFFF", Strict(Encoding::Utf8, "\xF4\x8F\xBF\xBF"));
}

TEST(Utf8Strict, TruncatedSequencesAndStrayBytesAreRefused) {
  EXPECT_EQ(1, RefusedAt(Encoding::Utf8, "a\xE2\x82"));          // cut at the end
  EXPECT_EQ(0, RefusedAt(Encoding::Utf8, "\xF0\x9F\x98"));
  EXPECT_EQ(0, RefusedAt(Encoding::Utf8, "\xE2\x28\xA1"));       // no continuation byte
  EXPECT_EQ(2, RefusedAt(Encoding::Utf8, "ab\x80"));             // a continuation byte alone
  EXPECT_EQ(FindMalformedUtf8(Bytes("a\xE2\x82"), 3), 1u);
}

TEST(Utf8Strict, ValidTextDecodesExactlyAndFaultsAfterLongAsciiRunsKeepTheirOffset) {
  EXPECT_EQ(L"a\u00E9\u20AC\U0001F600", Strict(Encoding::Utf8, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
  EXPECT_EQ(L"", Strict(Encoding::Utf8, ""));
  const std::string ascii(100, 'x');
  EXPECT_EQ(std::wstring(100, L'x') + L"\u00E9", Strict(Encoding::Utf8, ascii + "\xC3\xA9"));
  EXPECT_EQ(100, RefusedAt(Encoding::Utf8, ascii + "\xC3"));
  EXPECT_EQ(FindMalformedUtf8(Bytes(ascii + "\xC3"), 101), 100u);
  EXPECT_EQ(FindMalformedUtf8(Bytes(ascii + "\xC3\xA9"), 102), 102u);
}

TEST(Utf8Replacing, EachMalformedByteBecomesOneReplacementCharacter) {
  EXPECT_EQ(L"a\uFFFD\uFFFDb", Replacing(Encoding::Utf8, std::string("a\xC0\x80" "b", 4)));
  EXPECT_EQ(L"\uFFFD\uFFFD\uFFFD", Replacing(Encoding::Utf8, "\xED\xA0\x80"));
  EXPECT_EQ(L"\uFFFD\uFFFD", Replacing(Encoding::Utf8, "\xE2\x82"));
  EXPECT_EQ(L"\uFFFD(\uFFFD", Replacing(Encoding::Utf8, "\xE2\x28\xA1"));
  EXPECT_EQ(L"\uFFFD\uFFFD\uFFFD\uFFFDz", Replacing(Encoding::Utf8, "\xF4\x90\x80\x80z"));
  EXPECT_EQ(L"x\U0001F600", Replacing(Encoding::Utf8, "x\xF0\x9F\x98\x80"));
  EXPECT_EQ(L"a\uFFFD\uFFFDb", DecodeUtf8("a\xC0\x80" "b", 4));
  EXPECT_EQ(std::wstring(40, L'q') + L"\uFFFD", DecodeUtf8((std::string(40, 'q') + "\xFF").c_str(), 41));
  EXPECT_EQ(L"", DecodeUtf8(nullptr, 0));
}

TEST(Utf8Replacing, TheInstalledStringTypesDecodeAndEncodeThroughTheCodec) {
  EXPECT_EQ(L"Z\u00FCrich\uFFFD", AString(std::string("Z\xC3\xBCrich\xC3")));
  EXPECT_EQ("Z\xC3\xBCrich\xEF\xBF\xBD", ACharString(std::wstring(L"Z\u00FCrich") + wchar_t(0xD800)));
  std::string out;
  platform_detail::AppendUtf8(out, 0x1F600);
  platform_detail::AppendUtf8(out, 0x110000);
  platform_detail::AppendUtf8(out, 0x41);
  EXPECT_EQ("\xF0\x9F\x98\x80\xEF\xBF\xBD" "A", out);
}

TEST(ByteOrderMarks, EveryMarkIsFoundWithItsSizeAndNoMarkGivesTheFallback) {
  const std::vector<std::pair<std::string, std::pair<Encoding, std::size_t>>> cases = {
      {"\xEF\xBB\xBFx", {Encoding::Utf8, 3}},
      {std::string("\xFF\xFE\x00\x00", 4), {Encoding::Utf32Le, 4}},
      {std::string("\x00\x00\xFE\xFF", 4), {Encoding::Utf32Be, 4}},
      {std::string("\xFF\xFEx\x00", 4), {Encoding::Utf16Le, 2}},
      {"\xFE\xFF", {Encoding::Utf16Be, 2}},
      {"<a/>", {Encoding::Utf16Be, 0}},
      {"\xEF\xBB", {Encoding::Utf16Be, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    std::size_t markSize = 99;
    EXPECT_EQ(c.second.first, DetectByteOrderMark(Bytes(c.first), c.first.size(), Encoding::Utf16Be, markSize));
    EXPECT_EQ(c.second.second, markSize);
  }
}

// Decodes bytes after their mark, as a file reader does.
std::wstring DecodeMarked(const std::string& bytes, Errors errors) {
  std::size_t markSize = 0;
  const Encoding encoding = DetectByteOrderMark(Bytes(bytes), bytes.size(), Encoding::Utf8, markSize);
  std::wstring text;
  std::size_t bad = 0;
  if (!Decode(encoding, Bytes(bytes) + markSize, bytes.size() - markSize, errors, text, bad))
    return L"refused at " + std::to_wstring(markSize + bad);
  return text;
}

TEST(Utf16, BothByteOrdersWithTheirMarksDecodeTextAndSurrogatePairs) {
  EXPECT_EQ(L"A\u20AC\U0001F600",
            DecodeMarked(std::string("\xFF\xFE" "A\x00\xAC\x20\x3D\xD8\x00\xDE", 10), Errors::Refuse));
  EXPECT_EQ(L"A\u20AC\U0001F600",
            DecodeMarked(std::string("\xFE\xFF\x00" "A\x20\xAC\xD8\x3D\xDE\x00", 10), Errors::Refuse));
}

TEST(Utf16, UnpairedSurrogatesAndAnOddLastByteAreRefusedOrReplaced) {
  const std::string lone("\xFF\xFE\x00\xDC" "a\x00", 6);  // a low surrogate alone
  EXPECT_EQ(L"refused at 2", DecodeMarked(lone, Errors::Refuse));
  EXPECT_EQ(L"\uFFFDa", DecodeMarked(lone, Errors::Replace));
  const std::string highHigh("\xFE\xFF\xD8\x00\xD8\x00\x00" "b", 8);
  EXPECT_EQ(L"refused at 2", DecodeMarked(highHigh, Errors::Refuse));
  EXPECT_EQ(L"\uFFFD\uFFFDb", DecodeMarked(highHigh, Errors::Replace));
  const std::string highAtEnd("\xFE\xFF\x00" "c\xD8\x3D", 6);
  EXPECT_EQ(L"refused at 4", DecodeMarked(highAtEnd, Errors::Refuse));
  EXPECT_EQ(L"c\uFFFD", DecodeMarked(highAtEnd, Errors::Replace));
  // An odd size is named by its last byte, before any fault within.
  const std::string odd("\xFF\xFE\x00\xDC" "a", 5);
  EXPECT_EQ(L"refused at 4", DecodeMarked(odd, Errors::Refuse));
  EXPECT_EQ(L"\uFFFD\uFFFD", DecodeMarked(odd, Errors::Replace));
}

TEST(Utf32, BothByteOrdersWithTheirMarksDecodeExactly) {
  EXPECT_EQ(L"A\U0010FFFF",
            DecodeMarked(std::string("\xFF\xFE\x00\x00" "A\x00\x00\x00\xFF\xFF\x10\x00", 12), Errors::Refuse));
  EXPECT_EQ(L"A\U0001F600",
            DecodeMarked(std::string("\x00\x00\xFE\xFF\x00\x00\x00" "A\x00\x01\xF6\x00", 12), Errors::Refuse));
}

TEST(Utf32, SurrogatesValuesBeyondUnicodeAndShortEndsAreRefusedOrReplaced) {
  const std::string surrogate("\x00\x00\xFE\xFF\x00\x00\x00" "A\x00\x00\xD8\x00", 12);
  EXPECT_EQ(L"refused at 8", DecodeMarked(surrogate, Errors::Refuse));
  EXPECT_EQ(L"A\uFFFD", DecodeMarked(surrogate, Errors::Replace));
  const std::string beyond("\xFF\xFE\x00\x00\x00\x00\x11\x00" "B\x00\x00\x00", 12);
  EXPECT_EQ(L"refused at 4", DecodeMarked(beyond, Errors::Refuse));
  EXPECT_EQ(L"\uFFFDB", DecodeMarked(beyond, Errors::Replace));
  const std::string shortEnd("\xFF\xFE\x00\x00" "C\x00\x00\x00" "D\x00", 10);
  EXPECT_EQ(L"refused at 8", DecodeMarked(shortEnd, Errors::Refuse));
  EXPECT_EQ(L"C\uFFFD", DecodeMarked(shortEnd, Errors::Replace));
}

TEST(Utf8Encoding, StrictRefusesNoScalarValueAtItsIndexAndReplacingWritesTheReplacementCharacter) {
  const std::wstring text = std::wstring(L"a\u00E9") + wchar_t(0xDFFF) + L"\U0010FFFF" + wchar_t(0x110000);
  std::string utf8 = "old";
  std::size_t bad = 0;
  EXPECT_FALSE(EncodeUtf8(text.data(), text.size(), Errors::Refuse, utf8, bad));
  EXPECT_EQ(2u, bad);
  EXPECT_TRUE(EncodeUtf8(text.data(), text.size(), Errors::Replace, utf8, bad));
  EXPECT_EQ("a\xC3\xA9\xEF\xBF\xBD\xF4\x8F\xBF\xBF\xEF\xBF\xBD", utf8);
  EXPECT_TRUE(EncodeUtf8(L"\u20AC", 1, Errors::Refuse, utf8, bad));
  EXPECT_EQ("\xE2\x82\xAC", utf8);
  const std::wstring longText = std::wstring(33, L'k') + L"\u00E9" + std::wstring(20, L'm');
  EXPECT_EQ(std::string(33, 'k') + "\xC3\xA9" + std::string(20, 'm'), EncodeUtf8(longText.data(), longText.size()));
}

TEST(Utf8Encoding, IntoABufferOnlyWholeCharactersThatFitAreWritten) {
  const std::wstring text = L"ab\u20AC" L"c";
  char out[8] = {};
  std::size_t written = 0;
  EXPECT_EQ(2u, EncodeUtf8Into(text.data(), text.size(), out, 4, written));
  EXPECT_EQ(2u, written);
  EXPECT_EQ(3u, EncodeUtf8Into(text.data(), text.size(), out, 5, written));
  EXPECT_EQ(5u, written);
  EXPECT_EQ("ab\xE2\x82\xAC", std::string(out, written));
  EXPECT_EQ(6u, port::text::Utf8Length(text.data(), text.size()));
}

}  // namespace
