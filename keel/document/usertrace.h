#pragma once

#include "keel/platform/cstring.h"

#include <string>

namespace keel {

// The trace file for engineers. What is traced is chosen by the bits of c_UserTraceMask (the
// option "UserTraceMask", which the application loads), and the code that traces tests its bit
// with IsTracing; the functions here write whenever they are called.
//
// The file is "!Trace!_YYYYMMDD_HHMMSS.txt" in the application's data folder, opened on first use
// (the folder is made if needed) and headed by a checkpoint with an empty text. If it cannot be
// opened, tracing is off for the rest of the run without a word. Lines are kept in memory and
// written out whenever the second of the clock changes, and when the trace is closed.
//
// A line has one of three forms, chosen by the mask:
// - bit 0x100 set, a plain line: "HH:MM:SS.mmm<tab>App<tab>text", where App is the first three
//   characters of the application's name;
// - otherwise, bit 0x80 clear: "T HH:MM:SS.mmm<tab>" then the milliseconds since the innermost
//   open level started, as "%6.6d<tab>", then the text;
// - otherwise, bit 0x80 set, in columns: for each level up to the deepest opened since the last
//   checkpoint, "<tab>%6.6d<tab>" with the milliseconds since that level started when it is
//   open, or six blanks and a tab when it is not; then the text.
inline constexpr unsigned USER_TRACE_COLUMNS = 0x80;
inline constexpr unsigned USER_TRACE_PLAIN_LINES = 0x100;
// The bits that choose what is traced: evaluations with what they read (table look-ups and
// files included), the change notices that reach a root context, documents loaded and saved.
inline constexpr unsigned USER_TRACE_EVALUATIONS = 0x1;
inline constexpr unsigned USER_TRACE_CHANGE_NOTICES = 0x4;
inline constexpr unsigned USER_TRACE_DOCUMENTS = 0x2000;

// The trace mask. It is a plain value, set before worker threads exist.
inline unsigned c_UserTraceMask = 0;

// Whether any of `bits` is set in the trace mask.
inline bool IsTracing(unsigned bits) {
    return (c_UserTraceMask & bits) != 0;
}

// Levels of timing: level 0 is started by a checkpoint; starts nest up to this level, and a
// start beyond it starts the deepest level again.
inline constexpr int USER_TRACE_MAX_LEVEL = 127;

void UserTraceWriteLine(const CString& text);
// Opens a level of timing and writes the line.
void UserTraceWriteLineStart(const CString& text);
// Writes the line with the time since the innermost level started, then closes that level.
void UserTraceWriteLineStop(const CString& text);
// Closes every level, starts level 0 anew and writes the line.
void UserTraceCheckpoint(const CString& text);
// Writes out what is kept and closes the file; tracing is then off for the run.
void UserTraceClose();
// Forgets a closed trace, or one that could not be opened, as a new run would: the next line
// opens a new file.
void UserTraceRestart();
// The trace file's path while it is open; empty otherwise.
CString UserTraceFilePath();

// Traces a formatted text with the place in the source it comes from:
//   UserTraceFileAndLineInfo(__FILE__, __LINE__)(u"loaded %d items\n", count);
// writes "<file> <line>: loaded 12 items". The text is cut at 1024 characters, and one newline
// at its end is dropped.
class UserTraceFileAndLineInfo {
public:
    UserTraceFileAndLineInfo(const char* file, int line) : m_file(file ? file : ""), m_line(line) {}

    template <class... Args>
    void operator()(const CString& format, const Args&... args) const {
        CString text;
        text.Format(format, args...);
        Write(text);
    }

private:
    void Write(const CString& text) const;

    std::string m_file;
    int m_line;
};

} // namespace keel
