#include "tests/support/errorreports.h"
#include "tests/support/homefolder.h"
#include "tests/support/paths.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/platform/registry.h"
#include "keel/platform/uiservices.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;

const fs::path c_fixtures = fs::path(test::TestDataFolder()) / "translations";

CString PathText(const fs::path& path) {
    return CString::FromUtf8(path.string());
}

std::FILE* NullOutput() {
    static std::FILE* const output = std::fopen("/dev/null", "w");
    return output;
}

// Each test starts with no translation file, every switch off, a fresh folder as home, and an
// empty list of pending errors.
class TranslateTest : public test::HomeFolderTest {
protected:
    void SetUp() override {
        HomeFolderTest::SetUp();
        SetUIServices(&m_host);
        ResetSwitches();
        SwitchToTranslationFile(CString(), true, false);
        TheErrorLog().DiscardPendingMessages();
    }

    void TearDown() override {
        ResetSwitches();
        SwitchToTranslationFile(CString(), true, false);
        TheErrorLog().DiscardPendingMessages();
        SetUIServices(nullptr);
        HomeFolderTest::TearDown();
    }

    static void ResetSwitches() {
        EnableTranslationsFileUpdates(false);
        EnablePartialTranslations(false);
        DisableTranslations(false);
    }

    // A copy of a fixture in the test's folder, so that saving never touches the fixture.
    fs::path Copy(const char* fixture) {
        const fs::path copy = m_root / fixture;
        fs::copy_file(c_fixtures / fixture, copy, fs::copy_options::overwrite_existing);
        return copy;
    }

    fs::path Write(const char* name, const std::string& bytes) {
        test::WriteText(m_root / name, bytes);
        return m_root / name;
    }

    static void SwitchTo(const fs::path& path) {
        ASSERT_TRUE(SwitchToTranslationFile(PathText(path), true, false)) << path;
    }

    // Answers every box with its default button and keeps quiet about it.
    CHeadlessUIServices m_host{NullOutput()};
};

CString T(const char16_t* text, const char16_t* context = u"Message box") {
    return TranslateString(text, CString(), context);
}

Translation RecordOf(const CString& original, const CString& qualifier = CString()) {
    Translation record;
    EXPECT_TRUE(Translator::TheTranslator().Lookup(original, qualifier, record))
        << original.ToUtf8();
    return record;
}

bool HasRecord(const CString& original, const CString& qualifier = CString()) {
    Translation record;
    return Translator::TheTranslator().Lookup(original, qualifier, record);
}

TEST(Escape, WritesTheEscapedFormAndReadsItBack) {
    const struct {
        const char16_t* text;
        const char16_t* escaped;
    } cases[] = {{u"", u""},
                 {u"a\tb", u"a\\tb"},
                 {u"one\ntwo\r", u"one\\ntwo\\r"},
                 // A backslash stays single unless it would start an escape.
                 {u"\\d+\\.\\s*", u"\\d+\\.\\s*"},
                 {u"C:\\temp", u"C:\\\\temp"},
                 {u"\\n", u"\\\\n"},
                 {u"\\\\", u"\\\\\\"},
                 {u"\\\t", u"\\\\\\t"}};
    for (const auto& c : cases) {
        EXPECT_EQ(Translator::EscapeText(c.text), CString(c.escaped)) << CString(c.text).ToUtf8();
        EXPECT_EQ(Translator::UnescapeText(c.escaped), CString(c.text));
    }
    // Any backslash that starts no escape is read as itself.
    EXPECT_EQ(Translator::UnescapeText(u"\\q\\"), CString(u"\\q\\"));
    EXPECT_EQ(Translator::UnescapeText(u"\\\\t"), CString(u"\\t"));
    EXPECT_EQ(Translator::UnescapeText(u"\\\\\\t"), CString(u"\\\t"));
}

