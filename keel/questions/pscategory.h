#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/array.h"
#include "keel/values/smartptr.h"

namespace keel {

// The class of a page that a property sheet builds. A question page shows the tab of its index
// in the group on show; the default page stands in for a category that has no other page.
struct QPropPageClass {
    static constexpr int c_defaultPage = -1;

    int tabIndex = c_defaultPage;

    static constexpr QPropPageClass QuestionPage(int tabIndex) { return {tabIndex}; }
    bool IsDefaultPropPage() const { return tabIndex == c_defaultPage; }
    friend bool operator==(const QPropPageClass&, const QPropPageClass&) = default;
};

inline constexpr QPropPageClass QDefaultPropPage{};

// A category of a property sheet: a name, whether it shows question pages, and the classes of
// its pages in the order they are shown.
class QPSCategory : public QSmartTarget {
public:
    explicit QPSCategory(const CString& name = CString(), bool friendly = false)
        : m_name(name), m_friendly(friendly) {}

    const CString& GetName() const { return m_name; }
    void SetName(const CString& name) { m_name = name; }
    bool IsFriendly() const { return m_friendly; }
    const QArray<QPropPageClass>& GetPages() const { return m_pages; }
    void AddPage(QPropPageClass page) { m_pages.Add(page); }

private:
    CString m_name;
    bool m_friendly;
    QArray<QPropPageClass> m_pages;
};

using QPSCategoryPtr = QSmartPtr<QPSCategory>;
using QPSCategoryArray = QArray<QPSCategoryPtr>;

} // namespace keel
