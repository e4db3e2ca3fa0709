#include "tests/support/errorreports.h"
#include "tests/support/tempfolder.h"
#include "tests/support/xmloracle.h"

#include "keel/exchange/xmldoc.h"
#include "keel/platform/stdiofileex.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using namespace std::string_literals;
using NodeList = QArray<QSmartPtr<QXMLNode>>;

const std::string c_declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

std::string U(const CString& text) {
    return text.ToUtf8();
}

// Elements `a` nested `levels` deep, as they are written; `open` writes the innermost as a pair
// of tags, as a parser may be given it.
std::string Nested(int levels, bool open = true) {
    std::string text;
    for (int i = 1; i < levels; ++i)
        text += "<a>";
    text += open ? "<a></a>" : "<a/>";
    for (int i = 1; i < levels; ++i)
        text += "</a>";
    return text;
}

std::string WithAttributes(int count) {
    std::string text = "<r";
    for (int i = 0; i < count; ++i)
        text += " a" + std::to_string(i) + "=\"=\"";
    return text + "/>";
}

// A root holding a "script" element with a CDATA section and empty elements after it, so many
// that the root has `descendants` nodes under it.
std::string Wide(int descendants) {
    std::string text = "<r><script><![CDATA[x<y]]></script>";
    for (int i = 2; i < descendants; ++i)
        text += "<a/>";
    return text + "</r>";
}

std::vector<std::string> Names(const NodeList& nodes) {
    std::vector<std::string> names;
    for (const auto& node : nodes)
        names.push_back(node->GetName().ToUtf8() + "=" + node->GetText().ToUtf8());
    return names;
}

class XMLDocFiles : public test::TempFolderTest {
protected:
    QXMLDoc& Read(const std::string& bytes) {
        test::WriteText(m_root / "in.xml", bytes);
        CStdioFileEx file;
        EXPECT_TRUE(file.Open(PathOf("in.xml"), CFile::modeRead | CFile::typeBinary));
        m_doc.FromFile(file);
        return m_doc;
    }

    QXMLDoc m_doc;
};

TEST_F(XMLDocFiles, BytesAreReadInTheEncodingTheyDeclare) {
    const struct {
        const char* what;
        std::string bytes;
    } cases[] = {
        {"UTF-8", "<r>\xC3\xA9\xE2\x82\xAC</r>"},
        {"UTF-8 with mark", "\xEF\xBB\xBF<r>\xC3\xA9\xE2\x82\xAC</r>"},
        {"UTF-16LE with mark", "\xFF\xFE<\0r\0>\0\xE9\0\xAC\x20<\0/\0r\0>\0"s},
        {"windows-1252", "<?xml version='1.0' encoding='windows-1252'?><r>\xE9\x80</r>"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        ASSERT_TRUE(Read(test.bytes).RootNode()) << m_doc.GetParseError().ToUtf8();
        EXPECT_EQ(U(m_doc.RootNode()->GetText()), "\u00e9\u20ac");
        EXPECT_EQ(U(m_doc.ToString()), c_declaration + "<r>\xC3\xA9\xE2\x82\xAC</r>\n");
    }
}

TEST_F(XMLDocFiles, AFileIsReadWholeFromItsStartOrNotAtAll) {
    test::WriteText(m_root / "in.xml", "<r>\n<a>1</a>\n</r>\n");
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(PathOf("in.xml"), CFile::modeRead | CFile::typeText));
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    ASSERT_TRUE(m_doc.FromFile(file));
    EXPECT_EQ(U(m_doc.RootNode()->ToString()), "<r><a>1</a></r>");
    file.Close();
    EXPECT_FALSE(m_doc.FromFile(file));
    EXPECT_FALSE(m_doc.RootNode());
    EXPECT_FALSE(m_doc.GetParseError().IsEmpty());
}

