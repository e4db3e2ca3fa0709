#include "tests/support/errorreports.h"
#include "tests/support/evaluations.h"

#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"
#include "keel/formula/state.h"
#include "keel/formula/withcontext.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace keel {
namespace {

struct Entry {
    QAnyValue value;
    FormulaText formula;
    QCacheState state = QCS_Stable;
    bool error = false;
};

// A context whose "properties" and hook values are plain maps, with counters of how often each
// was read. Children are scanned in the order they were attached.
class TestContext : public QFormulaContext {
public:
    explicit TestContext(const char* type = "Box", TestContext* parent = nullptr)
        : m_type(CString(type)) {
        if (parent)
            AttachTo(parent);
    }
    ~TestContext() override {
        if (m_destroyed)
            ++*m_destroyed;
    }

    void AttachTo(TestContext* parent) {
        DoSetParentContextAlways(parent);
        parent->m_children.push_back(this);
    }

    void Prop(const char* name, const QAnyValue& value, QCacheState state = QCS_Stable) {
        Entry& entry = m_props[PropId(name).UniqueId()];
        entry.value = value;
        entry.state = state;
    }
    void PropFormula(const char* name, const char* formula) {
        m_props[PropId(name).UniqueId()].formula = FormulaText(formula);
    }
    void Hook(const char* name, const QAnyValue& value, QCacheState state = QCS_Stable) {
        Entry& entry = m_hook[PropId(name).UniqueId()];
        entry.value = value;
        entry.state = state;
    }
    void HookFormula(const char* name, const char* formula) {
        m_hook[PropId(name).UniqueId()].formula = FormulaText(formula);
    }
    bool HasOwnProp(const char* name) const { return m_props.contains(PropId(name).UniqueId()); }
    const Entry& OwnProp(const char* name) const { return m_props.at(PropId(name).UniqueId()); }
    const Entry& OwnHook(const char* name) const { return m_hook.at(PropId(name).UniqueId()); }

    CString SimpleTypeName() const override { return m_type; }
    QProperties* Properties() const override { return nullptr; }
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }
    void DoSetParentContextAlways(QFormulaContext* parent) override { m_parent = parent; }

