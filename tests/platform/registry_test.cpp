#include "tests/support/environment.h"
#include "tests/support/processlimits.h"
#include "tests/support/tempfolder.h"

#include "keel/platform/registry.h"

#include <climits>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test::FileSizeLimit;
using test::ReadText;
using test::UnprivilegedScope;
using test::WriteText;

std::string U8(const CString& text) {
    return text.ToUtf8();
}

class RegistryTest : public test::HomeFolderTest {
protected:
    void SetUp() override {
        HomeFolderTest::SetUp();
        fs::permissions(m_root, fs::perms::owner_all | fs::perms::group_read |
                                    fs::perms::group_exec | fs::perms::others_read |
                                    fs::perms::others_exec);
        CRegistry::SetCurrentFile(CString());
        CRegistry::SetMachineFolder(CString::FromUtf8((m_root / "machine").string()));
        CRegistry::SetApplicationNameSource(nullptr);
    }
    void TearDown() override {
        CRegistry::SetCurrentFile(CString());
        CRegistry::SetMachineFolder(CString());
        HomeFolderTest::TearDown();
    }

    fs::path OptionsFolder() const { return m_root / "config" / "keel"; }
    fs::path OptionsFile() const { return OptionsFolder() / "Keel.ini"; }
    CString OptionsPath() const { return CString::FromUtf8(OptionsFile().string()); }
};

TEST_F(RegistryTest, TheOptionsFileFollowsTheEnvironmentAndTheApplicationName) {
    const struct {
        std::optional<std::string> configHome;
        std::string appName;
        std::string expected; // HOME is the test's home folder
    } cases[] = {{"/elsewhere/conf", "Planner", "/elsewhere/conf/keel/Planner.ini"},
                 {"relative/conf", "Planner", "HOME/.config/keel/Planner.ini"},
                 {"", "Planner", "HOME/.config/keel/Planner.ini"},
                 {"/c", "a/b", "/c/keel/a_b.ini"},
                 {"/c", "", "/c/keel/Keel.ini"}};
    for (const auto& c : cases) {
        m_environment.Set("XDG_CONFIG_HOME", c.configHome);
        std::string expected = c.expected;
        if (expected.starts_with("HOME"))
            expected.replace(0, 4, m_root.string());
        EXPECT_EQ(U8(CRegistry::UserFileFor(CString::FromUtf8(c.appName))), expected)
            << c.configHome.value_or("(unset)") << " " << c.appName;
    }
    m_environment.Set("XDG_CONFIG_HOME", (m_root / "config").string());
    EXPECT_EQ(U8(CRegistry::Current().FilePath()), OptionsFile().string());
    EXPECT_EQ(U8(CRegistry::Current().MachineFilePath()), (m_root / "machine/Keel.ini").string());
    CRegistry::SetApplicationNameSource([] { return CString(u"Planner"); });
    EXPECT_EQ(U8(CRegistry::Current().FilePath()), (OptionsFolder() / "Planner.ini").string());
    CRegistry::SetCurrentFile(u"/somewhere/test.ini");
    EXPECT_EQ(U8(CRegistry::Current().FilePath()), "/somewhere/test.ini");
}

TEST_F(RegistryTest, WrittenValuesAreReadBackByAnotherStoreOverTheSameFile) {
    CRegistry writer(OptionsPath());
    const CString awkward = u"C:\\Data\n\ttabbed  \"quoted\" = [x] # \u00e9";
    ASSERT_TRUE(writer.WriteProfileInt(u"Options", u"LengthUnits", 5));
    ASSERT_TRUE(writer.WriteProfileInt(u"Options", u"Negative", INT_MIN));
    ASSERT_TRUE(writer.WriteProfileString(u"Options", u"Awkward", awkward));
    ASSERT_TRUE(writer.WriteProfileString(u"Options", u"Spaced", u"  both ends  "));
    ASSERT_TRUE(writer.WriteProfileString(u"Options", u"Empty", u""));
    ASSERT_TRUE(writer.WriteProfileBinary(u"Options", u"FrameRect", Bytes{0, 0x7f, 0xff, 0x10}));

    CRegistry reader(OptionsPath());
    EXPECT_EQ(reader.GetProfileInt(u"Options", u"LengthUnits", 0), 5);
    EXPECT_EQ(reader.GetProfileInt(u"Options", u"Negative", 0), INT_MIN);
    EXPECT_EQ(U8(reader.GetProfileString(u"Options", u"Awkward", u"")), U8(awkward));
    EXPECT_EQ(U8(reader.GetProfileString(u"Options", u"Spaced", u"")), "  both ends  ");
    EXPECT_EQ(U8(reader.GetProfileString(u"Options", u"Empty", u"default")), "");
    Bytes data;
    ASSERT_TRUE(reader.GetProfileBinary(u"Options", u"FrameRect", data));
    EXPECT_EQ(data, (Bytes{0, 0x7f, 0xff, 0x10}));
    EXPECT_NE(ReadText(OptionsFile()).find("FrameRect=007fff10"), std::string::npos);
    EXPECT_TRUE(reader.LastError().IsEmpty());
}

