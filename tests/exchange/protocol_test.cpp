#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"

#include "keel/exchange/exportflags.h"
#include "keel/exchange/exportformatascii.h"
#include "keel/exchange/importformatascii.h"

#include <gtest/gtest.h>

namespace keel::test {
namespace {

// Init leaves flag 5 alone set in each bank, and the process's flags read false without an
// object.
TEST(ExportFlagsTest, InitSetsFlagFiveAloneInEachBankAndTheGlobalReadsFalseWithoutAnObject) {
    QExport flags;
    flags.SetExportFlag(4, true);
    flags.SetExportFlag(16, true);
    EXPECT_FALSE(flags.IsExportFlagSet(16));
    QExport* const process = QExport::TheExportFlags();
    QExport::SetTheExportFlags(nullptr);
    EXPECT_FALSE(QExport::IsFlagSet(5));
    QExport::SetTheExportFlags(process);
    EXPECT_TRUE(QExport::IsFlagSet(5));
    flags.SelectBank(1);
    flags.Init();
    EXPECT_EQ(flags.SelectedBank(), 0);
    for (int bank : {0, 1}) {
        flags.SelectBank(bank);
        for (int flag = -1; flag <= QExport::c_flagsPerBank; ++flag)
            EXPECT_EQ(flags.IsExportFlagSet(flag), flag == 5) << bank << ":" << flag;
    }
}

// One attribute through a level of its own; the line written, or nothing.
class OneAttribute : public QExportable {
public:
    explicit OneAttribute(QExportAttribute attribute, std::int32_t arrayIndex = -1)
        : m_attribute(std::move(attribute)), m_arrayIndex(arrayIndex) {}
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override {
        if (m_arrayIndex >= 0)
            level.SetArrayMode(true, m_arrayIndex);
        return level.AddExportableAttribute(m_attribute);
    }

private:
    QExportAttribute m_attribute;
    std::int32_t m_arrayIndex;
};

TEST(ExportLevelTest, MinimalDropsOnlyIdenticalDefaultsWithoutFormulaOutsideArrays) {
    const FormulaText formula(u"2");
    struct Case {
        const char* what;
        QExportAttribute attribute;
        std::int32_t arrayIndex;
        const char16_t* minimal;
    };
    const Case cases[] = {
        {"equal to default", QExportAttribute(u"a", QAnyValue(2), QAnyValue(2)), -1, u""},
        {"other than default", QExportAttribute(u"a", QAnyValue(3), QAnyValue(2)), -1,
         u"a\t3\t\t\n"},
        {"same number, other type", QExportAttribute(u"a", QAnyValue(2.0), QAnyValue(2)), -1,
         u"a\t2.0\t\t\n"},
        {"no default", QExportAttribute(u"a", QAnyValue(2)), -1, u"a\t2\t\t\n"},
        {"formula equal to default", QExportAttribute(u"a", QAnyValue(2), formula, QAnyValue(2)),
         -1, u"a\t\t2\t\n"},
        {"array element equal to default", QExportAttribute(u"a", QAnyValue(2), QAnyValue(2)), 7,
         u"a[7]\t2\t\t\n"},
        {"formula and default formula", QExportAttribute(u"a", formula, formula), -1,
         u"a\t\t2\t\n"},
        {"no formula and empty default formula",
         QExportAttribute(u"a", FormulaText(), FormulaText()), -1, u""},
        {"value with formula and default",
         QExportAttribute(u"a", QWithFormula<QAnyValue>{QAnyValue(2)}, QAnyValue(2)), -1, u""},
        {"value with formula", QExportAttribute(u"a", QWithFormula<QAnyValue>{QAnyValue(2)}), -1,
         u"a\t2\t\t\n"},
    };
    for (const Case& c : cases) {
        const OneAttribute object(c.attribute, c.arrayIndex);
        EXPECT_EQ(GatheredLines(object, true), CString(c.minimal)) << c.what;
        EXPECT_FALSE(GatheredLines(object, false).IsEmpty()) << c.what;
    }
}

// A receiver that refuses what it is given.
class Refusing : public QImportAttribute {
public:
    CString Name() const override { return u"a"; }
    bool SetValue(const QAnyValue&) const override { return false; }
    bool SetFormula(FormulaText) const override { return true; }
};

class Refuser : public QImportable {
public:
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        level.SetArrayMode(arrayIndex >= 0, arrayIndex);
        return level.ImportAttributeIfPresent(Refusing());
    }
    int arrayIndex = -1;
};

using ImportLevelTest = ExchangeFileTest;

TEST_F(ImportLevelTest, AFailedConversionIsReportedWithTheAttributesName) {
    Refuser refuser;
    EXPECT_TRUE(Import(refuser, "\n\n"));
    EXPECT_TRUE(PendingReports().empty()) << "an absent attribute, or a blank line, is no error";
    EXPECT_FALSE(Import(refuser, "a\t1\t\t\n"));
    refuser.arrayIndex = 3;
    EXPECT_FALSE(Import(refuser, "a[3]\t1\t\t\n"));
    const std::vector<Report> expected{{"Import error", "Import failed for attribute a"},
                                       {"Import error", "Import failed for attribute a[3]"}};
    EXPECT_EQ(PendingReports(), expected);
}

class RefusingGroup : public FakeGroup {
public:
    using FakeGroup::FakeGroup;
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        FakeGroup::ImportAttributesAndChildren(level);
        return false;
    }
};

