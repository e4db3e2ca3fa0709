#include "tests/support/evaluations.h"
#include "tests/support/namescontext.h"
#include "tests/support/tempfolder.h"

#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"
#include "keel/system/currentdirectory.h"
#include "keel/system/fsfile.h"

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace keel {
namespace {

namespace fs = std::filesystem;

using FilesContext = test::NamesContext;

std::string Text(const QAnyValue& value) {
    return QAnyValue(value).MakeCString().ToUtf8();
}

// Each test has a fresh library folder of its own.
class FunctionsFiles : public test::TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        m_factory.folders = [this](QConstantFolder folder) {
            return folder == QConstantFolder::Library ? CString::FromUtf8(m_root.string())
                                                      : CString();
        };
        m_previous = SetEvaluatorFactory(&m_factory);
        QFSFile::ClearFileStatusCache();
    }
    void TearDown() override {
        SetEvaluatorFactory(m_previous);
        TempFolderTest::TearDown();
    }

    // The value of a formula that must evaluate.
    QAnyValue ValueOf(const std::string& formula, bool action = false) {
        const test::Evaluation outcome = test::Evaluated(formula, &m_desk, {.action = action});
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
        return outcome.value;
    }
    void Write(const std::string& name, const std::string& text) const {
        test::WriteText(m_root / name, text);
    }
    std::string Read(const std::string& name) const { return test::ReadText(m_root / name); }

    test::EvaluatorFactoryOf<> m_factory;
    QEvaluatorFactory* m_previous = nullptr;
    FilesContext m_desk;
};

// Holds another open file's lock, as a second program would.
class ForeignLock {
public:
    ForeignLock(const std::string& path, int operation)
        : m_fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        EXPECT_GE(m_fd, 0) << path;
        EXPECT_EQ(::flock(m_fd, operation | LOCK_NB), 0);
    }
    ~ForeignLock() { Release(); }
    ForeignLock(const ForeignLock&) = delete;
    ForeignLock& operator=(const ForeignLock&) = delete;
    void Release() {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd;
};

TEST_F(FunctionsFiles, WriteLineWritesMakingTheFoldersAndAppendLineAdds) {
    EXPECT_TRUE(ValueOf("writeline(\"notes\", \"first\")", true).IsTRUE());
    EXPECT_EQ(Read("notes.txt"), "first\n");
    EXPECT_TRUE(ValueOf("appendline(\"notes\", 2 + 3)", true).IsTRUE());
    EXPECT_EQ(Read("notes.txt"), "first\n5\n");
    EXPECT_TRUE(ValueOf("writeline(\"notes\", \"again\")", true).IsTRUE());
    EXPECT_EQ(Read("notes.txt"), "again\n");

    // The folders are made and an extension is kept.
    EXPECT_TRUE(ValueOf("writeline(\"sub/deep/list.csv\", \"a;b\")", true).IsTRUE());
    EXPECT_EQ(Read("sub/deep/list.csv"), "a;b\n");
    const std::string absolute = Path("elsewhere/abs");
    EXPECT_TRUE(ValueOf("appendline(\"" + absolute + "\", \"x\")", true).IsTRUE());
    EXPECT_EQ(Read("elsewhere/abs.txt"), "x\n");
}

struct ReadCase {
    const char* formula;
    const char* expected;
};

class FunctionsFilesReading : public FunctionsFiles,
                              public testing::WithParamInterface<ReadCase> {};

TEST_P(FunctionsFilesReading, GiveTheText) {
    Write("notes.txt", "first\r\nsecond\nthird\n");
    Write("data.csv", "1;2\n");
    Write("\xC3\xA9t\xC3\xA9.txt", "summer\n");
    Write("empty.txt", "");
    const QAnyValue value = ValueOf(GetParam().formula);
    EXPECT_EQ(Text(value), GetParam().expected) << GetParam().formula;
}

INSTANTIATE_TEST_SUITE_P(
    Table, FunctionsFilesReading,
    testing::Values(
        ReadCase{"readfile(\"notes\")", "first\r\nsecond\r\nthird"},
        ReadCase{"readfile(\"notes\", \" | \")", "first | second | third"},
        ReadCase{"readfile(\"\xC3\xA9t\xC3\xA9\")", "summer"}, ReadCase{"readfile(\"empty\")", ""},
        ReadCase{"readline(\"notes\", 3)", "third"}, ReadCase{"fileexists(\"notes\")", "Yes"},
        ReadCase{"fileexists(\"notes.csv\")", "No"}, ReadCase{"filelen(\"notes\")", "20"}));

TEST_F(FunctionsFiles, AMissingFileOrLineIsAnErrorValue) {
    const std::string missing = Path("missing.txt");
    for (const char* formula : {"readfile(\"missing\")", "readline(\"missing\", 1)",
                                "filelen(\"missing\")", "call(\"missing\")"}) {
        const QAnyValue value = ValueOf(formula);
        EXPECT_EQ(test::MessageOf(value), "Cannot open file " + missing) << formula;
    }

    // A line that is not there is an error value too.
    Write("notes.txt", "first\nsecond\n");
    const std::string path = Path("notes.txt");
    EXPECT_EQ(test::MessageOf(ValueOf("readline(\"notes\", 3)")),
              "Cannot read line 3 of file " + path + ": it has 2");
    EXPECT_EQ(test::MessageOf(ValueOf("readline(\"notes\", 0)")),
              "Cannot read line 0 of file " + path + ": it has 2");
}