    bool HasProperty(PropId name) const override { return m_props.contains(name.UniqueId()); }
    bool GetPropertyValue(PropId name, QAnyValue& value, bool& error, QCacheState* state) override {
        const auto found = m_props.find(name.UniqueId());
        if (found == m_props.end() || found->second.formula.UniqueId() >= 0)
            return false;
        value = found->second.value;
        error = found->second.error;
        if (state)
            RaiseCacheState(*state, found->second.state);
        return true;
    }
    bool GetPropertyFormula(PropId name, FormulaText& formula) const override {
        const auto found = m_props.find(name.UniqueId());
        if (found == m_props.end())
            return false;
        formula = found->second.formula;
        return true;
    }
    void SetPropertyValue(PropId name, const QAnyValue& value) override {
        m_props[name.UniqueId()].value = value;
    }
    void SetPropertyFormula(PropId name, FormulaText formula) override {
        m_props[name.UniqueId()].formula = formula;
    }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool& error, QCacheState& state,
                                 bool passthrough) override {
        ++m_hookReads;
        m_lastPassthrough = passthrough;
        const auto found = m_hook.find(name.UniqueId());
        if (found == m_hook.end())
            return false;
        value = found->second.value;
        error = found->second.error;
        RaiseCacheState(state, found->second.state);
        return true;
    }
    bool SimpleLookupValueInChildren(PropId name, QAnyValue& value, bool& error, QCacheState& state,
                                     const QFormulaContext* excluded, bool passthrough,
                                     int tries) override {
        for (TestContext* child : m_children)
            if (child->SimpleLookupValueInThisAndChildren(name, value, error, state, excluded,
                                                          passthrough, tries))
                return true;
        return false;
    }
    bool SimpleLookupFormulaInThis(PropId name, FormulaText& formula) override {
        const auto found = m_hook.find(name.UniqueId());
        if (found == m_hook.end() || found->second.formula.UniqueId() < 0)
            return false;
        formula = found->second.formula;
        return true;
    }
    bool SimpleLookupFormulaInChildren(PropId name, FormulaText& formula,
                                       const QFormulaContext* excluded, int tries) override {
        for (TestContext* child : m_children)
            if (child->SimpleLookupFormulaInThisAndChildren(name, formula, excluded, tries))
                return true;
        return false;
    }
    bool SimpleLookupContextInThis(PropId name, QFormulaContext*& context,
                                   QCacheState& state) const override {
        if (!QFormulaContext::SimpleLookupContextInThis(name, context, state))
            return false;
        RaiseCacheState(state, m_stateWhenFound);
        return true;
    }
    bool SimpleLookupContextInChildren(PropId name, QFormulaContext*& context, QCacheState& state,
                                       const QFormulaContext* excluded, int tries) const override {
        for (const TestContext* child : m_children)
            if (child->SimpleLookupContextInThisAndChildren(name, context, state, excluded, tries))
                return true;
        return false;
    }
    // The hook takes the names it holds.
    bool SimpleSetValueInThis(PropId name, const QAnyValue& value) override {
        const auto found = m_hook.find(name.UniqueId());
        if (found == m_hook.end())
            return false;
        found->second.value = value;
        return true;
    }
    bool SimpleSetValueInChildren(PropId name, const QAnyValue& value,
                                  QFormulaContext* excluded) override {
        for (TestContext* child : m_children)
            if (child->SimpleSetValueInThisAndChildren(name, value, excluded))
                return true;
        return false;
    }
    bool SimpleSetFormulaInThis(PropId name, FormulaText formula) override {
        const auto found = m_hook.find(name.UniqueId());
        if (found == m_hook.end())
            return false;
        found->second.formula = formula;
        return true;
    }

    void NotifyChildrenFullRecalc() override {
        ++m_fullRecalcs;
        for (TestContext* child : m_children)
            child->OnNotifyFullRecalcFromParent();
    }
    void PreDeleteThis() override {
        if (m_destructingAtPreDelete)
            *m_destructingAtPreDelete = IsDestructing();
    }

    CString m_type;
    QFormulaContext* m_parent = nullptr;
    std::vector<TestContext*> m_children;
    std::map<int, Entry> m_props;
    std::map<int, Entry> m_hook;
    QCacheState m_stateWhenFound = QCS_Stable;
    int m_hookReads = 0;
    int m_fullRecalcs = 0;
    bool m_lastPassthrough = false;
    int* m_destroyed = nullptr;
    bool* m_destructingAtPreDelete = nullptr;
};

// A root that counts changes as the top-level context does: once per change notice.
class TestRoot : public TestContext {
public:
    explicit TestRoot(const char* type = "Doc") : TestContext(type) { ++m_sync; }

    const QState* SyncStateIfRoot() const override { return &m_sync; }
    void OnNotifyPreChangeFromChild() override { m_notices.push_back("pre"); }
    void OnNotifyChangedFromChild() override {
        m_notices.push_back("changed");
        ++m_sync;
    }
    void OnNotifyChildMadeUpToDate() const override { SetState(m_sync); }

    QState m_sync;
    std::vector<std::string> m_notices;
};

using test::Report;

// What a simple look-up or a cache found, and the state it left.
struct Found {
    bool found = false;
    QAnyValue value;
    QCacheState state = QCS_Stable;

    bool operator==(const Found& other) const {
        return found == other.found && value.Identical(other.value) && state == other.state;
    }
};

void PrintTo(const Found& found, std::ostream* out) {
    *out << (found.found ? "found " : "missing ") << QAnyValue(found.value).Format().ToUtf8()
         << " state " << found.state;
}

class FormulaContextTest : public test::ErrorReportsTest {
protected:
    static std::vector<Report> Reports() { return test::PendingReports(); }

    // A simple look-up from the state given, with the cache on and debug off unless asked.
    static Found Find(QFormulaContext& context, const char* name, QCacheState state = QCS_Stable,
                      bool debug = false, bool useCache = true) {
        Found found{false, QAnyValue(), state};
        bool error = false;
        found.found = context.LookupValue(FullId(name), found.value, error, found.state, false,
                                          debug, useCache);
        return found;
    }
    static QAnyValue ValueOf(QFormulaContext& context, const char* name) {
        const Found found = Find(context, name);
        EXPECT_TRUE(found.found) << name;
        return found.value;
    }
};

// The tree: grand <- parent <- asker <- kid, and parent <- sibling. Each place that holds the
// name answers with its own number; the nearest place must win.
enum Place {
    AskerProp = 1,
    AskerHook = 2,
    Kid = 4,
    ParentProp = 8,
    ParentHook = 16,
    Sibling = 32,
    Grand = 64,
};

