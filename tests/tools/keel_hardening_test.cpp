#include "tests/support/program.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

// Runs under a memory limit cannot start a program built with a sanitizer, which reserves
// terabytes of address space for its shadow memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool c_sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool c_sanitized = true;
#else
constexpr bool c_sanitized = false;
#endif
#else
constexpr bool c_sanitized = false;
#endif

namespace {

using Outcome = keel::test::ProgramOutcome;

std::string Joined(const std::vector<std::string>& words) {
    std::string joined;
    for (const std::string& word : words)
        joined += " " + keel::test::ShellQuoted(word);
    return joined;
}

size_t Occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class KeelHardening : public keel::test::KeelProgramTest {};

struct LineCase {
    std::vector<std::string> words;
    std::string out;
    int status;
};

// An error value is the formula's result: its line shows the value's own message, nothing more
// goes to stderr, and the exit status says that something gave an error.
TEST_F(KeelHardening, AnErrorValueShowsItsMessageOnceAndExitsWithOne) {
    const LineCase cases[] = {
        {{"eval", "1 / 0"}, "#ERR!\tDivision by zero\n", 1},
        {{"eval", "1 / 0", "2"}, "#ERR!\tDivision by zero\nWhole Number\t2\n", 1},
        {{"eval", "2", "1 / 0"}, "Whole Number\t2\n#ERR!\tDivision by zero\n", 1},
        {{"eval", "--action", "begin transaction vlt 'prices'"},
         "#ERR!\tCannot find lookup table prices\n",
         1},
        {{"eval", "na"}, "#N/A\t#N/A\n", 0},
        {{"eval", "[1, 1 / 0]"}, "Array\t[1,#ERR!]\n", 0}, // an array holding an error is none
        {{"eval", "iserror(1 / 0)"}, "Yes or No\tYes\n", 0},
        {{"repl"}, "#ERR!\tDivision by zero\nWhole Number\t3\n", 1},
    };
    for (const LineCase& c : cases) {
        const Outcome outcome = Run(c.words, "1 / 0\n3\n");
        EXPECT_EQ(outcome.out, c.out) << Joined(c.words);
        EXPECT_EQ(outcome.status, c.status) << Joined(c.words);
        EXPECT_EQ(outcome.err, "") << Joined(c.words);
    }
}

TEST_F(KeelHardening, HelpGivesTheExitStatusOfAnErrorValue) {
    const Outcome help = Run({"help"});
    for (const char* text :
         {"an error value shows its\n", "gives an error value):", "error (true for\n",
          "Exit status: 0 done; 1 failed (for eval, repl "
          "and run: a formula failed or gave an\nerror "
          "value); 2 bad usage."})
        EXPECT_NE(help.out.find(text), std::string::npos) << text;
}

TEST_F(KeelHardening, AnErrorValueInAFileExitsWithOne) {
    const Outcome outcome = Run({"run", FileOfTest("divide.keel", "x := 0;\n1 / x\n")});
    EXPECT_EQ(outcome.out, "#ERR!\tDivision by zero\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(KeelHardening, JsonMarksAnErrorValueAndKeepsOkAsEvaluated) {
    const LineCase cases[] = {
        {{"1 / 0"},
         R"({"formula":"1 / 0","ok":true,"error":true,"message":"","type":"#ERR!",)"
         R"("typeNumber":-1,"text":"#ERR!","raw":"Division by zero"})"
         "\n",
         1},
        {{"1 +"},
         R"({"formula":"1 +","ok":false,"error":true,"message":"Expecting a number, string, )"
         R"(name or (expression)\nbut found end of formula","type":"#ERR!","typeNumber":-1,)"
         R"("text":"#ERR!","raw":"Expecting a number, string, name or (expression)\nbut )"
         R"(found end of formula"})"
         "\n",
         1},
        {{"na"},
         R"({"formula":"na","ok":true,"message":"","type":"#N/A","typeNumber":-2,)"
         R"("text":"#N/A","raw":null})"
         "\n",
         0},
        {{"[1 / 0]"},
         R"({"formula":"[1 / 0]","ok":true,"message":"","type":"Array","typeNumber":10,)"
         R"("text":"[#ERR!]","raw":{"elements":[{"type":"#ERR!","typeNumber":-1,)"
         R"("text":"#ERR!","raw":"Division by zero"}]}})"
         "\n",
         0},
    };
    for (const LineCase& c : cases) {
        std::vector<std::string> words = {"eval", "--json"};
        words.insert(words.end(), c.words.begin(), c.words.end());
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.out, c.out) << Joined(words);
        EXPECT_EQ(outcome.status, c.status) << Joined(words);
        EXPECT_EQ(outcome.err, "") << Joined(words);
    }
}

