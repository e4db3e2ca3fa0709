#include "tests/support/program.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Outcome = keel::test::ProgramOutcome;

std::string Joined(const std::vector<std::string>& words) {
    std::string joined;
    for (const std::string& word : words)
        joined += " " + keel::test::ShellQuoted(word);
    return joined;
}

class KeelEvalProgram : public keel::test::KeelProgramTest {
protected:
    Outcome Eval(std::vector<std::string> words) const {
        words.insert(words.begin(), "eval");
        return Run(words);
    }
};

struct PlainCase {
    std::string formula;
    std::string line;
};

TEST_F(KeelEvalProgram, PlainLinesAreTheTypeNameATabAndTheDisplayText) {
    const PlainCase cases[] = {
        {"1+2*3", "Whole Number\t7"},
        {"-2^2", "Whole Number\t4"},
        {"1+2 & 3+4", "String\t37"},
        {"2 ft + 3 in", "Length\t685.8"},
        {"3 m * 2 m", "Area\t6.00"},
        {"3 m * 2 m * 50 cm", "Volume\t3.00"},
        {"$12.50 * 4", "Money\t$50.00"},
        {"1 hour + 30 minutes", "Time\t1.5"},
        {"90 deg - 30 deg", "Angle\t60.00"},
        {"pi", "Number\t3.141593"},
        {"3 > 2", "Yes or No\tYes"},
        {"'it''s'", "String\tit's"},
        {"red", "Color\trgb(255,0,0)"},
        {"[1, 2, 3]", "Array\t[1,2,3]"},
        {"na", "#N/A\t#N/A"},
        {"", "<none>\t"},
        {"// only a comment", "<none>\t"},
    };
    for (const PlainCase& c : cases) {
        const Outcome outcome = Eval({c.formula});
        EXPECT_EQ(outcome.out, c.line + "\n") << c.formula << "\n" << outcome.err;
        EXPECT_EQ(outcome.status, 0) << c.formula;
        EXPECT_EQ(outcome.err, "") << c.formula;
    }
}

