#include "keel/document/usertrace.h"

#include "keel/document/appservices.h"
#include "keel/platform/file.h"
#include "keel/system/folders.h"

#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <mutex>

namespace keel {

namespace {

using SteadyClock = std::chrono::steady_clock;

struct WallClock {
    std::tm local{};
    int milliseconds = 0;
    std::time_t seconds = 0;
};

WallClock ReadWallClock() {
    const auto now = std::chrono::system_clock::now();
    WallClock clock;
    clock.seconds = std::chrono::system_clock::to_time_t(now);
    localtime_r(&clock.seconds, &clock.local);
    clock.milliseconds = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000);
    return clock;
}

CString TraceFileName(const std::tm& time) {
    return u"!Trace!_" + CString::Formatted(u"%04.4d%02.2d%02.2d_%02.2d%02.2d%02.2d.txt",
                                            time.tm_year + 1900, time.tm_mon + 1, time.tm_mday,
                                            time.tm_hour, time.tm_min, time.tm_sec);
}

long long MillisecondsSince(SteadyClock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - start)
        .count();
}

class UserTrace {
public:
    static UserTrace& Instance() {
        static UserTrace trace;
        return trace;
    }

    ~UserTrace() { CloseFile(); }

    void WriteLine(const CString& text) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (EnsureOpen())
            Write(text);
    }

    void Start(const CString& text) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!EnsureOpen())
            return;
        if (m_level < USER_TRACE_MAX_LEVEL)
            ++m_level;
        m_deepest = std::max(m_deepest, m_level);
        m_levelStarts[static_cast<std::size_t>(m_level)] = SteadyClock::now();
        Write(text);
    }

    void Stop(const CString& text) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!EnsureOpen())
            return;
        Write(text);
        if (m_level > 0)
            --m_level;
    }

    void Checkpoint(const CString& text) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (EnsureOpen())
            WriteCheckpoint(text);
    }

    void Close() {
        std::lock_guard<std::mutex> lock(m_mutex);
        CloseFile();
        m_state = State::Off;
    }

    void Restart() {
        std::lock_guard<std::mutex> lock(m_mutex);
        CloseFile();
        m_state = State::NotOpened;
    }

    CString FilePath() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_state == State::Open ? m_file.GetFilePath() : CString();
    }

private:
    enum class State { NotOpened, Open, Off };

    UserTrace() = default;

    bool EnsureOpen() {
        if (m_state == State::NotOpened)
            Open();
        return m_state == State::Open;
    }

    void Open() {
        m_state = State::Off;
        const CString folder = QFolders::DataDir();
        std::error_code ignored;
        std::filesystem::create_directories(folder.ToUtf8(), ignored);
        const WallClock clock = ReadWallClock();
        constexpr unsigned flags =
            CFile::modeCreate | CFile::modeWrite | CFile::shareDenyWrite | CFile::typeText;
        if (!m_file.Open(folder + TraceFileName(clock.local), flags))
            return;
        m_state = State::Open;
        m_lastFlushSecond = clock.seconds;
        WriteCheckpoint(CString());
    }

    void CloseFile() {
        if (m_state != State::Open)
            return;
        WriteBuffer();
        m_file.Abort();
    }

    void WriteCheckpoint(const CString& text) {
        m_level = 0;
        m_deepest = 0;
        m_levelStarts[0] = SteadyClock::now();
        Write(text);
    }

    void Write(const CString& text) {
        const WallClock clock = ReadWallClock();
        const unsigned mask = c_UserTraceMask;
        CString line;
        if (mask & USER_TRACE_PLAIN_LINES)
            line = ClockText(clock) + u"\t" + AppServices().AppName().Left(3) + u"\t";
        else if (mask & USER_TRACE_COLUMNS)
            line = ColumnsText();
        else
            line = u"T " + ClockText(clock) + u"\t" +
                   CString::Formatted(u"%6.6d\t", MillisecondsSince(InnermostStart()));
        m_buffer += (line + text + u"\n").ToUtf8();
        if (clock.seconds != m_lastFlushSecond) {
            m_lastFlushSecond = clock.seconds;
            WriteBuffer();
        }
    }

    static CString ClockText(const WallClock& clock) {
        return CString::Formatted(u"%2.2d:%2.2d:%2.2d.%3.3d", clock.local.tm_hour,
                                  clock.local.tm_min, clock.local.tm_sec, clock.milliseconds);
    }

    CString ColumnsText() const {
        CString columns;
        for (int level = 0; level <= m_deepest; ++level) {
            if (level <= m_level)
                columns.AppendFormat(
                    u"\t%6.6d\t",
                    MillisecondsSince(m_levelStarts[static_cast<std::size_t>(level)]));
            else
                columns += u"      \t";
        }
        return columns;
    }

    SteadyClock::time_point InnermostStart() const {
        return m_levelStarts[static_cast<std::size_t>(m_level)];
    }

    // A failure to write turns tracing off: the trace must never disturb the program.
    void WriteBuffer() {
        try {
            m_file.Write(m_buffer.data(), static_cast<unsigned>(m_buffer.size()));
        } catch (const CFileException&) {
            m_file.Abort();
            m_state = State::Off;
        }
        m_buffer.clear();
    }

    std::mutex m_mutex;
    State m_state = State::NotOpened;
    CFile m_file;
    std::string m_buffer;
    std::time_t m_lastFlushSecond = 0;
    std::array<SteadyClock::time_point, USER_TRACE_MAX_LEVEL + 1> m_levelStarts{};
    int m_level = 0;
    int m_deepest = 0;
};

} // namespace

void UserTraceWriteLine(const CString& text) {
    UserTrace::Instance().WriteLine(text);
}

void UserTraceWriteLineStart(const CString& text) {
    UserTrace::Instance().Start(text);
}

void UserTraceWriteLineStop(const CString& text) {
    UserTrace::Instance().Stop(text);
}

void UserTraceCheckpoint(const CString& text) {
    UserTrace::Instance().Checkpoint(text);
}

void UserTraceClose() {
    UserTrace::Instance().Close();
}

void UserTraceRestart() {
    UserTrace::Instance().Restart();
}

CString UserTraceFilePath() {
    return UserTrace::Instance().FilePath();
}

void UserTraceFileAndLineInfo::Write(const CString& text) const {
    constexpr int kMaxTextLength = 1024;
    CString limited = text.Left(kMaxTextLength);
    if (limited.Right(1) == u"\n")
        limited = limited.Left(limited.GetLength() - 1);
    UserTraceWriteLine(CString::Formatted(u"%hs %d: ", m_file, m_line) + limited);
}

} // namespace keel
