#pragma once

#include "keel/platform/exceptions.h"
#include "keel/values/anyvalue.h"
#include "keel/values/formulahook.h"

#include <string>
#include <vector>

namespace keel::test {

// A stand-in for the formula evaluator: a few literal formulas, optionally plain numbers, and a
// record of what it was asked. "boom" and "silent" fail as a real evaluator can, by throwing.
struct FakeEvaluator {
    static inline std::vector<std::string> asked;
    static inline bool readsNumbers = true;

    static bool Evaluate(const FormulaText& formula, QFormulaContext*, QAnyValue& result) {
        const CString text = formula.ToString();
        asked.push_back(text.ToUtf8());
        int whole = 0;
        double number = 0;
        if (text == u"boom")
            throw CException("evaluator broke");
        if (text == u"silent")
            throw CException("");
        if (text == u"1+1")
            result = 2;
        else if (text == u"2+3")
            result = 5;
        else if (readsNumbers && QAnyValue::ParseInt(whole, text))
            result = whole;
        else if (readsNumbers && QAnyValue::ParseDouble(number, text))
            result = number;
        else if (text == u"3 ft")
            result = QLength(3, QLength::LU_FOOT);
        else if (text == u"true")
            result = true;
        else if (text == u"red")
            result = 0xFFul;
        else if (text == u"selfie")
            result = u"selfie";
        else if (text == u"ping")
            result = u"pong";
        else if (text == u"pong")
            result = u"ping";
        else if (text == u"five")
            result = u"5";
        else if (text == u"missing")
            result.MakeNA();
        else if (text == u"broken")
            result.MakeError(u"inner failure");
        else if (text.GetLength() >= 2 && text[0] == u'"' && text[text.GetLength() - 1] == u'"')
            result = text.Mid(1, text.GetLength() - 2);
        else
            return false;
        return true;
    }
};

// Installs the fake evaluator, "$" money and the built-in defaults (mm, m², m³, degrees,
// dollars, hours) for one test, and puts back every setting it found.
class ScopedValueSettings {
public:
    explicit ScopedValueSettings(bool readsNumbers = true) {
        FakeEvaluator::asked.clear();
        FakeEvaluator::readsNumbers = readsNumbers;
        QMoney::SetLocaleSymbols(u"$", u",", u".");
        QLength::SetDefaultUnits(QLength::LU_MM);
        QArea::SetDefaultUnits(QArea::AU_SQM);
        QVolume::SetDefaultUnits(QVolume::VU_CBM);
        QAngle::SetDefaultUnits(QAngle::ANGU_DEG);
        QMoney::SetDefaultUnits(QMoney::MU_DOLLARS);
        QTime::SetDefaultUnits(QTime::TU_HOURS);
    }
    ~ScopedValueSettings() {
        QLength::SetDefaultUnits(m_length);
        QArea::SetDefaultUnits(m_area);
        QVolume::SetDefaultUnits(m_volume);
        QAngle::SetDefaultUnits(m_angle);
        QMoney::SetDefaultUnits(m_money);
        QTime::SetDefaultUnits(m_time);
        QMoney::ResetLocaleSymbols();
        QDateTime::ResetLocale();
        SetFormulaEvaluatorHook(m_hook);
    }
    ScopedValueSettings(const ScopedValueSettings&) = delete;
    ScopedValueSettings& operator=(const ScopedValueSettings&) = delete;

private:
    QLength::LENGTHUNITS m_length = QLength::DefaultUnits();
    QArea::AREAUNITS m_area = QArea::DefaultUnits();
    QVolume::VOLUMEUNITS m_volume = QVolume::DefaultUnits();
    QAngle::ANGLEUNITS m_angle = QAngle::DefaultUnits();
    QMoney::MONEYUNITS m_money = QMoney::DefaultUnits();
    QTime::TIMEUNITS m_time = QTime::DefaultUnits();
    QFormulaEvaluatorHook m_hook = SetFormulaEvaluatorHook(&FakeEvaluator::Evaluate);
};

} // namespace keel::test
