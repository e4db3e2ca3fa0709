#pragma once

#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importexport.h"
#include "keel/exchange/xmldoc.h"
#include "keel/values/array.h"

namespace keel {

// A level or attribute name as an XML name: "[" and "]" each become "__", blanks go, and a name
// that starts with a digit gets a leading "_" ("width[3]" is "width__3__").
CString QXMLMangledName(const CString& name);

// A level of an XML export file being written: an element under its parent's, named after the
// level and carrying the identifier as "id". Attributes are XML attributes of the element (style
// 0: N, N-formula, N-type) or child elements (style 1: N with "formula" and "type"). A level whose
// element could not be made writes nothing and fails each call.
class QExportFormatLevelXML : public QExportFormatLevel {
public:
    QExportFormatLevelXML(const QExportable& exportable, bool minimal,
                          QSmartPtr<QExportSelection> selection);
    // Writes the XML attributes gathered for the element.
    ~QExportFormatLevelXML() override;

    void SetXMLNodes(QSmartPtr<QXMLNode> parent, QSmartPtr<QXMLNode> node);
    std::unique_ptr<QExportFormatLevel> CreateSubLevel(const QNewLevelExportable& child) override;
    bool AddExportableAttributeInternal(const QExportAttribute& attribute) override;

protected:
    // The XML attributes gathered so far go to the element; a level with thousands of them
    // writes them at once rather than one search of the element each.
    bool FlushAttributes();

private:
    int AttributeStyle() const;
    bool AddAsAttributes(const CString& name, const QExportAttribute& attribute, bool withValue);
    bool AddAsElement(const CString& name, const QExportAttribute& attribute, bool withValue);

    QSmartPtr<QXMLNode> m_parent;
    QSmartPtr<QXMLNode> m_node;
    QArray<QXMLAttribute> m_pendingAttributes;
};

// A whole XML export file: the document, its root element named after the object's level (or
// "Export" for an object without one), and the writing.
class QExportFormatXML : public QExportFormatLevelXML, public QExportFormat {
public:
    QExportFormatXML(const QExportable& exportable, bool minimal,
                     QSmartPtr<QExportSelection> selection);

    // Builds the document and writes it indented, in UTF-8.
    bool WriteToFile(CStdioFileEx& file) override;
    // Builds the document of the object afresh; true when everything went into it.
    bool BuildDocument();
    const QXMLDoc& Document() const { return *m_doc; }

    static constexpr char16_t c_rootNameWithoutLevel[] = u"Export";

private:
    const QExportable& m_object;
    QSmartPtr<QXMLDoc> m_doc;
};

} // namespace keel
