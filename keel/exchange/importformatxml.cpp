#include "keel/exchange/importformatxml.h"

#include "keel/exchange/exportformatxml.h"
#include "keel/formula/evaluatingdata.h"
#include "keel/platform/file.h"
#include "keel/platform/uiservices.h"

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace keel {

namespace {

// The evaluator reads no longer text.
constexpr int c_longestFormula = 32767;

constexpr char16_t c_formulaSuffix[] = u"-formula";
constexpr char16_t c_typeSuffix[] = u"-type";

// What the XML attributes N, N-formula and N-type of one name hold.
struct UnmatchedEntry {
    CString name;
    bool hasValue = false;
    CString value;
    bool hasType = false;
    CString type;
    bool hasFormula = false;
    CString formula;
};

bool CutSuffix(const CString& name, std::u16string_view suffix, CString& base) {
    const std::u16string_view view = name.View();
    if (view.size() <= suffix.size() || !view.ends_with(suffix))
        return false;
    base = CString(std::u16string(view.substr(0, view.size() - suffix.size())));
    return true;
}

// Entries in the order their first attribute comes, whatever order N, N-formula and N-type
// are in.
std::vector<UnmatchedEntry> GatherEntries(const QArray<QXMLAttribute>& attributes) {
    std::vector<UnmatchedEntry> entries;
    std::unordered_map<std::u16string, std::size_t> byName;
    const auto entryFor = [&](const CString& name) -> UnmatchedEntry& {
        const auto [found, added] = byName.emplace(std::u16string(name.View()), entries.size());
        if (added) {
            entries.emplace_back();
            entries.back().name = name;
        }
        return entries[found->second];
    };
    for (const QXMLAttribute& attribute : attributes) {
        CString base;
        if (CutSuffix(attribute.m_name, c_formulaSuffix, base)) {
            UnmatchedEntry& entry = entryFor(base);
            entry.hasFormula = true;
            entry.formula = attribute.m_value;
        } else if (CutSuffix(attribute.m_name, c_typeSuffix, base)) {
            UnmatchedEntry& entry = entryFor(base);
            entry.hasType = true;
            entry.type = attribute.m_value;
        } else {
            UnmatchedEntry& entry = entryFor(attribute.m_name);
            entry.hasValue = true;
            entry.value = attribute.m_value;
        }
    }
    return entries;
}

} // namespace

QImportFormatLevelXML::QImportFormatLevelXML(QImportable& importable)
    : QImportFormatLevel(importable) {}

QImportFormatLevelXML::QImportFormatLevelXML(QImportable& importable, QImportFormatLevel& parent,
                                             QSmartPtr<QXMLNode> parentNode,
                                             QSmartPtr<QXMLNode> node)
    : QImportFormatLevel(importable, parent), m_parent(std::move(parentNode)),
      m_node(std::move(node)) {}

QImportFormatLevelXML::~QImportFormatLevelXML() {
    if (m_parent && m_node)
        m_parent->RemoveNode(m_node);
}

void QImportFormatLevelXML::SetXMLNodes(QSmartPtr<QXMLNode> parent, QSmartPtr<QXMLNode> node) {
    m_parent = std::move(parent);
    m_node = std::move(node);
}

int QImportFormatLevelXML::AttributeStyle() const {
    const QNewLevelImportable* newLevel = NewLevelImportable();
    return newLevel ? newLevel->GetImportXMLAttributeStyle() : 0;
}

// This format writes a typed value as the formula text that gives it exactly, which is read back
// as data; a text that gives another type, as a display text does, is converted instead.
QAnyValue QImportFormatLevelXML::TypedValue(const CString& text, const CString& typeName) {
    const QAnyValue value(text);
    const QAnyValue::TYPE type = QAnyValue::StringToType(typeName);
    if (QAnyValue::TypeToString(type).CompareNoCase(typeName) != 0 ||
        type == QAnyValue::TYPE_STRING)
        return value;
    if (type != QAnyValue::TYPE_DATETIME && type != QAnyValue::TYPE_BOOL &&
        text.GetLength() <= c_longestFormula) {
        const QAnyValue evaluated = QEvaluatingData::Evaluate(text);
        if (evaluated.Type() == type)
            return evaluated;
    }
    QAnyValue converted(value);
    converted.ChangeType(type);
    return converted.Type() == type ? converted : value;
}

std::unique_ptr<QImportFormatLevel>
QImportFormatLevelXML::CreateSubLevel(QNewLevelImportable& child) {
    QSmartPtr<QXMLNode> node;
    if (m_node) {
        const CString name = QXMLMangledName(child.GetImportLevelName());
        const CString identifier = child.GetImportableIdentifier();
        if (identifier.IsEmpty()) {
            node = m_node->GetFirstChildElement(name);
        } else {
            CString id;
            node = m_node->GetFirstChildElementWithId(name, identifier);
            if (node)
                node->TakeAttribute(u"id", id);
        }
    }
    QSmartPtr<QXMLNode> parent = node ? m_node : QSmartPtr<QXMLNode>();
    return std::make_unique<QImportFormatLevelXML>(child, *this, std::move(parent),
                                                   std::move(node));
}

bool QImportFormatLevelXML::HasAnythingToImport() {
    return m_node != nullptr;
}

bool QImportFormatLevelXML::ImportAttributeIfPresentInternal(const QImportAttribute& attribute) {
    if (!m_node)
        return true;
    const CString name = QXMLMangledName(attribute.Name());
    return AttributeStyle() == 1 ? ImportFromElement(name, attribute)
                                 : ImportFromAttributes(name, attribute);
}

bool QImportFormatLevelXML::ImportFromAttributes(const CString& name,
                                                 const QImportAttribute& attribute) {
    bool imported = true;
    CString text;
    if (m_node->TakeAttribute(name, text)) {
        CString type;
        imported = attribute.SetValue(m_node->TakeAttribute(name + c_typeSuffix, type)
                                          ? TypedValue(text, type)
                                          : QAnyValue(text));
    }
    CString formula;
    if (m_node->TakeAttribute(name + c_formulaSuffix, formula))
        imported = attribute.SetFormula(FormulaText(formula)) && imported;
    return imported;
}

bool QImportFormatLevelXML::ImportFromElement(const CString& name,
                                              const QImportAttribute& attribute) {
    const QSmartPtr<QXMLNode> element = m_node->GetFirstChildElement(name);
    if (!element)
        return true;
    const CString text = element->GetText();
    CString formula;
    const bool hasFormula = element->GetAttribute(u"formula", formula);
    bool imported = true;
    // An element with a formula and no text was written without its value.
    if (!hasFormula || !text.IsEmpty()) {
        CString type;
        imported = attribute.SetValue(element->GetAttribute(u"type", type) ? TypedValue(text, type)
                                                                           : QAnyValue(text));
    }
    if (hasFormula)
        imported = attribute.SetFormula(FormulaText(formula)) && imported;
    m_node->RemoveNode(element);
    return imported;
}

bool QImportFormatLevelXML::ImportUnmatchedAttributes(const UnmatchedAttributeCallback& callback) {
    if (!m_node)
        return true;
    return AttributeStyle() == 1 ? ImportUnmatchedFromElements(callback)
                                 : ImportUnmatchedFromAttributes(callback);
}

bool QImportFormatLevelXML::ImportUnmatchedFromAttributes(
    const UnmatchedAttributeCallback& callback) {
    QArray<QXMLAttribute> attributes;
    m_node->GetAttributes(attributes);
    // Taken from the front, each removal finds its attribute first.
    for (const QXMLAttribute& attribute : attributes)
        m_node->RemoveAttribute(attribute.m_name);
    bool imported = true;
    for (const UnmatchedEntry& entry : GatherEntries(attributes)) {
        QAnyValue value;
        if (entry.hasValue)
            value = entry.hasType ? TypedValue(entry.value, entry.type) : QAnyValue(entry.value);
        const FormulaText formula = entry.hasFormula ? FormulaText(entry.formula) : FormulaText();
        imported = callback(entry.name, value, formula) && imported;
    }
    return imported;
}

bool QImportFormatLevelXML::ImportUnmatchedFromElements(
    const UnmatchedAttributeCallback& callback) {
    QArray<QSmartPtr<QXMLNode>> nodes;
    m_node->GetAllNodes(nodes);
    bool imported = true;
    for (const QSmartPtr<QXMLNode>& node : nodes) {
        if (!node->IsElement())
            continue;
        imported = ImportElementAsUnmatched(*node, callback) && imported;
        m_node->RemoveNode(node);
    }
    return imported;
}

bool QImportFormatLevelXML::ImportElementAsUnmatched(const QXMLNode& element,
                                                     const UnmatchedAttributeCallback& callback) {
    const CString text = element.GetText();
    CString formula;
    const bool hasFormula = element.GetAttribute(u"formula", formula);
    QAnyValue value;
    if (!hasFormula || !text.IsEmpty()) {
        CString type;
        value = element.GetAttribute(u"type", type) ? TypedValue(text, type) : QAnyValue(text);
    }
    return callback(element.GetName(), value, FormulaText(formula));
}

bool QImportFormatLevelXML::MatchesRequiredImportable(QNewLevelImportable* importable,
                                                      CString& levelName, CString& identifier) {
    if (!m_node || !importable)
        return false;
    const CString name = QXMLMangledName(importable->GetImportLevelName());
    const QSmartPtr<QXMLNode> element = m_node->GetFirstChildElement(name);
    if (!element)
        return false;
    levelName = name;
    identifier = element->GetAttribute(u"id");
    return true;
}

bool QImportFormatLevelXML::HasUnmatchedContents() const {
    return m_node && (m_node->HasAnyAttributes() || m_node->HasAnyChildNodes());
}

CString QImportFormatLevelXML::UnmatchedContentDetails() const {
    CString details;
    const auto addLine = [&details](const CString& line) {
        if (!details.IsEmpty())
            details += u"\n";
        details += line;
    };
    if (!m_node)
        return details;
    QArray<QXMLAttribute> attributes;
    m_node->GetAttributes(attributes);
    for (const QXMLAttribute& attribute : attributes)
        addLine(CString::Formatted(u"%s=\"%s\"", attribute.m_name, attribute.m_value));
    QArray<QSmartPtr<QXMLNode>> nodes;
    m_node->GetAllNodes(nodes);
    for (const QSmartPtr<QXMLNode>& node : nodes)
        addLine(node->ToString());
    return details;
}

QImportFormatXML::QImportFormatXML(CFile& file, QImportable& importable)
    : QImportFormatLevelXML(importable), m_file(file) {}

bool QImportFormatXML::ImportToImportable() {
    UIServices().SetStatusBarText(u"Loading import file...");
    m_doc = new QXMLDoc;
    if (!m_doc->FromFile(m_file)) {
        ReportImportError(
            CString::Formatted(u"The file is not an XML document: %s", m_doc->GetParseError()));
        return false;
    }
    SetXMLNodes(nullptr, m_doc->RootNode());
    const bool imported = Importable().ImportAttributesAndChildren(*this);
    const bool allMatched = ReportUnmatchedContents();
    return imported && allMatched && ReportCount() == 0;
}

} // namespace keel
