#pragma once

#include "keel/document/appservices.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace keel::test {

// Application services with a product name and version that write down their progress displays
// ("create TEXT LOW..HIGH", "step", "destroy TEXT"); `onStep` runs at each step. Installed for
// their life.
class RecordingProgressServices : public QAppServices {
public:
    RecordingProgressServices() { m_previous = SetAppServices(this); }
    ~RecordingProgressServices() override { SetAppServices(m_previous); }
    RecordingProgressServices(const RecordingProgressServices&) = delete;
    RecordingProgressServices& operator=(const RecordingProgressServices&) = delete;

    CString ProductName() const override { return u"Drafter"; }
    CString ProductVersion() const override { return u"9.1.2"; }
    int ProgressCreate(const CString& text, int low, int high, bool /*cancellable*/) override {
        events.push_back("create " + text.ToUtf8() + " " + std::to_string(low) + ".." +
                         std::to_string(high));
        return 3;
    }
    bool ProgressStepIt(int /*handle*/) override {
        events.push_back("step");
        ++steps;
        if (onStep)
            onStep(steps);
        return true;
    }
    void ProgressDestroy(int /*handle*/, const CString& text, bool /*redraw*/) override {
        events.push_back("destroy " + text.ToUtf8());
    }

    std::vector<std::string> events;
    int steps = 0;
    std::function<void(int)> onStep;

private:
    QAppServices* m_previous = nullptr;
};

} // namespace keel::test
