#pragma once

#include "Tools/corvid-host/ChildProcess.h"
#include "Tools/corvid-host/Clipboard.h"
#include "Tools/corvid-host/EventLog.h"

#include <string>
#include <vector>

namespace corvid {

/// Shows a diff to the person who asked for it: on a desktop in the program that opens such files
/// (xdg-open), else in the host's own output, where no terminal acts on what it holds. One thread.
class ChangesViewer {
public:
    /// `log` is not owned.
    ChangesViewer(EventLog& log, Session session);
    /// Removes the files that it made.
    ~ChangesViewer();
    ChangesViewer(const ChangesViewer&) = delete;
    ChangesViewer& operator=(const ChangesViewer&) = delete;

    void show(const std::string& diff);

private:
    EventLog& log_;
    const Session session_;
    BackgroundPrograms programs_;
    std::vector<std::string> files_;
};

} // namespace corvid
