#include "keel/exchange/xmldoc.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/platform/file.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <deque>
#include <libxml/SAX2.h>
#include <libxml/encoding.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace keel {

namespace {

constexpr const char* c_xsltNamespace = "http://www.w3.org/1999/XSL/Transform";

// The identity transform that indents a document.
constexpr std::string_view c_prettyPrintStylesheet =
    R"xsl(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">)xsl"
    R"xsl(<xsl:output method="xml" indent="yes" encoding="UTF-8"/>)xsl"
    R"xsl(<xsl:template match="@*|node()">)xsl"
    R"xsl(<xsl:copy><xsl:apply-templates select="@*|node()"/></xsl:copy>)xsl"
    R"xsl(</xsl:template>)xsl"
    R"xsl(</xsl:stylesheet>)xsl";

// Deeper documents are written without indentation: each level is a nested template call of
// the transform, on the stack.
constexpr int c_maxTransformDepth = 1000;

const xmlChar* X(const std::string& text) {
    return reinterpret_cast<const xmlChar*>(text.c_str());
}

const char* C(const xmlChar* text) {
    return reinterpret_cast<const char*>(text);
}

CString FromXml(const xmlChar* text) {
    return text ? CString::FromUtf8(C(text)) : CString();
}

// Takes a string the library allocated.
CString TakeXml(xmlChar* text) {
    const CString result = FromXml(text);
    xmlFree(text);
    return result;
}

// Only characters an XML 1.0 document can hold: no control characters but tab, line feed and
// carriage return, no U+FFFE or U+FFFF, and surrogates only in pairs.
bool IsXmlText(const CString& text) {
    const std::u16string_view units = text.View();
    for (std::size_t i = 0; i < units.size(); ++i) {
        const char16_t unit = units[i];
        if (unit < 0x20) {
            if (unit != u'\t' && unit != u'\n' && unit != u'\r')
                return false;
        } else if (unit >= 0xD800 && unit <= 0xDBFF) {
            if (i + 1 >= units.size() || units[i + 1] < 0xDC00 || units[i + 1] > 0xDFFF)
                return false;
            ++i;
        } else if ((unit >= 0xDC00 && unit <= 0xDFFF) || unit == 0xFFFE || unit == 0xFFFF) {
            return false;
        }
    }
    return true;
}

bool IsXmlName(const CString& name) {
    return !name.IsEmpty() && IsXmlText(name) && xmlValidateQName(X(name.ToUtf8()), 0) == 0;
}

bool IsNamespaceDeclaration(const CString& name) {
    return name == u"xmlns" || name.Left(6) == u"xmlns:";
}

// A qualified name split at its colon; the prefix is empty when there is none.
std::pair<std::string, std::string> SplitQName(const CString& name) {
    const std::string text = name.ToUtf8();
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos)
        return {std::string(), text};
    return {text.substr(0, colon), text.substr(colon + 1)};
}

CString QualifiedName(const xmlNode* node) {
    CString name = FromXml(node->name);
    if (node->ns && node->ns->prefix)
        name = FromXml(node->ns->prefix) + u':' + name;
    return name;
}

bool IsTextOrCData(const xmlNode* node) {
    return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
}

// The kinds of node a handle stands for; declarations and namespace nodes get none.
bool IsWrappable(const xmlNode* node) {
    switch (node->type) {
    case XML_ELEMENT_NODE:
    case XML_ATTRIBUTE_NODE:
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_COMMENT_NODE:
    case XML_PI_NODE:
    case XML_DOCUMENT_NODE:
        return true;
    default:
        return false;
    }
}

// The kinds of node that can be appended under an element.
bool IsMovable(const xmlNode* node) {
    return node->type != XML_ATTRIBUTE_NODE && node->type != XML_DOCUMENT_NODE && IsWrappable(node);
}

// Whether a walk goes into the node's children. An entity reference's children are the
// entity's, shared by every reference, so the walk stays out of them.
bool Descends(const xmlNode* node) {
    return node->type == XML_ELEMENT_NODE || node->type == XML_DOCUMENT_NODE ||
           node->type == XML_ATTRIBUTE_NODE;
}

// The node after `node` in document order within the subtree of `top`, without recursion.
xmlNode* NextInSubtree(xmlNode* node, const xmlNode* top) {
    if (Descends(node) && node->children)
        return node->children;
    while (node != top) {
        if (node->next)
            return node->next;
        node = node->parent;
    }
    return nullptr;
}

// Calls `visit` for `top` and each node under it, attributes and their text included when
// `withAttributes`.
template <class Visit>
void ForEachInSubtree(xmlNode* top, bool withAttributes, Visit visit) {
    for (xmlNode* node = top; node; node = NextInSubtree(node, top)) {
        visit(node);
        if (!withAttributes || node->type != XML_ELEMENT_NODE)
            continue;
        for (xmlAttr* attribute = node->properties; attribute; attribute = attribute->next) {
            visit(reinterpret_cast<xmlNode*>(attribute));
            for (xmlNode* text = attribute->children; text; text = text->next)
                visit(text);
        }
    }
}

xmlNode* Top(xmlNode* node) {
    while (node->parent)
        node = node->parent;
    return node;
}

bool IsAncestorOrSelf(const xmlNode* ancestor, const xmlNode* node) {
    for (; node; node = node->parent) {
        if (node == ancestor)
            return true;
    }
    return false;
}

// Links an unattached node of the same document as the last child of `parent`. The library's
// own append merges adjacent texts, freeing the node appended, which a handle may be holding.
void AppendChild(xmlNode* parent, xmlNode* child) {
    child->parent = parent;
    child->next = nullptr;
    child->prev = parent->last;
    if (parent->last)
        parent->last->next = child;
    else
        parent->children = child;
    parent->last = child;
}

// The namespace of a copied element or attribute, as seen from the copy: the one in scope with
// the same prefix and URI, or a new declaration on the copied element.
xmlNs* NamespaceInCopy(xmlDoc* doc, xmlNode* element, const xmlNs* ns) {
    xmlNs* found = xmlSearchNs(doc, element, ns->prefix);
    if (found && xmlStrEqual(found->href, ns->href))
        return found;
    return xmlNewNs(element, ns->href, ns->prefix);
}

