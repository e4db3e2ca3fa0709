#include "tests/support/anyvalues.h"
#include "tests/support/environment.h"
#include "tests/support/tables.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"
#include "keel/values/tablehandle.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

using test::MessageOf;

// A name as the maps below keep it: interned names keep the spelling seen first, in any test.
std::string Key(PropId name) {
    CString text = name.ToString();
    return text.MakeLower().ToUtf8();
}

// A context that keeps the values and formulas written to it, and answers look-ups from the
// values.
class SheetContext : public QFormulaContext {
public:
    CString SimpleTypeName() const override { return u"Sheet"; }
    QProperties* Properties() const override { return nullptr; }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool&, QCacheState&,
                                 bool) override {
        const auto entry = m_values.find(Key(name));
        if (entry == m_values.end())
            return false;
        value = entry->second;
        return true;
    }
    bool SimpleSetValueInThis(PropId name, const QAnyValue& value) override {
        m_values[Key(name)] = value;
        return true;
    }
    bool SimpleSetFormulaInThis(PropId name, FormulaText formula) override {
        m_formulas[Key(name)] = formula.ToString().ToUtf8();
        return true;
    }

    std::map<std::string, QAnyValue> m_values;
    std::map<std::string, std::string> m_formulas;
};

struct Outcome {
    bool ok = false;
    QAnyValue value;
    std::string message;
};

struct Setting {
    QFormulaContext* context = nullptr;
    bool action = false;
    std::vector<QAnyValue> args;
};

Outcome Evaluated(const char* formula, const Setting& setting = {}) {
    Outcome outcome;
    QEvaluator evaluator(outcome.value, FormulaText(formula), setting.context, false, false,
                         setting.action);
    for (std::size_t i = 0; i < setting.args.size(); ++i)
        evaluator.SetArg(static_cast<int>(i) + 1, setting.args[i]);
    outcome.ok = evaluator.Evaluate();
    outcome.message = evaluator.Message().ToUtf8();
    return outcome;
}

Outcome Action(const char* formula, QFormulaContext* context = nullptr) {
    return Evaluated(formula, Setting{context, true, {}});
}

Outcome WithArgs(const char* formula, std::initializer_list<QAnyValue> args) {
    return Evaluated(formula, Setting{nullptr, false, args});
}

Outcome SyntaxChecked(const char* formula, bool action = false) {
    Outcome outcome;
    QEvaluator evaluator(outcome.value, FormulaText(formula), nullptr, false, false, action);
    outcome.ok = evaluator.EvaluateNoEval();
    outcome.message = evaluator.Message().ToUtf8();
    return outcome;
}

std::string Text(const QAnyValue& value) {
    return value.TypeName().ToUtf8() + " " + value.Format().ToUtf8();
}

testing::AssertionResult HasValue(const char* formula, const Outcome& outcome,
                                  const QAnyValue& expected) {
    if (!outcome.ok)
        return testing::AssertionFailure() << formula << " failed: " << outcome.message;
    if (!(outcome.value == expected))
        return testing::AssertionFailure()
               << formula << " gives " << Text(outcome.value) << ", not " << Text(expected);
    return testing::AssertionSuccess();
}

testing::AssertionResult Fails(const char* formula, const Outcome& outcome,
                               const std::string& message) {
    if (outcome.ok)
        return testing::AssertionFailure() << formula << " succeeded with " << Text(outcome.value);
    if (outcome.message != message)
        return testing::AssertionFailure() << formula << " failed with \"" << outcome.message
                                           << "\", not \"" << message << "\"";
    return testing::AssertionSuccess();
}

QAnyValue Int(int value) {
    return QAnyValue(value);
}

QAnyValue Bool(bool value) {
    return QAnyValue(value);
}

// --- Blocks and statement lists

TEST(StatementsBlocks, AnEmptyFormulaHasAnEmptyValue) {
    const Outcome outcome = Evaluated("");
    EXPECT_TRUE(outcome.ok);
    EXPECT_TRUE(outcome.value.IsEmpty());
}

// --- Assignment or expression

TEST(StatementsAssignment, AFinalEqualsAloneIsAComparison) {
    SheetContext sheet;
    sheet.m_values["x"] = Int(2);
    EXPECT_TRUE(HasValue("x = 3", Evaluated("x = 3", Setting{&sheet, false, {}}), Bool(false)));
    EXPECT_TRUE(HasValue("x = 2", Evaluated("x = 2", Setting{&sheet, false, {}}), Bool(true)));
    EXPECT_TRUE(HasValue("x = 3;", Evaluated("x = 3;", Setting{&sheet, false, {}}), Int(3)));
    EXPECT_TRUE(sheet.m_values["x"] == Int(2));
}

TEST(StatementsAssignment, OptionExplicitIsNotCheckedWithEvaluationOff) {
    EXPECT_TRUE(SyntaxChecked("option explicit; x := 1").ok);
}