TEST_F(FunctionsFiles, ReadAndIncrementCountsFromTheNumberInTheFileOrFromZero) {
    Write("counter.txt", "  41 apples\n");
    EXPECT_EQ(Text(ValueOf("readandincrement(\"counter\")")), "41");
    EXPECT_EQ(Read("counter.txt"), "42\n");
    EXPECT_EQ(Text(ValueOf("readandincrement(\"counters/new\")")), "0");
    EXPECT_EQ(Read("counters/new.txt"), "1\n");
    Write("words.txt", "none\n");
    EXPECT_EQ(Text(ValueOf("readandincrement(\"words\")")), "0");
    EXPECT_EQ(Read("words.txt"), "1\n");
}

TEST_F(FunctionsFiles, AFileLockedByAnotherProgramIsTriedTenTimes) {
    Write("notes.txt", "first\n");
    ForeignLock lock(Path("notes.txt"), LOCK_EX);
    const auto start = std::chrono::steady_clock::now();
    const QAnyValue value = ValueOf("readfile(\"notes\")");
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(test::MessageOf(value), "Cannot open file " + Path("notes.txt") + ", it is in use");
    EXPECT_GE(waited, std::chrono::milliseconds(850));
    EXPECT_EQ(test::MessageOf(ValueOf("readandincrement(\"notes\")")),
              "Cannot open file " + Path("notes.txt") + ", it is in use");
    EXPECT_EQ(Read("notes.txt"), "first\n");
}

TEST_F(FunctionsFiles, ALockLetGoWithinTheTriesIsWaitedFor) {
    Write("notes.txt", "first\n");
    ForeignLock lock(Path("notes.txt"), LOCK_EX);
    std::thread releaser([&lock] {
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        lock.Release();
    });
    const QAnyValue value = ValueOf("readfile(\"notes\")");
    releaser.join();
    EXPECT_EQ(Text(value), "first");
}

TEST_F(FunctionsFiles, ReadersShareAFileButAWriterWaits) {
    Write("notes.txt", "first\n");
    ForeignLock lock(Path("notes.txt"), LOCK_SH);
    EXPECT_EQ(Text(ValueOf("readfile(\"notes\")")), "first");
    EXPECT_EQ(test::MessageOf(ValueOf("writeline(\"notes\", \"x\")", true)),
              "Cannot open file " + Path("notes.txt") + ", it is in use");
}

TEST_F(FunctionsFiles, CallRunsTheFileInThisContextAndGivesAFailureAsAnErrorValue) {
    m_desk.Set("width", 40);
    Write("script.txt", "x := width;\r\nx * 2 + 1\n");
    EXPECT_EQ(Text(ValueOf("call(\"script\")")), "81");
    Write("bad.txt", "1 +\n");
    const QAnyValue value = ValueOf("call(\"bad\")");
    EXPECT_TRUE(value.IsError());
    EXPECT_NE(test::MessageOf(value), "");
}

TEST_F(FunctionsFiles, ListsNameFilesAndFoldersInOrder) {
    Write("b.txt", "");
    Write("a.txt", "");
    Write("c.vlt", "");
    Write("sub/inner.txt", "");
    Write("other/x.txt", "");
    EXPECT_EQ(Text(ValueOf("listfilenames(\"*\")")), "a.txt|b.txt|c.vlt");
    EXPECT_EQ(Text(ValueOf("listfilenames(\"*.txt\", \", \")")), "a.txt, b.txt");
    EXPECT_EQ(Text(ValueOf("listfilenames(\"sub/\")")), "inner.txt");
    EXPECT_EQ(Text(ValueOf("listfoldernames(\"*\")")), "other|sub");
    EXPECT_EQ(Text(ValueOf("listfilenames(\"nowhere/*\")")), "");
}

TEST_F(FunctionsFiles, LibraryListsNameTheItemsByFilterAndType) {
    Write("door.viqx", "");
    Write("door.vlt", "");
    Write("drawer.viqx", "");
    Write("shelf.vlt", "");
    Write("kitchen/sink.viqx", "");
    EXPECT_EQ(Text(ValueOf("librarylist()")), "door|drawer|shelf");
    EXPECT_EQ(Text(ValueOf("librarylist(\"\", \"d.*\")")), "door|drawer");
    EXPECT_EQ(Text(ValueOf("librarylist(\"\", \"door\", \";\", \"vlt\")")), "door");
    EXPECT_EQ(Text(ValueOf("librarylist(\"kitchen\")")), "sink");
    EXPECT_EQ(Text(ValueOf("librarylistbytype(\"viqx\")")), "door|drawer");
    EXPECT_EQ(Text(ValueOf("librarylistbytype(\".vlt\", \"\", \".*f\")")), "shelf");
}

TEST_F(FunctionsFiles, WithoutAnApplicationNamesAreInTheCurrentFolder) {
    SetEvaluatorFactory(nullptr);
    Write("here.txt", "local\n");
    QSaveAndRestoreCurrentDirectory inLibrary(CString::FromUtf8(m_root.string()));
    ASSERT_TRUE(inLibrary.IsEntered());
    EXPECT_EQ(Text(ValueOf("readfile(\"here\")")), "local");
}

} // namespace
} // namespace keel