struct OrderCase {
    int places;
    int winner;
};

TEST_F(FormulaContextTest, NearestPlaceWins) {
    const OrderCase cases[] = {
        {AskerProp | AskerHook | Kid | ParentProp | ParentHook | Sibling | Grand, AskerProp},
        {AskerHook | Kid | ParentProp | ParentHook | Sibling | Grand, AskerHook},
        {Kid | ParentProp | ParentHook | Sibling | Grand, Kid},
        {ParentProp | ParentHook | Sibling | Grand, ParentProp},
        {ParentHook | Sibling | Grand, ParentHook},
        {Sibling | Grand, Sibling},
        {Grand, Grand},
    };
    for (const OrderCase& c : cases) {
        TestContext grand("Grand");
        TestContext parent("Parent", &grand);
        TestContext asker("Asker", &parent);
        TestContext kid("Kid", &asker);
        TestContext sibling("Sibling", &parent);
        const std::pair<Place, TestContext*> holders[] = {
            {AskerProp, &asker},   {AskerHook, &asker}, {Kid, &kid},    {ParentProp, &parent},
            {ParentHook, &parent}, {Sibling, &sibling}, {Grand, &grand}};
        for (const auto& [place, holder] : holders) {
            if (!(c.places & place))
                continue;
            if (place == AskerProp || place == ParentProp)
                holder->Prop("x", place);
            else
                holder->Hook("x", place);
        }

        EXPECT_TRUE(ValueOf(asker, "x") == QAnyValue(c.winner)) << "places " << c.places;
    }
}

TEST_F(FormulaContextTest, UnknownNamesAndPathsAreFalseAndSilent) {
    TestContext doc("Doc");
    TestContext wall("Wall", &doc);
    doc.Hook("w", 3);
    for (const char* name : {"nowhere", "Roof.w"}) {
        QAnyValue value(5);
        bool error = false;
        QCacheState state = QCS_Stable;
        EXPECT_FALSE(wall.LookupValue(FullId(name), value, error, state, false, false, true))
            << name;
        EXPECT_TRUE(value == QAnyValue(5)) << name;
    }
    EXPECT_EQ(doc.m_hookReads, 1) << "a path with an unknown head reads nothing";
    EXPECT_TRUE(Reports().empty());
}

TEST_F(FormulaContextTest, APropertyThatFailsToGiveAValueEndsTheSearch) {
    TestContext parent("Parent");
    TestContext asker("Asker", &parent);
    asker.PropFormula("x", "1 +");
    asker.Hook("x", 2);
    parent.Hook("x", 3);

    EXPECT_FALSE(Find(asker, "x").found);
    EXPECT_EQ(asker.m_hookReads, 0);
    EXPECT_EQ(parent.m_hookReads, 0);
}

TEST_F(FormulaContextTest, ErrorAndStateComeFromWhereTheNameWasFoundAndNeverFall) {
    TestContext parent("Parent");
    TestContext asker("Asker", &parent);
    parent.Hook("x", 1, QCS_ByAcceptor);
    parent.m_hook[PropId("x").UniqueId()].error = true;
    asker.Hook("y", 1, QCS_Stable);
    QAnyValue value;
    bool error = false;
    QCacheState state = QCS_BySeq;

    EXPECT_TRUE(asker.LookupValue(FullId("x"), value, error, state, true, false, true));
    EXPECT_TRUE(error);
    EXPECT_EQ(state, QCS_ByAcceptor);
    EXPECT_TRUE(parent.m_lastPassthrough);
    EXPECT_EQ(Find(asker, "y", QCS_NotCacheable), (Found{true, QAnyValue(1), QCS_NotCacheable}));
}

