#include "keel/values/anyvalue.h"
#include "keel/values/ratevalue.h"

namespace keel {

namespace {

// The type bytes of an error and of N/A as they come back from an archive.
constexpr std::uint8_t kErrorByte = 0xFF;
constexpr std::uint8_t kNotAvailableByte = 0xFE;

QTableHandleSource& TableSourceFor(CArchive& archive) {
    QTableHandleSource* source = GetTableHandleSource();
    if (!source)
        ThrowArchiveException(CArchiveException::badClass, archive.GetFileName());
    return *source;
}

} // namespace

void QAnyValue::Serialize(CArchive& archive) {
    if (archive.IsStoring())
        archive << *this;
    else
        archive >> *this;
}

CArchive& operator<<(CArchive& archive, const QAnyValue& value) {
    archive << static_cast<std::uint8_t>(value.m_type & 0xFF);
    value.WritePayload(archive);
    return archive;
}

void QAnyValue::WritePayload(CArchive& archive) const {
    switch (m_type) {
    case TYPE_STRING:
        archive << m_object.m_string;
        break;
    case TYPE_BOOL:
        archive << static_cast<std::int32_t>(m_scalar.m_bool ? 1 : 0);
        break;
    case TYPE_INT:
        archive << static_cast<std::int32_t>(m_scalar.m_int);
        break;
    case TYPE_DOUBLE:
        archive << m_scalar.m_double;
        break;
    case TYPE_MONEY:
        archive << m_object.m_money;
        break;
    case TYPE_TIME:
        archive << m_object.m_time;
        break;
    case TYPE_LENGTH:
        archive << m_object.m_length;
        break;
    case TYPE_AREA:
        archive << m_object.m_area;
        break;
    case TYPE_ANGLE:
        archive << m_object.m_angle;
        break;
    case TYPE_ARRAY:
        archive.WriteCount(static_cast<std::uint64_t>(m_object.m_pArray->GetCount()));
        for (const QAnyValue& element : *m_object.m_pArray)
            archive << element;
        break;
    case TYPE_LOOKUPTABLE:
        if (m_object.m_table)
            m_object.m_table->Serialize(archive);
        else
            TableSourceFor(archive).CreateEmpty()->Serialize(archive);
        break;
    case TYPE_DATETIME:
        archive << m_object.m_date;
        break;
    case TYPE_VOLUME:
        archive << m_object.m_volume;
        break;
    case TYPE_COLOR:
        archive << m_scalar.m_color;
        break;
    default:
        break;
    }
}

CArchive& operator>>(CArchive& archive, QAnyValue& value) {
    std::uint8_t typeByte = 0;
    archive >> typeByte;
    QAnyValue loaded;
    loaded.ReadPayload(archive, typeByte);
    value = std::move(loaded);
    QAnyValue::LimitDoubleAlways(value, u"QAnyValue ar>>value");
    return archive;
}

void QAnyValue::ReadPayload(CArchive& archive, std::uint8_t typeByte) {
    if (typeByte == kErrorByte || typeByte == kNotAvailableByte) {
        m_type = static_cast<TYPE>(typeByte);
        return;
    }
    if (typeByte > TYPE_COLOR)
        ThrowArchiveException(CArchiveException::badClass, archive.GetFileName());
    SetType(static_cast<TYPE>(typeByte));
    switch (m_type) {
    case TYPE_STRING:
        archive >> m_object.m_string;
        break;
    case TYPE_BOOL: {
        std::int32_t stored = 0;
        archive >> stored;
        m_scalar.m_bool = stored != 0;
        break;
    }
    case TYPE_INT: {
        std::int32_t stored = 0;
        archive >> stored;
        m_scalar.m_int = stored;
        break;
    }
    case TYPE_DOUBLE:
        archive >> m_scalar.m_double;
        break;
    case TYPE_MONEY:
        archive >> m_object.m_money;
        break;
    case TYPE_TIME:
        archive >> m_object.m_time;
        break;
    case TYPE_LENGTH:
        archive >> m_object.m_length;
        break;
    case TYPE_AREA:
        archive >> m_object.m_area;
        break;
    case TYPE_ANGLE:
        archive >> m_object.m_angle;
        break;
    case TYPE_ARRAY:
        m_object.m_pArray->Serialize(archive);
        break;
    case TYPE_LOOKUPTABLE:
        m_object.m_table = TableSourceFor(archive).CreateEmpty();
        m_object.m_table->Serialize(archive);
        break;
    case TYPE_DATETIME:
        archive >> m_object.m_date;
        break;
    case TYPE_VOLUME:
        archive >> m_object.m_volume;
        break;
    case TYPE_COLOR:
        archive >> m_scalar.m_color;
        break;
    default:
        break;
    }
}

bool QAnyValue::LimitDoubleAlways(QAnyValue& value, const CString& where) {
    switch (value.m_type) {
    case TYPE_DOUBLE:
        return keel::LimitDoubleAlways(value.m_scalar.m_double, where);
    case TYPE_LENGTH:
        return QLength::LimitDoubleAlways(value.m_object.m_length, where);
    case TYPE_AREA:
        return QArea::LimitDoubleAlways(value.m_object.m_area, where);
    case TYPE_VOLUME:
        return QVolume::LimitDoubleAlways(value.m_object.m_volume, where);
    case TYPE_RATE: {
        const bool numerator = LimitDoubleAlways(value.m_scalar.m_pRate->Num(), where);
        const bool denominator = LimitDoubleAlways(value.m_scalar.m_pRate->Den(), where);
        return numerator || denominator;
    }
    default:
        return false;
    }
}

} // namespace keel
