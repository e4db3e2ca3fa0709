#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"
#include "keel/platform/random.h"

#include <memory>

namespace keel {

namespace {

enum class ConstantKind {
    NotAvailable,
    True,
    False,
    Sqrt2,
    Pi,
    Random,
    Tab,
    Endl,
    Color,
    Money,
    Length,
    Area,
    Volume,
    Time,
    Angle,
    Folder,
};

// One name of the table. `unit` is the unit of one (money, length, time, angle), the raw value
// (area, volume), the colour, or the folder, by kind.
struct NamedConstant {
    const char16_t* name;
    ConstantKind kind;
    double unit;
};

constexpr double Folder(QConstantFolder folder) {
    return static_cast<double>(folder);
}

using K = ConstantKind;

constexpr NamedConstant c_namedConstants[] = {
    {u"na", K::NotAvailable, 0},
    {u"true", K::True, 0},
    {u"false", K::False, 0},
    {u"sqrt2", K::Sqrt2, 0},
    {u"pi", K::Pi, 0},
    {u"rnd", K::Random, 0},
    {u"tab", K::Tab, 0},
    {u"endl", K::Endl, 0},
    {u"black", K::Color, 0},
    {u"darkred", K::Color, 0x80},
    {u"darkgreen", K::Color, 0x8000},
    {u"darkyellow", K::Color, 0x8080},
    {u"darkblue", K::Color, 0x800000},
    {u"darkmagenta", K::Color, 0x800080},
    {u"darkcyan", K::Color, 0x808000},
    {u"darkgray", K::Color, 0x808080},
    {u"lightgray", K::Color, 0xC0C0C0},
    {u"red", K::Color, 0xFF},
    {u"green", K::Color, 0xFF00},
    {u"yellow", K::Color, 0xFFFF},
    {u"blue", K::Color, 0xFF0000},
    {u"magenta", K::Color, 0xFF00FF},
    {u"cyan", K::Color, 0xFFFF00},
    {u"white", K::Color, 0xFFFFFF},
    {u"dollar", K::Money, 1.0},
    {u"c", K::Money, 0.01},
    {u"cent", K::Money, 0.01},
    {u"in", K::Length, QLength::LU_INCH},
    {u"inch", K::Length, QLength::LU_INCH},
    {u"mm", K::Length, QLength::LU_MM},
    {u"millimetre", K::Length, QLength::LU_MM},
    {u"cm", K::Length, QLength::LU_CM},
    {u"centimetre", K::Length, QLength::LU_CM},
    {u"ft", K::Length, QLength::LU_FOOT},
    {u"foot", K::Length, QLength::LU_FOOT},
    {u"m", K::Length, QLength::LU_METRE},
    {u"metre", K::Length, QLength::LU_METRE},
    {u"sqmm", K::Area, 1e-06},
    {u"sqcm", K::Area, 0.0001},
    {u"sqin", K::Area, 0.00064516},
    {u"sqft", K::Area, 0.09290304},
    {u"sqm", K::Area, 1.0},
    {u"cbmm", K::Volume, 1e-09},
    {u"cbcm", K::Volume, 1e-06},
    {u"cbin", K::Volume, 1.6387064e-05},
    {u"cbft", K::Volume, 0.028316846592},
    {u"cbm", K::Volume, 1.0},
    {u"hr", K::Time, QTime::TU_HOURS},
    {u"hour", K::Time, QTime::TU_HOURS},
    {u"mn", K::Time, QTime::TU_MINUTES},
    {u"minute", K::Time, QTime::TU_MINUTES},
    {u"sec", K::Time, QTime::TU_SECONDS},
    {u"second", K::Time, QTime::TU_SECONDS},
    {u"deg", K::Angle, QAngle::ANGU_DEG},
    {u"rad", K::Angle, QAngle::ANGU_RAD},
    {u"programfolder", K::Folder, Folder(QConstantFolder::Program)},
    {u"program_folder", K::Folder, Folder(QConstantFolder::Program)},
    {u"datafolder", K::Folder, Folder(QConstantFolder::Data)},
    {u"data_folder", K::Folder, Folder(QConstantFolder::Data)},
    {u"drawingfolder", K::Folder, Folder(QConstantFolder::Drawing)},
    {u"drawing_folder", K::Folder, Folder(QConstantFolder::Drawing)},
    {u"drawingsubfolder", K::Folder, Folder(QConstantFolder::DrawingSub)},
    {u"drawing_subfolder", K::Folder, Folder(QConstantFolder::DrawingSub)},
    {u"reportfolder", K::Folder, Folder(QConstantFolder::Report)},
    {u"report_folder", K::Folder, Folder(QConstantFolder::Report)},
    {u"tooldatafolder", K::Folder, Folder(QConstantFolder::ToolData)},
    {u"libraryfolder", K::Folder, Folder(QConstantFolder::Library)},
    {u"library_folder", K::Folder, Folder(QConstantFolder::Library)},
    {u"basedonlibraryfolder", K::Folder, Folder(QConstantFolder::BasedOnLibrary)},
    {u"tablefolder", K::Folder, Folder(QConstantFolder::Table)},
    {u"table_folder", K::Folder, Folder(QConstantFolder::Table)},
    {u"bitmapfolder", K::Folder, Folder(QConstantFolder::Picture)},
    {u"bitmap_folder", K::Folder, Folder(QConstantFolder::Picture)},
    {u"picturefolder", K::Folder, Folder(QConstantFolder::Picture)},
    {u"picture_folder", K::Folder, Folder(QConstantFolder::Picture)},
    {u"templatefolder", K::Folder, Folder(QConstantFolder::Template)},
    {u"template_folder", K::Folder, Folder(QConstantFolder::Template)},
    {u"backupfolder", K::Folder, Folder(QConstantFolder::Backup)},
    {u"backup_folder", K::Folder, Folder(QConstantFolder::Backup)},
    {u"mydocumentsfolder", K::Folder, Folder(QConstantFolder::MyDocuments)},
    {u"my_documents_folder", K::Folder, Folder(QConstantFolder::MyDocuments)},
    {u"mydocumentsproductfolder", K::Folder, Folder(QConstantFolder::MyDocumentsProduct)},
};

// The position in c_namedConstants of each name.
const QMap<PropId, int>& NamedConstantPositions() {
    static const QMap<PropId, int> positions = [] {
        QMap<PropId, int> map;
        for (int i = 0; i < static_cast<int>(std::size(c_namedConstants)); ++i)
            map[PropId(c_namedConstants[i].name)] = i;
        return map;
    }();
    return positions;
}

CString FolderForConstant(QConstantFolder folder) {
    const QEvaluatorFactory* factory = GetEvaluatorFactory();
    return factory ? factory->FolderForConstant(folder) : CString();
}

QAnyValue ValueOf(const NamedConstant& constant) {
    QAnyValue value;
    switch (constant.kind) {
    case K::NotAvailable:
        value.MakeNA();
        break;
    case K::True:
        value = true;
        break;
    case K::False:
        value = false;
        break;
    case K::Sqrt2:
        value = 1.4142135623730951;
        break;
    case K::Pi:
        value = 3.141592653589793;
        break;
    case K::Random:
        value = keel::rand() * 3.0517578125e-05;
        break;
    case K::Tab:
        value = CString(u"\t");
        break;
    case K::Endl:
        value = CString(u"\r\n");
        break;
    case K::Color:
        value = static_cast<unsigned long>(constant.unit);
        break;
    case K::Money:
        value = QMoney(constant.unit, QMoney::MU_DOLLARS);
        break;
    case K::Length:
        value = QLength(1.0, static_cast<QLength::LENGTHUNITS>(constant.unit));
        break;
    case K::Area:
        value = QArea::FromRaw(constant.unit);
        break;
    case K::Volume:
        value = QVolume::FromRaw(constant.unit);
        break;
    case K::Time:
        value = QTime(1.0, static_cast<QTime::TIMEUNITS>(constant.unit));
        break;
    case K::Angle:
        value = QAngle(1.0, static_cast<QAngle::ANGLEUNITS>(constant.unit));
        break;
    case K::Folder:
        value = FolderForConstant(static_cast<QConstantFolder>(constant.unit));
        break;
    }
    return value;
}

// The type number of each result that EvaluateFormulaAs gives.
template <class T>
constexpr QAnyValue::TYPE c_resultType = QAnyValue::TYPE_EMPTY;
template <>
constexpr QAnyValue::TYPE c_resultType<bool> = QAnyValue::TYPE_BOOL;
template <>
constexpr QAnyValue::TYPE c_resultType<int> = QAnyValue::TYPE_INT;
template <>
constexpr QAnyValue::TYPE c_resultType<double> = QAnyValue::TYPE_DOUBLE;
template <>
constexpr QAnyValue::TYPE c_resultType<QAngle> = QAnyValue::TYPE_ANGLE;
template <>
constexpr QAnyValue::TYPE c_resultType<QLength> = QAnyValue::TYPE_LENGTH;
template <>
constexpr QAnyValue::TYPE c_resultType<CString> = QAnyValue::TYPE_STRING;

} // namespace

bool QEvaluator::EvaluateNamedConstant(QAnyValue& result, PropId name) {
    int position = 0;
    if (!NamedConstantPositions().Lookup(name, position))
        return EvaluateNamedConstantExtras(result, name);
    if (IsEval())
        result = ValueOf(c_namedConstants[position]);
    return true;
}

bool QEvaluator::IsBuiltInConstant(PropId name) {
    int position = 0;
    return NamedConstantPositions().Lookup(name, position);
}

// Runs the formula through an evaluator from the factory.
template <class T>
T QEvaluator::EvaluateFormulaAs(FormulaText formula, QFormulaContext* context, bool passThrough,
                                bool report, bool action) {
    static_assert(c_resultType<T> != QAnyValue::TYPE_EMPTY, "no such result type");
    QAnyValue value;
    const std::unique_ptr<QEvaluator> evaluator(
        New(value, formula, context, passThrough, report, action));
    evaluator->Evaluate();
    value.ChangeType(c_resultType<T>);
    return value.Make<T>();
}

template bool QEvaluator::EvaluateFormulaAs<bool>(FormulaText, QFormulaContext*, bool, bool, bool);
template int QEvaluator::EvaluateFormulaAs<int>(FormulaText, QFormulaContext*, bool, bool, bool);
template double QEvaluator::EvaluateFormulaAs<double>(FormulaText, QFormulaContext*, bool, bool,
                                                      bool);
template QAngle QEvaluator::EvaluateFormulaAs<QAngle>(FormulaText, QFormulaContext*, bool, bool,
                                                      bool);
template QLength QEvaluator::EvaluateFormulaAs<QLength>(FormulaText, QFormulaContext*, bool, bool,
                                                        bool);
template CString QEvaluator::EvaluateFormulaAs<CString>(FormulaText, QFormulaContext*, bool, bool,
                                                        bool);

// A formula is constant when it evaluates without a context.
bool QEvaluator::IsConstantFormula(FormulaText formula, QAnyValue& result) {
    if (formula.IsEmpty())
        return false;
    const std::unique_ptr<QEvaluator> evaluator(New(result, formula, nullptr, false, false, false));
    return evaluator->Evaluate();
}

bool QEvaluator::ExecuteActionVariableIfAny(const CString& name, QFormulaContext* context) {
    if (!context)
        return false;
    QAnyValue value;
    bool error = false;
    if (!context->GetPropertyValue(PropId(name), value, error, nullptr) || error)
        return false;
    CString text = value.MakeCString();
    if (text.IsEmpty() || text[0] != u':')
        text.Insert(0, u':');
    return EvaluateFormulaAsBool(FormulaText(text), context, false, true, true);
}

bool QEvaluator::RequiresEvaluationWithNoErrorReporting(FullId name) {
    static const FullId isna(u"isna");
    static const FullId iserr(u"iserr");
    static const FullId iserror(u"iserror");
    return name == isna || name == iserr || name == iserror;
}

bool QEvaluator::IsIdentifierDefined(FullId name) {
    const CString text = name.ToString();
    if (text.Find(u'.') < 0 && HasVar(PropId(text)))
        return true;
    if (!m_context)
        return false;
    const bool noReports = NoEvalReportErrors();
    SetNoEvalReportErrors(true);
    QAnyValue value;
    bool error = false;
    QCacheState state = QCS_Stable;
    const bool found =
        m_context->LookupValue(name, value, error, state, IsPassThrough(), false, !IsAction());
    SetNoEvalReportErrors(noReports);
    return found;
}

} // namespace keel