xmlNode* CopyElement(const xmlNode* source, xmlDoc* doc, xmlNode* parent) {
    xmlNode* copy = xmlNewDocNode(doc, nullptr, source->name, nullptr);
    if (!copy)
        return nullptr;
    if (parent)
        AppendChild(parent, copy);
    for (const xmlNs* ns = source->nsDef; ns; ns = ns->next)
        xmlNewNs(copy, ns->href, ns->prefix);
    if (source->ns)
        xmlSetNs(copy, NamespaceInCopy(doc, copy, source->ns));
    for (const xmlAttr* attribute = source->properties; attribute; attribute = attribute->next) {
        xmlNs* ns = attribute->ns ? NamespaceInCopy(doc, copy, attribute->ns) : nullptr;
        xmlChar* value = xmlNodeGetContent(reinterpret_cast<const xmlNode*>(attribute));
        xmlNewNsProp(copy, ns, attribute->name, value);
        xmlFree(value);
    }
    return copy;
}

// A copy of one node into `doc`, without its children, appended to `parent` when one is given;
// null for the kinds of node that are not copied.
xmlNode* CopyNode(const xmlNode* source, xmlDoc* doc, xmlNode* parent) {
    if (source->type == XML_ELEMENT_NODE)
        return CopyElement(source, doc, parent);
    const xmlChar* content = source->content ? source->content : X("");
    xmlNode* copy = nullptr;
    switch (source->type) {
    case XML_TEXT_NODE:
        copy = xmlNewDocText(doc, content);
        break;
    case XML_CDATA_SECTION_NODE:
        copy = xmlNewCDataBlock(doc, content, xmlStrlen(content));
        break;
    case XML_COMMENT_NODE:
        copy = xmlNewDocComment(doc, content);
        break;
    case XML_PI_NODE:
        copy = xmlNewDocPI(doc, source->name, content);
        break;
    default:
        return nullptr;
    }
    if (copy && parent)
        AppendChild(parent, copy);
    return copy;
}

// A deep copy of a node into `doc`, unattached. The library's own copy recurses once a level,
// which a deep enough tree turns into a stack overflow; this one walks.
xmlNode* CopyTree(const xmlNode* source, xmlDoc* doc) {
    xmlNode* root = CopyNode(source, doc, nullptr);
    if (!root || source->type != XML_ELEMENT_NODE)
        return root;
    const xmlNode* from = source;
    xmlNode* to = root;
    for (const xmlNode* next = from->children;;) {
        if (next) {
            xmlNode* copy = CopyNode(next, doc, to);
            if (copy && next->type == XML_ELEMENT_NODE && next->children) {
                from = next;
                to = copy;
                next = from->children;
            } else {
                next = next->next;
            }
            continue;
        }
        if (from == source)
            break;
        next = from->next;
        from = from->parent;
        to = to->parent;
    }
    return root;
}

// Whether an element or attribute has the qualified name, given in UTF-8; compared as bytes, so
// that a search of many nodes makes no text of each name.
bool HasQualifiedName(const xmlNode* node, std::string_view name) {
    const std::string_view local = C(node->name);
    if (!node->ns || !node->ns->prefix)
        return name == local;
    const std::string_view prefix = C(node->ns->prefix);
    return name.size() == prefix.size() + 1 + local.size() && name.starts_with(prefix) &&
           name[prefix.size()] == ':' && name.ends_with(local);
}

xmlAttr* FindAttribute(xmlNode* element, const CString& name) {
    const std::string utf8 = name.ToUtf8();
    for (xmlAttr* attribute = element->properties; attribute; attribute = attribute->next) {
        if (HasQualifiedName(reinterpret_cast<xmlNode*>(attribute), utf8))
            return attribute;
    }
    return nullptr;
}

std::string QualifiedUtf8Name(const xmlNode* node) {
    std::string name = C(node->name);
    if (node->ns && node->ns->prefix)
        name = std::string(C(node->ns->prefix)) + ':' + name;
    return name;
}

// The attributes of an element by qualified name: searched in turn while few, through a hash
// once many.
class AttributeIndex {
public:
    void Add(std::string name, xmlAttr* attribute) {
        m_attributes.emplace_back(std::move(name), attribute);
        if (m_attributes.size() == c_mostSearchedInTurn + 1) {
            for (const auto& [each, node] : m_attributes)
                m_byName.emplace(each, node);
        } else if (m_attributes.size() > c_mostSearchedInTurn) {
            m_byName.emplace(m_attributes.back().first, attribute);
        }
    }
    xmlAttr* Find(const std::string& name) const {
        if (m_attributes.size() > c_mostSearchedInTurn) {
            const auto found = m_byName.find(name);
            return found == m_byName.end() ? nullptr : found->second;
        }
        for (const auto& [each, node] : m_attributes) {
            if (each == name)
                return node;
        }
        return nullptr;
    }

private:
    static constexpr std::size_t c_mostSearchedInTurn = 32;
    // A deque keeps the names where they are, for the views of the hash.
    std::deque<std::pair<std::string, xmlAttr*>> m_attributes;
    std::unordered_map<std::string_view, xmlAttr*> m_byName;
};

bool IsElementNamed(const xmlNode* node, std::string_view name) {
    return node->type == XML_ELEMENT_NODE && HasQualifiedName(node, name);
}

CString Content(const xmlNode* node) {
    return TakeXml(xmlNodeGetContent(node));
}

// The value of an attribute; one text child, as parsing makes, is read without a copy.
CString AttributeValue(const xmlAttr* attribute) {
    const xmlNode* child = attribute->children;
    if (!child)
        return CString();
    if (!child->next && child->type == XML_TEXT_NODE)
        return FromXml(child->content);
    return Content(reinterpret_cast<const xmlNode*>(attribute));
}

CString LibraryError(const xmlError* error) {
    if (!error || !error->message)
        return u"The text is not XML";
    CString message = CString::FromUtf8(error->message).Trim();
    // The library's texts for its limits speak of its options and buffers.
    if (message.Left(15) == u"Excessive depth")
        message = u"elements are nested too deeply";
    else if (message == u"internal error: Huge input lookup")
        message = u"a text is too long";
    if (error->line > 0)
        message = CString::Formatted(u"Line %d: %s", error->line, message);
    return message;
}

// What a parse met: the first error, and whether it stopped at an entity declaration or
// reference.
struct ParseGuard {
    bool refused = false;
    int line = 0;
    CString firstError;
};

void RecordFirstError(void* context, xmlError* error) {
    auto* parser = static_cast<xmlParserCtxt*>(context);
    auto* guard = static_cast<ParseGuard*>(parser->_private);
    if (error->level >= XML_ERR_ERROR && guard->firstError.IsEmpty())
        guard->firstError = LibraryError(error);
}