// Every text of up to five characters over the characters that matter to the escapes (and two
// that do not) comes back unchanged, and its escaped form holds no tab or line break.
TEST(Escape, UnescapingTheEscapedFormGivesBackEveryText) {
    const std::u16string alphabet = u"\\tnr\t\n\rx";
    std::vector<std::u16string> texts = {u""};
    int checked = 0;
    for (int length = 1; length <= 5; ++length) {
        std::vector<std::u16string> longer;
        for (const std::u16string& text : texts) {
            for (const char16_t ch : alphabet) {
                const std::u16string candidate = text + ch;
                longer.push_back(candidate);
                const CString escaped = Translator::EscapeText(CString(candidate));
                ASSERT_EQ(escaped.FindOneOf(u"\t\n\r"), -1);
                ASSERT_EQ(std::u16string(Translator::UnescapeText(escaped).View()), candidate);
                ++checked;
            }
        }
        texts = std::move(longer);
    }
    EXPECT_EQ(checked, 8 + 64 + 512 + 4096 + 32768);
}

TEST(CountFormatSpecifiers, CountsAsPrintfReads) {
    const std::pair<const char16_t*, int> cases[] = {
        {u"", 0},
        {u"%s", 1},
        {u"%%", 0},
        {u"%%%s", 1},
        {u"%*d|%.*s|%*.*g", 3},
        {u"%ld %lld %I64d %hs %ls %zu", 6},
        {u"%1$s %2$d", 2},
        {u"%08x %#o %+d %'d", 4},
        {u"%c%C%S%p%n%X%e%E%G%a%A%u%i%F", 14},
        // printf reads "% o" as an octal conversion with the blank flag.
        {u"50% off", 1},
        // Nothing to convert: a "%" at the end, or before an unknown letter.
        {u"100%", 0},
        {u"%5", 0}};
    for (const auto& [format, count] : cases)
        EXPECT_EQ(CountFormatSpecifiers(format), count) << CString(format).ToUtf8();
}

