#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/array.h"
#include "keel/values/smartptr.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct _xmlNode;

namespace keel {

class CFile;
class QXMLTree;

// One attribute of an element: its qualified name and its value.
struct QXMLAttribute {
    CString m_name;
    CString m_value;

    bool operator==(const QXMLAttribute&) const = default;
};

// A handle to one node of a document: an element, an attribute, a text, CDATA section, comment
// or processing instruction. The handle keeps the tree it belongs to alive, also after its
// document has loaded another one, and a node removed from the tree stays valid for as long as
// a handle to it, or to anything under it, lives.
//
// Operations that do not fit the kind of node (children of a comment, attributes of a text) do
// nothing and return false or null. A failure of the XML library is a false or null result too.
class QXMLNode : public QSmartTarget {
public:
    ~QXMLNode() override;
    QXMLNode(const QXMLNode&) = delete;
    QXMLNode& operator=(const QXMLNode&) = delete;

    // Children. AddNode appends and returns the child as it stands in the tree: a node of this
    // tree is moved here (never under itself), one of another tree is copied. A name must be a
    // valid XML name; a prefix bound above this element puts the child in that namespace.
    QSmartPtr<QXMLNode> AddNode(const QSmartPtr<QXMLNode>& node);
    QSmartPtr<QXMLNode> AddNode(const CString& name);
    QSmartPtr<QXMLNode> AddNode(const CString& name, const CString& text);
    // Removes a child of this node.
    bool RemoveNode(const QSmartPtr<QXMLNode>& node);
    // Removes the node at `index` (from 0) of those that the path selects; it must lie under
    // this node.
    bool RemoveNode(const CString& path, long index);
    // All child nodes, of every kind, in order; false when there are none.
    bool GetAllNodes(QArray<QSmartPtr<QXMLNode>>& nodes) const;
    // The nodes an XPath 1.0 path relative to this node selects, in document order; false when
    // the path selects nothing or is not a path.
    bool GetNodes(const CString& path, QArray<QSmartPtr<QXMLNode>>& nodes) const;
    QSmartPtr<QXMLNode> GetNode(const CString& path) const;
    QSmartPtr<QXMLNode> GetFirstNode(const CString& path) const;
    QSmartPtr<QXMLNode> GetLastNode(const CString& path) const;
    bool HasAnyChildNodes() const;
    std::int64_t ChildNodeCount() const;
    // Child nodes, and theirs, to the bottom of the subtree (attributes are not nodes here).
    std::int64_t DescendantNodeCount() const;

    // Child elements by their qualified name, matched as text rather than through a path, so
    // that any name is safe to ask for. The "WithId" form takes only those whose attribute "id"
    // is `id`.
    bool GetChildElements(const CString& name, QArray<QSmartPtr<QXMLNode>>& nodes) const;
    QSmartPtr<QXMLNode> GetFirstChildElement(const CString& name) const;
    QSmartPtr<QXMLNode> GetFirstChildElementWithId(const CString& name, const CString& id) const;

    // Attributes of an element, by qualified name. AddAttribute sets the value whether or not
    // the attribute is there; UpdateAttribute only changes one that is. Namespace declarations
    // are not attributes here and cannot be made through these.
    bool AddAttribute(const CString& name, const CString& value);
    // AddAttribute for each in turn, with one look over the element's attributes for all of
    // them, so that an element can take thousands. False when one of them could not be added;
    // the others are.
    bool AddAttributes(const QArray<QXMLAttribute>& attributes);
    bool UpdateAttribute(const CString& name, const CString& value);
    bool RemoveAttribute(const CString& name);
    bool GetAttribute(const CString& name, CString& value) const;
    CString GetAttribute(const CString& name) const;
    // GetAttribute and RemoveAttribute in one look.
    bool TakeAttribute(const CString& name, CString& value);
    // In document order; false when there are none.
    bool GetAttributes(QArray<QXMLAttribute>& attributes) const;
    bool HasAnyAttributes() const;

