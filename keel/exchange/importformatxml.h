#pragma once

#include "keel/exchange/importexport.h"
#include "keel/exchange/importformatlevel.h"
#include "keel/exchange/xmldoc.h"

namespace keel {

class CFile;

// A level of an XML export file being read: the element of the importable, found under its
// parent's by level name and, when the importable has one, by "id". What the object takes is
// removed from the element, and the element leaves its parent when the level is done, so that
// whatever is left is the unmatched content and a second element of the same name is the next
// to be found. A level without an element has nothing to import.
class QImportFormatLevelXML : public QImportFormatLevel {
public:
    QImportFormatLevelXML(QImportable& importable, QImportFormatLevel& parent,
                          QSmartPtr<QXMLNode> parentNode, QSmartPtr<QXMLNode> node);
    ~QImportFormatLevelXML() override;

    void SetXMLNodes(QSmartPtr<QXMLNode> parent, QSmartPtr<QXMLNode> node);

    bool ImportUnmatchedAttributes(const UnmatchedAttributeCallback& callback) override;
    std::unique_ptr<QImportFormatLevel> CreateSubLevel(QNewLevelImportable& child) override;
    bool HasAnythingToImport() override;
    bool ImportAttributeIfPresentInternal(const QImportAttribute& attribute) override;
    bool MatchesRequiredImportable(QNewLevelImportable* importable, CString& levelName,
                                   CString& identifier) override;
    bool HasUnmatchedContents() const override;
    // The attributes left, name="value" a line, then each node left as XML.
    CString UnmatchedContentDetails() const override;

    // The text as a value of the type that `typeName` names (QAnyValue::TypeName), or the text
    // as a string when the name is unknown or the text does not convert.
    static QAnyValue TypedValue(const CString& text, const CString& typeName);

protected:
    // The root level; its element is given later.
    explicit QImportFormatLevelXML(QImportable& importable);

private:
    int AttributeStyle() const;
    bool ImportFromAttributes(const CString& name, const QImportAttribute& attribute);
    bool ImportFromElement(const CString& name, const QImportAttribute& attribute);
    bool ImportUnmatchedFromAttributes(const UnmatchedAttributeCallback& callback);
    bool ImportUnmatchedFromElements(const UnmatchedAttributeCallback& callback);
    // An element with a formula and no text was written without its value: it gives none.
    static bool ImportElementAsUnmatched(const QXMLNode& element,
                                         const UnmatchedAttributeCallback& callback);

    QSmartPtr<QXMLNode> m_parent;
    QSmartPtr<QXMLNode> m_node;
};

// A whole XML export file being read into its object.
class QImportFormatXML : public QImportFormatLevelXML, public QImportFormat {
public:
    // The file is read from its start, as bytes in the encoding it declares.
    QImportFormatXML(CFile& file, QImportable& importable);

    // False, with nothing imported, for a file that is not an XML document.
    bool ImportToImportable() override;

private:
    CFile& m_file;
    QSmartPtr<QXMLDoc> m_doc;
};

} // namespace keel
