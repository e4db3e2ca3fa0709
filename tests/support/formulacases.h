#pragma once

#include "tests/support/paths.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace keel::test {

// The files of formula cases, tests/formula/cases/*.txt: one case or directive a line, columns
// separated by tabs (tests/formula/cases_test.cpp tells the format).
inline std::filesystem::path CasesFolder() {
    return std::filesystem::path(TestDataFolder()).parent_path() / "formula" / "cases";
}

inline std::vector<std::string> CaseFiles() {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(CasesFolder(), error))
        if (entry.path().extension() == ".txt")
            names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// In every column \n, \t and \\ stand for a newline, a tab and a backslash.
inline std::string Unescaped(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            plain += text[i];
            continue;
        }
        const char next = text[++i];
        plain += next == 'n' ? '\n' : next == 't' ? '\t' : next == 'r' ? '\r' : next;
    }
    return plain;
}

inline std::vector<std::string> Columns(const std::string& line) {
    std::vector<std::string> columns;
    std::size_t start = 0;
    for (std::size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
        columns.push_back(Unescaped(line.substr(start, tab - start)));
    columns.push_back(Unescaped(line.substr(start)));
    return columns;
}

// Every formula of every file: the first column of each case, and the formula column of the
// directives that evaluate one ("%% set", "%% var", "%% args").
inline std::vector<std::string> AllCaseFormulas() {
    std::vector<std::string> formulas;
    for (const std::string& name : CaseFiles()) {
        std::ifstream file(CasesFolder() / name);
        for (std::string line; std::getline(file, line);) {
            if (line.empty() || line.starts_with("//"))
                continue;
            const std::vector<std::string> columns = Columns(line);
            const bool evaluates = columns[0].starts_with("%% set ") ||
                                   columns[0].starts_with("%% var ") || columns[0] == "%% args";
            if (!line.starts_with("%%"))
                formulas.push_back(columns[0]);
            else if (evaluates && columns.size() >= 2)
                formulas.push_back(columns[1]);
        }
    }
    return formulas;
}

} // namespace keel::test