void Refuse(void* context) {
    auto* parser = static_cast<xmlParserCtxt*>(context);
    auto* guard = static_cast<ParseGuard*>(parser->_private);
    if (!guard->refused) {
        guard->refused = true;
        guard->line = xmlSAX2GetLineNumber(context);
    }
    xmlStopParser(parser);
}

void RefuseEntityDeclaration(void* context, const xmlChar*, int, const xmlChar*, const xmlChar*,
                             xmlChar*) {
    Refuse(context);
}

void RefuseUnparsedEntityDeclaration(void* context, const xmlChar*, const xmlChar*, const xmlChar*,
                                     const xmlChar*) {
    Refuse(context);
}

void RefuseReference(void* context, const xmlChar*) {
    Refuse(context);
}

void IgnoreMessage(void*, const char*, ...) {}

void IgnoreStructuredError(void*, xmlError*) {}

// Frees what libxml2 or libxslt made, with the function the library gives for it.
template <auto Free>
struct LibraryFree {
    void operator()(auto* object) const { Free(object); }
};
template <class T, auto Free>
using LibraryPtr = std::unique_ptr<T, LibraryFree<Free>>;
using BufferPtr = LibraryPtr<xmlBuffer, xmlBufferFree>;

using XPathObjectPtr = LibraryPtr<xmlXPathObject, xmlXPathFreeObject>;
using XPathContextPtr = LibraryPtr<xmlXPathContext, xmlXPathFreeContext>;
using ParserContextPtr = LibraryPtr<xmlParserCtxt, xmlFreeParserCtxt>;
using DocPtr = LibraryPtr<xmlDoc, xmlFreeDoc>;

// Serialises a node or a whole document as UTF-8, without indentation.
CString Serialise(xmlNode* node) {
    BufferPtr buffer(xmlBufferCreate());
    if (!buffer)
        return CString();
    xmlSaveCtxt* save = xmlSaveToBuffer(buffer.get(), "UTF-8", 0);
    if (!save)
        return CString();
    if (node->type == XML_DOCUMENT_NODE)
        xmlSaveDoc(save, reinterpret_cast<xmlDoc*>(node));
    else
        xmlSaveTree(save, node);
    xmlSaveClose(save);
    return CString::FromUtf8(C(xmlBufferContent(buffer.get())));
}

// An element that holds CDATA, with its namespace, for the transform's output settings.
struct CDataElement {
    CString qualifiedName;
    std::string localName;
    std::string namespaceUri;
};

std::vector<CDataElement> CDataElements(xmlNode* top) {
    std::vector<CDataElement> elements;
    std::vector<const xmlNode*> seen;
    ForEachInSubtree(top, false, [&](xmlNode* node) {
        if (node->type != XML_CDATA_SECTION_NODE || !node->parent ||
            node->parent->type != XML_ELEMENT_NODE)
            return;
        const xmlNode* element = node->parent;
        const CString name = QualifiedName(element);
        const std::string uri = element->ns && element->ns->href ? C(element->ns->href) : "";
        for (const CDataElement& known : elements) {
            if (known.qualifiedName == name && known.namespaceUri == uri)
                return;
        }
        elements.push_back({name, C(element->name), uri});
    });
    return elements;
}

// Keeps the libraries' own error output off the standard error stream of the process while it
// lives; failures are reported through results.
class QuietLibraryErrors {
public:
    QuietLibraryErrors()
        : m_generic(xmlGenericError), m_genericContext(xmlGenericErrorContext),
          m_structured(xmlStructuredError), m_structuredContext(xmlStructuredErrorContext),
          m_xslt(xsltGenericError), m_xsltContext(xsltGenericErrorContext) {
        xmlSetGenericErrorFunc(nullptr, IgnoreMessage);
        xmlSetStructuredErrorFunc(nullptr, IgnoreStructuredError);
        xsltSetGenericErrorFunc(nullptr, IgnoreMessage);
    }
    ~QuietLibraryErrors() {
        xmlSetGenericErrorFunc(m_genericContext, m_generic);
        xmlSetStructuredErrorFunc(m_structuredContext, m_structured);
        xsltSetGenericErrorFunc(m_xsltContext, m_xslt);
    }
    QuietLibraryErrors(const QuietLibraryErrors&) = delete;
    QuietLibraryErrors& operator=(const QuietLibraryErrors&) = delete;

private:
    xmlGenericErrorFunc m_generic;
    void* m_genericContext;
    xmlStructuredErrorFunc m_structured;
    void* m_structuredContext;
    xmlGenericErrorFunc m_xslt;
    void* m_xsltContext;
};

// What the parser makes of the start of a text: the encoding its byte order mark or declaration
// names (empty for UTF-8). It stops right after the declaration.
struct EncodingProbe {
    bool reached = false;
    std::string encoding;
};

void RecordEncoding(void* context) {
    auto* parser = static_cast<xmlParserCtxt*>(context);
    auto* probe = static_cast<EncodingProbe*>(parser->_private);
    probe->reached = true;
    if (parser->input && parser->input->buf && parser->input->buf->encoder)
        probe->encoding = parser->input->buf->encoder->name;
    xmlStopParser(parser);
}

bool ProbeEncodingOf(std::string_view bytes, std::string& encoding, CString& error) {
    const ParserContextPtr parser(xmlNewParserCtxt());
    if (!parser) {
        error = u"Out of memory";
        return false;
    }
    EncodingProbe probe;
    parser->_private = &probe;
    parser->sax->startDocument = RecordEncoding;
    constexpr int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    xmlFreeDoc(xmlCtxtReadMemory(parser.get(), bytes.data(), static_cast<int>(bytes.size()),
                                 nullptr, nullptr, options));
    if (!probe.reached) {
        error = LibraryError(xmlCtxtGetLastError(parser.get()));
        return false;
    }
    encoding = probe.encoding;
    return true;
}

// The parser copies what it is given whole, and the declaration lies at the start: a first look
// at the start alone is enough but for a declaration spread wider.
bool ProbeEncoding(std::string_view bytes, std::string& encoding, CString& error) {
    constexpr std::size_t c_start = 4096;
    if (bytes.size() > c_start && ProbeEncodingOf(bytes.substr(0, c_start), encoding, error))
        return true;
    return ProbeEncodingOf(bytes, encoding, error);
}

