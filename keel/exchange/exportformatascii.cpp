#include "keel/exchange/exportformatascii.h"

#include "keel/exchange/exportflags.h"
#include "keel/exchange/odbcfixup.h"
#include "keel/formula/evaluator.h"
#include "keel/platform/stdiofileex.h"
#include "keel/platform/uiservices.h"
#include "keel/platform/wchar.h"
#include "keel/values/angle.h"
#include "keel/values/area.h"
#include "keel/values/datetime.h"
#include "keel/values/length.h"
#include "keel/values/money.h"
#include "keel/values/ratevalue.h"
#include "keel/values/time.h"
#include "keel/values/volume.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <map>
#include <memory>
#include <utility>
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

// The shortest decimal text that reads back as exactly this double; no exponent, which formulas
// do not read.
CString ExactDecimal(double number) {
    char buffer[400];
    const auto [end, error] =
        std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::fixed);
    return error == std::errc() ? CString::FromUtf8(std::string_view(buffer, end - buffer))
                                : CString();
}

// A whole amount of a 32-bit raw unit. The smallest one has no positive counterpart to negate,
// so it is written as a difference.
CString WholeAmount(std::int32_t raw, const char16_t* unit) {
    if (raw == INT32_MIN)
        return CString::Formatted(u"(-2147483647%s - 1%s)", unit, unit);
    return CString::Formatted(u"%d%s", raw, unit);
}

CString MoneyText(std::int32_t cents) {
    if (cents == INT32_MIN)
        return u"(-$21474836.47 - $0.01)";
    const long long magnitude = std::llabs(static_cast<long long>(cents));
    return CString::Formatted(u"%s$%lld.%02lld", cents < 0 ? u"-" : u"", magnitude / 100,
                              magnitude % 100);
}

// The stored amount of a length, area, volume or angle, and the word of the unit it is kept in.
std::pair<double, const char16_t*> RawAmount(QAnyValue& value) {
    switch (value.Type()) {
    case QAnyValue::TYPE_LENGTH:
        return {value.MakeLength().GetRaw(), u" mm"};
    case QAnyValue::TYPE_AREA:
        return {value.MakeArea().GetRaw(), u" sqm"};
    case QAnyValue::TYPE_VOLUME:
        return {value.MakeVolume().GetRaw(), u" cbm"};
    default:
        return {value.MakeAngle().GetRaw(), u" deg"};
    }
}

// The colours that formulas know by name, from the names themselves.
const std::map<std::uint32_t, CString>& NamedColours() {
    static const std::map<std::uint32_t, CString> colours = [] {
        static constexpr const char16_t* names[] = {
            u"black",    u"darkred",  u"darkgreen", u"darkyellow", u"darkblue", u"darkmagenta",
            u"darkcyan", u"darkgray", u"lightgray", u"red",        u"green",    u"yellow",
            u"blue",     u"magenta",  u"cyan",      u"white"};
        std::map<std::uint32_t, CString> byColour;
        for (const char16_t* name : names) {
            QAnyValue colour;
            const std::unique_ptr<QEvaluator> evaluator(
                QEvaluator::New(colour, FormulaText(name), nullptr, false, false, false));
            if (evaluator->Evaluate() && colour.IsColor())
                byColour.emplace(static_cast<std::uint32_t>(colour.MakeColor()), name);
        }
        return byColour;
    }();
    return colours;
}

// A rate reads back from its halves divided, when they are amounts of two units that do not
// divide into a plain quantity.
bool ReadsBackAsRate(const QAnyValue& num, const QAnyValue& den) {
    return num.IsNumericWithUnits() && !num.IsRate() && den.IsNumericWithUnits() && !den.IsRate() &&
           !den.IsZero() && !QAnyValue::CanDiv(num, den);
}

} // namespace

CString ValueFormulaKeepingType(const QAnyValue& value) {
    QAnyValue copy(value);
    switch (value.Type()) {
    case QAnyValue::TYPE_BOOL:
        return copy.MakeBool() ? u"true" : u"false";
    case QAnyValue::TYPE_INT:
        return WholeAmount(copy.MakeInt(), u"");
    case QAnyValue::TYPE_DOUBLE: {
        const double number = copy.MakeDouble();
        if (!std::isfinite(number))
            break;
        CString text = ExactDecimal(number);
        // A number without a decimal point would come back a whole number.
        return text.Find(u'.') < 0 ? text + u".0" : text;
    }
    case QAnyValue::TYPE_MONEY:
        return MoneyText(copy.MakeMoney().GetRaw());
    case QAnyValue::TYPE_TIME:
        return WholeAmount(copy.MakeTime().GetRaw(), u" sec");
    case QAnyValue::TYPE_LENGTH:
    case QAnyValue::TYPE_AREA:
    case QAnyValue::TYPE_VOLUME:
    case QAnyValue::TYPE_ANGLE: {
        const auto [raw, unit] = RawAmount(copy);
        if (std::isfinite(raw))
            return ExactDecimal(raw) + unit;
        break;
    }
    case QAnyValue::TYPE_RATE: {
        const QRateValue& rate = copy.MakeRate();
        if (!ReadsBackAsRate(rate.Num(), rate.Den()))
            break;
        return ValueFormulaKeepingType(rate.Num()) + u" / " + ValueFormulaKeepingType(rate.Den());
    }
    case QAnyValue::TYPE_COLOR: {
        const auto named = NamedColours().find(static_cast<std::uint32_t>(copy.MakeColor()));
        if (named != NamedColours().end())
            return named->second;
        break;
    }
    case QAnyValue::TYPE_DATETIME: {
        const QDateTime date = copy.MakeDateTime();
        if (date.IsValid())
            return u"\"" + date.Format(u"%Y-%m-%d %H:%M:%S") + u"\"";
        break;
    }
    case QAnyValue::TYPE_ARRAY: {
        CString text = u"[";
        const QArray<QAnyValue>& elements = copy.MakeArray();
        for (int i = 0; i < elements.GetCount(); ++i)
            text += (i == 0 ? u"" : u", ") + ValueFormulaKeepingType(elements[i]);
        return text + u"]";
    }
    default:
        break;
    }
    return value.AsFormulaText();
}

CString QExport_NameValueFormulaString(const CString& name, const QAnyValue& value,
                                       FormulaText formula, bool shortened) {
    const bool hasFormula = !formula.IsEmpty();
    CString valueText;
    if (!hasFormula || QExport::IsFlagSet(6))
        valueText = ODBCFixup(ValueFormulaKeepingType(value));
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
