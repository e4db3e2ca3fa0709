#include "keel/formula/evaluatingdata.h"

#include "keel/formula/evaluator.h"
#include "keel/formula/stringtovalue.h"
#include "keel/values/map.h"

#include <array>
#include <memory>

namespace keel {

namespace {

thread_local int t_dataDepth = 0;

constexpr std::array c_refusedFunctions{
    // Programs and databases.
    u"shell",
    u"shellwait",
    u"dblookup",
    u"dblookuprow",
    u"dblookupcol",
    u"dblookuprowvalues",
    u"dblookupcolvalues",
    u"dblookupcollabels",
    u"dbexecute",
    // Files written.
    u"writeline",
    u"appendline",
    u"readandincrement",
    // Names of a context, and tables shared by the whole process.
    u"setvalue",
    u"setvaluetimed",
    u"setformula",
    u"setarrayvalue",
    u"vardelete",
    u"addrow",
    u"removerow",
    u"removerowbyindex",
    u"addcol",
    u"removecol",
    u"removecolbyindex",
    // Boxes, dialogs, editors and pages; debug shows a box for each step.
    u"msgbox",
    u"alert",
    u"confirm",
    u"edittext",
    u"msgboxlog",
    u"debug",
    u"pickcolor",
    u"browsefile",
    u"browseimage",
    u"browsemodel",
    u"browsedxf",
    u"showpage",
    u"showfriendlypages",
    u"showfriendlywizard",
    u"formeditor",
    u"tableeditor",
    // A formula run from a text shows its failure in a box.
    u"indirect",
    u"val",
    u"eval",
    // Served by applications: exports, saves, catalogues, previews and system actions.
    u"exportvalues",
    u"export",
    u"exportdata",
    u"exportdatamin",
    u"exportdoc3d",
    u"exportitem3d",
    u"savedrawing",
    u"writehostdxf",
    u"report",
    u"merge",
    u"addtocatalog",
    u"addtolibrary",
    u"previewcurrent",
    u"previewdonorfaceshadows",
    u"previewelevation",
    u"previewhilite",
    u"previewmachining",
    u"previewshowmachining",
    u"previewtype",
    u"_systemaction",
    u"_oneditchange",
    u"_onopenpage",
    u"_updateprops",
};

const QMap<FullId, bool>& RefusedMap() {
    static const QMap<FullId, bool> refused = [] {
        QMap<FullId, bool> map;
        map.InitHashTable(127);
        for (const char16_t* name : c_refusedFunctions)
            map[FullId(name)] = true;
        return map;
    }();
    return refused;
}

} // namespace

QEvaluatingData::QEvaluatingData() {
    ++t_dataDepth;
}

QEvaluatingData::~QEvaluatingData() {
    --t_dataDepth;
}

bool QEvaluatingData::InForce() {
    return t_dataDepth > 0;
}

bool QEvaluatingData::Refuses(FullId function) {
    return RefusedMap().PLookup(function) != nullptr;
}

std::span<const char16_t* const> QEvaluatingData::RefusedFunctions() {
    return c_refusedFunctions;
}

QAnyValue QEvaluatingData::Evaluate(const CString& text) {
    const QEvaluatingData guard;
    QAnyValue result;
    std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, FormulaTextAsSpelled(text), nullptr, false, false, false));
    evaluator->Evaluate();
    return result;
}

} // namespace keel
