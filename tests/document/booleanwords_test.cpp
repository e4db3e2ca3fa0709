#include "tests/support/environment.h"

#include "keel/document/translate.h"
#include "keel/document/winapp.h"
#include "keel/platform/registry.h"
#include "keel/values/anyvalue.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace keel {
namespace {

namespace fs = std::filesystem;

// The words of a boolean come from the translations of their own context, not from those of
// "Yes" and "No" elsewhere.
TEST(BooleanWords, TheApplicationTakesYesAndNoAsBooleanValueStrings) {
    const fs::path home =
        fs::temp_directory_path() / ("keel-booleanwords-" + std::to_string(::getpid()));
    fs::create_directories(home);
    test::ScopedEnvironment environment;
    environment.Set("HOME", home.string());
    environment.Set("XDG_CONFIG_HOME", (home / "config").string());
    environment.Set("XDG_DATA_HOME", (home / "data").string());
    CRegistry::SetCurrentFile(CString());
    const fs::path translations = home / "translations_booleans.txt";
    test::WriteText(translations, "Yes\t\tOui\tValue\t\n"
                                  "Yes\t\tJa\tBoolean value string\t\n"
                                  "No\t\tNon\tValue\t\n"
                                  "No\t\tNein\tBoolean value string\t\n");
    ASSERT_TRUE(SwitchToTranslationFile(CString::FromUtf8(translations.string()), false, false));

    QWinApp app;
    app.ConnectValuesToOptions();
    const std::string yes = QAnyValue::GetYesString().ToUtf8();
    const std::string no = QAnyValue::GetNoString().ToUtf8();

    SwitchToTranslationFile(CString(), false, false);
    QAnyValue::SetYesNoStrings(u"Yes", u"No");
    fs::remove_all(home);
    EXPECT_EQ(yes, "Ja");
    EXPECT_EQ(no, "Nein");
}

} // namespace
} // namespace keel