bool DecodeToUtf8(std::string_view bytes, const std::string& encoding, std::string& utf8) {
    xmlCharEncodingHandler* handler = xmlFindCharEncodingHandler(encoding.c_str());
    if (!handler)
        return false;
    BufferPtr in(xmlBufferCreate());
    BufferPtr out(xmlBufferCreate());
    bool decoded = in && out;
    constexpr std::size_t chunk = 1 << 20;
    for (std::size_t at = 0; decoded && at < bytes.size(); at += chunk) {
        const std::string_view part = bytes.substr(at, chunk);
        decoded =
            xmlBufferAdd(in.get(), X(std::string(part)), static_cast<int>(part.size())) == 0 &&
            xmlCharEncInFunc(handler, out.get(), in.get()) >= 0;
    }
    decoded = decoded && xmlBufferLength(in.get()) == 0;
    if (decoded)
        utf8.assign(C(xmlBufferContent(out.get())), xmlBufferLength(out.get()));
    xmlCharEncCloseFunc(handler);
    return decoded;
}

// The end of the markup that starts at `at` and ends with `end`, or the end of the text.
std::size_t Skip(std::string_view text, std::size_t at, std::string_view end, int& line) {
    const std::size_t found = text.find(end, at);
    const std::size_t stop = found == std::string_view::npos ? text.size() : found + end.size();
    line += static_cast<int>(std::count(text.begin() + at, text.begin() + stop, '\n'));
    return stop;
}

// The line of the first tag with more than `limit` attributes, 0 when there is none. The
// parser's cost for a tag grows with the square of its attributes, so such tags are refused
// before it sees them.
int LineOfElementWithTooManyAttributes(std::string_view text, int limit) {
    int line = 1;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] != '<') {
            line += text[at++] == '\n' ? 1 : 0;
            continue;
        }
        if (text.substr(at, 4) == "<!--") {
            at = Skip(text, at, "-->", line);
            continue;
        }
        if (text.substr(at, 9) == "<![CDATA[") {
            at = Skip(text, at, "]]>", line);
            continue;
        }
        if (text.substr(at, 2) == "<?") {
            at = Skip(text, at, "?>", line);
            continue;
        }
        const int tagLine = line;
        int attributes = 0;
        char quote = 0;
        for (++at; at < text.size(); ++at) {
            const char ch = text[at];
            line += ch == '\n' ? 1 : 0;
            if (quote) {
                quote = ch == quote ? 0 : quote;
            } else if (ch == '"' || ch == '\'') {
                quote = ch;
            } else if (ch == '=' && ++attributes > limit) {
                return tagLine;
            } else if (ch == '<' || ch == '>') {
                at += ch == '>' ? 1 : 0;
                break;
            }
        }
    }
    return 0;
}

} // namespace

// The library's document and what keeps its nodes alive: the handles that point into it, and
// the subtrees taken out of it that a handle still reaches into.
class QXMLTree : public QSmartTarget {
public:
    explicit QXMLTree(xmlDoc* doc) : m_doc(doc) {}
    ~QXMLTree() override {
        for (const auto& [root, pins] : m_parked)
            xmlFreeNode(root);
        for (xmlNs* ns : m_ownedNamespaces)
            xmlFreeNs(ns);
        xmlFreeDoc(m_doc);
    }
    QXMLTree(const QXMLTree&) = delete;
    QXMLTree& operator=(const QXMLTree&) = delete;

    xmlDoc* Doc() const { return m_doc; }

    void Pin(xmlNode* node) {
        ++m_handles[node];
        if (xmlNode* root = ParkedRoot(node))
            ++m_parked[root];
    }
    void Unpin(xmlNode* node) {
        const auto handle = m_handles.find(node);
        if (--handle->second == 0)
            m_handles.erase(handle);
        if (xmlNode* root = ParkedRoot(node)) {
            if (--m_parked[root] == 0)
                FreeParked(root);
        }
    }

    // Takes a node out of the tree: freed now, or kept until no handle reaches into it.
    void Discard(xmlNode* node) {
        xmlUnlinkNode(node);
        const int pins = CountPins(node);
        if (pins == 0) {
            xmlFreeNode(node);
            return;
        }
        KeepNamespacesOf(node);
        m_parked[node] = pins;
    }

    // Moves a node of this tree to the end of the children of `parent`.
    void Move(xmlNode* node, xmlNode* parent) {
        xmlNode* from = ParkedRoot(node);
        xmlNode* to = ParkedRoot(parent);
        const int pins = from != to ? CountPins(node) : 0;
        xmlUnlinkNode(node);
        AppendChild(parent, node);
        if (node->type == XML_ELEMENT_NODE)
            xmlReconciliateNs(m_doc, node);
        if (to)
            m_parked[to] += pins;
        if (from == node)
            m_parked.erase(node);
        else if (from && (m_parked[from] -= pins) == 0)
            FreeParked(from);
    }

    // Sets the text of an attribute: its text children are replaced by one.
    void ReplaceChildrenWithText(xmlNode* node, const std::string& text) {
        while (node->children)
            Discard(node->children);
        if (xmlNode* child = xmlNewDocText(m_doc, X(text)))
            AppendChild(node, child);
    }

    std::vector<std::pair<std::string, std::string>> m_namespaces;

private:
    // The root of the removed subtree that holds the node, or null for a node in the document.
    xmlNode* ParkedRoot(xmlNode* node) const {
        if (m_parked.empty())
            return nullptr;
        xmlNode* top = Top(node);
        return m_parked.contains(top) ? top : nullptr;
    }
    int CountPins(xmlNode* node) const {
        if (m_handles.empty())
            return 0;
        int pins = 0;
        ForEachInSubtree(node, true, [&](xmlNode* each) {
            if (const auto handle = m_handles.find(each); handle != m_handles.end())
                pins += handle->second;
        });
        return pins;
    }
    void FreeParked(xmlNode* root) {
        m_parked.erase(root);
        xmlFreeNode(root);
    }
    // A removed subtree may outlive the elements that declared its namespaces: elements get
    // declarations of their own, an attribute a copy of its namespace.
    void KeepNamespacesOf(xmlNode* node) {
        if (node->type == XML_ELEMENT_NODE) {
            xmlReconciliateNs(m_doc, node);
            return;
        }
        if (node->type != XML_ATTRIBUTE_NODE || !node->ns || node->ns == m_doc->oldNs)
            return;
        if (xmlNs* copy = xmlNewNs(nullptr, node->ns->href, node->ns->prefix)) {
            m_ownedNamespaces.push_back(copy);
            node->ns = copy;
        }
    }

