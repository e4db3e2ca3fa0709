#include "keel/document/commandline.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace keel {
namespace {

std::string U8(const CString& text) {
    return text.ToUtf8();
}

bool Parse(QCommandLineInfo& info, std::vector<const char*> params) {
    params.insert(params.begin(), "program");
    return info.ParseCommandLine(static_cast<int>(params.size()), params.data());
}

TEST(CommandLineTest, TheFrameworkFieldsFollowTheParameters) {
    struct Case {
        std::vector<const char*> params;
        std::string fileName;
        QCommandLineInfo::ShellCommand command;
        bool embedded;
        bool automated;
    };
    using Info = QCommandLineInfo;
    const Case cases[] = {
        {{}, "", Info::FileNew, false, false},
        {{"drawing.kdoc"}, "drawing.kdoc", Info::FileOpen, false, false},
        {{"first.kdoc", "second.kdoc"}, "first.kdoc", Info::FileOpen, false, false},
        {{"-Embedding"}, "", Info::FileNew, true, false},
        {{"-embedding", "drawing.kdoc"}, "drawing.kdoc", Info::FileOpen, true, false},
        {{"--Automation"}, "", Info::FileNew, false, true},
        {{"-AUTOMATION"}, "", Info::FileNew, false, true},
        {{"-Unknown", "drawing.kdoc"}, "drawing.kdoc", Info::FileOpen, false, false},
        // On this platform a parameter with a slash is a path, never a flag.
        {{"/Embedding"}, "/Embedding", Info::FileOpen, false, false},
        {{"/home/me/drawing.kdoc"}, "/home/me/drawing.kdoc", Info::FileOpen, false, false},
        {{"-"}, "-", Info::FileOpen, false, false},
        {{"--", "-Embedding"}, "-Embedding", Info::FileOpen, false, false},
        {{"--"}, "", Info::FileNew, false, false},
    };
    for (const Case& c : cases) {
        QCommandLineInfo info;
        std::string line;
        for (const char* param : c.params)
            line += std::string(param) + " ";
        EXPECT_TRUE(Parse(info, c.params)) << line;
        EXPECT_EQ(U8(info.m_strFileName), c.fileName) << line;
        EXPECT_EQ(info.m_nShellCommand, c.command) << line;
        EXPECT_EQ(info.m_bRunEmbedded, c.embedded) << line;
        EXPECT_EQ(info.m_bRunAutomated, c.automated) << line;
        EXPECT_EQ(info.IsServerStart(), c.embedded || c.automated) << line;
        EXPECT_EQ(info.m_bShowSplash, !(c.embedded || c.automated)) << line;
    }
}

// A product's command line: "-units" and "-set" take a value, "-quiet" does not.
class ProductCommandLine : public QCommandLineInfo {
public:
    void ProcessFlag(const CString& flag) override {
        calls.push_back("flag " + U8(flag));
        if (flag == u"units" || flag == u"set")
            SetValueRequired(true);
        else
            QCommandLineInfo::ProcessFlag(flag);
    }
    void ProcessFlagAndValue(const CString& flag, const CString& value) override {
        calls.push_back("value " + U8(flag) + "=" + U8(value));
    }
    void ProcessLast() override {
        calls.push_back("last");
        QCommandLineInfo::ProcessLast();
    }

    std::vector<std::string> calls;
};

// The parameter after a flag that asks for a value is its value, taken as written even when it
// looks like a flag or an end; a flag left without its value fails the parse. ProcessLast runs
// once, after the last parameter.
TEST(CommandLineTest, TheParameterAfterAFlagThatAsksForAValueIsItsValue) {
    using Calls = std::vector<std::string>;
    const struct {
        std::vector<const char*> params;
        Calls calls;
        std::string fileName;
        std::string flag;
        std::string value;
        bool parsed = true;
    } cases[] = {
        {{"-units", "mm", "-quiet", "--set", "-5", "drawing.kdoc"},
         {"flag units", "value units=mm", "flag quiet", "flag set", "value set=-5", "last"},
         "drawing.kdoc",
         "set",
         "-5"},
        {{"-set", "-Embedding"},
         {"flag set", "value set=-Embedding", "last"},
         "",
         "set",
         "-Embedding"},
        {{"-set", "--"}, {"flag set", "value set=--", "last"}, "", "set", "--"},
        {{"-set", "/x"}, {"flag set", "value set=/x", "last"}, "", "set", "/x"},
        {{"-set", ""}, {"flag set", "value set=", "last"}, "", "set", ""},
        {{"drawing.kdoc", "-units"}, {"flag units", "last"}, "drawing.kdoc", "units", "", false},
        {{}, {}, "", "", ""},
        {{"a"}, {"last"}, "a", "", ""},
        {{"a", "b", "c"}, {"last"}, "a", "", ""},
        {{"-quiet"}, {"flag quiet", "last"}, "", "quiet", ""},
        {{"a", "--"}, {"last"}, "a", "", ""},
    };
    for (const auto& c : cases) {
        ProductCommandLine info;
        const std::string line = c.params.empty() ? "(none)" : c.params[0];
        EXPECT_EQ(Parse(info, c.params), c.parsed) << line;
        EXPECT_EQ(info.calls, c.calls) << line;
        EXPECT_EQ(U8(info.m_strFileName), c.fileName) << line;
        EXPECT_EQ(info.m_nShellCommand,
                  c.fileName.empty() ? QCommandLineInfo::FileNew : QCommandLineInfo::FileOpen);
        EXPECT_EQ(info.IsValueRequired(), !c.parsed) << line;
        EXPECT_FALSE(info.m_bRunEmbedded) << line;
        EXPECT_EQ(U8(info.GetFlag()), c.flag) << line;
        if (!c.value.empty()) {
            EXPECT_EQ(U8(info.GetValue()), c.value) << line;
        }
    }
}

TEST(CommandLineTest, ParseParamCanBeFedOneParameterAtATime) {
    ProductCommandLine info;
    info.ParseParam(u"Automation", true, false);
    info.ParseParam(u"units", true, false);
    info.ParseParam(u"inch", false, false);
    info.ParseParam(u"plan.kdoc", false, true);
    EXPECT_EQ(info.calls, (std::vector<std::string>{"flag Automation", "flag units",
                                                    "value units=inch", "last"}));
    EXPECT_TRUE(info.m_bRunAutomated);
    EXPECT_FALSE(info.m_bShowSplash);
    EXPECT_EQ(U8(info.m_strFileName), "plan.kdoc");
    EXPECT_EQ(info.m_nShellCommand, QCommandLineInfo::FileOpen);
}

TEST(CommandLineTest, ANonUtf8ParameterStillArrives) {
    QCommandLineInfo info;
    EXPECT_TRUE(Parse(info, {"caf\xe9.kdoc"}));
    EXPECT_EQ(U8(info.m_strFileName), "caf\xef\xbf\xbd.kdoc");
}

} // namespace
} // namespace keel
