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

TEST(CommandLineTest, TheParameterAfterAFlagThatAsksForAValueIsItsValue) {
    ProductCommandLine info;
    EXPECT_TRUE(Parse(info, {"-units", "mm", "-quiet", "--set", "-5", "drawing.kdoc"}));
    EXPECT_EQ(info.calls, (std::vector<std::string>{"flag units", "value units=mm", "flag quiet",
                                                    "flag set", "value set=-5", "last"}));
    EXPECT_EQ(U8(info.m_strFileName), "drawing.kdoc");
    EXPECT_EQ(info.m_nShellCommand, QCommandLineInfo::FileOpen);
    EXPECT_FALSE(info.IsValueRequired());
    EXPECT_EQ(U8(info.GetFlag()), "set");
    EXPECT_EQ(U8(info.GetValue()), "-5");
}

TEST(CommandLineTest, AValueIsTakenAsWrittenEvenWhenItLooksLikeAFlagOrAnEnd) {
    struct Case {
        std::vector<const char*> params;
        std::string value;
    };
    const Case cases[] = {
        {{"-set", "-Embedding"}, "-Embedding"},
        {{"-set", "--"}, "--"},
        {{"-set", "/x"}, "/x"},
        {{"-set", ""}, ""},
    };
    for (const Case& c : cases) {
        ProductCommandLine info;
        EXPECT_TRUE(Parse(info, c.params));
        EXPECT_EQ(info.calls,
                  (std::vector<std::string>{"flag set", "value set=" + c.value, "last"}))
            << c.value;
        EXPECT_FALSE(info.m_bRunEmbedded);
        EXPECT_TRUE(info.m_strFileName.IsEmpty());
    }
}

TEST(CommandLineTest, AFlagLeftWithoutItsValueFailsTheParse) {
    ProductCommandLine info;
    EXPECT_FALSE(Parse(info, {"drawing.kdoc", "-units"}));
    EXPECT_TRUE(info.IsValueRequired());
    EXPECT_EQ(U8(info.GetFlag()), "units");
    EXPECT_EQ(info.calls, (std::vector<std::string>{"flag units", "last"}));
    EXPECT_EQ(U8(info.m_strFileName), "drawing.kdoc");
}

TEST(CommandLineTest, ProcessLastRunsOnceAfterTheLastParameter) {
    struct Case {
        std::vector<const char*> params;
        int lastCalls;
    };
    const Case cases[] = {
        {{}, 0}, {{"a"}, 1}, {{"a", "b", "c"}, 1}, {{"-quiet"}, 1}, {{"a", "--"}, 1},
    };
    for (const Case& c : cases) {
        ProductCommandLine info;
        Parse(info, c.params);
        EXPECT_EQ(std::count(info.calls.begin(), info.calls.end(), "last"), c.lastCalls);
        if (c.lastCalls > 0) {
            EXPECT_EQ(info.calls.back(), "last");
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
