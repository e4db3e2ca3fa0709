#pragma once

#include <array>

namespace keel {

// The switches that shape an export, process-wide: two banks of sixteen flags and a selector
// for the bank that is read. Flags are numbered from 0 in each bank.
//  1  a numeric identifier in a .tab context is written as "-1" for a new block, "0" after it
//  2  a .tab line starts with its context
//  4  .tab lines are sorted before they are written
//  5  set by Init
//  6  an attribute with a formula is also written with its value
class QExport {
public:
    static constexpr int c_flagsPerBank = 16;

    QExport() { Init(); }

    // Clears every flag of both banks but flag 5, which it sets, and selects bank 0.
    void Init();
    // Numbers outside 0 to 15 read as not set and are not stored.
    bool IsExportFlagSet(int flag) const;
    void SetExportFlag(int flag, bool set);
    void SelectBank(int bank) { m_bank = bank == 0 ? 0 : 1; }
    int SelectedBank() const { return m_bank; }

    // The flag of the process's object; false while there is none.
    static bool IsFlagSet(int flag);
    // The process's object, made on first use; SetTheExportFlags(nullptr) takes it away (every
    // flag then reads as not set) and SetTheExportFlags(&object) installs another.
    static QExport* TheExportFlags();
    static void SetTheExportFlags(QExport* flags);

private:
    static bool IsValidFlag(int flag) { return flag >= 0 && flag < c_flagsPerBank; }

    std::array<std::array<bool, c_flagsPerBank>, 2> m_banks{};
    int m_bank = 0;
};

} // namespace keel
