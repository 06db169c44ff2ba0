#pragma once

#include "App/Reporting/LogRedactor.h"

namespace corvid {

/// The user's own key to redact logs under, kept in the file "redaction.key" of the library folder
/// and made at the first call, so that the same name has the same hash in every bundle. Fails with
/// a std::runtime_error that names the file.
LogRedactor::Key redactionKey();

} // namespace corvid