    xmlDoc* m_doc;
    std::unordered_map<xmlNode*, int> m_handles;
    std::unordered_map<xmlNode*, int> m_parked;
    std::vector<xmlNs*> m_ownedNamespaces;
};

// ---------------------------------------------------------------------------------------------
// QXMLNode

QXMLNode::QXMLNode(QSmartPtr<QXMLTree> tree, xmlNode* node)
    : m_tree(std::move(tree)), m_node(node) {
    m_tree->Pin(m_node);
}

QXMLNode::~QXMLNode() {
    m_tree->Unpin(m_node);
}

bool QXMLNode::IsElement() const {
    return m_node->type == XML_ELEMENT_NODE;
}

QSmartPtr<QXMLNode> QXMLNode::Handle(xmlNode* node) const {
    if (!node || !IsWrappable(node))
        return {};
    return QSmartPtr<QXMLNode>(new QXMLNode(m_tree, node));
}

QSmartPtr<QXMLNode> QXMLNode::AppendNew(xmlNode* child) {
    if (!child)
        return {};
    AppendChild(m_node, child);
    return Handle(child);
}

QSmartPtr<QXMLNode> QXMLNode::AddNode(const QSmartPtr<QXMLNode>& node) {
    if (!IsElement() || !node || !IsMovable(node->m_node))
        return {};
    if (node->m_tree == m_tree) {
        if (IsAncestorOrSelf(node->m_node, m_node))
            return {};
        m_tree->Move(node->m_node, m_node);
        return node;
    }
    return AppendNew(CopyTree(node->m_node, m_tree->Doc()));
}

QSmartPtr<QXMLNode> QXMLNode::AddNode(const CString& name) {
    if (!IsElement() || !IsXmlName(name))
        return {};
    const auto [prefix, local] = SplitQName(name);
    xmlNs* ns = prefix.empty() ? nullptr : xmlSearchNs(m_tree->Doc(), m_node, X(prefix));
    const std::string element = ns ? local : name.ToUtf8();
    return AppendNew(xmlNewDocNode(m_tree->Doc(), ns, X(element), nullptr));
}

QSmartPtr<QXMLNode> QXMLNode::AddNode(const CString& name, const CString& text) {
    if (!IsXmlText(text))
        return {};
    QSmartPtr<QXMLNode> child = AddNode(name);
    if (child && !text.IsEmpty())
        child->UpdateText(text);
    return child;
}

bool QXMLNode::RemoveNode(const QSmartPtr<QXMLNode>& node) {
    if (!node || node->m_tree != m_tree || node->m_node->parent != m_node ||
        node->m_node->type == XML_ATTRIBUTE_NODE)
        return false;
    m_tree->Discard(node->m_node);
    return true;
}

bool QXMLNode::RemoveNode(const CString& path, long index) {
    QArray<QSmartPtr<QXMLNode>> nodes;
    if (!GetNodes(path, nodes) || index < 0 || index >= nodes.GetCount())
        return false;
    xmlNode* node = nodes[static_cast<int>(index)]->m_node;
    if (node == m_node || !IsAncestorOrSelf(m_node, node))
        return false;
    m_tree->Discard(node);
    return true;
}

bool QXMLNode::GetAllNodes(QArray<QSmartPtr<QXMLNode>>& nodes) const {
    nodes.RemoveAll();
    if (!Descends(m_node))
        return false;
    for (xmlNode* child = m_node->children; child; child = child->next) {
        if (QSmartPtr<QXMLNode> handle = Handle(child))
            nodes.Add(handle);
    }
    return !nodes.IsEmpty();
}

bool QXMLNode::GetNodes(const CString& path, QArray<QSmartPtr<QXMLNode>>& nodes) const {
    nodes.RemoveAll();
    XPathContextPtr context(xmlXPathNewContext(m_tree->Doc()));
    if (!context)
        return false;
    context->node = m_node;
    context->error = IgnoreStructuredError;
    for (const auto& [prefix, uri] : m_tree->m_namespaces)
        xmlXPathRegisterNs(context.get(), X(prefix), X(uri));
    const XPathObjectPtr result(xmlXPathEvalExpression(X(path.ToUtf8()), context.get()));
    if (!result || result->type != XPATH_NODESET || !result->nodesetval)
        return false;
    const xmlNodeSet* set = result->nodesetval;
    for (int i = 0; i < set->nodeNr; ++i) {
        if (QSmartPtr<QXMLNode> handle = Handle(set->nodeTab[i]))
            nodes.Add(handle);
    }
    return !nodes.IsEmpty();
}

QSmartPtr<QXMLNode> QXMLNode::GetNode(const CString& path) const {
    return GetFirstNode(path);
}

QSmartPtr<QXMLNode> QXMLNode::GetFirstNode(const CString& path) const {
    QArray<QSmartPtr<QXMLNode>> nodes;
    return GetNodes(path, nodes) ? nodes.GetHead() : QSmartPtr<QXMLNode>();
}

QSmartPtr<QXMLNode> QXMLNode::GetLastNode(const CString& path) const {
    QArray<QSmartPtr<QXMLNode>> nodes;
    return GetNodes(path, nodes) ? nodes.GetTail() : QSmartPtr<QXMLNode>();
}

bool QXMLNode::HasAnyChildNodes() const {
    return ChildNodeCount() > 0;
}

std::int64_t QXMLNode::ChildNodeCount() const {
    std::int64_t count = 0;
    if (Descends(m_node)) {
        for (const xmlNode* child = m_node->children; child; child = child->next)
            count += IsWrappable(child) ? 1 : 0;
    }
    return count;
}

std::int64_t QXMLNode::DescendantNodeCount() const {
    std::int64_t count = 0;
    ForEachInSubtree(m_node, false, [&](xmlNode* node) {
        if (node != m_node && IsWrappable(node))
            ++count;
    });
    return count;
}

bool QXMLNode::GetChildElements(const CString& name, QArray<QSmartPtr<QXMLNode>>& nodes) const {
    nodes.RemoveAll();
    if (!IsElement())
        return false;
    const std::string utf8 = name.ToUtf8();
    for (xmlNode* child = m_node->children; child; child = child->next) {
        if (IsElementNamed(child, utf8))
            nodes.Add(Handle(child));
    }
    return !nodes.IsEmpty();
}

