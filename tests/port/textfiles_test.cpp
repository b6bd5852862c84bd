#include <errno.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>
#include <string>
#include <vector>

#include "platform/AString.h"
#include "port/config/IConfiguration.h"
#include "port/fs/SysCalls.h"
#include "port/xml/AdvXMLParser.h"
#include "support/TestSupport.h"

namespace {

using namespace AdvXMLParser;
using testsupport::MakeSpecialFile;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

const std::wstring kContent =
    L"<?xml version=\"1.0\"?>\n<SiteLists><Site name=\"Z\u00FCrich \u20AC\" note=\"\U0001F600\"/></SiteLists>\n";

std::string Utf8(const std::wstring& s) { return platform_detail::WideToUtf8(s.data(), s.size()); }

std::string Utf16(const std::wstring& s, bool bigEndian) {
  std::string out;
  auto put = [&](unsigned u) {
    const char hi = static_cast<char>(u >> 8), lo = static_cast<char>(u & 0xFF);
    out += bigEndian ? std::string{hi, lo} : std::string{lo, hi};
  };
  for (wchar_t c : s) {
    const unsigned cp = static_cast<unsigned>(c);
    if (cp >= 0x10000) {
      put(0xD800 + ((cp - 0x10000) >> 10));
      put(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
      put(cp);
    }
  }
  return out;
}

std::string Utf32(const std::wstring& s, bool bigEndian) {
  std::string out;
  for (wchar_t c : s) {
    const unsigned cp = static_cast<unsigned>(c);
    const char b[4] = {static_cast<char>(cp >> 24), static_cast<char>((cp >> 16) & 0xFF),
                       static_cast<char>((cp >> 8) & 0xFF), static_cast<char>(cp & 0xFF)};
    out += bigEndian ? std::string{b[0], b[1], b[2], b[3]} : std::string{b[3], b[2], b[1], b[0]};
  }
  return out;
}

const unsigned char* Bytes(const std::string& s) { return reinterpret_cast<const unsigned char*>(s.data()); }

// The errno code of the ReadWriteException body throws, or 0 when none.
template <typename F>
int ErrorCode(F body) {
  try {
    body();
  } catch (const ReadWriteException& e) {
    return e.GetErrorCode();
  }
  return 0;
}

int ConvertError(const std::string& bytes, UTF_ENCODINGS start = UTF_8) {
  return ErrorCode([&] {
    AString text;
    ConvertBufferToUnicode(Bytes(bytes), bytes.size(), text, start);
  });
}

struct Stored {
  const char* label;
  std::string bytes;
  UTF_ENCODINGS encoding;
};

TEST(TextFiles, EveryByteOrderMarkReadsBackTheSameText) {
  const std::vector<Stored> forms = {
      {"utf-8", Utf8(kContent), UTF_8},
      {"utf-8 bom", "\xEF\xBB\xBF" + Utf8(kContent), UTF_8},
      {"utf-16 le", std::string("\xFF\xFE", 2) + Utf16(kContent, false), UTF_16_LE},
      {"utf-16 be", std::string("\xFE\xFF", 2) + Utf16(kContent, true), UTF_16_BE},
      {"utf-32 le", std::string("\xFF\xFE\x00\x00", 4) + Utf32(kContent, false), UTF_32_LE},
      {"utf-32 be", std::string("\x00\x00\xFE\xFF", 4) + Utf32(kContent, true), UTF_32_BE},
  };
  TempDir dir;
  for (const Stored& form : forms) {
    SCOPED_TRACE(form.label);
    WriteFile(dir.file("list.xml"), form.bytes);
    AString text = L"old";
    UTF_ENCODINGS encoding = ENCODING_UNKNOWN;
    ReadBufferFromFile(dir.wfile("list.xml"), text, encoding);
    EXPECT_EQ(kContent, text);
    EXPECT_EQ(form.encoding, encoding);

    Parser parser;
    std::unique_ptr<Document> doc(parser.Parse(text.data(), text.size()));
    EXPECT_EQ(L"Z\u00FCrich \u20AC", doc->GetRoot().GetElement(L"Site").GetAttribute(L"name"));
    EXPECT_EQ(L"\U0001F600", doc->GetRoot().GetElement(L"Site").GetAttribute(L"note"));
  }
}

TEST(TextFiles, Utf16WithoutByteOrderMarkIsTakenAsUtf8AndDoesNotParse) {
  const std::wstring ascii = L"<?xml version=\"1.0\"?><SiteLists/>";
  TempDir dir;
  WriteFile(dir.file("list.xml"), Utf16(ascii, false));
  AString text;
  UTF_ENCODINGS encoding = UTF_16_LE;  // an output only: reading starts from UTF-8
  ReadBufferFromFile(dir.wfile("list.xml"), text, encoding);
  EXPECT_EQ(UTF_8, encoding);
  ASSERT_EQ(2 * ascii.size(), text.size());
  EXPECT_EQ(L'<', text[0]);
  EXPECT_EQ(L'\0', text[1]);
  EXPECT_EQ(L'?', text[2]);
  Parser parser;
  try {
    delete parser.Parse(text.data(), text.size());
    FAIL() << "parsed";
  } catch (const ParsingException& e) {
    EXPECT_EQ(1, e.GetErrorCode());
  }
}

TEST(TextFiles, StartingEncodingAppliesOnlyWithoutByteOrderMark) {
  AString text;
  UTF_ENCODINGS encoding = UTF_16_BE;
  const std::string be = Utf16(L"a\u20AC\U0001F600", true);
  ConvertBufferToUnicode(Bytes(be), be.size(), text, encoding);
  EXPECT_EQ(L"a\u20AC\U0001F600", text);
  EXPECT_EQ(UTF_16_BE, encoding);

  encoding = UTF_32_LE;
  const std::string le32 = Utf32(L"x\U0010FFFF", false);
  ConvertBufferToUnicode(Bytes(le32), le32.size(), text, encoding);
  EXPECT_EQ(L"x\U0010FFFF", text);
  EXPECT_EQ(UTF_32_LE, encoding);

  encoding = UTF_16_LE;
  const std::string bom8 = "\xEF\xBB\xBF\xC3\xA9";
  ConvertBufferToUnicode(Bytes(bom8), bom8.size(), text, encoding);
  EXPECT_EQ(L"\u00E9", text);
  EXPECT_EQ(UTF_8, encoding);

  encoding = ENCODING_UNKNOWN;
  ConvertBufferToUnicode(Bytes("ab"), 2, text, encoding);
  EXPECT_EQ(L"ab", text);
  EXPECT_EQ(UTF_8, encoding);

  // FF FE 00 00 is the UTF-32 LE mark, not UTF-16 LE followed by U+0000.
  encoding = UTF_8;
  const std::string le32bom = std::string("\xFF\xFE\x00\x00", 4) + Utf32(L"q", false);
  ConvertBufferToUnicode(Bytes(le32bom), le32bom.size(), text, encoding);
  EXPECT_EQ(L"q", text);
  EXPECT_EQ(UTF_32_LE, encoding);

  // A mark alone is empty text.
  encoding = UTF_8;
  ConvertBufferToUnicode(Bytes("\xFE\xFF"), 2, text, encoding);
  EXPECT_EQ(L"", text);
  EXPECT_EQ(UTF_16_BE, encoding);

  encoding = UTF_16_LE;
  ConvertBufferToUnicode(nullptr, 0, text, encoding);
  EXPECT_EQ(L"", text);
  EXPECT_EQ(UTF_16_LE, encoding);
}

TEST(TextFiles, Utf8DecodingAcrossTheAsciiFastPath) {
  // Non-ASCII characters at every position around the eight-byte blocks.
  for (std::size_t length = 0; length < 40; ++length) {
    for (std::size_t at = 0; at <= length; ++at) {
      std::wstring expected(length, L'a');
      for (std::size_t i = 0; i < length; ++i) expected[i] = static_cast<wchar_t>(L'a' + i % 26);
      if (at < length) expected[at] = (at % 3 == 0) ? L'\u00E9' : (at % 3 == 1) ? L'\u20AC' : L'\U0001F600';
      const std::string bytes = Utf8(expected);
      AString text;
      UTF_ENCODINGS encoding = UTF_8;
      ConvertBufferToUnicode(Bytes(bytes), bytes.size(), text, encoding);
      ASSERT_EQ(expected, text) << length << " " << at;
    }
  }
  std::string nul("a\0b", 3);
  AString text;
  UTF_ENCODINGS encoding = UTF_8;
  ConvertBufferToUnicode(Bytes(nul), nul.size(), text, encoding);
  EXPECT_EQ(std::wstring(L"a\0b", 3), text);
}

TEST(TextFiles, InvalidUtf8IsRefused) {
  const std::vector<std::string> bad = {
      "\xC0\xAF",              // overlong '/'
      "\xC1\xBF",              // overlong
      "\xE0\x80\xAF",          // overlong, three bytes
      "\xF0\x80\x80\xAF",      // overlong, four bytes
      "\xED\xA0\x80",          // high surrogate
      "\xED\xBF\xBF",          // low surrogate
      "\xF4\x90\x80\x80",      // above U+10FFFF
      "\xF5\x80\x80\x80",      // lead byte beyond Unicode
      "\xFF",                  // never valid
      "\x80",                  // lone continuation byte
      "\xC3(",                 // bad continuation
      "\xE2\x82",              // truncated at the end
      "\xF0\x9F\x98",          // truncated four-byte sequence
      "0123456789abcdef\xE2",  // truncated after a fast ASCII run
  };
  for (const std::string& b : bad) {
    SCOPED_TRACE(testing::PrintToString(b));
    EXPECT_EQ(EILSEQ, ConvertError("<a>" + b + "</a>"));
    EXPECT_EQ(EILSEQ, ConvertError(b));
  }
  // The edges that are valid.
  AString text;
  UTF_ENCODINGS encoding = UTF_8;
  const std::string edges = "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  ConvertBufferToUnicode(Bytes(edges), edges.size(), text, encoding);
  EXPECT_EQ(L"\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF", text);
}

TEST(TextFiles, RefusedBytesLeaveTheOutputsAlone) {
  AString text = L"keep";
  UTF_ENCODINGS encoding = UTF_16_BE;
  const std::string bad = "\xEF\xBB\xBF" "abc\xFF";
  try {
    ConvertBufferToUnicode(Bytes(bad), bad.size(), text, encoding);
    FAIL() << "accepted";
  } catch (const ReadWriteException& e) {
    EXPECT_EQ(EILSEQ, e.GetErrorCode());
    EXPECT_STREQ("invalid UTF-8 text at byte 6", e.what());
  }
  EXPECT_EQ(L"keep", text);
  EXPECT_EQ(UTF_16_BE, encoding);
}

TEST(TextFiles, InvalidUtf16AndUtf32AreRefused) {
  const std::string le16 = "\xFF\xFE";
  const std::string be16 = "\xFE\xFF";
  EXPECT_EQ(EILSEQ, ConvertError(le16 + "a\0b", UTF_8));                           // odd size
  EXPECT_EQ(EILSEQ, ConvertError(le16 + std::string("\x00\xD8", 2)));              // high surrogate at the end
  EXPECT_EQ(EILSEQ, ConvertError(le16 + std::string("\x00\xD8" "a\0", 4)));        // high then no low
  EXPECT_EQ(EILSEQ, ConvertError(le16 + std::string("\x00\xDC" "a\0", 4)));        // lone low
  EXPECT_EQ(EILSEQ, ConvertError(be16 + std::string("\xD8\x00\xD8\x00", 4)));      // high, high
  EXPECT_EQ(EILSEQ, ConvertError(std::string("a\0b", 3), UTF_16_LE));              // odd, no mark
  EXPECT_EQ(0, ConvertError(be16 + std::string("\xD8\x3D\xDE\x00", 4)));           // a pair is fine

  const std::string le32 = std::string("\xFF\xFE\x00\x00", 4);
  const std::string be32 = std::string("\x00\x00\xFE\xFF", 4);
  EXPECT_EQ(EILSEQ, ConvertError(le32 + std::string("a\0\0\0b", 5)));              // not a multiple of 4
  EXPECT_EQ(EILSEQ, ConvertError(le32 + std::string("\x00\x00\x11\x00", 4)));      // 0x110000
  EXPECT_EQ(EILSEQ, ConvertError(be32 + std::string("\x00\x00\xD8\x00", 4)));      // surrogate
  EXPECT_EQ(EILSEQ, ConvertError(be32 + std::string("\x80\x00\x00\x41", 4)));      // far beyond Unicode
  EXPECT_EQ(0, ConvertError(be32 + std::string("\x00\x10\xFF\xFF", 4)));
}

TEST(TextFiles, ReadErrors) {
  TempDir dir;
  AString text = L"keep";
  UTF_ENCODINGS encoding = ENCODING_UNKNOWN;
  EXPECT_EQ(ENOENT, ErrorCode([&] { ReadBufferFromFile(dir.wfile("missing.xml"), text, encoding); }));
  EXPECT_EQ(EISDIR, ErrorCode([&] { ReadBufferFromFile(dir.wpath(), text, encoding); }));
  EXPECT_EQ(ENOTDIR, ErrorCode([&] {
              WriteFile(dir.file("plain"), "x");
              ReadBufferFromFile(dir.wfile("plain") + L"/inside", text, encoding);
            }));
  WriteFile(dir.file("bad.xml"), "<a>\xC3\x28</a>");
  EXPECT_EQ(EILSEQ, ErrorCode([&] { ReadBufferFromFile(dir.wfile("bad.xml"), text, encoding); }));
  EXPECT_EQ(L"keep", text);
  EXPECT_EQ(ENCODING_UNKNOWN, encoding);
}

TEST(TextFiles, EmptyFileIsEmptyText) {
  TempDir dir;
  WriteFile(dir.file("empty.xml"), "");
  AString text = L"old";
  UTF_ENCODINGS encoding = UTF_32_BE;
  ReadBufferFromFile(dir.wfile("empty.xml"), text, encoding);
  EXPECT_EQ(L"", text);
  EXPECT_EQ(UTF_8, encoding);
}

void Shout(AString& text) {
  for (wchar_t& c : text)
    if (c >= L'a' && c <= L'z') c = static_cast<wchar_t>(c - L'a' + L'A');
}

TEST(TextFiles, FilterSeesTheDecodedText) {
  TempDir dir;
  WriteFile(dir.file("f.xml"), std::string("\xFE\xFF", 2) + Utf16(L"<a>b\u00E9</a>", true));
  AString text;
  UTF_ENCODINGS encoding = UTF_8;
  ReadBufferFromFile(dir.wfile("f.xml"), text, encoding, &Shout);
  EXPECT_EQ(L"<A>B\u00E9</A>", text);
  EXPECT_EQ(UTF_16_BE, encoding);
}

TEST(TextFiles, LargeFileReadsWhole) {
  std::wstring big;
  for (int i = 0; big.size() < 3 * 1024 * 1024; ++i) big += L"<Site name=\"n" + std::to_wstring(i) + L"\u00E9\"/>";
  TempDir dir;
  WriteFile(dir.file("big.xml"), Utf8(big));
  AString text;
  UTF_ENCODINGS encoding = UTF_8;
  ReadBufferFromFile(dir.wfile("big.xml"), text, encoding);
  EXPECT_TRUE(text == big);
}

TEST(TextFiles, WriteBufferToFileWritesExactUtf8) {
  TempDir dir;
  WriteBufferToFile(dir.wfile("out.xml"), AString(L"<a>Z\u00FCrich \u20AC \U0001F600</a>\n"), UTF_8);
  EXPECT_EQ("<a>Z\xC3\xBCrich \xE2\x82\xAC \xF0\x9F\x98\x80</a>\n", ReadFile(dir.file("out.xml")));
  struct stat st {};
  ASSERT_EQ(0, stat(dir.file("out.xml").c_str(), &st));
  EXPECT_EQ(0644u, st.st_mode & 0777);

  // Replacing an existing file.
  WriteBufferToFile(dir.wfile("out.xml"), AString(L"<b/>"), UTF_8);
  EXPECT_EQ("<b/>", ReadFile(dir.file("out.xml")));

  // And it reads back to the same text.
  AString text;
  UTF_ENCODINGS encoding = ENCODING_UNKNOWN;
  WriteBufferToFile(dir.wfile("round.xml"), AString(kContent), UTF_8);
  ReadBufferFromFile(dir.wfile("round.xml"), text, encoding);
  EXPECT_EQ(kContent, text);
  EXPECT_EQ(UTF_8, encoding);
}

TEST(TextFiles, WriteBufferToFileWritesOnlyUtf8) {
  TempDir dir;
  for (UTF_ENCODINGS e : {ENCODING_UNKNOWN, UTF_16_LE, UTF_16_BE, UTF_32_LE, UTF_32_BE}) {
    SCOPED_TRACE(static_cast<int>(e));
    EXPECT_EQ(EINVAL, ErrorCode([&] { WriteBufferToFile(dir.wfile("out.xml"), AString(L"<a/>"), e); }));
  }
  EXPECT_FALSE(testsupport::FileExists(dir.file("out.xml")));
}

TEST(TextFiles, WritingIntoAMissingDirectoryCreatesNothing) {
  TempDir dir;
  EXPECT_EQ(ENOENT, ErrorCode([&] { WriteBufferToFile(dir.wfile("nodir/out.xml"), AString(L"<a/>"), UTF_8); }));
  EXPECT_EQ(ENOENT, ErrorCode([&] { WriteUtf8BufferToFile(dir.wfile("nodir/out.xml"), "<a/>"); }));
  EXPECT_FALSE(testsupport::FileExists(dir.file("nodir")));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(TextFiles, WriteUtf8BufferToFileKeepsBytesAndMode) {
  TempDir dir;
  const std::string bytes = "<a>\xFF\xC3\xA9</a>";
  WriteUtf8BufferToFile(dir.wfile("raw.xml"), bytes, 0600);
  EXPECT_EQ(bytes, ReadFile(dir.file("raw.xml")));
  struct stat st {};
  ASSERT_EQ(0, stat(dir.file("raw.xml").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777);
}

// Counters and switches of the system call overrides below.
struct Calls {
  int opens = 0;
  int closes = 0;
  int reads = 0;
  int openFlags = 0;
};
Calls g_calls;
int g_failRead = 0;   // errno of a failing read, 0 for none
int g_failFstat = 0;  // errno of a failing fstat, 0 for none

int CountingOpen(const char* path, int flags, mode_t mode) {
  ++g_calls.opens;
  g_calls.openFlags = flags;
  return port::RealSysCalls().open(path, flags, mode);
}
int CountingClose(int fd) {
  ++g_calls.closes;
  return port::RealSysCalls().close(fd);
}
// Reads at most 7 bytes, and is interrupted every other call.
ssize_t ChoppyRead(int fd, void* buf, size_t n) {
  if (++g_calls.reads % 2 == 0) {
    errno = EINTR;
    return -1;
  }
  if (g_failRead != 0) {
    errno = g_failRead;
    return -1;
  }
  return port::RealSysCalls().read(fd, buf, n < 7 ? n : 7);
}
int FailingFstat(int fd, struct stat* st) {
  if (g_failFstat != 0) {
    errno = g_failFstat;
    return -1;
  }
  return port::RealSysCalls().fstat(fd, st);
}

class TextFilesSysCalls : public testing::Test {
 protected:
  TextFilesSysCalls() : m_override(Table()) {
    g_calls = Calls();
    g_failRead = 0;
    g_failFstat = 0;
  }
  static port::SysCalls Table() {
    port::SysCalls t = port::RealSysCalls();
    t.open = CountingOpen;
    t.close = CountingClose;
    t.read = ChoppyRead;
    t.fstat = FailingFstat;
    return t;
  }
  TempDir m_dir;
  port::ScopedSysCallOverride m_override;
};

TEST_F(TextFilesSysCalls, ShortAndInterruptedReadsStillReadTheWholeFile) {
  WriteFile(m_dir.file("list.xml"), Utf8(kContent));
  AString text;
  UTF_ENCODINGS encoding = ENCODING_UNKNOWN;
  ReadBufferFromFile(m_dir.wfile("list.xml"), text, encoding);
  EXPECT_EQ(kContent, text);
  EXPECT_EQ(1, g_calls.opens);
  EXPECT_EQ(1, g_calls.closes);
  // Never waits: a FIFO or a terminal in the file's place is refused, not
  // waited on.
  EXPECT_EQ(O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, g_calls.openFlags);
  // Every 7 bytes, the end, and as many interruptions.
  const int chunks = static_cast<int>((Utf8(kContent).size() + 6) / 7) + 1;
  EXPECT_EQ(2 * chunks - 1, g_calls.reads);
}

TEST_F(TextFilesSysCalls, FailedReadOrStatReportsItsErrnoAndCloses) {
  WriteFile(m_dir.file("list.xml"), Utf8(kContent));
  AString text = L"keep";
  UTF_ENCODINGS encoding = ENCODING_UNKNOWN;
  g_failRead = EIO;
  EXPECT_EQ(EIO, ErrorCode([&] { ReadBufferFromFile(m_dir.wfile("list.xml"), text, encoding); }));
  EXPECT_EQ(1, g_calls.closes);
  g_failRead = 0;
  g_failFstat = EOVERFLOW;
  EXPECT_EQ(EOVERFLOW, ErrorCode([&] { ReadBufferFromFile(m_dir.wfile("list.xml"), text, encoding); }));
  EXPECT_EQ(2, g_calls.opens);
  EXPECT_EQ(2, g_calls.closes);
  EXPECT_EQ(L"keep", text);
  EXPECT_EQ(ENCODING_UNKNOWN, encoding);
  // The directory: opened, found out by fstat, closed.
  g_failFstat = 0;
  EXPECT_EQ(EISDIR, ErrorCode([&] { ReadBufferFromFile(m_dir.wpath(), text, encoding); }));
  EXPECT_EQ(3, g_calls.closes);
}

TEST(TextFiles, DevicesAreNoRegularFiles) {
  AString text;
  UTF_ENCODINGS encoding = UTF_8;
  EXPECT_EQ(EINVAL, ErrorCode([&] { ReadBufferFromFile(AString(L"/dev/null"), text, encoding); }));
}

// ---- what is not a regular file, and what is too large ---------------------

// The code and message of the ReadWriteException body throws.
template <typename F>
std::pair<int, std::string> Refusal(F body) {
  try {
    body();
  } catch (const ReadWriteException& e) {
    return {e.GetErrorCode(), e.what()};
  }
  return {0, ""};
}

// Both readers, each in a child that an alarm ends: 0 when every read was
// refused at once as no regular file, 1 when one was not, 14 (SIGALRM) when
// one waited.
int ReadsAreRefusedAtOnce(const std::string& path) {
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(5);
    AString text;
    UTF_ENCODINGS encoding = UTF_8;
    const auto wide = Refusal([&] { ReadBufferFromFile(AString(path), text, encoding); });
    Utf8Text utf8;
    const auto narrow = Refusal([&] { ReadUtf8FromFile(AString(path), utf8); });
    const bool refused = wide.first != 0 && wide.second == "cannot read " + path + ": not a regular file" && narrow == wide;
    _exit(refused ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? WTERMSIG(status) : -1;
}

TEST(TextFiles, AFifoSocketDeviceOrDirectoryIsRefusedAtOnceWithoutWaiting) {
  TempDir dir;
  const struct {
    const char* kind;
    int code;
  } kinds[] = {{"fifo", EINVAL}, {"socket", ENXIO}, {"device", EINVAL}, {"directory", EISDIR}};
  for (const auto& k : kinds) {
    SCOPED_TRACE(k.kind);
    const std::string path = dir.file(k.kind);
    const int socketFd = MakeSpecialFile(k.kind, path);
    ASSERT_NE(-2, socketFd);
    // A FIFO without a writer is what a blocking open waits on forever.
    EXPECT_EQ(0, ReadsAreRefusedAtOnce(path));
    AString text;
    UTF_ENCODINGS encoding = UTF_8;
    EXPECT_EQ(k.code, ErrorCode([&] { ReadBufferFromFile(AString(path), text, encoding); }));
    if (socketFd >= 0) close(socketFd);
  }
}

class SizeLimit : public ::testing::Test {
 protected:
  ~SizeLimit() override { port::ResetConfigValues(); }
  TempDir m_dir;
};

TEST_F(SizeLimit, AFileOverTheLimitIsRefusedAndOneAtTheLimitIsRead) {
  port::SetConfigValue(port::ConfigKey::MaxSiteListBytes, "100");
  WriteFile(m_dir.file("at.xml"), std::string(100, 'a'));
  WriteFile(m_dir.file("over.xml"), std::string(101, 'a'));
  AString text;
  UTF_ENCODINGS encoding = UTF_8;
  ReadBufferFromFile(m_dir.wfile("at.xml"), text, encoding);
  EXPECT_EQ(100u, text.size());
  Utf8Text utf8;
  ReadUtf8FromFile(m_dir.wfile("at.xml"), utf8);
  const std::pair<int, std::string> refused = {
      EFBIG, "larger than the limit of 100 bytes (VLM_MAX_SITELIST_BYTES): 101 bytes or more"};
  EXPECT_EQ(refused, Refusal([&] { ReadBufferFromFile(m_dir.wfile("over.xml"), text, encoding); }));
  EXPECT_EQ(refused, Refusal([&] { ReadUtf8FromFile(m_dir.wfile("over.xml"), utf8); }));
  EXPECT_EQ(100u, text.size());
}

TEST_F(SizeLimit, TheDefaultIsSixteenMebibytesAndABadSettingGivesTheDefault) {
  const std::string path = m_dir.file("sparse.xml");
  WriteFile(path, "");
  // Sparse: the size is what counts, not the blocks.
  ASSERT_EQ(0, truncate(path.c_str(), 16 * 1024 * 1024 + 1));
  for (const char* setting : {"", "0", "-5", "16M", "1e9"}) {
    SCOPED_TRACE(setting);
    port::SetConfigValue(port::ConfigKey::MaxSiteListBytes, setting);
    Utf8Text utf8;
    EXPECT_EQ(std::make_pair(EFBIG, std::string("larger than the limit of 16777216 bytes (VLM_MAX_SITELIST_BYTES): "
                                                "16777217 bytes or more")),
              Refusal([&] { ReadUtf8FromFile(AString(path), utf8); }));
  }
  ASSERT_EQ(0, truncate(path.c_str(), 16 * 1024 * 1024));
  port::ResetConfigValues();
  Utf8Text utf8;
  EXPECT_EQ(0, ErrorCode([&] { ReadUtf8FromFile(AString(path), utf8); }));
}

// A file that grows while it is read is refused as soon as it passes the
// limit, whatever its size was when it was opened.
ssize_t g_grownBy = 0;
ssize_t EndlessRead(int, void* buf, size_t n) {
  std::memset(buf, 'a', n);
  g_grownBy += static_cast<ssize_t>(n);
  return static_cast<ssize_t>(n);
}

TEST_F(SizeLimit, AFileGrowingPastTheLimitWhileReadIsRefused) {
  port::SetConfigValue(port::ConfigKey::MaxSiteListBytes, "4096");
  WriteFile(m_dir.file("grows.xml"), "<a/>");
  port::SysCalls table = port::RealSysCalls();
  table.read = EndlessRead;
  port::ScopedSysCallOverride scope(table);
  Utf8Text utf8;
  EXPECT_EQ(EFBIG, ErrorCode([&] { ReadUtf8FromFile(m_dir.wfile("grows.xml"), utf8); }));
  AString text;
  UTF_ENCODINGS encoding = UTF_8;
  g_grownBy = 0;
  EXPECT_EQ(EFBIG, ErrorCode([&] { ReadBufferFromFile(m_dir.wfile("grows.xml"), text, encoding); }));
  EXPECT_LE(g_grownBy, 2 * 4096);
}

}  // namespace