TEST_F(RegistryTest, StoredTextsReadAsIntegersBinariesAndStrings) {
    // Integers as the registry keeps them: an unsigned 32-bit value reads as negative, anything
    // else than a whole 32-bit number as the default 99.
    const struct {
        std::string stored;
        int expected;
    } integers[] = {{"+7", 7},           {"2147483647", INT_MAX}, {"2147483648", INT_MIN},
                    {"4294967295", -1},  {"4294967296", 99},      {"-2147483648", INT_MIN},
                    {"-2147483649", 99}, {"12abc", 99},           {"", 99}};
    for (const auto& c : integers) {
        WriteText(OptionsFile(), "[Options]\nValue=" + c.stored + "\n");
        CRegistry store(OptionsPath());
        EXPECT_EQ(store.GetProfileInt(u"Options", u"Value", 99), c.expected) << c.stored;
        EXPECT_EQ(U8(store.GetProfileString(u"Options", u"Value", u"x")), c.stored);
    }
    // Binary values are even runs of hex digits in either case.
    const struct {
        std::string stored;
        std::optional<Bytes> expected;
    } binaries[] = {{"0A1bFf", Bytes{0x0a, 0x1b, 0xff}},
                    {"", Bytes{}},
                    {"abc", std::nullopt},
                    {"0g", std::nullopt}};
    for (const auto& c : binaries) {
        WriteText(OptionsFile(), "[Options]\nBlob=" + c.stored + "\n");
        CRegistry store(OptionsPath());
        Bytes data{9};
        EXPECT_EQ(store.GetProfileBinary(u"Options", u"Blob", data), c.expected.has_value())
            << c.stored;
        EXPECT_EQ(data, c.expected.value_or(Bytes{9})) << c.stored;
    }
    // A value that is not UTF-8 reads as the default.
    WriteText(OptionsFile(), "[Options]\nName=\xff\xfe\nOther=fine\n");
    CRegistry store(OptionsPath());
    EXPECT_EQ(U8(store.GetProfileString(u"Options", u"Name", u"default")), "default");
    EXPECT_EQ(U8(store.GetProfileString(u"Options", u"Other", u"default")), "fine");
}

TEST_F(RegistryTest, AWriteKeepsSpellingsCommentsOtherKeysAndTheChangesOfOthers) {
    WriteText(OptionsFile(), "[options]\nlengthUnits=5\n");
    CRegistry store(OptionsPath());
    EXPECT_EQ(store.GetProfileInt(u"OPTIONS", u"LengthUnits", 0), 5);
    ASSERT_TRUE(store.WriteProfileInt(u"Options", u"LENGTHUNITS", 6));
    EXPECT_EQ(ReadText(OptionsFile()), "[options]\nlengthUnits=6\n");

    WriteText(OptionsFile(), "# chosen by hand\n[View]\nZoom=200\n\n[Options]\nKeep=1\n");
    CRegistry mine(OptionsPath());
    ASSERT_TRUE(mine.WriteProfileInt(u"Options", u"Mine", 1));
    for (const char* kept : {"# chosen by hand", "Zoom=200", "Keep=1", "Mine=1"})
        EXPECT_NE(ReadText(OptionsFile()).find(kept), std::string::npos) << kept;

    CRegistry theirs(OptionsPath());
    ASSERT_TRUE(theirs.WriteProfileInt(u"Options", u"Theirs", 2));
    EXPECT_EQ(mine.GetProfileInt(u"Options", u"Theirs", 0), 2);
    ASSERT_TRUE(mine.WriteProfileInt(u"Options", u"Mine", 3));
    CRegistry later(OptionsPath());
    EXPECT_EQ(later.GetProfileInt(u"Options", u"Mine", 0), 3);
    EXPECT_EQ(later.GetProfileInt(u"Options", u"Theirs", 0), 2);
}