TEST_F(FormulaContextTest, FormulasAreFoundInTheSameOrderAndThroughPaths) {
    TestContext grand("Grand");
    TestContext parent("Parent", &grand);
    TestContext asker("Asker", &parent);
    TestContext sibling("Sibling", &parent);
    grand.HookFormula("f", "1 + 1");
    sibling.HookFormula("f", "2 + 2");
    FormulaText formula;

    EXPECT_TRUE(asker.LookupFormula(FullId("f"), formula));
    EXPECT_EQ(formula, FormulaText("2 + 2"));
    asker.HookFormula("f", "4 + 4");
    EXPECT_TRUE(asker.LookupFormula(FullId("f"), formula));
    EXPECT_EQ(formula, FormulaText("4 + 4"));
    EXPECT_FALSE(asker.LookupFormula(FullId("g"), formula));

    sibling.PropFormula("h", "2 * 3");
    EXPECT_TRUE(grand.LookupFormula(FullId("Sibling.h"), formula));
    EXPECT_EQ(formula, FormulaText("2 * 3"));
    EXPECT_FALSE(grand.LookupFormula(FullId("Roof.h"), formula));
}

TEST_F(FormulaContextTest, AContextIsFoundByItsTypeNameNearestFirst) {
    TestContext doc("Doc");
    TestContext wall("Wall", &doc);
    TestContext window("Window", &wall);
    TestContext floor("Floor", &doc);
    TestContext innerWall("Wall", &floor);
    const struct {
        TestContext* from;
        const char* path;
        TestContext* expected;
    } cases[] = {
        {&window, "wall", &wall},
        {&floor, "Wall", &innerWall},
        {&window, "Window", &window},
        // The head is the nearest wall that leads on to a window.
        {&floor, "Wall.Window", &window},
    };
    for (const auto& c : cases) {
        QFormulaContext* found = nullptr;
        QCacheState state = QCS_Stable;
        EXPECT_TRUE(c.from->LookupContext(FullId(c.path), found, state)) << c.path;
        EXPECT_EQ(found, c.expected) << c.path;
    }
}

TEST_F(FormulaContextTest, ADottedNameIsLookedUpInTheContextItsHeadNames) {
    TestContext doc("Doc");
    TestContext wall("Wall", &doc);
    TestContext floor("Floor", &doc);
    wall.Hook("w", 3);
    floor.Hook("w", 7);
    doc.Hook(".x", 4);

    EXPECT_TRUE(ValueOf(floor, "Wall.w") == QAnyValue(3));
    EXPECT_TRUE(ValueOf(doc, "Floor.w") == QAnyValue(7));
    EXPECT_TRUE(ValueOf(doc, ".x") == QAnyValue(4)) << "a leading dot makes no path";
}

// A value found through a path depends on the state of the path's head, found or not.
TEST_F(FormulaContextTest, AValueFoundThroughAPathTakesTheStateOfItsHead) {
    TestContext doc("Doc");
    TestContext wall("Wall", &doc);
    wall.Hook("w", 3);
    wall.m_stateWhenFound = QCS_BySeq;
    EXPECT_EQ(Find(doc, "Wall.w"), (Found{true, QAnyValue(3), QCS_BySeq}));
    wall.m_stateWhenFound = QCS_ByAcceptor;
    EXPECT_EQ(Find(doc, "Wall.v"), (Found{false, QAnyValue(), QCS_ByAcceptor}));
}

// A line of contexts L0 <- L1 <- ... each the parent of the one before, with no children scanned.
class Chain {
public:
    explicit Chain(int length) {
        for (int i = 0; i < length; ++i) {
            m_names.push_back("L" + std::to_string(i));
            m_links.push_back(std::make_unique<TestContext>(m_names.back().c_str()));
            if (i > 0)
                m_links[i - 1]->DoSetParentContextAlways(m_links[i].get());
        }
    }
    TestContext& operator[](int i) { return *m_links[static_cast<std::size_t>(i)]; }
    // The report of a walk that gave up at link 128, the farthest it reaches.
    std::vector<Report> GaveUp(const std::string& what, const std::string& name) const {
        std::string who;
        for (int j = static_cast<int>(m_names.size()) - 1; j >= 128; --j)
            who += (who.empty() ? "" : " ") + m_names[static_cast<std::size_t>(j)];
        return {{"Construction", "In " + who + "\nCannot find " + what + " for\n" + name}};
    }

private:
    std::vector<std::string> m_names;
    std::vector<std::unique_ptr<TestContext>> m_links;
};