// The qualifier keeps apart the meanings of one text; the contexts choose among its translations,
// the first pattern that matches winning, and with one match its pattern is not looked at.
TEST_F(TranslateTest, TheFileGivesEachTextInItsContextItsTranslation) {
    SwitchTo(Copy("translations_fr.txt"));
    EXPECT_TRUE(AreTranslationsEnabled());
    const struct {
        const char16_t* text;
        const char16_t* qualifier;
        const char16_t* context;
        const char16_t* translation;
    } cases[] = {
        {u"Open", u"", u"Message box", u"Ouvrir"},
        {u"%d%% done", u"", u"Message box", u"%d%% termin\u00e9"},
        {u"Print", u"", u"", u"Imprimer"},
        {u"Close", u"", u"Dialog item", u"Fermer"},
        {u"Close", u"", u"Message box (fileName)", u"Fermeture"},
        {u"Close", u"", u"Status bar", u"Clore"},
        {u"Item", u"", u"Quantity 12", u"\u00c9l\u00e9ment"},
        {u"Spring", u"season", u"Value type name", u"Printemps"},
        {u"Spring", u"coil", u"Value type name", u"Ressort"},
        {u"Spring", u"", u"Value type name", u"Spring"},
        {u"Line one\nLine two", u"", u"Message box", u"Ligne un\nLigne deux"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TranslateString(c.text, c.qualifier, c.context), CString(c.translation))
            << CString(c.text).ToUtf8() << " in " << CString(c.context).ToUtf8();
    EXPECT_FALSE(Translator::TheTranslator().IsModified());
    EXPECT_TRUE(test::PendingReports().empty());
}

TEST_F(TranslateTest, AContextThatNoPatternMatchesAddsADefaultTranslation) {
    SwitchTo(Copy("translations_fr.txt"));
    ASSERT_EQ(RecordOf(u"Close").m_matches.GetCount(), 3);

    // "^Message box" is anchored, so a context with the words further in is no match.
    EXPECT_EQ(T(u"Close", u"Popup menu item (Message box)"), CString(u"Close"));
    const Translation record = RecordOf(u"Close");
    ASSERT_EQ(record.m_matches.GetCount(), 4);
    EXPECT_EQ(record.m_matches[3].m_translation, CString(u"Close"));
    EXPECT_EQ(record.m_matches[3].m_comment, CString(u"Default translation"));
    EXPECT_EQ(record.m_matches[3].m_contextPattern, CString(u"Popup menu item \\(Message box\\)"));
    EXPECT_TRUE(Translator::TheTranslator().IsModified());

    // The pattern added matches its own context, so asking again adds nothing more.
    EXPECT_EQ(T(u"Close", u"Popup menu item (Message box)"), CString(u"Close"));
    EXPECT_EQ(RecordOf(u"Close").m_matches.GetCount(), 4);
    EXPECT_EQ(T(u"Close", u"Dialog item"), CString(u"Fermer"));
}

TEST_F(TranslateTest, AnEmptyTextIsReturnedAtOnceAndNeverEntersTheFile) {
    const fs::path path = Copy("translations_fr.txt");
    SwitchTo(path);
    EnableTranslationsFileUpdates(true);
    EnablePartialTranslations(true);
    EXPECT_TRUE(TranslateString(u"", u"", u"Message box").IsEmpty());
    EXPECT_TRUE(TranslateString(u"", u"qualifier", u"Dialog item").IsEmpty());
    EXPECT_FALSE(Translator::TheTranslator().IsModified());
    ASSERT_TRUE(SaveTranslationFile());
    EXPECT_EQ(test::ReadText(path), test::ReadText(c_fixtures / "translations_fr.txt"));
}

TEST_F(TranslateTest, TranslatingWhileDisabledLeavesTheTableUnchanged) {
    const fs::path path = Copy("translations_fr.txt");
    SwitchTo(path);
    EnableTranslationsFileUpdates(true);

    EXPECT_FALSE(DisableTranslations(true));
    EXPECT_FALSE(AreTranslationsEnabled());
    for (const char16_t* text : {u"Open", u"A text never seen", u"Too many %s"})
        EXPECT_EQ(T(text), CString(text));
    EXPECT_FALSE(Translator::TheTranslator().IsModified());
    EXPECT_TRUE(test::PendingReports().empty());

    EXPECT_TRUE(DisableTranslations(false));
    EXPECT_TRUE(AreTranslationsEnabled());
    EXPECT_EQ(T(u"Open"), CString(u"Ouvrir"));
    // The table written out is the file read: nothing was added while disabled.
    ASSERT_TRUE(SaveTranslationFile());
    EXPECT_EQ(test::ReadText(path), test::ReadText(c_fixtures / "translations_fr.txt"));
}

TEST_F(TranslateTest, AnUnknownTextIsAddedOnlyWhenFileUpdatesAreEnabled) {
    SwitchTo(Copy("translations_fr.txt"));
    const int count = Translator::TheTranslator().GetCount();
    EXPECT_EQ(T(u"Unknown text"), CString(u"Unknown text"));
    EXPECT_EQ(Translator::TheTranslator().GetCount(), count);
    EXPECT_FALSE(Translator::TheTranslator().IsModified());

    EnableTranslationsFileUpdates(true);
    EXPECT_EQ(TranslateString(u"Unknown text", u"q", u"Status bar"), CString(u"Unknown text"));
    EXPECT_EQ(Translator::TheTranslator().GetCount(), count + 1);
    const Translation record = RecordOf(u"Unknown text", u"q");
    ASSERT_EQ(record.m_matches.GetCount(), 1);
    EXPECT_EQ(record.m_matches[0].m_translation, CString(u"Unknown text"));
    EXPECT_TRUE(record.m_matches[0].m_contextPattern.IsEmpty());
    EXPECT_TRUE(Translator::TheTranslator().IsModified());
}

const std::string c_tooMany = "Invalid translation - wrong number of format specifiers:\n\tTrop de "
                              "%s et de %s\nWhen translating\n\tToo many %s\n";

// A translation with a conversion more or less than its text is reported, once, under the
// heading "Translation", and the original is used.
TEST_F(TranslateTest, ATranslationWithAnotherCountOfConversionsIsReported) {
    SwitchTo(Copy("translations_fr.txt"));
    const QTString text(u"Too many %s", u"Message box (what)");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(CString(text), CString(u"Too many %s"));
    EXPECT_EQ(T(u"Too many %s"), CString(u"Too many %s"));
    std::vector<test::Report> reports = test::PendingReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].heading, "Translation");
    EXPECT_EQ(reports[0].message, c_tooMany);

    TheErrorLog().DiscardPendingMessages();
    SwitchTo(Write("translations_x.txt", "Copy %d of %d\t\tCopie %d\n"));
    EXPECT_EQ(T(u"Copy %d of %d"), CString(u"Copy %d of %d"));
    EXPECT_EQ(test::PendingReports().size(), 1u);
}