QSmartPtr<QXMLNode> QXMLNode::GetFirstChildElement(const CString& name) const {
    if (!IsElement())
        return {};
    const std::string utf8 = name.ToUtf8();
    for (xmlNode* child = m_node->children; child; child = child->next) {
        if (IsElementNamed(child, utf8))
            return Handle(child);
    }
    return {};
}

QSmartPtr<QXMLNode> QXMLNode::GetFirstChildElementWithId(const CString& name,
                                                         const CString& id) const {
    if (!IsElement())
        return {};
    const std::string utf8 = name.ToUtf8();
    for (xmlNode* child = m_node->children; child; child = child->next) {
        if (!IsElementNamed(child, utf8))
            continue;
        const xmlAttr* attribute = FindAttribute(child, u"id");
        if (attribute && AttributeValue(attribute) == id)
            return Handle(child);
    }
    return {};
}

bool QXMLNode::AddAttribute(const CString& name, const CString& value) {
    if (!IsElement() || !IsXmlName(name) || IsNamespaceDeclaration(name) || !IsXmlText(value))
        return false;
    if (xmlAttr* attribute = FindAttribute(m_node, name)) {
        m_tree->ReplaceChildrenWithText(reinterpret_cast<xmlNode*>(attribute), value.ToUtf8());
        return true;
    }
    const auto [prefix, local] = SplitQName(name);
    xmlNs* ns = prefix.empty() ? nullptr : xmlSearchNs(m_tree->Doc(), m_node, X(prefix));
    const std::string attributeName = ns ? local : name.ToUtf8();
    return xmlNewNsProp(m_node, ns, X(attributeName), X(value.ToUtf8())) != nullptr;
}

bool QXMLNode::AddAttributes(const QArray<QXMLAttribute>& attributes) {
    if (!IsElement())
        return false;
    AttributeIndex present;
    xmlAttr* last = nullptr;
    for (xmlAttr* attribute = m_node->properties; attribute; attribute = attribute->next) {
        present.Add(QualifiedUtf8Name(reinterpret_cast<xmlNode*>(attribute)), attribute);
        last = attribute;
    }
    bool added = true;
    for (const QXMLAttribute& attribute : attributes) {
        std::string name = attribute.m_name.ToUtf8();
        if (!IsXmlText(attribute.m_name) || name.empty() || xmlValidateQName(X(name), 0) != 0 ||
            IsNamespaceDeclaration(attribute.m_name) || !IsXmlText(attribute.m_value)) {
            added = false;
            continue;
        }
        const std::string value = attribute.m_value.ToUtf8();
        if (xmlAttr* found = present.Find(name)) {
            m_tree->ReplaceChildrenWithText(reinterpret_cast<xmlNode*>(found), value);
            continue;
        }
        const std::size_t colon = name.find(':');
        xmlNs* ns = colon == std::string::npos
                        ? nullptr
                        : xmlSearchNs(m_tree->Doc(), m_node, X(name.substr(0, colon)));
        // Made apart from the element and linked after the last attribute: the library's own
        // way walks the element's whole list for each one.
        xmlAttr* made =
            xmlNewNsProp(nullptr, ns, ns ? X(name.substr(colon + 1)) : X(name), X(value));
        if (!made) {
            added = false;
            continue;
        }
        xmlSetTreeDoc(reinterpret_cast<xmlNode*>(made), m_tree->Doc());
        made->parent = m_node;
        made->prev = last;
        if (last)
            last->next = made;
        else
            m_node->properties = made;
        last = made;
        present.Add(std::move(name), made);
    }
    return added;
}

bool QXMLNode::UpdateAttribute(const CString& name, const CString& value) {
    if (!IsElement() || !FindAttribute(m_node, name))
        return false;
    return AddAttribute(name, value);
}

bool QXMLNode::RemoveAttribute(const CString& name) {
    xmlAttr* attribute = IsElement() ? FindAttribute(m_node, name) : nullptr;
    if (!attribute)
        return false;
    m_tree->Discard(reinterpret_cast<xmlNode*>(attribute));
    return true;
}

bool QXMLNode::GetAttribute(const CString& name, CString& value) const {
    value.Empty();
    const xmlAttr* attribute = IsElement() ? FindAttribute(m_node, name) : nullptr;
    if (!attribute)
        return false;
    value = AttributeValue(attribute);
    return true;
}

bool QXMLNode::TakeAttribute(const CString& name, CString& value) {
    value.Empty();
    xmlAttr* attribute = IsElement() ? FindAttribute(m_node, name) : nullptr;
    if (!attribute)
        return false;
    value = AttributeValue(attribute);
    m_tree->Discard(reinterpret_cast<xmlNode*>(attribute));
    return true;
}

CString QXMLNode::GetAttribute(const CString& name) const {
    CString value;
    GetAttribute(name, value);
    return value;
}

bool QXMLNode::GetAttributes(QArray<QXMLAttribute>& attributes) const {
    attributes.RemoveAll();
    if (!IsElement())
        return false;
    for (const xmlAttr* attribute = m_node->properties; attribute; attribute = attribute->next) {
        const auto* node = reinterpret_cast<const xmlNode*>(attribute);
        attributes.Add({QualifiedName(node), Content(node)});
    }
    return !attributes.IsEmpty();
}

bool QXMLNode::HasAnyAttributes() const {
    return IsElement() && m_node->properties != nullptr;
}

CString QXMLNode::GetNamespaceURI() const {
    const bool named = m_node->type == XML_ELEMENT_NODE || m_node->type == XML_ATTRIBUTE_NODE;
    if (!named || !m_node->ns || !m_node->ns->href)
        return CString();
    return FromXml(m_node->ns->href);
}

CString QXMLNode::GetName() const {
    switch (m_node->type) {
    case XML_ELEMENT_NODE:
    case XML_ATTRIBUTE_NODE:
        return QualifiedName(m_node);
    case XML_PI_NODE:
        return FromXml(m_node->name);
    case XML_TEXT_NODE:
        return u"#text";
    case XML_CDATA_SECTION_NODE:
        return u"#cdata-section";
    case XML_COMMENT_NODE:
        return u"#comment";
    case XML_DOCUMENT_NODE:
        return u"#document";
    default:
        return CString();
    }
}

CString QXMLNode::GetText() const {
    if (!IsElement())
        return Content(m_node);
    std::string text;
    for (const xmlNode* child = m_node->children; child; child = child->next) {
        if (IsTextOrCData(child) && child->content)
            text += C(child->content);
    }
    return CString::FromUtf8(text);
}

