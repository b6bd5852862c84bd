// The XML editing classes: opening a site list document, finding, creating,
// copying and removing elements, attribute and text values, the two
// iterators, and writing a document back so that what was not edited stays.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

#include "port/xml/AnXml.h"
#include "support/TestSupport.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const wchar_t kRoot[] = L"ns:SiteLists";
const wchar_t kNsName[] = L"xmlns:ns";
const wchar_t kNsValue[] = L"zelSiteList";

std::string Root(const std::string& inner, const std::string& attrs = " xmlns:ns=\"zelSiteList\"") {
  return std::string(kDecl) + "<ns:SiteLists" + attrs + ">" + inner + "</ns:SiteLists>";
}

// Encodes ASCII/BMP text as UTF-16 LE with a byte order mark.
std::string Utf16Le(const std::wstring& text) {
  std::string out = "\xFF\xFE";
  for (wchar_t c : text) {
    out.push_back(static_cast<char>(c & 0xFF));
    out.push_back(static_cast<char>((c >> 8) & 0xFF));
  }
  return out;
}

std::vector<std::wstring> ChildNames(const AnXmlNode& parent) {
  std::vector<std::wstring> names;
  AnXmlChildIndex index(parent);
  AnXmlNode child;
  while (index.next(child)) names.push_back(child.getName());
  return names;
}

class AnXmlTest : public ::testing::Test {
 protected:
  // Writes text as the file, opens it and returns the result of opening.
  int Open(const std::string& text) {
    WriteFile(m_dir.file("in.xml"), text);
    return m_xml.useExistingFile(AString(m_dir.wfile("in.xml")), kRoot, kNsName, kNsValue);
  }
  // Writes the document (both flags false) and returns the file's bytes.
  std::string Written(bool bIndent = false, bool bBom = false) {
    EXPECT_EQ(1, m_xml.writeFile(AString(m_dir.wfile("out.xml")), bIndent, bBom));
    return ReadFile(m_dir.file("out.xml"));
  }
  AnXmlNode RootNode() { return m_xml.getRootNode(); }

  TempDir m_dir;
  AnXml m_xml;
};

// ---- opening -------------------------------------------------------------------

TEST_F(AnXmlTest, UseExistingFileOpensDocumentWithRootNameAndNamespace) {
  ASSERT_EQ(1, Open(Root("<SiteList/>")));
  EXPECT_EQ(L"ns:SiteLists", RootNode().getName());
  EXPECT_EQ((std::vector<std::wstring>{L"SiteList"}), ChildNames(RootNode()));
}

TEST_F(AnXmlTest, UseExistingFileOfMissingFileReturnsZero) {
  EXPECT_EQ(0, m_xml.useExistingFile(AString(m_dir.wfile("absent.xml")), kRoot, kNsName, kNsValue));
  EXPECT_TRUE(RootNode().isNull());
}

TEST_F(AnXmlTest, UseExistingFileOfMalformedTextReturnsZero) {
  EXPECT_EQ(0, Open(std::string(kDecl) + "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList></ns:SiteLists>"));
  EXPECT_TRUE(RootNode().isNull());
}

TEST_F(AnXmlTest, UseExistingFileWithAnotherRootNameReturnsZero) {
  EXPECT_EQ(0, Open(std::string(kDecl) + "<SiteLists xmlns:ns=\"zelSiteList\"/>"));
  EXPECT_TRUE(RootNode().isNull());
}

TEST_F(AnXmlTest, UseExistingFileWithoutNamespaceAttributeReturnsZero) {
  EXPECT_EQ(0, Open(Root("<SiteList/>", "")));
}

TEST_F(AnXmlTest, UseExistingFileWithAnotherNamespaceValueReturnsZero) {
  EXPECT_EQ(0, Open(Root("<SiteList/>", " xmlns:ns=\"zelSiteListX\"")));
}

TEST_F(AnXmlTest, UseExistingFileWithTwoDocumentElementsReturnsZero) {
  EXPECT_EQ(0, Open(Root("") + "<ns:SiteLists xmlns:ns=\"zelSiteList\"/>"));
}

