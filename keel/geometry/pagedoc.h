#pragma once

#include "keel/geometry/devicecontext.h"
#include "keel/geometry/tpoint.h"
#include "keel/geometry/tpoly.h"
#include "keel/platform/archive.h"
#include "keel/platform/reentrancy.h"

#include <memory>
#include <vector>

namespace keel {

using QPagePoint = TPoint<QLength, c_pageSpace>;
using QPageVector = TVector<QLength, c_pageSpace>;
using QPageRect = TRect<QLength, c_pageSpace>;
using QWorldPoint = TPoint<QLength, c_worldSpace>;
using QWorldVector = TVector<QLength, c_worldSpace>;
using QWorldRect = TRect<QLength, c_worldSpace>;
using QHimetricVector = TVector<int, c_himetricSpace>;

// Logical units of a page length, hundredths of a millimetre rounded half up: floor(v/0.01+0.5),
// held at the ends of int.
int LogicalUnits(const QLength& page);

// Whatever shows a page and must follow a change of its size: each scrolling view of it.
class IPageSizeFollower {
public:
    virtual ~IPageSizeFollower() = default;
    virtual void SetPageSize(const QPageVector& size, bool redraw) = 0;
};

// The printer a page size is asked of. A desktop front end installs the default printer; without
// one there is none, and page sizes stay as they are.
class IPrinter {
public:
    virtual ~IPrinter() = default;
    // The file name of the printer's driver, "PSCRIPT5.DLL" for the PostScript driver.
    virtual CString DriverName() const = 0;
    // Its version as dotted numbers, "0.3.1296.1".
    virtual CString DriverVersion() const = 0;
    // A context of the printer, which measures its page; null when it cannot be made.
    virtual std::unique_ptr<QDeviceContext> CreateDC() = 0;
};

void SetDefaultPrinter(IPrinter* printer);
IPrinter* DefaultPrinter();

// Whether a dotted version is at least another, number by number.
bool IsVersionAtLeast(const CString& version, const CString& least);

// The page of a drawing: its size on paper and the scale of world units to page units, so that a
// scale of 50 draws 1:50. The document's own header is written by the document before this
// page header.
class QPageDoc {
public:
    // The tags of the page header.
    static constexpr std::uint8_t c_endTag = 0;
    static constexpr std::uint8_t c_scaleTag = 1;
    static constexpr std::uint8_t c_pageSizeTag = 2;
    // Files without a page size get the standard size below this scale, the other size from it.
    static constexpr int c_standardSizeScaleLimit = 25;

    // Takes the manual page size and the default scale that goes with it.
    QPageDoc();
    virtual ~QPageDoc() = default;
    QPageDoc(const QPageDoc&) = delete;
    QPageDoc& operator=(const QPageDoc&) = delete;

    int GetScale() const { return m_scale; }
    virtual void SetScaleAndComputePageSize(int scale);
    const QPageVector& GetPageSize() const { return m_pageSize; }
    // Hundredths of a millimetre, rounded half up.
    QHimetricVector GetHIMETRICSize() const;

    QPageVector WorldToPage(const QWorldVector& world) const;
    QWorldVector PageToWorld(const QPageVector& page) const;
    QPagePoint WorldToPage(const QWorldPoint& world) const;
    QWorldPoint PageToWorld(const QPagePoint& page) const;
    QPageRect WorldToPage(const QWorldRect& world) const;
    QWorldRect PageToWorld(const QPageRect& page) const;
    void WorldToPage(const QWorldPoly& world, QPagePoly& page) const;
    void PageToWorld(const QPagePoly& page, QWorldPoly& world) const;

    QPageRect GetPageRect() const;
    QWorldRect GetWorldRect() const;

    // Measures the page of `dc`, or of the printer when `dc` is null, unless a manual size is set
    // (`forcePrinter` asks the printer all the same). Without `keepScale` and a manual size the
    // scale follows the size, so that a drawing keeps its size on the page. Gives false when it
    // is called from within itself.
    virtual bool ComputePageSize(QDeviceContext* dc, bool forcePrinter, bool keepScale);

    // Writes tag 1 with the scale, tag 2 with the page size and tag 0. Reads tags until 0: a
    // scale that is not positive is ignored, an unknown tag fails the archive with cause 4, and
    // without tag 2 the page takes the fallback size for its scale.
    virtual void SerializeHeader(CArchive& archive);

    void AddFollower(IPageSizeFollower* follower);
    void RemoveFollower(IPageSizeFollower* follower);

    // The size forced by the person; zero means ask the printer.
    static const QPageVector& ManualPageSize() { return c_pvManualPageSize; }
    static void SetManualPageSize(const QPageVector& size) { c_pvManualPageSize = size; }
    static void SetManualPageSizeA4();
    static bool IsManualPageSizeA4();
    static bool IsAlwaysAskForPageSize() { return c_bAlwaysAskForPageSize; }
    static void SetAlwaysAskForPageSize(bool ask) { c_bAlwaysAskForPageSize = ask; }
    // The sizes a file without a size takes; the application's, zero unless set.
    static void SetFallbackPageSizes(const QPageVector& standard, const QPageVector& other);
    static QPageVector FallbackPageSize(int scale);
    // 5 times the whole number nearest to 6 times 210 over the smaller side (210 for a side near
    // zero): 30 for A4.
    static int DefaultScaleFor(const QPageVector& size);

protected:
    // Runs when the scale becomes another value.
    virtual void ScaleChanged(int /*oldScale*/) {}

private:
    void SetScale(int scale);
    void SetPageSize(const QPageVector& size) { m_pageSize = size; }
    // The page size of the printer, or nothing when it is not asked or cannot answer.
    bool AskPrinterForSize(QDeviceContext* dc, QPageVector& size);
    bool MayAskPostScriptDriver(const IPrinter& printer);
    void StoreHeader(CArchive& archive) const;
    void LoadHeader(CArchive& archive);

    QPageVector m_pageSize;
    int m_scale = 1;
    std::vector<IPageSizeFollower*> m_followers;

    static inline QPageVector c_pvManualPageSize;
    static inline bool c_bAlwaysAskForPageSize = false;
    static inline QPageVector c_standardPageSize;
    static inline QPageVector c_otherPageSize;
    static inline QReentrancyCounter c_computePageSizeCounter;
};

} // namespace keel
