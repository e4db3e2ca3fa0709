#include "keel/exchange/exportformatxml.h"

#include "keel/exchange/exportflags.h"
#include "keel/exchange/exportformatascii.h"
#include "keel/platform/stdiofileex.h"

#include <utility>

namespace keel {

CString QXMLMangledName(const CString& name) {
    const std::u16string_view view = name.View();
    const bool startsWithDigit = !view.empty() && view[0] >= u'0' && view[0] <= u'9';
    if (!startsWithDigit && view.find_first_of(u"[] \t") == std::u16string_view::npos)
        return name;
    std::u16string mangled;
    mangled.reserve(static_cast<std::size_t>(name.GetLength()) + 4);
    for (const char16_t ch : name.View()) {
        if (ch == u'[' || ch == u']')
            mangled += u"__";
        else if (ch != u' ' && ch != u'\t')
            mangled += ch;
    }
    if (!mangled.empty() && mangled[0] >= u'0' && mangled[0] <= u'9')
        mangled.insert(mangled.begin(), u'_');
    return CString(mangled);
}

namespace {

// The display text of a number or a quantity loses digits: those are written as the formula text
// that gives them exactly, which the reader evaluates before it converts by the type's name.
CString ValueText(const QExportAttribute& attribute) {
    QAnyValue value(attribute.GetValue());
    if (value.IsString() || value.IsDateTime() || value.IsBool())
        return value.MakeCString();
    return ValueFormulaKeepingType(value);
}

} // namespace

QExportFormatLevelXML::QExportFormatLevelXML(const QExportable& exportable, bool minimal,
                                             QSmartPtr<QExportSelection> selection)
    : QExportFormatLevel(exportable, minimal, std::move(selection)) {}

QExportFormatLevelXML::~QExportFormatLevelXML() {
    FlushAttributes();
}

void QExportFormatLevelXML::SetXMLNodes(QSmartPtr<QXMLNode> parent, QSmartPtr<QXMLNode> node) {
    m_parent = std::move(parent);
    m_node = std::move(node);
    m_pendingAttributes.RemoveAll();
}

bool QExportFormatLevelXML::FlushAttributes() {
    if (!m_node || m_pendingAttributes.IsEmpty())
        return true;
    const bool added = m_node->AddAttributes(m_pendingAttributes);
    m_pendingAttributes.RemoveAll();
    return added;
}

int QExportFormatLevelXML::AttributeStyle() const {
    const QNewLevelExportable* newLevel = NewLevelExportable();
    return newLevel ? newLevel->GetExportXMLAttributeStyle() : 0;
}

std::unique_ptr<QExportFormatLevel>
QExportFormatLevelXML::CreateSubLevel(const QNewLevelExportable& child) {
    // The selection picks among the children of the level it was given; below a selected child
    // everything is written.
    auto level = std::make_unique<QExportFormatLevelXML>(child, IsMinimal(), nullptr);
    if (!m_node)
        return level;
    const CString identifier = child.GetExportableIdentifier();
    if (!QXMLNode::IsText(identifier))
        return level;
    QSmartPtr<QXMLNode> node = m_node->AddNode(QXMLMangledName(child.GetExportLevelName()));
    if (!node)
        return level;
    level->SetXMLNodes(m_node, node);
    if (!identifier.IsEmpty())
        level->m_pendingAttributes.Add({u"id", identifier});
    return level;
}

bool QExportFormatLevelXML::AddExportableAttributeInternal(const QExportAttribute& attribute) {
    if (!m_node)
        return false;
    const CString name = QXMLMangledName(attribute.GetName());
    const bool withValue = !attribute.HasFormula() || QExport::IsFlagSet(6);
    return AttributeStyle() == 1 ? AddAsElement(name, attribute, withValue)
                                 : AddAsAttributes(name, attribute, withValue);
}

bool QExportFormatLevelXML::AddAsAttributes(const CString& name, const QExportAttribute& attribute,
                                            bool withValue) {
    QArray<QXMLAttribute> attributes;
    if (withValue) {
        attributes.Add({name, ValueText(attribute)});
        if (attribute.IsVariableType())
            attributes.Add({name + u"-type", attribute.GetValue().TypeName()});
    }
    if (attribute.HasFormula())
        attributes.Add({name + u"-formula", attribute.GetFormula().ToString()});
    // A name that XML can hold still can with "-type" or "-formula" after it.
    if (!QXMLNode::IsName(name))
        return false;
    for (const QXMLAttribute& each : attributes) {
        if (!QXMLNode::IsText(each.m_value))
            return false;
    }
    m_pendingAttributes.Append(attributes);
    return true;
}

bool QExportFormatLevelXML::AddAsElement(const CString& name, const QExportAttribute& attribute,
                                         bool withValue) {
    const QSmartPtr<QXMLNode> element =
        m_node->AddNode(name, withValue ? ValueText(attribute) : CString());
    if (!element)
        return false;
    bool added = true;
    if (attribute.HasFormula())
        added = element->AddAttribute(u"formula", attribute.GetFormula().ToString());
    if (withValue && attribute.IsVariableType())
        added = element->AddAttribute(u"type", attribute.GetValue().TypeName()) && added;
    return added;
}

QExportFormatXML::QExportFormatXML(const QExportable& exportable, bool minimal,
                                   QSmartPtr<QExportSelection> selection)
    : QExportFormatLevelXML(exportable, minimal, std::move(selection)), m_object(exportable),
      m_doc(new QXMLDoc) {}

bool QExportFormatXML::BuildDocument() {
    const QNewLevelExportable* newLevel = NewLevelExportable();
    const CString name = newLevel ? QXMLMangledName(newLevel->GetExportLevelName())
                                  : CString(c_rootNameWithoutLevel);
    m_doc = new QXMLDoc;
    // A name is checked before it goes into markup, so that it cannot bring markup of its own.
    if (QXMLNode::IsName(name))
        m_doc->FromString(CString::Formatted(u"<%s />", name));
    const QSmartPtr<QXMLNode> root = m_doc->RootNode();
    SetXMLNodes(nullptr, root);
    const bool exported = m_object.AddAttributesAndChildrenToExport(*this);
    return FlushAttributes() && root && exported;
}

bool QExportFormatXML::WriteToFile(CStdioFileEx& file) {
    const bool built = BuildDocument();
    CString text;
    const bool converted = m_doc->ToString(text);
    file.SetCodePage(CStdioFileEx::c_codePageUtf8);
    file.WriteString(text);
    return built && converted;
}

} // namespace keel