TEST(XMLDoc, AStringIsTakenAsItsCharactersWhateverItsDeclarationSays) {
    QXMLDoc doc(CString(u"<?xml version='1.0' encoding='ISO-8859-1'?><r>\u00e9\u4e2d</r>"));
    ASSERT_TRUE(doc.RootNode());
    EXPECT_EQ(U(doc.RootNode()->GetText()), "\u00e9\u4e2d");
}

TEST(XMLDoc, HostileOrBrokenInputLeavesAnEmptyDocumentAndSaysWhy) {
    const struct {
        std::string bytes;
        const char* error;
    } cases[] = {
        {"<!DOCTYPE r [\n<!ENTITY x SYSTEM 'file:///etc/passwd'>]><r>&x;</r>",
         "Line 2: entities are not accepted"},
        {"<!DOCTYPE r [<!NOTATION n SYSTEM 'n'><!ENTITY u SYSTEM 'u' NDATA n>]><r/>",
         "Line 1: entities are not accepted"},
        {"<!DOCTYPE r SYSTEM 'http://example.com/r.dtd'>\n\n<r>&undeclared;</r>",
         "Line 3: entities are not accepted"},
        {Nested(258), "Line 1: elements are nested too deeply"},
        {"\n" + WithAttributes(QXMLDoc::c_maxAttributesPerElement + 1),
         "Line 2: an element has more than 20000 attributes"},
        {"<r>" + std::string(10000001, 'x') + "</r>", "Line 1: a text is too long"},
        {"", "Line 1: Document is empty"},
        {"<r>\xE9</r>", "Line 1: Input is not proper UTF-8, indicate encoding !\nBytes: 0xE9 "
                        "0x3C 0x2F 0x72"},
        {"<?xml version='1.0' encoding='no-such-code'?><r/>",
         "Line 1: Unsupported encoding no-such-code"},
    };
    QXMLDoc doc("<previous/>");
    for (const auto& test : cases) {
        SCOPED_TRACE(test.bytes.substr(0, 60));
        EXPECT_FALSE(doc.FromBytes(test.bytes));
        EXPECT_EQ(doc.GetParseError().ToUtf8(), test.error);
        EXPECT_FALSE(doc.RootNode());
        CString text = u"stale";
        EXPECT_FALSE(doc.ToString(text));
        EXPECT_TRUE(text.IsEmpty());
    }
}

TEST(XMLDoc, LimitsOfNestingAndAttributesHoldJustBelowThem) {
    QXMLDoc doc;
    EXPECT_TRUE(doc.FromString(CString::FromUtf8(Nested(257))));
    ASSERT_TRUE(doc.FromString(CString::FromUtf8(WithAttributes(20000))));
    EXPECT_EQ(U(doc.RootNode()->GetAttribute(u"a19999")), "=");
    EXPECT_TRUE(doc.GetParseError().IsEmpty());
    // Quoted markup, comments, CDATA and instructions do not count as attributes.
    const std::string quoted = "<r a='" + std::string(3000, '=') + "'><!--" +
                               std::string(3000, '=') + "--><![CDATA[" + std::string(3000, '=') +
                               "]]><?p " + std::string(3000, '=') + "?></r>";
    EXPECT_TRUE(doc.FromString(CString::FromUtf8(quoted))) << doc.GetParseError().ToUtf8();
}

