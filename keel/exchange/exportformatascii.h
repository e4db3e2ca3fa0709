#pragma once

#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importexport.h"
#include "keel/values/array.h"
#include "keel/values/stringunique.h"

namespace keel {

// The formula text of a value that a .tab reader evaluates back to the same type and the same
// raw value: booleans as true and false, numbers with every digit and a decimal point, amounts of
// units in their raw unit (mm, sqm, cbm, deg, sec, dollars and cents), rates as one amount over
// another, colours by their name, arrays element by element. A date is a quoted text that a date
// reads back from in any locale, since no formula gives a date; a colour without a name, a
// number that is not finite and anything else is AsFormula.
CString ValueFormulaKeepingType(const QAnyValue& value);

// Name, value and formula as the three tab-separated columns of a .tab line. The value column
// is empty for an attribute with a formula unless export flag 6 is set. `shortened` cuts each
// part longer than 254 characters to 251 and "..." (keeping a closing quote), for display.
CString QExport_NameValueFormulaString(PropId name, const QAnyValue& value, FormulaText formula,
                                       bool shortened = false);
CString QExport_NameValueFormulaString(const CString& name, const QAnyValue& value,
                                       FormulaText formula, bool shortened = false);
CString QExport_NameValueFormulaString(const QExportAttribute& attribute, bool shortened = false);

// A level of a .tab file being written: each attribute becomes one line of the shared array,
// with the context of the level in a column of its own.
class QExportFormatLevelASCII : public QExportFormatLevel {
public:
    // `parent` is nullptr for the root.
    QExportFormatLevelASCII(const QExportable& exportable, bool minimal,
                            QSmartPtr<QExportSelection> selection, QArray<CString>& lines,
                            QExportFormatLevelASCII* parent);

    std::unique_ptr<QExportFormatLevel> CreateSubLevel(const QNewLevelExportable& child) override;
    bool AddExportableAttributeInternal(const QExportAttribute& attribute) override;

protected:
    QArray<CString>& Lines() { return m_lines; }

private:
    // The context of the next line written at or below this level. With export flag 1 a numeric
    // identifier is written "-1" on the first line and "0" on every later one.
    CString NextLineContext();
    CString OwnContextPart();

    QArray<CString>& m_lines;
    QExportFormatLevelASCII* m_parent;
    // Whether a line with this level's numeric identifier was written.
    bool m_wroteNumericIdentifier = false;
};

// A whole .tab file: the root level, its lines and the writing.
class QExportFormatASCII : public QExportFormatLevelASCII, public QExportFormat {
public:
    QExportFormatASCII(const QExportable& exportable, bool minimal,
                       QSmartPtr<QExportSelection> selection);

    // Gathers the lines, sorts them with export flag 4, and writes them in UTF-8.
    bool WriteToFile(CStdioFileEx& file) override;
    // The lines gathered by the last WriteToFile or GatherLines.
    const QArray<CString>& GatheredLines() const { return m_allLines; }
    bool GatherLines();

private:
    QArray<CString> m_allLines;
    const QExportable& m_object;
};

} // namespace keel