TEST_F(RegistryTest, NamesTheFileCannotHoldAreRefusedWithAReason) {
    const struct {
        std::u16string section;
        std::u16string key;
    } cases[] = {{u"Options", u""},           {u"", u"Key"},           {u"Opt[ions", u"Key"},
                 {u"Options]", u"Key"},       {u"Options", u"a=b"},    {u"Options", u"a[1]"},
                 {u"Options", u" lead"},      {u"Options", u"trail "}, {u"Options", u"#hash"},
                 {u"Options", u"line\nbreak"}};
    for (const auto& c : cases) {
        CRegistry store(OptionsPath());
        EXPECT_FALSE(store.WriteProfileInt(c.section.c_str(), c.key.c_str(), 1));
        const CString expected = CString::Formatted(
            u"Cannot store the option \"%s\" of section \"%s\": the name is not allowed in the "
            u"options file \"%s\"",
            c.key.c_str(), c.section.c_str(), OptionsPath());
        EXPECT_EQ(U8(store.LastError()), U8(expected));
    }
    EXPECT_FALSE(fs::exists(OptionsFile()));
    EXPECT_TRUE(CRegistry(OptionsPath()).WriteProfileInt(u"Options", u"inner space", 1));
}

TEST_F(RegistryTest, AMalformedFileGivesTheDefaultsAndIsKeptAsideWhenWrittenOver) {
    const std::string malformed = "LengthUnits=5\n[Options]\nAreaUnits=6\n";
    WriteText(OptionsFile(), malformed);
    CRegistry store(OptionsPath());
    EXPECT_EQ(store.GetProfileInt(u"Options", u"AreaUnits", 7), 7);
    const std::string error = U8(store.LastError());
    EXPECT_TRUE(
        error.starts_with("Cannot read the options file \"" + OptionsFile().string() + "\": "))
        << error;
    EXPECT_GT(error.size(), OptionsFile().string().size() + 34) << "the reason is given";
    EXPECT_EQ(ReadText(OptionsFile()), malformed);

    ASSERT_TRUE(store.WriteProfileInt(u"Options", u"VolumeUnits", 6));
    EXPECT_EQ(ReadText(OptionsFile().string() + ".bad"), malformed);
    CRegistry reread(OptionsPath());
    EXPECT_EQ(reread.GetProfileInt(u"Options", u"VolumeUnits", 0), 6);
    EXPECT_EQ(reread.GetProfileInt(u"Options", u"AreaUnits", 7), 7);
    EXPECT_TRUE(reread.LastError().IsEmpty());
}

TEST_F(RegistryTest, AFailedWriteLeavesTheOldFileIntactAndSaysWhy) {
    const std::string original = "[Options]\nLengthUnits=5\n";
    for (const bool full : {false, true}) {
        SCOPED_TRACE(full ? "full disk" : "read-only folder");
        WriteText(OptionsFile(), original);
        CRegistry store(OptionsPath());
        bool written = true;
        if (full) {
            FileSizeLimit limit(1024);
            written = store.WriteProfileString(u"Options", u"LengthUnits", CString(u'x', 8192));
        } else {
            fs::permissions(OptionsFolder(),
                            fs::perms::owner_write | fs::perms::group_write |
                                fs::perms::others_write,
                            fs::perm_options::remove);
            UnprivilegedScope unprivileged;
            written = store.WriteProfileInt(u"Options", u"LengthUnits", 3);
        }
        fs::permissions(OptionsFolder(), fs::perms::owner_all);
        EXPECT_FALSE(written);
        EXPECT_EQ(U8(store.LastError()),
                  "Cannot write the options file \"" + OptionsFile().string() +
                      "\": " + (full ? "File too large" : "Permission denied"));
        EXPECT_EQ(ReadText(OptionsFile()), original);
        EXPECT_EQ(Listing("config/keel"), std::vector<std::string>{"Keel.ini"});
        EXPECT_EQ(store.GetProfileInt(u"Options", u"LengthUnits", 0), 5)
            << "the failed value is not kept in memory either";
    }
}

TEST_F(RegistryTest, AWriteMakesMissingFoldersAPrivateFileAndKeepsALink) {
    CRegistry deep(CString::FromUtf8((m_root / "deep/er/options.ini").string()));
    ASSERT_TRUE(deep.WriteProfileInt(u"Options", u"Value", 1));
    const fs::perms permissions = fs::status(m_root / "deep/er/options.ini").permissions();
    EXPECT_EQ(permissions & (fs::perms::group_all | fs::perms::others_all), fs::perms::none);

    WriteText(m_root / "dotfiles/Keel.ini", "[Options]\nOld=1\n");
    fs::create_directories(OptionsFolder());
    fs::create_symlink(m_root / "dotfiles/Keel.ini", OptionsFile());
    CRegistry store(OptionsPath());
    ASSERT_TRUE(store.WriteProfileInt(u"Options", u"New", 2));
    EXPECT_TRUE(fs::is_symlink(OptionsFile()));
    EXPECT_EQ(ReadText(m_root / "dotfiles/Keel.ini"), "[Options]\nOld=1\nNew=2\n");
}

