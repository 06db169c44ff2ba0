#include "Support/RedactionKey.h"

#include "Platform/Unix/UnixFileManager.h"
#include "Platform/Unix/UnixProcessInfo.h"

#include <fstream>
#include <stdexcept>
#include <string>

namespace corvid {

namespace {

bool readKey(const std::string& path, LogRedactor::Key& key) {
    std::ifstream in(path, std::ios::binary);
    for (std::uint8_t& byte : key) {
        byte = static_cast<std::uint8_t>(in.get());
    }
    return in.good();
}

} // namespace

LogRedactor::Key redactionKey() {
    UnixFileManager files;
    const auto library = files.applicationLibraryDirectory();
    if (!library.has_value()) {
        throw std::runtime_error("there is no home folder to keep the redaction key in; set HOME");
    }
    if (const auto failure = files.createDirectoryAtPath(*library)) {
        throw std::runtime_error("cannot make the folder of the redaction key: " + *failure);
    }
    const std::string path = *library + "/redaction.key";
    std::error_code error;
    if (const auto file = files.createFileAtPath(path, error)) {
        const LogRedactor::Key fresh = UnixProcessInfo().randomBytes();
        error = file->append({reinterpret_cast<const char*>(fresh.data()), fresh.size()}).error;
    } else if (error == std::errc::file_exists) {
        error.clear();
    }
    LogRedactor::Key key{};
    if (error || !readKey(path, key)) {
        throw std::runtime_error(
            "cannot " + std::string(error ? "write" : "read") + " the redaction key " + path +
            (error ? ": " + error.message() : "; remove it, and a new one is made"));
    }
    return key;
}

} // namespace corvid