// --- dim, var, let

TEST(StatementsDeclarations, DimAndVarGiveEmptyValues) {
    const Outcome dim = Evaluated("dim a, b; b");
    EXPECT_TRUE(dim.ok) << dim.message;
    EXPECT_TRUE(dim.value.IsEmpty());
    const Outcome var = Evaluated("var c; c");
    EXPECT_TRUE(var.ok) << var.message;
    EXPECT_TRUE(var.value.IsEmpty());
}

// --- Routines

TEST(StatementsRoutines, ArgumentsComeFromSetArgOrTheirDefaults) {
    const char* product = "function(a, b) a * b end function";
    EXPECT_TRUE(HasValue(product, WithArgs(product, {Int(3), Int(4)}), Int(12)));
    const char* withDefault = "function(a, b = 10) a + b endfunction";
    EXPECT_TRUE(HasValue(withDefault, WithArgs(withDefault, {Int(1)}), Int(11)));
    EXPECT_TRUE(HasValue(withDefault, WithArgs(withDefault, {Int(1), Int(2)}), Int(3)));
    const char* percent = "function(a) a + %1 end function";
    EXPECT_TRUE(HasValue(percent, WithArgs(percent, {Int(5)}), Int(10)));
    const Outcome missing = WithArgs("function(a) a end function", {});
    EXPECT_TRUE(missing.ok) << missing.message;
    EXPECT_TRUE(missing.value.IsEmpty());
}

TEST(StatementsRoutines, ADefaultIsOnlyEvaluatedWhenNoArgumentIsGiven) {
    const char* formula = "function(a := 1 / 0) a end function";
    EXPECT_TRUE(HasValue(formula, WithArgs(formula, {Int(7)}), Int(7)));
    const Outcome fallback = WithArgs(formula, {});
    EXPECT_TRUE(fallback.ok) << fallback.message;
    EXPECT_EQ(MessageOf(fallback.value), "Division by zero");
}

TEST(StatementsRoutines, AFunctionReturnsThisWhenItIsSet) {
    const char* formula = "function(a) this := a * 2; 99 end function";
    EXPECT_TRUE(HasValue(formula, WithArgs(formula, {Int(4)}), Int(8)));
}

TEST(StatementsRoutines, ASubYieldsEmpty) {
    for (const char* formula :
         {"sub(a) a * 2 end sub", "sub 5 endsub", "function 1 end function sub 2 end sub"}) {
        const Outcome outcome = WithArgs(formula, {Int(3)});
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
        EXPECT_TRUE(outcome.value.IsEmpty()) << formula << ": " << Text(outcome.value);
    }
}

TEST(StatementsRoutines, ExitFunctionSkipsTheRestOfTheRoutine) {
    const char* formula =
        "function(a) if a > 2 then exit function endif; this := 1; 7 end function";
    const Outcome left = WithArgs(formula, {Int(5)});
    EXPECT_TRUE(left.ok) << left.message;
    EXPECT_TRUE(left.value.IsEmpty()) << Text(left.value);
    EXPECT_TRUE(HasValue(formula, WithArgs(formula, {Int(1)}), Int(1)));
    const char* sub = "sub(a) exitsub; unknown end sub";
    EXPECT_TRUE(WithArgs(sub, {Int(1)}).ok);
}

// --- set value and set formula

TEST(StatementsSet, SetValueWritesToTheContext) {
    SheetContext sheet;
    const Outcome outcome = Action("set value width = 2 + 3", &sheet);
    EXPECT_TRUE(HasValue("set value", outcome, Int(5)));
    EXPECT_TRUE(sheet.m_values["width"] == Int(5));
    EXPECT_TRUE(
        HasValue("set value :=", Action("set value depth := 7; depth * 2", &sheet), Int(14)));
}

TEST(StatementsSet, SetFormulaWritesTheTextAsAFormula) {
    SheetContext sheet;
    const Outcome outcome = Action("set formula height = 'depth * 2'", &sheet);
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(sheet.m_formulas["height"], FormulaText("depth * 2").ToString().ToUtf8());
    EXPECT_TRUE(sheet.m_values.empty());
}

TEST(StatementsSet, ARefusedWriteIsAnErrorValue) {
    SheetContext sheet;
    const Outcome value = Action("set value nosuchsheet.width = 1", &sheet);
    EXPECT_TRUE(value.ok) << value.message;
    EXPECT_EQ(MessageOf(value.value), "SetValue fails to set new value for nosuchsheet.width");
    const Outcome formula = Action("set formula nosuchsheet.width = '1'", &sheet);
    EXPECT_TRUE(formula.ok) << formula.message;
    EXPECT_EQ(MessageOf(formula.value),
              "SetFormula fails to set new formula for nosuchsheet.width");
}

