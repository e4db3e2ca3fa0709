// XML documents from anywhere: parsed as a string (the first byte even) or as bytes in whatever
// encoding they declare (odd), walked node by node through every read operation, changed a
// little, and written out. What is written must read back, and write again to the same text.

#include "keel/document/errorlog.h"
#include "keel/exchange/xmldoc.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

using namespace keel;

constexpr std::size_t c_maxInput = 1 << 16;
constexpr int c_maxNodesWalked = 20000;

void Require(bool condition) {
    if (!condition)
        __builtin_trap();
}

void ReadNode(const QXMLNode& node) {
    node.GetName();
    node.GetText();
    node.HasAnyAttributes();
    QArray<QXMLAttribute> attributes;
    node.GetAttributes(attributes);
    for (const QXMLAttribute& attribute : attributes) {
        CString value;
        Require(node.GetAttribute(attribute.m_name, value));
        Require(value == attribute.m_value);
    }
    node.GetComment(1);
}

// Every node once, without recursion, up to a budget.
void Walk(const QSmartPtr<QXMLNode>& root) {
    std::vector<QSmartPtr<QXMLNode>> pending{root};
    for (int walked = 0; !pending.empty() && walked < c_maxNodesWalked; ++walked) {
        const QSmartPtr<QXMLNode> node = pending.back();
        pending.pop_back();
        ReadNode(*node);
        QArray<QSmartPtr<QXMLNode>> children;
        node->GetAllNodes(children);
        Require(children.GetCount() == node->ChildNodeCount());
        for (int i = children.GetCount() - 1; i >= 0; --i)
            pending.push_back(children[i]);
    }
}

void Change(const QSmartPtr<QXMLNode>& root) {
    QArray<QSmartPtr<QXMLNode>> elements;
    if (root->GetNodes(u"*", elements)) {
        const QSmartPtr<QXMLNode> first = elements.GetHead();
        const CString name = first->GetName();
        const QSmartPtr<QXMLNode> found = root->GetFirstChildElement(name);
        Require(found && found->IsSameNode(*first));
        Require(root->RemoveNode(first));
        root->AddNode(first);
    }
    QArray<QXMLAttribute> attributes;
    root->GetAttributes(attributes);
    if (attributes.GetCount() < QXMLDoc::c_maxAttributesPerElement)
        root->AddAttribute(u"fuzz", u"<&>\"'");
    root->AddNode(u"added", u"text")->AddCDATANode(u"]]>");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::filesystem::path log = std::filesystem::temp_directory_path() /
                                      ("keel-xml-fuzz-" + std::to_string(::getpid()) + ".log");
    TheErrorLog().SetFilename(CString::FromUtf8(log.string()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > c_maxInput)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    QXMLDoc doc;
    const bool parsed =
        (data[0] & 1) == 0 ? doc.FromString(CString::FromUtf8(bytes)) : doc.FromBytes(bytes);
    Require(parsed == (doc.RootNode() != nullptr));
    Require(parsed == doc.GetParseError().IsEmpty());
    if (!parsed)
        return 0;
    const QSmartPtr<QXMLNode> root = doc.RootNode();
    Walk(root);
    root->GetTextForSubtree();
    root->DescendantNodeCount();
    Change(root);

    const CString text = doc.ToString();
    QXMLDoc again;
    Require(again.FromString(text));
    Require(again.ToString() == text);
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