TEST_F(AnXmlTest, UseExistingFileWithTextAfterTheDocumentElementReturnsZero) {
  EXPECT_EQ(0, Open(Root("<SiteList/>") + "\njunk\n"));
  EXPECT_TRUE(RootNode().isNull());
  EXPECT_EQ(0, Open(Root("<SiteList/>") + std::string("\0junk", 5)));
  EXPECT_EQ(0, Open("junk" + Root("<SiteList/>")));
}

TEST_F(AnXmlTest, UseExistingFileKeepsCommentsAroundTheDocumentElement) {
  ASSERT_EQ(1, Open(std::string(kDecl) + "<!-- before -->\n<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList/>"
                    "</ns:SiteLists>\n<!-- after -->\n"));
  EXPECT_EQ((std::vector<std::wstring>{L"SiteList"}), ChildNames(RootNode()));
}

TEST_F(AnXmlTest, UseExistingFileOfInvalidUtf8ReturnsZero) {
  EXPECT_EQ(0, Open(Root("<SiteList Name=\"\xC3\x28\"/>")));
}

TEST_F(AnXmlTest, UseExistingFileDecodesUtf16WithByteOrderMark) {
  const std::wstring text = L"<?xml version=\"1.0\" encoding=\"UTF-16\"?><ns:SiteLists xmlns:ns=\"zelSiteList\">"
                            L"<SiteList Name=\"Gr\u00FC\u00DFe\"/></ns:SiteLists>";
  ASSERT_EQ(1, Open(Utf16Le(text)));
  AnXmlNode siteList;
  ASSERT_TRUE(RootNode().getExistingChild(L"SiteList", siteList));
  AString name;
  EXPECT_TRUE(siteList.tryGetValue(L"Name", name));
  EXPECT_EQ(L"Gr\u00FC\u00DFe", name);
}

TEST_F(AnXmlTest, FailedOpenEmptiesAnEarlierDocument) {
  ASSERT_EQ(1, Open(Root("<SiteList/>")));
  EXPECT_EQ(0, Open("not xml"));
  EXPECT_TRUE(RootNode().isNull());
  EXPECT_EQ(0, m_xml.writeFile(AString(m_dir.wfile("out.xml")), false, false));
  EXPECT_FALSE(testsupport::FileExists(m_dir.file("out.xml")));
}

// ---- writing -------------------------------------------------------------------

TEST_F(AnXmlTest, WriteFileWithoutEditsKeepsCommentsTextLayoutAndAttributeOrder) {
  const std::string text = Root(
      "\n  <!-- the agent's list -->\n"
      "  <?tool keep?>\n"
      "  <Policies><Setting name=\"b\">2</Setting><Setting name=\"a\">1</Setting></Policies>\n"
      "  <SiteList Default=\"1\" Name=\"SomeGUID\" Extra=\"x &amp; y\">\r\n"
      "    <HttpSite Type=\"repository\" Zed=\"last\" Alpha=\"first\" Name=\"A\">text<Child/>tail</HttpSite>\n"
      "    <Blank> </Blank>\n"
      "    <UserName></UserName><Password Encrypted=\"1\"/>\n"
      "    <Data><![CDATA[<raw>]]></Data>\n"
      "  </SiteList>\n",
      " xmlns:ns=\"zelSiteList\" GlobalVersion=\"1\" Unknown=\"u\"");
  ASSERT_EQ(1, Open(text));
  EXPECT_EQ(text, Written());
}