TEST(StatementsSet, WithoutAContextASetFailsAsARefusedWrite) {
    EXPECT_EQ(MessageOf(Action("set value loosevalue = 1").value),
              "SetValue fails to set new value for loosevalue");
    EXPECT_EQ(MessageOf(Action("set formula loosevalue = 1").value),
              "SetFormula fails to set new formula for loosevalue");
}

TEST(StatementsSet, OnlyInAnActionField) {
    SheetContext sheet;
    EXPECT_TRUE(Fails("set value", Evaluated("set value w = 1", Setting{&sheet, false, {}}),
                      "Only allowed in an action field\n\tset value w = 1"));
    EXPECT_TRUE(sheet.m_values.empty());
}

TEST(StatementsSet, NothingIsWrittenWithEvaluationOff) {
    SheetContext sheet;
    EXPECT_TRUE(HasValue("if", Action("if 0 then set value w = 1 endif; 2", &sheet), Int(2)));
    EXPECT_TRUE(sheet.m_values.empty());
}

// --- Lookup-table statements

// Writes down, at each transaction, the extra context lines in force.
class ContextRecordingTable : public test::NamedTable {
public:
    explicit ContextRecordingTable(const CString& name) : NamedTable(name) {}
    bool BeginTrans() override { return Record(NamedTable::BeginTrans()); }
    bool CommitTrans() override { return Record(NamedTable::CommitTrans()); }
    bool Rollback() override { return Record(NamedTable::Rollback()); }
    bool Reload() override { return Record(NamedTable::Reload()); }
    bool UpdateExact(const QAnyValue& row, const QAnyValue& col, const QAnyValue& value,
                     QFormulaContext* context) override {
        return Record(NamedTable::UpdateExact(row, col, value, context));
    }

    std::vector<std::string> m_contexts;

private:
    bool Record(bool succeeded) {
        m_contexts.push_back(QEvaluator::ContextInfo(true).ToUtf8());
        return succeeded;
    }
};

class ContextRecordingSource : public test::NamedTableSource {
public:
    QTableHandlePtr Open(const CString& name, bool, CString&) override {
        m_tables.push_back(QSmartPtr<ContextRecordingTable>(new ContextRecordingTable(name)));
        return QTableHandlePtr(m_tables.back().Get());
    }

    std::vector<QSmartPtr<ContextRecordingTable>> m_tables;
};

class StatementsTables : public testing::Test {
protected:
    void SetUp() override { m_previous = SetTableHandleSource(&m_source); }
    void TearDown() override { SetTableHandleSource(m_previous); }

    // Every journal entry of every table opened, in order.
    std::vector<std::string> Journal() const {
        std::vector<std::string> entries;
        for (const QSmartPtr<test::NamedTable>& table : m_source.m_opened)
            entries.insert(entries.end(), table->m_journal.begin(), table->m_journal.end());
        return entries;
    }

    test::NamedTableSource m_source;
    QTableHandleSource* m_previous = nullptr;
};

using Entries = std::vector<std::string>;