CString QXMLNode::GetTextForSubtree() const {
    return Content(m_node);
}

bool QXMLNode::UpdateText(const CString& text) {
    if (!IsXmlText(text) || m_node->type == XML_DOCUMENT_NODE)
        return false;
    if (m_node->type == XML_ATTRIBUTE_NODE) {
        m_tree->ReplaceChildrenWithText(m_node, text.ToUtf8());
        return true;
    }
    if (!IsElement()) {
        if (m_node->type == XML_CDATA_SECTION_NODE && text.Find(u"]]>") >= 0)
            return false;
        if (m_node->type == XML_COMMENT_NODE && (text.Find(u"--") >= 0 || text.Right(1) == u"-"))
            return false;
        xmlNodeSetContent(m_node, X(text.ToUtf8()));
        return true;
    }
    RemoveText();
    if (!text.IsEmpty())
        AppendNew(xmlNewDocText(m_tree->Doc(), X(text.ToUtf8())));
    return true;
}

bool QXMLNode::RemoveText() {
    if (!IsElement())
        return false;
    for (xmlNode* child = m_node->children; child;) {
        xmlNode* next = child->next;
        if (IsTextOrCData(child))
            m_tree->Discard(child);
        child = next;
    }
    return true;
}

bool QXMLNode::AddCDATANode(const CString& text) {
    if (!IsElement() || !IsXmlText(text))
        return false;
    const std::string bytes = text.ToUtf8();
    if (bytes.size() > INT_MAX)
        return false;
    return AppendNew(xmlNewCDataBlock(m_tree->Doc(), X(bytes), static_cast<int>(bytes.size()))) !=
           nullptr;
}

bool QXMLNode::GetComment(long index, CString& text) const {
    text.Empty();
    const QSmartPtr<QXMLNode> comment = GetNode(CString::Formatted(u"comment()[%d]", index));
    if (!comment)
        return false;
    text = comment->GetText();
    return true;
}

CString QXMLNode::GetComment(long index) const {
    CString text;
    GetComment(index, text);
    return text;
}

bool QXMLNode::IsName(const CString& name) {
    return IsXmlName(name);
}

bool QXMLNode::IsText(const CString& text) {
    return IsXmlText(text);
}

CString QXMLNode::ToString() const {
    return Serialise(m_node);
}

void QXMLNode::CollectAllCDATANodeNames(QArray<CString>& names) const {
    names.RemoveAll();
    for (const CDataElement& element : CDataElements(m_node)) {
        if (names.Find(element.qualifiedName) < 0)
            names.Add(element.qualifiedName);
    }
}

// ---------------------------------------------------------------------------------------------
// QXMLDoc

QXMLDoc::QXMLDoc() = default;

QXMLDoc::QXMLDoc(const CString& text) {
    FromString(text);
}

QXMLDoc::QXMLDoc(const char* text) {
    FromString(CString::FromUtf8(text ? text : ""));
}

QXMLDoc::QXMLDoc(CFile& file) {
    FromFile(file);
}

QXMLDoc::~QXMLDoc() = default;

void QXMLDoc::Replace(QSmartPtr<QXMLTree> tree) {
    if (tree)
        tree->m_namespaces = m_namespaces;
    m_tree = std::move(tree);
}

bool QXMLDoc::FromString(const CString& text) {
    return Parse(text.ToUtf8(), true);
}

bool QXMLDoc::FromBytes(std::string_view bytes) {
    return Parse(bytes, false);
}

bool QXMLDoc::FromFile(CFile& file) {
    std::string bytes;
    try {
        file.SeekToBegin();
        const unsigned long long length = file.GetLength();
        if (length > INT_MAX) {
            Replace(nullptr);
            m_parseError = u"The file is too large to read as XML";
            return false;
        }
        bytes.resize(static_cast<std::size_t>(length));
        std::size_t got = 0;
        while (got < bytes.size()) {
            const unsigned read = file.Read(bytes.data() + got, unsigned(bytes.size() - got));
            if (read == 0)
                break;
            got += read;
        }
        bytes.resize(got);
    } catch (const CFileException& failure) {
        Replace(nullptr);
        m_parseError = ErrorMessage(failure);
        return false;
    }
    return FromBytes(bytes);
}

bool QXMLDoc::Parse(std::string_view bytes, bool isUtf8) {
    Replace(nullptr);
    m_parseError.Empty();
    const QuietLibraryErrors quiet;
    if (bytes.size() > INT_MAX) {
        m_parseError = u"The text is too large to read as XML";
        return false;
    }
    std::string decoded;
    if (!isUtf8) {
        std::string encoding;
        if (!ProbeEncoding(bytes, encoding, m_parseError))
            return false;
        if (!encoding.empty() && encoding != "UTF-8") {
            if (!DecodeToUtf8(bytes, encoding, decoded)) {
                m_parseError = CString::Formatted(u"The text is not valid %hs", encoding);
                return false;
            }
            bytes = decoded;
        }
    }
    if (const int line = LineOfElementWithTooManyAttributes(bytes, c_maxAttributesPerElement)) {
        m_parseError = CString::Formatted(u"Line %d: an element has more than %d attributes", line,
                                          c_maxAttributesPerElement);
        return false;
    }
    return ParseUtf8(bytes);
}

bool QXMLDoc::ParseUtf8(std::string_view text) {
    if (text.size() > INT_MAX) {
        m_parseError = u"The text is too large to read as XML";
        return false;
    }
    const ParserContextPtr parser(xmlNewParserCtxt());
    if (!parser) {
        m_parseError = u"Out of memory";
        return false;
    }
    ParseGuard guard;
    parser->_private = &guard;
    parser->sax->entityDecl = RefuseEntityDeclaration;
    parser->sax->unparsedEntityDecl = RefuseUnparsedEntityDeclaration;
    parser->sax->reference = RefuseReference;
    parser->sax->serror = RecordFirstError;
    constexpr int options = XML_PARSE_NONET | XML_PARSE_NOBLANKS | XML_PARSE_NOERROR |
                            XML_PARSE_NOWARNING | XML_PARSE_IGNORE_ENC;
    DocPtr doc(xmlCtxtReadMemory(parser.get(), text.data(), static_cast<int>(text.size()), nullptr,
                                 "UTF-8", options));
    if (guard.refused) {
        m_parseError = CString::Formatted(u"Line %d: entities are not accepted", guard.line);
        return false;
    }
    if (!doc || !parser->wellFormed || !xmlDocGetRootElement(doc.get())) {
        m_parseError = guard.firstError.IsEmpty() ? LibraryError(xmlCtxtGetLastError(parser.get()))
                                                  : guard.firstError;
        return false;
    }
    Replace(QSmartPtr<QXMLTree>(new QXMLTree(doc.release())));
    return true;
}

