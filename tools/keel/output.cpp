#include "tools/keel/output.h"

#include "keel/values/angle.h"
#include "keel/values/area.h"
#include "keel/values/datetime.h"
#include "keel/values/length.h"
#include "keel/values/money.h"
#include "keel/values/ratevalue.h"
#include "keel/values/time.h"
#include "keel/values/volume.h"

#include <cmath>
#include <cstdio>

namespace keel::tool {

// ---- Display texts ------------------------------------------------------------------------------

const CString& QDisplayTexts::Of(QAnyValue& value) {
    if (!value.IsArray()) {
        m_scalar = value.Format();
        return m_scalar;
    }
    QArray<QAnyValue>& elements = value.MakeArray();
    if (const auto known = m_arrays.find(&elements); known != m_arrays.end())
        return known->second;
    CString text(u'[');
    for (int i = 0; i < elements.GetCount(); ++i) {
        if (i > 0)
            text += u',';
        text += ElementText(elements[i]);
    }
    text += u']';
    return m_arrays.emplace(&elements, std::move(text)).first->second;
}

CString QDisplayTexts::ElementText(QAnyValue& element) {
    if (element.IsEmpty())
        return CString();
    if (element.IsString())
        return QAnyValue::InsertEscapesDoubleQuotesAndEnclose(element.MakeCString());
    if (element.IsArray())
        return Of(element);
    return element.AsStringOrFormula();
}

// ---- Plain lines --------------------------------------------------------------------------------

namespace {

// Each line break, with the blanks around it, becomes one space.
std::string OnOneLine(const std::string& text) {
    std::string line;
    line.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] != '\n' && text[i] != '\r') {
            line += text[i++];
            continue;
        }
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t'))
            line.pop_back();
        while (i < text.size() && std::string_view(" \t\r\n").find(text[i]) != std::string::npos)
            ++i;
        if (!line.empty() && i < text.size())
            line += ' ';
    }
    return line;
}

} // namespace

std::string PlainLine(QAnyValue& value) {
    std::string line = value.TypeName().ToUtf8() + '\t';
    CString message;
    if (value.IsErrorAndGetMessage(message) && !message.IsEmpty())
        return line + OnOneLine(message.ToUtf8());
    QDisplayTexts texts;
    return line + texts.Of(value).ToUtf8();
}

// ---- JSON ---------------------------------------------------------------------------------------

namespace {

void AppendUnicodeEscape(std::string& out, unsigned codePoint) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\u%04x", codePoint);
    out += escaped;
}

// `utf8` is valid UTF-8. The C0 and C1 controls and DEL are written as escapes.
void AppendEscaped(std::string& out, std::string_view utf8) {
    out += '"';
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        switch (byte) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (byte < 0x20 || byte == 0x7F) {
                AppendUnicodeEscape(out, byte);
            } else if (byte == 0xC2 && i + 1 < utf8.size() &&
                       static_cast<unsigned char>(utf8[i + 1]) < 0xA0) {
                AppendUnicodeEscape(out, static_cast<unsigned char>(utf8[++i]));
            } else {
                out += static_cast<char>(byte);
            }
        }
    }
    out += '"';
}

void AppendJsonString(std::string& out, const CString& text) {
    AppendEscaped(out, text.ToUtf8());
}

// Full precision, so that the stored double reads back exactly; JSON has no infinity or NaN.
void AppendJsonDouble(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.17g", value);
    out += digits;
}

void AppendJsonInteger(std::string& out, long long value) {
    out += std::to_string(value);
}

// Writes a value's fields in one pass over the value: arrays and rates are walked in place, and
// the text of each nested array is made once.
class QJsonWriter {
public:
    explicit QJsonWriter(std::string& out) : m_out(out) {}