TEST(XMLDoc, ToStringIndentsAndKeepsCDataSectionsOfEveryElementThatHasThem) {
    const struct {
        const char* input;
        std::string output;
    } cases[] = {
        {"<r><a x='1' y='&lt;&amp;&quot;'>t</a><script><![CDATA[a<b]]></script><!--c--></r>",
         "<r>\n  <a x=\"1\" y=\"&lt;&amp;&quot;\">t</a>\n  <script><![CDATA[a<b]]></script>\n"
         "  <!--c-->\n</r>\n"},
        {"<r xmlns:p='urn:p'><p:s><![CDATA[1]]></p:s><s xmlns='urn:d'><![CDATA[2]]></s>"
         "<t><![CDATA[3]]></t></r>",
         "<r xmlns:p=\"urn:p\">\n  <p:s><![CDATA[1]]></p:s>\n  <s xmlns=\"urn:d\"><![CDATA[2]]></s>"
         "\n  <t><![CDATA[3]]></t>\n</r>\n"},
        {"<r><s><![CDATA[a]]>b<![CDATA[c]]>d</s></r>", "<r>\n  <s><![CDATA[abcd]]></s>\n</r>\n"},
        {"<r><s><![CDATA[x]]]]><![CDATA[>y]]></s></r>",
         "<r>\n  <s><![CDATA[x]]]]><![CDATA[>y]]></s>\n</r>\n"},
        {"<?p d?><r>mixed <b>bold</b> text</r>", "<?p d?><r>mixed <b>bold</b> text</r>\n"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.input);
        QXMLDoc doc(test.input);
        EXPECT_EQ(U(doc.ToString()), c_declaration + test.output);
    }
}

TEST_F(XMLDocFiles, ToStringReadsBackToTheSameTextAndTheSameDocument) {
    const char* documents[] = {
        "<r><a x='1'>t</a><script><![CDATA[a<b]]]]><![CDATA[>c]]></script><!--c--></r>",
        "<p:r xmlns:p='urn:p' xmlns='urn:d'><p:a p:x='1' y='2'><b/></p:a><?pi data?></p:r>",
        "<r>\xE4\xB8\xAD\xF0\x9F\x98\x80 &#9; &#13; a\tb</r>",
        "<r><a>  spaced  </a><b> </b><c>x<d/>y</c></r>",
        "<!DOCTYPE r [<!ELEMENT r ANY>]><r/>",
    };
    for (const char* input : documents) {
        SCOPED_TRACE(input);
        const CString first = Read(input).ToString();
        ASSERT_FALSE(first.IsEmpty()) << m_doc.GetParseError().ToUtf8();
        QXMLDoc again(first);
        EXPECT_EQ(again.ToString(), first);
        if (!test::HasXmllint())
            continue;
        test::WriteText(m_root / "out.xml", first.ToUtf8());
        const auto expected = test::CanonicalXml(Path("in.xml"));
        ASSERT_TRUE(expected);
        EXPECT_EQ(test::CanonicalXml(Path("out.xml")), expected);
    }
}

TEST(XMLDoc, DocumentsOfMoreThan524272NodesAreSavedWithoutIndentation) {
    for (const int descendants : {524272, 524273}) {
        SCOPED_TRACE(descendants);
        QXMLDoc doc(CString::FromUtf8(Wide(descendants)));
        ASSERT_EQ(doc.RootNode()->DescendantNodeCount(), descendants);
        const std::string text = doc.ToString().ToUtf8();
        const bool indented = descendants <= QXMLDoc::c_maxNodesToIndent;
        const std::string start = indented ? "<r>\n  <script><![CDATA[x<y]]></script>\n  <a/>\n"
                                           : "<r><script><![CDATA[x<y]]></script><a/><a/>";
        EXPECT_EQ(text.substr(0, c_declaration.size() + start.size()), c_declaration + start);
    }
}

class XMLDocReports : public test::ErrorReportsTest {};

TEST_F(XMLDocReports, AFailedTransformIsReportedAndThePlainTextGiven) {
    QXMLDoc doc("<r/>");
    QSmartPtr<QXMLNode> node = doc.RootNode();
    for (int level = 0; level < 2000; ++level)
        node = node->AddNode(u"a");
    CString text;
    ASSERT_TRUE(doc.ToString(text));
    EXPECT_EQ(text.ToUtf8(), c_declaration + "<r>" + Nested(2000, false) + "</r>\n");
    EXPECT_EQ(
        test::PendingReports(),
        (std::vector<test::Report>{{"XML Save", "Failed to apply stylesheet to XML Document"}}));
    TheErrorLog().DiscardPendingMessages();
    EXPECT_TRUE(QXMLDoc("<r/>").ToString(text));
    EXPECT_TRUE(test::PendingReports().empty());
}

