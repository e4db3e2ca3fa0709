#include "tests/support/paths.h"
#include "tests/support/program.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace keel::test {
namespace {

// The source folder: the test data live in its tests/data.
const std::string c_checkLayers = TestDataFolder() + "/../../tools/check-layers.py";

struct LayerCase {
    const char* name;
    // The files of a small tree: path, then text.
    std::vector<std::pair<std::string, std::string>> files;
    int status;
    // What the message names, when the check fails.
    const char* reported;
    // What it must not name.
    const char* notReported = nullptr;
};

class CheckLayers : public KeelProgramTest, public testing::WithParamInterface<LayerCase> {
protected:
    ProgramOutcome Check(const std::string& root) const {
        return Piped("python3 " + ShellQuoted(c_checkLayers) + " " + ShellQuoted(root) + " 2>&1");
    }
};

TEST_P(CheckLayers, JudgesTheIncludesOfATree) {
    const LayerCase& c = GetParam();
    for (const auto& [path, text] : c.files)
        FileOfTest("tree/" + path, text);
    const ProgramOutcome outcome = Check((m_home / "tree").string());
    EXPECT_EQ(outcome.status, c.status) << outcome.out;
    if (c.reported) {
        EXPECT_NE(outcome.out.find(c.reported), std::string::npos) << outcome.out;
    }
    if (c.notReported) {
        EXPECT_EQ(outcome.out.find(c.notReported), std::string::npos) << outcome.out;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Trees, CheckLayers,
    testing::Values(
        LayerCase{"DownwardIncludesPass",
                  {{"keel/formula/evaluator.cpp", "#include \"keel/values/anyvalue.h\"\n"
                                                  "#include \"keel/document/errorlog.h\"\n"},
                   {"keel/document/winapp.cpp", "#include \"keel/tables/lookuptable.h\"\n"},
                   {"tools/keel/main.cpp", "#include \"keel/document/winapp.h\"\n"}},
                  0,
                  nullptr},
        LayerCase{"TheApplicationIncludedFromBelowFails",
                  {{"keel/formula/evaluator.cpp", "#include <vector>\n"
                                                  "  #  include \"keel/document/winapp.h\"\n"}},
                  1,
                  "keel/formula/evaluator.cpp:2: includes keel/document/winapp.h"},
        LayerCase{"TheErrorLogReachingTheFilesFails",
                  {{"keel/document/errorlog.cpp", "#include \"keel/system/fsfile.h\"\n"}},
                  1,
                  "above its own layer 'error log'"},
        LayerCase{"TheFilesReachingTheErrorLogPass",
                  {{"keel/system/fsfile.cpp", "#include \"keel/document/errorlog.h\"\n"
                                              "#include \"keel/system/pathop.h\"\n"}},
                  0,
                  nullptr},
        LayerCase{"PathsReachingTheFilesFail",
                  {{"keel/system/pathop.h", "#include \"keel/system/fsfile.h\"\n"}},
                  1,
                  "keel/system/pathop.h:1"},
        LayerCase{
            "AnAllowedEdgePassesOnlyFromItsOwnFile",
            {{"keel/formula/formulacontext.cpp", "#include \"keel/questions/properties.h\"\n"},
             {"keel/formula/tokeniser.cpp", "#include \"keel/questions/properties.h\"\n"}},
            1,
            "keel/formula/tokeniser.cpp:1",
            "formulacontext.cpp"},
        LayerCase{"AFolderWithoutALayerFails",
                  {{"keel/newthing/widget.cpp", "#include \"keel/values/anyvalue.h\"\n"}},
                  1,
                  "keel/newthing/widget.cpp: belongs to no layer"},
        LayerCase{"ValuesReachingTheProgramFail",
                  {{"keel/values/anyvalue.h", "#include \"tools/keel/commands.h\"\n"}},
                  1,
                  "of the layer 'program'"}),
    [](const testing::TestParamInfo<LayerCase>& info) { return std::string(info.param.name); });

TEST_F(KeelProgramTest, TheLibraryItselfKeepsTheOrderOfLayers) {
    const ProgramOutcome outcome = Piped("python3 " + ShellQuoted(c_checkLayers) + " 2>&1");
    EXPECT_EQ(outcome.status, 0) << outcome.out;
}

} // namespace
} // namespace keel::test
