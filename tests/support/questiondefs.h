#pragma once

#include "keel/questions/propdeftabgroupset.h"

#include <initializer_list>
#include <string>

namespace keel::test {

// A definition of the property `name` with its question.
inline QPropDef Def(const char* name, const char* question = "") {
    QPropDef def;
    def.SetName(ControlId(name));
    def.SetQuestion(CString(question));
    return def;
}

// A tab holding one definition a name, each asking its own name.
inline QPropDefTab Tab(const char* name, std::initializer_list<const char*> defs = {}) {
    QPropDefTab tab{CString(name)};
    for (const char* def : defs) {
        const QPropDef made = Def(def, def);
        tab.Add(&made);
    }
    return tab;
}

// A group holding copies of the tabs.
inline QPropDefTabGroup Group(const char* name, std::initializer_list<QPropDefTab> tabs = {}) {
    QPropDefTabGroup group{CString(name)};
    for (const QPropDefTab& tab : tabs)
        group.Add(&tab);
    return group;
}

// A set holding copies of the groups.
inline QPropDefTabGroupSet Set(std::initializer_list<QPropDefTabGroup> groups) {
    QPropDefTabGroupSet set;
    for (const QPropDefTabGroup& group : groups)
        set.Add(&group);
    return set;
}

// An array of the texts, as values and names to substitute are given.
inline QArray<CString> Strings(std::initializer_list<const char*> texts) {
    QArray<CString> array;
    for (const char* text : texts)
        array.Add(CString(text));
    return array;
}

// The names of the group's tabs, joined by commas.
inline std::string TabNames(const QPropDefTabGroup& group) {
    std::string names;
    for (int i = 0; i < group.GetCount(); ++i)
        names += (i ? "," : "") + group.GetAt(i)->Name().ToUtf8();
    return names;
}

} // namespace keel::test
