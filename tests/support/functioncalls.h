#pragma once

#include "tests/support/anyvalues.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/uiservices.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <string>
#include <unistd.h>

namespace keel::test {

struct CallOutcome {
    bool ok = false;
    QAnyValue result;
    std::string message;
};

// Formulas that call built-in functions, with reports on and the error log kept in a file of the
// test's own.
class FunctionCallTest : public testing::Test {
protected:
    void SetUp() override {
        TheErrorLog().SetFilename(CString::FromUtf8(LogPath().string()));
        TheErrorLog().DiscardPendingMessages();
        SetNoEvalReportErrors(false);
        QEvaluator::InstallAsFormulaHook();
    }
    void TearDown() override {
        SetEvaluatorFactory(nullptr);
        SetUIServices(nullptr);
        TheErrorLog().DiscardPendingMessages();
        SetNoEvalReportErrors(false);
        std::error_code ignored;
        std::filesystem::remove(LogPath(), ignored);
    }

    static std::filesystem::path LogPath() {
        return std::filesystem::temp_directory_path() /
               ("keel-functioncalls-" + std::to_string(::getpid()) + ".txt");
    }

    static CallOutcome Run(const std::string& formula, QFormulaContext* context = nullptr) {
        CallOutcome outcome;
        const std::unique_ptr<QEvaluator> evaluator(QEvaluator::New(
            outcome.result, FormulaText(CString::FromUtf8(formula)), context, false, true, false));
        outcome.ok = evaluator->Evaluate();
        outcome.message = evaluator->Message().ToUtf8();
        return outcome;
    }

    struct ValueCase {
        const char* formula;
        QAnyValue expected;
    };
    static void ExpectValues(std::initializer_list<ValueCase> cases,
                             QFormulaContext* context = nullptr) {
        for (const ValueCase& c : cases) {
            const CallOutcome outcome = Run(c.formula, context);
            EXPECT_TRUE(outcome.ok) << c.formula << ": " << outcome.message;
            EXPECT_TRUE(outcome.result.Identical(c.expected))
                << c.formula << " gave " << DescribeValue(outcome.result) << ", expected "
                << DescribeValue(c.expected);
        }
    }

    // The call succeeds with an error value: a bad argument is no failure of the formula.
    struct ErrorCase {
        const char* formula;
        const char* message;
    };
    static void ExpectErrors(std::initializer_list<ErrorCase> cases) {
        for (const ErrorCase& c : cases) {
            const CallOutcome outcome = Run(c.formula);
            EXPECT_TRUE(outcome.ok) << c.formula << ": " << outcome.message;
            EXPECT_EQ(MessageOf(outcome.result), c.message) << c.formula;
        }
    }

    static std::string WrongCount(const std::string& name, const char* word) {
        return "Expecting " + name + " in correct number of values\nbut found\n\t" + word;
    }
};

} // namespace keel::test
