#pragma once

#include "keel/exchange/exportformatascii.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importattribute.h"
#include "keel/exchange/importexport.h"
#include "keel/exchange/importformatlevel.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace keel::test {

// A bag of named values of any type that writes into its owner's level, as properties do: each
// value keeps its type, and on import it takes every attribute that nobody else took.
class FakeBag : public QImportableExportable {
public:
    struct Entry {
        CString name;
        QAnyValue value;
        FormulaText formula;
    };

    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override {
        bool ok = true;
        for (const Entry& entry : entries)
            ok = level.AddExportableAttribute(
                     QVariableTypeExportAttribute(entry.name, entry.value, entry.formula)) &&
                 ok;
        return ok;
    }
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        return level.ImportUnmatchedAttributes(
            [this](const CString& name, const QAnyValue& value, FormulaText formula) {
                entries.push_back({name, value, formula});
                return true;
            });
    }

    std::vector<Entry> entries;
};

// An item of a group: a level identified by its number alone.
class FakeItem : public QNewLevelImportableExportable {
public:
    explicit FakeItem(int number = 0) : number(number) {}

    CString GetImportExportLevelName() const override { return u"Item"; }
    CString GetImportableExportableIdentifier() const override {
        return CString::FromUtf8(std::to_string(number));
    }
    int GetAsciiContextStyle() const override { return 2; }

    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override {
        bool ok = level.AddExportableAttribute(QExportAttribute(u"label", QAnyValue(label)));
        ok = level.AddExportableAttribute(
                 QExportAttribute(u"count", QAnyValue(count), QAnyValue(0))) &&
             ok;
        return ok;
    }
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        bool ok = level.ImportAttributeIfPresent(QByValImportAttribute<CString>(u"label", label));
        ok = level.ImportAttributeIfPresent(QByValImportAttribute<int>(u"count", count)) && ok;
        return ok;
    }

    int number;
    CString label;
    int count = 0;
};

// A named group with a width that may come from a formula, a count of shelves, an array of
// sizes and numbered items; given a bag of extras, it also keeps every attribute that nobody
// else took. Its XML attributes are written in the style asked for.
class FakeGroup : public QNewLevelImportableExportable {
public:
    explicit FakeGroup(const CString& name = CString()) : name(name) {}

    CString GetImportExportLevelName() const override { return u"Group"; }
    CString GetImportableExportableIdentifier() const override { return name; }
    int GetAsciiContextStyle() const override { return 3; }
    int GetXMLAttributeStyle() const override { return xmlStyle; }

    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override {
        bool ok = level.AddExportableAttribute(
            QExportAttribute(u"width", width, widthFormula, QAnyValue(0.0)));
        ok = level.AddExportableAttribute(
                 QExportAttribute(u"shelves", QAnyValue(shelves), QAnyValue(1))) &&
             ok;
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            level.SetArrayMode(true, static_cast<std::int32_t>(i));
            ok = level.AddExportableAttribute(
                     QExportAttribute(u"size", QAnyValue(sizes[i]), QAnyValue(0))) &&
                 ok;
        }
        level.SetArrayMode(false);
        for (const auto& item : items)
            ok = level.AddExportable(item.get(), false) && ok;
        return level.AddExportable(extras.get(), false) && ok;
    }
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        QAnyValue widthValue = width;
        bool ok = level.ImportAttributeIfPresent(
            QByValImportAttribute<QAnyValue>(u"width", widthValue, &widthFormula));
        width = widthValue;
        ok = level.ImportAttributeIfPresent(QByValImportAttribute<int>(u"shelves", shelves)) && ok;
        ok = ImportSizes(level) && ok;
        for (const auto& item : items)
            ok = level.MergeImportableIfPresent(item.get()) && ok;
        ok = ImportNewItems(level) && ok;
        return level.MergeImportableIfPresent(extras.get()) && ok;
    }

    CString name;
    QAnyValue width = QAnyValue(0.0);
    FormulaText widthFormula;
    int shelves = 1;
    std::vector<int> sizes;
    std::vector<std::unique_ptr<FakeItem>> items;
    int xmlStyle = 0;
    std::unique_ptr<FakeBag> extras;

