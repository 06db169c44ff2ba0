#pragma once

#include "Core/Base/Mutex.h"
#include "HostKit/HostSession.h"
#include "Tools/corvid-host/EventLog.h"
#include "Tools/corvid-host/Rules/FaultyMessagePorts.h"
#include "Tools/corvid-host/Rules/Rules.h"

#include <CorvidHostKit/Application.h>

#include <cstddef>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// A host application that says what its rules say, faults included.
class RulesHost : public hostkit::Application {
public:
    struct Options {
        std::string folder;
        Rules rules;
        std::FILE* record = nullptr; ///< gets a line for every message; not owned
    };

    /// Serves `options.folder`. `log` is not owned. Throws hostkit::Error.
    RulesHost(Options options, EventLog& log);
    ~RulesHost() override;

private:
    std::string badge(const std::string& path) override;
    std::vector<hostkit::MenuItem> menu(const std::vector<std::string>& paths,
                                        bool operatingOnParent) override;
    void actionPerformed(const hostkit::Click& click) override;
    void extensionChanged(const std::string& portName, bool isOpen) override;
    void problem(const std::string& text) override;

    std::optional<Fault> faultOf(std::int32_t messageID, std::optional<ByteView> data);
    std::string relative(std::string_view path) const;

    EventLog& log_;
    const Options options_;
    /// Badges that clicks have given. Used on HostKit's queue only.
    std::map<std::string, std::string> given_;
    /// How often each rule of a fault has met its message. Used by the port's thread only.
    std::map<const Fault*, std::size_t> met_;
    FaultyMessagePorts ports_;
    hostkit::HostSession session_;
};

} // namespace corvid