TEST_F(AnXmlTest, WriteFileReplacesAnExistingFileKeepingItsMode) {
  ASSERT_EQ(1, Open(Root("<SiteList/>")));
  WriteFile(m_dir.file("out.xml"), "old contents");
  ASSERT_EQ(0, chmod(m_dir.file("out.xml").c_str(), 0600));
  EXPECT_EQ(Root("<SiteList/>"), Written());
  struct stat st {};
  ASSERT_EQ(0, stat(m_dir.file("out.xml").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777);
}

TEST_F(AnXmlTest, WriteFileGivesANewFileMode0644) {
  ASSERT_EQ(1, Open(Root("<SiteList/>")));
  Written();
  struct stat st {};
  ASSERT_EQ(0, stat(m_dir.file("out.xml").c_str(), &st));
  EXPECT_EQ(0644u, st.st_mode & 07777);
}

TEST_F(AnXmlTest, WriteFileIntoMissingDirectoryReturnsZero) {
  ASSERT_EQ(1, Open(Root("<SiteList/>")));
  EXPECT_EQ(0, m_xml.writeFile(AString(m_dir.wfile("absent/out.xml")), false, false));
  EXPECT_FALSE(testsupport::FileExists(m_dir.file("absent")));
}

TEST_F(AnXmlTest, WriteFileIndentedLaysTheDocumentOutWithTabs) {
  ASSERT_EQ(1, Open(Root("\n    <SiteList>\n <A x=\"1\"/>\n <B>b</B>   </SiteList>\n")));
  EXPECT_EQ(std::string(kDecl) +
                "\n<ns:SiteLists xmlns:ns=\"zelSiteList\">\n\t<SiteList>\n\t\t<A x=\"1\" />\n\t\t<B>b</B>\n"
                "\t</SiteList>\n</ns:SiteLists>\n",
            Written(true, false));
}

TEST_F(AnXmlTest, WriteFileIndentedKeepsTheDocumentInMemoryAsItWas) {
  const std::string text = Root("\n  <SiteList/>\n");
  ASSERT_EQ(1, Open(text));
  Written(true, false);
  EXPECT_EQ(text, Written(false, false));
}

TEST_F(AnXmlTest, WriteFileWithByteOrderMarkStartsWithIt) {
  ASSERT_EQ(1, Open(Root("<SiteList/>")));
  EXPECT_EQ("\xEF\xBB\xBF" + Root("<SiteList/>"), Written(false, true));
}

TEST_F(AnXmlTest, WriteFileOfUtf16SourceWritesUtf8AndSaysSo) {
  ASSERT_EQ(1, Open(Utf16Le(L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>"
                            L"<ns:SiteLists xmlns:ns=\"zelSiteList\"><S n=\"\u00E9\"/></ns:SiteLists>")));
  EXPECT_EQ(std::string(kDecl) + "<ns:SiteLists xmlns:ns=\"zelSiteList\"><S n=\"\xC3\xA9\"/></ns:SiteLists>",
            Written());
}

TEST_F(AnXmlTest, WriteFileOfDocumentWithoutDeclarationAddsNone) {
  const std::string text = "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList/></ns:SiteLists>";
  ASSERT_EQ(1, Open(text));
  EXPECT_EQ(text, Written());
}

// ---- finding children --------------------------------------------------------------

TEST_F(AnXmlTest, TryGetChildMoveMovesTheHandleToTheChild) {
  ASSERT_EQ(1, Open(Root("<Policies/><SiteList Name=\"s\"/>")));
  AnXmlNode node = RootNode();
  ASSERT_TRUE(node.tryGetChildMove(L"SiteList"));
  EXPECT_EQ(L"SiteList", node.getName());
  AString name;
  EXPECT_TRUE(node.tryGetValue(L"Name", name));
  EXPECT_EQ(L"s", name);
}

TEST_F(AnXmlTest, TryGetChildMoveWithoutSuchChildLeavesTheHandle) {
  ASSERT_EQ(1, Open(Root("<Policies/>")));
  AnXmlNode node = RootNode();
  EXPECT_FALSE(node.tryGetChildMove(L"SiteList"));
  EXPECT_EQ(L"ns:SiteLists", node.getName());
}

TEST_F(AnXmlTest, GetExistingChildFindsTheFirstChildOfThatName) {
  ASSERT_EQ(1, Open(Root("<A n=\"1\"/><B/><A n=\"2\"/>")));
  AnXmlNode child;
  ASSERT_TRUE(RootNode().getExistingChild(L"A", child));
  AString n;
  child.tryGetValue(L"n", n);
  EXPECT_EQ(L"1", n);
}

TEST_F(AnXmlTest, GetExistingChildLooksOneLevelDownOnly) {
  ASSERT_EQ(1, Open(Root("<SiteList><HttpSite/></SiteList>")));
  AnXmlNode child;
  EXPECT_FALSE(RootNode().getExistingChild(L"HttpSite", child));
  EXPECT_TRUE(child.isNull());
}

TEST_F(AnXmlTest, TryGetChildByAttributeMatchesTheExactText) {
  ASSERT_EQ(1, Open(Root("<S Local=\"true\" n=\"a\"/><S n=\"b\"/><S Local=\"01\" n=\"c\"/><S Local=\"1\" n=\"d\"/>"
                         "<S Local=\"1\" n=\"e\"/>")));
  AnXmlNode child;
  ASSERT_TRUE(RootNode().tryGetChild(L"S", L"Local", L"1", child));
  AString n;
  child.tryGetValue(L"n", n);
  EXPECT_EQ(L"d", n);
  AnXmlNode none;
  EXPECT_FALSE(RootNode().tryGetChild(L"S", L"Local", L"2", none));
  EXPECT_FALSE(RootNode().tryGetChild(L"T", L"Local", L"1", none));
  EXPECT_TRUE(none.isNull());
}

TEST_F(AnXmlTest, TryGetChildByNameSkipsCommentsAndText) {
  ASSERT_EQ(1, Open(Root("text<!--A--><A/>")));
  AnXmlNode child;
  ASSERT_TRUE(RootNode().tryGetChild(L"A", child));
  EXPECT_EQ(L"A", child.getName());
}

// ---- creating, copying and removing ----------------------------------------------------

TEST_F(AnXmlTest, SetChildFindsTheFirstExistingChild) {
  ASSERT_EQ(1, Open(Root("<A n=\"1\"/><A n=\"2\"/>")));
  AnXmlNode root = RootNode();
  AnXmlNode child;
  ASSERT_TRUE(root.setChild(L"A", child));
  EXPECT_TRUE(child.setValue(L"m", L"x"));
  EXPECT_EQ(Root("<A n=\"1\" m=\"x\"/><A n=\"2\"/>"), Written());
}

TEST_F(AnXmlTest, SetChildCreatesTheChildAtTheEndWhenMissing) {
  ASSERT_EQ(1, Open(Root("<A/><!--c-->")));
  AnXmlNode root = RootNode();
  AnXmlNode child;
  ASSERT_TRUE(root.setChild(L"B", child));
  EXPECT_EQ(L"B", child.getName());
  EXPECT_EQ(Root("<A/><!--c--><B/>"), Written());
}

TEST_F(AnXmlTest, SetChildWithAttributeFindsTheMatchingChild) {
  ASSERT_EQ(1, Open(Root("<S Server=\"a:80\"/><S Server=\"b:80\" n=\"2\"/>")));
  AnXmlNode root = RootNode();
  AnXmlNode child;
  ASSERT_TRUE(root.setChild(L"S", L"Server", L"b:80", child));
  AString n;
  EXPECT_TRUE(child.tryGetValue(L"n", n));
  EXPECT_EQ(L"2", n);
  EXPECT_EQ(Root("<S Server=\"a:80\"/><S Server=\"b:80\" n=\"2\"/>"), Written());
}

TEST_F(AnXmlTest, SetChildWithAttributeCreatesAChildCarryingIt) {
  ASSERT_EQ(1, Open(Root("<S Server=\"a:80\"/>")));
  AnXmlNode root = RootNode();
  AnXmlNode child;
  ASSERT_TRUE(root.setChild(L"S", L"Server", L"c:80", child));
  EXPECT_EQ(Root("<S Server=\"a:80\"/><S Server=\"c:80\"/>"), Written());
}

TEST_F(AnXmlTest, SetChildWithEmptyNameFails) {
  ASSERT_EQ(1, Open(Root("")));
  AnXmlNode root = RootNode();
  AnXmlNode child;
  EXPECT_FALSE(root.setChild(L"", child));
  EXPECT_FALSE(root.addChild(L"", child));
  EXPECT_TRUE(child.isNull());
}

TEST_F(AnXmlTest, AddChildAlwaysAppendsANewChild) {
  ASSERT_EQ(1, Open(Root("<A/>")));
  AnXmlNode root = RootNode();
  AnXmlNode first;
  AnXmlNode second;
  ASSERT_TRUE(root.addChild(L"A", first));
  ASSERT_TRUE(root.addChild(L"A", second));
  EXPECT_NE(first, second);
  first.setValue(L"n", L"1");
  second.setValue(L"n", L"2");
  EXPECT_EQ(Root("<A/><A n=\"1\"/><A n=\"2\"/>"), Written());
}

TEST_F(AnXmlTest, AddChildInALaidOutParentKeepsTheLayout) {
  ASSERT_EQ(1, Open(Root("\n  <SiteList>\n    <A/>\n  </SiteList>\n")));
  AnXmlNode siteList;
  ASSERT_TRUE(RootNode().getExistingChild(L"SiteList", siteList));
  AnXmlNode added;
  ASSERT_TRUE(siteList.addChild(L"B", added));
  EXPECT_EQ(Root("\n  <SiteList>\n    <A/>\n    <B/>\n  </SiteList>\n"), Written());
}

TEST_F(AnXmlTest, CopyAsChildCopiesAWholeSubtreeFromAnotherDocument) {
  TempDir other;
  WriteFile(other.file("new.xml"), Root("<CaBundle a=\"1\"><CaCertificate>one</CaCertificate><!--k--></CaBundle>"));
  AnXml source;
  ASSERT_EQ(1, source.useExistingFile(AString(other.wfile("new.xml")), kRoot, kNsName, kNsValue));
  AnXmlNode bundle;
  ASSERT_TRUE(source.getRootNode().getExistingChild(L"CaBundle", bundle));

  ASSERT_EQ(1, Open(Root("<SiteList/>")));
  AnXmlNode root = RootNode();
  EXPECT_TRUE(root.copyAsChild(bundle));
  EXPECT_EQ(Root("<SiteList/><CaBundle a=\"1\"><CaCertificate>one</CaCertificate><!--k--></CaBundle>"), Written());
}

TEST_F(AnXmlTest, CopyAsChildOfANullNodeFails) {
  ASSERT_EQ(1, Open(Root("")));
  AnXmlNode root = RootNode();
  EXPECT_FALSE(root.copyAsChild(AnXmlNode()));
  EXPECT_EQ(Root(""), Written());
}

TEST_F(AnXmlTest, RemoveTakesTheElementWithItsSubtreeAndIndentation) {
  ASSERT_EQ(1, Open(Root("\n  <SiteList>\n    <A><x/></A>\n    <B/>\n  </SiteList>\n")));
  AnXmlNode siteList;
  ASSERT_TRUE(RootNode().getExistingChild(L"SiteList", siteList));
  AnXmlNode a;
  ASSERT_TRUE(siteList.getExistingChild(L"A", a));
  EXPECT_TRUE(a.remove());
  EXPECT_TRUE(a.isNull());
  EXPECT_EQ(Root("\n  <SiteList>\n    <B/>\n  </SiteList>\n"), Written());
}

TEST_F(AnXmlTest, RemoveOfTheDocumentElementOrANullNodeFails) {
  ASSERT_EQ(1, Open(Root("<SiteList/>")));
  AnXmlNode root = RootNode();
  EXPECT_FALSE(root.remove());
  AnXmlNode null;
  EXPECT_FALSE(null.remove());
  EXPECT_EQ(Root("<SiteList/>"), Written());
}

// ---- values -----------------------------------------------------------------------------

TEST_F(AnXmlTest, TryGetValueReadsAnAttribute) {
  ASSERT_EQ(1, Open(Root("<S Order=\"3\" Empty=\"\"/>")));
  AnXmlNode s;
  ASSERT_TRUE(RootNode().getExistingChild(L"S", s));
  AString value = L"previous";
  EXPECT_TRUE(s.tryGetValue(L"Order", value));
  EXPECT_EQ(L"3", value);
  EXPECT_TRUE(s.tryGetValue(L"Empty", value));
  EXPECT_EQ(L"", value);
}

TEST_F(AnXmlTest, TryGetValueOfAMissingAttributeClearsTheOutput) {
  ASSERT_EQ(1, Open(Root("<S Order=\"3\"/>")));
  AnXmlNode s;
  ASSERT_TRUE(RootNode().getExistingChild(L"S", s));
  AString value = L"previous";
  EXPECT_FALSE(s.tryGetValue(L"Type", value));
  EXPECT_EQ(L"", value);
}

TEST_F(AnXmlTest, TryGetValueOfEmptyNameReadsTheElementText) {
  ASSERT_EQ(1, Open(Root("<P>pass</P><C><![CDATA[a<b]]></C><M>\n  <x/>text<y/></M><W> </W>")));
  AnXmlNode root = RootNode();
  AnXmlNode node;
  AString value;
  ASSERT_TRUE(root.getExistingChild(L"P", node));
  EXPECT_TRUE(node.tryGetValue(L"", value));
  EXPECT_EQ(L"pass", value);
  ASSERT_TRUE(root.getExistingChild(L"C", node));
  EXPECT_TRUE(node.tryGetValue(L"", value));
  EXPECT_EQ(L"a<b", value);
  ASSERT_TRUE(root.getExistingChild(L"M", node));
  EXPECT_TRUE(node.tryGetValue(L"", value));
  EXPECT_EQ(L"text", value);
  ASSERT_TRUE(root.getExistingChild(L"W", node));
  EXPECT_TRUE(node.tryGetValue(L"", value));
  EXPECT_EQ(L" ", value);
}

TEST_F(AnXmlTest, TryGetValueOfAnElementWithEndTagAndNoContentIsTheEmptyText) {
  ASSERT_EQ(1, Open(Root("<E a=\"/\"></E>")));
  AnXmlNode e;
  ASSERT_TRUE(RootNode().getExistingChild(L"E", e));
  AString value = L"previous";
  EXPECT_TRUE(e.tryGetValue(L"", value));
  EXPECT_EQ(L"", value);
}

TEST_F(AnXmlTest, TryGetValueOfAnElementWithoutTextClearsTheOutput) {
  ASSERT_EQ(1, Open(Root("<E/><L>\n  <x/>\n</L>")));
  AnXmlNode root = RootNode();
  AnXmlNode node;
  AString value = L"previous";
  ASSERT_TRUE(root.getExistingChild(L"E", node));
  EXPECT_FALSE(node.tryGetValue(L"", value));
  EXPECT_EQ(L"", value);
  value = L"previous";
  ASSERT_TRUE(root.getExistingChild(L"L", node));
  EXPECT_FALSE(node.tryGetValue(L"", value));
  EXPECT_EQ(L"", value);
}

TEST_F(AnXmlTest, SetValueChangesAnAttributeInPlaceAndAppendsANewOne) {
  ASSERT_EQ(1, Open(Root("<S Type=\"a\" Order=\"1\" Name=\"n\"/>")));
  AnXmlNode s;
  ASSERT_TRUE(RootNode().getExistingChild(L"S", s));
  EXPECT_TRUE(s.setValue(L"Order", L"7"));
  EXPECT_TRUE(s.setValue(L"New", L"<&\">"));
  EXPECT_EQ(Root("<S Type=\"a\" Order=\"7\" Name=\"n\" New=\"&lt;&amp;&quot;>\"/>"), Written());
}

TEST_F(AnXmlTest, SetValueOfEmptyNameSetsTheElementText) {
  ASSERT_EQ(1, Open(Root("<P>old</P><E/><L>\n  <x/>\n</L>")));
  AnXmlNode root = RootNode();
  AnXmlNode node;
  ASSERT_TRUE(root.getExistingChild(L"P", node));
  EXPECT_TRUE(node.setValue(L"", L"new"));
  ASSERT_TRUE(root.getExistingChild(L"E", node));
  EXPECT_TRUE(node.setValue(L"", L"a&b"));
  ASSERT_TRUE(root.getExistingChild(L"L", node));
  EXPECT_TRUE(node.setValue(L"", L"t"));
  EXPECT_EQ(Root("<P>new</P><E>a&amp;b</E><L>t\n  <x/>\n</L>"), Written());
}

TEST_F(AnXmlTest, SetValueOfEmptyTextOnAnElementWithoutTextChangesNothing) {
  ASSERT_EQ(1, Open(Root("<E/>")));
  AnXmlNode e;
  ASSERT_TRUE(RootNode().getExistingChild(L"E", e));
  EXPECT_TRUE(e.setValue(L"", L""));
  EXPECT_EQ(Root("<E/>"), Written());
}

TEST_F(AnXmlTest, ValuesAreWideOutsideAndUtf8Inside) {
  ASSERT_EQ(1, Open(Root("<S/>")));
  AnXmlNode s;
  ASSERT_TRUE(RootNode().getExistingChild(L"S", s));
  EXPECT_TRUE(s.setValue(L"Name", L"\u00C5r\u00F8 \U0001F600"));
  AString back;
  EXPECT_TRUE(s.tryGetValue(L"Name", back));
  EXPECT_EQ(L"\u00C5r\u00F8 \U0001F600", back);
  EXPECT_EQ(Root("<S Name=\"\xC3\x85r\xC3\xB8 \xF0\x9F\x98\x80\"/>"), Written());
}

// ---- iterators ------------------------------------------------------------------------------

TEST_F(AnXmlTest, ChildIndexVisitsEveryChildElementInOrder) {
  ASSERT_EQ(1, Open(Root("<A/>text<!--c--><B><x/></B><?p?><A/>")));
  EXPECT_EQ((std::vector<std::wstring>{L"A", L"B", L"A"}), ChildNames(RootNode()));
}

TEST_F(AnXmlTest, ChildIndexByNameVisitsOnlyThatName) {
  ASSERT_EQ(1, Open(Root("<A n=\"1\"/><B/><A n=\"2\"/>")));
  AnXmlChildIndex index(RootNode(), L"A");
  AnXmlNode child;
  std::vector<std::wstring> seen;
  while (index.next(child)) {
    AString n;
    child.tryGetValue(L"n", n);
    seen.push_back(child.getName() + L"=" + n);
  }
  EXPECT_EQ((std::vector<std::wstring>{L"A=1", L"A=2"}), seen);
}

TEST_F(AnXmlTest, ChildIndexLetsTheCurrentChildBeRemoved) {
  ASSERT_EQ(1, Open(Root("<A/><B/><A/><C/>")));
  AnXmlChildIndex index(RootNode(), L"A");
  AnXmlNode child;
  int removed = 0;
  while (index.next(child)) removed += child.remove() ? 1 : 0;
  EXPECT_EQ(2, removed);
  EXPECT_EQ(Root("<B/><C/>"), Written());
}

TEST_F(AnXmlTest, ChildIndexOfAnElementWithoutChildrenIsEmpty) {
  ASSERT_EQ(1, Open(Root("")));
  AnXmlChildIndex index(RootNode());
  AnXmlNode child;
  EXPECT_FALSE(index.next(child));
  AnXmlChildIndex ofNull{AnXmlNode()};
  EXPECT_FALSE(ofNull.next(child));
}

TEST_F(AnXmlTest, ValueIndexVisitsTheAttributesInOrder) {
  ASSERT_EQ(1, Open(Root("<S Zed=\"1\" Alpha=\"&lt;2&gt;\" Empty=\"\"/>")));
  AnXmlNode s;
  ASSERT_TRUE(RootNode().getExistingChild(L"S", s));
  AnXmlValueIndex index(s);
  AString name;
  AString value;
  std::vector<std::pair<std::wstring, std::wstring>> seen;
  while (index.next(name, value)) seen.emplace_back(name, value);
  EXPECT_EQ((std::vector<std::pair<std::wstring, std::wstring>>{{L"Zed", L"1"}, {L"Alpha", L"<2>"}, {L"Empty", L""}}),
            seen);
}

TEST_F(AnXmlTest, NullNodeAnswersEverythingWithFalse) {
  AnXmlNode null;
  AnXmlNode child;
  AString value = L"previous";
  EXPECT_TRUE(null.isNull());
  EXPECT_EQ(L"", null.getName());
  EXPECT_FALSE(null.tryGetChildMove(L"A"));
  EXPECT_FALSE(null.getExistingChild(L"A", child));
  EXPECT_FALSE(null.tryGetChild(L"A", L"b", L"c", child));
  EXPECT_FALSE(null.setChild(L"A", child));
  EXPECT_FALSE(null.setChild(L"A", L"b", L"c", child));
  EXPECT_FALSE(null.addChild(L"A", child));
  EXPECT_FALSE(null.tryGetValue(L"b", value));
  EXPECT_EQ(L"", value);
  EXPECT_FALSE(null.setValue(L"b", L"c"));
  EXPECT_TRUE(child.isNull());
  AnXmlValueIndex values(null);
  AString name;
  EXPECT_FALSE(values.next(name, value));
}

}  // namespace
