#include "tests/support/environment.h"

#include "keel/platform/registry.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace keel {
namespace {

namespace fs = std::filesystem;

enum class SpecialFile { Fifo, Folder, Device };

struct SpecialCase {
    const char* name;
    SpecialFile kind;
};

// An options file whose place is taken by something that is no regular file.
class RegistrySpecialFileTest : public testing::TestWithParam<SpecialCase> {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "keel-registry-special-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_root = pattern;
        switch (GetParam().kind) {
        case SpecialFile::Fifo:
            ASSERT_EQ(::mkfifo(OptionsFile().c_str(), 0600), 0);
            break;
        case SpecialFile::Folder:
            fs::create_directory(OptionsFile());
            break;
        case SpecialFile::Device:
            fs::create_symlink("/dev/zero", OptionsFile());
            break;
        }
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(m_root, ignored);
    }

    fs::path OptionsFile() const { return m_root / "Keel.ini"; }

    fs::path m_root;
};

// What a read gives, checked in a child process that an alarm ends: a read that waits on the
// FIFO for a writer fails the test instead of hanging it.
int ReadInABoundedChild(const fs::path& file) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(10);
        CRegistry store(CString::FromUtf8(file.string()));
        const bool defaulted = store.GetProfileInt(u"Options", u"LengthUnits", 3) == 3;
        const bool said = store.LastError().ToUtf8() == "Cannot read the options file \"" +
                                                            file.string() +
                                                            "\": Not a regular file";
        ::_exit(defaulted && said ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST_P(RegistrySpecialFileTest, IsRefusedWithoutWaitingAndGivesTheDefaults) {
    EXPECT_EQ(ReadInABoundedChild(OptionsFile()), 0) << "1: wrong answer, 142: it waited";
}

// A write puts a regular file in its place and keeps what was there under "<file>.bad", as it
// does with a file that cannot be parsed.
using RegistrySpecialFileWriteTest = RegistrySpecialFileTest;

TEST_P(RegistrySpecialFileWriteTest, AWriteKeepsItAsideAndStoresARegularFile) {
    CRegistry store(CString::FromUtf8(OptionsFile().string()));
    if (GetParam().kind == SpecialFile::Fifo) {
        // Only the child reads a FIFO: this store is not to wait on it if the read goes wrong.
        ASSERT_EQ(ReadInABoundedChild(OptionsFile()), 0);
    }
    ASSERT_TRUE(store.WriteProfileInt(u"Options", u"LengthUnits", 5)) << store.LastError().ToUtf8();
    EXPECT_TRUE(fs::is_regular_file(OptionsFile()));
    EXPECT_TRUE(fs::exists(fs::symlink_status(OptionsFile().string() + ".bad")));
    EXPECT_EQ(test::ReadText(OptionsFile()), "[Options]\nLengthUnits=5\n");
    EXPECT_EQ(CRegistry(CString::FromUtf8(OptionsFile().string()))
                  .GetProfileInt(u"Options", u"LengthUnits", 3),
              5);
}

std::string CaseName(const testing::TestParamInfo<SpecialCase>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Kinds, RegistrySpecialFileTest,
                         testing::Values(SpecialCase{"Fifo", SpecialFile::Fifo},
                                         SpecialCase{"Folder", SpecialFile::Folder},
                                         SpecialCase{"Device", SpecialFile::Device}),
                         CaseName);
// No write goes near a device: the test may run as root.
INSTANTIATE_TEST_SUITE_P(Kinds, RegistrySpecialFileWriteTest,
                         testing::Values(SpecialCase{"Fifo", SpecialFile::Fifo},
                                         SpecialCase{"Folder", SpecialFile::Folder}),
                         CaseName);

} // namespace
} // namespace keel
