#include "keel/geometry/pagedoc.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/platform/muldiv.h"
#include "keel/platform/registry.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <sstream>

namespace keel {

namespace {

IPrinter* g_printer = nullptr;

constexpr double c_a4Width = 210;
constexpr double c_a4Height = 297;

std::vector<long> VersionNumbers(const CString& version) {
    std::vector<long> numbers;
    std::istringstream in(version.ToUtf8());
    std::string part;
    while (std::getline(in, part, '.'))
        numbers.push_back(std::strtol(part.c_str(), nullptr, 10));
    return numbers;
}

bool IsZero(const QPageVector& size) {
    return size.IsNearZero();
}

QLength SmallerSide(const QPageVector& size) {
    return std::min(size.x, size.y);
}

} // namespace

int LogicalUnits(const QLength& page) {
    const double units = std::floor(page.GetRaw() / 0.01 + 0.5);
    if (std::isnan(units))
        return 0;
    return static_cast<int>(
        std::clamp(units, static_cast<double>(INT_MIN), static_cast<double>(INT_MAX)));
}

void SetDefaultPrinter(IPrinter* printer) {
    g_printer = printer;
}

IPrinter* DefaultPrinter() {
    return g_printer;
}

bool IsVersionAtLeast(const CString& version, const CString& least) {
    const std::vector<long> have = VersionNumbers(version);
    const std::vector<long> want = VersionNumbers(least);
    for (std::size_t i = 0; i < want.size(); ++i) {
        const long part = i < have.size() ? have[i] : 0;
        if (part != want[i])
            return part > want[i];
    }
    return true;
}

QPageDoc::QPageDoc() : m_pageSize(c_pvManualPageSize) {
    SetScale(DefaultScaleFor(m_pageSize));
}

int QPageDoc::DefaultScaleFor(const QPageVector& size) {
    double smaller = SmallerSide(size).GetRaw();
    if (tolerance::NearZero(smaller) || !std::isfinite(smaller))
        smaller = c_a4Width;
    const double steps = std::floor(c_a4Width / smaller * 6 + 0.5);
    return static_cast<int>(std::clamp(steps, 1.0, 1e8)) * 5;
}

void QPageDoc::SetScale(int scale) {
    if (scale == m_scale)
        return;
    const int old = m_scale;
    m_scale = scale;
    ScaleChanged(old);
}

void QPageDoc::SetScaleAndComputePageSize(int scale) {
    if (scale <= 0)
        ThrowInvalidArgument("scale " + std::to_string(scale) + " is not positive");
    SetScale(scale);
    ComputePageSize(nullptr, false, true);
}

QHimetricVector QPageDoc::GetHIMETRICSize() const {
    return {LogicalUnits(m_pageSize.x), LogicalUnits(m_pageSize.y)};
}

QPageVector QPageDoc::WorldToPage(const QWorldVector& world) const {
    return {world.x / m_scale, world.y / m_scale};
}

QWorldVector QPageDoc::PageToWorld(const QPageVector& page) const {
    return {page.x * m_scale, page.y * m_scale};
}

QPagePoint QPageDoc::WorldToPage(const QWorldPoint& world) const {
    return {world.x / m_scale, world.y / m_scale};
}

QWorldPoint QPageDoc::PageToWorld(const QPagePoint& page) const {
    return {page.x * m_scale, page.y * m_scale};
}

QPageRect QPageDoc::WorldToPage(const QWorldRect& world) const {
    return {WorldToPage(world.TopLeft()), WorldToPage(world.BottomRight())};
}

QWorldRect QPageDoc::PageToWorld(const QPageRect& page) const {
    return {PageToWorld(page.TopLeft()), PageToWorld(page.BottomRight())};
}

void QPageDoc::WorldToPage(const QWorldPoly& world, QPagePoly& page) const {
    page.RemoveAll();
    for (int i = 0; i < world.GetCount(); ++i)
        page.Add(WorldToPage(world.Vertex(i)));
}

void QPageDoc::PageToWorld(const QPagePoly& page, QWorldPoly& world) const {
    world.RemoveAll();
    for (int i = 0; i < page.GetCount(); ++i)
        world.Add(PageToWorld(page.Vertex(i)));
}

QPageRect QPageDoc::GetPageRect() const {
    return {QPagePoint(), QPagePoint(m_pageSize.x, m_pageSize.y)};
}

QWorldRect QPageDoc::GetWorldRect() const {
    return PageToWorld(GetPageRect());
}

void QPageDoc::SetManualPageSizeA4() {
    c_pvManualPageSize = {QLength::FromRaw(c_a4Width), QLength::FromRaw(c_a4Height)};
}

bool QPageDoc::IsManualPageSizeA4() {
    return c_pvManualPageSize ==
           QPageVector{QLength::FromRaw(c_a4Width), QLength::FromRaw(c_a4Height)};
}

void QPageDoc::SetFallbackPageSizes(const QPageVector& standard, const QPageVector& other) {
    c_standardPageSize = standard;
    c_otherPageSize = other;
}

QPageVector QPageDoc::FallbackPageSize(int scale) {
    return scale < c_standardSizeScaleLimit ? c_standardPageSize : c_otherPageSize;
}

void QPageDoc::AddFollower(IPageSizeFollower* follower) {
    if (std::find(m_followers.begin(), m_followers.end(), follower) == m_followers.end())
        m_followers.push_back(follower);
}

void QPageDoc::RemoveFollower(IPageSizeFollower* follower) {
    std::erase(m_followers, follower);
}

bool QPageDoc::ComputePageSize(QDeviceContext* dc, bool forcePrinter, bool keepScale) {
    const QReentrancyWriter writer(c_computePageSizeCounter, "QPageDoc::ComputePageSize");
    if (writer.IsReentered())
        return false;
    QPageVector size = c_pvManualPageSize;
    const bool manual = !IsZero(size) && !forcePrinter;
    if (!manual) {
        size = m_pageSize;
        AskPrinterForSize(dc, size);
    }
    int scale = m_scale;
    const double oldSide = SmallerSide(m_pageSize).GetRaw();
    const double newSide = SmallerSide(size).GetRaw();
    if (!manual && !keepScale && oldSide >= 1 && newSide >= 1)
        scale = MulDiv(m_scale, static_cast<int>(std::lround(oldSide)),
                       static_cast<int>(std::lround(newSide)));
    const bool changed = !(size == m_pageSize) || scale != m_scale;
    if (changed && scale > 0) {
        SetScale(scale);
        SetPageSize(size);
        for (IPageSizeFollower* follower : m_followers)
            follower->SetPageSize(size, true);
    }
    return true;
}

bool QPageDoc::AskPrinterForSize(QDeviceContext* dc, QPageVector& size) {
    std::unique_ptr<QDeviceContext> printerDC;
    if (!dc) {
        if (!g_printer || !MayAskPostScriptDriver(*g_printer))
            return false;
        printerDC = g_printer->CreateDC();
        dc = printerDC.get();
    }
    if (!dc || dc->GetDeviceCaps(HORZSIZE) <= 0 || dc->GetDeviceCaps(VERTSIZE) <= 0)
        return false;
    size = {QLength::FromRaw(dc->GetDeviceCaps(HORZSIZE)),
            QLength::FromRaw(dc->GetDeviceCaps(VERTSIZE))};
    if (printerDC && g_printer->DriverName().CompareNoCase(u"PSCRIPT5.DLL") == 0)
        c_bAlwaysAskForPageSize = true;
    return true;
}

// The PostScript driver has crashed when asked for its page; a person who knows that can say
// not to ask it, and take A4 instead.
bool QPageDoc::MayAskPostScriptDriver(const IPrinter& printer) {
    if (printer.DriverName().CompareNoCase(u"PSCRIPT5.DLL") != 0 || c_bAlwaysAskForPageSize ||
        CRegistry::Current().GetProfileInt(u"Options", u"PostscriptPrinterCheck", 1) == 0)
        return true;
    static const QTString c_reliable(
        u"Version %s detected - this version of the driver is still not totally reliable",
        u"Message box (versionNum)");
    static const QTString c_tryLater(u"Version %s detected - could try version 0.3.1296.1 or later",
                                     u"Message box (version)");
    static const QTString c_question(
        u"Warning: PostScript printer driver PSCRIPT5.DLL detected\n\nThis driver has problems "
        u"that are reported to Microsoft but not fixed yet.\nThis can cause intermittent crashes. "
        u"Try it once and if it crashes answer\nNO next time.\n\n%s\n\nReally proceed and ask "
        u"driver for pagesize?",
        u"Message box (versioninfo)");
    static const QTString c_useA4(u"Use a fixed A4 page size instead of asking the printer?",
                                  u"Message box");
    const CString version = printer.DriverVersion();
    const bool recent =
        IsVersionAtLeast(version, u"0.3.1296.1") || IsVersionAtLeast(version, u"0.3.6000.16386");
    const CString versionText = CString::Formatted(recent ? c_reliable : c_tryLater, version);
    if (QMessageBoxYesNoExceptServer(u"QPageDoc::ComputePageSize",
                                     CString::Formatted(c_question, versionText), IDNO,
                                     MB_YESNO | MB_ICONEXCLAMATION) == IDYES)
        return true;
    if (QMessageBoxYesNoExceptServer(u"QPageDoc::ComputePageSize", c_useA4, IDNO,
                                     MB_YESNO | MB_ICONQUESTION) == IDYES)
        SetManualPageSizeA4();
    return false;
}

void QPageDoc::SerializeHeader(CArchive& archive) {
    if (archive.IsStoring())
        StoreHeader(archive);
    else
        LoadHeader(archive);
}

void QPageDoc::StoreHeader(CArchive& archive) const {
    archive << c_scaleTag << static_cast<std::int32_t>(m_scale);
    archive << c_pageSizeTag << m_pageSize.x << m_pageSize.y;
    archive << c_endTag;
}

void QPageDoc::LoadHeader(CArchive& archive) {
    bool sizeRead = false;
    for (;;) {
        std::uint8_t tag = 0;
        archive >> tag;
        if (tag == c_endTag)
            break;
        if (tag == c_scaleTag) {
            std::int32_t scale = 0;
            archive >> scale;
            if (scale > 0)
                SetScale(scale);
        } else if (tag == c_pageSizeTag) {
            QPageVector size;
            archive >> size.x >> size.y;
            SetPageSize(size);
            sizeRead = true;
        } else {
            // Cause 4 is what an unknown tag has always failed with.
            ThrowArchiveException(CArchiveException::writeOnly, archive.GetFileName());
        }
    }
    if (!sizeRead)
        SetPageSize(FallbackPageSize(m_scale));
}

} // namespace keel