// Formulas from a person are interned as typed: a spelling that differs only in case from one
// interned earlier is shown as typed, and no value kept under the other spelling stands in.
TEST_F(KeelHardening, FormulasAreShownAsTyped) {
    const LineCase cases[] = {
        {{"eval", "\"A\"", "\"a\"", "'a'"}, "String\tA\nString\ta\nString\ta\n", 0},
        {{"eval", "--set", "x=\"A\"", "x", "\"a\""}, "String\tA\nString\ta\n", 0},
        {{"eval", "--set", "x=\"A\"", "\"a\""}, "String\ta\n", 0},
        {{"repl"}, "String\tAbc\nString\taBC\n", 0},
        {{"run", FileOfTest("lower.keel", "\"aBC\"")}, "String\taBC\n", 0},
    };
    for (const LineCase& c : cases) {
        const Outcome outcome = Run(c.words, "\"Abc\"\n\"aBC\"\n");
        EXPECT_EQ(outcome.out, c.out) << Joined(c.words) << "\n" << outcome.err;
        EXPECT_EQ(outcome.status, c.status) << Joined(c.words);
    }
}

TEST_F(KeelHardening, ANulByteInAFormulaFileOrLineFailsWithAMessage) {
    const std::string path = FileOfTest("nul.keel", std::string("1 + 2\0 + 5", 10));
    const Outcome file = Run({"run", path});
    EXPECT_EQ(file.status, 1);
    EXPECT_EQ(file.out, "");
    EXPECT_EQ(file.err, "keel: the formula file '" + path + "' holds a NUL byte at offset 5\n");

    const Outcome lines = Run({"repl"}, std::string("1\n2 +\0 3\n4\n", 11));
    EXPECT_EQ(lines.status, 1);
    EXPECT_EQ(lines.out, "Whole Number\t1\nWhole Number\t4\n");
    EXPECT_EQ(lines.err, "keel: line 2 holds a NUL byte\n");
}

TEST_F(KeelHardening, AByteOrderMarkStartingAFileIsSkipped) {
    const LineCase cases[] = {
        {{"run", FileOfTest("bom.keel", "\xEF\xBB\xBF"
                                        "1 + 2")},
         "Whole Number\t3\n",
         0},
        {{"run", "--json",
          FileOfTest("bom-json.keel", "\xEF\xBB\xBF"
                                      "'x'")},
         R"({"formula":"'x'","ok":true,"message":"","type":"String","typeNumber":1,)"
         R"("text":"x","raw":"x"})"
         "\n",
         0},
        // Only at the start: elsewhere it is a character of the text.
        {{"run", FileOfTest("inner-bom.keel", "'a\xEF\xBB\xBF'")}, "String\ta\xEF\xBB\xBF\n", 0},
    };
    for (const LineCase& c : cases) {
        const Outcome outcome = Run(c.words);
        EXPECT_EQ(outcome.out, c.out) << Joined(c.words) << "\n" << outcome.err;
        EXPECT_EQ(outcome.status, c.status) << Joined(c.words);
    }
}

struct JsonTextCase {
    std::string fileText;
    std::string jsonLine;
};