private:
    static constexpr int c_absent = -1;
    static constexpr int c_mostSizes = 64;

    // The sizes that the file holds, "size[0]" onwards, up to the first one that it lacks.
    bool ImportSizes(QImportFormatLevel& level) {
        bool ok = true;
        sizes.clear();
        for (int i = 0; i < c_mostSizes; ++i) {
            int size = c_absent;
            level.SetArrayMode(true, i);
            ok = level.ImportAttributeIfPresent(QByValImportAttribute<int>(u"size", size)) && ok;
            if (size == c_absent)
                break;
            sizes.push_back(size);
        }
        level.SetArrayMode(false);
        return ok;
    }

    // Items that the file has and this group has not, each made at the end and numbered after
    // the last; an item that takes nothing ends the search.
    bool ImportNewItems(QImportFormatLevel& level) {
        bool ok = true;
        FakeItem probe;
        CString levelName;
        CString identifier;
        while (level.MatchesRequiredImportable(&probe, levelName, identifier)) {
            auto item = std::make_unique<FakeItem>(items.empty() ? 1 : items.back()->number + 1);
            ok = SetupNewChildImportable(item.get(), levelName, identifier) && ok;
            ok = level.MergeImportableIfPresent(item.get()) && ok;
            if (item->label.IsEmpty() && item->count == 0)
                return false;
            items.push_back(std::move(item));
        }
        return ok;
    }
};

// The root: a title, a bag of values of any type and named groups.
class FakeTree : public QImportableExportable {
public:
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override {
        bool ok = level.AddExportableAttribute(
            QExportAttribute(u"title", QAnyValue(title), QAnyValue(CString())));
        ok = level.AddExportable(&bag, false) && ok;
        for (const auto& group : groups)
            ok = level.AddExportable(group.get(), false) && ok;
        return ok;
    }
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        bool ok = level.ImportAttributeIfPresent(QByValImportAttribute<CString>(u"title", title));
        for (const auto& group : groups)
            ok = level.MergeImportableIfPresent(group.get()) && ok;
        FakeGroup probe;
        CString levelName;
        CString identifier;
        CString previous;
        while (level.MatchesRequiredImportable(&probe, levelName, identifier) &&
               identifier != previous) {
            previous = identifier;
            auto group = std::make_unique<FakeGroup>(identifier);
            group->xmlStyle = newGroupXmlStyle;
            ok = SetupNewChildImportable(group.get(), levelName, identifier) && ok;
            ok = level.MergeImportableIfPresent(group.get()) && ok;
            groups.push_back(std::move(group));
        }
        return level.MergeImportableIfPresent(&bag) && ok;
    }
    bool DeleteContentsPreImport(QSmartPtr<QExportSelection> selection) override {
        deleteCalls.push_back(selection ? selection->GetCount() : -1);
        if (refuseDelete)
            return false;
        if (!selection) {
            title = CString();
            bag.entries.clear();
            groups.clear();
        }
        return true;
    }

    FakeGroup& AddGroup(const CString& name) {
        groups.push_back(std::make_unique<FakeGroup>(name));
        return *groups.back();
    }

    CString title;
    FakeBag bag;
    std::vector<std::unique_ptr<FakeGroup>> groups;
    bool refuseDelete = false;
    // The XML style of the groups made for what the file holds (the XML fuzzer sets it).
    int newGroupXmlStyle = 0;
    // The selection's size for each call, -1 without one.
    std::vector<int> deleteCalls;
};

// The tab lines that an export of the object gathers, one after another.
inline CString GatheredLines(const QExportable& object, bool minimal = false) {
    QExportFormatASCII format(object, minimal, nullptr);
    format.GatherLines();
    CString all;
    for (const CString& line : format.GatheredLines())
        all += line;
    return all;
}

// A tree with something of every kind: defaults and changed values, a formula, an array, a
// bag of typed values and numbered items.
inline void PopulateSampleTree(FakeTree& tree) {
    tree.title = u"Kitchen\tplan";
    tree.bag.entries.push_back({u"Depth", QAnyValue(600.5), FormulaText()});
    tree.bag.entries.push_back({u"Finish", QAnyValue(u"oak \"light\""), FormulaText()});
    tree.bag.entries.push_back({u"Doors", QAnyValue(2), FormulaText(u"1+1")});
    FakeGroup& base = tree.AddGroup(u"Base");
    base.width = QAnyValue(QLength(1200.0));
    base.sizes = {0, 300};
    base.items.push_back(std::make_unique<FakeItem>(1));
    base.items.back()->label = u"sink";
    base.items.back()->count = 2;
    base.items.push_back(std::make_unique<FakeItem>(2));
    base.items.back()->label = u"=drawer";
    FakeGroup& wall = tree.AddGroup(u"Wall");
    wall.width = QAnyValue(0.0);
    wall.widthFormula = FormulaText(u"2*300mm");
    wall.shelves = 0;
}

} // namespace keel::test
