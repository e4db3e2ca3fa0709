#include "tests/support/evaluations.h"
#include "tests/support/hostilevalues.h"
#include "tests/support/uihosts.h"

#include "keel/formula/builtins.h"
#include "keel/formula/evaluatingdata.h"
#include "keel/formula/evaluator.h"
#include "keel/values/formulahook.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

namespace keel::test {
namespace {

using Outcome = Evaluation;

Outcome Evaluated(const std::string& formula, bool isAction = false) {
    return test::Evaluated(formula, nullptr, {.action = isAction});
}

bool Refused(const Outcome& outcome) {
    return !outcome.ok && outcome.message.rfind("Only allowed in an action field", 0) == 0;
}

// A new action-only function is refused in data as well, without anyone remembering to list it.
TEST(EvaluatingData, EveryActionOnlyFunctionIsRefused) {
    for (const QBuiltinGroup* group : BuiltinGroups()) {
        for (const QBuiltinFunction& function : group->functions) {
            if (function.actionOnly) {
                EXPECT_TRUE(QEvaluatingData::Refuses(FullId(function.name)))
                    << CString(function.name).ToUtf8();
            }
        }
    }
    for (const char16_t* name : QEvaluatingData::RefusedFunctions())
        EXPECT_TRUE(QEvaluatingData::Refuses(FullId(name)));
    EXPECT_TRUE(QEvaluatingData::Refuses(FullId(u"SHELL"))) << "names fold case";
    for (const char16_t* name : {u"lookup", u"readfile", u"fileexists", u"len", u"iff"})
        EXPECT_FALSE(QEvaluatingData::Refuses(FullId(name))) << CString(name).ToUtf8();
}

TEST(EvaluatingData, InForceUntilTheLastGuardEnds) {
    EXPECT_FALSE(QEvaluatingData::InForce());
    {
        const QEvaluatingData outer;
        {
            const QEvaluatingData inner;
            EXPECT_TRUE(QEvaluatingData::InForce());
        }
        EXPECT_TRUE(QEvaluatingData::InForce()) << "guards nest";
    }
    EXPECT_FALSE(QEvaluatingData::InForce());
}

// The same functions run in ordinary formulas, before a guard, after it and on another thread
// while one is held; under the guard they are refused even in an action field.
TEST(EvaluatingData, OrdinaryFormulasStillAct) {
    HostileValues hostile("formula");
    const std::string made = (hostile.Folder() / "made.txt").string();
    const std::string shell = "shellwait(\"touch\", \"" + made + "\")";
    const std::string write = "writeline(\"" + made + "\", \"x\")";
    DialogHost host;
    ScopedUIServices scoped(host);

    const struct {
        const char* formula;
        bool isAction;
        const char* effect; // the host's last call, or "file" for the file made
    } cases[] = {
        {"shell", false, "file"},
        {"write", true, "file"},
        {"msgbox(\"greeting from evaluatingdata\")", false, "box greeting from evaluatingdata"},
    };
    for (const auto& c : cases) {
        const std::string formula = c.formula == std::string("shell")   ? shell
                                    : c.formula == std::string("write") ? write
                                                                        : c.formula;
        SCOPED_TRACE(formula);
        const auto effect = [&] {
            std::string seen = host.calls.empty() ? "" : host.calls.back();
            if (std::filesystem::remove(made))
                seen = "file";
            host.calls.clear();
            return seen;
        };
        {
            const QEvaluatingData evaluatingData;
            EXPECT_TRUE(Refused(Evaluated(formula, c.isAction)))
                << Evaluated(formula, c.isAction).Shown();
            EXPECT_EQ(effect(), "");
            Outcome elsewhere{};
            std::thread([&] { elsewhere = Evaluated(formula, c.isAction); }).join();
            EXPECT_TRUE(elsewhere.ok) << elsewhere.message;
            EXPECT_EQ(effect(), c.effect) << "another thread is not guarded";
        }
        EXPECT_TRUE(Evaluated(formula, c.isAction).ok);
        EXPECT_EQ(effect(), c.effect);
    }
}

// The text of a string made a number is evaluated as data, whoever asks for the number.
TEST(EvaluatingData, AStringMadeANumberIsData) {
    HostileValues hostile("number");
    const QFormulaEvaluatorHook previous = GetFormulaEvaluatorHook();
    QEvaluator::InstallAsFormulaHook();
    const Outcome sum = Evaluated("value(\"2+3\") * 2");
    const Outcome shell = Evaluated("value('shellwait(\"touch\", \"" +
                                    (hostile.Folder() / "made").string() + "\")')");
    SetFormulaEvaluatorHook(previous);
    EXPECT_EQ(sum.Shown(), "10");
    EXPECT_TRUE(shell.ok && shell.value.IsError()) << shell.Shown();
    EXPECT_EQ(hostile.Effects(), HostileValues::c_noEffects);
    EXPECT_FALSE(QEvaluatingData::InForce());
}

TEST(EvaluatingData, ABranchNotTakenIsOnlyParsed) {
    const QEvaluatingData evaluatingData;
    const Outcome skipped = Evaluated("iff(0, msgbox(\"x\"), 5)");
    EXPECT_EQ(skipped.Shown(), "5");
    EXPECT_TRUE(Refused(Evaluated("iff(1, msgbox(\"x\"), 5)")));
    const Outcome debug = Evaluated("debug(1 + 1)");
    EXPECT_TRUE(Refused(debug)) << debug.Shown();
}

} // namespace
} // namespace keel::test
