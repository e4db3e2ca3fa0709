#include "tests/support/answerdocument.h"
#include "tests/support/errorreports.h"

#include "keel/formula/toplevelcontext.h"
#include "keel/questions/properties.h"
#include "keel/questions/propertyhandle.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::AnswerContext;
using test::AnswerDocument;

const PropId c_key("handled");
const PropId c_base("base");

// One read: what was found and how.
struct Reading {
    bool found = false;
    QAnyValue value;
    bool error = false;
    QCacheState state = QCS_Stable;
};

// The value is primed with something else, so that a read that forgets to set it shows.
Reading ByGetter(QFormulaContext& context) {
    Reading reading;
    reading.value = QAnyValue(-1);
    reading.error = true;
    reading.found = context.GetPropertyValue(c_key, reading.value, reading.error, &reading.state);
    return reading;
}

Reading ByHandle(QPropertyHandle& handle) {
    Reading reading;
    reading.value = QAnyValue(-1);
    reading.error = true;
    reading.found = handle.Read(reading.value, reading.error, &reading.state);
    return reading;
}

std::string Text(const Reading& reading) {
    return (reading.found ? "found " : "missing ") + QAnyValue(reading.value).Format().ToUtf8() +
           (reading.error ? " in error" : "") + " state " + std::to_string(reading.state);
}

void ExpectSame(const Reading& handle, const Reading& getter, const char* which) {
    EXPECT_TRUE(handle.found == getter.found && handle.value.Identical(getter.value) &&
                handle.error == getter.error && handle.state == getter.state)
        << which << ": the handle gives " << Text(handle) << ", the getter " << Text(getter);
}

// Two roots, each with its own "base", and a box under the first that holds the handled answer.
struct Tree {
    Tree() {
        first.SetPropertyValue(c_base, QAnyValue(3));
        second.SetPropertyValue(c_base, QAnyValue(100));
        box.SetParentContext(&first);
    }

    AnswerDocument first;
    AnswerDocument second;
    AnswerContext box;
    QPropertyHandle handle{box, c_key};
};

void WithoutNotices(Tree& tree, const std::function<void()>& change) {
    QTopLevelFormulaContext::DisableNotificationsCompletelyNoSmartPtr off(&tree.first);
    change();
}

// Formulas in error are reported to the log of the fixture.
using PropertyHandleTest = test::ErrorReportsTest;

struct Step {
    const char* what;
    std::function<void(Tree&)> run;
};

// After each step the handle is read first (so that it finds its own way), then the getter,
// then the handle again and its value in place: all must agree with the getter.
TEST_F(PropertyHandleTest, ReadsWhatTheGetterReadsAfterEveryKindOfChange) {
    const PropId other("other");
    const std::vector<Step> steps = {
        {"nothing yet", [](Tree&) {}},
        {"a plain value", [](Tree& t) { t.box.SetPropertyValue(c_key, QAnyValue(5)); }},
        {"a formula", [](Tree& t) { t.box.SetPropertyFormula(c_key, FormulaText("base * 2")); }},
        {"what it reads changes", [](Tree& t) { t.first.SetPropertyValue(c_base, QAnyValue(4)); }},
        {"a formula in error",
         [](Tree& t) { t.box.SetPropertyFormula(c_key, FormulaText("1 +")); }},
        {"removed", [](Tree& t) { t.box.RemoveProperty(c_key); }},
        {"set again", [](Tree& t) { t.box.SetPropertyFormula(c_key, FormulaText("base * 3")); }},
        {"replaced by another key",
         [&](Tree& t) { t.box.SetAtPropertyValue(t.box.FindProperty(c_key), other, 9); }},
        {"what it reads changes unnoticed",
         [](Tree& t) { WithoutNotices(t, [&] { t.first.SetPropertyValue(c_base, 50); }); }},
        {"its own value set unnoticed",
         [](Tree& t) { WithoutNotices(t, [&] { t.box.SetPropertyValue(c_key, 77); }); }},
        {"set again, then replaced unnoticed",
         [&](Tree& t) {
             t.box.SetPropertyValue(c_key, QAnyValue(6));
             t.handle.Value();
             WithoutNotices(t, [&] {
                 t.box.SetAtPropertyValue(t.box.FindProperty(c_key), PropId("third"), 1);
             });
         }},
        {"set again, then all removed unnoticed",
         [](Tree& t) {
             t.box.SetPropertyValue(c_key, QAnyValue(8));
             t.handle.Value();
             WithoutNotices(t, [&] { t.box.RemoveAllProperties(); });
         }},
        {"copied in from another bag",
         [](Tree& t) {
             AnswerContext source;
             source.SetPropertyFormula(c_key, FormulaText("base + 10"));
             t.box.Answers() = source.Answers();
         }},
        {"moved under another root", [](Tree& t) { t.box.SetParentContext(&t.second); }},
        {"detached", [](Tree& t) { t.box.SetParentContext(nullptr); }},
    };
    Tree tree;
    QPropertyHandle& handle = tree.handle;
    EXPECT_EQ(handle.Key(), c_key);
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        step.run(tree);
        const Reading first = ByHandle(handle);
        const Reading getter = ByGetter(tree.box);
        ExpectSame(first, getter, "first read");
        ExpectSame(ByHandle(handle), getter, "second read");
        const QAnyValue& inPlace = handle.Value();
        EXPECT_TRUE(inPlace.Identical(getter.found ? getter.value : QAnyValue()))
            << QAnyValue(inPlace).Format().ToUtf8();
    }
}

