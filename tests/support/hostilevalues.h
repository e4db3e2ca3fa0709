#pragma once

#include "keel/platform/uiservices.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace keel::test {

// A host with a display that notes every box and dialog asked of it and answers as a person
// who cancels.
class DialogHost : public CHeadlessUIServices {
public:
    bool HasDisplay() const override { return true; }
    int MessageBox(const CString& text, const CString&, unsigned) override {
        Note("box " + text.ToUtf8());
        return IDCANCEL;
    }
    bool EditText(CString& text, const CString&) override { return Note("edit " + text.ToUtf8()); }
    bool PickColor(unsigned long&) override { return Note("colour"); }
    bool BrowseForFile(const CString& title, const CString&, const CString&, CString&) override {
        return Note("browse " + title.ToUtf8());
    }
    bool EditForm(const CString& path, const CString&) override {
        return Note("form " + path.ToUtf8());
    }
    bool EditTable(const CString& path) override { return Note("table " + path.ToUtf8()); }
    long ShellOpenNoWait(const CString& path, const CString&) override {
        Note("open " + path.ToUtf8());
        return 0;
    }
    PageSelection SelectCategoryAndPage(const CString& category, const CString&) override {
        Note("page " + category.ToUtf8());
        return PageSelection::NoSheet;
    }

    std::vector<std::string> calls;

private:
    bool Note(const std::string& call) {
        calls.push_back(call);
        return false;
    }
};

// Formulas that would act outside the value they give, one or two of each family, for the
// readers of data files to refuse; those with an effect leave it in a folder of their own.
class HostileValues {
public:
    struct Value {
        const char* family;
        std::string formula;
    };

    explicit HostileValues(const std::string& name)
        : m_folder(std::filesystem::temp_directory_path() /
                   ("keel-hostile-" + std::to_string(::getpid()) + "-" + name)) {
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directories(m_folder);
        std::ofstream(m_folder / "counter.txt") << "7\n";
        std::ofstream(m_folder / "script.txt") << "shellwait(\"touch\", " << Quoted("call") << ")";
    }
    ~HostileValues() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    HostileValues(const HostileValues&) = delete;
    HostileValues& operator=(const HostileValues&) = delete;

    std::vector<Value> Values() const {
        return {
            {"program", "shellwait(\"touch\", " + Quoted("shellwait") + ")"},
            {"program", "shell(\"touch\", " + Quoted("shell") + ")"},
            {"database", "dblookup(\"stock\", \"select 1\", \"a\")"},
            {"database", "dbexecute(\"stock\", \"drop table parts\")"},
            {"file", "writeline(" + Quoted("writeline") + ", \"x\")"},
            {"file", "appendline(" + Quoted("appendline") + ", \"x\")"},
            {"file", "readandincrement(" + Quoted("counter.txt") + ")"},
            {"context", "setvalue(\"width\", 1)"},
            {"context", "vardelete(\"width\")"},
            {"table", "addrow(\"prices\", \"new\")"},
            {"box", "msgbox(\"boom\")"},
            {"box", "confirm(\"sure?\")"},
            {"box", "msgboxlog(\"boom\", \"t\")"},
            {"box", "edittext(\"text\")"},
            {"box", "debug(1)"},
            {"dialog", "browsefile()"},
            {"dialog", "pickcolor(0)"},
            {"dialog", "tableeditor(\"prices\")"},
            {"dialog", "showpage(\"a\", \"b\")"},
            {"application", "export(1)"},
            {"box", "eval('1 +')"},
            {"nested", "call(" + Quoted("script.txt") + ")"},
            {"nested", "1 + iff(1, msgbox(\"boom\"), 0)"},
        };
    }

    // What the formulas left in the folder besides its own files, and the counter's text. A program
    // started without waiting is given a moment first.
    std::string Effects() const {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        std::string effects;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder))
            if (entry.path().filename() != "counter.txt" && entry.path().filename() != "script.txt")
                effects += entry.path().filename().string() + " ";
        std::ostringstream counter;
        counter << std::ifstream(m_folder / "counter.txt").rdbuf();
        return effects + "counter=" + counter.str();
    }
    static constexpr const char* c_noEffects = "counter=7\n";

    std::filesystem::path Folder() const { return m_folder; }

private:
    std::string Quoted(const std::string& name) const {
        return "\"" + (m_folder / name).string() + "\"";
    }

    std::filesystem::path m_folder;
};

} // namespace keel::test
