#pragma once

#include "keel/exchange/importexport.h"
#include "keel/formula/toplevelcontext.h"
#include "keel/platform/cstring.h"
#include "keel/questions/properties.h"

namespace keel::tool {

// The root of the program's one tree of contexts: the formulas of a command run in it, and the
// properties given with --set or read with --import live on it. In an export file it is the
// level "Root": its answers are the lines without a context of a .tab file, and the child
// elements of the root element of an XML file.
class QRootContext : public QTopLevelFormulaContext, public QNewLevelImportableExportable {
public:
    QRootContext();
    ~QRootContext() override;

    CString SimpleTypeName() const override;
    QProperties* Properties() const override;
    // A value below that catches up with a change puts the root in step with its own counter;
    // since this root holds properties itself, its value caches must go at that moment, as any
    // other context's do when it is found behind.
    void OnNotifyChildMadeUpToDate() const override;
    // The program keeps no undo and has no screen to refresh: a change needs nothing from it.
    void ProcessPreChangeFromChildHelper() override {}
    void ProcessChangedFromChildHelper() override {}

    CString GetImportExportLevelName() const override;
    // The root adds nothing to a line's context, and writes each answer as an element.
    int GetAsciiContextStyle() const override { return 0; }
    int GetXMLAttributeStyle() const override { return 1; }
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    // The answers are read with one recalculation at the end.
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;

private:
    // Properties() hands the bag out from a const context.
    mutable QProperties m_properties{this};
};

} // namespace keel::tool