// Pieces replace whole words, longer pieces after shorter ones as they are found in the text that
// the shorter ones changed; a piece no longer than the longest used is not tried. Records with
// several matches, and the language name, are no pieces.
TEST_F(TranslateTest, PartialTranslationsReplaceWholeWords) {
    SwitchTo(Write("translations_partial.txt", "<Special>\t<FriendlyName>\tFran\xc3\xa7"
                                               "ais\n"
                                               "Save\t\tEnregistrer\n"
                                               "Save the drawing\t\tEnregistrer le dessin\n"
                                               "drawing\t\tdessin\n"
                                               "file\t\tfichier\n"
                                               "Close\t\tFermer\tDialog item\t\n"
                                               "Close\t\tFermeture\tMessage box\t\n"));
    EnablePartialTranslations(true);
    const int count = Translator::TheTranslator().GetCount();
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"Save the drawing before closing", u"Enregistrer the dessin before closing"},
        {u"Send the file", u"Send the fichier"},
        {u"Saved the drawings to a profile", u"Saved the drawings to a profile"},
        {u"file_name and file2 and file", u"file_name and file2 and fichier"},
        {u"(file)", u"(fichier)"},
        {u"Save", u"Enregistrer"},
        {u"Close <Special> now", u"Close <Special> now"},
    };
    for (const auto& [text, translation] : cases)
        EXPECT_EQ(T(text), CString(translation)) << CString(text).ToUtf8();

    // Each outcome is stored as a record, which answers next time.
    EXPECT_EQ(Translator::TheTranslator().GetCount(), count + 6);
    const Translation record = RecordOf(u"Send the file");
    ASSERT_EQ(record.m_matches.GetCount(), 1);
    EXPECT_EQ(record.m_matches[0].m_translation, CString(u"Send the fichier"));
    EXPECT_TRUE(Translator::TheTranslator().IsModified());
    EXPECT_EQ(T(u"Send the file"), CString(u"Send the fichier"));
    EXPECT_EQ(Translator::TheTranslator().GetCount(), count + 6);

    // A partial outcome still meets the format check.
    SwitchTo(Write("translations_y.txt", "percent\t\t%s pour cent\n"));
    EnablePartialTranslations(true);
    EXPECT_EQ(T(u"Ten percent"), CString(u"Ten percent"));
    EXPECT_EQ(test::PendingReports().size(), 1u);
}

TEST_F(TranslateTest, SavingAFileJustReadGivesItBackByteForByte) {
    const fs::path path = Copy("translations_fr.txt");
    SwitchTo(path);
    ASSERT_TRUE(SaveTranslationFile());
    EXPECT_EQ(test::ReadText(path), test::ReadText(c_fixtures / "translations_fr.txt"));
    EXPECT_FALSE(fs::exists(m_root / "~translations_fr.txt"));
}

TEST_F(TranslateTest, NewMatchesFollowTheirRecordAndNewRecordsTheEndOfTheFile) {
    const fs::path path = Copy("translations_fr.txt");
    SwitchTo(path);
    EnableTranslationsFileUpdates(true);
    EXPECT_EQ(T(u"Close", u"Ribbon control tooltip"), CString(u"Close"));
    EXPECT_EQ(T(u"Brand new\ttext"), CString(u"Brand new\ttext"));
    ASSERT_TRUE(SaveTranslationFile());

    std::string expected = test::ReadText(c_fixtures / "translations_fr.txt");
    const std::string lastClose = "Close\t\tClore\tStatus bar\t\n";
    expected.insert(expected.find(lastClose) + lastClose.size(),
                    "Close\t\tClose\tRibbon control tooltip\tDefault translation\n");
    expected += "Brand new\\ttext\t\tBrand new\\ttext\n";
    EXPECT_EQ(test::ReadText(path), expected);
    EXPECT_FALSE(Translator::TheTranslator().IsModified());
}

