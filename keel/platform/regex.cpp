#include "keel/platform/regex.h"

#define PCRE2_CODE_UNIT_WIDTH 16
#include <memory>
#include <mutex>
#include <pcre2.h>
#include <string>
#include <unordered_map>

namespace keel {
namespace {

struct CodeDeleter {
    void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};
struct MatchDataDeleter {
    void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

using CompiledPattern = std::shared_ptr<const pcre2_code>;

// Patterns come from a small set (the context patterns of a translation file), so the cache is
// simply dropped when it grows past this size rather than tracking use.
constexpr std::size_t c_maxCachedPatterns = 1024;

class PatternCache {
public:
    // The compiled pattern, or null when it does not compile; both outcomes are remembered.
    CompiledPattern Get(const CString& pattern) {
        std::u16string key(pattern.View());
        std::lock_guard lock(m_mutex);
        if (const auto found = m_patterns.find(key); found != m_patterns.end())
            return found->second;
        if (m_patterns.size() >= c_maxCachedPatterns)
            m_patterns.clear();
        CompiledPattern compiled = Compile(pattern);
        m_patterns.emplace(std::move(key), compiled);
        return compiled;
    }

private:
    static CompiledPattern Compile(const CString& pattern) {
        int errorCode = 0;
        PCRE2_SIZE errorOffset = 0;
        pcre2_code* code =
            pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.GetString()),
                          static_cast<PCRE2_SIZE>(pattern.GetLength()),
                          PCRE2_UTF | PCRE2_MATCH_INVALID_UTF, &errorCode, &errorOffset, nullptr);
        return CompiledPattern(code, CodeDeleter());
    }

    std::mutex m_mutex;
    std::unordered_map<std::u16string, CompiledPattern> m_patterns;
};

PatternCache& ThePatternCache() {
    static PatternCache cache;
    return cache;
}

} // namespace

bool RegexMatch(const CString& text, const CString& pattern) {
    const CompiledPattern code = ThePatternCache().Get(pattern);
    if (!code)
        return false;
    const std::unique_ptr<pcre2_match_data, MatchDataDeleter> matchData(
        pcre2_match_data_create_from_pattern(code.get(), nullptr));
    if (!matchData)
        return false;
    // Negative results are either "no match" or a failure such as an exhausted match limit;
    // both count as no match.
    return pcre2_match(code.get(), reinterpret_cast<PCRE2_SPTR>(text.GetString()),
                       static_cast<PCRE2_SIZE>(text.GetLength()), 0, 0, matchData.get(),
                       nullptr) >= 0;
}

CString RegexQuote(const CString& text) {
    static constexpr std::u16string_view metacharacters = u"\\^$.|?*+()[]{}";
    CString quoted;
    for (const char16_t unit : text.View()) {
        if (metacharacters.find(unit) != std::u16string_view::npos)
            quoted += u'\\';
        quoted += unit;
    }
    return quoted;
}

} // namespace keel
