#include "keel/formula/builtins.h"

namespace keel {

namespace {

const char16_t* const c_fieldSeparator = u"|";

bool ResultText(QBuiltinCall& call, const CString& text) {
    call.result = text;
    return true;
}

// A position counted from 1 becomes an offset counted from 0, never before the start.
int OffsetOf(int position) {
    return position < 1 ? 0 : position - 1;
}

bool Char(QBuiltinCall& call) {
    int code = 0;
    if (call.Get(0, code))
        ResultText(call, CString(static_cast<char16_t>(code)));
    return true;
}

// A code above 127 is read as a byte, as the single-byte text this function was made for was.
bool Code(QBuiltinCall& call) {
    CString text;
    if (!call.Get(0, text))
        return true;
    const int code = text.IsEmpty() ? 0 : text[0];
    call.result = code > 127 ? code & 0xFF : code;
    return true;
}

bool Len(QBuiltinCall& call) {
    CString text;
    if (call.Get(0, text))
        call.result = text.GetLength();
    return true;
}

bool Lower(QBuiltinCall& call) {
    CString text;
    if (call.Get(0, text))
        ResultText(call, text.MakeLower());
    return true;
}

bool Upper(QBuiltinCall& call) {
    CString text;
    if (call.Get(0, text))
        ResultText(call, text.MakeUpper());
    return true;
}

bool LowerNoCvt(QBuiltinCall& call) {
    call.result = call.args[0].LOWERNOCVT();
    return true;
}

bool UpperNoCvt(QBuiltinCall& call) {
    call.result = call.args[0].UPPERNOCVT();
    return true;
}

enum class TrimEnd { Left, Right, Both };

// White space, or with a second value every character of that set.
bool TrimText(QBuiltinCall& call, TrimEnd end) {
    CString text;
    CString set;
    if (!call.Get(0, text) || (call.Count() == 2 && !call.Get(1, set)))
        return true;
    if (call.Count() == 1) {
        if (end != TrimEnd::Right)
            text.TrimLeft();
        if (end != TrimEnd::Left)
            text.TrimRight();
    } else {
        if (end != TrimEnd::Right)
            text.TrimLeft(set.GetString());
        if (end != TrimEnd::Left)
            text.TrimRight(set.GetString());
    }
    return ResultText(call, text);
}

bool LTrim(QBuiltinCall& call) {
    return TrimText(call, TrimEnd::Left);
}

bool RTrim(QBuiltinCall& call) {
    return TrimText(call, TrimEnd::Right);
}

bool Trim(QBuiltinCall& call) {
    return TrimText(call, TrimEnd::Both);
}

bool Left(QBuiltinCall& call) {
    if (call.Count() == 1)
        return CallWithDefault(call, QAnyValue(1));
    CString text;
    int count = 0;
    if (call.Get(0, text) && call.Get(1, count))
        ResultText(call, text.Left(count));
    return true;
}

bool Right(QBuiltinCall& call) {
    if (call.Count() == 1)
        return CallWithDefault(call, QAnyValue(1));
    CString text;
    int count = 0;
    if (call.Get(0, text) && call.Get(1, count))
        ResultText(call, text.Right(count));
    return true;
}

bool Mid(QBuiltinCall& call) {
    CString text;
    int first = 0;
    int count = 0;
    if (!call.Get(0, text) || !call.Get(1, first))
        return true;
    if (call.Count() == 2)
        return ResultText(call, text.Mid(OffsetOf(first)));
    if (call.Get(2, count))
        ResultText(call, text.Mid(OffsetOf(first), count));
    return true;
}

bool Rept(QBuiltinCall& call) {
    CString text;
    int times = 0;
    if (!call.Get(0, text) || !call.Get(1, times))
        return true;
    CString repeated;
    for (int i = 0; i < times; ++i)
        repeated += text;
    return ResultText(call, repeated);
}

bool Exact(QBuiltinCall& call) {
    CString a;
    CString b;
    if (call.Get(0, a) && call.Get(1, b))
        call.result = a.Compare(b) == 0;
    return true;
}

// find, search and findoneof: the position from 1 of what is sought in the text, looking from
// position `from` on, 0 when it is not there; with two values `from` is 1.
template <int (*Position)(CString what, CString text, int offset)>
bool Search(QBuiltinCall& call) {
    if (call.Count() == 2)
        return CallWithDefault(call, QAnyValue(1));
    CString what;
    CString text;
    int from = 1;
    if (call.Get(0, what) && call.Get(1, text) && call.Get(2, from))
        call.result = Position(what, text, OffsetOf(from));
    return true;
}

// Both texts have their line ends made single carriage returns first.
int FindPosition(CString what, CString text, int offset) {
    what.Replace(u"\r\n", u"\r");
    text.Replace(u"\r\n", u"\r");
    return text.Find(what, offset) + 1;
}

int SearchPosition(CString what, CString text, int offset) {
    return text.MakeLower().Find(what.MakeLower(), offset) + 1;
}

int FindOneOfPosition(CString set, CString text, int offset) {
    const int found = text.Mid(offset).FindOneOf(set.GetString());
    return found < 0 ? 0 : offset + found + 1;
}

bool Replace(QBuiltinCall& call) {
    CString text;
    int first = 0;
    int count = 0;
    CString replacement;
    if (!call.Get(0, text) || !call.Get(1, first) || !call.Get(2, count) ||
        !call.Get(3, replacement))
        return true;
    const int offset = OffsetOf(first);
    const int removed = count < 0 ? 0 : count;
    return ResultText(call, text.Left(offset) + replacement + text.Mid(offset + removed));
}

// Every occurrence, or only the one counted by `which` from 1.
bool Substitute(QBuiltinCall& call) {
    if (call.Count() == 3)
        return CallWithDefault(call, QAnyValue(0));
    CString text;
    CString old;
    CString replacement;
    int which = 0;
    if (!call.Get(0, text) || !call.Get(1, old) || !call.Get(2, replacement) || !call.Get(3, which))
        return true;
    if (old.IsEmpty())
        return ResultText(call, text);
    if (which <= 0) {
        text.Replace(old, replacement);
        return ResultText(call, text);
    }
    int offset = text.Find(old);
    for (int occurrence = 1; offset >= 0 && occurrence < which; ++occurrence)
        offset = text.Find(old, offset + old.GetLength());
    if (offset >= 0)
        text = text.Left(offset) + replacement + text.Mid(offset + old.GetLength());
    return ResultText(call, text);
}

// The fields of a text between separators; an empty text has none.
QArray<QAnyValue> FieldsOf(const CString& text, const CString& separator) {
    QArray<QAnyValue> fields;
    if (text.IsEmpty())
        return fields;
    if (separator.IsEmpty()) {
        fields.Add(QAnyValue(text));
        return fields;
    }
    int start = 0;
    for (int end = text.Find(separator); end >= 0; end = text.Find(separator, start)) {
        fields.Add(QAnyValue(text.Mid(start, end - start)));
        start = end + separator.GetLength();
    }
    fields.Add(QAnyValue(text.Mid(start)));
    return fields;
}

// field, fieldcount and stringtoarray: the separator is the last value, a vertical bar when it
// is not given.
template <std::size_t SeparatorAt, void (*Use)(QBuiltinCall&, const QArray<QAnyValue>&)>
bool OverFields(QBuiltinCall& call) {
    if (call.Count() == SeparatorAt)
        return CallWithDefault(call, QAnyValue(c_fieldSeparator));
    CString text;
    CString separator;
    if (call.Get(0, text) && call.Get(SeparatorAt, separator))
        Use(call, FieldsOf(text, separator));
    return true;
}

// A field that is not there is the empty text.
void FieldAt(QBuiltinCall& call, const QArray<QAnyValue>& fields) {
    int position = 0;
    if (!call.Get(1, position))
        return;
    if (position < 1 || position > fields.GetSize())
        call.result = CString();
    else
        call.result = fields[position - 1];
}

void CountFields(QBuiltinCall& call, const QArray<QAnyValue>& fields) {
    call.result = fields.GetSize();
}

void ArrayOfFields(QBuiltinCall& call, const QArray<QAnyValue>& fields) {
    call.result = QAnyValue(fields);
}

// The texts of the elements joined; with one value the separator is empty.
bool ArrayToString(QBuiltinCall& call) {
    if (call.Count() == 1)
        return CallWithDefault(call, QAnyValue(CString()));
    CString separator;
    if (TakeErrorArgument(call) || !call.Get(1, separator))
        return true;
    QAnyValue elements = call.args[0];
    CString joined;
    bool first = true;
    for (QAnyValue& element : elements.MakeArray()) {
        if (!first)
            joined += separator;
        joined += element.MakeCString();
        first = false;
    }
    return ResultText(call, joined);
}

// The standard forms 0 to 3: the date and time, the long date, the date, the time.
const char16_t* const c_standardDateFormats[] = {u"%c", u"%#x", u"%x", u"%X"};

// A whole number of 0 to 3 picks a standard form; anything else is the format text.
bool Format(QBuiltinCall& call) {
    QDateTime date;
    CString format;
    if (!call.Get(0, date) || !call.Get(1, format))
        return true;
    const QAnyValue& form = call.args[1];
    if (form.IsInt()) {
        const int number = QAnyValue(form).MakeInt();
        if (number >= 0 && number <= 3)
            format = c_standardDateFormats[number];
    }
    return ResultText(call, date.Format(format));
}

constexpr QBuiltinFunction c_functions[] = {
    {u"char", 1, 1, u"n", false, ServeAlways<Char>},
    {u"chr", 1, 1, u"n", false, ServeAlways<Char>},
    {u"code", 1, 1, u"s", false, ServeAlways<Code>},
    {u"asc", 1, 1, u"s", false, ServeAlways<Code>},
    {u"len", 1, 1, u"s", false, ServeAlways<Len>},
    {u"lower", 1, 1, u"s", false, ServeAlways<Lower>},
    {u"lcase", 1, 1, u"s", false, ServeAlways<Lower>},
    {u"upper", 1, 1, u"s", false, ServeAlways<Upper>},
    {u"ucase", 1, 1, u"s", false, ServeAlways<Upper>},
    {u"lowernocvt", 1, 1, u"v", false, ServeAlways<LowerNoCvt>},
    {u"uppernocvt", 1, 1, u"v", false, ServeAlways<UpperNoCvt>},
    {u"ltrim", 1, 2, u"s [, set]", false, ServeAlways<LTrim>},
    {u"rtrim", 1, 2, u"s [, set]", false, ServeAlways<RTrim>},
    {u"trim", 1, 2, u"s [, set]", false, ServeAlways<Trim>},
    {u"left", 1, 2, u"s [, n]", false, ServeAlways<Left>},
    {u"right", 1, 2, u"s [, n]", false, ServeAlways<Right>},
    {u"mid", 2, 3, u"s, i [, n]", false, ServeAlways<Mid>},
    {u"rept", 2, 2, u"s, n", false, ServeAlways<Rept>},
    {u"exact", 2, 2, u"a, b", false, ServeAlways<Exact>},
    {u"find", 2, 3, u"what, s [, from]", false, ServeAlways<Search<FindPosition>>},
    {u"instr", 2, 3, u"what, s [, from]", false, ServeAlways<Search<FindPosition>>},
    {u"search", 2, 3, u"what, s [, from]", false, ServeAlways<Search<SearchPosition>>},
    {u"findoneof", 2, 3, u"set, s [, from]", false, ServeAlways<Search<FindOneOfPosition>>},
    {u"replace", 4, 4, u"s, i, n, new", false, ServeAlways<Replace>},
    {u"substitute", 3, 4, u"s, old, new [, which]", false, ServeAlways<Substitute>},
    {u"field", 2, 3, u"s, n [, sep]", false, ServeAlways<OverFields<2, FieldAt>>},
    {u"fieldcount", 1, 2, u"s [, sep]", false, ServeAlways<OverFields<1, CountFields>>},
    {u"stringtoarray", 1, 2, u"s [, sep]", false, ServeAlways<OverFields<1, ArrayOfFields>>},
    {u"arraytostring", 1, 2, u"a [, sep]", false, ServeAlways<ArrayToString>},
    {u"format", 2, 2, u"v, f", false, ServeAlways<Format>},
};

} // namespace

const QBuiltinGroup& StringFunctions() {
    static const QBuiltinGroup group{u"Strings", c_functions};
    return group;
}

} // namespace keel