TEST_F(TranslateTest, ALineForATextAlreadyReadAddsAMatchToItsRecord) {
    const fs::path path =
        Write("translations_x.txt", "Open\t\tOuvrir\n"
                                    "Save\t\tEnregistrer\n"
                                    "# before the second line of Open\n"
                                    "Open\t\tOuverture\tStatus bar\tlater line\n");
    SwitchTo(path);
    EXPECT_EQ(Translator::TheTranslator().GetCount(), 2);
    ASSERT_EQ(RecordOf(u"Open").m_matches.GetCount(), 2);
    // The first line has no pattern, and an empty pattern matches every context.
    EXPECT_EQ(T(u"Open", u"Status bar"), CString(u"Ouvrir"));
    EXPECT_EQ(RecordOf(u"Open").m_matches[1].m_translation, CString(u"Ouverture"));
    // Written back, the lines of a record stand together, each comment before its line.
    ASSERT_TRUE(SaveTranslationFile());
    EXPECT_EQ(test::ReadText(path), "Open\t\tOuvrir\n"
                                    "# before the second line of Open\n"
                                    "Open\t\tOuverture\tStatus bar\tlater line\n"
                                    "Save\t\tEnregistrer\n");
}

TEST_F(TranslateTest, SwitchingSavesTheModifiedFileWhenFileUpdatesAreEnabled) {
    const fs::path french = Copy("translations_fr.txt");
    SwitchTo(french);
    T(u"Close", u"Ribbon category label");
    ASSERT_TRUE(Translator::TheTranslator().IsModified());
    SwitchTo(Copy("translations_de.txt"));
    EXPECT_EQ(test::ReadText(french), test::ReadText(c_fixtures / "translations_fr.txt"));

    SwitchTo(french);
    EnableTranslationsFileUpdates(true);
    T(u"Seen once");
    SwitchTo(Copy("translations_de.txt"));
    EXPECT_EQ(test::ReadText(french),
              test::ReadText(c_fixtures / "translations_fr.txt") + "Seen once\t\tSeen once\n");
    EXPECT_EQ(GetCurrentTranslationFile(), PathText(m_root / "translations_de.txt"));
    EXPECT_EQ(T(u"Open"), CString(u"\u00d6ffnen"));
    EXPECT_FALSE(HasRecord(u"Seen once"));
}

TEST_F(TranslateTest, AMissingFileLeavesTheTableEmptyAndIsMadeBySaving) {
    const fs::path path = m_root / "translations_new.txt";
    EXPECT_FALSE(SwitchToTranslationFile(PathText(path), false, false));
    EXPECT_TRUE(AreTranslationsEnabled());
    EXPECT_EQ(GetCurrentTranslationFile(), PathText(path));
    EXPECT_TRUE(Translator::TheTranslator().IsLoaded());
    EXPECT_EQ(Translator::TheTranslator().GetCount(), 0);
    EXPECT_EQ(T(u"Open"), CString(u"Open"));
    EXPECT_TRUE(test::PendingReports().empty());

    EnableTranslationsFileUpdates(true);
    EXPECT_EQ(T(u"Open"), CString(u"Open"));
    ASSERT_TRUE(SaveTranslationFile());
    EXPECT_EQ(test::ReadText(path), "Open\t\tOpen\n");
}

TEST_F(TranslateTest, DamagedLinesAreReportedOnceAndTheRestIsRead) {
    const fs::path path = Copy("broken_lines.txt");
    SwitchTo(path);
    const std::vector<test::Report> reports = test::PendingReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].heading, "Translation");
    EXPECT_EQ(reports[0].message,
              "The translation file " + path.string() +
                  " has 4 damaged lines, the first of them line 3:\n\tOnly two\tfields\nLines "
                  "without the fields of a translation are kept as comments.");

    EXPECT_EQ(T(u"Open"), CString(u"Ouvrir"));
    EXPECT_EQ(T(u"Close"), CString(u"Fermer"));
    EXPECT_EQ(T(u"Save"), CString(u"Enregistr\uFFFDer"));
    EXPECT_FALSE(HasRecord(u"Only two", u"fields"));
    EXPECT_FALSE(HasRecord(u"Four"));
    EXPECT_FALSE(HasRecord(u"Six"));

    // The lines that are no records are kept where they were; a comment is no damaged line.
    ASSERT_TRUE(SaveTranslationFile());
    EXPECT_EQ(test::ReadText(path), "#\tA file\twith damaged lines\n"
                                    "Open\t\tOuvrir\n"
                                    "Only two\tfields\n"
                                    "Four\t\tfields\there\n"
                                    "Six\t\ta\tb\tc\td\n"
                                    "Save\t\tEnregistr\xef\xbf\xbd"
                                    "er\n"
                                    "Close\t\tFermer\n");
}

