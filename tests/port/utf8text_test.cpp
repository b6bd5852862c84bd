// A Utf8Text handed on by moving, and an empty one given to the parser.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "platform/AString.h"
#include "port/xml/AdvXMLParser.h"
#include "support/TestSupport.h"

namespace {

using namespace AdvXMLParser;
using testsupport::TempDir;
using testsupport::WriteFile;

// "<a>é</a>" in UTF-16 LE behind its byte order mark.
const std::string kUtf16Document("\xFF\xFE<\0a\0>\0\xE9\0<\0/\0a\0>\0", 18);

TEST(Utf8TextMove, AMovedTextKeepsItsBytesEncodingMarkAndOriginAndLeavesTheSourceEmpty) {
  TempDir dir;
  const std::string path = dir.file("list.xml");
  WriteFile(path, kUtf16Document);
  Utf8Text read;
  ReadUtf8FromFile(AString(path), read);

  Utf8Text moved(std::move(read));
  EXPECT_EQ(std::string("<a>\xC3\xA9</a>"), std::string(moved.data(), moved.size()));
  EXPECT_EQ(UTF_16_LE, moved.GetEncoding());
  EXPECT_TRUE(moved.HasByteOrderMark());
  EXPECT_EQ(path, moved.GetOrigin());
  EXPECT_EQ(std::string(), read.data());
  EXPECT_EQ(0u, read.size());

  // The text moved on still parses, as the one read would have.
  std::unique_ptr<Document> document(Parser().Parse(moved));
  EXPECT_EQ(L"a", document->GetRoot().GetName());
  EXPECT_EQ(L"\u00e9", document->GetRoot().GetValue());
}

// line, column and description of the refusal of parse
template <typename Parse>
std::pair<std::pair<unsigned long, unsigned long>, std::string> Refusal(Parse parse) {
  try {
    parse();
  } catch (const ParsingException& e) {
    return {{e.GetLine(), e.GetColumn()}, e.GetDescription()};
  }
  return {{0, 0}, "accepted"};
}

TEST(Utf8TextParse, AnEmptyTextIsRefusedAsNotWellFormedLikeAnEmptyBuffer) {
  Utf8Text empty;
  const auto fromText = Refusal([&] { std::unique_ptr<Document> d(Parser().Parse(empty)); });
  const auto fromBuffer = Refusal([&] { std::unique_ptr<Document> d(Parser().ParseUtf8("", 0)); });
  EXPECT_EQ(std::make_pair(std::make_pair(1ul, 1ul), std::string("no element found")), fromText);
  EXPECT_EQ(fromBuffer, fromText);
}

}  // namespace