    // The qualified name of an element or attribute, the target of a processing instruction,
    // and "#text", "#cdata-section", "#comment" or "#document" for the others.
    CString GetName() const;
    // The namespace URI of an element or attribute: for an element without a prefix, the default
    // namespace its own or an enclosing "xmlns" declares. Empty when it is in none.
    CString GetNamespaceURI() const;
    // An element's own text: its text and CDATA children joined, without what the elements
    // under it hold. For any other node its content.
    CString GetText() const;
    // All the text in the subtree, in document order.
    CString GetTextForSubtree() const;
    // Replaces an element's own text (its text and CDATA children) with one text node, after
    // its child elements; sets the content of any other node.
    bool UpdateText(const CString& text);
    // Removes an element's text and CDATA children.
    bool RemoveText();
    bool AddCDATANode(const CString& text);
    // The text of the comment child at `index`, counted from 1 as paths count.
    bool GetComment(long index, CString& text) const;
    CString GetComment(long index) const;

    // Whether a text can name an element or attribute, and whether a document can hold it as
    // text or as the value of an attribute.
    static bool IsName(const CString& name);
    static bool IsText(const CString& text);

    // The node and what is under it as XML, without indentation.
    CString ToString() const;
    bool IsElement() const;
    bool IsSameNode(const QXMLNode& other) const { return m_node == other.m_node; }

protected:
    // The names of the elements in this subtree that hold a CDATA section, each once, in the
    // order they are first met.
    void CollectAllCDATANodeNames(QArray<CString>& names) const;

private:
    friend class QXMLDoc;
    friend class QXMLTree;

    QXMLNode(QSmartPtr<QXMLTree> tree, _xmlNode* node);
    QSmartPtr<QXMLNode> Handle(_xmlNode* node) const;
    QSmartPtr<QXMLNode> AppendNew(_xmlNode* child);

    QSmartPtr<QXMLTree> m_tree;
    _xmlNode* m_node;
};

// A document: parsed from text or bytes, or built through its nodes, and written back as text.
// Parsing reads no DTD, fetches nothing from the network, and refuses entity declarations and
// references, so that no input can expand beyond its own size or reach outside itself. Elements
// nest at most 257 levels deep, and an element has at most c_maxAttributesPerElement attributes.
// A text that does not parse leaves the document empty, and GetParseError tells why.
class QXMLDoc : public QSmartTarget {
public:
    QXMLDoc();
    explicit QXMLDoc(const CString& text);
    explicit QXMLDoc(const char* text);
    explicit QXMLDoc(CFile& file);
    ~QXMLDoc() override;
    QXMLDoc(const QXMLDoc&) = delete;
    QXMLDoc& operator=(const QXMLDoc&) = delete;

    // The text is taken as the characters it holds, whatever encoding its declaration names.
    bool FromString(const CString& text);
    // Bytes in the encoding that their byte order mark or declaration tells (UTF-8 without
    // either).
    bool FromBytes(std::string_view bytes);
    // The whole file, from its start, as bytes.
    bool FromFile(CFile& file);
    // A copy of the node and its subtree becomes the root of this document.
    bool FromXMLNode(QXMLNode& node);

    // The document as UTF-8 XML text with its declaration, indented two blanks a level. Elements
    // holding CDATA sections keep their text in CDATA sections. A document of more than
    // c_maxNodesToIndent nodes under its root comes out without indentation. False for an empty
    // document.
    bool ToString(CString& text) const;
    CString ToString() const;

    // The root element; null for an empty document.
    QSmartPtr<QXMLNode> RootNode() const;
    // The prefixes that paths may use, as namespace declarations separated by blanks:
    // "xmlns:a='urn:a' xmlns:b=\"urn:b\"". False, and nothing changed, for a text of any other
    // form.
    bool SetSelectionNamespaces(const CString& declarations);
    // Why the last parse failed; empty after one that succeeded.
    CString GetParseError() const { return m_parseError; }

    static constexpr std::int64_t c_maxNodesToIndent = 0x7FFF0;
    // Elements with more attributes are refused when parsing.
    static constexpr int c_maxAttributesPerElement = 20000;

private:
    bool Parse(std::string_view bytes, bool isUtf8);
    bool ParseUtf8(std::string_view text);
    void Replace(QSmartPtr<QXMLTree> tree);
    CString PlainText() const;
    bool TransformedText(CString& text) const;

    QSmartPtr<QXMLTree> m_tree;
    CString m_parseError;
    // Prefix and namespace pairs for paths, kept for every document this one loads.
    std::vector<std::pair<std::string, std::string>> m_namespaces;
};

} // namespace keel