// Each link takes two tries, so 127 links up is the farthest reach of each family.
// A walk that goes no farther gives up once, however long the chain above.
TEST_F(FormulaContextTest, EachFamilyReaches127LinksUpAndGivesUpOnceWithItsOwnMessage) {
    Chain chain(300);
    chain[127].Hook("chainTop", 1);
    chain[299].Hook("chainFar", 2);
    chain[127].HookFormula("f", "1");
    chain[128].HookFormula("g", "2");
    QCacheState state = QCS_Stable;
    FormulaText formula;
    QFormulaContext* found = nullptr;

    EXPECT_TRUE(Find(chain[0], "chainTop").found);
    EXPECT_TRUE(chain[0].LookupFormula(FullId("f"), formula));
    EXPECT_TRUE(chain[0].SimpleLookupContext(PropId("L127"), found, state, nullptr));
    EXPECT_EQ(found, &chain[127]);
    EXPECT_TRUE(Reports().empty());

    EXPECT_FALSE(Find(chain[0], "chainFar").found);
    EXPECT_EQ(Reports(), chain.GaveUp("value", "chainFar"));
    TheErrorLog().DiscardPendingMessages();
    EXPECT_FALSE(chain[0].LookupFormula(FullId("g"), formula));
    EXPECT_EQ(Reports(), chain.GaveUp("formula", "g"));
    TheErrorLog().DiscardPendingMessages();
    EXPECT_FALSE(chain[0].SimpleLookupContext(PropId("L128"), found, state, nullptr));
    EXPECT_EQ(Reports(), chain.GaveUp("context", "L128"));
}

TEST_F(FormulaContextTest, EveryFormOfTheThreeFamiliesGivesUpAtZero) {
    TestContext context("TriesBox");
    context.Hook("triesName", 1);
    context.HookFormula("triesName", "1");
    const PropId name("triesName");
    const PropId box("TriesBox");
    QAnyValue value;
    bool error = false;
    QCacheState state = QCS_Stable;
    FormulaText formula;
    QFormulaContext* found = nullptr;

    EXPECT_FALSE(context.SimpleLookupValueWithTries(name, value, error, state, nullptr, false,
                                                    false, true, 0));
    EXPECT_FALSE(
        context.SimpleLookupValueInParent(name, value, error, state, false, false, true, -1));
    EXPECT_FALSE(context.SimpleLookupFormulaWithTries(name, formula, nullptr, 0));
    EXPECT_FALSE(context.SimpleLookupFormulaInParent(name, formula, 0));
    EXPECT_FALSE(context.SimpleLookupContextWithTries(box, found, state, nullptr, 0));
    EXPECT_FALSE(context.SimpleLookupContextInParent(box, found, state, 0));
    EXPECT_FALSE(context.LookupContextWithTries(FullId("TriesBox"), found, state, 0));
    EXPECT_EQ(context.m_hookReads, 0);
    // The log keeps one of each message that is still pending.
    EXPECT_EQ(Reports(), (std::vector<Report>{
                             {"Construction", "In TriesBox\nCannot find value for\ntriesName"},
                             {"Construction", "In TriesBox\nCannot find formula for\ntriesName"},
                             {"Construction", "In TriesBox\nCannot find context for\nTriesBox"},
                         }));
}

TEST_F(FormulaContextTest, AValueGoesToWhereTheNameIsHeldOrBecomesAPropertyOfTheAsker) {
    TestContext parent("Parent");
    TestContext asker("Asker", &parent);
    TestContext kid("Kid", &asker);
    parent.Prop("w", 1);
    asker.Hook("h", 1);
    kid.Hook("k", 1);
    asker.Prop("both", 1);
    asker.Hook("both", 1);
    EXPECT_TRUE(ValueOf(asker, "w") == QAnyValue(1));

    EXPECT_TRUE(asker.SetValue(FullId("w"), QAnyValue(2)));
    EXPECT_TRUE(asker.SetValue(FullId("h"), QAnyValue(3)));
    EXPECT_TRUE(asker.SetValue(FullId("k"), QAnyValue(4)));
    EXPECT_TRUE(asker.SetValue(FullId("both"), QAnyValue(5)));
    EXPECT_TRUE(asker.OwnProp("w").value == QAnyValue(2));
    EXPECT_TRUE(parent.OwnProp("w").value == QAnyValue(1));
    EXPECT_TRUE(ValueOf(asker, "w") == QAnyValue(2));
    EXPECT_TRUE(asker.OwnHook("h").value == QAnyValue(3));
    EXPECT_TRUE(kid.OwnHook("k").value == QAnyValue(4));
    EXPECT_TRUE(asker.OwnProp("both").value == QAnyValue(5)) << "a property comes before a hook";
    EXPECT_TRUE(asker.OwnHook("both").value == QAnyValue(1));
    EXPECT_FALSE(asker.HasOwnProp("h"));
    EXPECT_TRUE(kid.m_props.empty());

    // The excluded context is not offered the value.
    EXPECT_TRUE(asker.SimpleSetValue(PropId("h"), QAnyValue(6), &asker));
    EXPECT_TRUE(asker.OwnHook("h").value == QAnyValue(3));
    EXPECT_TRUE(asker.OwnProp("h").value == QAnyValue(6));
}