TEST(XMLNode, ChildrenAreAddedFoundCountedAndRemoved) {
    QXMLDoc doc("<r><a id='1'>x</a><!--c1--><b/><a id='2'>y<i/></a><![CDATA[z]]><!--c2--></r>");
    const QSmartPtr<QXMLNode> root = doc.RootNode();
    NodeList nodes;
    ASSERT_TRUE(root->GetAllNodes(nodes));
    EXPECT_EQ(Names(nodes), (std::vector<std::string>{"a=x", "#comment=c1", "b=", "a=y",
                                                      "#cdata-section=z", "#comment=c2"}));
    EXPECT_EQ(root->ChildNodeCount(), 6);
    EXPECT_EQ(root->DescendantNodeCount(), 9);
    EXPECT_TRUE(root->GetNodes(u"a", nodes));
    EXPECT_EQ(Names(nodes), (std::vector<std::string>{"a=x", "a=y"}));
    EXPECT_EQ(U(root->GetFirstNode(u"a")->GetText()), "x");
    EXPECT_EQ(U(root->GetLastNode(u"a/@id")->GetText()), "2");
    EXPECT_FALSE(root->GetNode(u"missing"));
    EXPECT_FALSE(root->GetNodes(u"a[", nodes));
    EXPECT_FALSE(root->GetNodes(u"count(a)", nodes));
    const QSmartPtr<QXMLNode> document = root->GetNode(u"/");
    EXPECT_EQ(U(document->GetName()), "#document");
    EXPECT_FALSE(document->AddNode(u"second"));
    EXPECT_FALSE(root->RemoveNode(document));
    EXPECT_EQ(U(root->GetComment(2)), "c2");
    CString comment = u"stale";
    EXPECT_FALSE(root->GetComment(0, comment));
    EXPECT_FALSE(root->GetComment(3, comment));
    EXPECT_TRUE(comment.IsEmpty());

    EXPECT_FALSE(root->RemoveNode(u"a", 2));
    EXPECT_FALSE(root->RemoveNode(u"a", -1));
    EXPECT_FALSE(root->RemoveNode(u"..", 0));
    EXPECT_TRUE(root->RemoveNode(u"a", 1));
    EXPECT_TRUE(root->RemoveNode(u"comment()", 0));
    const QSmartPtr<QXMLNode> b = root->GetNode(u"b");
    EXPECT_FALSE(b->RemoveNode(b));
    EXPECT_TRUE(root->RemoveNode(b));
    EXPECT_FALSE(root->RemoveNode(b));
    EXPECT_EQ(U(root->ToString()), "<r><a id=\"1\">x</a><![CDATA[z]]><!--c2--></r>");
}

TEST(XMLNode, ChildElementsAreFoundByNameAndIdWithoutAPath) {
    QXMLDoc doc("<r xmlns:p='urn:p'><lv id='a'/><lv/><lv id=\"it's\"/><p:lv id='a'/>"
                "<x><lv id='a'/></x></r>");
    const QSmartPtr<QXMLNode> root = doc.RootNode();
    NodeList nodes;
    EXPECT_TRUE(root->GetChildElements(u"lv", nodes));
    EXPECT_EQ(nodes.GetCount(), 3);
    EXPECT_FALSE(root->GetChildElements(u"a']|//*|x[@b='", nodes));
    EXPECT_TRUE(root->GetFirstChildElement(u"lv")->IsSameNode(*root->GetNode(u"lv")));
    EXPECT_TRUE(
        root->GetFirstChildElementWithId(u"lv", u"it's")->IsSameNode(*root->GetNode(u"lv[3]")));
    EXPECT_FALSE(root->GetFirstChildElementWithId(u"lv", u"b"));
    EXPECT_FALSE(root->GetFirstChildElement(u"x:y"));
}