TEST_F(TranslateTest, AFileThatCannotBeReadOrSavedIsReported) {
    const fs::path folder = m_root / "translations_folder.txt";
    fs::create_directory(folder);
    EXPECT_FALSE(SwitchToTranslationFile(PathText(folder), false, false));
    std::vector<test::Report> reports = test::PendingReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_TRUE(reports[0].message.starts_with("Cannot read the translation file " +
                                               folder.string() + ":\n"))
        << reports[0].message;
    EXPECT_EQ(T(u"Open"), CString(u"Open"));

    TheErrorLog().DiscardPendingMessages();
    const fs::path path = m_root / "no such folder" / "translations_x.txt";
    EXPECT_FALSE(SwitchToTranslationFile(PathText(path), false, false));
    EnableTranslationsFileUpdates(true);
    T(u"Open");
    EXPECT_FALSE(SaveTranslationFile());
    reports = test::PendingReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_TRUE(
        reports[0].message.starts_with("Cannot save the translation file " + path.string() + ":\n"))
        << reports[0].message;
    EXPECT_TRUE(Translator::TheTranslator().IsModified());
}

TEST_F(TranslateTest, AQTStringTranslatesAtFirstUseAndAgainAfterARefreshingSwitch) {
    const fs::path french = Copy("translations_fr.txt");
    const fs::path german = Copy("translations_de.txt");
    const QTString saved(u"Save", u"Menu");
    const QTString text(u"Open", u"Menu");
    const QTString copy(text);
    SwitchTo(french);
    EXPECT_EQ(CString(saved), CString(u"Enregistrer"));
    EXPECT_EQ(CString(text), CString(u"Ouvrir"));
    const char16_t* before = text.c_str();

    SwitchTo(german);
    EXPECT_EQ(CString(text), CString(u"\u00d6ffnen"));
    EXPECT_EQ(CString(copy), CString(u"\u00d6ffnen"));
    // A pointer handed out before the change still reads the former translation.
    EXPECT_EQ(std::u16string(before), u"Ouvrir");

    // Without the refresh the translation made is kept until the objects are told.
    ASSERT_TRUE(SwitchToTranslationFile(PathText(french), false, false));
    EXPECT_EQ(CString(text), CString(u"\u00d6ffnen"));
    QTranslatable::InvalidateTranslatables();
    EXPECT_EQ(CString(text), CString(u"Ouvrir"));
}

TEST_F(TranslateTest, TheNamePatternIgnoresCaseAndWantsAnExtension) {
    for (const char* name : {"Translations_ES.txt", "translations", "translationsX",
                             "my translations.txt", "~translations_fr.txt", "TRANSLATIONS.de"})
        Write(name, "Open\t\tAbrir\n");
    Write("Translations_ES.txt", "<Special>\t<FriendlyName>\tEspa\xc3\xb1ol\n");
    fs::create_directory(m_root / "translations_folder.txt");
    const QArray<AvailableTranslation> found = GetAvailableTranslations(PathText(m_root));
    ASSERT_EQ(found.GetCount(), 2);
    EXPECT_EQ(found[0].m_displayName, CString(u"TRANSLATIONS"));
    EXPECT_EQ(found[1].m_displayName, CString(u"Espa\u00f1ol"));
    EXPECT_EQ(GetAvailableTranslations(PathText(m_root / "missing")).GetCount(), 0);
}

TEST_F(TranslateTest, ThreadsTranslateAtTheSameTime) {
    SwitchTo(Copy("translations_fr.txt"));
    EnableTranslationsFileUpdates(true);
    const int count = Translator::TheTranslator().GetCount();
    const QTString shared(u"Save", u"Menu");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &shared, &wrong] {
            for (int i = 0; i < 500; ++i) {
                const CString fresh = CString::Formatted(u"Thread text %d", (i * 7 + t) % 50);
                if (T(u"Open") != CString(u"Ouvrir") ||
                    T(u"Close", u"Dialog item") != CString(u"Fermer") ||
                    TranslateString(fresh, CString(), u"Status bar") != fresh ||
                    CString(shared) != CString(u"Enregistrer"))
                    ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(Translator::TheTranslator().GetCount(), count + 50);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(RecordOf(CString::Formatted(u"Thread text %d", i)).m_matches.GetCount(), 1);
}

} // namespace
} // namespace keel