TEST_F(ImportLevelTest, AFailedChildIsReportedWithItsLevelAndIdentifier) {
    FakeTree tree;
    tree.groups.push_back(std::make_unique<RefusingGroup>(u"G"));
    EXPECT_FALSE(Import(tree, "width\t1\t\tGroup|G\nwidth\t1\t\tGroup|H\n"));
    EXPECT_EQ(PendingReports(),
              (std::vector<Report>{{"Import error", "Import failed for Group:G"}}));
    ASSERT_EQ(tree.groups.size(), 2u) << "a group that the tree lacked is made";
    EXPECT_EQ(tree.groups[1]->name, CString(u"H"));
}

TEST_F(ImportLevelTest, ByValueAndSetterAttributesConvertOrFallBackToTheDefault) {
    struct Target : QImportable {
        bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
            return level.ImportAttributeIfPresent(QByValImportAttribute<int>(u"i", i)) &&
                   level.ImportAttributeIfPresent(QByValImportAttribute<CString>(u"s", s)) &&
                   level.ImportAttributeIfPresent(
                       QByValImportAttribute<FormulaText>(u"f", f, &formula)) &&
                   level.ImportAttributeIfPresent(QByValImportAttribute<QAnyValue>(u"v", v)) &&
                   level.ImportAttributeIfPresent(
                       QSetterImportAttribute<Target, double>(u"w", this, &Target::SetWidth));
        }
        void SetWidth(double width) { w = width; }
        int i = 5;
        CString s;
        FormulaText f;
        FormulaText formula;
        QAnyValue v;
        double w = 0;
    };
    Target target;
    EXPECT_TRUE(Import(target, "i\t\"\"\"abc\"\"\"\t\t\ns\t42\t\t\n"
                               "f\t\"\"\"x+1\"\"\"\tx+2\t\nv\t1/0\t\t\nw\t3*4\t\t\n"));
    EXPECT_EQ(target.i, 0) << "text that is no number gives the default";
    EXPECT_EQ(target.s, CString(u"42"));
    EXPECT_EQ(target.f.ToString(), "x+1");
    EXPECT_EQ(target.formula.ToString(), "x+2");
    CString message;
    EXPECT_TRUE(target.v.IsErrorAndGetMessage(message)) << "a bad value arrives as an error";
    EXPECT_DOUBLE_EQ(target.w, 12.0) << "a setter takes the converted value";
}

} // namespace
} // namespace keel::test