TEST(XMLNode, NamesAndTextsMustBeXml) {
    QXMLDoc doc("<r/>");
    const QSmartPtr<QXMLNode> root = doc.RootNode();
    for (const char16_t* name : {u"", u"1a", u"a b", u"a/b", u"<", u"a:b:c", u"a\u0001"}) {
        SCOPED_TRACE(CString(name).ToUtf8());
        EXPECT_FALSE(root->AddNode(CString(name)));
        EXPECT_FALSE(root->AddAttribute(CString(name), u"v"));
    }
    for (const CString& text : {CString(u"a\u0001b"), CString(u"\uffff"), CString(u"\xd800x")}) {
        EXPECT_FALSE(root->AddNode(u"a", text));
        EXPECT_FALSE(root->AddAttribute(u"a", text));
        EXPECT_FALSE(root->UpdateText(text));
        EXPECT_FALSE(root->AddCDATANode(text));
    }
    EXPECT_FALSE(root->AddAttribute(u"xmlns", u"urn:x"));
    EXPECT_FALSE(root->AddAttribute(u"xmlns:p", u"urn:x"));
    EXPECT_EQ(U(root->ToString()), "<r/>");
    EXPECT_TRUE(root->AddNode(u"\u00e9l\u00e8ve-1.x_y", u"\U0001F600\t\r\n"));
    EXPECT_EQ(U(QXMLDoc(doc.ToString()).RootNode()->GetTextForSubtree()), "\U0001F600\t\r\n");
}

TEST(XMLNode, AttributesAreAddedUpdatedReadAndRemoved) {
    QXMLDoc doc("<r xmlns:p='urn:p' b='1' p:c='2'/>");
    const QSmartPtr<QXMLNode> root = doc.RootNode();
    EXPECT_TRUE(root->HasAnyAttributes());
    EXPECT_FALSE(root->UpdateAttribute(u"a", u"x"));
    EXPECT_TRUE(root->AddAttribute(u"a", u"<&\"'>"));
    EXPECT_TRUE(root->AddAttribute(u"b", u"changed"));
    EXPECT_TRUE(root->UpdateAttribute(u"p:c", u"3"));
    EXPECT_TRUE(root->AddAttribute(u"p:d", u"4"));
    QArray<QXMLAttribute> attributes;
    ASSERT_TRUE(root->GetAttributes(attributes));
    std::vector<std::string> pairs;
    for (const QXMLAttribute& attribute : attributes)
        pairs.push_back(attribute.m_name.ToUtf8() + "=" + attribute.m_value.ToUtf8());
    EXPECT_EQ(pairs, (std::vector<std::string>{"b=changed", "p:c=3", "a=<&\"'>", "p:d=4"}));
    CString value = u"stale";
    EXPECT_FALSE(root->GetAttribute(u"c", value));
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_EQ(U(root->ToString()), "<r xmlns:p=\"urn:p\" b=\"changed\" p:c=\"3\" "
                                   "a=\"&lt;&amp;&quot;'&gt;\" p:d=\"4\"/>");
    for (const char16_t* name : {u"b", u"p:c", u"a"})
        EXPECT_TRUE(root->RemoveAttribute(name));
    EXPECT_TRUE(root->RemoveNode(u"@*", 0));
    EXPECT_FALSE(root->RemoveAttribute(u"a"));
    EXPECT_FALSE(root->GetAttributes(attributes));
    const QSmartPtr<QXMLNode> comment =
        QXMLDoc("<r><!--c--></r>").RootNode()->GetNode(u"comment()");
    EXPECT_FALSE(comment->AddAttribute(u"a", u"b"));
    EXPECT_FALSE(comment->HasAnyAttributes());
}

