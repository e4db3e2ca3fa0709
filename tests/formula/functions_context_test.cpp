#include "tests/support/anyvalues.h"
#include "tests/support/environment.h"
#include "tests/support/namescontext.h"
#include "tests/support/tables.h"

#include "keel/document/winapp.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"
#include "keel/platform/timer.h"
#include "keel/system/fsfile.h"

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <pwd.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace keel {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// A context of values and formulas by name, which refuses to set "locked" and counts the values
// set. Values may be set from the timer's thread.
struct Outcome {
    bool ok = false;
    QAnyValue value;
    std::string message;
};

Outcome Evaluated(const std::string& formula, QFormulaContext* context, bool action) {
    Outcome outcome;
    QEvaluator evaluator(outcome.value, FormulaText(CString::FromUtf8(formula)), context, false,
                         false, action);
    outcome.ok = evaluator.Evaluate();
    outcome.message = evaluator.Message().ToUtf8();
    return outcome;
}

std::string Shown(const QAnyValue& value) {
    if (value.IsError())
        return "#ERR " + test::MessageOf(value);
    if (value.IsEmpty())
        return "<empty>";
    return QAnyValue(value).MakeCString().ToUtf8();
}

class FunctionsContext : public testing::Test {
protected:
    FunctionsContext() {
        m_room.Set("width", 40);
        m_room.Set("sizes", test::Array({1, 2}));
    }
    ~FunctionsContext() override { QTimerQueue::Instance().WaitUntilIdle(std::chrono::seconds(5)); }

    std::string ValueOf(const std::string& formula, bool action = false) {
        const Outcome outcome = Evaluated(formula, &m_room, action);
        return outcome.ok ? Shown(outcome.value) : "failed: " + outcome.message;
    }

    test::NamesContext m_room{"Room"};
};

struct ContextCase {
    const char* formula;
    const char* expected;
};

class FunctionsContextValues : public FunctionsContext,
                               public testing::WithParamInterface<ContextCase> {};

TEST_P(FunctionsContextValues, GiveTheirValue) {
    EXPECT_EQ(ValueOf(GetParam().formula, true), GetParam().expected) << GetParam().formula;
}

INSTANTIATE_TEST_SUITE_P(
    Table, FunctionsContextValues,
    testing::Values(
        ContextCase{"varexist(\"width\")", "Yes"}, ContextCase{"varexist(\"depth\")", "No"},
        ContextCase{"y := 1; varexist(\"y\")", "Yes"},
        ContextCase{"varifexistelse(\"width\", 7)", "40"},
        ContextCase{"varifexistelse(\"depth\", 7)", "7"},
        ContextCase{"varifexistelse(\"depth\")", "<empty>"},
        ContextCase{"y := \"local\"; varifexistelse(\"y\", 7)", "local"},
        ContextCase{"y := 1; vardelete(\"y\"); varexist(\"y\")", "No"},
        ContextCase{"vardelete(\"nothing\")", "Yes"}, ContextCase{"setvalue(\"depth\", 5)", "5"},
        ContextCase{"setvalue(\"locked\", 5)", "#ERR SetValue fails to set new value for locked"},
        ContextCase{"setformula(\"area\", \"width * 2\")", "width * 2"},
        ContextCase{"setformula(\"locked\", \"1\")",
                    "#ERR SetFormula fails to set new formula for locked"},
        ContextCase{"setvaluetimed(\"light\", 0, 0, 3, 1)", "No"}, ContextCase{"userid(9)", ""},
        ContextCase{"info(77)", ""}));

TEST_F(FunctionsContext, VarDeleteRemovesTheContextsProperty) {
    EXPECT_EQ(ValueOf("vardelete(\"width\")"), "Yes");
    EXPECT_FALSE(m_room.Has("width"));
}

TEST_F(FunctionsContext, SetValueAndSetFormulaWriteToTheContext) {
    EXPECT_EQ(ValueOf("setvalue(\"depth\", width / 2)", true), "20");
    EXPECT_EQ(m_room.Text("depth"), "20");
    EXPECT_EQ(ValueOf("setformula(\"area\", \"width * depth\")", true), "width * depth");
    EXPECT_EQ(m_room.Formula("area"), "width * depth");
}

TEST_F(FunctionsContext, SetValueTakesAWholeArrayAsTheValue) {
    EXPECT_EQ(ValueOf("setvalue(\"copy\", sizes); count(copy)", true), "2");
    EXPECT_EQ(m_room.Sets(), 1);
}

TEST_F(FunctionsContext, ActionsAreRefusedOutsideAnActionField) {
    for (const char* formula : {"setvalue(\"depth\", 1)", "setformula(\"depth\", \"1\")",
                                "setvaluetimed(\"depth\", 1, 0, 0, 0)"}) {
        const Outcome outcome = Evaluated(formula, &m_room, false);
        EXPECT_FALSE(outcome.ok) << formula;
        EXPECT_THAT(outcome.message, HasSubstr("Only allowed in an action field")) << formula;
    }
    EXPECT_FALSE(m_room.Has("depth"));
}

TEST_F(FunctionsContext, WithoutAContextNothingCanBeSet) {
    for (const char* formula : {"setvalue(\"depth\", 1)", "setvaluetimed(\"depth\", 1, 0, 0, 0)"}) {
        const Outcome outcome = Evaluated(formula, nullptr, true);
        ASSERT_TRUE(outcome.ok) << formula;
        EXPECT_EQ(test::MessageOf(outcome.value), "SetValue fails to set new value for depth");
    }
    EXPECT_EQ(test::MessageOf(Evaluated("setformula(\"depth\", 1)", nullptr, true).value),
              "SetFormula fails to set new formula for depth");
}

TEST_F(FunctionsContext, SetValueTimedSetsTheValueAfterTheDelay) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ValueOf("setvaluetimed(\"light\", \"on\", 100, 0, 0)", true), "on");
    EXPECT_FALSE(m_room.Has("light"));
    ASSERT_TRUE(QTimerQueue::Instance().WaitUntilIdle(std::chrono::seconds(5)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_EQ(m_room.Text("light"), "on");
}

TEST_F(FunctionsContext, ATimerOfTheSameNumberReplacesTheWaitingOne) {
    EXPECT_EQ(ValueOf("setvaluetimed(\"light\", \"first\", 300, 7, 0)", true), "first");
    EXPECT_EQ(ValueOf("setvaluetimed(\"light\", \"second\", 20, 7, 0)", true), "second");
    ASSERT_TRUE(QTimerQueue::Instance().WaitUntilIdle(std::chrono::seconds(5)));
    EXPECT_EQ(m_room.Text("light"), "second");
    EXPECT_EQ(m_room.Sets(), 1);
}

TEST_F(FunctionsContext, ATimerCanBeCancelledByItsNumber) {
    EXPECT_EQ(ValueOf("setvaluetimed(\"light\", \"on\", 300, 8, 0)", true), "on");
    EXPECT_EQ(ValueOf("setvaluetimed(\"light\", 0, 0, 8, 1)", true), "Yes");
    EXPECT_EQ(ValueOf("setvaluetimed(\"light\", 0, 0, 8, 1)", true), "No");
    ASSERT_TRUE(QTimerQueue::Instance().WaitUntilIdle(std::chrono::seconds(5)));
    EXPECT_FALSE(m_room.Has("light"));
}

TEST_F(FunctionsContext, ATimerThatRanLeavesItsNumberFree) {
    EXPECT_EQ(ValueOf("setvaluetimed(\"light\", \"on\", 0, 9, 0)", true), "on");
    ASSERT_TRUE(QTimerQueue::Instance().WaitUntilIdle(std::chrono::seconds(5)));
    EXPECT_EQ(ValueOf("setvaluetimed(\"light\", 0, 0, 9, 1)", true), "No");
    EXPECT_EQ(m_room.Text("light"), "on");
}

// The user as the system knows the account that runs the tests.
TEST_F(FunctionsContext, UserIdTellsWhoRunsTheProgram) {
    const passwd* entry = ::getpwuid(::geteuid());
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(ValueOf("userid()"), entry->pw_name);
    EXPECT_EQ(ValueOf("userid(1)"), entry->pw_name);
    EXPECT_EQ(ValueOf("userid(0)"), std::to_string(::geteuid()));
    EXPECT_EQ(ValueOf("userid(3)"), entry->pw_dir);
}

TEST_F(FunctionsContext, InfoTellsTheMachineAndTheApplication) {
    char host[256] = {};
    ASSERT_EQ(::gethostname(host, sizeof host - 1), 0);
    EXPECT_EQ(ValueOf("info(5)"), host);
    const std::string name = QWinApp::GetApp() ? QWinApp::GetApp()->AppName().ToUtf8() : "";
    EXPECT_EQ(ValueOf("info(1)"), name);
}

// An application whose library folder is the test's own, so that the file functions can watch
// what a program does.
class FolderFactory : public QEvaluatorFactory {
public:
    explicit FolderFactory(const fs::path& folder) : m_folder(folder) {}
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        return new QEvaluator(result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder) const override {
        return CString::FromUtf8(m_folder.string());
    }

private:
    fs::path m_folder;
};

class FunctionsContextShell : public FunctionsContext {
protected:
    FunctionsContextShell()
        : m_folder(fs::temp_directory_path() /
                   ("keel-shell-" + std::to_string(::getpid()) + "-" +
                    testing::UnitTest::GetInstance()->current_test_info()->name())),
          m_factory(m_folder) {
        fs::remove_all(m_folder);
        fs::create_directories(m_folder);
        m_previousFactory = SetEvaluatorFactory(&m_factory);
        m_previousSource = SetTableHandleSource(&m_tables);
    }
    ~FunctionsContextShell() override {
        SetTableHandleSource(m_previousSource);
        SetEvaluatorFactory(m_previousFactory);
        fs::remove_all(m_folder);
    }

    std::string Quoted(const fs::path& path) const { return "'" + path.string() + "'"; }

    fs::path m_folder;
    FolderFactory m_factory;
    test::NamedTableSource m_tables;
    QEvaluatorFactory* m_previousFactory = nullptr;
    QTableHandleSource* m_previousSource = nullptr;
};

TEST_F(FunctionsContextShell, ShellWaitRunsTheProgramInItsFolderAndWaits) {
    EXPECT_EQ(
        ValueOf("shellwait(\"sh\", '-c \"echo made here > made.txt\"', " + Quoted(m_folder) + ")"),
        "Yes");
    EXPECT_EQ(test::ReadText(m_folder / "made.txt"), "made here\n");
}

TEST_F(FunctionsContextShell, WhatFilesHeldIsForgottenAroundAProgram) {
    EXPECT_EQ(ValueOf("fileexists(\"made\")"), "No");
    EXPECT_EQ(ValueOf("shellwait(\"touch\", " + Quoted(m_folder / "made.txt") + ")"), "Yes");
    EXPECT_EQ(ValueOf("fileexists(\"made\")"), "Yes");
    EXPECT_GE(m_tables.m_reloadAllCount, 1);
}

TEST_F(FunctionsContextShell, ShellDoesNotWait) {
    const fs::path late = m_folder / "late.txt";
    EXPECT_EQ(ValueOf("shell(\"sh\", '-c \"sleep 0.3; echo late > " + late.string() + "\"')"),
              "Yes");
    EXPECT_FALSE(fs::exists(late));
    for (int tries = 0; tries < 100 && test::ReadText(late) != "late\n"; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(test::ReadText(late), "late\n");
}

TEST_F(FunctionsContextShell, AProgramThatCannotStartIsAnErrorValue) {
    EXPECT_EQ(ValueOf("shellwait(\"keel-no-such-program\")"),
              "#ERR Cannot run keel-no-such-program: No such file or directory");
    EXPECT_EQ(ValueOf("shell(\"true\", \"\", " + Quoted(m_folder / "nowhere") + ")"),
              "#ERR Cannot run true: No such file or directory");
}

TEST_F(FunctionsContext, ACountOutsideTheRangeIsRefused) {
    for (const char* formula :
         {"varexist()", "varifexistelse()", "vardelete(1, 2)", "setvalue(\"a\")",
          "setformula(\"a\", 1, 2)", "setvaluetimed(\"a\", 1, 2, 3)", "shell()",
          "shellwait(1, 2, 3, 4, 5)", "userid(1, 2)", "info()"}) {
        const Outcome outcome = Evaluated(formula, &m_room, true);
        EXPECT_FALSE(outcome.ok) << formula;
        EXPECT_THAT(outcome.message, HasSubstr("correct number of values")) << formula;
    }
}

} // namespace
} // namespace keel
