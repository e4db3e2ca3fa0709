// XML export files from anywhere: the bytes after the first are written as a .xml file and read
// into a small tree of groups, items and bags of typed values, first merged into a tree that has
// a group (with a bag of extras when the first byte's bit 2 is set) and an item, then imported
// into an empty one, which makes every child that the file names; what was read is then written
// again. The first byte's bit 1 picks the attribute style of the groups.
//
// A typed value is converted from its text, which may run it as a formula, so the formula guard
// watches every evaluator made on the way, with a budget of evaluations for each input.
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
using keel::test::FakeBag;
using keel::test::FakeItem;
using keel::test::FakeTree;

constexpr std::size_t c_maxInputBytes = 1 << 14;
constexpr int c_maxEvaluationsPerInput = 2000;

std::filesystem::path& Folder() {
    static std::filesystem::path folder;
    return folder;
}

CString PathOf(const char* name) {
    return CString::FromUtf8((Folder() / name).string());
}

void RemoveFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(Folder(), ignored);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    Folder() = std::filesystem::temp_directory_path() /
               ("keel-xmlimport-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(Folder());
    std::atexit(RemoveFolder);
    keel::fuzz::InstallGuard();
    TheErrorLog().SetFilename(PathOf("errors.log"));
    SetNoEvalReportErrors(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > c_maxInputBytes)
        return 0;
    const int style = data[0] & 1;
    const bool extras = (data[0] & 2) != 0;
    std::ofstream((Folder() / "fuzz.xml"), std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data + 1), std::streamsize(size - 1));
    keel::fuzz::Guard().StartInput(c_maxEvaluationsPerInput);
    {
        FakeTree tree;
        tree.newGroupXmlStyle = style;
        keel::test::FakeGroup& group = tree.AddGroup(u"Base");
        group.xmlStyle = style;
        if (extras)
            group.extras = std::make_unique<FakeBag>();
        group.items.push_back(std::make_unique<FakeItem>(1));
        tree.ImportOrMergeFrom(PathOf("fuzz.xml"), true, nullptr);
    }
    {
        FakeTree tree;
        tree.newGroupXmlStyle = style;
        tree.ImportOrMergeFrom(PathOf("fuzz.xml"), false, nullptr);
        tree.ExportData(PathOf("again.xml"), false, false, nullptr);
        FakeTree again;
        again.newGroupXmlStyle = style;
        again.ImportOrMergeFrom(PathOf("again.xml"), false, nullptr);
    }
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
