#pragma once

#include "keel/document/appservices.h"
#include "keel/document/translate.h"

namespace keel {

// The progress display of a merge, open while it lives when the application shows merging
// messages: `title` while it runs, `done` when it closes.
class QMergeProgress {
public:
    QMergeProgress(int count, const QTString& title, const QTString& done) : m_done(done) {
        if (AppServices().ShowsMergingMessages())
            m_handle = AppServices().ProgressCreate(title, 0, count, false);
    }
    ~QMergeProgress() {
        if (m_handle >= 0)
            AppServices().ProgressDestroy(m_handle, m_done, false);
    }
    QMergeProgress(const QMergeProgress&) = delete;
    QMergeProgress& operator=(const QMergeProgress&) = delete;

    void Step() {
        if (m_handle >= 0)
            AppServices().ProgressStepIt(m_handle);
    }

private:
    const QTString& m_done;
    int m_handle = -1;
};

} // namespace keel