// Whatever bytes the formula holds, the line is JSON: bytes that are no UTF-8 become U+FFFD,
// and control characters, C0, DEL and C1, are escapes.
TEST_F(KeelHardening, JsonLinesAreValidWhateverTheBytes) {
    const JsonTextCase cases[] = {
        {"'\xFF\xFE'",
         "{\"formula\":\"'\xEF\xBF\xBD\xEF\xBF\xBD'\",\"ok\":true,\"message\":\"\",\"type\":"
         "\"String\",\"typeNumber\":1,\"text\":\"\xEF\xBF\xBD\xEF\xBF\xBD\",\"raw\":\"\xEF\xBF"
         "\xBD\xEF\xBF\xBD\"}\n"},
        {"'\xC3'", // a sequence cut short
         "{\"formula\":\"'\xEF\xBF\xBD'\",\"ok\":true,\"message\":\"\",\"type\":\"String\","
         "\"typeNumber\":1,\"text\":\"\xEF\xBF\xBD\",\"raw\":\"\xEF\xBF\xBD\"}\n"},
        {"'\xED\xA0\x80'", // an encoded surrogate
         "{\"formula\":\"'\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD'\",\"ok\":true,\"message\":\"\","
         "\"type\":\"String\",\"typeNumber\":1,\"text\":\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\","
         "\"raw\":\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"}\n"},
        {"char(1) & char(127) & char(133) & char(233)",
         R"j({"formula":"char(1) & char(127) & char(133) & char(233)","ok":true,"message":"",)j"
         R"("type":"String","typeNumber":1,"text":"\u0001\u007f\u0085)"
         "\xC3\xA9"
         R"(","raw":"\u0001\u007f\u0085)"
         "\xC3\xA9"
         R"("})"
         "\n"},
        {"// \x01\x1F\x7F\n1",
         R"({"formula":"// \u0001\u001f\u007f\n1","ok":true,"message":"","type":"Whole Number",)"
         R"("typeNumber":3,"text":"1","raw":1})"
         "\n"},
    };
    for (const JsonTextCase& c : cases) {
        const Outcome outcome = Run({"run", "--json", FileOfTest("bytes.keel", c.fileText)});
        EXPECT_EQ(outcome.out, c.jsonLine) << c.fileText << "\n" << outcome.err;
    }
}

struct UsageCase {
    std::vector<std::string> words;
    std::string message;
};

// Every subcommand names itself in what it says about a bad command line.
TEST_F(KeelHardening, UsageErrorsNameTheSubcommand) {
    const std::string script = FileOfTest("one.keel", "1");
    const UsageCase cases[] = {
        {{"run", "--bogus", script}, "keel run: unknown option '--bogus'\n"},
        {{"run"}, "keel run: usage: keel run FILE [--json]"},
        {{"run", script, "--length-units", "9"},
         "keel run: --length-units takes a unit number from 1 to 7\n"},
        {{"run", script, "--set"}, "keel run: --set needs a value\n"},
        {{"repl", "--bogus"}, "keel repl: unknown option '--bogus'\n"},
        {{"repl", "--set", "2x=1"},
         "keel repl: --set takes NAME=FORMULA, and '2x' is not a name\n"},
        {{"repl", "1"}, "keel repl: takes the options of eval and no FORMULA\n"},
        {{"eval", "--bogus", "1"}, "keel eval: unknown option '--bogus'\n"},
        {{"eval"}, "keel eval: usage: keel eval [--json]"},
        {{"complete", "--bogus", "--words", script}, "keel complete: unknown option '--bogus'\n"},
        {{"complete", "wi"}, "keel complete: usage: keel complete PREFIX [N] --words FILE\n"},
        {{"complete", "wi", "--words"}, "keel complete: --words needs a file name\n"},
        {{"complete", "wi", "x", "--words", script},
         "keel complete: N must be a whole number of 0 or more\n"},
        {{"translate", "Open"}, "keel translate: usage: keel translate --file FILE"},
        {{"options", "x"}, "keel options: takes no arguments\n"},
        {{"help", "functions", "x"}, "keel help functions: takes no arguments\n"},
        {{"demo", "--bogus"}, "keel demo: usage: keel demo [--words FILE] [--tables FOLDER]\n"},
    };
    for (const UsageCase& c : cases) {
        const Outcome outcome = Run(c.words);
        EXPECT_EQ(outcome.status, 2) << Joined(c.words);
        EXPECT_EQ(outcome.out, "") << Joined(c.words);
        EXPECT_EQ(outcome.err.rfind(c.message, 0), 0u) << Joined(c.words) << "\n" << outcome.err;
        EXPECT_NE(outcome.err.find("\nTry 'keel help'.\n"), std::string::npos) << Joined(c.words);
    }
}