// Many attributes at once end as the same element as added one by one: in order, a name given
// again replaces the value, and what XML cannot hold is left out and fails the call, past 32
// names as below them.
TEST(XMLNode, AttributesAddedAtOnceMatchThoseAddedOneByOne) {
    const int count = 33;
    QArray<QXMLAttribute> attributes;
    for (int i = 0; i < count; ++i)
        attributes.Add({CString::Formatted(u"a%d", i), CString::Formatted(u"<%d>", i)});
    attributes.Add({u"b", u"new"});
    attributes.Add({u"p:c", u"in p"});
    attributes.Add({u"a1", u"again"});
    attributes.Add({u"x/y", u"bad name"});
    attributes.Add({u"xmlns:q", u"urn:q"});
    attributes.Add({u"ok", u"bell\x07"});
    attributes.Add({CString::Formatted(u"a%d", count - 1), u"last"});
    QXMLDoc atOnce("<r xmlns:p='urn:p' b='old'/>");
    QXMLDoc oneByOne("<r xmlns:p='urn:p' b='old'/>");
    EXPECT_FALSE(atOnce.RootNode()->AddAttributes(attributes));
    for (const QXMLAttribute& attribute : attributes)
        oneByOne.RootNode()->AddAttribute(attribute.m_name, attribute.m_value);
    EXPECT_EQ(U(atOnce.RootNode()->ToString()), U(oneByOne.RootNode()->ToString()));
    EXPECT_EQ(U(atOnce.RootNode()->GetAttribute(u"a1")), "again");
    QXMLDoc again(atOnce.ToString());
    ASSERT_TRUE(again.RootNode()) << U(again.GetParseError());
    EXPECT_EQ(U(again.RootNode()->GetAttribute(u"p:c")), "in p");
    QXMLDoc doc("<r/>");
    EXPECT_TRUE(doc.RootNode()->AddAttributes({{u"a", u"1"}, {u"a", u"2"}}));
    EXPECT_EQ(U(doc.RootNode()->ToString()), "<r a=\"2\"/>");
}

TEST(XMLNode, OwnTextIsApartFromTheTextOfTheSubtree) {
    QXMLDoc doc("<r>a<i>b</i><![CDATA[c]]><!--not text-->d</r>");
    const QSmartPtr<QXMLNode> root = doc.RootNode();
    EXPECT_EQ(U(root->GetText()), "acd");
    EXPECT_EQ(U(root->GetTextForSubtree()), "abcd");
    EXPECT_TRUE(root->UpdateText(u"new"));
    EXPECT_EQ(U(root->ToString()), "<r><i>b</i><!--not text-->new</r>");
    EXPECT_TRUE(root->RemoveText());
    EXPECT_TRUE(root->AddCDATANode(u"x]]>y"));
    EXPECT_EQ(U(root->GetText()), "x]]>y");
    const QSmartPtr<QXMLNode> comment = root->GetNode(u"comment()");
    EXPECT_FALSE(comment->UpdateText(u"a--b"));
    EXPECT_TRUE(comment->UpdateText(u"c"));
    EXPECT_EQ(U(QXMLDoc(doc.ToString()).RootNode()->ToString()),
              "<r><i>b</i><!--c--><![CDATA[x]]]]><![CDATA[>y]]></r>");
    const QSmartPtr<QXMLNode> attribute = QXMLDoc("<r a='1'/>").RootNode()->GetNode(u"@a");
    EXPECT_EQ(U(attribute->GetName()), "a");
    EXPECT_TRUE(attribute->UpdateText(u"2"));
    EXPECT_EQ(U(attribute->GetText()), "2");
}