TEST_F(KeelEvalProgram, EachFormulaGetsItsLineInTurn) {
    const Outcome outcome = Eval({"1+1", "'two'", "3 m"});
    EXPECT_EQ(outcome.out, "Whole Number\t2\nString\ttwo\nLength\t3000\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelEvalProgram, AFailedFormulaExitsWithOneAndTheOthersStillRun) {
    const Outcome outcome = Eval({"1 +", "2"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "#ERR!\t#ERR!\nWhole Number\t2\n");
    EXPECT_EQ(outcome.err, "keel: cannot evaluate '1 +'\n"
                           "Expecting a number, string, name or (expression)\n"
                           "but found end of formula\n");
}

TEST_F(KeelEvalProgram, JsonLinesCarryTheStoredPayload) {
    const PlainCase cases[] = {
        {"3 m * 2 m", R"({"formula":"3 m * 2 m","ok":true,"message":"","type":"Area",)"
                      R"("typeNumber":8,"text":"6.00","raw":6})"},
        {"3 m * 2 m * 50 cm", R"({"formula":"3 m * 2 m * 50 cm","ok":true,"message":"",)"
                              R"("type":"Volume","typeNumber":13,"text":"3.00","raw":3})"},
        {"1 m", R"({"formula":"1 m","ok":true,"message":"","type":"Length","typeNumber":7,)"
                R"("text":"1000","raw":1000})"},
        {"$12.50 * 4", R"({"formula":"$12.50 * 4","ok":true,"message":"","type":"Money",)"
                       R"("typeNumber":5,"text":"$50.00","raw":5000})"},
        {"1 hour + 30 minutes", R"({"formula":"1 hour + 30 minutes","ok":true,"message":"",)"
                                R"("type":"Time","typeNumber":6,"text":"1.5","raw":5400})"},
        {"90 deg", R"({"formula":"90 deg","ok":true,"message":"","type":"Angle",)"
                   R"("typeNumber":9,"text":"90.00","raw":90})"},
        {"pi", R"({"formula":"pi","ok":true,"message":"","type":"Number","typeNumber":4,)"
               R"("text":"3.141593","raw":3.1415926535897931})"},
        {"1 < 0", R"({"formula":"1 < 0","ok":true,"message":"","type":"Yes or No",)"
                  R"("typeNumber":2,"text":"No","raw":0})"},
        {"-7", R"({"formula":"-7","ok":true,"message":"","type":"Whole Number","typeNumber":3,)"
               R"("text":"-7","raw":-7})"},
        {"blue", R"({"formula":"blue","ok":true,"message":"","type":"Color","typeNumber":15,)"
                 R"j("text":"rgb(0,0,255)","raw":16711680})j"},
        {"na", R"({"formula":"na","ok":true,"message":"","type":"#N/A","typeNumber":-2,)"
               R"("text":"#N/A","raw":null})"},
        {"", R"({"formula":"","ok":true,"message":"","type":"<none>","typeNumber":0,)"
             R"("text":"","raw":null})"},
    };
    for (const PlainCase& c : cases) {
        const Outcome outcome = Eval({"--json", c.formula});
        EXPECT_EQ(outcome.out, c.line + "\n") << c.formula << "\n" << outcome.err;
        EXPECT_EQ(outcome.status, 0) << c.formula;
    }
}

TEST_F(KeelEvalProgram, JsonArraysListTheirElementsAsValues) {
    const Outcome outcome = Eval({"--json", "[1, 'a', [2 m]]"});
    EXPECT_EQ(outcome.out, R"({"formula":"[1, 'a', [2 m]]","ok":true,"message":"","type":"Array",)"
                           R"("typeNumber":10,"text":"[1,\"a\",[2000]]","raw":{"elements":[)"
                           R"({"type":"Whole Number","typeNumber":3,"text":"1","raw":1},)"
                           R"({"type":"String","typeNumber":1,"text":"a","raw":"a"},)"
                           R"({"type":"Array","typeNumber":10,"text":"[2000]","raw":{"elements":[)"
                           R"({"type":"Length","typeNumber":7,"text":"2000","raw":2000}]}}]}})"
                           "\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelEvalProgram, JsonEscapesQuotesBackslashesAndControlCharacters) {
    const Outcome outcome = Eval({"--json", R"('say "hi"\' & tab & "\\")"});
    EXPECT_EQ(outcome.out, R"({"formula":"'say \"hi\"\\' & tab & \"\\\\\"","ok":true,)"
                           R"("message":"","type":"String","typeNumber":1,)"
                           R"("text":"say \"hi\"\\\t\\","raw":"say \"hi\"\\\t\\"})"
                           "\n")
        << outcome.err;
}

TEST_F(KeelEvalProgram, JsonOfAFailureHoldsTheMessageAndExitsWithOne) {
    const Outcome outcome = Eval({"--json", "(1 + 2", "1"});
    EXPECT_EQ(outcome.out,
              R"({"formula":"(1 + 2","ok":false,"error":true,)"
              R"("message":"Expecting a matching ')' for the '('\nbut found end of formula",)"
              R"("type":"#ERR!","typeNumber":-1,"text":"#ERR!",)"
              R"("raw":"Expecting a matching ')' for the '('\nbut found end of formula"})"
              "\n"
              R"({"formula":"1","ok":true,"message":"","type":"Whole Number",)"
              R"("typeNumber":3,"text":"1","raw":1})"
              "\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "") << "the JSON form says it all on stdout";
}

TEST_F(KeelEvalProgram, JsonRatesGiveTheirHalvesAsValues) {
    const Outcome outcome = Eval({"--json", "$12.50 / 1 ft"});
    EXPECT_EQ(outcome.out,
              R"({"formula":"$12.50 / 1 ft","ok":true,"message":"","type":"Rate",)"
              R"("typeNumber":14,"text":"$12.50/ft","raw":{)"
              R"("num":{"type":"Money","typeNumber":5,"text":"$12.50","raw":1250},)"
              R"("den":{"type":"Length","typeNumber":7,"text":"304.8","raw":304.80000000000001}}})"
              "\n");
}

// The messages of failed look-ups are composed as with reports on, but nothing is shown or
// logged: the line on stdout is the only report.
TEST_F(KeelEvalProgram, AnUnknownNameIsNamedInTheMessageAndNothingIsLogged) {
    const Outcome outcome = Eval({"--json", "width * 2"});
    EXPECT_EQ(outcome.out, R"({"formula":"width * 2","ok":false,"error":true,)"
                           R"("message":"Unknown name\n\twidth",)"
                           R"("type":"#ERR!","typeNumber":-1,"text":"#ERR!",)"
                           R"("raw":"Unknown name\n\twidth"})"
                           "\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "");
    EXPECT_FALSE(std::filesystem::exists(m_home / "data" / "keel" / "Logs"));
}

struct UnitCase {
    std::vector<std::string> options;
    std::string formula;
    std::string line;
};

TEST_F(KeelEvalProgram, UnitOptionsChangeTheDisplayButNotTheValue) {
    const UnitCase cases[] = {
        {{}, "2 ft + 3.5 in", "Length\t698.5"},
        {{"--length-units", "5"}, "2 ft + 3.5 in", "Length\t27 1/2"},
        {{"--length-units", "5", "--inch-fraction", "0"}, "2 ft + 3.5 in", "Length\t27.5"},
        {{"--length-units", "5", "--inch-fraction", "16"}, "700 mm", "Length\t27 9/16"},
        {{"--length-units", "5", "--inch-fraction", "1"}, "2 ft + 3.5 in", "Length\t27 1/2"},
        {{"--length-units", "4"}, "2 ft + 3.5 in", "Length\t69.85"},
        {{"--length-units", "7"}, "2 ft + 3.5 in", "Length\t0.6985"},
        {{"--length-units", "6"}, "2 ft + 3 in", "Length\t2 1/4"},
        {{"--area-units", "6"}, "3 m * 2 m", "Area\t64.58"},
        {{"--area-units", "4"}, "3 m * 2 m", "Area\t60000.00"},
        {{"--volume-units", "6"}, "3 m * 2 m * 50 cm", "Volume\t105.94"},
        {{"--angle-units", "3"}, "60 deg", "Angle\t1.05"},
        {{"--angle-units", "1"}, "60 deg", "Angle\t600.00"},
    };
    for (const UnitCase& c : cases) {
        std::vector<std::string> words = c.options;
        words.push_back(c.formula);
        const Outcome outcome = Eval(words);
        EXPECT_EQ(outcome.out, c.line + "\n") << Joined(words) << "\n" << outcome.err;
        EXPECT_EQ(outcome.status, 0) << Joined(words);
    }
    const Outcome json = Eval({"--json", "--area-units", "6", "3 m * 2 m"});
    EXPECT_NE(json.out.find(R"("text":"64.58","raw":6})"), std::string::npos) << json.out;
}

TEST_F(KeelEvalProgram, StoredUnitsApplyAndOptionsOverrideThem) {
    StoreOptions("[Options]\nLengthUnits=5\n");
    EXPECT_EQ(Eval({"2 ft + 3.5 in"}).out, "Length\t27 1/2\n");
    EXPECT_EQ(Eval({"--length-units", "3", "2 ft + 3.5 in"}).out, "Length\t698.5\n");
}

TEST_F(KeelEvalProgram, OptionsMayFollowTheFormulasAndDoubleDashEndsThem) {
    EXPECT_EQ(Eval({"1 m", "--length-units", "7"}).out, "Length\t1\n");
    const Outcome negated = Eval({"--", "--2", "--json"});
    EXPECT_EQ(negated.status, 1) << "\"--json\" after \"--\" is a formula, and a bad one";
    EXPECT_EQ(negated.out.rfind("Whole Number\t2\n", 0), 0u) << negated.out;
}

struct UsageCase {
    std::vector<std::string> words;
    std::string message;
};

TEST_F(KeelEvalProgram, BadUsageExitsWithTwoAndSaysWhy) {
    const std::string noSuchFolder = (m_home / "no-such-folder").string();
    const UsageCase cases[] = {
        {{}, "keel eval: usage: keel eval [--json] [--action]"},
        {{"--json"}, "keel eval: usage: keel eval [--json] [--action]"},
        {{"--verbose", "1"}, "keel eval: unknown option '--verbose'\n"},
        {{"--length-units"}, "keel eval: --length-units needs a value\n"},
        {{"--length-units", "8", "1"},
         "keel eval: --length-units takes a unit number from 1 to 7\n"},
        {{"--length-units", "0", "1"},
         "keel eval: --length-units takes a unit number from 1 to 7\n"},
        {{"--length-units", "mm", "1"},
         "keel eval: --length-units takes a unit number from 1 to 7\n"},
        {{"--area-units", "9", "1"}, "keel eval: --area-units takes a unit number from 1 to 7\n"},
        {{"--volume-units", "-1", "1"},
         "keel eval: --volume-units takes a unit number from 1 to 7\n"},
        {{"--angle-units", "4", "1"}, "keel eval: --angle-units takes a unit number from 1 to 3\n"},
        {{"--inch-fraction", "8", "1"}, "keel eval: --inch-fraction takes 0, 1, 16 or 32\n"},
        {{"--table-dir", noSuchFolder, "1"},
         "keel eval: --table-dir needs a folder that exists: '" + noSuchFolder + "'\n"},
        {{"--set"}, "keel eval: --set needs a value\n"},
        {{"--set", "width", "1"}, "keel eval: --set takes NAME=FORMULA\n"},
        {{"--set", "=3", "1"}, "keel eval: --set takes NAME=FORMULA\n"},
        {{"--set", " =3", "1"}, "keel eval: --set takes NAME=FORMULA\n"},
        {{"--set", "width=", "1"}, "keel eval: --set takes NAME=FORMULA\n"},
        {{"--set", "width=  ", "1"}, "keel eval: --set takes NAME=FORMULA\n"},
        {{"--set", "2x=3", "1"}, "keel eval: --set takes NAME=FORMULA, and '2x' is not a name\n"},
        {{"--set", "my width=3", "1"},
         "keel eval: --set takes NAME=FORMULA, and 'my width' is not a name\n"},
        {{"--set", "a.b=3", "1"}, "keel eval: --set takes NAME=FORMULA, and 'a.b' is not a name\n"},
        {{"--set", "x=1 +", "1"},
         "keel eval: --set cannot store the formula of x: Expecting a number, string, name or "
         "(expression)\nbut found end of formula\n"},
        {{"--set", "x=1", "--set", "y=(x", "x"},
         "keel eval: --set cannot store the formula of y: Expecting a matching ')' for the '('\n"
         "but found end of formula\n"},
    };
    for (const UsageCase& c : cases) {
        const Outcome outcome = Eval(c.words);
        EXPECT_EQ(outcome.status, 2) << Joined(c.words);
        EXPECT_EQ(outcome.out, "") << Joined(c.words);
        EXPECT_EQ(outcome.err.rfind(c.message, 0), 0u) << Joined(c.words) << "\n" << outcome.err;
        EXPECT_NE(outcome.err.find("Try 'keel help'."), std::string::npos) << Joined(c.words);
    }
}

TEST_F(KeelEvalProgram, SetStoresPropertiesThatTheFormulasRead) {
    const Outcome outcome = Eval({"--set", "depth=10", "--set", "width=depth * 2", "width"});
    EXPECT_EQ(outcome.out, "Whole Number\t20\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
}

// A property is evaluated when it is read, so it may name one that is set after it.
TEST_F(KeelEvalProgram, SetPropertiesMayReferToOnesSetLater) {
    const Outcome outcome = Eval({"--set", "area=length * width", "--set", "length=5.2 m", "--set",
                                  "width=3.8 m", "area", "length + width", "area / 2"});
    EXPECT_EQ(outcome.out, "Area\t19.76\nLength\t9000\nArea\t9.88\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelEvalProgram, SetsAreTakenInOrderSoTheLastOfANameWins) {
    EXPECT_EQ(Eval({"--set", "a=1", "--set", "A=2", "a"}).out, "Whole Number\t2\n");
    EXPECT_EQ(Eval({"--set", "a=2", "--set", "a=1", "a"}).out, "Whole Number\t1\n");
}

TEST_F(KeelEvalProgram, SetMayFollowTheFormulasAndTrimsTheName) {
    const Outcome outcome = Eval({"w * 2", "--set", " w = 3 m"});
    EXPECT_EQ(outcome.out, "Length\t6000\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelEvalProgram, SetPropertiesLiveOnTheRootContext) {
    const Outcome outcome = Eval({"--set", "a=2 m", "Root.a", "a of root"});
    EXPECT_EQ(outcome.out, "Length\t2000\nLength\t2000\n") << outcome.err;
}

TEST_F(KeelEvalProgram, JsonShowsTheValueOfASetProperty) {
    const Outcome outcome = Eval({"--json", "--set", "a=2 m", "a * 2"});
    EXPECT_EQ(outcome.out, R"({"formula":"a * 2","ok":true,"message":"","type":"Length",)"
                           R"("typeNumber":7,"text":"4000","raw":4000})"
                           "\n");
}

// All the formulas share one root: what an action stores there, the next formula reads, and a
// property that depends on it follows.
TEST_F(KeelEvalProgram, TheFormulasShareTheRootAndSeeItsChanges) {
    const Outcome outcome =
        Eval({"--action", "--set", "a=1", "--set", "b=a * 10", "b", "set value a = 5", "b",
              "set value total = b + 1; total", "total"});
    EXPECT_EQ(outcome.out, "Whole Number\t10\nWhole Number\t5\nWhole Number\t50\n"
                           "Whole Number\t51\nWhole Number\t51\n")
        << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelEvalProgram, AFailingPropertyFailsTheFormulaThatReadsIt) {
    const Outcome outcome = Eval({"--set", "w=v + 1", "--set", "v=nothing", "w", "1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "#ERR!\t#ERR!\nWhole Number\t1\n");
    EXPECT_EQ(outcome.err.rfind("keel: cannot evaluate 'w'\n", 0), 0u) << outcome.err;
}

TEST_F(KeelEvalProgram, ReplTakesSetAndKeepsOneRoot) {
    const Outcome outcome =
        Run({"repl", "--action", "--set", "a=2", "--set", "b=a * a"}, "b\nset value a = 3\nb\n");
    EXPECT_EQ(outcome.out, "Whole Number\t4\nWhole Number\t3\nWhole Number\t9\n") << outcome.err;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelEvalProgram, AnExistingTableFolderIsAccepted) {
    const Outcome outcome = Eval({"--table-dir", m_home.string(), "1"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "Whole Number\t1\n");
}

TEST_F(KeelEvalProgram, TableStatementsAreForActionFieldsAlone) {
    const std::string formula = "begin transaction vlt 'prices'";

    const Outcome refused = Eval({formula});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("Only allowed in an action field"), std::string::npos)
        << refused.err;

    // In an action field the statement runs; with no tables to be had, its value is the error
    // of a missing table: the formula evaluated, and gave an error value.
    const Outcome action = Eval({"--json", "--action", formula});
    EXPECT_EQ(action.status, 1) << action.err;
    EXPECT_NE(action.out.find("\"raw\":\"Cannot find lookup table prices\""), std::string::npos)
        << action.out;
}

TEST_F(KeelEvalProgram, HelpListsEvalAndRepl) {
    const Outcome help = Run({"help"});
    for (const char* text : {"eval [OPTIONS] [--] FORMULA...", "--json", "--length-units N",
                             "--set NAME=FORMULA", "repl [OPTIONS]", "run FILE [OPTIONS]"})
        EXPECT_NE(help.out.find(text), std::string::npos) << text;
}

TEST_F(KeelEvalProgram, ReplReadsPipedLinesWithoutAPrompt) {
    const Outcome outcome = Run({"repl"}, "1+2\n\n2 ft + 3 in\n   \n'a' & 'b'\n");
    EXPECT_EQ(outcome.out, "Whole Number\t3\nLength\t685.8\nString\tab\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
}

TEST_F(KeelEvalProgram, ReplTakesTheOptionsOfEval) {
    const Outcome outcome = Run({"repl", "--json", "--length-units", "7"}, "1 m\n");
    EXPECT_EQ(outcome.out, R"({"formula":"1 m","ok":true,"message":"","type":"Length",)"
                           R"("typeNumber":7,"text":"1","raw":1000})"
                           "\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KeelEvalProgram, ReplGoesOnAfterAFailureAndExitsWithOne) {
    const Outcome outcome = Run({"repl"}, "1 +\n2\n");
    EXPECT_EQ(outcome.out, "#ERR!\t#ERR!\nWhole Number\t2\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err.rfind("keel: cannot evaluate '1 +'\n", 0), 0u) << outcome.err;
}

TEST_F(KeelEvalProgram, ReplRefusesFormulasOnItsCommandLine) {
    const Outcome outcome = Run({"repl", "1+2"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err.rfind("keel repl: takes the options of eval and no FORMULA\n", 0), 0u)
        << outcome.err;
}

// The estimate is shown twice: as stored, and after the width has changed, when every value
// that depends on it follows at its next read.
TEST_F(KeelEvalProgram, DemoShowsAnEstimateOfPropertiesThatReferToEachOther) {
    const Outcome outcome = Run(
        {"demo", "--words", std::string(KEEL_TEST_DATA) + "/../../examples/estimating-words.txt"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const std::string::size_type estimate = outcome.out.find("An estimate made of properties");
    const std::string::size_type priced = outcome.out.find("\nThe estimate priced");
    ASSERT_NE(estimate, std::string::npos) << outcome.out;
    ASSERT_NE(priced, std::string::npos) << outcome.out;
    EXPECT_EQ(outcome.out.substr(estimate, priced - estimate),
              "An estimate made of properties that refer to each other\n"
              "  length         5.2 m                          Length 5200\n"
              "  width          3.8 m                          Length 3800\n"
              "  area           length * width                 Area 19.76\n"
              "  price_per_sqm  $45.00                         Money $45.00\n"
              "  total          area / 1 sqm * price_per_sqm   Money $889.20\n"
              "\n"
              "The width changed to 4.1 m: nothing is recalculated until it is read\n"
              "  length         5.2 m                          Length 5200\n"
              "  width          4.1 m                          Length 4100\n"
              "  area           length * width                 Area 21.32\n"
              "  price_per_sqm  $45.00                         Money $45.00\n"
              "  total          area / 1 sqm * price_per_sqm   Money $959.40\n");
}

// The price comes from one table by the finish, the allowance from another by the first area at
// least the floor's (20 sqm for 19.76 sqm); a new finish changes the price and the total only.
TEST_F(KeelEvalProgram, DemoPricesTheEstimateFromTheBundledTables) {
    const std::string examples = std::string(KEEL_TEST_DATA) + "/../../examples/";
    const Outcome outcome = Run(
        {"demo", "--words", examples + "estimating-words.txt", "--tables", examples + "tables"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const std::string::size_type priced = outcome.out.find("The estimate priced");
    ASSERT_NE(priced, std::string::npos) << outcome.out;
    const std::string section = outcome.out.substr(outcome.out.find('\n', priced) + 1);
    EXPECT_EQ(section,
              "  finish         \"Oak\"                                           String Oak\n"
              "  length         5.2 m                                           Length 5200\n"
              "  width          3.8 m                                           Length 3800\n"
              "  area           length * width                                  Area 19.76\n"
              "  price_per_sqm  lookupexact(\"flooring\", finish, \"Price\")        Money $78.50\n"
              "  allowance      lookup(\"wastage\", area, \"Allowance\")            Number 0.1\n"
              "  total          area * (1 + allowance) / 1 sqm * price_per_sqm  Money $1,706.28\n"
              "\n"
              "The finish changed to \"Tiles\"\n"
              "  finish         \"Tiles\"                                         String Tiles\n"
              "  length         5.2 m                                           Length 5200\n"
              "  width          3.8 m                                           Length 3800\n"
              "  area           length * width                                  Area 19.76\n"
              "  price_per_sqm  lookupexact(\"flooring\", finish, \"Price\")        Money $54.00\n"
              "  allowance      lookup(\"wastage\", area, \"Allowance\")            Number 0.1\n"
              "  total          area * (1 + allowance) / 1 sqm * price_per_sqm  Money $1,173.74\n");
}

TEST_F(KeelEvalProgram, DemoShowsFormulasWithUnits) {
    const Outcome outcome = Run(
        {"demo", "--words", std::string(KEEL_TEST_DATA) + "/../../examples/estimating-words.txt"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    for (const char* line : {"2 ft + 3 in                          Length 685.8",
                             "3 m * 2 m                            Area 6.00",
                             "$12.50 * 4                           Money $50.00",
                             "1 / 0                                #ERR! \"Division by zero\""})
        EXPECT_NE(outcome.out.find(line), std::string::npos) << line << "\n" << outcome.out;
}

} // namespace