// A NAME is refused when a formula made of it would not read the property: keywords, named
// constants, and names with control characters.
TEST_F(KeelHardening, SetRefusesNamesThatNoFormulaReads) {
    const std::string refused =
        "' is a keyword, a named constant or a function, which no formula reads as a property\n";
    const std::string control = "the NAME given holds a control character\n";
    const UsageCase cases[] = {
        {{"--set", "if=3"}, "keel eval: --set takes NAME=FORMULA, and 'if" + refused},
        {{"--set", "to=3"}, "keel eval: --set takes NAME=FORMULA, and 'to" + refused},
        {{"--set", "Next=3"}, "keel eval: --set takes NAME=FORMULA, and 'Next" + refused},
        {{"--set", "pi=3"}, "keel eval: --set takes NAME=FORMULA, and 'pi" + refused},
        {{"--set", "RED=3"}, "keel eval: --set takes NAME=FORMULA, and 'RED" + refused},
        {{"--set", "na=3"}, "keel eval: --set takes NAME=FORMULA, and 'na" + refused},
        {{"--set", "a\x01=3"}, "keel eval: --set takes NAME=FORMULA, and " + control},
        {{"--set", "a\nb=3"}, "keel eval: --set takes NAME=FORMULA, and " + control},
        {{"--set", "a\x7F=3"}, "keel eval: --set takes NAME=FORMULA, and " + control},
        {{"--set", "a\xC2\x85=3"}, "keel eval: --set takes NAME=FORMULA, and " + control},
        {{"--set", "x=1 +"},
         "keel eval: --set cannot store the formula of x: Expecting a number, string, name or "
         "(expression)\nbut found end of formula\n"},
        {{"--set", "x=[1,"}, "keel eval: --set cannot store the formula of x: "},
    };
    for (const UsageCase& c : cases) {
        std::vector<std::string> words = {"eval"};
        words.insert(words.end(), c.words.begin(), c.words.end());
        words.push_back("1");
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.status, 2) << Joined(words);
        EXPECT_EQ(outcome.out, "") << Joined(words);
        EXPECT_EQ(outcome.err.rfind(c.message, 0), 0u) << Joined(words) << "\n" << outcome.err;
    }
    // Names that only look like words of the language are names.
    const Outcome accepted = Run(
        {"eval", "--set", "iffy=1", "--set", "pie=2", "--set", "width=3", "iffy + pie + width"});
    EXPECT_EQ(accepted.out, "Whole Number\t6\n") << accepted.err;
    EXPECT_EQ(accepted.status, 0);
}