    // "type", "typeNumber", "text" and "raw".
    void Fields(QAnyValue& value) {
        m_out += "\"type\":";
        AppendJsonString(m_out, value.TypeName());
        m_out += ",\"typeNumber\":";
        AppendJsonInteger(m_out, value.Type());
        m_out += ",\"text\":";
        AppendJsonString(m_out, m_texts.Of(value));
        m_out += ",\"raw\":";
        Raw(value);
    }

private:
    void Object(QAnyValue& value) {
        m_out += '{';
        Fields(value);
        m_out += '}';
    }

    // The stored payload: counts as integers, measures as doubles in their raw units, texts as
    // texts; arrays and rates as objects of further values.
    void Raw(QAnyValue& value) {
        if (value.IsArray()) {
            m_out += "{\"elements\":[";
            QArray<QAnyValue>& elements = value.MakeArray();
            for (int i = 0; i < elements.GetCount(); ++i) {
                if (i > 0)
                    m_out += ',';
                Object(elements[i]);
            }
            m_out += "]}";
        } else if (value.IsRate()) {
            QRateValue& rate = value.MakeRate();
            m_out += "{\"num\":";
            Object(rate.Num());
            m_out += ",\"den\":";
            Object(rate.Den());
            m_out += '}';
        } else {
            Scalar(value);
        }
    }

    void Scalar(const QAnyValue& value) {
        QAnyValue copy = value;
        switch (value.Type()) {
        case QAnyValue::TYPE_ERROR: {
            CString message;
            copy.IsErrorAndGetMessage(message);
            AppendJsonString(m_out, message);
            break;
        }
        case QAnyValue::TYPE_STRING:
        case QAnyValue::TYPE_LOOKUPTABLE:
            AppendJsonString(m_out, copy.MakeCString());
            break;
        case QAnyValue::TYPE_BOOL:
            AppendJsonInteger(m_out, copy.MakeBool() ? 1 : 0);
            break;
        case QAnyValue::TYPE_INT:
            AppendJsonInteger(m_out, copy.MakeInt());
            break;
        case QAnyValue::TYPE_DOUBLE:
            AppendJsonDouble(m_out, copy.MakeDouble());
            break;
        case QAnyValue::TYPE_MONEY:
            AppendJsonInteger(m_out, copy.MakeMoney().GetRaw());
            break;
        case QAnyValue::TYPE_TIME:
            AppendJsonInteger(m_out, copy.MakeTime().GetRaw());
            break;
        case QAnyValue::TYPE_LENGTH:
            AppendJsonDouble(m_out, copy.MakeLength().GetRaw());
            break;
        case QAnyValue::TYPE_AREA:
            AppendJsonDouble(m_out, copy.MakeArea().GetRaw());
            break;
        case QAnyValue::TYPE_VOLUME:
            AppendJsonDouble(m_out, copy.MakeVolume().GetRaw());
            break;
        case QAnyValue::TYPE_ANGLE:
            AppendJsonDouble(m_out, copy.MakeAngle().GetRaw());
            break;
        case QAnyValue::TYPE_DATETIME:
            AppendJsonDouble(m_out, copy.MakeDateTime().GetOleDate());
            break;
        case QAnyValue::TYPE_COLOR:
            AppendJsonInteger(m_out, static_cast<long long>(copy.MakeColor()));
            break;
        default:
            m_out += "null";
            break;
        }
    }

    std::string& m_out;
    QDisplayTexts m_texts;
};

} // namespace

void AppendJsonString(std::string& out, std::string_view utf8) {
    AppendEscaped(out, CString::FromUtf8(utf8).ToUtf8());
}

std::string JsonLine(std::string_view formula, bool ok, const CString& message, QAnyValue& value) {
    std::string line = "{\"formula\":";
    AppendJsonString(line, formula);
    line += ok ? ",\"ok\":true" : ",\"ok\":false";
    if (value.IsError())
        line += ",\"error\":true";
    line += ",\"message\":";
    AppendJsonString(line, message);
    line += ',';
    QJsonWriter(line).Fields(value);
    line += '}';
    return line;
}

} // namespace keel::tool
