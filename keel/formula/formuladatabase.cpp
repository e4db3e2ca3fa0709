#include "keel/formula/formuladatabase.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

namespace keel {

namespace {

bool HasPrefixNoCase(const CString& text, const char16_t* prefix) {
    const CString head = text.Left(CString(prefix).GetLength());
    return head.CompareNoCase(prefix) == 0;
}

// Whether a pair of the connection string has the key "Driver" or "DSN". Values in braces may
// hold ";".
bool NamesOdbcSource(const CString& text) {
    CString key;
    bool inKey = true;
    int braces = 0;
    for (int i = 0; i <= text.GetLength(); ++i) {
        const char16_t c = i < text.GetLength() ? text[i] : u';';
        if (braces > 0) {
            braces += c == u'{' ? 1 : c == u'}' ? -1 : 0;
        } else if (c == u';') {
            inKey = true;
            key.Empty();
        } else if (inKey && c == u'=') {
            key.Trim();
            if (key.CompareNoCase(u"Driver") == 0 || key.CompareNoCase(u"DSN") == 0)
                return true;
            inKey = false;
        } else if (inKey) {
            key += c;
        } else if (c == u'{') {
            braces = 1;
        }
    }
    return false;
}

bool SameKey(std::string_view key, std::string_view wanted) {
    while (!key.empty() && std::isspace(static_cast<unsigned char>(key.front())))
        key.remove_prefix(1);
    while (!key.empty() && std::isspace(static_cast<unsigned char>(key.back())))
        key.remove_suffix(1);
    return std::equal(key.begin(), key.end(), wanted.begin(), wanted.end(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == b;
    });
}

// The ODBC connection string with the values of "PWD" and "Password" hidden. A value in braces
// may hold ";".
std::string WithoutOdbcPassword(const std::string& text) {
    std::string shown;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = start;
        for (int braces = 0; end < text.size() && (braces > 0 || text[end] != ';'); ++end)
            braces += text[end] == '{' ? 1 : (text[end] == '}' && braces > 0) ? -1 : 0;
        std::string pair = text.substr(start, end - start);
        const std::size_t equals = pair.find('=');
        if (equals != std::string::npos &&
            (SameKey(pair.substr(0, equals), "pwd") || SameKey(pair.substr(0, equals), "password")))
            pair = pair.substr(0, equals + 1) + "***";
        shown += pair + (end < text.size() ? ";" : "");
        start = end + 1;
    }
    return shown;
}

// The URI with the password of its user and a "password" parameter hidden.
std::string WithoutUriPassword(std::string text) {
    const std::size_t authority = text.find("://") + 3;
    const std::size_t authorityEnd = std::min(text.find_first_of("/?", authority), text.size());
    const std::size_t at = text.rfind('@', authorityEnd);
    if (at != std::string::npos && at >= authority) {
        const std::size_t colon = text.find(':', authority);
        if (colon < at)
            text.replace(colon + 1, at - colon - 1, "***");
    }
    std::size_t query = text.find('?');
    while (query != std::string::npos) {
        const std::size_t next = text.find('&', query + 1);
        const std::size_t equals = text.find('=', query + 1);
        if (equals < next &&
            SameKey(std::string_view(text).substr(query + 1, equals - query - 1), "password"))
            text.replace(equals + 1, std::min(next, text.size()) - equals - 1, "***");
        query = text.find('&', query + 1);
    }
    return text;
}

} // namespace

QDatabaseNameKind DatabaseNameKind(const CString& name) {
    if (HasPrefixNoCase(name, u"postgresql://") || HasPrefixNoCase(name, u"postgres://"))
        return QDatabaseNameKind::PostgresUri;
    if (NamesOdbcSource(name))
        return QDatabaseNameKind::OdbcConnection;
    return QDatabaseNameKind::File;
}

CString DatabaseDisplayName(const CString& name) {
    switch (DatabaseNameKind(name)) {
    case QDatabaseNameKind::OdbcConnection:
        return CString::FromUtf8(WithoutOdbcPassword(name.ToUtf8()));
    case QDatabaseNameKind::PostgresUri:
        return CString::FromUtf8(WithoutUriPassword(name.ToUtf8()));
    case QDatabaseNameKind::File:
        break;
    }
    return name;
}

} // namespace keel
