#include <CorvidHostKit/Host.h>

#include "HostKit/HostSession.h"
#include "Platform/Unix/UnixMessagePortService.h"

namespace corvid::hostkit {

class Host::Implementation {
public:
    Implementation(const std::string& folder, Application& application)
        : session(folder, application, ports, ports.portFolder()) {}

    UnixMessagePortService ports;
    HostSession session;
};

Host::Host(const std::string& folder, Application& application) {
    application.servedBy_ = this;
    implementation_ = std::make_unique<Implementation>(folder, application);
    // Only now, since the application may push from the first call on.
    implementation_->session.open();
}

Host::~Host() = default;

const std::string& Host::folder() const {
    return implementation_->session.service().mapping().localFolder();
}

void Host::push(const std::string& path, const std::string& badge, PushTo to) {
    implementation_->session.service().push(path, badge, to);
}

bool Host::flush(std::chrono::milliseconds timeout) {
    return implementation_->session.service().flush(std::chrono::steady_clock::now() + timeout);
}

bool Host::isShown(const std::string& path) const {
    return implementation_->session.service().isShown(path);
}

} // namespace corvid::hostkit
