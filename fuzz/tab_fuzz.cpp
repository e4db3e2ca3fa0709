// Export files from anywhere: the bytes are written as a .tab file and read into a small tree of
// groups, items and a bag of typed values, first merged into a tree that has a group and an item,
// then imported into an empty one, which makes every child that the file names.
//
// The values of a .tab file are formulas, run as the file is read, so the formula guard watches
// every evaluator made on the way, with a budget of evaluations for each input.
#include "fuzz/formulaguard.h"
#include "tests/support/exporttree.h"

#include "keel/document/errorlog.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <unistd.h>

namespace {

using namespace keel;
using keel::fuzz::GuardingFactory;

constexpr std::size_t c_maxInputBytes = 4096;
constexpr int c_maxEvaluationsPerInput = 2000;

std::filesystem::path& FilePath() {
    static std::filesystem::path path;
    return path;
}

void RemoveFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(FilePath().parent_path(), ignored);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("keel-tab-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    FilePath() = folder / "fuzz.tab";
    std::atexit(RemoveFolder);
    keel::fuzz::InstallGuard();
    TheErrorLog().SetFilename(CString::FromUtf8((folder / "errors.log").string()));
    SetNoEvalReportErrors(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > c_maxInputBytes)
        return 0;
    std::ofstream(FilePath(), std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), std::streamsize(size));
    const CString path = CString::FromUtf8(FilePath().string());
    keel::fuzz::Guard().StartInput(c_maxEvaluationsPerInput);
    {
        keel::test::FakeTree tree;
        tree.AddGroup(u"Base").items.push_back(std::make_unique<keel::test::FakeItem>(1));
        tree.ImportOrMergeFrom(path, true, nullptr);
    }
    {
        keel::test::FakeTree tree;
        tree.ImportOrMergeFrom(path, false, nullptr);
    }
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