TEST_F(FormulaContextTest, APathSetsOnTheContextItsHeadNamesOrNowhere) {
    TestContext doc("Doc");
    TestContext wall("Wall", &doc);
    TestContext floor("Floor", &doc);

    EXPECT_TRUE(floor.SetValue(FullId("Wall.w"), QAnyValue(4)));
    EXPECT_TRUE(wall.OwnProp("w").value == QAnyValue(4));
    EXPECT_FALSE(floor.HasOwnProp("w"));
    EXPECT_FALSE(wall.SetValue(FullId("Roof.w"), QAnyValue(4)));
    EXPECT_FALSE(wall.SetFormula(FullId("Roof.w"), FormulaText("1")));
    EXPECT_TRUE(doc.m_props.empty());
    EXPECT_EQ(wall.m_props.size(), 1u);

    // A formula is set like a value.
    EXPECT_TRUE(doc.SetFormula(FullId("Wall.q"), FormulaText("4")));
    EXPECT_EQ(wall.OwnProp("q").formula, FormulaText("4"));
}

// A context is named by its type name, whatever the case; one without a name is left out.
TEST_F(FormulaContextTest, WhoAmISkipsContextsWithoutANameAndIsNamedFoldsCase) {
    TestContext root("");
    TestContext middle("Wall", &root);
    TestContext leaf("", &middle);
    EXPECT_EQ(leaf.WhoAmI().ToUtf8(), "Wall");
    EXPECT_TRUE(middle.IsNamed(PropId("WALL")));
    EXPECT_FALSE(middle.IsNamed(PropId("Wal")));
}

TEST_F(FormulaContextTest, DeleteThisAndTheLastSmartPointerMarkTheContextBeforeItGoes) {
    for (const bool smart : {false, true}) {
        int destroyed = 0;
        bool destructingAtPreDelete = false;
        auto* context = new TestContext("Box");
        context->m_destroyed = &destroyed;
        context->m_destructingAtPreDelete = &destructingAtPreDelete;
        if (smart)
            QSmartPtr<TestContext> held(context);
        else
            context->DeleteThis();
        EXPECT_TRUE(destructingAtPreDelete) << smart;
        EXPECT_EQ(destroyed, 1) << smart;
    }
}

TEST_F(FormulaContextTest, FullRecalcTellsTheRootAndReachesEveryLivingChild) {
    TestRoot root;
    TestContext wall("Wall", &root);
    TestContext window("Window", &wall);
    TestContext floor("Floor", &root);
    TestContext stair("Stair", &floor);
    floor.Destructing();

    root.FullRecalc();
    EXPECT_EQ(root.m_notices, (std::vector<std::string>{"pre", "changed"}));
    for (const TestContext* context :
         std::initializer_list<const TestContext*>{&root, &wall, &window})
        EXPECT_EQ(context->m_fullRecalcs, 1) << context->m_type.ToUtf8();
    EXPECT_EQ(floor.m_fullRecalcs, 0);
    EXPECT_EQ(stair.m_fullRecalcs, 0);

    TestRoot shared;
    shared.SetCanBeShared(true);
    shared.FullRecalc();
    EXPECT_TRUE(shared.m_notices.empty());
    EXPECT_EQ(shared.m_fullRecalcs, 0);
}