TEST_F(RegistryTest, DeferredWritesAreSavedOnceWhenTheOutermostGuardEnds) {
    CRegistry store(OptionsPath());
    CRegistry::DeferredSave outer(store);
    ASSERT_TRUE(store.WriteProfileInt(u"Options", u"A", 1));
    {
        CRegistry::DeferredSave inner(store);
        ASSERT_TRUE(store.WriteProfileInt(u"Options", u"B", 2));
    }
    EXPECT_FALSE(fs::exists(OptionsFile())) << "nothing is saved before the outer guard ends";

    ASSERT_TRUE(CRegistry(OptionsPath()).WriteProfileInt(u"Options", u"C", 3));
    EXPECT_EQ(store.GetProfileInt(u"Options", u"C", 0), 3);
    EXPECT_EQ(store.GetProfileInt(u"Options", u"B", 0), 2) << "held back writes survive a reload";
    EXPECT_TRUE(outer.End());
    EXPECT_TRUE(outer.End());

    CRegistry reader(OptionsPath());
    for (const auto& [key, value] : {std::pair{u"A", 1}, {u"B", 2}, {u"C", 3}})
        EXPECT_EQ(reader.GetProfileInt(u"Options", key, 0), value);
}

TEST_F(RegistryTest, AFailedDeferredSaveForgetsTheHeldBackWrites) {
    const std::string original = "[Options]\nA=1\n";
    WriteText(OptionsFile(), original);
    fs::permissions(OptionsFolder(), fs::perms::owner_write, fs::perm_options::remove);
    CRegistry store(OptionsPath());
    bool saved = true;
    {
        UnprivilegedScope unprivileged;
        CRegistry::DeferredSave together(store);
        EXPECT_TRUE(store.WriteProfileInt(u"Options", u"A", 5));
        EXPECT_TRUE(store.WriteProfileInt(u"Options", u"B", 6));
        saved = together.End();
    }
    fs::permissions(OptionsFolder(), fs::perms::owner_all);
    EXPECT_FALSE(saved);
    EXPECT_TRUE(U8(store.LastError()).starts_with("Cannot write the options file"));
    EXPECT_EQ(ReadText(OptionsFile()), original);
    EXPECT_EQ(store.GetProfileInt(u"Options", u"A", 0), 1);
    EXPECT_EQ(store.GetProfileInt(u"Options", u"B", 0), 0);
}

TEST_F(RegistryTest, MachineWideStringsComeFromTheirOwnReadOnlyFile) {
    WriteText(m_root / "machine/Keel.ini", "[Options]\nLicenceServer=licences.example\n");
    CRegistry& store = CRegistry::Current();
    EXPECT_EQ(U8(store.GetMachineProfileString(u"options", u"licenceserver", u"none")),
              "licences.example");
    EXPECT_EQ(U8(store.GetProfileString(u"Options", u"LicenceServer", u"none")), "none");
    EXPECT_TRUE(store.LastError().IsEmpty());

    WriteText(m_root / "machine/Keel.ini", "no group\n");
    EXPECT_EQ(U8(store.GetMachineProfileString(u"Options", u"LicenceServer", u"none")), "none");
    EXPECT_TRUE(U8(store.LastError()).starts_with("Cannot read the machine options file"));
}

// An options file whose place is taken by a FIFO is refused without waiting on it. A write puts a
// regular file in its place and keeps the FIFO under "<file>.bad", as with a file that cannot be
// parsed.
TEST_F(RegistryTest, AFifoIsRefusedWithoutWaitingAndKeptAsideByAWrite) {
    fs::create_directories(OptionsFolder());
    const fs::path file = OptionsFolder() / "fifo";
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    // The read runs in a child process that an alarm ends if the read waits.
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(10);
        CRegistry reader(CString::FromUtf8(file.string()));
        const bool defaulted = reader.GetProfileInt(u"Options", u"LengthUnits", 3) == 3;
        const bool said = U8(reader.LastError()) == "Cannot read the options file \"" +
                                                        file.string() + "\": Not a regular file";
        ::_exit(defaulted && said ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), 0)
        << "1: wrong answer, 142: it waited";
    CRegistry store(CString::FromUtf8(file.string()));
    ASSERT_TRUE(store.WriteProfileInt(u"Options", u"LengthUnits", 5)) << U8(store.LastError());
    EXPECT_TRUE(fs::is_regular_file(file));
    EXPECT_TRUE(fs::exists(fs::symlink_status(file.string() + ".bad")));
    EXPECT_EQ(ReadText(file), "[Options]\nLengthUnits=5\n");
}

} // namespace
} // namespace keel
