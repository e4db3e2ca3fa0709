#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"
#include "tests/support/hostilevalues.h"
#include "tests/support/uihosts.h"

#include "keel/exchange/odbcfixup.h"

#include <gtest/gtest.h>
#include <string>

namespace keel::test {
namespace {

using TabSafetyTest = ExchangeFileTest;

// Values are evaluated as data: a function that would act on the machine or ask the user is
// refused as outside an action field, and the value arrives as that error.
TEST_F(TabSafetyTest, ValuesThatWouldActArriveAsErrorsAndDoNothing) {
    HostileValues hostile("tab");
    const std::vector<HostileValues::Value> values = hostile.Values();
    std::string bytes = "plain\t1+1\t\t\n";
    for (std::size_t i = 0; i < values.size(); ++i)
        bytes += "v" + std::to_string(i) + "\t" +
                 ODBCFixup(CString::FromUtf8(values[i].formula)).ToUtf8() + "\t\t\n";
    DialogHost host;
    FakeTree tree;
    {
        ScopedUIServices scoped(host);
        Import(tree, bytes);
    }
    ASSERT_EQ(tree.bag.entries.size(), values.size() + 1);
    EXPECT_EQ(tree.bag.entries[0].value, QAnyValue(2)) << "other values still evaluate";
    for (std::size_t i = 0; i < values.size(); ++i) {
        SCOPED_TRACE(values[i].formula);
        CString message;
        ASSERT_TRUE(tree.bag.entries[i + 1].value.IsErrorAndGetMessage(message))
            << values[i].family;
        EXPECT_EQ(message.Left(31), CString(u"Only allowed in an action field"))
            << message.ToUtf8();
    }
    EXPECT_EQ(hostile.Effects(), HostileValues::c_noEffects);
    EXPECT_TRUE(host.calls.empty()) << host.calls.front();
}

} // namespace
} // namespace keel::test