bool QXMLDoc::FromXMLNode(QXMLNode& node) {
    if (!node.IsElement())
        return false;
    DocPtr doc(xmlNewDoc(X("1.0")));
    if (!doc)
        return false;
    xmlNode* copy = CopyTree(node.m_node, doc.get());
    if (!copy)
        return false;
    xmlDocSetRootElement(doc.get(), copy);
    m_parseError.Empty();
    Replace(QSmartPtr<QXMLTree>(new QXMLTree(doc.release())));
    return true;
}

QSmartPtr<QXMLNode> QXMLDoc::RootNode() const {
    if (!m_tree)
        return {};
    xmlNode* root = xmlDocGetRootElement(m_tree->Doc());
    if (!root)
        return {};
    return QSmartPtr<QXMLNode>(new QXMLNode(m_tree, root));
}

bool QXMLDoc::SetSelectionNamespaces(const CString& declarations) {
    std::vector<std::pair<std::string, std::string>> namespaces;
    const std::string text = declarations.ToUtf8();
    std::size_t at = 0;
    const auto skipBlanks = [&] {
        while (at < text.size() &&
               (text[at] == ' ' || text[at] == '\t' || text[at] == '\r' || text[at] == '\n'))
            ++at;
    };
    for (skipBlanks(); at < text.size(); skipBlanks()) {
        if (text.compare(at, 6, "xmlns:") != 0)
            return false;
        const std::size_t equals = text.find('=', at);
        if (equals == std::string::npos || equals + 1 >= text.size())
            return false;
        const std::string prefix = text.substr(at + 6, equals - at - 6);
        const char quote = text[equals + 1];
        const std::size_t close =
            quote == '"' || quote == '\'' ? text.find(quote, equals + 2) : std::string::npos;
        if (close == std::string::npos || xmlValidateNCName(X(prefix), 0) != 0)
            return false;
        namespaces.emplace_back(prefix, text.substr(equals + 2, close - equals - 2));
        at = close + 1;
    }
    m_namespaces = namespaces;
    if (m_tree)
        m_tree->m_namespaces = std::move(namespaces);
    return true;
}

bool QXMLDoc::ToString(CString& text) const {
    text.Empty();
    const QSmartPtr<QXMLNode> root = RootNode();
    if (!root)
        return false;
    if (root->DescendantNodeCount() > c_maxNodesToIndent) {
        text = PlainText();
        return true;
    }
    if (!TransformedText(text)) {
        static const QTString message(u"Failed to apply stylesheet to XML Document",
                                      u"Message box");
        static const QTString title(u"XML Save", u"Message box");
        QMessageBoxOrLog(message, title, true);
        text = PlainText();
    }
    return true;
}

CString QXMLDoc::ToString() const {
    CString text;
    ToString(text);
    return text;
}

CString QXMLDoc::PlainText() const {
    return Serialise(reinterpret_cast<xmlNode*>(m_tree->Doc()));
}

bool QXMLDoc::TransformedText(CString& text) const {
    const QuietLibraryErrors quiet;
    DocPtr styleDoc(xmlReadMemory(c_prettyPrintStylesheet.data(),
                                  static_cast<int>(c_prettyPrintStylesheet.size()), nullptr,
                                  nullptr, XML_PARSE_NONET));
    if (!styleDoc)
        return false;
    const std::vector<CDataElement> cdata = CDataElements(xmlDocGetRootElement(m_tree->Doc()));
    if (!cdata.empty()) {
        XPathContextPtr context(xmlXPathNewContext(styleDoc.get()));
        if (!context)
            return false;
        context->error = IgnoreStructuredError;
        xmlXPathRegisterNs(context.get(), X("xsl"), X(c_xsltNamespace));
        const XPathObjectPtr output(
            xmlXPathEvalExpression(X("/xsl:stylesheet/xsl:output"), context.get()));
        if (!output || !output->nodesetval || output->nodesetval->nodeNr != 1)
            return false;
        xmlNode* outputNode = output->nodesetval->nodeTab[0];
        // Elements in a namespace are named through prefixes of our own, declared right here.
        std::vector<std::string> uris;
        std::string names;
        for (const CDataElement& element : cdata) {
            std::string name = element.localName;
            if (!element.namespaceUri.empty()) {
                std::size_t index = 0;
                while (index < uris.size() && uris[index] != element.namespaceUri)
                    ++index;
                const std::string prefix = "k" + std::to_string(index);
                if (index == uris.size()) {
                    uris.push_back(element.namespaceUri);
                    xmlNewNs(outputNode, X(element.namespaceUri), X(prefix));
                }
                name = prefix + ":" + name;
            }
            names += (names.empty() ? "" : " ") + name;
        }
        xmlSetProp(outputNode, X("cdata-section-elements"), X(names));
    }
    xmlDoc* styleDocument = styleDoc.get();
    LibraryPtr<xsltStylesheet, xsltFreeStylesheet> style(xsltParseStylesheetDoc(styleDocument));
    if (!style)
        return false;
    styleDoc.release(); // the stylesheet owns it now
    LibraryPtr<xsltTransformContext, xsltFreeTransformContext> transform(
        xsltNewTransformContext(style.get(), m_tree->Doc()));
    if (!transform)
        return false;
    transform->maxTemplateDepth = c_maxTransformDepth;
    xsltSetTransformErrorFunc(transform.get(), nullptr, IgnoreMessage);
    DocPtr result(xsltApplyStylesheetUser(style.get(), m_tree->Doc(), nullptr, nullptr, nullptr,
                                          transform.get()));
    if (!result || transform->state != XSLT_STATE_OK)
        return false;
    xmlChar* bytes = nullptr;
    int size = 0;
    if (xsltSaveResultToString(&bytes, &size, result.get(), style.get()) != 0 || !bytes)
        return false;
    text = CString::FromUtf8(std::string_view(C(bytes), static_cast<std::size_t>(size)));
    xmlFree(bytes);
    return true;
}

} // namespace keel
