#include <CorvidHostKit/Application.h>

#include "Core/Base/PrintableText.h"

#include <CorvidHostKit/Error.h>

#include <cstdio>

namespace corvid::hostkit {

Error::~Error() = default;

Application::~Application() = default;

void Application::actionPerformed(const Click&) {}

void Application::extensionChanged(const std::string&, bool) {}

void Application::folderShown(const std::string&) {}

void Application::folderHidden(const std::string&) {}

void Application::problem(const std::string& text) {
    std::fprintf(stderr, "%s\n", printableText(text).c_str());
}

} // namespace corvid::hostkit
