#include "keel/document/reportpictures.h"

#include "keel/document/ado.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/system/fsfile.h"

#include <algorithm>
#include <cairo.h>
#include <cmath>
#include <memory>

namespace keel {

namespace {

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using Surface = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;

struct ContextDeleter {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using Context = std::unique_ptr<cairo_t, ContextDeleter>;

void Report(const CString& message) {
    QMessageBoxOrLog(message, TranslateString(u"Report", CString(), u"Message box"), true);
}

// The picture as PNG, or null when it is not one that can be read.
Surface ReadPNG(const CString& path) {
    Surface surface(cairo_image_surface_create_from_png(path.ToUtf8().c_str()));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        return nullptr;
    return surface;
}

// The picture scaled by `scale` into a PNG file at `path`.
bool WriteReduced(cairo_surface_t* picture, double scale, const CString& path) {
    const int width =
        std::max(1, static_cast<int>(std::lround(cairo_image_surface_get_width(picture) * scale)));
    const int height =
        std::max(1, static_cast<int>(std::lround(cairo_image_surface_get_height(picture) * scale)));
    Surface reduced(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
    Context context(cairo_create(reduced.get()));
    cairo_scale(context.get(), scale, scale);
    cairo_set_source_surface(context.get(), picture, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(context.get()), CAIRO_FILTER_GOOD);
    cairo_paint(context.get());
    return cairo_status(context.get()) == CAIRO_STATUS_SUCCESS &&
           cairo_surface_write_to_png(reduced.get(), path.ToUtf8().c_str()) == CAIRO_STATUS_SUCCESS;
}

} // namespace

QReportPictures::QReportPictures(QAdo& ado, const CString& reportPath, int maxPixels)
    : m_ado(ado), m_reportPath(reportPath), m_maxPixels(std::max(1, maxPixels)) {}

bool QReportPictures::Add(const CString& id, const CString& type, const CString& picturePath) {
    const Surface picture = ReadPNG(picturePath);
    const int longest = picture ? std::max(cairo_image_surface_get_width(picture.get()),
                                           cairo_image_surface_get_height(picture.get()))
                                : 0;
    CString written = picturePath;
    if (longest > m_maxPixels) {
        WarnOfReduction(type, longest);
        written = QFSFile::GenerateTempPath(CString());
        if (!WriteReduced(picture.get(), static_cast<double>(m_maxPixels) / longest, written)) {
            QFSFile::DeleteIfExists(written, true);
            static const QTString failed(u"The picture \"%s\" could not be reduced for the report.",
                                         u"Message box (picture)");
            Report(CString::Formatted(failed, picturePath));
            return false;
        }
    }
    const bool added = m_ado.AddNewPicture(id, written);
    if (written != picturePath)
        QFSFile::DeleteIfExists(written, true);
    if (!added)
        Report(m_ado.GetLastError());
    return added;
}

void QReportPictures::WarnOfReduction(const CString& type, int beforePx) {
    if (!m_warnedTypes.insert(std::u16string(type.View())).second)
        return;
    static const QTString reduced(u"Report pictures of type %s will be reduced from %d to %d "
                                  u"pixels square for performance in report [%s]",
                                  u"Message box (type,beforePx,afterPx,report)");
    Report(CString::Formatted(reduced, type, beforePx, m_maxPixels, m_reportPath));
}

} // namespace keel