// The tests below are meant for the address sanitizer as much as for their checks: a handle
// that read what it pointed at after the owner went would be caught there.
TEST_F(PropertyHandleTest, AfterItsContextOrItsRootIsDestroyedAHandleFindsNothing) {
    auto root = std::make_unique<AnswerDocument>();
    auto box = std::make_unique<AnswerContext>();
    box->SetParentContext(root.get());
    root->SetPropertyValue(c_key, QAnyValue(1));
    box->SetPropertyFormula(c_key, FormulaText("2 + 3"));
    QPropertyHandle inRoot(*root, c_key);
    QPropertyHandle inBox(*box, c_key);
    ASSERT_TRUE(inRoot.Value() == QAnyValue(1));
    ASSERT_TRUE(inBox.Value() == QAnyValue(5));

    box.reset();
    EXPECT_FALSE(ByHandle(inBox).found);
    EXPECT_TRUE(inBox.Value().IsEmpty());
    EXPECT_TRUE(inRoot.Value() == QAnyValue(1));
    root.reset();
    EXPECT_FALSE(ByHandle(inRoot).found);
}

// A root without answers of its own that lets go of its child by the pointer alone, as an owner
// may in its destructor: nothing but the end of the root itself tells a handle that it is gone.
struct LettingGoRoot : QTopLevelFormulaContext {
    ~LettingGoRoot() override { child->DoSetParentContextAlways(nullptr); }
    CString SimpleTypeName() const override { return u"Doc"; }
    QProperties* Properties() const override { return nullptr; }
    void ProcessPreChangeFromChildHelper() override {}
    void ProcessChangedFromChildHelper() override {}

    AnswerContext* child = nullptr;
};

TEST_F(PropertyHandleTest, AContextThatOutlivesItsRootIsReadWithoutIt) {
    AnswerContext box;
    auto root = std::make_unique<LettingGoRoot>();
    root->child = &box;
    box.SetParentContext(root.get());
    box.SetPropertyFormula(c_key, FormulaText("2 + 3"));
    QPropertyHandle handle(box, c_key);
    ASSERT_TRUE(handle.Value() == QAnyValue(5));

    root.reset();
    const Reading reading = ByHandle(handle);
    ExpectSame(reading, ByGetter(box), "without a root");
    EXPECT_TRUE(reading.value == QAnyValue(5)) << "without a root the stored value stands";
}

// A context whose name "via" reads its own answer "handled", through a handle or by name.
class SelfReadingContext : public AnswerContext {
public:
    explicit SelfReadingContext(bool throughHandle) : m_throughHandle(throughHandle) {}

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool& error, QCacheState& state,
                                 bool) override {
        if (!(name == PropId("via")))
            return false;
        return m_throughHandle ? m_handle.Read(value, error, &state)
                               : GetPropertyValue(c_key, value, error, &state);
    }

    QPropertyHandle m_handle{*this, c_key};

private:
    bool m_throughHandle;
};

// The answer was read through the handle before it came to read itself: while it evaluates it
// is in step with the root, and only its being under evaluation tells the handle to go the slow
// way, which finds the loop.
TEST_F(PropertyHandleTest, AnAnswerThatReadsItselfThroughAHandleFailsAsByName) {
    SetNoEvalReportErrors(true);
    std::vector<Reading> results;
    for (const bool throughHandle : {false, true}) {
        AnswerDocument root;
        SelfReadingContext box(throughHandle);
        box.SetParentContext(&root);
        box.SetPropertyFormula(c_key, FormulaText("1"));
        ASSERT_TRUE(box.m_handle.Value() == QAnyValue(1));
        box.SetPropertyFormula(c_key, FormulaText("via + 1"));
        results.push_back(ByGetter(box));
        ExpectSame(ByHandle(box.m_handle), results.back(), "read again");
    }
    ExpectSame(results[1], results[0], "through the handle and by name");
    EXPECT_TRUE(results[1].error);
    EXPECT_TRUE(QWithFormula<QAnyValue>::IsRecursiveFormulaError(results[1].value))
        << Text(results[1]);
}

} // namespace
} // namespace keel
