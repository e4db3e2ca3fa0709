#include "tests/support/evaluations.h"
#include "tests/support/namescontext.h"
#include "tests/support/tables.h"
#include "tests/support/tempfolder.h"

#include "keel/document/winapp.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/timer.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace keel {
namespace {

namespace fs = std::filesystem;

// The timers, the user, the machine and the programs run; the rest is in
// tests/formula/cases/functions_context.txt.
class FunctionsContext : public test::TempFolderTest {
protected:
    ~FunctionsContext() override { QTimerQueue::Instance().WaitUntilIdle(std::chrono::seconds(5)); }

    std::string ValueOf(const std::string& formula, bool action = false) {
        return test::Evaluated(formula, &m_room, {.action = action}).Shown();
    }
    test::NamesContext m_room{"Room"};
};

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
    EXPECT_EQ(ValueOf("setvaluetimed(\"lamp\", \"on\", 300, 1, 0)", true), "on");
    EXPECT_EQ(ValueOf("setvaluetimed(\"lamp\", 0, 0, 1, 1)", true), "Yes");
    ASSERT_TRUE(QTimerQueue::Instance().WaitUntilIdle(std::chrono::seconds(5)));
    EXPECT_FALSE(m_room.Has("light"));
    EXPECT_FALSE(m_room.Has("lamp"));
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

// An application whose folders are the test's own, so that the file functions can watch what a
// program does.
class FunctionsContextShell : public FunctionsContext {
protected:
    void SetUp() override {
        FunctionsContext::SetUp();
        m_factory.folders = [this](QConstantFolder) { return CString::FromUtf8(m_root.string()); };
        m_previousFactory = SetEvaluatorFactory(&m_factory);
        m_previousSource = SetTableHandleSource(&m_tables);
    }
    void TearDown() override {
        SetTableHandleSource(m_previousSource);
        SetEvaluatorFactory(m_previousFactory);
        FunctionsContext::TearDown();
    }
    std::string Quoted(const std::string& name) const { return "'" + Path(name) + "'"; }

    test::EvaluatorFactoryOf<> m_factory;
    test::NamedTableSource m_tables;
    QEvaluatorFactory* m_previousFactory = nullptr;
    QTableHandleSource* m_previousSource = nullptr;
};

TEST_F(FunctionsContextShell, ShellWaitRunsTheProgramInItsFolderAndWaits) {
    EXPECT_EQ(ValueOf("shellwait(\"sh\", '-c \"echo made here > made.txt\"', " + Quoted("") + ")"),
              "Yes");
    EXPECT_EQ(test::ReadText(m_root / "made.txt"), "made here\n");
}

TEST_F(FunctionsContextShell, WhatFilesHeldIsForgottenAroundAProgram) {
    EXPECT_EQ(ValueOf("fileexists(\"made\")"), "No");
    EXPECT_EQ(ValueOf("shellwait(\"touch\", " + Quoted("made.txt") + ")"), "Yes");
    EXPECT_EQ(ValueOf("fileexists(\"made\")"), "Yes");
    EXPECT_GE(m_tables.m_reloadAllCount, 1);
}

TEST_F(FunctionsContextShell, ShellDoesNotWait) {
    const fs::path late = m_root / "late.txt";
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
    EXPECT_EQ(ValueOf("shell(\"true\", \"\", " + Quoted("nowhere") + ")"),
              "#ERR Cannot run true: No such file or directory");
}

} // namespace
} // namespace keel