TEST_F(FormulaContextTest, AFormulaIsEvaluatedInTheContextAndRaisesTheState) {
    const struct {
        const char* formula;
        QCacheState hookState;
        bool ok;
        QAnyValue value;
        QCacheState state;
    } cases[] = {
        {"w * 2 + 1", QCS_Stable, true, QAnyValue(9), QCS_Stable},
        {"w + 1", QCS_BySeq, true, QAnyValue(5), QCS_BySeq},
        {"1 +", QCS_Stable, false, QAnyValue(), QCS_Stable},
    };
    for (const auto& c : cases) {
        TestContext parent("Parent");
        TestContext box("Box", &parent);
        parent.Hook("w", 4, c.hookState);
        QAnyValue out;
        QCacheState state = QCS_Stable;
        EXPECT_EQ(box.Evaluate(out, state, FormulaText(c.formula), false, false, false), c.ok)
            << c.formula;
        EXPECT_TRUE(c.ok ? out == c.value : out.IsError()) << c.formula;
        EXPECT_EQ(state, c.state) << c.formula;
    }

    // A shared or destructing context evaluates nothing.
    TestContext shared("Shared");
    shared.SetCanBeShared(true);
    TestContext dying("Dying");
    dying.Destructing();
    for (TestContext* context : {&shared, &dying}) {
        QAnyValue out(17);
        QCacheState state = QCS_BySeq;
        EXPECT_TRUE(context->Evaluate(out, state, FormulaText("1 +"), false, true, false));
        EXPECT_TRUE(out == QAnyValue(17));
        EXPECT_EQ(state, QCS_BySeq);
    }
    EXPECT_TRUE(Reports().empty());
}

// The flags an evaluator was made with: pass-through, report, action.
std::vector<bool> FlagsOf(const test::EvaluatorFactoryOf<>::Made& made) {
    return {made.passThrough, made.report, made.action};
}

TEST_F(FormulaContextTest, TheEvaluatorComesFromTheInstalledFactory) {
    test::EvaluatorFactoryOf<> factory;
    test::ScopedEvaluatorFactory installed(factory);
    TestContext box("Box");
    box.Hook("w", 4);
    QAnyValue out;
    QCacheState state = QCS_Stable;

    EXPECT_TRUE(box.Evaluate(out, state, FormulaText("2 + 3"), true, false, true));
    EXPECT_TRUE(out == QAnyValue(5));
    ASSERT_EQ(factory.made.size(), 1u);
    EXPECT_EQ(factory.made[0].formula, "2 + 3");
    EXPECT_EQ(factory.made[0].context, &box);
    EXPECT_EQ(FlagsOf(factory.made[0]), (std::vector<bool>{true, false, true}));

    // EvaluateVar runs an identifier or a formula.
    EXPECT_EQ(box.EvaluateVarAsInt(u"w", false), 4);
    EXPECT_EQ(FlagsOf(factory.made.back()), (std::vector<bool>{false, false, false}));
    EXPECT_EQ(box.EvaluateVarAsInt(u"w * 3", true), 12);
    EXPECT_EQ(FlagsOf(factory.made.back()), (std::vector<bool>{false, true, false}));
    EXPECT_DOUBLE_EQ(box.EvaluateVarAsDouble(u"w * 0.5", false), 2.0);
    EXPECT_FALSE(box.EvaluateVarAsBool(u"w > 5", false));
}

class Holder : public QWithContextVirtual {
public:
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }
    void DoSetParentContextAlways(QFormulaContext* parent) override { m_parent = parent; }

    QFormulaContext* m_parent = nullptr;
};

TEST_F(FormulaContextTest, SettingAParentTellsTheRootOfTheChange) {
    TestRoot root;
    TestContext wall("Wall", &root);
    Holder holder;
    holder.SetErrorBit();

    holder.SetParentContext(&wall);
    EXPECT_EQ(holder.ParentContext(), &wall);
    EXPECT_FALSE(holder.IsErrorBit());
    EXPECT_EQ(root.m_notices, (std::vector<std::string>{"pre", "changed"}));
    EXPECT_EQ(holder.SyncRoot(), &root);
    EXPECT_EQ(root.SyncRoot(), &root);

    holder.SetErrorBit();
    holder.SetParentContext(&wall);
    EXPECT_TRUE(holder.IsErrorBit()) << "the same parent changes nothing";
    EXPECT_EQ(root.m_notices.size(), 2u);
    holder.PreChange();
    holder.Changed();
    holder.Refresh();
    EXPECT_EQ(root.m_notices.size(), 4u) << "a refresh tells nobody";

    holder.SetParentContext(nullptr);
    EXPECT_TRUE(holder.IsParentContextEmpty());
    EXPECT_FALSE(holder.IsErrorBit());
    EXPECT_EQ(root.m_notices.size(), 4u);
}

} // namespace
} // namespace keel