TEST(XMLNode, NodesMoveWithinATreeAndAreCopiedBetweenTrees) {
    QXMLDoc doc("<r xmlns:p='urn:p'><a><p:x p:q='1'>t</p:x></a><b/></r>");
    const QSmartPtr<QXMLNode> root = doc.RootNode();
    const QSmartPtr<QXMLNode> a = root->GetNode(u"a");
    const QSmartPtr<QXMLNode> b = root->GetNode(u"b");
    EXPECT_FALSE(a->AddNode(root));
    EXPECT_FALSE(a->AddNode(a));
    EXPECT_FALSE(a->AddNode(root->GetNode(u"a/*/@p:q")));
    EXPECT_TRUE(b->AddNode(a)->IsSameNode(*a));
    EXPECT_EQ(U(root->ToString()), "<r xmlns:p=\"urn:p\"><b><a><p:x p:q=\"1\">t</p:x></a></b></r>");

    QXMLDoc other("<o/>");
    const QSmartPtr<QXMLNode> copy = other.RootNode()->AddNode(a);
    ASSERT_TRUE(copy);
    EXPECT_FALSE(copy->IsSameNode(*a));
    EXPECT_EQ(U(other.RootNode()->ToString()),
              "<o><a><p:x xmlns:p=\"urn:p\" p:q=\"1\">t</p:x></a></o>");
    QXMLDoc fromNode;
    ASSERT_TRUE(fromNode.FromXMLNode(*root->GetNode(u"b/a/*")));
    EXPECT_EQ(U(fromNode.ToString()), c_declaration + "<p:x xmlns:p=\"urn:p\" p:q=\"1\">t</p:x>\n");
    EXPECT_FALSE(fromNode.FromXMLNode(*root->GetNode(u"b/a/*/text()")));
}

TEST(XMLNode, HandlesKeepTheirTreeAndRemovedNodesAlive) {
    QSmartPtr<QXMLNode> kept;
    QSmartPtr<QXMLNode> removed;
    QSmartPtr<QXMLNode> inRemoved;
    {
        QSmartPtr<QXMLDoc> doc(new QXMLDoc("<r xmlns:p='urn:p'><s><p:x p:q='1'>t</p:x></s></r>"));
        kept = doc->RootNode();
        removed = kept->GetNode(u"s");
        inRemoved = removed->GetNode(u"*/@*");
        ASSERT_TRUE(inRemoved);
        ASSERT_TRUE(kept->RemoveNode(removed));
        doc->FromString(u"<other/>");
        EXPECT_EQ(U(doc->RootNode()->GetName()), "other");
    }
    EXPECT_EQ(U(kept->ToString()), "<r xmlns:p=\"urn:p\"/>");
    EXPECT_EQ(U(removed->ToString()), "<s xmlns:p=\"urn:p\"><p:x p:q=\"1\">t</p:x></s>");
    EXPECT_EQ(U(inRemoved->GetName()), "p:q");
    removed = nullptr;
    EXPECT_EQ(U(inRemoved->GetText()), "1");
    EXPECT_TRUE(kept->AddNode(inRemoved->GetNode(u"..")));
    EXPECT_EQ(U(kept->ToString()), "<r xmlns:p=\"urn:p\"><p:x p:q=\"1\">t</p:x></r>");
}

TEST(XMLDoc, SelectionNamespacesBindPrefixesForPathsAcrossLoads) {
    QXMLDoc empty;
    EXPECT_FALSE(empty.RootNode());
    EXPECT_TRUE(empty.ToString().IsEmpty());
    EXPECT_TRUE(empty.SetSelectionNamespaces(u""));
    QXMLDoc doc("<r xmlns='urn:d'><a>1</a></r>");
    EXPECT_FALSE(doc.RootNode()->GetNode(u"d:a"));
    EXPECT_FALSE(doc.RootNode()->GetNode(u"a"));
    for (const char16_t* bad :
         {u"xmlns='urn:d'", u"xmlns:d=urn:d", u"xmlns:d='urn:d", u"d='x'", u"xmlns:1='urn:d'"})
        EXPECT_FALSE(doc.SetSelectionNamespaces(bad)) << CString(bad).ToUtf8();
    ASSERT_TRUE(doc.SetSelectionNamespaces(u" xmlns:d='urn:d'\txmlns:e=\"urn:e\" "));
    EXPECT_EQ(U(doc.RootNode()->GetNode(u"d:a")->GetText()), "1");
    ASSERT_TRUE(doc.FromString(u"<e:r xmlns:e='urn:e'><e:a>2</e:a></e:r>"));
    EXPECT_EQ(U(doc.RootNode()->GetNode(u"e:a")->GetText()), "2");
}

} // namespace
} // namespace keel
