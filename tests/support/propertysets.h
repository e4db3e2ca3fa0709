#pragma once

#include "tests/support/answerdocument.h"

#include "keel/document/appservices.h"
#include "keel/document/olepropertyset.h"
#include "keel/formula/namedvalues.h"
#include "keel/platform/file.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <gsf/gsf.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace keel::test {

using StreamBytes = std::vector<std::uint8_t>;

// Bytes written as hex pairs, with "#" starting a comment that runs to the end of the line.
inline StreamBytes ReadHexFixture(const std::string& path) {
    std::ifstream file(path);
    StreamBytes bytes;
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string pair;
        while (words >> pair)
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16)));
    }
    return bytes;
}

inline StreamBytes WrittenStream(CPropertySet& set) {
    CMemFile file;
    if (!set.WriteToStream(file))
        return {};
    return file.Bytes();
}

inline void PutU32(StreamBytes& bytes, std::size_t at, std::uint32_t value) {
    for (int index = 0; index < 4; ++index)
        bytes.at(at + index) = static_cast<std::uint8_t>(value >> (8 * index));
}

// What libgsf reads from a summary stream: texts, integers, and time stamps as Unix seconds.
struct GsfSummary {
    bool read = false;
    std::map<std::string, std::string> texts;
    std::map<std::string, int> integers;
    std::map<std::string, long long> times;
};

inline void CollectGsfProperty(gpointer key, gpointer value, gpointer data) {
    auto& summary = *static_cast<GsfSummary*>(data);
    const GValue* content = gsf_doc_prop_get_val(static_cast<GsfDocProp*>(value));
    const std::string name = static_cast<const char*>(key);
    if (!content)
        return;
    if (G_VALUE_HOLDS_STRING(content))
        summary.texts[name] = g_value_get_string(content) ? g_value_get_string(content) : "";
    else if (G_VALUE_HOLDS_INT(content))
        summary.integers[name] = g_value_get_int(content);
    else if (G_VALUE_HOLDS(content, GSF_TIMESTAMP_TYPE))
        summary.times[name] = static_cast<const GsfTimestamp*>(g_value_get_boxed(content))->timet;
}

inline GsfSummary ReadSummaryWithGsf(const StreamBytes& bytes) {
    GsfSummary summary;
    GsfInput* input =
        gsf_input_memory_new(bytes.data(), static_cast<gsf_off_t>(bytes.size()), FALSE);
    GsfDocMetaData* meta = gsf_doc_meta_data_new();
    GError* error = gsf_doc_meta_data_read_from_msole(meta, input);
    summary.read = error == nullptr;
    if (error)
        g_error_free(error);
    gsf_doc_meta_data_foreach(meta, CollectGsfProperty, &summary);
    g_object_unref(meta);
    g_object_unref(input);
    return summary;
}

// The meta data takes a copy of the name and the value.
inline void InsertGsfValue(GsfDocMetaData* meta, const char* name, const GValue& value) {
    gsf_doc_meta_data_insert(meta, g_strdup(name),
                             static_cast<GValue*>(g_boxed_copy(G_TYPE_VALUE, &value)));
}

// A summary stream that libgsf writes with a title, a creator, a creation time and a page count;
// with `document` the document summary stream of the same meta data.
inline StreamBytes WriteWithGsf(const char* title, const char* creator, long long created,
                                int pages, bool document = false) {
    GsfDocMetaData* meta = gsf_doc_meta_data_new();
    GValue text = G_VALUE_INIT;
    g_value_init(&text, G_TYPE_STRING);
    g_value_set_string(&text, title);
    InsertGsfValue(meta, GSF_META_NAME_TITLE, text);
    g_value_set_string(&text, creator);
    InsertGsfValue(meta, GSF_META_NAME_CREATOR, text);
    g_value_unset(&text);
    GValue count = G_VALUE_INIT;
    g_value_init(&count, G_TYPE_INT);
    g_value_set_int(&count, pages);
    InsertGsfValue(meta, GSF_META_NAME_PAGE_COUNT, count);
    GsfTimestamp* stamp = gsf_timestamp_new();
    gsf_timestamp_set_time(stamp, created);
    GValue time = G_VALUE_INIT;
    g_value_init(&time, GSF_TIMESTAMP_TYPE);
    gsf_timestamp_to_value(stamp, &time);
    InsertGsfValue(meta, GSF_META_NAME_DATE_CREATED, time);
    g_value_unset(&time);
    gsf_timestamp_free(stamp);
    GsfOutput* output = gsf_output_memory_new();
    StreamBytes bytes;
    if (gsf_doc_meta_data_write_to_msole(meta, output, document ? TRUE : FALSE)) {
        gsf_output_close(output);
        const guint8* data = gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(output));
        bytes.assign(data, data + gsf_output_size(output));
    }
    g_object_unref(output);
    g_object_unref(meta);
    return bytes;
}

// A memory file that fails as a full disk once it would hold more than `limit` bytes, and as a
// broken device on any read after `readLimit` bytes were read.
class FailingMemFile : public CMemFile {
public:
    explicit FailingMemFile(std::size_t limit, StreamBytes bytes = {},
                            std::size_t readLimit = SIZE_MAX)
        : CMemFile(std::move(bytes)), m_limit(limit), m_readLimit(readLimit) {}

    void Write(const void* buffer, unsigned count) override {
        if (GetPosition() + count > m_limit)
            ThrowFileException(CFileException::diskFull);
        CMemFile::Write(buffer, count);
    }
    unsigned Read(void* buffer, unsigned count) override {
        if (m_read + count > m_readLimit)
            ThrowFileException(CFileException::hardIO);
        m_read += count;
        return CMemFile::Read(buffer, count);
    }

private:
    std::size_t m_limit;
    std::size_t m_readLimit;
    std::size_t m_read = 0;
};

// A document whose formulas also reach the values of one named-value source, as a document
// reaches its summary properties.
class NamedValuesDocument : public AnswerDocument {
public:
    void SetSource(QNamedValues* source) { m_source = source; }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool&, QCacheState&,
                                 bool) override {
        return m_source && m_source->Lookup(value, name.ToString());
    }
    bool SimpleSetValueInThis(PropId name, const QAnyValue& value) override {
        return m_source && m_source->Set(value, name.ToString());
    }

private:
    QNamedValues* m_source = nullptr;
};

// A clock for summaries that stands still until the test moves it.
struct StillClock {
    std::uint64_t ticks = 0;

    std::function<FILETIME()> Reader() {
        return [this] { return FILETIME::FromTicks(ticks); };
    }
    void Advance(std::uint64_t seconds) { ticks += seconds * c_fileTimeTicksPerSecond; }
    // The Unix seconds of the time now, as libgsf gives time stamps.
    long long UnixSeconds() const {
        return static_cast<long long>((ticks - c_fileTimeTicksAtUnixEpoch) /
                                      c_fileTimeTicksPerSecond);
    }
};

} // namespace keel::test
