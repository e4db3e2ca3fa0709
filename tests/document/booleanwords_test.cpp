#include "tests/support/tempfolder.h"

#include "keel/document/translate.h"
#include "keel/document/winapp.h"
#include "keel/platform/registry.h"
#include "keel/values/anyvalue.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {
namespace {

using BooleanWords = test::TempFolderTest;

// The words of a boolean come from the translations of their own context, not from those of
// "Yes" and "No" elsewhere.
TEST_F(BooleanWords, TheApplicationTakesYesAndNoAsBooleanValueStrings) {
    test::ScopedEnvironment environment;
    for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
        environment.Set(variable, m_root.string());
    CRegistry::SetCurrentFile(CString());
    test::WriteText(m_root / "translations_booleans.txt", "Yes\t\tOui\tValue\t\n"
                                                          "Yes\t\tJa\tBoolean value string\t\n"
                                                          "No\t\tNon\tValue\t\n"
                                                          "No\t\tNein\tBoolean value string\t\n");
    ASSERT_TRUE(SwitchToTranslationFile(PathOf("translations_booleans.txt"), false, false));

    QWinApp app;
    app.ConnectValuesToOptions();
    const std::string yes = QAnyValue::GetYesString().ToUtf8();
    const std::string no = QAnyValue::GetNoString().ToUtf8();

    SwitchToTranslationFile(CString(), false, false);
    QAnyValue::SetYesNoStrings(u"Yes", u"No");
    EXPECT_EQ(yes, "Ja");
    EXPECT_EQ(no, "Nein");
}

} // namespace
} // namespace keel
