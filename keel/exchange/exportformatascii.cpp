#include "keel/exchange/exportformatascii.h"

#include "keel/exchange/exportflags.h"
#include "keel/exchange/odbcfixup.h"
#include "keel/platform/stdiofileex.h"
#include "keel/platform/uiservices.h"
#include "keel/platform/wchar.h"

#include <algorithm>
#include <vector>

namespace keel {

namespace {

constexpr int c_longestShownPart = 254;
constexpr int c_shortenedKeep = 251;

CString Shortened(const CString& part) {
    if (part.GetLength() <= c_longestShownPart)
        return part;
    CString cut = part.Left(c_shortenedKeep) + u"...";
    if (part[0] == u'"')
        cut += u'"';
    return cut;
}

bool IsWhollyDecimal(const CString& text) {
    if (text.IsEmpty())
        return false;
    for (int i = 0; i < text.GetLength(); ++i) {
        if (!IsDigit(text[i]))
            return false;
    }
    return true;
}

CString JoinContext(const CString& first, const CString& second) {
    if (first.IsEmpty())
        return second;
    if (second.IsEmpty())
        return first;
    return first + u"|" + second;
}

} // namespace

CString QExport_NameValueFormulaString(const CString& name, const QAnyValue& value,
                                       FormulaText formula, bool shortened) {
    const bool hasFormula = !formula.IsEmpty();
    CString valueText;
    if (!hasFormula || QExport::IsFlagSet(6))
        valueText = ODBCFixup(value.AsFormula().ToString());
    CString formulaText = ODBCFixup(formula.ToString());
    CString nameText = ODBCFixup(name);
    if (shortened) {
        nameText = Shortened(nameText);
        valueText = Shortened(valueText);
        formulaText = Shortened(formulaText);
    }
    return nameText + u"\t" + valueText + u"\t" + formulaText;
}

CString QExport_NameValueFormulaString(PropId name, const QAnyValue& value, FormulaText formula,
                                       bool shortened) {
    return QExport_NameValueFormulaString(name.ToString(), value, formula, shortened);
}

CString QExport_NameValueFormulaString(const QExportAttribute& attribute, bool shortened) {
    return QExport_NameValueFormulaString(attribute.GetName(), attribute.GetValue(),
                                          attribute.GetFormula(), shortened);
}

QExportFormatLevelASCII::QExportFormatLevelASCII(const QExportable& exportable, bool minimal,
                                                 QSmartPtr<QExportSelection> selection,
                                                 QArray<CString>& lines,
                                                 QExportFormatLevelASCII* parent)
    : QExportFormatLevel(exportable, minimal, std::move(selection)), m_lines(lines),
      m_parent(parent) {}

std::unique_ptr<QExportFormatLevel>
QExportFormatLevelASCII::CreateSubLevel(const QNewLevelExportable& child) {
    // The selection picks among the children of the level it was given; below a selected child
    // everything is written.
    return std::make_unique<QExportFormatLevelASCII>(child, IsMinimal(), nullptr, m_lines, this);
}

CString QExportFormatLevelASCII::OwnContextPart() {
    const QNewLevelExportable* newLevel = NewLevelExportable();
    if (newLevel == nullptr)
        return CString();
    const int style = newLevel->GetExportAsciiContextStyle();
    CString part;
    if (style & 1)
        part = newLevel->GetExportLevelName();
    if (style & 2) {
        CString identifier = newLevel->GetExportableIdentifier();
        if (QExport::IsFlagSet(1) && IsWhollyDecimal(identifier)) {
            identifier = m_wroteNumericIdentifier ? CString(u"0") : CString(u"-1");
            m_wroteNumericIdentifier = true;
        }
        part = (style & 1) ? part + u"|" + identifier : identifier;
    }
    return part;
}

CString QExportFormatLevelASCII::NextLineContext() {
    const CString parentContext = m_parent ? m_parent->NextLineContext() : CString();
    return JoinContext(parentContext, OwnContextPart());
}

bool QExportFormatLevelASCII::AddExportableAttributeInternal(const QExportAttribute& attribute) {
    const CString columns = QExport_NameValueFormulaString(attribute);
    const CString context = NextLineContext();
    if (QExport::IsFlagSet(2))
        m_lines.Add(CString::Formatted(u"%s\t%s\n", context, columns));
    else
        m_lines.Add(CString::Formatted(u"%s\t%s\n", columns, context));
    return true;
}

QExportFormatASCII::QExportFormatASCII(const QExportable& exportable, bool minimal,
                                       QSmartPtr<QExportSelection> selection)
    : QExportFormatLevelASCII(exportable, minimal, std::move(selection), m_allLines, nullptr),
      m_object(exportable) {}

bool QExportFormatASCII::GatherLines() {
    m_allLines.RemoveAll();
    return m_object.AddAttributesAndChildrenToExport(*this);
}

bool QExportFormatASCII::WriteToFile(CStdioFileEx& file) {
    IUIServices& ui = UIServices();
    ui.SetStatusBarText(u"Gathering export data");
    const bool gathered = GatherLines();
    if (QExport::IsFlagSet(4)) {
        ui.SetStatusBarText(u"Sorting export data");
        std::stable_sort(m_allLines.begin(), m_allLines.end(),
                         [](const CString& a, const CString& b) { return a.CompareNoCase(b) < 0; });
    }
    file.SetCodePage(CStdioFileEx::c_codePageUtf8);
    ui.SetStatusBarText(u"Writing export data to file");
    for (const CString& line : m_allLines)
        file.WriteString(line);
    ui.SetStatusBarText(u"Done.");
    return gathered;
}

} // namespace keel