TEST_F(StatementsTables, TransactionsRunOnTheTable) {
    EXPECT_TRUE(HasValue("begin", Action("begin transaction vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("begintrans", Action("begintrans vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("commit", Action("commit transaction vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("committrans", Action("committrans vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("rollback", Action("rollback vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("reload", Action("reload vlt 'prices'"), Bool(true)));
    EXPECT_EQ(Journal(), (Entries{"BeginTrans", "BeginTrans", "CommitTrans", "CommitTrans",
                                  "Rollback", "Reload"}));
}

TEST_F(StatementsTables, BeginTransactionAtStatementStartIsNoBlock) {
    EXPECT_TRUE(HasValue("begin", Action("x := 'p'; begin transaction vlt x; 3"), Int(3)));
    EXPECT_EQ(Journal(), Entries{"BeginTrans"});
}

TEST_F(StatementsTables, UpdateByLabelsOrByIndexes) {
    EXPECT_TRUE(HasValue("update",
                         Action("update vlt 'p' set cell = 5 where row = 'a' and "
                                "col = 'b'"),
                         Bool(true)));
    EXPECT_TRUE(HasValue("update",
                         Action("update vlt 'p' set cell := 2 * 3 where col = 'b' "
                                "and row = 'a'"),
                         Bool(true)));
    EXPECT_TRUE(HasValue("update",
                         Action("update vlt 'p' set cell = 6 where rowindex = 3 and "
                                "colindex = 2"),
                         Bool(true)));
    EXPECT_TRUE(HasValue("update",
                         Action("update vlt 'p' set cell = 7 where colindex = 1 and "
                                "rowindex = 1 + 1"),
                         Bool(true)));
    EXPECT_EQ(Journal(), (Entries{"UpdateExact a b 5", "UpdateExact a b 6", "UpdateByIndex 2 1 6",
                                  "UpdateByIndex 1 0 7"}));
}

TEST_F(StatementsTables, ReloadAllTables) {
    EXPECT_TRUE(Action("reload vlt *").ok);
    EXPECT_EQ(m_source.m_reloadAllCount, 1);
    EXPECT_TRUE(Action("if 0 then reload vlt * endif").ok);
    EXPECT_EQ(m_source.m_reloadAllCount, 1);
}

TEST_F(StatementsTables, NothingRunsWithEvaluationOff) {
    EXPECT_TRUE(Action("if 0 then begintrans vlt 'p'; update vlt 'p' set cell = 1 where row "
                       "= 1 and col = 2 endif")
                    .ok);
    EXPECT_TRUE(SyntaxChecked("rollback vlt 'p'", true).ok);
    EXPECT_TRUE(Journal().empty());
}

TEST_F(StatementsTables, AnUnknownTableIsAnErrorValue) {
    test::NamedTableSource known({"prices"});
    SetTableHandleSource(&known);
    const Outcome outcome = Action("rollback vlt 'costs'");
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(MessageOf(outcome.value), "Cannot find lookup table costs");
}

TEST_F(StatementsTables, EachRunsUnderItsContextLine) {
    ContextRecordingSource recording;
    SetTableHandleSource(&recording);
    for (const char* formula :
         {"begintrans vlt 'p'", "committrans vlt 'p'", "rollback vlt 'p'", "reload vlt 'p'",
          "update vlt 'p' set cell = 1 where row = 1 and col = 2"})
        EXPECT_TRUE(Action(formula).ok) << formula;
    std::vector<std::string> contexts;
    for (const auto& table : recording.m_tables)
        contexts.insert(contexts.end(), table->m_contexts.begin(), table->m_contexts.end());
    EXPECT_EQ(contexts,
              (std::vector<std::string>{"\nin\n\tBEGINTRANS VLT", "\nin\n\tCOMMITTRANS VLT",
                                        "\nin\n\tROLLBACK VLT", "\nin\n\tRELOAD VLT",
                                        "\nin\n\tUPDATE VLT\n\tUPDATE VLT ERROR"}));
    EXPECT_EQ(QEvaluator::ContextInfo(true).ToUtf8(), "");
}

TEST_F(StatementsTables, OnlyInAnActionField) {
    EXPECT_TRUE(Journal().empty());
}

TEST_F(StatementsTables, CommitAloneIsNoStatement) {
    EXPECT_TRUE(HasValue("commit", Action("commit := 2; commit + 1"), Int(3)));
}

// --- Debug display ------------------------------------------------------------------------------

TEST(StatementsDebug, EachStatementRunIsShownWithItsValue) {
    namespace fs = std::filesystem;
    const fs::path folder =
        fs::temp_directory_path() / ("keel-statements-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    test::ScopedEnvironment environment;
    for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
        environment.Set(variable, folder.string());
    QErrorLog& log = TheErrorLog();
    const CString previousFilename = log.Filename();
    log.DiscardPendingMessages();
    log.CloseLogFile();
    log.SetFilename(CString::FromUtf8((folder / "errors.txt").string()));

    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("x := 2; if 0 then 5 endif; x * 3"), nullptr, false,
                         false, false);
    evaluator.SetDebug(true);
    EXPECT_TRUE(evaluator.Evaluate()) << evaluator.Message().ToUtf8();
    std::vector<std::string> shown;
    for (int i = 0; i < log.GetSize(); ++i)
        if (log.ErrorType(i)->Description() == CString(u"Formula Debug"))
            shown.push_back(log.Message(i).ToUtf8());
    EXPECT_EQ(shown, (std::vector<std::string>{"x := 2\nevaluates to\n\t2",
                                               "if 0 then 5 endif\nevaluates to\n\t2",
                                               "x * 3\nevaluates to\n\t6"}));

    log.DiscardPendingMessages();
    log.CloseLogFile();
    log.SetFilename(previousFilename);
    fs::remove_all(folder);
}

// --- The evaluation-off check

TEST(StatementsNoEval, EveryStatementParsesWithoutRunning) {
    for (const char* formula :
         {"for i = 1 to 3 do x := i next; x", "while unknown do 1 wend", "do 1 loop until unknown",
          "repeat 1 until unknown", "for each x in unknown do 1 next",
          "for (i := 0; unknown; i := i + 1) 1", "try unknown catch 2 endtry",
          "select case unknown case 1: 1 endselect", "switch (unknown) { case 1: 1 }",
          "let unknown = 1", "var a; var a", "break; continue; exit for"}) {
        const Outcome outcome = SyntaxChecked(formula);
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
    }
    EXPECT_FALSE(SyntaxChecked("while 1 do 1 +").ok);
}

} // namespace
} // namespace keel