// A formula nested deeper than the parser takes is a parse failure like any other.
TEST_F(KeelHardening, SetRefusesAFormulaNestedTooDeeply) {
    const std::string deep = std::string(5000, '(') + "1" + std::string(5000, ')');
    const Outcome outcome = Run({"eval", "--set", "x=" + deep, "1"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err.rfind("keel eval: --set cannot store the formula of x: ", 0), 0u)
        << outcome.err.substr(0, 300);
}

// Opening a FIFO for reading waits for a writer: the options file is refused as a folder is,
// before it is opened. The run is bounded, so that a wait fails the test instead of hanging it.
TEST_F(KeelHardening, AnOptionsFileThatIsNoRegularFileIsRefusedWithoutWaiting) {
    const std::filesystem::path options = m_home / "config" / "keel" / "Keel.ini";
    for (const char* kind : {"fifo", "folder"}) {
        std::filesystem::remove_all(options);
        if (std::string(kind) == "fifo")
            ASSERT_EQ(::mkfifo(options.c_str(), 0600), 0);
        else
            std::filesystem::create_directory(options);
        const Outcome outcome = Run({"eval", "--length-units", "7", "2 m"}, "", "timeout 20 env ");
        EXPECT_EQ(outcome.status, 0) << kind << "\n" << outcome.err;
        EXPECT_EQ(outcome.out, "Length\t2\n") << kind;
        EXPECT_EQ(outcome.err, "keel: Options: Cannot read the options file \"" + options.string() +
                                   "\": Not a regular file\n")
            << kind;
    }
}

// Messages that wait for the user come once, when the command ends, as they stand: no offers
// of the boxes a desktop would show them in, and line breaks as line breaks.
TEST_F(KeelHardening, WaitingMessagesAreShownOnceAtTheEnd) {
    const Outcome outcome = Run({"translate", "--file",
                                 std::string(KEEL_TEST_DATA) + "/translations/translations_fr.txt",
                                 "Too many %s", "x"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "Too many %s\n");
    EXPECT_EQ(outcome.err, "keel: Translation: Invalid translation - wrong number of format "
                           "specifiers:\n\tTrop de %s et de %s\nWhen translating\n\tToo many %s\n");
    EXPECT_EQ(Occurrences(outcome.err, "Invalid translation"), 1u);
    EXPECT_EQ(outcome.err.find("=>"), std::string::npos);
    EXPECT_EQ(outcome.err.find("\\n"), std::string::npos);

    // The options command reports what it read; a reason that waits is left to the end.
    std::filesystem::create_directory(m_home / "config" / "keel" / "Keel.ini");
    const Outcome options = Run({"options"});
    EXPECT_EQ(options.status, 0);
    const std::string reason = "Not a regular file";
    EXPECT_EQ(Occurrences(options.out + options.err, reason), 1u) << options.out << options.err;
    EXPECT_NE(options.err.find("keel: Options: Cannot read the options file"), std::string::npos);
}

TEST_F(KeelHardening, ARangeBeyondTheLimitIsAnErrorValue) {
    const LineCase cases[] = {
        {{"eval", "count([1 to 1000000])"}, "Whole Number\t1000000\n", 0},
        {{"eval", "count([0 to 1000000])"}, "#ERR!\tOut of memory\n", 1},
        {{"eval", "count([1, 2 to 1000000])"}, "Whole Number\t1000000\n", 0},
        {{"eval", "count([0, 2 to 1000001])"}, "#ERR!\tOut of memory\n", 1},
        {{"eval", "[1 to 10000000]"}, "#ERR!\tOut of memory\n", 1},
        {{"eval", "[1000000000000 downto 1]"}, "#ERR!\tOut of memory\n", 1},
    };
    for (const LineCase& c : cases) {
        const Outcome outcome = Run(c.words);
        EXPECT_EQ(outcome.out, c.out) << Joined(c.words) << "\n" << outcome.err;
        EXPECT_EQ(outcome.status, c.status) << Joined(c.words);
    }
}

// Memory that runs out while a formula runs is a failure in the program's own words.
TEST_F(KeelHardening, RunningOutOfMemoryIsSaidInTheProgramsWords) {
    if (c_sanitized)
        GTEST_SKIP() << "a sanitizer's shadow memory does not fit under the limit";
    const Outcome outcome =
        Run({"eval", "len(rept(\"abcdefghij\", 100000000))"}, "", "ulimit -v 400000; ");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "keel: cannot evaluate 'len(rept(\"abcdefghij\", 100000000))'\n"
                           "Out of memory\n");
}

// The texts of an array and of each array inside it, in the JSON line and the plain one, are
// what the values give; every level is written once, so a deep array takes no more time than
// its text. The CPU limit only stops a run that has gone cubic, as writing each level's text
// again from its elements does.
TEST_F(KeelHardening, DeepArraysAreWrittenInOnePass) {
    const std::string mixed = "[1, 'a', , [2 m, 'b\"c'], na, 1 / 0]";
    const Outcome plain = Run({"eval", mixed});
    EXPECT_EQ(plain.out, "Array\t[1,\"a\",,[2000,\"b\"\"c\"],#N/A,#ERR!]\n");
    const Outcome json = Run({"eval", "--json", mixed});
    EXPECT_NE(json.out.find(R"("text":"[1,\"a\",,[2000,\"b\"\"c\"],#N/A,#ERR!]")"),
              std::string::npos)
        << json.out;
    EXPECT_NE(json.out.find(R"("text":"[2000,\"b\"\"c\"]")"), std::string::npos) << json.out;

    const int depth = 1000;
    const std::string nest =
        "a := 1; for i = 1 to " + std::to_string(depth) + " do a := [a] next; a";
    // Ten seconds of CPU are more than ten times what one pass takes, and a fraction of what a
    // pass a level takes; a sanitizer's build is too slow to be timed at all.
    const std::string limit = c_sanitized ? "" : "ulimit -t 10; ";
    const Outcome deep = Run({"eval", "--json", "--action", nest}, "", limit);
    ASSERT_EQ(deep.status, 0) << deep.err;
    EXPECT_EQ(Occurrences(deep.out, "\"elements\""), static_cast<size_t>(depth));
    const std::string text = std::string(depth, '[') + "1" + std::string(depth, ']');
    EXPECT_NE(deep.out.find("\"text\":\"" + text + "\""), std::string::npos);
    const std::string innermost = R"("text":"[1]","raw":{"elements":[{"type":"Whole Number",)"
                                  R"("typeNumber":3,"text":"1","raw":1}]})";
    EXPECT_NE(deep.out.find(innermost), std::string::npos);
}

} // namespace
